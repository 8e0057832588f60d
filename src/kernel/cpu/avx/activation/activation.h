// Activation kernels of the AVX family (AVX2 + FMA).
#pragma once

#include "kernel/cpu/fallback/activation/activation.h"

namespace tarn {
namespace kernel {

TRN_ACTIVATION_KERNEL(ReLU_AVX_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(ReLU6_AVX_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(Sigmoid_AVX_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(HSwish_AVX_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(Leaky_AVX_Float_M1, LeakyKernelBase)
TRN_ACTIVATION_KERNEL(PReLU_AVX_Float_M1, PReLUKernelBase)

}  // namespace kernel
}  // namespace tarn
