// AVX depthwise convolutions: 3x3 with stride 1 or 2 on C4HW4 (two pixels per
// register) and C8HW8, 5x5 with stride 1 or 2 on C8HW8.
#pragma once

#include "kernel/cpu/fallback/depthwise_conv2d/depthwise_conv2d_base.h"

namespace tarn {
namespace kernel {

// The steps: accumulate the depthwise convolution of the padded input with
// the G4NCHW4 (C4HW4) or G8NCHW8 (C8HW8) weight onto the output, which holds
// the bias or zero.
void Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight);
void Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight);
void Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight);
void Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight);
void Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight);
void Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                   const TensorCPUPtr& output,
                                                                   const TensorCPUPtr& weight);

TRN_DEPTHWISE_MEMBER(Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1, C4HW4, 3, 1)
TRN_DEPTHWISE_MEMBER(Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1, C4HW4, 3, 2)
TRN_DEPTHWISE_MEMBER(Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1, C8HW8, 3, 1)
TRN_DEPTHWISE_MEMBER(Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1, C8HW8, 3, 2)
TRN_DEPTHWISE_MEMBER(Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1, C8HW8, 5, 1)
TRN_DEPTHWISE_MEMBER(Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1, C8HW8, 5, 2)

}  // namespace kernel
}  // namespace tarn
