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
// Inputs, in "input_ids" order: the CHW input [C, H, W] and the grid
// [H_out, W_out, 2] (plain layout). Output: CHW [C, H_out, W_out]. A grid of
// another shape is refused. NaN grid values give NaN outputs (zeros padding)
// or sample the first row or column (border and reflection), as PyTorch.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tarn/kernel/grid_sample.h"
#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

class GridSampleKernelBase : public KernelBase {
 public:
  explicit GridSampleKernelBase(functional::GridSampleFn fn) : fn_(fn) {}
  // -1 unless the record is a GridSampleInfo of a known mode and padding mode.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

 private:
  const char* ShapeProblem(const runtime::TensorShape& input, const runtime::TensorShape& grid) const;

  functional::GridSampleFn fn_;
  functional::GridSampleSpec spec_;
};

// Destructors defined in baseline code (see TRN_BATCHNORM_KERNEL).
#define TRN_GRIDSAMPLE_KERNEL(cls, fn)                \
  class cls : public GridSampleKernelBase {           \
   public:                                            \
    ~cls() override;                                  \
    TRN_KERNEL_NAME(cls)                              \
    cls() : GridSampleKernelBase(functional::fn) {}   \
  };

TRN_GRIDSAMPLE_KERNEL(GridSample_Fallback_CHW_Float_M1, grid_sample_f32)

}  // namespace kernel
}  // namespace tarn
