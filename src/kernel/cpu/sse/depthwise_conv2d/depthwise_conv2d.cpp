#include "kernel/cpu/sse/depthwise_conv2d/depthwise_conv2d.h"

#include "kernel/cpu/fallback/depthwise_conv2d/depthwise_tiles.h"
#include "kernel/cpu/sse/conv_core/lane_vectors.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {

void Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                                 const TensorCPUPtr& weight) {
  depthwise::Step<PixelChwx4, PixelChwx1, 3, 1>(input, output, weight, __func__);
}

void Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                                 const TensorCPUPtr& weight) {
  depthwise::Step<PixelChwx4, PixelChwx1, 3, 2>(input, output, weight, __func__);
}

void Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight) {
  depthwise::Step<PixelC4x1, PixelC4x1, 3, 1>(input, output, weight, __func__);
}

void Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight) {
  depthwise::Step<PixelC4x1, PixelC4x1, 3, 2>(input, output, weight, __func__);
}

TRN_DEPTHWISE_FORWARD(Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                      FillBias_MainMemory_CHW_Float_Fallback_M1)
TRN_DEPTHWISE_FORWARD(Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                      FillBias_MainMemory_CHW_Float_Fallback_M1)
TRN_DEPTHWISE_FORWARD(Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1,
                      functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1, functional::FillBias_SSE_C4HW4_Float_M1)
TRN_DEPTHWISE_FORWARD(Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1,
                      functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1, functional::FillBias_SSE_C4HW4_Float_M1)

}  // namespace kernel
}  // namespace tarn
