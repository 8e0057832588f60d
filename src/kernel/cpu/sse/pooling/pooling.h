// Fixed-size pooling kernels of the SSE family (SSE4.1).
#pragma once

#include "kernel/cpu/fallback/pooling/pooling.h"

namespace tarn {
namespace kernel {

TRN_FIXED_POOLING_KERNEL(Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1, true, 2, 2, CHW,
                         Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1_Pooling2d_Max)
TRN_FIXED_POOLING_KERNEL(Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1, true, 3, 2, CHW,
                         Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1_Pooling2d_Max)
TRN_FIXED_POOLING_KERNEL(Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1, false, 2, 2, CHW,
                         Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_KERNEL(Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1, false, 3, 2, CHW,
                         Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_KERNEL(Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1, false, 7, 1, CHW,
                         Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_KERNEL(Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1, false, 4, 4, CHW,
                         Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_KERNEL(Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1, false, 4, 4, C4HW4,
                         Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1_Pooling2D_Avg)

}  // namespace kernel
}  // namespace tarn
