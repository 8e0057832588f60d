#include "kernel/cpu/sse/conv2d_k3x3/conv2d_k3x3.h"

#include "kernel/cpu/fallback/conv_core/core_checks.h"
#include "kernel/cpu/sse/conv_direct/conv_steps.h"
#include "tarn/kernel/native_conv.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {

using sse_conv::Order;
using sse_conv::Scheme;
template <int L, int S, Scheme Sc>
using Blocked3x3 = sse_conv::Blocked<L, 3, 3, S, S, Sc>;

namespace native {
namespace {

// The C8HW8 3x3 routines: checks, then one output block by up to six pixels
// (twelve accumulators), every tap read straight from the padded input; rows
// are cut into balanced tiles (a 7-pixel row is 4 + 3).
template <int S>
void Conv3x3C8(TARN_CONV_CORE_PARAMS) {
  TARN_CHECK_CORE_CHANNELS((i_inChannels + 7) / 8, (i_outChannels + 7) / 8);
  TARN_NATIVE_ASSERT(i_kernelX == 3);
  TARN_NATIVE_ASSERT(i_kernelY == 3);
  // Spelled out per stride so that a failed check names the stride it wants.
  if constexpr (S == 1) {
    TARN_NATIVE_ASSERT(i_strideX == 1);
    TARN_NATIVE_ASSERT(i_strideY == 1);
  } else {
    TARN_NATIVE_ASSERT(i_strideX == 2);
    TARN_NATIVE_ASSERT(i_strideY == 2);
  }
  TARN_NATIVE_ASSERT(i_dilateX == 1);
  TARN_NATIVE_ASSERT(i_dilateY == 1);
  TARN_CHECK_CORE_OUTPUT_SIZE();
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  sse_conv::BlockedArgs a;
  a.src = src;
  a.srcBlocks = i_srcC;
  a.srcRow = std::ptrdiff_t(i_srcW) * 8;
  a.srcPlane = a.srcRow * i_srcH;
  a.weight = weight;
  a.dst = dst;
  a.dstBlocks = i_dstC;
  a.dstH = i_dstH;
  a.dstW = i_dstW;
  a.dstRow = std::ptrdiff_t(i_dstW) * 8;
  a.dstPlane = a.dstRow * i_dstH;
  Blocked3x3<8, S, Scheme::kDirect>::template Run<1, 6, Order::kBlocksOuter>(a);
}

}  // namespace

void conv2d_k3x3_s1x1_d1x1_g1_c8hw8_f32_sse_m0(TARN_CONV_CORE_PARAMS) {
  Conv3x3C8<1>(i_inChannels, i_srcH, i_srcW, src, i_srcC, i_outChannels, i_kernelY, i_kernelX, i_strideY, i_strideX,
               i_dilateY, i_dilateX, i_groups, weight, i_dstC, i_dstH, i_dstW, dst);
}

void conv2d_k3x3_s2x2_d1x1_g1_c8hw8_f32_sse_m0(TARN_CONV_CORE_PARAMS) {
  Conv3x3C8<2>(i_inChannels, i_srcH, i_srcW, src, i_srcC, i_outChannels, i_kernelY, i_kernelX, i_strideY, i_strideX,
               i_dilateY, i_dilateX, i_groups, weight, i_dstC, i_dstH, i_dstW, dst);
}

}  // namespace native

namespace {

// A tensor step over one of the C8HW8 routines of stride S.
template <int S, void (*kRoutine)(TARN_CONV_CORE_PARAMS)>
void C8Routine(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight) {
  const auto& in = input->shape.dims;
  const auto& out = output->shape.dims;
  const int blocks = static_cast<int>(in[0]), outBlocks = static_cast<int>(out[0]);
  kRoutine(blocks * 8, static_cast<int>(in[1]), static_cast<int>(in[2]), input->DataAs<float>(), blocks,
           outBlocks * 8, 3, 3, S, S, 1, 1, 1, weight->DataAs<float>(), outBlocks, static_cast<int>(out[1]), static_cast<int>(out[2]),
           output->DataAs<float>());
}

constexpr auto C8Step3x3S1 = &C8Routine<1, native::conv2d_k3x3_s1x1_d1x1_g1_c8hw8_f32_sse_m0>;
constexpr auto C8Step3x3S2 = &C8Routine<2, native::conv2d_k3x3_s2x2_d1x1_g1_c8hw8_f32_sse_m0>;

// The unnamed steps of the C4HW4 M1 members.
void C4Direct3x3(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight) {
  sse_conv::BlockedStep<Blocked3x3<4, 1, Scheme::kDirect>, 1, 8, Order::kBlocksOuter>(input, output, weight, false);
}

void C4Sliding3x3S2(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight) {
  sse_conv::BlockedStep<Blocked3x3<4, 2, Scheme::kSliding>, 1, 8, Order::kBlocksOuter>(input, output, weight, false);
}

}  // namespace

void Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                           const TensorCPUPtr& weight) {
  sse_conv::ChwStep<sse_conv::Chw<3, 3, 1, 1>, 1, 2>(input, output, weight, false);
}

void Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                           const TensorCPUPtr& weight) {
  sse_conv::ChwStep<sse_conv::Chw<3, 3, 2, 2>, 1, 2>(input, output, weight, false);
}

void Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight) {
  sse_conv::BlockedStep<Blocked3x3<4, 1, Scheme::kDirect>, 2, 4, Order::kPixelsOuter>(input, output, weight, false);
}

void Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight) {
  sse_conv::BlockedStep<Blocked3x3<4, 1, Scheme::kSliding>, 1, 8, Order::kBlocksOuter>(input, output, weight, false);
}

TRN_DIRECT_CONV_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                        FillBias_MainMemory_CHW_Float_Fallback_M1, Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1,
                        functional::FillBias_SSE_C4HW4_Float_M1, C4Direct3x3)
TRN_DIRECT_CONV_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2, functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1,
                        functional::FillBias_SSE_C4HW4_Float_M1, Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3, functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1,
                        functional::FillBias_SSE_C4HW4_Float_M1, Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1, functional::Padding_HW_MainMemory_SSE_C8HW8_Float_M1,
                        functional::FillBias_SSE_C8HW8_Float_M1, C8Step3x3S1)
TRN_DIRECT_CONV_FORWARD(Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                        functional::FillBias_SSE_CHW_Float_M1, Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1, functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1,
                        functional::FillBias_SSE_C4HW4_Float_M1, C4Sliding3x3S2)
TRN_DIRECT_CONV_FORWARD(Conv2d_K3x3_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1, functional::Padding_HW_MainMemory_SSE_C8HW8_Float_M1,
                        functional::FillBias_SSE_C8HW8_Float_M1, C8Step3x3S2)

}  // namespace kernel
}  // namespace tarn
