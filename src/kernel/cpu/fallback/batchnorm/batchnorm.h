// Batch normalisation at inference, as PyTorch's BatchNorm2d / BatchNorm1d in
// eval mode with batch 1:
//
//   y = (x - mean) / sqrt(variance + eps) * scale + shift
//
// Config folds the statistics into one factor pair per channel, computed in
// float as PyTorch does: a = 1 / sqrt(variance + eps) * scale and
// b = shift - mean * a; Forward computes fma(x, a, b), one fused
// multiply-add, as PyTorch's vector kernel does.
//
// Record fields (BatchNorm2dInfo, BatchNorm1dInfo):
//   "num_features"           C, the channel count the input must have (> 0)
//   "eps"                    eps; variance + eps must be > 0 for every channel
//   "momentum"               training only: not read
//   "if_affine"              whether "scale" (gamma) and "shift" (beta) are
//                            present; without them scale = 1, shift = 0
//   "if_track_running_stats" not read: the running statistics are always used
//   "scale", "shift"         C floats each when if_affine
//   "variance", "mean"       running_var and running_mean, C floats each; a
//                            record without them is refused
//   "num_batches_tracked"    training only: not read
//
// Inputs: BatchNorm2d takes a CHW tensor [C, H, W] (the portable and the CHW
// members) or a blocked one [ceil(C/4), H, W, 4] / [ceil(C/8), H, W, 8]
// (the C4HW4 / C8HW8 members; padding lanes stay zero). BatchNorm1d takes a
// vector [C] or a signal [C, L]. The output has the input's shape.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kernel/cpu/fallback/resampling_common/resampling_common.h"
#include "tarn/kernel/normalization.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

class BatchNormKernelBase : public ShapedKernelBase {
 public:
  // record: LAYER_BATCHNORM2D or LAYER_BATCHNORM1D; layout: CHW for the
  // plain members, C4HW4 or C8HW8 for the blocked ones.
  BatchNormKernelBase(runtime::ENUM_TYPE_LAYER record, runtime::TensorShape::Layout layout,
                      functional::ChannelAffineFn fn);
  // -1 unless the record is the kernel's batch-norm record with num_features > 0.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  // Decodes and checks the statistics and folds them into a and b; a
  // mismatched blob or a variance + eps that is not > 0 is refused with a log line.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

  std::uint32_t channels() const { return channels_; }
  // The folded factors, blocks * lanes of each.
  const std::vector<float>& a() const { return a_; }
  const std::vector<float>& b() const { return b_; }

 private:
  const char* Problem(const std::vector<runtime::TensorShape>& in, runtime::TensorShape* out) const override;
  // Stored planes (or blocks) and the floats (or pixels) of each.
  void Geometry(const runtime::TensorShape& shape, std::uint32_t* blocks, std::size_t* plane) const;

  runtime::ENUM_TYPE_LAYER record_;
  runtime::TensorShape::Layout layout_;
  std::uint32_t lanes_;
  functional::ChannelAffineFn fn_;
  std::uint32_t channels_ = 0;
  std::vector<float> a_, b_;
};

// The destructor is declared first and defined in baseline code, so the
// vtable, GetName, Forward and the destructor of every family's class are
// compiled without family instructions: any kernel can be created and named on
// any x86-64. Family code runs only inside the routine handed to the base.
#define TRN_BATCHNORM_KERNEL(cls, record, layout, fn)                                                     \
  class cls : public BatchNormKernelBase {                                                                \
   public:                                                                                                \
    ~cls() override;                                                                                      \
    TRN_KERNEL_NAME(cls)                                                                                  \
    cls() : BatchNormKernelBase(runtime::record, runtime::TensorShape::layout, functional::fn) {}         \
  };

TRN_BATCHNORM_KERNEL(BatchNorm2D_Fallback_CHW_Float_M1, LAYER_BATCHNORM2D, CHW, channel_affine_f32)
TRN_BATCHNORM_KERNEL(BatchNorm1D_Fallback_CL_Float_M1, LAYER_BATCHNORM1D, CHW, channel_affine_f32)

}  // namespace kernel
}  // namespace tarn
