// Activation kernels of the AVX family (AVX2 + FMA).
#pragma once

#include "kernel/cpu/fallback/activation/activation.h"

namespace tarn {
namespace kernel {

TRN_ACTIVATION_KERNEL(ReLU_AVX_Float_M1, ActivationKernelBase, functional::relu_avx_f32_m1)
TRN_ACTIVATION_KERNEL(ReLU6_AVX_Float_M1, ActivationKernelBase, functional::relu6_avx_f32_m1)
TRN_ACTIVATION_KERNEL(Sigmoid_AVX_Float_M1, ActivationKernelBase, functional::sigmoid_avx_f32_m1)
TRN_ACTIVATION_KERNEL(HSwish_AVX_Float_M1, ActivationKernelBase, functional::hswish_avx_f32_m1)
TRN_ACTIVATION_KERNEL(Leaky_AVX_Float_M1, LeakyKernelBase, functional::leaky_avx_f32_m1)
TRN_ACTIVATION_KERNEL(PReLU_AVX_Float_M1, PReLUKernelBase, functional::PReLU_AVX_F32_M1)

}  // namespace kernel
}  // namespace tarn
