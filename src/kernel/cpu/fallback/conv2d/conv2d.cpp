#include "kernel/cpu/fallback/conv2d/conv2d.h"

#include <cmath>

#include "tarn/kernel/tensor_helpers.h"
#include "tarn/runtime/context.h"

namespace tarn {
namespace kernel {

bool Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                             std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                             std::shared_ptr<runtime::Context> context) const {
  Conv2DPlan plan;
  auto input = ForwardInput(inputs, context, &plan);
  if (!input) return false;
  const Conv2DParams& p = params_;
  auto padded = Padded(input, Padding_HW_MainMemory_CHW_Float_Fallback_M1, context->cpu);
  auto output = BiasedOutput(plan, *context->cpu, FillBias_MainMemory_CHW_Float_Fallback_M1);
  const std::size_t in_plane = std::size_t(plan.padded_h) * plan.padded_w;
  const std::size_t out_plane = std::size_t(plan.out_h) * plan.out_w;
  const float* src = padded->DataAs<float>();
  float* dst = output->DataAs<float>();
  for (std::uint32_t g = 0; g < p.groups; ++g) {
    for (std::uint32_t n = 0; n < p.out_channels_per_group; ++n) {
      float* out = dst + (std::size_t(g) * p.out_channels_per_group + n) * out_plane;
      for (std::uint32_t c = 0; c < p.in_channels_per_group; ++c) {
        const float* w = static_cast<const float*>(weight_->Locate5D(g, n, c, 0, 0));
        const float* in = src + (std::size_t(g) * p.in_channels_per_group + c) * in_plane;
        // One input channel's partial sum reaches the output before the next
        // channel starts: the summation order of the reference.
        for (std::uint32_t oy = 0; oy < plan.out_h; ++oy) {
          for (std::uint32_t ox = 0; ox < plan.out_w; ++ox) {
            float acc = 0.0f;
            for (std::uint32_t ky = 0; ky < p.kernel_y; ++ky) {
              const float* row = in + std::size_t(oy * p.stride_y + ky * p.dilation_y) * plan.padded_w +
                                 std::size_t(ox) * p.stride_x;
              for (std::uint32_t kx = 0; kx < p.kernel_x; ++kx) {
                acc = std::fma(w[ky * p.kernel_x + kx], row[std::size_t(kx) * p.dilation_x], acc);
              }
            }
            out[std::size_t(oy) * plan.out_w + ox] += acc;
          }
        }
      }
    }
  }
  outputs.assign(1, output);
  return true;
}

}  // namespace kernel
}  // namespace tarn
