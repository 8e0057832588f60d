#include "kernel/cpu/avx/conv2d_k3x3/conv2d_k3x3.h"

#include "kernel/cpu/avx/conv_core/avx_registers.h"
#include "kernel/cpu/fallback/conv2d/conv2d_direct_steps.h"
#include "tarn/kernel/tensor_helpers.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {

using direct::OutMode;

void Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                          const TensorCPUPtr& weight) {
  direct::PlaneStep<AvxRegisters, 3, 3>(input, output, weight);
}

void Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                            const TensorCPUPtr& weight) {
  direct::BlockedStep<AvxRegisters, 4, 3, 3, 1, 1, OutMode::kHalves>(input, output, weight);
}

void Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                            const TensorCPUPtr& weight) {
  direct::BlockedStep<AvxRegisters, 8, 3, 3, 1, 1, OutMode::kWhole>(input, output, weight);
}

void Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                            const TensorCPUPtr& weight) {
  direct::BlockedStep<AvxRegisters, 8, 3, 3, 2, 2, OutMode::kWhole>(input, output, weight);
}

TRN_CONV2D_DIRECT_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                          functional::FillBias_AVX_CHW_Float_M1, Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1_Convolution)
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1, functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1,
                          functional::FillBias_SSE_C4HW4_Float_M1,
                          Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1_Convolution)
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, functional::Padding_HW_MainMemory_AVX_C8HW8_Float_M1,
                          functional::FillBias_AVX_C8HW8_Float_M1,
                          Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution)
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1, functional::Padding_HW_MainMemory_AVX_C8HW8_Float_M1,
                          functional::FillBias_AVX_C8HW8_Float_M1,
                          Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution)

}  // namespace kernel
}  // namespace tarn
