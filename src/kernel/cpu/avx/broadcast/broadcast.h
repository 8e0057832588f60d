// Per-channel multiply of the blocked layouts (AVX2 + FMA): a C x 1 x 1 scale
// times a C x H x W tensor, whichever input the scale is.
#pragma once

#include "kernel/cpu/fallback/broadcast/broadcast.h"

namespace tarn {
namespace kernel {

TRN_CHANNEL_MUL_KERNEL(BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1, 4, C4HW4, broadcast_mul_c4hw4_avx_f32_m1)
TRN_CHANNEL_MUL_KERNEL(BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1, 8, C8HW8, broadcast_mul_c8hw8_avx_f32_m1)

}  // namespace kernel
}  // namespace tarn
