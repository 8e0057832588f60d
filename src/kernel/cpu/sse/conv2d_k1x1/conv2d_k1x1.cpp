#include "kernel/cpu/sse/conv2d_k1x1/conv2d_k1x1.h"

#include "kernel/cpu/sse/conv_direct/conv_steps.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {

using sse_conv::Order;
using sse_conv::Scheme;
template <int L, int S>
using Blocked1x1 = sse_conv::Blocked<L, 1, 1, S, S, Scheme::kDirect>;
template <int S>
using Chw1x1 = sse_conv::Chw<1, 1, S, S>;

namespace {

// The CHW 1x1 sweep of the stride-1 member: the plane is one row.
void Chw1x1Sweep(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight) {
  sse_conv::ChwStep<Chw1x1<1>, 1, 2>(input, output, weight, true);
}

}  // namespace

void Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution_M1(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                                const TensorCPUPtr& weight) {
  sse_conv::BlockedStep<Blocked1x1<4, 1>, 1, 8, Order::kBlocksOuter>(input, output, weight, true);
}

void Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight) {
  sse_conv::BlockedStep<Blocked1x1<4, 1>, 2, 4, Order::kPixelsOuter>(input, output, weight, true);
}

void Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight) {
  sse_conv::BlockedStep<Blocked1x1<8, 1>, 1, 4, Order::kPixelsOuter>(input, output, weight, true);
}

void Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                           const TensorCPUPtr& weight) {
  sse_conv::ChwStep<Chw1x1<2>, 1, 2>(input, output, weight, false);
}

void Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight) {
  sse_conv::BlockedStep<Blocked1x1<4, 2>, 1, 8, Order::kBlocksOuter>(input, output, weight, false);
}

void Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight) {
  sse_conv::BlockedStep<Blocked1x1<8, 2>, 1, 4, Order::kPixelsOuter>(input, output, weight, false);
}

TRN_DIRECT_CONV_FORWARD(Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, nullptr, FillBias_MainMemory_CHW_Float_Fallback_M1,
                        Chw1x1Sweep)
TRN_DIRECT_CONV_FORWARD(Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, nullptr, functional::FillBias_SSE_C4HW4_Float_M1,
                        Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution_M1)
TRN_DIRECT_CONV_FORWARD(Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2, nullptr, functional::FillBias_SSE_C4HW4_Float_M1,
                        Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1, nullptr, functional::FillBias_SSE_C8HW8_Float_M1,
                        Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                        FillBias_MainMemory_CHW_Float_Fallback_M1, Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1, nullptr, functional::FillBias_SSE_C4HW4_Float_M1,
                        Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1, nullptr, functional::FillBias_SSE_C8HW8_Float_M1,
                        Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1_Convolution)

}  // namespace kernel
}  // namespace tarn
