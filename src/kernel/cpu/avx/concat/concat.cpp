// Channel placement of C8HW8 concatenation, AVX2. Output block b of an input
// placed at offset o takes lanes [lo[8 - S .. 7], hi[0 .. 7 - S]] of input
// blocks b - o/8 - 1 and b - o/8 (S = o % 8): one blend puts them in place
// up to a rotation, one lane permute rotates them. Only blends, permutes and
// masks touch the data, so values arrive bit for bit. Pixels go in chunks,
// so that the block read as the high half of one output block is still in
// the first-level cache as the low half of the next.
#include <immintrin.h>

#include <algorithm>
#include <cstring>

#include "kernel/cpu/avx/concat/concat.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

constexpr std::size_t kChunk = 128;  // pixels: 4 KiB of one block plane

// One output block plane: with kMask lanes outside `mask` become zero; with
// kKeep the lanes below S stay as they are.
template <int S, bool kKeep, bool kMask>
void Block(const float* lo, const float* hi, float* d, std::size_t pixels, __m256i rotate, __m256 mask) {
  // Lanes from 8 - S on come from the low block: blended first, then every
  // lane j takes lane (j + 8 - S) % 8.
  constexpr int kFromLo = (0xff << (8 - S)) & 0xff;
  for (std::size_t p = 0; p < pixels; ++p, lo += 8, hi += 8, d += 8) {
    __m256 v = _mm256_loadu_ps(hi);
    if constexpr (S != 0) v = _mm256_permutevar8x32_ps(_mm256_blend_ps(v, _mm256_loadu_ps(lo), kFromLo), rotate);
    if constexpr (kMask) v = _mm256_and_ps(v, mask);
    if constexpr (kKeep) v = _mm256_blend_ps(v, _mm256_loadu_ps(d), (1 << S) - 1);
    _mm256_storeu_ps(d, v);
  }
}

template <int S>
void Blocks(const float* in, std::uint32_t channels, std::size_t pixels, std::uint32_t offset, float* out) {
  const std::size_t plane = pixels * 8;
  const std::uint32_t first = offset / 8, last = (offset + channels - 1) / 8;
  const std::uint32_t in_blocks = (channels + 7) / 8, end = (offset + channels) % 8;
  const __m256i index = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
  const __m256i rotate = _mm256_and_si256(_mm256_add_epi32(index, _mm256_set1_epi32(8 - S)), _mm256_set1_epi32(7));
  const __m256 tail = _mm256_castsi256_ps(_mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int>(end)), index));
  if constexpr (S == 0) {
    // On a block boundary: whole block planes as they are, the last one masked.
    for (std::uint32_t b = first; b <= last; ++b) {
      const float* src = in + (b - first) * plane;
      if (b == last && end != 0) {
        Block<0, false, true>(src, src, out + b * plane, pixels, rotate, tail);
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
      const float* hi = in + (t < in_blocks ? t : t - 1) * plane + p0 * 8;
      const float* lo = t >= 1 ? in + (t - 1) * plane + p0 * 8 : hi;
      float* d = out + b * plane + p0 * 8;
      const bool masked = b == last && end != 0;
      if (b == first) {
        if (masked) {
          Block<S, true, true>(lo, hi, d, n, rotate, tail);
        } else {
          Block<S, true, false>(lo, hi, d, n, rotate, tail);
        }
      } else if (masked) {
        Block<S, false, true>(lo, hi, d, n, rotate, tail);
      } else {
        Block<S, false, false>(lo, hi, d, n, rotate, tail);
      }
    }
  }
}

}  // namespace

void place_channels_c8_f32_avx(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset,
                               float* out) {
  if (channels == 0) return;
  switch (offset % 8) {
    case 0: Blocks<0>(in, channels, pixels, offset, out); break;
    case 1: Blocks<1>(in, channels, pixels, offset, out); break;
    case 2: Blocks<2>(in, channels, pixels, offset, out); break;
    case 3: Blocks<3>(in, channels, pixels, offset, out); break;
    case 4: Blocks<4>(in, channels, pixels, offset, out); break;
    case 5: Blocks<5>(in, channels, pixels, offset, out); break;
    case 6: Blocks<6>(in, channels, pixels, offset, out); break;
    default: Blocks<7>(in, channels, pixels, offset, out); break;
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
