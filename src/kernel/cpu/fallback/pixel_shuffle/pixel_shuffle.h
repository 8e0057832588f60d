// PixelShuffleInfo: PyTorch `pixel_shuffle` (ONNX DepthToSpace, mode CRD) of
// a CHW tensor: [C * r * r, H, W] becomes [C, H * r, W * r] with
// out[c][y * r + i][x * r + j] = in[c * r * r + i * r + j][y][x].
//
// "upscale_factor" f32: r, a whole number >= 1; any other value is refused,
// and so is an input whose channels are not a multiple of r * r.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kernel/crossplatform/shape_common/shape_common.h"
#include "tarn/kernel/shape.h"

namespace tarn {
namespace kernel {

// The columns from `from` on of an interleaved row, one float at a time:
// what the vector forms leave (and all of it for factors they do not take).
void InterleaveRest(const float* const* rows, std::uint32_t r, std::uint32_t from, std::uint32_t width, float* out);

// Whole factors of the resampling records: r when `value` is a whole number
// in [1, 65535], else 0.
std::uint32_t WholeFactor(float value);

class PixelShuffleKernelBase : public PlannedKernelBase {
 public:
  // One output row from the r input rows that interleave into it.
  using InterleaveFn = void (*)(const float* const* rows, std::uint32_t r, std::uint32_t width, float* out);
  explicit PixelShuffleKernelBase(InterleaveFn fn) : fn_(fn) {}
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

 protected:
  // One float CHW tensor whose channels r * r divides.
  bool OutputShape(const std::vector<runtime::TensorShape>& inputs, runtime::TensorShape* output,
                   std::string* why) const override;

 private:
  InterleaveFn fn_;
  std::uint32_t r_ = 0;
};

#define TRN_PIXEL_SHUFFLE_KERNEL(cls, fn)        \
  class cls : public PixelShuffleKernelBase {    \
   public:                                       \
    ~cls() override;                             \
    TRN_KERNEL_NAME(cls)                         \
    cls() : PixelShuffleKernelBase(fn) {}        \
  };

TRN_PIXEL_SHUFFLE_KERNEL(PixelShuffle_Fallback_CHW_Float_M1, functional::interleave_rows_f32)

}  // namespace kernel
}  // namespace tarn
