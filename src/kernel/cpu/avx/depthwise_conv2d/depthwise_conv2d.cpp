#include "kernel/cpu/avx/depthwise_conv2d/depthwise_conv2d.h"

#include "kernel/cpu/avx/conv_core/lane_vectors.h"
#include "kernel/cpu/fallback/depthwise_conv2d/depthwise_tiles.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {
namespace {

// The padding and bias fill of each layout.
constexpr auto kPadC4 = functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1;
constexpr auto kFillC4 = functional::FillBias_SSE_C4HW4_Float_M1;
constexpr auto kPadC8 = functional::Padding_HW_MainMemory_AVX_C8HW8_Float_M1;
constexpr auto kFillC8 = functional::FillBias_AVX_C8HW8_Float_M1;

}  // namespace

// C4HW4 rows run two pixels per register (an odd row ends with a one-pixel
// register); C8HW8 rows one pixel of eight channels.
TRN_DEPTHWISE_MEMBER_CODE(Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1, PixelC4x2, PixelC4x1, 3, 1, kPadC4, kFillC4)
TRN_DEPTHWISE_MEMBER_CODE(Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1, PixelC4x2, PixelC4x1, 3, 2, kPadC4, kFillC4)
TRN_DEPTHWISE_MEMBER_CODE(Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1, PixelC8x1, PixelC8x1, 3, 1, kPadC8, kFillC8)
TRN_DEPTHWISE_MEMBER_CODE(Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1, PixelC8x1, PixelC8x1, 3, 2, kPadC8, kFillC8)
TRN_DEPTHWISE_MEMBER_CODE(Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1, PixelC8x1, PixelC8x1, 5, 1, kPadC8, kFillC8)
TRN_DEPTHWISE_MEMBER_CODE(Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1, PixelC8x1, PixelC8x1, 5, 2, kPadC8, kFillC8)

}  // namespace kernel
}  // namespace tarn
