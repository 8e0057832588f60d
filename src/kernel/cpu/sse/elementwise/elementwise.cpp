// SSE element-wise operations: 16 elements per step (four vectors), then
// single vectors, then a scalar tail.
#include "tarn/kernel/elementwise.h"

#include <immintrin.h>

#include "kernel/cpu/fallback/elementwise/elementwise_steps.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

struct Sse {
  using Reg = __m128;
  static constexpr std::uint32_t kLanes = 4;
  static Reg Load(const float* p) { return _mm_loadu_ps(p); }
  static void Store(float* p, Reg v) { _mm_storeu_ps(p, v); }
  static Reg Add(Reg a, Reg b) { return _mm_add_ps(a, b); }
  static Reg Sub(Reg a, Reg b) { return _mm_sub_ps(a, b); }
  static Reg Mul(Reg a, Reg b) { return _mm_mul_ps(a, b); }
  static Reg Div(Reg a, Reg b) { return _mm_div_ps(a, b); }
  static Reg Max(Reg a, Reg b) { return _mm_max_ps(a, b); }
  static Reg Min(Reg a, Reg b) { return _mm_min_ps(a, b); }
};
using Steps = ElementwiseSteps<Sse>;

}  // namespace

void elementwise_add_sse_f32_m1(const float* a, const float* b, const std::uint32_t& n, float* d) {
  Steps::Add(a, b, n, d);
}
void elementwise_sub_sse_f32_m1(const float* a, const float* b, const std::uint32_t& n, float* d) {
  Steps::Sub(a, b, n, d);
}
void elementwise_mul_sse_f32_m1(const float* a, const float* b, const std::uint32_t& n, float* d) {
  Steps::Mul(a, b, n, d);
}
void elementwise_div_sse_f32_m1(const float* a, const float* b, const std::uint32_t& n, float* d) {
  Steps::Div(a, b, n, d);
}
void elementwise_max_sse_f32_m1(const float* a, const float* b, const std::uint32_t& n, float* d) {
  Steps::Max(a, b, n, d);
}
void elementwise_min_sse_f32_m1(const float* a, const float* b, const std::uint32_t& n, float* d) {
  Steps::Min(a, b, n, d);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
