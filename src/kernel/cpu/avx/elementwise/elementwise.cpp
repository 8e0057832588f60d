// AVX element-wise operations: 32 elements per step (four 8-float vectors),
// then single 8-float vectors, then a scalar tail.
#include "kernel/cpu/avx/elementwise/elementwise.h"

#include <immintrin.h>

#include "tarn/kernel/elementwise.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

template <typename Vec, typename Scalar>
inline void Binary32(const float* a, const float* b, std::uint32_t count, float* dst, Vec vec, Scalar scalar) {
  std::uint32_t i = 0;
  for (; i + 32 <= count; i += 32) {
    const __m256 r0 = vec(_mm256_loadu_ps(a + i), _mm256_loadu_ps(b + i));
    const __m256 r1 = vec(_mm256_loadu_ps(a + i + 8), _mm256_loadu_ps(b + i + 8));
    const __m256 r2 = vec(_mm256_loadu_ps(a + i + 16), _mm256_loadu_ps(b + i + 16));
    const __m256 r3 = vec(_mm256_loadu_ps(a + i + 24), _mm256_loadu_ps(b + i + 24));
    _mm256_storeu_ps(dst + i, r0);
    _mm256_storeu_ps(dst + i + 8, r1);
    _mm256_storeu_ps(dst + i + 16, r2);
    _mm256_storeu_ps(dst + i + 24, r3);
  }
  for (; i + 8 <= count; i += 8) _mm256_storeu_ps(dst + i, vec(_mm256_loadu_ps(a + i), _mm256_loadu_ps(b + i)));
  for (; i < count; ++i) dst[i] = scalar(a[i], b[i]);
}

}  // namespace

void elementwise_add_avx_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary32(
      a, b, count, dst, [](__m256 x, __m256 y) { return _mm256_add_ps(x, y); }, [](float x, float y) { return x + y; });
}
void elementwise_sub_avx_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary32(
      a, b, count, dst, [](__m256 x, __m256 y) { return _mm256_sub_ps(x, y); }, [](float x, float y) { return x - y; });
}
void elementwise_mul_avx_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary32(
      a, b, count, dst, [](__m256 x, __m256 y) { return _mm256_mul_ps(x, y); }, [](float x, float y) { return x * y; });
}
void elementwise_div_avx_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary32(
      a, b, count, dst, [](__m256 x, __m256 y) { return _mm256_div_ps(x, y); }, [](float x, float y) { return x / y; });
}
void elementwise_max_avx_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary32(
      a, b, count, dst, [](__m256 x, __m256 y) { return _mm256_max_ps(x, y); },
      [](float x, float y) { return y > x ? y : x; });
}
void elementwise_min_avx_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary32(
      a, b, count, dst, [](__m256 x, __m256 y) { return _mm256_min_ps(x, y); },
      [](float x, float y) { return y < x ? y : x; });
}

}  // namespace functional

#define TRN_ELEMENTWISE_FORWARD(cls, fn)                                                                               \
  bool cls::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,                                       \
                    std::vector<std::shared_ptr<runtime::Tensor>>& outputs, std::shared_ptr<runtime::Context> context) \
      const {                                                                                                          \
    return ForwardBinary(fn, inputs, outputs, context);                                                                \
  }

TRN_ELEMENTWISE_FORWARD(Elementwise_Add_AVX_Float_M1, functional::elementwise_add_avx_f32_m1)
TRN_ELEMENTWISE_FORWARD(Elementwise_Sub_AVX_Float_M1, functional::elementwise_sub_avx_f32_m1)
TRN_ELEMENTWISE_FORWARD(Elementwise_Mul_AVX_Float_M1, functional::elementwise_mul_avx_f32_m1)
TRN_ELEMENTWISE_FORWARD(Elementwise_Div_AVX_Float_M1, functional::elementwise_div_avx_f32_m1)
TRN_ELEMENTWISE_FORWARD(Elementwise_Max_AVX_Float_M1, functional::elementwise_max_avx_f32_m1)
TRN_ELEMENTWISE_FORWARD(Elementwise_Min_AVX_Float_M1, functional::elementwise_min_avx_f32_m1)

}  // namespace kernel
}  // namespace tarn
