#include "kernel/cpu/sse/depthwise_conv2d/depthwise_conv2d.h"

#include "kernel/cpu/fallback/depthwise_conv2d/depthwise_tiles.h"
#include "kernel/cpu/sse/conv_core/lane_vectors.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {
namespace {

// The padding and bias fill of each layout.
constexpr auto kPadC4 = functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1;
constexpr auto kFillC4 = functional::FillBias_SSE_C4HW4_Float_M1;
constexpr auto kPadChw = Padding_HW_MainMemory_CHW_Float_Fallback_M1;
constexpr auto kFillChw = FillBias_MainMemory_CHW_Float_Fallback_M1;

}  // namespace

// CHW rows run four pixels of one channel per register, C4HW4 rows one
// pixel of four channels.
TRN_DEPTHWISE_MEMBER_CODE(Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1, PixelChwx4, PixelChwx1, 3, 1, kPadChw, kFillChw)
TRN_DEPTHWISE_MEMBER_CODE(Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1, PixelChwx4, PixelChwx1, 3, 2, kPadChw, kFillChw)
TRN_DEPTHWISE_MEMBER_CODE(Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1, PixelC4x1, PixelC4x1, 3, 1, kPadC4, kFillC4)
TRN_DEPTHWISE_MEMBER_CODE(Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1, PixelC4x1, PixelC4x1, 3, 2, kPadC4, kFillC4)

}  // namespace kernel
}  // namespace tarn
