// Batch normalisation kernels of the AVX family (AVX2): CHW and C8HW8.
#pragma once

#include "kernel/cpu/fallback/batchnorm/batchnorm.h"

namespace tarn {
namespace kernel {

TRN_BATCHNORM_KERNEL(BatchNorm2D_AVX_CHW_Float_M1, LAYER_BATCHNORM2D, CHW, channel_affine_avx_f32)
TRN_BATCHNORM_KERNEL(BatchNorm2D_AVX_C8HW8_Float_M1, LAYER_BATCHNORM2D, C8HW8, channel_affine_c8hw8_avx_f32)

}  // namespace kernel
}  // namespace tarn
