// AVX 5x5 convolution on C8HW8, stride 1, one group: pad, fill the output
// with the bias (or zero), then the output-stationary blocked step with all
// 25 taps unrolled per input lane. Weight GN8C8HW8c8n. (The 5x5 stride-2
// member on CHW goes through a column matrix: kernel/cpu/avx/im2col_sgemm.)
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_members.h"

namespace tarn {
namespace kernel {

TRN_CONV2D_MEMBER(Conv2d_K5x5_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, Port::C8HW8(), Port::C8HW8(),
                  Geometry::Fixed(5, 5, 1, 1), WeightOrder::kGN8C8HW8c8n)

void Conv2d_K5x5_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                            const TensorCPUPtr& weight);

}  // namespace kernel
}  // namespace tarn
