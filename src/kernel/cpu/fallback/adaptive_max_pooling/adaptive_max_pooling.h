// Adaptive max pooling, as PyTorch's F.adaptive_max_pool2d on one image (the
// values; the indices are not produced). Output cell (oy, ox) covers input rows
// floor(oy * H / OH) up to ceil((oy + 1) * H / OH), computed in integers as
// PyTorch does, and columns likewise; windows may overlap. The maximum starts
// at -inf and takes every larger value and every NaN, so a NaN in a window
// gives NaN.
//
// Record field (AdaptiveMaxPool2dInfo):
//   "output_size"  [OH, OW], or [S] for a square S x S output; 0 is refused
//
// Input: CHW [C, H, W]; output CHW [C, OH, OW].
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kernel/cpu/fallback/resampling_common/resampling_common.h"

namespace tarn {
namespace kernel {

class AdaptivePooling2D_Max_Fallback_CHW_Float_M1 : public ShapedKernelBase {
 public:
  TRN_KERNEL_NAME(AdaptivePooling2D_Max_Fallback_CHW_Float_M1)
  // -1 unless the record is an AdaptiveMaxPool2dInfo with one or two non-zero sizes.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

  std::uint32_t output_h() const { return output_h_; }
  std::uint32_t output_w() const { return output_w_; }

 private:
  const char* Problem(const std::vector<runtime::TensorShape>& in, runtime::TensorShape* out) const override;

  std::uint32_t output_h_ = 0, output_w_ = 0;
};

}  // namespace kernel
}  // namespace tarn
