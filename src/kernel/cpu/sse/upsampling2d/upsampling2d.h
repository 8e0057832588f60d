// Upsampling kernels of the SSE family (SSE4.1): CHW and C4HW4.
#pragma once

#include "kernel/cpu/fallback/upsampling2d/upsampling2d.h"

namespace tarn {
namespace kernel {

TRN_UPSAMPLING_KERNEL(Upsampling2D_SSE_CHW_Float_M1, CHW, upsample2d_sse_f32)
TRN_UPSAMPLING_KERNEL(Upsampling2D_SSE_C4HW4_Float_M1, C4HW4, upsample2d_c4hw4_sse_f32)

}  // namespace kernel
}  // namespace tarn
