// Layout-transform kernels of the SSE family (SSE4.1).
#pragma once

#include "kernel/cpu/fallback/layout_transform/layout_transform.h"

namespace tarn {
namespace kernel {

TRN_LAYOUT_TRANSFORM_KERNEL(LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1, CHW, C4HW4)
TRN_LAYOUT_TRANSFORM_KERNEL(LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2, CHW, C4HW4)
TRN_LAYOUT_TRANSFORM_KERNEL(LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1, C4HW4, CHW)
TRN_LAYOUT_TRANSFORM_KERNEL(LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1, CHW, C8HW8)
TRN_LAYOUT_TRANSFORM_KERNEL(LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1, C8HW8, CHW)
TRN_LAYOUT_TRANSFORM_KERNEL(LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2, C8HW8, CHW)
TRN_LAYOUT_TRANSFORM_KERNEL(LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1, C4HW4, C8HW8)
TRN_LAYOUT_TRANSFORM_KERNEL(LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1, C8HW8, C4HW4)

}  // namespace kernel
}  // namespace tarn
