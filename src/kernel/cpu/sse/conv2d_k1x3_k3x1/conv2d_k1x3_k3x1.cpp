#include "kernel/cpu/sse/conv2d_k1x3_k3x1/conv2d_k1x3_k3x1.h"

#include "kernel/cpu/sse/conv_direct/conv_steps.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {

using sse_conv::Order;
using sse_conv::Scheme;

void Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                           const TensorCPUPtr& weight) {
  sse_conv::ChwStep<sse_conv::Chw<1, 3, 1, 1>, 1, 2>(input, output, weight, false);
}

void Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight) {
  sse_conv::BlockedStep<sse_conv::Blocked<4, 1, 3, 1, 1, Scheme::kSliding>, 1, 8, Order::kBlocksOuter>(input, output,
                                                                                                       weight, false);
}

void Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight) {
  sse_conv::BlockedStep<sse_conv::Blocked<8, 1, 3, 1, 1, Scheme::kSliding>, 1, 4, Order::kBlocksOuter>(input, output,
                                                                                                       weight, false);
}

void Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                           const TensorCPUPtr& weight) {
  sse_conv::ChwStep<sse_conv::Chw<3, 1, 1, 1>, 1, 2>(input, output, weight, false);
}

void Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                           const TensorCPUPtr& weight) {
  sse_conv::ChwStep<sse_conv::Chw<3, 1, 1, 1>, 2, 1>(input, output, weight, false);
}

void Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight) {
  sse_conv::BlockedStep<sse_conv::Blocked<4, 3, 1, 1, 1, Scheme::kDirect>, 1, 8, Order::kBlocksOuter>(input, output,
                                                                                                      weight, false);
}

void Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight) {
  sse_conv::BlockedStep<sse_conv::Blocked<8, 3, 1, 1, 1, Scheme::kDirect>, 1, 4, Order::kBlocksOuter>(input, output,
                                                                                                      weight, false);
}

TRN_DIRECT_CONV_FORWARD(Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                        FillBias_MainMemory_CHW_Float_Fallback_M1, Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1,
                        functional::FillBias_SSE_C4HW4_Float_M1, Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1, functional::Padding_HW_MainMemory_SSE_C8HW8_Float_M1,
                        functional::FillBias_SSE_C8HW8_Float_M1, Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                        FillBias_MainMemory_CHW_Float_Fallback_M1, Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                        FillBias_MainMemory_CHW_Float_Fallback_M1, Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1,
                        functional::FillBias_SSE_C4HW4_Float_M1, Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1, functional::Padding_HW_MainMemory_SSE_C8HW8_Float_M1,
                        functional::FillBias_SSE_C8HW8_Float_M1, Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1_Convolution)

}  // namespace kernel
}  // namespace tarn
