// SSE 1x3 and 3x1 convolutions, stride 1, on CHW, C4HW4 and C8HW8 (the
// factorised 3x3 layers of Inception-style networks), direct over the padded
// input.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_fixed_base.h"

namespace tarn {
namespace kernel {

// CHW: four output channels by two vectors of one row; per input channel and
// tap two pixel loads and four weight broadcasts.
void Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                           const TensorCPUPtr& weight);
// Blocked 1x3: one output block by eight (C4HW4) or four (C8HW8) pixels,
// sliding along the row: each input pixel is broadcast once per input lane
// for the three taps that read it.
void Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight);
void Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight);
// CHW 3x1, M1: four output channels by two vectors of one row; the three
// input rows under the tile are loaded once per input channel (six loads,
// twelve broadcasts, 24 multiply-adds). It wins on wide, short maps.
void Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                           const TensorCPUPtr& weight);
// CHW 3x1, M2: four output channels by two rows of one vector: the two
// output rows share two of their four input rows, and each weight broadcast
// serves both rows (four loads, twelve broadcasts, 24 multiply-adds): fewer
// loads per multiply-add than M1, and half the input rows re-read by the next
// tile down. It wins on tall maps and narrow ones (widths of 4 to 7, where
// M1's eight-pixel tile runs half empty).
void Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                           const TensorCPUPtr& weight);
// Blocked 3x1: one output block by eight (C4HW4) or four (C8HW8) pixels.
void Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight);
void Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight);

TRN_FIXED_CONV_MEMBER(Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, DirectCHWConv2DBase, Geometry::Fixed(1, 3, 1, 1), true)
TRN_FIXED_CONV_MEMBER(Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, FixedConv2DBase, Port::C4HW4(), Port::C4HW4(),
                      Geometry::Fixed(1, 3, 1, 1), WeightOrder::kGN4C4HW4c4n, true)
TRN_FIXED_CONV_MEMBER(Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1, FixedConv2DBase, Port::C8HW8(), Port::C8HW8(),
                      Geometry::Fixed(1, 3, 1, 1), WeightOrder::kGN8C8HW8c8n, true)
TRN_FIXED_CONV_MEMBER(Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, DirectCHWConv2DBase, Geometry::Fixed(3, 1, 1, 1), true)
TRN_FIXED_CONV_MEMBER(Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2, DirectCHWConv2DBase, Geometry::Fixed(3, 1, 1, 1), true)
TRN_FIXED_CONV_MEMBER(Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, FixedConv2DBase, Port::C4HW4(), Port::C4HW4(),
                      Geometry::Fixed(3, 1, 1, 1), WeightOrder::kGN4C4HW4c4n, true)
TRN_FIXED_CONV_MEMBER(Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1, FixedConv2DBase, Port::C8HW8(), Port::C8HW8(),
                      Geometry::Fixed(3, 1, 1, 1), WeightOrder::kGN8C8HW8c8n, true)

}  // namespace kernel
}  // namespace tarn
