// Grid sampling of the AVX family (AVX2) on C8HW8: every tap is one
// 8-channel register, so no gathers are needed (on planes, gathers of single
// floats were no faster than the portable loop).
#pragma once

#include "kernel/cpu/fallback/gridsample/gridsample.h"

namespace tarn {
namespace kernel {

TRN_GRIDSAMPLE_KERNEL(GridSample_AVX_C8HW8_Float_M1, C8HW8, grid_sample_c8hw8_avx_f32)

}  // namespace kernel
}  // namespace tarn
