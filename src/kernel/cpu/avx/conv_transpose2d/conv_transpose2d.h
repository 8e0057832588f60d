// AVX transposed convolution: 3x3 kernel, dilation 1, one group, any stride
// and padding, on C8HW8.
#pragma once

#include "kernel/cpu/fallback/conv_transpose2d/conv_transpose2d_base.h"

namespace tarn {
namespace kernel {

// The step: adds the scatter of the input (padded by (3 - 1) / stride zero
// pixels per side) into the enlarged output at the geometry's origin; weight
// GN8C8HW8c8n.
void ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                                const TensorCPUPtr& weight,
                                                                const ConvTranspose2DStepGeometry& geometry);

TRN_CONV_TRANSPOSE_MEMBER(ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1, C8HW8, kGN8C8HW8c8n)

}  // namespace kernel
}  // namespace tarn
