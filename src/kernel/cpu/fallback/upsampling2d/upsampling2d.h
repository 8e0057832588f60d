// 2-D upsampling, as PyTorch's F.interpolate(x, scale_factor=(sy, sx),
// mode='nearest' | 'bilinear', align_corners=...) on an NCHW tensor of batch 1.
//
// Record fields (Upsample2dInfo):
//   "scale_factor_y", "scale_factor_x"  sy and sx, finite and > 0; the output
//                            is floor(H * sy) x floor(W * sx), each at least 1
//   "unsample_type"          0 nearest, 1 bilinear; other codes are refused
//   "align_corner"           bilinear only: false for half-pixel centres
//                            clamped at 0 (ONNX "pytorch_half_pixel"), true
//                            for corner-aligned grids (ONNX "align_corners");
//                            nearest ignores it (PyTorch refuses the pair)
//
// Nearest reads source floor(d * (1 / s)) (ONNX Resize asymmetric + floor),
// from the given scale, not from the sizes; like PyTorch's multi-channel path
// there is no special case for an output of the input's size. The source
// tables and the arithmetic are in tarn/kernel/upsampling.h.
//
// Input: CHW [C, H, W] (portable and CHW members) or blocked [B, H, W, 4|8]
// (the C4HW4 / C8HW8 members, padding lanes stay zero: every lane is a blend
// of the same lane). Output: the same layout at the upsampled size.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kernel/cpu/fallback/resampling_common/resampling_common.h"
#include "tarn/kernel/upsampling.h"

namespace tarn {
namespace kernel {

class Upsampling2DKernelBase : public ShapedKernelBase {
 public:
  Upsampling2DKernelBase(runtime::TensorShape::Layout layout, functional::Upsample2DFn fn);
  // -1 unless the record is an Upsample2dInfo with finite scales > 0 and a known mode.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

 private:
  // Refuses inputs of another layout and inputs whose output would be empty
  // or hold more than 2^31 - 1 floats.
  const char* Problem(const std::vector<runtime::TensorShape>& in, runtime::TensorShape* out) const override;

  runtime::TensorShape::Layout layout_;
  std::uint32_t lanes_;
  functional::Upsample2DFn fn_;
  float scale_y_ = 1.0f, scale_x_ = 1.0f;
  bool bilinear_ = false, align_corners_ = false;
};

// Destructors defined in baseline code (see TRN_BATCHNORM_KERNEL).
#define TRN_UPSAMPLING_KERNEL(cls, layout, fn)                                        \
  class cls : public Upsampling2DKernelBase {                                         \
   public:                                                                            \
    ~cls() override;                                                                  \
    TRN_KERNEL_NAME(cls)                                                              \
    cls() : Upsampling2DKernelBase(runtime::TensorShape::layout, functional::fn) {}   \
  };

TRN_UPSAMPLING_KERNEL(Upsampling2D_Fallback_CHW_Float_M1, CHW, upsample2d_f32)

}  // namespace kernel
}  // namespace tarn
