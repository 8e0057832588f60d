// SSE 1x1 convolutions, stride 1 and 2, on CHW, C4HW4 and C8HW8.
//
// None of them builds a column matrix: each keeps a register tile of outputs
// across all input channels and writes it once (the general member's core
// instead reads and writes the output once per input block). None pads:
// padded 1x1 records are refused and go to the general member. The stride-2
// steps are the stride-1 steps instantiated for stride 2.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_fixed_base.h"

namespace tarn {
namespace kernel {

// Output block by block, each plane swept as one row in tiles of eight pixels
// of one output block (8 accumulators; per input lane one weight vector and
// eight broadcasts). The weights of one block stay in L1 while the input
// streams past once per output block: best on small maps and on layers with
// few output blocks (MobileNetV2 projections, 7x7 and 14x14 maps).
void Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution_M1(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                                const TensorCPUPtr& weight);
// Tiles of two output blocks by four pixels, pixel tiles outer: every
// broadcast input value feeds two blocks (half the broadcasts per multiply-add
// of M1) and the input under a tile stays in L1 while all output blocks pass:
// best on large maps with many output channels (56x56 expansions).
void Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight);
// One output block (two vectors) by four pixels, pixel tiles outer.
void Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight);
// Four output channels by two vectors of strided pixels.
void Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                           const TensorCPUPtr& weight);
// The C4HW4 M1 and C8HW8 M1 steps at stride 2.
void Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight);
void Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight);

// CHW: four output channels by eight pixels of the plane, swept as one row.
TRN_FIXED_CONV_MEMBER(Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, DirectCHWConv2DBase, Geometry::Fixed(1, 1, 1, 1),
                      false)
TRN_FIXED_CONV_MEMBER(Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, FixedConv2DBase, Port::C4HW4(), Port::C4HW4(),
                      Geometry::Fixed(1, 1, 1, 1), WeightOrder::kGN4C4HW4c4n, false)
TRN_FIXED_CONV_MEMBER(Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2, FixedConv2DBase, Port::C4HW4(), Port::C4HW4(),
                      Geometry::Fixed(1, 1, 1, 1), WeightOrder::kGN4C4HW4c4n, false)
TRN_FIXED_CONV_MEMBER(Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1, FixedConv2DBase, Port::C8HW8(), Port::C8HW8(),
                      Geometry::Fixed(1, 1, 1, 1), WeightOrder::kGN8C8HW8c8n, false)
// The CHW stride-2 member pads (a 1x1/2 layer may carry padding); the blocked
// ones do not.
TRN_FIXED_CONV_MEMBER(Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1, DirectCHWConv2DBase, Geometry::Fixed(1, 1, 2, 2), true)
TRN_FIXED_CONV_MEMBER(Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1, FixedConv2DBase, Port::C4HW4(), Port::C4HW4(),
                      Geometry::Fixed(1, 1, 2, 2), WeightOrder::kGN4C4HW4c4n, false)
TRN_FIXED_CONV_MEMBER(Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1, FixedConv2DBase, Port::C8HW8(), Port::C8HW8(),
                      Geometry::Fixed(1, 1, 2, 2), WeightOrder::kGN8C8HW8c8n, false)

}  // namespace kernel
}  // namespace tarn
