// AVX 5x5 and 7x7 stride-2 convolutions on CHW (one group): the stems of
// networks whose first layer reads the image with a large kernel. Pad, then
// native::conv_im2col_sgemm_avx (tarn/kernel/native_gemm.h) builds the column
// matrix panel by panel and multiplies it with the weight, re-ordered once in
// Config by native::conv_im2col_sgemm_transform_kernel_sse, starting from the
// bias: no bias-fill pass.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_members.h"

namespace tarn {
namespace kernel {

TRN_CONV2D_MEMBER(Conv2d_K5x5_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1, Port::CHW(), Port::CHW(), Geometry::Fixed(5, 5, 2, 2),
                  WeightOrder::kCustom, TRN_CONV2D_PACKS_WEIGHT)
TRN_CONV2D_MEMBER(Conv2d_K7x7_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1, Port::CHW(), Port::CHW(), Geometry::Fixed(7, 7, 2, 2),
                  WeightOrder::kCustom, TRN_CONV2D_PACKS_WEIGHT)

}  // namespace kernel
}  // namespace tarn
