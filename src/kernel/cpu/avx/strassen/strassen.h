// The 1x1 C8HW8 convolution as Strassen's matrix product
// (native::Strassen_M1, tarn/kernel/native_gemm.h): the weight (output blocks
// x input blocks of 8x8 tiles) times the input (input blocks x H * W pixel
// vectors). No padding, one group.
//
// The bias: Strassen's products overwrite their results (the temporaries
// start uninitialised), so there is no bias-filled output to accumulate
// onto. The step runs the product into the uninitialised output and then
// adds the bias in one pass over it, as the CBLAS member does after its
// beta-0 product; without a bias that pass is skipped.
//
// When it wins: the recursion saves an eighth of the multiply-adds per level
// but adds eighteen matrix sums over quarter-size temporaries, and a 1x1
// layer's inner size (input blocks) is small, so the sums cost more than the
// saved products: where both levels run (ResNet-50's 64 <-> 256 channel 1x1
// layers at 56x56) it is slower than M2. Where a size is odd from the start
// (most MobileNetV2 and SqueezeNet 1x1 layers: 3 or 18 output blocks, 55x55
// or 7x7 pixels) it is one direct product into the unfilled output plus the
// bias pass, on a par with M2.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_members.h"

namespace tarn {
namespace kernel {

TRN_CONV2D_MEMBER(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_Strassen_M1, Port::C8HW8(), Port::C8HW8(),
                  Geometry::Fixed(1, 1, 1, 1).Unpadded(), WeightOrder::kGN8C8HW8c8n)

}  // namespace kernel
}  // namespace tarn
