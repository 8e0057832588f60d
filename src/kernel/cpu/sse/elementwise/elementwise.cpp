// SSE element-wise operations: 16 elements per step (four vectors), then
// single vectors, then a scalar tail.
#include "kernel/cpu/sse/elementwise/elementwise.h"

#include <immintrin.h>

#include "tarn/kernel/elementwise.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

template <typename Vec, typename Scalar>
inline void Binary16(const float* a, const float* b, std::uint32_t count, float* dst, Vec vec, Scalar scalar) {
  std::uint32_t i = 0;
  for (; i + 16 <= count; i += 16) {
    const __m128 r0 = vec(_mm_loadu_ps(a + i), _mm_loadu_ps(b + i));
    const __m128 r1 = vec(_mm_loadu_ps(a + i + 4), _mm_loadu_ps(b + i + 4));
    const __m128 r2 = vec(_mm_loadu_ps(a + i + 8), _mm_loadu_ps(b + i + 8));
    const __m128 r3 = vec(_mm_loadu_ps(a + i + 12), _mm_loadu_ps(b + i + 12));
    _mm_storeu_ps(dst + i, r0);
    _mm_storeu_ps(dst + i + 4, r1);
    _mm_storeu_ps(dst + i + 8, r2);
    _mm_storeu_ps(dst + i + 12, r3);
  }
  for (; i + 4 <= count; i += 4) _mm_storeu_ps(dst + i, vec(_mm_loadu_ps(a + i), _mm_loadu_ps(b + i)));
  for (; i < count; ++i) dst[i] = scalar(a[i], b[i]);
}

}  // namespace

void elementwise_add_sse_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary16(
      a, b, count, dst, [](__m128 x, __m128 y) { return _mm_add_ps(x, y); }, [](float x, float y) { return x + y; });
}
void elementwise_sub_sse_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary16(
      a, b, count, dst, [](__m128 x, __m128 y) { return _mm_sub_ps(x, y); }, [](float x, float y) { return x - y; });
}
void elementwise_mul_sse_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary16(
      a, b, count, dst, [](__m128 x, __m128 y) { return _mm_mul_ps(x, y); }, [](float x, float y) { return x * y; });
}
void elementwise_div_sse_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary16(
      a, b, count, dst, [](__m128 x, __m128 y) { return _mm_div_ps(x, y); }, [](float x, float y) { return x / y; });
}
void elementwise_max_sse_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary16(
      a, b, count, dst, [](__m128 x, __m128 y) { return _mm_max_ps(x, y); },
      [](float x, float y) { return y > x ? y : x; });
}
void elementwise_min_sse_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary16(
      a, b, count, dst, [](__m128 x, __m128 y) { return _mm_min_ps(x, y); },
      [](float x, float y) { return y < x ? y : x; });
}

}  // namespace functional

#define TRN_ELEMENTWISE_FORWARD(cls, fn)                                                                               \
  bool cls::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,                                       \
                    std::vector<std::shared_ptr<runtime::Tensor>>& outputs, std::shared_ptr<runtime::Context> context) \
      const {                                                                                                          \
    return ForwardBinary(fn, inputs, outputs, context);                                                                \
  }

TRN_ELEMENTWISE_FORWARD(Elementwise_Add_SSE_Float_M1, functional::elementwise_add_sse_f32_m1)
TRN_ELEMENTWISE_FORWARD(Elementwise_Sub_SSE_Float_M1, functional::elementwise_sub_sse_f32_m1)
TRN_ELEMENTWISE_FORWARD(Elementwise_Mul_SSE_Float_M1, functional::elementwise_mul_sse_f32_m1)
TRN_ELEMENTWISE_FORWARD(Elementwise_Div_SSE_Float_M1, functional::elementwise_div_sse_f32_m1)
TRN_ELEMENTWISE_FORWARD(Elementwise_Max_SSE_Float_M1, functional::elementwise_max_sse_f32_m1)
TRN_ELEMENTWISE_FORWARD(Elementwise_Min_SSE_Float_M1, functional::elementwise_min_sse_f32_m1)

}  // namespace kernel
}  // namespace tarn
