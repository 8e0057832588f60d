// The kernel of input layers: hands the caller's tensor on unchanged.
#pragma once

#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

class Input_Fallback_M1 : public KernelBase {
 public:
  TRN_KERNEL_NAME(Input_Fallback_M1)
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // Any one tensor in main memory: inputs may be float data or pixel buffers.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  std::int32_t IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;
};

}  // namespace kernel
}  // namespace tarn
