// AVX 3x3 stride-1 convolutions at the two ends of a blocked network: the
// image stems read a three-channel CHW image and write a blocked map (so no
// layout kernel runs on the image), the heads read a blocked map and write a
// CHW result of three channels (an image) or one (a mask or depth map).
//
//   3In  one register holds one output pixel of eight output channels (two
//        C4HW4 blocks, or one C8HW8 block); per image channel and tap, one
//        broadcast pixel value per register. The accumulators start from the
//        bias inside the step and the output is written once: the image stem
//        has the largest output of the net, and a separate bias pass would
//        cost a quarter of the step. Weight {ceil(N / 8), 3, 3, 3, 1, 8}.
//   3Out / 1Out  a register holds the input channels of 8 / lanes pixels
//        (two C4HW4 pixels, one C8HW8 pixel); per output channel and tap one
//        multiply-add with the weight row, and the lane sums of eight pixels
//        are folded into one register at the end of a tile and added to the
//        bias-filled output row. Weight {N, ceil(C / lanes), 3, 3, 8}: each
//        row of input-channel weights repeated 8 / lanes times.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_members.h"

namespace tarn {
namespace kernel {

TRN_CONV2D_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1, Port::CHW(3), Port::C4HW4(),
                  Geometry::Fixed(3, 3, 1, 1), WeightOrder::kCustom, TRN_CONV2D_PACKS_WEIGHT)
TRN_CONV2D_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1, Port::CHW(3), Port::C8HW8(),
                  Geometry::Fixed(3, 3, 1, 1), WeightOrder::kCustom, TRN_CONV2D_PACKS_WEIGHT)
TRN_CONV2D_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1, Port::C4HW4(), Port::CHW(3),
                  Geometry::Fixed(3, 3, 1, 1), WeightOrder::kCustom, TRN_CONV2D_PACKS_WEIGHT)
TRN_CONV2D_MEMBER(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1, Port::C8HW8(), Port::CHW(1),
                  Geometry::Fixed(3, 3, 1, 1), WeightOrder::kCustom, TRN_CONV2D_PACKS_WEIGHT)

// The stems' steps start from the bias (null: zero) and write the output.
void Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1_Convolution(
    const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight, const TensorCPUPtr& bias,
    const std::shared_ptr<runtime::Context>& context);
// (This member's step keeps the variant number 3 in its name.)
void Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M3_Convolution(
    const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight, const TensorCPUPtr& bias,
    const std::shared_ptr<runtime::Context>& context);
void Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                        const TensorCPUPtr& output,
                                                                        const TensorCPUPtr& weight);
void Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                        const TensorCPUPtr& output,
                                                                        const TensorCPUPtr& weight);

}  // namespace kernel
}  // namespace tarn
