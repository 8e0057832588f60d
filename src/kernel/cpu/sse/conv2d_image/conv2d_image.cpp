#include "kernel/cpu/sse/conv2d_image/conv2d_image.h"

#include <immintrin.h>

#include "kernel/cpu/fallback/conv2d/conv2d_direct_steps.h"
#include "tarn/kernel/tensor_helpers.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {
namespace {

struct SseRegisters {
  using Reg = __m128;
  static constexpr int kLanes = 4;
  static Reg Load(const float* p) { return _mm_loadu_ps(p); }
  static void Store(float* p, Reg v) { _mm_storeu_ps(p, v); }
  static Reg Broadcast(const float* p) { return _mm_load1_ps(p); }
  static Reg Fma(Reg a, Reg b, Reg c) { return _mm_fmadd_ps(a, b, c); }
  static Reg Zero() { return _mm_setzero_ps(); }
};

}  // namespace

void Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                       const TensorCPUPtr& output,
                                                                       const TensorCPUPtr& weight) {
  direct::BlockedStep<SseRegisters, 1, 3, 3, 1, 1, direct::OutMode::kWhole>(input, output, weight);
}

TRN_CONV2D_DIRECT_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1,
                          Padding_HW_MainMemory_CHW_Float_Fallback_M1, functional::FillBias_SSE_C4HW4_Float_M1,
                          Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1_Convolution)

}  // namespace kernel
}  // namespace tarn
