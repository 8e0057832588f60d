// Softmax of the SSE family (SSE4.1).
#pragma once

#include "kernel/cpu/fallback/softmax/softmax.h"

namespace tarn {
namespace kernel {

TRN_SOFTMAX_KERNEL(Softmax_SSE_Float_M1, softmax_sse_f32)

}  // namespace kernel
}  // namespace tarn
