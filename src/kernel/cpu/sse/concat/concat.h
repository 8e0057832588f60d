// Concatenation of C4HW4 tensors, SSE4.1: channel offsets that are not a
// multiple of 4 shift lanes across blocks with byte alignments and blends.
#pragma once

#include "kernel/cpu/fallback/concat/concat.h"

namespace tarn {
namespace kernel {

TRN_CONCAT_KERNEL(Concatenate_SSE_C4HW4_Float_M1, C4HW4, functional::place_channels_c4_f32_sse, nullptr)

}  // namespace kernel
}  // namespace tarn
