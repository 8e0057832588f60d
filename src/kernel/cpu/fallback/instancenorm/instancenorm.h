// Instance normalisation, as PyTorch's InstanceNorm2d on one image (batch 1):
// every channel is normalised with the statistics of its own H x W plane,
//
//   y = (x - mean) / sqrt(var + eps) * scale + shift,
//
// mean and var (biased) computed per pass with double sums; then, as PyTorch
// does, invstd = 1 / sqrt(var + eps) in double (0 when var and eps are both 0),
// rounded to float, a = invstd * scale and b = shift - mean * a in float, and
// y = fma(x, a, b) by the family's affine routine.
//
// Record fields (InstanceNorm2dInfo):
//   "num_features"           C; with if_affine the input must have C channels
//                            (without, like PyTorch, any channel count runs)
//   "eps"                    eps, finite and >= 0
//   "momentum"               training only: not read
//   "if_affine"              whether "scale" (gamma) and "shift" (beta), C
//                            floats each, are applied
//   "if_track_running_stats" not read: the record holds no running
//                            statistics, so the input's own are always used
//                            (PyTorch's default track_running_stats=False)
//
// Input: a CHW tensor [C, H, W]; the output has its shape.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kernel/cpu/fallback/resampling_common/resampling_common.h"
#include "tarn/kernel/normalization.h"

namespace tarn {
namespace kernel {

class InstanceNormKernelBase : public ShapedKernelBase {
 public:
  InstanceNormKernelBase(functional::MeanVarFn stats, functional::ChannelAffineFn affine)
      : stats_(stats), affine_(affine) {}
  // -1 unless the record is an InstanceNorm2dInfo.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  // Refuses (logged) an eps that is negative or not finite and, with
  // if_affine, blobs that do not hold num_features floats.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

 private:
  const char* Problem(const std::vector<runtime::TensorShape>& in, runtime::TensorShape* out) const override;

  functional::MeanVarFn stats_;
  functional::ChannelAffineFn affine_;
  float eps_ = 0.0f;
  bool affine_params_ = false;
  std::uint32_t channels_ = 0;
  std::vector<float> scale_, shift_;
};

// Destructors defined in baseline code (see TRN_BATCHNORM_KERNEL).
#define TRN_INSTANCENORM_KERNEL(cls, stats, affine)                                       \
  class cls : public InstanceNormKernelBase {                                             \
   public:                                                                                \
    ~cls() override;                                                                      \
    TRN_KERNEL_NAME(cls)                                                                  \
    cls() : InstanceNormKernelBase(functional::stats, functional::affine) {}              \
  };

TRN_INSTANCENORM_KERNEL(InstanceNorm2D_Fallback_CHW_Float_M1, mean_var_f32, channel_affine_f32)

}  // namespace kernel
}  // namespace tarn
