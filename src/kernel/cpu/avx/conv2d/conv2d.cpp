#include "kernel/cpu/avx/conv2d/conv2d.h"

#include <immintrin.h>

#include <cstdlib>

#include "tarn/kernel/native_conv.h"
#include "tarn/kernel/tensor_helpers.h"
#include "tarn/kernel/tensor_helpers_vector.h"
#include "tarn/runtime/context.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace {

using runtime::TensorShape;
using std::ptrdiff_t;

// The column matrix of a C8HW8 image: per channel block, one source and one
// destination pointer per tap (zero-filled tables, released after the block);
// every moved element is one 8-float pixel vector.
void Im2colC8HW8(int blocks, int imgH, int imgW, int colH, int colW, const Conv2DParams& p, const float* img,
                 float* col) {
  const int kernelY = static_cast<int>(p.kernel_y), kernelX = static_cast<int>(p.kernel_x);
  const int taps = kernelY * kernelX;
  const ptrdiff_t imgPlane = ptrdiff_t(imgH) * imgW * 8, colPlane = ptrdiff_t(colH) * colW * 8;
  const ptrdiff_t rowStep = ptrdiff_t(p.stride_y) * imgW * 8, colStep = ptrdiff_t(p.stride_x) * 8;
  for (int b = 0; b < blocks; ++b) {
    const float** src = static_cast<const float**>(std::calloc(taps, sizeof(float*)));
    float** dst = static_cast<float**>(std::calloc(taps, sizeof(float*)));
    TARN_NATIVE_ASSERT(src != nullptr && dst != nullptr);
    for (int ky = 0; ky < kernelY; ++ky) {
      for (int kx = 0; kx < kernelX; ++kx) {
        const int t = ky * kernelX + kx;
        src[t] = img + b * imgPlane + (ptrdiff_t(ky) * p.dilation_y * imgW + ptrdiff_t(kx) * p.dilation_x) * 8;
        dst[t] = col + (ptrdiff_t(b) * taps + t) * colPlane;
      }
    }
    for (int oy = 0; oy < colH; ++oy) {
      for (int ox = 0; ox < colW; ++ox) {
        for (int t = 0; t < taps; ++t) _mm256_storeu_ps(dst[t] + ptrdiff_t(ox) * 8, _mm256_loadu_ps(src[t] + ox * colStep));
      }
      for (int t = 0; t < taps; ++t) {
        dst[t] += ptrdiff_t(colW) * 8;
        if (oy + 1 < colH) src[t] += rowStep;
      }
    }
    std::free(src);
    std::free(dst);
  }
}

}  // namespace

bool Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                          std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                          std::shared_ptr<runtime::Context> context) const {
  Conv2DPlan plan;
  auto input = ForwardInput(inputs, context, &plan);
  if (!input) return false;
  const auto& device = context->cpu;
  const Conv2DParams& p = params_;
  auto padded = HasPadding() ? functional::Padding_HW_MainMemory_AVX_C8HW8_Float_M1(
                                   input, p.padding_l, p.padding_r, p.padding_t, p.padding_b, 0.0f, device)
                             : input;
  const int blocks = static_cast<int>(input->shape.dims[0]);
  const int columns = blocks * static_cast<int>(p.kernel_y * p.kernel_x);
  const int oh = static_cast<int>(plan.out_h), ow = static_cast<int>(plan.out_w);
  auto column = device->CreateTensor(
      runtime::MakeShape({static_cast<unsigned>(columns), plan.out_h, plan.out_w, 8}, TensorShape::FLOAT32,
                         TensorShape::C8HW8));
  Im2colC8HW8(blocks, static_cast<int>(plan.padded_h), static_cast<int>(plan.padded_w), oh, ow, p,
              padded->DataAs<float>(), column->DataAs<float>());
  auto output = CreateOutput(plan, *device);
  if (bias_) {
    functional::FillBias_AVX_C8HW8_Float_M1(output, bias_);
  } else {
    FillZero_MainMemory_Float_Fallback_M1(output);
  }
  // Column block (c, ky, kx) meets weight tile (ob, c, ky, kx) of GN8C8HW8c8n.
  native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m0(8 * columns, oh, ow, column->DataAs<float>(), columns,
                                                    static_cast<int>(OutChannels()), 1, 1, 1, 1, 1, 1, 1,
                                                    weight_->DataAs<float>(), static_cast<int>(output->shape.dims[0]),
                                                    oh, ow, output->DataAs<float>());
  outputs.assign(1, output);
  return true;
}

}  // namespace kernel
}  // namespace tarn
