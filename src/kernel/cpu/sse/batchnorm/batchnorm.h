// Batch normalisation kernels of the SSE family (SSE4.1): CHW and C4HW4.
#pragma once

#include "kernel/cpu/fallback/batchnorm/batchnorm.h"

namespace tarn {
namespace kernel {

TRN_BATCHNORM_KERNEL(BatchNorm2D_SSE_CHW_Float_M1, LAYER_BATCHNORM2D, CHW, channel_affine_sse_f32)
TRN_BATCHNORM_KERNEL(BatchNorm2D_SSE_C4HW4_Float_M1, LAYER_BATCHNORM2D, C4HW4, channel_affine_c4hw4_sse_f32)

}  // namespace kernel
}  // namespace tarn
