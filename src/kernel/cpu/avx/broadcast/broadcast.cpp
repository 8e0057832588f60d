// The scale vector of a block is loaded once and multiplied into 4 pixel
// vectors per step, then into up to 3 single ones.
#include <immintrin.h>

#include "tarn/kernel/broadcast.h"

namespace tarn {
namespace kernel {
namespace functional {

void broadcast_mul_c4hw4_avx_f32_m1(const float* scale, const float* data, std::uint32_t blocks, std::uint32_t pixels,
                                    float* dst) {
  for (std::uint32_t b = 0; b < blocks; ++b) {
    const __m128 s4 = _mm_loadu_ps(scale + 4 * b);
    const __m256 s8 = _mm256_set_m128(s4, s4);
    const float* src = data + static_cast<size_t>(b) * pixels * 4;
    float* out = dst + static_cast<size_t>(b) * pixels * 4;
    std::uint32_t p = 0;
    for (; p + 4 <= pixels; p += 4) {
      const __m256 x0 = _mm256_loadu_ps(src + 4 * p), x1 = _mm256_loadu_ps(src + 4 * p + 8);
      _mm256_storeu_ps(out + 4 * p, _mm256_mul_ps(x0, s8));
      _mm256_storeu_ps(out + 4 * p + 8, _mm256_mul_ps(x1, s8));
    }
    for (; p < pixels; ++p) _mm_storeu_ps(out + 4 * p, _mm_mul_ps(_mm_loadu_ps(src + 4 * p), s4));
  }
}

void broadcast_mul_c8hw8_avx_f32_m1(const float* scale, const float* data, std::uint32_t blocks, std::uint32_t pixels,
                                    float* dst) {
  for (std::uint32_t b = 0; b < blocks; ++b) {
    const __m256 s = _mm256_loadu_ps(scale + 8 * b);
    const float* src = data + static_cast<size_t>(b) * pixels * 8;
    float* out = dst + static_cast<size_t>(b) * pixels * 8;
    std::uint32_t p = 0;
    for (; p + 4 <= pixels; p += 4) {
      const __m256 x0 = _mm256_loadu_ps(src + 8 * p), x1 = _mm256_loadu_ps(src + 8 * p + 8);
      const __m256 x2 = _mm256_loadu_ps(src + 8 * p + 16), x3 = _mm256_loadu_ps(src + 8 * p + 24);
      _mm256_storeu_ps(out + 8 * p, _mm256_mul_ps(x0, s));
      _mm256_storeu_ps(out + 8 * p + 8, _mm256_mul_ps(x1, s));
      _mm256_storeu_ps(out + 8 * p + 16, _mm256_mul_ps(x2, s));
      _mm256_storeu_ps(out + 8 * p + 24, _mm256_mul_ps(x3, s));
    }
    for (; p < pixels; ++p) _mm256_storeu_ps(out + 8 * p, _mm256_mul_ps(_mm256_loadu_ps(src + 8 * p), s));
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
