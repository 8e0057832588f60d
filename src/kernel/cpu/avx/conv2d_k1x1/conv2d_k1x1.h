// AVX 1x1 convolutions (one group, no padding: a padded record goes to a
// member with a padding helper). Every member fills its output with the bias
// (or zero) and accumulates onto it.
//
// The three C8HW8 stride-1 members are three schedules of the same product:
//   M1  the weight-stationary core (conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m0):
//       one 8x8 weight tile in registers, the whole plane swept once per
//       (output block, input block), eight pixels per step, the output read
//       and written once per input block. Its cost is that output traffic,
//       so it is at its best with few input blocks (24 channels: within a
//       tenth of M2) and loses ground as the input channels grow.
//   M2  output-stationary (Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2_Convolution):
//       up to 3 output blocks x 4 pixels (2 x 6, 1 x 8) stay in registers
//       while every input block is folded in; the output is read and written
//       once. The fastest of the three on every layer measured (MobileNetV2,
//       SqueezeNet, ResNet-50 1x1 layers: 1.1 to 1.4 times the general
//       member), most so with many input channels.
//   M3  M1's sweep with two interleaved sums per pixel
//       (conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m3): half the dependency
//       chain per pixel, four pixels per step. It wins over M1 where the
//       multiply-add latency rather than the output traffic bounds the sweep
//       (a processor with longer latency or fewer pixels in flight); on the
//       machine measured the two are within a few percent.
// The Strassen member (kernel/cpu/avx/strassen) is the fourth schedule.

#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_members.h"

namespace tarn {
namespace kernel {

// CHW: the product W (N x C) x input (C x H*W) with six output channels by
// sixteen pixels in registers; weight {ceil(N / 6), C, 1, 1, 1, 6}.
TRN_CONV2D_MEMBER(Conv2d_K1x1_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1, Port::CHW(), Port::CHW(),
                  Geometry::Fixed(1, 1, 1, 1).Unpadded(), WeightOrder::kCustom, TRN_CONV2D_PACKS_WEIGHT)
// C4HW4 through conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_avx_m0 (two pixels per register).
TRN_CONV2D_MEMBER(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1, Port::C4HW4(), Port::C4HW4(),
                  Geometry::Fixed(1, 1, 1, 1).Unpadded(), WeightOrder::kGN4C4HW4c4n)
TRN_CONV2D_MEMBER(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, Port::C8HW8(), Port::C8HW8(),
                  Geometry::Fixed(1, 1, 1, 1).Unpadded(), WeightOrder::kGN8C8HW8c8n)
TRN_CONV2D_MEMBER(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2, Port::C8HW8(), Port::C8HW8(),
                  Geometry::Fixed(1, 1, 1, 1).Unpadded(), WeightOrder::kGN8C8HW8c8n)
TRN_CONV2D_MEMBER(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M3, Port::C8HW8(), Port::C8HW8(),
                  Geometry::Fixed(1, 1, 1, 1).Unpadded(), WeightOrder::kGN8C8HW8c8n)
// The layout-changing members end or start a chain of one blocked layout
// without a separate layout kernel.
TRN_CONV2D_MEMBER(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_CHW_FLOAT_M1, Port::C8HW8(), Port::CHW(),
                  Geometry::Fixed(1, 1, 1, 1).Unpadded(), WeightOrder::kGN8C8HW8c8n)
// Its core (conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_c4hw4_f32_avx_m1) checks the
// input with (C + 3) / 8 blocks, so input channel counts of 1 to 4 modulo 8
// are refused here, before Config. Weight GN4C8HW8c4n.
TRN_CONV2D_MEMBER(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_C4HW4_FLOAT_M1, Port::C8HW8(), Port::C4HW4(),
                  Geometry::Fixed(1, 1, 1, 1).Unpadded(), WeightOrder::kCustom, TRN_CONV2D_PACKS_WEIGHT
                  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                            std::shared_ptr<runtime::InferenceParam> param) const override;)
TRN_CONV2D_MEMBER(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_TO_C8HW8_FLOAT_M1, Port::C4HW4(), Port::C8HW8(),
                  Geometry::Fixed(1, 1, 1, 1).Unpadded(), WeightOrder::kGN8C8HW8c8n)
// Stride 2 (the downsampling shortcut): the output-stationary tiles of M2
// reading every second pixel of every second row.
TRN_CONV2D_MEMBER(Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1, Port::C8HW8(), Port::C8HW8(),
                  Geometry::Fixed(1, 1, 2, 2).Unpadded(), WeightOrder::kGN8C8HW8c8n)

void Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight);
void Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight);

}  // namespace kernel
}  // namespace tarn
