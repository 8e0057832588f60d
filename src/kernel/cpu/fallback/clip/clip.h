// Clip, as PyTorch's clamp(x, min, max) / ONNX Clip: every element is held to
// [min, max]; NaN stays NaN.
//
// Record fields (ClipInfo):
//   "minimum_value", "maximum_value"  the bounds, half floats widened exactly
//          (infinite bounds leave that side open). A bound that is NaN, or a
//          minimum above the maximum, is refused: PyTorch would set every
//          element to the maximum then, which no exported network means.
//
// Input: a float tensor of any layout. On the blocked layouts a range that
// excludes 0 is refused, since it would write into the padding lanes, which
// must stay zero. The output has the input's shape.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kernel/cpu/fallback/resampling_common/resampling_common.h"
#include "tarn/kernel/softmax.h"

namespace tarn {
namespace kernel {

class ClipKernelBase : public ShapedKernelBase {
 public:
  explicit ClipKernelBase(functional::ClipFn fn) : fn_(fn) {}
  // -1 unless the record is a ClipInfo with bounds that are not NaN and min <= max.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

  float lo() const { return lo_; }
  float hi() const { return hi_; }

 private:
  const char* Problem(const std::vector<runtime::TensorShape>& in, runtime::TensorShape* out) const override;

  functional::ClipFn fn_;
  float lo_ = 0.0f, hi_ = 0.0f;
};

// Destructors defined in baseline code (see TRN_BATCHNORM_KERNEL).
#define TRN_CLIP_KERNEL(cls, fn)                 \
  class cls : public ClipKernelBase {            \
   public:                                       \
    ~cls() override;                             \
    TRN_KERNEL_NAME(cls)                         \
    cls() : ClipKernelBase(functional::fn) {}    \
  };

TRN_CLIP_KERNEL(Clip_Fallback_Float_M1, clip_f32)

}  // namespace kernel
}  // namespace tarn
