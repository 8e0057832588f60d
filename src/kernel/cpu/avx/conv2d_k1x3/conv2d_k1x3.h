// AVX 1x3 and 3x1 convolutions on C8HW8 (stride 1, one group), the factorised
// halves of a 3x3 layer: pad, fill the output with the bias (or zero), then
// the output-stationary blocked step with the taps of one row (1x3) or one
// column (3x1). Weight GN8C8HW8c8n.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_members.h"

namespace tarn {
namespace kernel {

TRN_CONV2D_MEMBER(Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, Port::C8HW8(), Port::C8HW8(),
                  Geometry::Fixed(1, 3, 1, 1), WeightOrder::kGN8C8HW8c8n)
TRN_CONV2D_MEMBER(Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, Port::C8HW8(), Port::C8HW8(),
                  Geometry::Fixed(3, 1, 1, 1), WeightOrder::kGN8C8HW8c8n)

void Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                            const TensorCPUPtr& weight);
void Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                            const TensorCPUPtr& weight);

}  // namespace kernel
}  // namespace tarn
