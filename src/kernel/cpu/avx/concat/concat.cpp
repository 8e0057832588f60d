// Channel placement of C8HW8 concatenation, AVX2. Output block b of an input
// placed at offset o takes its lanes from input blocks b - o/8 - 1 (low
// lanes) and b - o/8 (high lanes): both are rotated by o % 8 lanes and
// blended. Only permutes, blends and masks touch the data, so values arrive
// bit for bit.
#include <immintrin.h>

#include "kernel/cpu/avx/concat/concat.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

inline __m256 LanesBelow(std::uint32_t n) {
  const __m256i index = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
  return _mm256_castsi256_ps(_mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(n)), index));
}

}  // namespace

void place_channels_c8_f32_avx(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset,
                               float* out) {
  if (channels == 0) return;
  const std::size_t plane = std::size_t(pixels) * 8;
  const std::uint32_t shift = offset % 8, first = offset / 8, last = (offset + channels - 1) / 8;
  const std::uint32_t in_blocks = (channels + 7) / 8, end = (offset + channels) % 8;
  // Lane j of the result takes lane (j + 8 - shift) % 8 of the low block
  // (j < shift) or of the high block (j >= shift).
  const __m256i rotate = _mm256_and_si256(
      _mm256_add_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), _mm256_set1_epi32(static_cast<int>(8 - shift))),
      _mm256_set1_epi32(7));
  const __m256 from_lo = LanesBelow(shift);
  const __m256 zero = _mm256_setzero_ps();
  for (std::uint32_t b = first; b <= last; ++b) {
    const std::uint32_t t = b - first;
    const float* lo = shift != 0 && t >= 1 ? in + (t - 1) * plane : nullptr;
    const float* hi = t < in_blocks ? in + t * plane : nullptr;
    const __m256 mask = b == last && end != 0 ? LanesBelow(end) : LanesBelow(8);
    const __m256 keep = b == first ? from_lo : zero;
    const bool any_keep = b == first && shift != 0;
    float* d = out + b * plane;
    for (std::size_t p = 0; p < pixels; ++p, d += 8) {
      const __m256 l = lo ? _mm256_permutevar8x32_ps(_mm256_loadu_ps(lo + p * 8), rotate) : zero;
      const __m256 h = hi ? _mm256_permutevar8x32_ps(_mm256_loadu_ps(hi + p * 8), rotate) : zero;
      __m256 v = _mm256_and_ps(_mm256_blendv_ps(h, l, from_lo), mask);
      if (any_keep) v = _mm256_blendv_ps(v, _mm256_loadu_ps(d), keep);
      _mm256_storeu_ps(d, v);
    }
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
