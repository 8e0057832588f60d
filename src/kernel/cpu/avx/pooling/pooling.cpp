// AVX fixed-size pooling on C8HW8: one 8-channel vector per pixel.
#include <immintrin.h>

#include "kernel/cpu/fallback/pooling/pooling_steps.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

struct Avx {
  using Reg = __m256;
  static constexpr std::uint32_t kLanes = 8;
  static Reg Load(const float* p) { return _mm256_loadu_ps(p); }
  static void Store(float* p, Reg v) { _mm256_storeu_ps(p, v); }
  static Reg Set1(float f) { return _mm256_set1_ps(f); }
  static Reg Zero() { return _mm256_setzero_ps(); }
  static Reg Add(Reg a, Reg b) { return _mm256_add_ps(a, b); }
  static Reg Max(Reg a, Reg b) { return _mm256_max_ps(a, b); }
  static Reg Mul(Reg a, Reg b) { return _mm256_mul_ps(a, b); }
  static Reg Div(Reg a, Reg b) { return _mm256_div_ps(a, b); }
};

}  // namespace

void Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolBlocked<Avx, 2, 2, false>(input, output);
}
void Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolBlocked<Avx, 3, 2, false>(input, output);
}
void Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolBlocked<Avx, 4, 4, false>(input, output);
}
void Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolBlocked<Avx, 4, 1, false>(input, output);
}
void Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolBlocked<Avx, 7, 1, false>(input, output);
}
void Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolBlocked<Avx, 8, 1, false>(input, output);
}
void Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Max(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolBlocked<Avx, 2, 2, true>(input, output);
}
void Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Max(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolBlocked<Avx, 3, 2, true>(input, output);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
