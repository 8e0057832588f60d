#include "kernel/cpu/fallback/conv1d/conv1d.h"

#include <cmath>

namespace tarn {
namespace kernel {

bool Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                      std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                      std::shared_ptr<runtime::Context> context) const {
  std::shared_ptr<runtime::TensorCPU> padded, output;
  if (!Prepare(inputs, context, &padded, &output)) return false;
  const Conv1DParams& p = params_;
  const std::size_t in_len = padded->shape.dims[1], out_len = output->shape.dims[1];
  const float* src = padded->DataAs<float>();
  float* dst = output->DataAs<float>();
  const float* weight = weight_->DataAs<float>();
  for (std::uint32_t g = 0; g < p.groups; ++g) {
    for (std::uint32_t n = 0; n < p.out_channels_per_group; ++n) {
      const std::size_t o = std::size_t(g) * p.out_channels_per_group + n;
      float* out = dst + o * out_len;
      for (std::uint32_t c = 0; c < p.in_channels_per_group; ++c) {
        const float* w = weight + (o * p.in_channels_per_group + c) * p.kernel;
        const float* in = src + (std::size_t(g) * p.in_channels_per_group + c) * in_len;
        for (std::size_t l = 0; l < out_len; ++l) {
          float acc = 0.0f;
          for (std::uint32_t k = 0; k < p.kernel; ++k) {
            acc = std::fma(w[k], in[l * p.stride + std::size_t(k) * p.dilation], acc);
          }
          out[l] += acc;
        }
      }
    }
  }
  outputs.assign(1, output);
  return true;
}

}  // namespace kernel
}  // namespace tarn
