// Concatenation of C8HW8 tensors, AVX2: channel offsets that are not a
// multiple of 8 shift lanes across blocks with lane permutes and blends.
#pragma once

#include "kernel/cpu/fallback/concat/concat.h"

namespace tarn {
namespace kernel {

TRN_CONCAT_KERNEL(Concatenate_AVX_C8HW8_Float_M1, C8HW8, nullptr, functional::place_channels_c8_f32_avx)

}  // namespace kernel
}  // namespace tarn
