// Activation kernels of the SSE family (SSE4.1 + FMA).
#pragma once

#include "kernel/cpu/fallback/activation/activation.h"

namespace tarn {
namespace kernel {

TRN_ACTIVATION_KERNEL(ReLU_SSE_Float_M1, ActivationKernelBase, functional::relu_sse_f32_m1)
TRN_ACTIVATION_KERNEL(ReLU6_SSE_Float_M1, ActivationKernelBase, functional::relu6_sse_f32_m1)
TRN_ACTIVATION_KERNEL(Sigmoid_SSE_Float_M1, ActivationKernelBase, functional::sigmoid_sse_f32_m2)
TRN_ACTIVATION_KERNEL(TanH_SSE_Float_M1, ActivationKernelBase, functional::tanh_sse_f32_m2)
TRN_ACTIVATION_KERNEL(HSigmoid_SSE_Float_M1, ActivationKernelBase, functional::hsigmoid_sse_f32_m1)
TRN_ACTIVATION_KERNEL(HSwish_SSE_Float_M1, ActivationKernelBase, functional::hswish_sse_f32_m1)
TRN_ACTIVATION_KERNEL(Leaky_SSE_Float_M1, LeakyKernelBase, functional::leaky_sse_f32_m1)
TRN_ACTIVATION_KERNEL(PReLU_SSE_Float_M1, PReLUKernelBase, functional::PReLU_SSE_Float_M1)
// These overwrite their input and hand the same tensor on.
TRN_ACTIVATION_KERNEL(ReLU_Inplace_SSE_Float_M1, ActivationKernelBase, functional::relu_sse_f32_m1, true)
TRN_ACTIVATION_KERNEL(HSigmoid_Inplace_SSE_Float_M1, ActivationKernelBase, functional::hsigmoid_sse_f32_m1, true)

}  // namespace kernel
}  // namespace tarn
