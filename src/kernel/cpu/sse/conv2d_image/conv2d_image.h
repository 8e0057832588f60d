// The SSE image stem: a 3x3 stride-1 convolution reading a three-channel CHW
// image and writing C4HW4, so no layout kernel runs on the image. Pad with
// zero, fill the output with the bias (or zero), then the output-stationary
// blocked step (kernel/cpu/fallback/conv2d/conv2d_direct_steps.h): one 4-float
// register per output pixel and C4HW4 block, one broadcast image value per
// register and tap. Weight {ceil(N / 4), 3, 3, 3, 1, 4}.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_members.h"

namespace tarn {
namespace kernel {

TRN_CONV2D_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1, Port::CHW(3), Port::C4HW4(),
                  Geometry::Fixed(3, 3, 1, 1), WeightOrder::kCustom, TRN_CONV2D_PACKS_WEIGHT)

void Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                       const TensorCPUPtr& output,
                                                                       const TensorCPUPtr& weight);

}  // namespace kernel
}  // namespace tarn
