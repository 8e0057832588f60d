// Softmax along one dim, as PyTorch's softmax(x, dim) on a batch of 1,
// numerically stable: the largest value of every line is subtracted before
// the exponential (see tarn/kernel/softmax.h).
//
// Record field (SoftmaxInfo):
//   "dim"  the runtime dim (PyTorch's dim - 1 for a batched tensor); it must
//          be below the input's rank
//
// Input: a float tensor of any rank in a plain layout (blocked layouts are
// refused: their channel dim is split); the output has its shape.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kernel/cpu/fallback/resampling_common/resampling_common.h"
#include "tarn/kernel/softmax.h"

namespace tarn {
namespace kernel {

class SoftmaxKernelBase : public ShapedKernelBase {
 public:
  explicit SoftmaxKernelBase(functional::SoftmaxFn fn) : fn_(fn) {}
  // -1 unless the record is a SoftmaxInfo.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

  std::uint16_t dim() const { return dim_; }

 private:
  // Refuses a dim out of the input's range and blocked inputs.
  const char* Problem(const std::vector<runtime::TensorShape>& in, runtime::TensorShape* out) const override;

  functional::SoftmaxFn fn_;
  std::uint16_t dim_ = 0;
};

// Destructors defined in baseline code (see TRN_BATCHNORM_KERNEL).
#define TRN_SOFTMAX_KERNEL(cls, fn)                          \
  class cls : public SoftmaxKernelBase {                     \
   public:                                                   \
    ~cls() override;                                         \
    TRN_KERNEL_NAME(cls)                                     \
    cls() : SoftmaxKernelBase(functional::fn) {}             \
  };

TRN_SOFTMAX_KERNEL(Softmax_Fallback_Float_M1, softmax_f32)

}  // namespace kernel
}  // namespace tarn
