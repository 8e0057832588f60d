// Element-wise kernels of the AVX family, one operation per class.
#pragma once

#include "kernel/cpu/fallback/elementwise/elementwise.h"

namespace tarn {
namespace kernel {

TRN_ELEMENTWISE_KERNEL(Elementwise_Add_AVX_Float_M1, "Add", elementwise_add_avx_f32_m1)
TRN_ELEMENTWISE_KERNEL(Elementwise_Sub_AVX_Float_M1, "Sub", elementwise_sub_avx_f32_m1)
TRN_ELEMENTWISE_KERNEL(Elementwise_Mul_AVX_Float_M1, "Mul", elementwise_mul_avx_f32_m1)
TRN_ELEMENTWISE_KERNEL(Elementwise_Div_AVX_Float_M1, "Div", elementwise_div_avx_f32_m1)
// Registered but unreachable through a record: no op_type code names them.
TRN_ELEMENTWISE_KERNEL(Elementwise_Max_AVX_Float_M1, "Max", elementwise_max_avx_f32_m1)
TRN_ELEMENTWISE_KERNEL(Elementwise_Min_AVX_Float_M1, "Min", elementwise_min_avx_f32_m1)

}  // namespace kernel
}  // namespace tarn
