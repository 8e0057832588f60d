// Channel placement of C4HW4 concatenation, SSE4.1: the lanes of two input
// blocks joined by one byte alignment per vector. Only moves, alignments,
// blends and masks touch the data, so values arrive bit for bit.
#include <immintrin.h>

#include "kernel/cpu/sse/concat/concat.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

// Output blocks at an offset S lanes into a block: lanes [lo[4 - S .. 3],
// hi[0 .. 3 - S]].
template <int S>
struct SseBlock {
  __m128 tail;  // the real lanes of the last block

  static __m128 Join(__m128 lo, __m128 hi) {
    if constexpr (S == 0) {
      (void)lo;
      return hi;
    } else {
      return _mm_castsi128_ps(_mm_alignr_epi8(_mm_castps_si128(hi), _mm_castps_si128(lo), (4 - S) * 4));
    }
  }

  template <bool kKeep, bool kMask>
  void Run(const float* lo, const float* hi, float* d, std::size_t pixels) const {
    auto one = [&](std::size_t k) {
      __m128 v = Join(_mm_loadu_ps(lo + k), _mm_loadu_ps(hi + k));
      if constexpr (kMask) v = _mm_and_ps(v, tail);
      if constexpr (kKeep) v = _mm_blend_ps(v, _mm_loadu_ps(d + k), (1 << S) - 1);
      _mm_storeu_ps(d + k, v);
    };
    std::size_t p = 0;
    for (; p + 4 <= pixels; p += 4) {
      one(p * 4);
      one(p * 4 + 4);
      one(p * 4 + 8);
      one(p * 4 + 12);
    }
    for (; p < pixels; ++p) one(p * 4);
  }
};

template <int S>
void Place(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset, float* out) {
  const int end = static_cast<int>((offset + channels) % 4);
  const __m128 tail = _mm_castsi128_ps(_mm_cmpgt_epi32(_mm_set1_epi32(end), _mm_setr_epi32(0, 1, 2, 3)));
  PlaceBlocks<4, 256>(in, channels, pixels, offset, out, SseBlock<S>{tail});
}

}  // namespace

void place_channels_c4_f32_sse(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset,
                               float* out) {
  switch (offset % 4) {
    case 0: Place<0>(in, channels, pixels, offset, out); break;
    case 1: Place<1>(in, channels, pixels, offset, out); break;
    case 2: Place<2>(in, channels, pixels, offset, out); break;
    default: Place<3>(in, channels, pixels, offset, out); break;
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
