// Softmax of the AVX family (AVX2).
#pragma once

#include "kernel/cpu/fallback/softmax/softmax.h"

namespace tarn {
namespace kernel {

TRN_SOFTMAX_KERNEL(Softmax_AVX_Float_M1, softmax_avx_f32)

}  // namespace kernel
}  // namespace tarn
