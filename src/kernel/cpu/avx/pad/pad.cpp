// Padded planes of the AVX family: 8-float stores of the fill pattern and
// 32-float copies; moves only, so values arrive bit for bit.
#include <immintrin.h>

#include "kernel/cpu/avx/pad/pad.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

struct AvxFloats {
  using T = __m256;
  static constexpr std::size_t kWidth = 8;
  static T Set1(float v) { return _mm256_set1_ps(v); }
  static T Load(const float* p) { return _mm256_loadu_ps(p); }
  static void Store(float* p, T v) { _mm256_storeu_ps(p, v); }
};

}  // namespace

void pad_plane_f32_avx(float* d, const float* s, const PadPlane& g, const float* pattern, std::uint32_t lanes) {
  PadPlaneVector<AvxFloats>(d, s, g, pattern, lanes);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
