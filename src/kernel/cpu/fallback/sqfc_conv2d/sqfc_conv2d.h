// Convolutions trained with simulated fixed-point quantisation (the SQFC
// records). Weights, bias and outputs each live on a signed fixed-point grid
// of `bits` bits spanning [-clip, clip):
//
//   step = clip / 2^(bits - 1)
//   q(v) = min(max(nearbyint(v * (1 / step)), -2^(bits - 1)), 2^(bits - 1) - 1) * step
//
// which is torch.fake_quantize_per_tensor_affine(v, step, 0, -2^(bits - 1),
// 2^(bits - 1) - 1) (ties to even; NaN stays NaN). A clip that is a power of
// two makes the grid an exact binary fixed-point format.
//
// Record fields (SQFCConv2dInfo):
//   "in_channels" ... "if_bias", "weight", "bias"
//                       as Conv2dInfo (PyTorch Conv2d, weight [N, C/G, KY, KX]);
//                       the paddings must be >= 0
//   "w_clip", "w_qbit"  the weight grid
//   "b_clip", "b_qbit"  the bias grid
//   "a_clip", "a_qbit"  the grid of the output (the activation handed on)
// A bit width of 0 leaves that quantity in float; 1 to 24 bits are accepted
// (a float holds every grid index exactly), more are refused, and a grid of
// one or more bits needs clip > 0.
//
// SQFCConv2dFoldedBNInfo adds the batch normalisation that followed the
// convolution in training ("eps", "if_affine", "scale", "shift", "variance",
// "mean"; "momentum" and "if_track_running_stats" are not read). Config folds
// it into the weights before quantising them, per output channel n in float:
//   f = scale / sqrt(variance + eps)   (scale = 1 without if_affine)
//   w' = w * f,   b' = (b - mean) * f + shift   (b = 0 without if_bias)
// so the folded layer always has a bias; variance + eps must be > 0.
//
// Config quantises the weight and the bias once and configures the portable
// general convolution with them; Forward runs it and puts its output on the
// activation grid. Input and output are CHW tensors, as the convolution's.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kernel/cpu/fallback/conv2d/conv2d.h"
#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

namespace functional {

// One fixed-point grid; bits 0 means none (the values stay as they are).
struct FixedPointGrid {
  std::uint32_t bits = 0;
  float step = 0.0f, inverse = 0.0f, lowest = 0.0f, highest = 0.0f;
};
// The grid of `bits` bits over clip; false for bits > 24 or clip 0 with bits > 0.
bool MakeFixedPointGrid(std::uint32_t clip, std::uint32_t bits, FixedPointGrid* grid);
// values[i] = q(values[i]) on the grid (nothing without bits).
void fake_quantize_f32(const FixedPointGrid& grid, float* values, std::size_t count);

}  // namespace functional

class SQFCConv2DKernelBase : public KernelBase {
 public:
  explicit SQFCConv2DKernelBase(bool folded_bn) : folded_(folded_bn) {}
  // -1 unless the record is the kernel's SQFC record (the plain kernel
  // refuses the folded one) whose geometry the convolution accepts, with
  // paddings >= 0 and valid grids.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  std::int32_t IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

  // The convolution record built in Config (quantised weight and bias).
  const std::shared_ptr<runtime::Conv2dInfo>& quantised() const { return quantised_; }

 private:
  // Why the record cannot be computed, or null; with `conv` the convolution
  // record of its geometry (weights not yet set).
  const char* RecordProblem(const std::shared_ptr<runtime::LayerInfo>& layer, runtime::Conv2dInfo* conv) const;

  bool folded_;
  functional::FixedPointGrid activation_;
  std::shared_ptr<runtime::Conv2dInfo> quantised_;
  std::shared_ptr<Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1> conv_;
};

class SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1 : public SQFCConv2DKernelBase {
 public:
  TRN_KERNEL_NAME(SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1)
  SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1() : SQFCConv2DKernelBase(false) {}
};

class SQFCConv2DFoldedBN_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1 : public SQFCConv2DKernelBase {
 public:
  TRN_KERNEL_NAME(SQFCConv2DFoldedBN_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1)
  SQFCConv2DFoldedBN_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1() : SQFCConv2DKernelBase(true) {}
};

}  // namespace kernel
}  // namespace tarn
