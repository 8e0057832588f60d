// The AVX three-tap 1-D convolution on CL tensors.
#pragma once

#include "kernel/cpu/fallback/conv1d/conv1d_base.h"

namespace tarn {
namespace kernel {

// Kernel 3, stride 1, dilation 1, one group: per (output, input) channel pair
// the three taps stay in registers while the row streams past, eight positions
// per 256-bit step, the last 1 to 7 positions as three-term dot products.
class Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1 : public Conv1DKernelBase {
 public:
  ~Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1() override;
  TRN_KERNEL_NAME(Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1)
  Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1() : Conv1DKernelBase(true) {}
  TRN_LAYER_FORWARD
};

}  // namespace kernel
}  // namespace tarn
