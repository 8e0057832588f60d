// Channel placement of C8HW8 concatenation, AVX2: lanes [lo[8 - S .. 7],
// hi[0 .. 7 - S]] of two input blocks (S the offset within a block) are put
// in place up to a rotation by one blend, then rotated by one lane permute.
// Only blends, permutes and masks touch the data, so values arrive bit for
// bit.
#include <immintrin.h>

#include "kernel/cpu/avx/concat/concat.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

template <int S>
struct AvxBlock {
  __m256i rotate;  // lane j takes lane (j + 8 - S) % 8
  __m256 tail;     // the real lanes of the last block

  template <bool kKeep, bool kMask>
  void Run(const float* lo, const float* hi, float* d, std::size_t pixels) const {
    constexpr int kFromLo = (0xff << (8 - S)) & 0xff;  // lanes 8 - S .. 7, before the rotation
    for (std::size_t p = 0; p < pixels; ++p, lo += 8, hi += 8, d += 8) {
      __m256 v = _mm256_loadu_ps(hi);
      if constexpr (S != 0) v = _mm256_permutevar8x32_ps(_mm256_blend_ps(v, _mm256_loadu_ps(lo), kFromLo), rotate);
      if constexpr (kMask) v = _mm256_and_ps(v, tail);
      if constexpr (kKeep) v = _mm256_blend_ps(v, _mm256_loadu_ps(d), (1 << S) - 1);
      _mm256_storeu_ps(d, v);
    }
  }
};

template <int S>
void Place(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset, float* out) {
  const __m256i index = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
  const int end = static_cast<int>((offset + channels) % 8);
  const AvxBlock<S> block{
      _mm256_and_si256(_mm256_add_epi32(index, _mm256_set1_epi32(8 - S)), _mm256_set1_epi32(7)),
      _mm256_castsi256_ps(_mm256_cmpgt_epi32(_mm256_set1_epi32(end), index))};
  PlaceBlocks<8, 128>(in, channels, pixels, offset, out, block);
}

}  // namespace

void place_channels_c8_f32_avx(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset,
                               float* out) {
  switch (offset % 8) {
    case 0: Place<0>(in, channels, pixels, offset, out); break;
    case 1: Place<1>(in, channels, pixels, offset, out); break;
    case 2: Place<2>(in, channels, pixels, offset, out); break;
    case 3: Place<3>(in, channels, pixels, offset, out); break;
    case 4: Place<4>(in, channels, pixels, offset, out); break;
    case 5: Place<5>(in, channels, pixels, offset, out); break;
    case 6: Place<6>(in, channels, pixels, offset, out); break;
    default: Place<7>(in, channels, pixels, offset, out); break;
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
