// Element-wise kernels of the SSE family, one operation per class.
#pragma once

#include "kernel/cpu/fallback/elementwise/elementwise.h"

namespace tarn {
namespace kernel {

TRN_ELEMENTWISE_KERNEL(Elementwise_Add_SSE_Float_M1, "Add", elementwise_add_sse_f32_m1)
TRN_ELEMENTWISE_KERNEL(Elementwise_Sub_SSE_Float_M1, "Sub", elementwise_sub_sse_f32_m1)
TRN_ELEMENTWISE_KERNEL(Elementwise_Mul_SSE_Float_M1, "Mul", elementwise_mul_sse_f32_m1)
TRN_ELEMENTWISE_KERNEL(Elementwise_Div_SSE_Float_M1, "Div", elementwise_div_sse_f32_m1)
// Registered but unreachable through a record: no op_type code names them.
TRN_ELEMENTWISE_KERNEL(Elementwise_Max_SSE_Float_M1, "Max", elementwise_max_sse_f32_m1)
TRN_ELEMENTWISE_KERNEL(Elementwise_Min_SSE_Float_M1, "Min", elementwise_min_sse_f32_m1)

}  // namespace kernel
}  // namespace tarn
