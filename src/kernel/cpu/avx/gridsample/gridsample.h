// Grid sampling of the AVX family (AVX2 gathers).
#pragma once

#include "kernel/cpu/fallback/gridsample/gridsample.h"

namespace tarn {
namespace kernel {

TRN_GRIDSAMPLE_KERNEL(GridSample_AVX_CHW_Float_M1, grid_sample_avx_f32)

}  // namespace kernel
}  // namespace tarn
