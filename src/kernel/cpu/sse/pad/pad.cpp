// Padded planes of the SSE family: 4-float stores of the fill pattern and
// 16-float copies; moves only, so values arrive bit for bit.
#include <immintrin.h>

#include "kernel/cpu/sse/pad/pad.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

struct SseFloats {
  using T = __m128;
  static constexpr std::size_t kWidth = 4;
  static T Set1(float v) { return _mm_set1_ps(v); }
  static T Load(const float* p) { return _mm_loadu_ps(p); }
  static void Store(float* p, T v) { _mm_storeu_ps(p, v); }
};

}  // namespace

void pad_plane_f32_sse(float* d, const float* s, const PadPlane& g, const float* pattern, std::uint32_t lanes) {
  PadPlaneVector<SseFloats>(d, s, g, pattern, lanes);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
