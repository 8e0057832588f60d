// Upsampling kernels of the AVX family (AVX2): CHW and C8HW8.
#pragma once

#include "kernel/cpu/fallback/upsampling2d/upsampling2d.h"

namespace tarn {
namespace kernel {

TRN_UPSAMPLING_KERNEL(Upsampling2D_AVX_CHW_Float_M1, CHW, upsample2d_avx_f32)
TRN_UPSAMPLING_KERNEL(Upsampling2D_AVX_C8HW8_Float_M1, C8HW8, upsample2d_c8hw8_avx_f32)

}  // namespace kernel
}  // namespace tarn
