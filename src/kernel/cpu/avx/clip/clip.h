// Clip of the AVX family (AVX2).
#pragma once

#include "kernel/cpu/fallback/clip/clip.h"

namespace tarn {
namespace kernel {

TRN_CLIP_KERNEL(Clip_AVX_Float_M1, clip_avx_f32)

}  // namespace kernel
}  // namespace tarn
