// Channel placement of C4HW4 concatenation, SSE4.1. Output block b of an
// input placed at offset o takes its lanes from input blocks b - o/4 - 1
// (low lanes) and b - o/4 (high lanes), joined by a byte alignment; only
// moves, alignments, blends and masks touch the data, so values arrive bit
// for bit.
#include <immintrin.h>

#include "kernel/cpu/sse/concat/concat.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

// Lanes [lo[4 - S .. 3], hi[0 .. 3 - S]]: the input channels that land in one
// output block when the offset is S lanes into a block.
template <int S>
inline __m128 Join(__m128 lo, __m128 hi) {
  if constexpr (S == 0) {
    (void)lo;
    return hi;
  } else {
    return _mm_castsi128_ps(_mm_alignr_epi8(_mm_castps_si128(hi), _mm_castps_si128(lo), (4 - S) * 4));
  }
}

// One output block plane: `lo`/`hi` may be null (no such input block: zero);
// lanes outside `mask` become zero, lanes in `keep` stay as they are.
template <int S>
void Block(const float* lo, const float* hi, float* d, std::size_t pixels, __m128 mask, __m128 keep) {
  const __m128 zero = _mm_setzero_ps();
  const bool any_keep = _mm_movemask_ps(keep) != 0;
  for (std::size_t p = 0; p < pixels; ++p, d += 4) {
    const __m128 l = lo ? _mm_loadu_ps(lo + p * 4) : zero;
    const __m128 h = hi ? _mm_loadu_ps(hi + p * 4) : zero;
    __m128 v = _mm_and_ps(Join<S>(l, h), mask);
    if (any_keep) v = _mm_blendv_ps(v, _mm_loadu_ps(d), keep);
    _mm_storeu_ps(d, v);
  }
}

// All-ones in lanes below n.
inline __m128 LanesBelow(std::uint32_t n) {
  const __m128i index = _mm_setr_epi32(0, 1, 2, 3);
  return _mm_castsi128_ps(_mm_cmpgt_epi32(_mm_set1_epi32(static_cast<int>(n)), index));
}

}  // namespace

void place_channels_c4_f32_sse(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset,
                               float* out) {
  if (channels == 0) return;
  const std::size_t plane = std::size_t(pixels) * 4;
  const std::uint32_t shift = offset % 4, first = offset / 4, last = (offset + channels - 1) / 4;
  const std::uint32_t in_blocks = (channels + 3) / 4, end = (offset + channels) % 4;
  for (std::uint32_t b = first; b <= last; ++b) {
    const std::uint32_t t = b - first;
    const float* lo = shift != 0 && t >= 1 ? in + (t - 1) * plane : nullptr;
    const float* hi = t < in_blocks ? in + t * plane : nullptr;
    const __m128 mask = b == last && end != 0 ? LanesBelow(end) : LanesBelow(4);
    const __m128 keep = b == first ? LanesBelow(shift) : _mm_setzero_ps();
    float* d = out + b * plane;
    switch (shift) {
      case 0: Block<0>(lo, hi, d, pixels, mask, keep); break;
      case 1: Block<1>(lo, hi, d, pixels, mask, keep); break;
      case 2: Block<2>(lo, hi, d, pixels, mask, keep); break;
      default: Block<3>(lo, hi, d, pixels, mask, keep); break;
    }
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
