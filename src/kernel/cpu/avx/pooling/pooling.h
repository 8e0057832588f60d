// Fixed-size pooling kernels of the AVX family (AVX2) on C8HW8 tensors.
#pragma once

#include "kernel/cpu/fallback/pooling/pooling.h"

namespace tarn {
namespace kernel {

TRN_FIXED_POOLING_KERNEL(Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1, false, 2, 2, C8HW8,
                         Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_KERNEL(Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1, false, 3, 2, C8HW8,
                         Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_KERNEL(Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1, false, 4, 4, C8HW8,
                         Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_KERNEL(Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1, false, 4, 1, C8HW8,
                         Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_KERNEL(Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1, false, 7, 1, C8HW8,
                         Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_KERNEL(Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1, false, 8, 1, C8HW8,
                         Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_KERNEL(Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1, true, 2, 2, C8HW8,
                         Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Max)
TRN_FIXED_POOLING_KERNEL(Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1, true, 3, 2, C8HW8,
                         Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Max)

}  // namespace kernel
}  // namespace tarn
