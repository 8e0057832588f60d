// Clip of the SSE family (SSE4.1).
#pragma once

#include "kernel/cpu/fallback/clip/clip.h"

namespace tarn {
namespace kernel {

TRN_CLIP_KERNEL(Clip_SSE_Float_M1, clip_sse_f32)

}  // namespace kernel
}  // namespace tarn
