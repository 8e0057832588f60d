// Instance normalisation of the SSE family (SSE4.1): statistics and the
// affine map in 4-float registers.
#pragma once

#include "kernel/cpu/fallback/instancenorm/instancenorm.h"

namespace tarn {
namespace kernel {

TRN_INSTANCENORM_KERNEL(InstanceNorm2D_SSE_CHW_Float_M1, mean_var_sse_f32, channel_affine_sse_f32)

}  // namespace kernel
}  // namespace tarn
