#include "kernel/cpu/avx/depthwise_conv2d/depthwise_conv2d.h"

#include "kernel/cpu/avx/conv_core/lane_vectors.h"
#include "kernel/cpu/fallback/depthwise_conv2d/depthwise_tiles.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {

// C4HW4 rows run two pixels per register; an odd last pixel takes a
// single-pixel register.
void Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight) {
  depthwise::Step<PixelC4x2, PixelC4x1, 3, 1>(input, output, weight, __func__);
}

void Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight) {
  depthwise::Step<PixelC4x2, PixelC4x1, 3, 2>(input, output, weight, __func__);
}

void Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight) {
  depthwise::Step<PixelC8x1, PixelC8x1, 3, 1>(input, output, weight, __func__);
}

void Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight) {
  depthwise::Step<PixelC8x1, PixelC8x1, 3, 2>(input, output, weight, __func__);
}

void Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight) {
  depthwise::Step<PixelC8x1, PixelC8x1, 5, 1>(input, output, weight, __func__);
}

void Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight) {
  depthwise::Step<PixelC8x1, PixelC8x1, 5, 2>(input, output, weight, __func__);
}

TRN_DEPTHWISE_FORWARD(Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1,
                      functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1, functional::FillBias_SSE_C4HW4_Float_M1)
TRN_DEPTHWISE_FORWARD(Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1,
                      functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1, functional::FillBias_SSE_C4HW4_Float_M1)
TRN_DEPTHWISE_FORWARD(Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1,
                      functional::Padding_HW_MainMemory_AVX_C8HW8_Float_M1, functional::FillBias_AVX_C8HW8_Float_M1)
TRN_DEPTHWISE_FORWARD(Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1,
                      functional::Padding_HW_MainMemory_AVX_C8HW8_Float_M1, functional::FillBias_AVX_C8HW8_Float_M1)
TRN_DEPTHWISE_FORWARD(Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1,
                      functional::Padding_HW_MainMemory_AVX_C8HW8_Float_M1, functional::FillBias_AVX_C8HW8_Float_M1)
TRN_DEPTHWISE_FORWARD(Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1,
                      functional::Padding_HW_MainMemory_AVX_C8HW8_Float_M1, functional::FillBias_AVX_C8HW8_Float_M1)

}  // namespace kernel
}  // namespace tarn
