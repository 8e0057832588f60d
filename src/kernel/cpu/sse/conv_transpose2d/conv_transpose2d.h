// SSE transposed convolutions: 3x3 kernel, dilation 1, one group, any stride
// and padding, on CHW and C4HW4.
#pragma once

#include "kernel/cpu/fallback/conv_transpose2d/conv_transpose2d_base.h"

namespace tarn {
namespace kernel {

// The steps: add the scatter of the input (padded by (3 - 1) / stride zero
// pixels per side) into the enlarged output at the geometry's origin. The CHW
// step reads the stored [C, N, 3, 3] weight, the C4HW4 step the
// GN4C4HW4c4n one.
void ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                              const TensorCPUPtr& weight,
                                                              const ConvTranspose2DStepGeometry& geometry);
void ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                                const TensorCPUPtr& weight,
                                                                const ConvTranspose2DStepGeometry& geometry);

TRN_CONV_TRANSPOSE_MEMBER(ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1, CHW, kStored)
TRN_CONV_TRANSPOSE_MEMBER(ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1, C4HW4, kGN4C4HW4c4n)

}  // namespace kernel
}  // namespace tarn
