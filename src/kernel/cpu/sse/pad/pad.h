// 2-D padding of the SSE family (SSE4.1): CHW and C4HW4.
#pragma once

#include "kernel/cpu/fallback/pad/pad.h"

namespace tarn {
namespace kernel {

TRN_PAD2D_KERNEL(Pad2d_SSE_CHW_Float_M1, CHW, functional::pad_plane_f32_sse)
TRN_PAD2D_KERNEL(Pad2d_SSE_C4HW4_Float_M1, C4HW4, functional::pad_plane_f32_sse)

}  // namespace kernel
}  // namespace tarn
