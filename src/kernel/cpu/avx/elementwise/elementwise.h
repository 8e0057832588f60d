// Element-wise kernels of the AVX family, one operation per class.
#pragma once

#include "kernel/cpu/fallback/elementwise/elementwise.h"

namespace tarn {
namespace kernel {

TRN_ELEMENTWISE_KERNEL(Elementwise_Add_AVX_Float_M1, "Add")
TRN_ELEMENTWISE_KERNEL(Elementwise_Sub_AVX_Float_M1, "Sub")
TRN_ELEMENTWISE_KERNEL(Elementwise_Mul_AVX_Float_M1, "Mul")
TRN_ELEMENTWISE_KERNEL(Elementwise_Div_AVX_Float_M1, "Div")
// Registered but unreachable through a record: no op_type code names them.
TRN_ELEMENTWISE_KERNEL(Elementwise_Max_AVX_Float_M1, "Max")
TRN_ELEMENTWISE_KERNEL(Elementwise_Min_AVX_Float_M1, "Min")

}  // namespace kernel
}  // namespace tarn
