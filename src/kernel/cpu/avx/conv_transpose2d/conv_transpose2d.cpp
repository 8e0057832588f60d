#include "kernel/cpu/avx/conv_transpose2d/conv_transpose2d.h"

#include "kernel/cpu/avx/conv_core/lane_vectors.h"
#include "kernel/cpu/fallback/conv_transpose2d/transposed_tiles.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {

void ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                                const TensorCPUPtr& weight,
                                                                const ConvTranspose2DStepGeometry& geometry) {
  transposed::BlockedStep<PixelC8x1, 3>(input, output, weight, geometry, __func__);
}

TRN_CONV_TRANSPOSE_FORWARD(ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1,
                           functional::Padding_HW_MainMemory_AVX_C8HW8_Float_M1, functional::FillBias_AVX_C8HW8_Float_M1,
                           Cutting_HW_MainMemory_Fallback_C8HW8_Float_M1)

}  // namespace kernel
}  // namespace tarn
