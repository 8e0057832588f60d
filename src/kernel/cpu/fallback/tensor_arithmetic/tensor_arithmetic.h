// Reduction by sum or mean over the axes of a TensorArithmeticInfo record.
#pragma once

#include <string>

#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

class TensorArithmetic_Fallback_M1 : public KernelBase {
 public:
  TRN_KERNEL_NAME(TensorArithmetic_Fallback_M1)
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  // "arith_type" 0 is "Sum", 1 "Mean"; anything else fails "Invalid arithmetic type".
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  // The input's shape with the reduced dims set to 1; nothing for axes out of range.
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One float main-memory tensor whose rank covers every axis.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

  std::string arith_name;
  std::vector<std::int16_t> axes;
};

}  // namespace kernel
}  // namespace tarn
