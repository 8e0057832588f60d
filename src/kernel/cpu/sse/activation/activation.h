// Activation kernels of the SSE family (SSE4.1 + FMA).
#pragma once

#include "kernel/cpu/fallback/activation/activation.h"

namespace tarn {
namespace kernel {

TRN_ACTIVATION_KERNEL(ReLU_SSE_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(ReLU6_SSE_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(Sigmoid_SSE_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(TanH_SSE_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(HSigmoid_SSE_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(HSwish_SSE_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(Leaky_SSE_Float_M1, LeakyKernelBase)
TRN_ACTIVATION_KERNEL(PReLU_SSE_Float_M1, PReLUKernelBase)
// These overwrite their input and hand the same tensor on.
TRN_ACTIVATION_KERNEL(ReLU_Inplace_SSE_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(HSigmoid_Inplace_SSE_Float_M1, ActivationKernelBase)

}  // namespace kernel
}  // namespace tarn
