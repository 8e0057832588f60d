#include "kernel/cpu/fallback/conv_transpose2d/conv_transpose2d.h"

#include <cstring>

#include "tarn/kernel/tensor_helpers.h"
#include "tarn/runtime/context.h"

namespace tarn {
namespace kernel {

bool ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1::Forward(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
    std::shared_ptr<runtime::Context> context) const {
  ConvTranspose2DPlan plan;
  auto input = ForwardInput(inputs, context, &plan);
  if (!input) return false;
  const ConvTranspose2DParams& p = params_;
  auto enlarged = EnlargedOutput(plan, *context->cpu, FillBias_MainMemory_CHW_Float_Fallback_M1);
  const std::size_t in_plane = std::size_t(plan.in_h) * plan.in_w;
  const std::size_t row = plan.enlarged_w, plane = std::size_t(plan.enlarged_h) * row;
  const std::size_t taps = std::size_t(p.kernel_y) * p.kernel_x;
  const float* src = input->DataAs<float>();
  const float* weight = weight_->DataAs<float>();  // [G, C/G, N/G, KY, KX]
  float* dst = enlarged->DataAs<float>();
  for (std::uint32_t g = 0; g < p.groups; ++g) {
    for (std::uint32_t c = 0; c < p.in_channels_per_group; ++c) {
      const float* in = src + (std::size_t(g) * p.in_channels_per_group + c) * in_plane;
      for (std::uint32_t n = 0; n < p.out_channels_per_group; ++n) {
        const float* w = weight + ((std::size_t(g) * p.in_channels_per_group + c) * p.out_channels_per_group + n) * taps;
        float* out = dst + (std::size_t(g) * p.out_channels_per_group + n) * plane + plan.origin_y * row + plan.origin_x;
        for (std::uint32_t iy = 0; iy < plan.in_h; ++iy) {
          for (std::uint32_t ky = 0; ky < p.kernel_y; ++ky) {
            float* out_row = out + (std::size_t(iy) * p.stride_y + std::size_t(ky) * p.dilation_y) * row;
            for (std::uint32_t ix = 0; ix < plan.in_w; ++ix) {
              const float v = in[std::size_t(iy) * plan.in_w + ix];
              float* o = out_row + std::size_t(ix) * p.stride_x;
              for (std::uint32_t kx = 0; kx < p.kernel_x; ++kx) o[std::size_t(kx) * p.dilation_x] += v * w[ky * p.kernel_x + kx];
            }
          }
        }
      }
    }
  }
  // Crop the positive paddings.
  auto output = context->cpu->CreateTensor(port().Shape(OutChannels(), plan.out_h, plan.out_w));
  float* o = output->DataAs<float>();
  for (std::uint32_t n = 0; n < OutChannels(); ++n) {
    for (std::uint32_t y = 0; y < plan.out_h; ++y) {
      std::memcpy(o + (std::size_t(n) * plan.out_h + y) * plan.out_w,
                  dst + n * plane + (std::size_t(y) + plan.cut_t) * row + plan.cut_l, plan.out_w * sizeof(float));
    }
  }
  outputs.assign(1, output);
  return true;
}

}  // namespace kernel
}  // namespace tarn
