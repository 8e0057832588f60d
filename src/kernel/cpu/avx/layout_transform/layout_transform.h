// Layout-transform kernels of the AVX family (AVX2).
#pragma once

#include "kernel/cpu/fallback/layout_transform/layout_transform.h"

namespace tarn {
namespace kernel {

TRN_LAYOUT_TRANSFORM_KERNEL(LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1, CHW, C8HW8)
TRN_LAYOUT_TRANSFORM_KERNEL(LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1, C8HW8, CHW)
TRN_LAYOUT_TRANSFORM_KERNEL(LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2, C8HW8, CHW)

}  // namespace kernel
}  // namespace tarn
