// 2-D padding of the AVX family (AVX2): CHW and C8HW8.
#pragma once

#include "kernel/cpu/fallback/pad/pad.h"

namespace tarn {
namespace kernel {

TRN_PAD2D_KERNEL(Pad2d_AVX_CHW_Float_M1, CHW, functional::pad_plane_f32_avx)
TRN_PAD2D_KERNEL(Pad2d_AVX_C8HW8_Float_M1, C8HW8, functional::pad_plane_f32_avx)

}  // namespace kernel
}  // namespace tarn
