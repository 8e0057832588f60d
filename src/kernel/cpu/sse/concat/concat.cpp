// Channel placement of C4HW4 concatenation, SSE4.1. Output block b of an
// input placed at offset o takes its lanes from input blocks b - o/4 - 1
// (low lanes) and b - o/4 (high lanes), joined by a byte alignment; only
// moves, alignments, blends and masks touch the data, so values arrive bit
// for bit. Pixels go in chunks, so that the block read as the high half of
// one output block is still in the first-level cache as the low half of the
// next.
#include <immintrin.h>

#include <algorithm>
#include <cstring>

#include "kernel/cpu/sse/concat/concat.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

constexpr std::size_t kChunk = 256;  // pixels: 4 KiB of one block plane

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

// One output block plane: with kMask lanes outside `mask` become zero; with
// kKeep the lanes below S stay as they are.
template <int S, bool kKeep, bool kMask>
void Block(const float* lo, const float* hi, float* d, std::size_t pixels, __m128 mask) {
  auto one = [&](std::size_t k) {
    __m128 v = Join<S>(_mm_loadu_ps(lo + k), _mm_loadu_ps(hi + k));
    if constexpr (kMask) v = _mm_and_ps(v, mask);
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

template <int S>
void Blocks(const float* in, std::uint32_t channels, std::size_t pixels, std::uint32_t offset, float* out) {
  const std::size_t plane = pixels * 4;
  const std::uint32_t first = offset / 4, last = (offset + channels - 1) / 4;
  const std::uint32_t in_blocks = (channels + 3) / 4, end = (offset + channels) % 4;
  const __m128 tail = _mm_castsi128_ps(
      _mm_cmpgt_epi32(_mm_set1_epi32(static_cast<int>(end)), _mm_setr_epi32(0, 1, 2, 3)));
  if constexpr (S == 0) {
    // On a block boundary: whole block planes as they are, the last one masked.
    for (std::uint32_t b = first; b <= last; ++b) {
      const float* src = in + (b - first) * plane;
      if (b == last && end != 0) {
        Block<0, false, true>(src, src, out + b * plane, pixels, tail);
      } else {
        std::memcpy(out + b * plane, src, plane * sizeof(float));
      }
    }
    return;
  }
  for (std::size_t p0 = 0; p0 < pixels; p0 += kChunk) {
    const std::size_t n = std::min(kChunk, pixels - p0);
    for (std::uint32_t b = first; b <= last; ++b) {
      const std::uint32_t t = b - first;
      // A missing neighbour block only feeds lanes that the keep or tail mask
      // discards, so any readable block stands in for it.
      const float* hi = in + (t < in_blocks ? t : t - 1) * plane + p0 * 4;
      const float* lo = t >= 1 ? in + (t - 1) * plane + p0 * 4 : hi;
      float* d = out + b * plane + p0 * 4;
      const bool masked = b == last && end != 0;
      if (b == first) {
        if (masked) {
          Block<S, true, true>(lo, hi, d, n, tail);
        } else {
          Block<S, true, false>(lo, hi, d, n, tail);
        }
      } else if (masked) {
        Block<S, false, true>(lo, hi, d, n, tail);
      } else {
        Block<S, false, false>(lo, hi, d, n, tail);
      }
    }
  }
}

}  // namespace

void place_channels_c4_f32_sse(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset,
                               float* out) {
  if (channels == 0) return;
  switch (offset % 4) {
    case 0: Blocks<0>(in, channels, pixels, offset, out); break;
    case 1: Blocks<1>(in, channels, pixels, offset, out); break;
    case 2: Blocks<2>(in, channels, pixels, offset, out); break;
    default: Blocks<3>(in, channels, pixels, offset, out); break;
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
