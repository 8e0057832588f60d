// AVX fixed-size pooling on C8HW8: one 8-channel vector per pixel, taps folded
// in the general kernels' order with the same operations.
#include "kernel/cpu/avx/pooling/pooling.h"

#include <immintrin.h>

#include "tarn/kernel/pooling.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

template <int K, int S, bool kMax>
void PoolC8HW8(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  const std::uint32_t in_plane = PoolingPlaneFloats(input->shape);
  const std::uint32_t out_plane = PoolingPlaneFloats(output->shape);
  const auto& id = input->shape.dims;
  const auto& od = output->shape.dims;
  TARN_NATIVE_ASSERT(id.size() == 4 && od.size() == 4 && id[0] == od[0] && id[3] == 8 && od[3] == 8);
  TARN_NATIVE_ASSERT(id[1] >= K && id[2] >= K && (id[1] - K) / S + 1 == od[1] && (id[2] - K) / S + 1 == od[2]);
  const std::uint32_t blocks = id[0], w = id[2], oh = od[1], ow = od[2];
  const __m256 lowest = _mm256_set1_ps(-3.4028235e38f);
  for (std::uint32_t b = 0; b < blocks; ++b) {
    const float* plane = input->DataAs<float>() + static_cast<size_t>(b) * in_plane;
    float* o = output->DataAs<float>() + static_cast<size_t>(b) * out_plane;
    for (std::uint32_t oy = 0; oy < oh; ++oy) {
      for (std::uint32_t ox = 0; ox < ow; ++ox) {
        __m256 acc = kMax ? lowest : _mm256_setzero_ps();
        for (int ky = 0; ky < K; ++ky) {
          const float* row = plane + (static_cast<size_t>(oy * S + ky) * w + ox * S) * 8;
          for (int kx = 0; kx < K; ++kx) {
            const __m256 v = _mm256_loadu_ps(row + 8 * kx);
            // Running maximum second: a NaN input is skipped.
            acc = kMax ? _mm256_max_ps(v, acc) : _mm256_add_ps(acc, v);
          }
        }
        if constexpr (!kMax) {
          acc = K == 2 ? _mm256_mul_ps(acc, _mm256_set1_ps(0.25f))
                       : _mm256_div_ps(acc, _mm256_set1_ps(static_cast<float>(K * K)));
        }
        _mm256_storeu_ps(o, acc);
        o += 8;
      }
    }
  }
}

}  // namespace

void Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolC8HW8<2, 2, false>(input, output);
}
void Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolC8HW8<3, 2, false>(input, output);
}
void Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolC8HW8<4, 4, false>(input, output);
}
void Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolC8HW8<4, 1, false>(input, output);
}
void Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolC8HW8<7, 1, false>(input, output);
}
void Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolC8HW8<8, 1, false>(input, output);
}
void Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Max(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolC8HW8<2, 2, true>(input, output);
}
void Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Max(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolC8HW8<3, 2, true>(input, output);
}

}  // namespace functional

bool Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                         std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                         std::shared_ptr<runtime::Context> context) const {
  return ForwardPool(functional::Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Avg, inputs, outputs, context);
}
bool Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                         std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                         std::shared_ptr<runtime::Context> context) const {
  return ForwardPool(functional::Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Avg, inputs, outputs, context);
}
bool Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                         std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                         std::shared_ptr<runtime::Context> context) const {
  return ForwardPool(functional::Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1_Pooling2d_Avg, inputs, outputs, context);
}
bool Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                         std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                         std::shared_ptr<runtime::Context> context) const {
  return ForwardPool(functional::Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg, inputs, outputs, context);
}
bool Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                         std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                         std::shared_ptr<runtime::Context> context) const {
  return ForwardPool(functional::Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg, inputs, outputs, context);
}
bool Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                         std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                         std::shared_ptr<runtime::Context> context) const {
  return ForwardPool(functional::Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg, inputs, outputs, context);
}
bool Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                         std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                         std::shared_ptr<runtime::Context> context) const {
  return ForwardPool(functional::Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Max, inputs, outputs, context);
}
bool Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                         std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                         std::shared_ptr<runtime::Context> context) const {
  return ForwardPool(functional::Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Max, inputs, outputs, context);
}

}  // namespace kernel
}  // namespace tarn
