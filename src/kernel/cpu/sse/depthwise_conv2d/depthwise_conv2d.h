// SSE depthwise convolutions, 3x3 with stride 1 or 2, on CHW and C4HW4.
#pragma once

#include "kernel/cpu/fallback/depthwise_conv2d/depthwise_conv2d_base.h"

namespace tarn {
namespace kernel {

// The steps: accumulate the depthwise convolution of the padded input with
// the weight onto the output, which holds the bias or zero. CHW steps read the
// stored [C, 1, 1, 3, 3] weight, C4HW4 steps the G4NCHW4 one.
void Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                                 const TensorCPUPtr& weight);
void Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                                 const TensorCPUPtr& weight);
void Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight);
void Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight);

TRN_DEPTHWISE_MEMBER(Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1, CHW, 3, 1)
TRN_DEPTHWISE_MEMBER(Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1, CHW, 3, 2)
TRN_DEPTHWISE_MEMBER(Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1, C4HW4, 3, 1)
TRN_DEPTHWISE_MEMBER(Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1, C4HW4, 3, 2)

}  // namespace kernel
}  // namespace tarn
