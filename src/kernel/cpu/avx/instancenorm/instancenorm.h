// Instance normalisation of the AVX family (AVX2): statistics and the
// affine map in 8-float registers.
#pragma once

#include "kernel/cpu/fallback/instancenorm/instancenorm.h"

namespace tarn {
namespace kernel {

TRN_INSTANCENORM_KERNEL(InstanceNorm2D_AVX_CHW_Float_M1, mean_var_avx_f32, channel_affine_avx_f32)

}  // namespace kernel
}  // namespace tarn
