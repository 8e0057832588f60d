// Grid sampling, as PyTorch's F.grid_sample(input, grid, mode, padding_mode,
// align_corners) on one image: output pixel (i, j) samples the input at the
// position grid[i][j] = (x, y), both in [-1, 1] from the left/top edge to the
// right/bottom edge (see tarn/kernel/grid_sample.h for the arithmetic).
//
// Record fields (GridSampleInfo):
//   "mode"           0 bilinear, 1 nearest (bicubic and others are refused)
//   "padding_mode"   0 zeros, 1 border, 2 reflection
//   "align_corners"  true: -1 and 1 are the centres of the corner pixels;
//                    false: the outer edges of the corner pixels
//
// Inputs, in "input_ids" order: the input, CHW [C, H, W] (the portable
// member) or C8HW8 [ceil(C/8), H, W, 8] (the AVX member, padding lanes kept
// zero), and the grid [H_out, W_out, 2] (plain layout). Output: the input's
// layout at H_out x W_out. A grid of another shape is refused. A NaN grid
// value samples the first row or column under border and reflection padding,
// as PyTorch; under zeros padding a NaN or infinite one gives 0 (PyTorch: NaN).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tarn/kernel/grid_sample.h"
#include "kernel/cpu/fallback/resampling_common/resampling_common.h"

namespace tarn {
namespace kernel {

class GridSampleKernelBase : public ShapedKernelBase {
 public:
  GridSampleKernelBase(runtime::TensorShape::Layout layout, functional::GridSampleFn fn);
  // -1 unless the record is a GridSampleInfo of a known mode and padding mode.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

 private:
  const char* Problem(const std::vector<runtime::TensorShape>& in, runtime::TensorShape* out) const override;

  runtime::TensorShape::Layout layout_;
  std::uint32_t lanes_;
  functional::GridSampleFn fn_;
  functional::GridSampleSetup setup_;
};

// Destructors defined in baseline code (see TRN_BATCHNORM_KERNEL).
#define TRN_GRIDSAMPLE_KERNEL(cls, layout, fn)                                        \
  class cls : public GridSampleKernelBase {                                           \
   public:                                                                            \
    ~cls() override;                                                                  \
    TRN_KERNEL_NAME(cls)                                                              \
    cls() : GridSampleKernelBase(runtime::TensorShape::layout, functional::fn) {}     \
  };

TRN_GRIDSAMPLE_KERNEL(GridSample_Fallback_CHW_Float_M1, CHW, grid_sample_f32)

}  // namespace kernel
}  // namespace tarn
