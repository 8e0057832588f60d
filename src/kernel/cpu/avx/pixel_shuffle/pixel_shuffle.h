// Pixel shuffle of the AVX family (AVX2): factors 2, 4 and 8 interleave rows
// with unpacks, lane permutes and transposes.
#pragma once

#include "kernel/cpu/fallback/pixel_shuffle/pixel_shuffle.h"

namespace tarn {
namespace kernel {

TRN_PIXEL_SHUFFLE_KERNEL(PixelShuffle_AVX_CHW_Float_M1, functional::interleave_rows_f32_avx)

}  // namespace kernel
}  // namespace tarn
