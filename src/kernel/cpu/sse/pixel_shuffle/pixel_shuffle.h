// Pixel shuffle of the SSE family (SSE4.1): factors 2 and 4 interleave rows
// with unpacks and 4x4 transposes.
#pragma once

#include "kernel/cpu/fallback/pixel_shuffle/pixel_shuffle.h"

namespace tarn {
namespace kernel {

TRN_PIXEL_SHUFFLE_KERNEL(PixelShuffle_SSE_CHW_Float_M1, functional::interleave_rows_f32_sse)

}  // namespace kernel
}  // namespace tarn
