#include "kernel/cpu/avx/conv2d_k1x3/conv2d_k1x3.h"

#include "kernel/cpu/avx/conv_core/avx_registers.h"
#include "kernel/cpu/fallback/conv2d/conv2d_direct_steps.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {

void Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                            const TensorCPUPtr& weight) {
  direct::BlockedStep<AvxRegisters, 8, 1, 3, 1, 1, direct::OutMode::kWhole>(input, output, weight);
}

void Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                            const TensorCPUPtr& weight) {
  direct::BlockedStep<AvxRegisters, 8, 3, 1, 1, 1, direct::OutMode::kWhole>(input, output, weight);
}

TRN_CONV2D_DIRECT_FORWARD(Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, functional::Padding_HW_MainMemory_AVX_C8HW8_Float_M1,
                          functional::FillBias_AVX_C8HW8_Float_M1,
                          Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution)
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, functional::Padding_HW_MainMemory_AVX_C8HW8_Float_M1,
                          functional::FillBias_AVX_C8HW8_Float_M1,
                          Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution)

}  // namespace kernel
}  // namespace tarn
