#include "kernel/cpu/avx/conv2d_k1x1/conv2d_k1x1.h"

#include "kernel/cpu/avx/conv_core/avx_registers.h"
#include "kernel/cpu/fallback/conv2d/conv2d_direct_steps.h"
#include "tarn/kernel/native_conv.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {
namespace {

using direct::OutMode;
using CoreFn = void (*)(TARN_CONV_CORE_PARAMS);

// A 1x1 core as a convolution step. The cores use the real channel counts
// only in their layout checks (and a CHW output its plane count, which the
// tensor holds exactly); stored blocks times lanes pass the same checks and
// the zero tail lanes add nothing.
template <CoreFn kCore, unsigned kInLanes, unsigned kOutLanes>
void CoreStep(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight) {
  const auto& di = input->shape.dims;
  const auto& d = output->shape.dims;
  kCore(static_cast<int>(di[0] * kInLanes), static_cast<int>(di[1]), static_cast<int>(di[2]), input->DataAs<float>(),
        static_cast<int>(di[0]), static_cast<int>(d[0] * kOutLanes), 1, 1, 1, 1, 1, 1, 1, weight->DataAs<float>(),
        static_cast<int>(d[0]), static_cast<int>(d[1]), static_cast<int>(d[2]), output->DataAs<float>());
}

}  // namespace

void Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight) {
  direct::BlockedStep<AvxRegisters, 8, 1, 1, 1, 1, OutMode::kWhole>(input, output, weight);
}

void Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight) {
  direct::BlockedStep<AvxRegisters, 8, 1, 1, 2, 2, OutMode::kWhole>(input, output, weight);
}

TRN_CONV2D_DIRECT_FORWARD(Conv2d_K1x1_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1, nullptr, functional::FillBias_AVX_CHW_Float_M1,
                          (direct::PlaneStep<AvxRegisters, 1, 1>))
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1, nullptr, functional::FillBias_SSE_C4HW4_Float_M1,
                          (CoreStep<native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_avx_m0, 4, 4>))
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, nullptr, functional::FillBias_AVX_C8HW8_Float_M1,
                          (CoreStep<native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m0, 8, 8>))
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2, nullptr, functional::FillBias_AVX_C8HW8_Float_M1,
                          Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2_Convolution)
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M3, nullptr, functional::FillBias_AVX_C8HW8_Float_M1,
                          (CoreStep<native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m3, 8, 8>))
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_CHW_FLOAT_M1, nullptr,
                          functional::FillBias_AVX_CHW_Float_M1,
                          (CoreStep<native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_chw_f32_avx_m0, 8, 1>))
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_C4HW4_FLOAT_M1, nullptr,
                          functional::FillBias_SSE_C4HW4_Float_M1,
                          (CoreStep<native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_c4hw4_f32_avx_m1, 8, 4>))
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_TO_C8HW8_FLOAT_M1, nullptr,
                          functional::FillBias_AVX_C8HW8_Float_M1,
                          (CoreStep<native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_to_c8hw8_f32_avx_m0, 4, 8>))
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1, nullptr, functional::FillBias_AVX_C8HW8_Float_M1,
                          Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1_Convolution)

}  // namespace kernel
}  // namespace tarn
