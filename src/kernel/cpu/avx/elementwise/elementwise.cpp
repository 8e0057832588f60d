// AVX element-wise operations: 32 elements per step (four 8-float vectors),
// then single 8-float vectors, then a scalar tail.
#include "tarn/kernel/elementwise.h"

#include <immintrin.h>

#include "kernel/cpu/fallback/elementwise/elementwise_steps.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

struct Avx {
  using Reg = __m256;
  static constexpr std::uint32_t kLanes = 8;
  static Reg Load(const float* p) { return _mm256_loadu_ps(p); }
  static void Store(float* p, Reg v) { _mm256_storeu_ps(p, v); }
  static Reg Add(Reg a, Reg b) { return _mm256_add_ps(a, b); }
  static Reg Sub(Reg a, Reg b) { return _mm256_sub_ps(a, b); }
  static Reg Mul(Reg a, Reg b) { return _mm256_mul_ps(a, b); }
  static Reg Div(Reg a, Reg b) { return _mm256_div_ps(a, b); }
  static Reg Max(Reg a, Reg b) { return _mm256_max_ps(a, b); }
  static Reg Min(Reg a, Reg b) { return _mm256_min_ps(a, b); }
};
using Steps = ElementwiseSteps<Avx>;

}  // namespace

void elementwise_add_avx_f32_m1(const float* a, const float* b, const std::uint32_t& n, float* d) {
  Steps::Add(a, b, n, d);
}
void elementwise_sub_avx_f32_m1(const float* a, const float* b, const std::uint32_t& n, float* d) {
  Steps::Sub(a, b, n, d);
}
void elementwise_mul_avx_f32_m1(const float* a, const float* b, const std::uint32_t& n, float* d) {
  Steps::Mul(a, b, n, d);
}
void elementwise_div_avx_f32_m1(const float* a, const float* b, const std::uint32_t& n, float* d) {
  Steps::Div(a, b, n, d);
}
void elementwise_max_avx_f32_m1(const float* a, const float* b, const std::uint32_t& n, float* d) {
  Steps::Max(a, b, n, d);
}
void elementwise_min_avx_f32_m1(const float* a, const float* b, const std::uint32_t& n, float* d) {
  Steps::Min(a, b, n, d);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
