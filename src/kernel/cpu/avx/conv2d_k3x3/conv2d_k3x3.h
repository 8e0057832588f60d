// AVX 3x3 convolutions, stride 1 and 2, one group: pad, fill the output with
// the bias (or zero), then an output-stationary step (see
// kernel/cpu/fallback/conv2d/conv2d_direct_steps.h) that reads the padded
// input directly, every tap unrolled, no column matrix.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_members.h"

namespace tarn {
namespace kernel {

// CHW: eight neighbouring pixels of one output channel per register, six
// channels by sixteen pixels per tile; weight {ceil(N / 6), C, 3, 3, 1, 6}.
TRN_CONV2D_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1, Port::CHW(), Port::CHW(), Geometry::Fixed(3, 3, 1, 1),
                  WeightOrder::kCustom, TRN_CONV2D_PACKS_WEIGHT)
// C4HW4: one register holds one pixel of two neighbouring output blocks;
// weight {ceil(N / 8), ceil(C / 4), 3, 3, 4, 8}.
TRN_CONV2D_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1, Port::C4HW4(), Port::C4HW4(),
                  Geometry::Fixed(3, 3, 1, 1), WeightOrder::kCustom, TRN_CONV2D_PACKS_WEIGHT)
// C8HW8: one register holds one pixel of one output block; weight GN8C8HW8c8n.
TRN_CONV2D_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, Port::C8HW8(), Port::C8HW8(),
                  Geometry::Fixed(3, 3, 1, 1), WeightOrder::kGN8C8HW8c8n)
TRN_CONV2D_MEMBER(Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1, Port::C8HW8(), Port::C8HW8(),
                  Geometry::Fixed(3, 3, 2, 2), WeightOrder::kGN8C8HW8c8n)

void Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                          const TensorCPUPtr& weight);
void Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                            const TensorCPUPtr& weight);
void Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                            const TensorCPUPtr& weight);
void Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                            const TensorCPUPtr& weight);

}  // namespace kernel
}  // namespace tarn
