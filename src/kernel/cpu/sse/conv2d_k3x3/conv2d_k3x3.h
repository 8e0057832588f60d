// SSE direct 3x3 convolutions, stride 1 and 2, on CHW, C4HW4 and C8HW8: the
// padded input is read in place by unrolled taps, no column matrix. The
// stride-2 steps are the stride-1 templates instantiated for stride 2.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_fixed_base.h"

namespace tarn {
namespace kernel {

// CHW, stride 1: four output channels by two vectors (eight pixels) of one
// row, per input channel and tap two pixel loads and four weight broadcasts.
void Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                           const TensorCPUPtr& weight);
// CHW, stride 2: the same tile over even columns of even rows.
void Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                           const TensorCPUPtr& weight);

// The three C4HW4 stride-1 members (M1 runs an unnamed step of its own):
//
// M1: one output block by eight pixels of a row, output blocks outer; per tap
//     and input lane one weight vector and eight broadcasts. The simplest
//     tile; it wins where rows are short (7x7, 14x14 maps), since its
//     eight-pixel tile wastes less of a short row than M3's sliding window
//     costs there, and for a single output block.
// M2: two output blocks by four pixels, pixel tiles outer: each broadcast
//     feeds two blocks, and the nine taps of input under a tile stay in L1
//     while all output blocks pass over it. It wins on wide layers with large
//     maps when the weights of all blocks fit in L2.
// M3: one output block by eight pixels, sliding along the row: per kernel row
//     and input lane the three taps' weights sit in registers and each of the
//     ten input pixels under the tile is broadcast once for all the taps that
//     read it (ten broadcasts for 24 multiply-adds instead of 24). It wins on
//     long rows (56x56, 28x28), where loads, not multiply-adds, limit M1.
void Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight);
void Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight);

TRN_FIXED_CONV_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, DirectCHWConv2DBase, Geometry::Fixed(3, 3, 1, 1), true)
TRN_FIXED_CONV_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, FixedConv2DBase, Port::C4HW4(), Port::C4HW4(),
                      Geometry::Fixed(3, 3, 1, 1), WeightOrder::kGN4C4HW4c4n, true)
TRN_FIXED_CONV_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2, FixedConv2DBase, Port::C4HW4(), Port::C4HW4(),
                      Geometry::Fixed(3, 3, 1, 1), WeightOrder::kGN4C4HW4c4n, true)
TRN_FIXED_CONV_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3, FixedConv2DBase, Port::C4HW4(), Port::C4HW4(),
                      Geometry::Fixed(3, 3, 1, 1), WeightOrder::kGN4C4HW4c4n, true)
// Runs conv2d_k3x3_s1x1_d1x1_g1_c8hw8_f32_sse_m0.
TRN_FIXED_CONV_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1, FixedConv2DBase, Port::C8HW8(), Port::C8HW8(),
                      Geometry::Fixed(3, 3, 1, 1), WeightOrder::kGN8C8HW8c8n, true)
TRN_FIXED_CONV_MEMBER(Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1, DirectCHWConv2DBase, Geometry::Fixed(3, 3, 2, 2), true)
// One output block by eight pixels, sliding along the row at stride 2 (each
// input pixel broadcast once for the one or two taps that read it).
TRN_FIXED_CONV_MEMBER(Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1, FixedConv2DBase, Port::C4HW4(), Port::C4HW4(),
                      Geometry::Fixed(3, 3, 2, 2), WeightOrder::kGN4C4HW4c4n, true)
// Runs conv2d_k3x3_s2x2_d1x1_g1_c8hw8_f32_sse_m0.
TRN_FIXED_CONV_MEMBER(Conv2d_K3x3_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1, FixedConv2DBase, Port::C8HW8(), Port::C8HW8(),
                      Geometry::Fixed(3, 3, 2, 2), WeightOrder::kGN8C8HW8c8n, true)

}  // namespace kernel
}  // namespace tarn
