// Row interleaving of the AVX pixel shuffle. Factor 2 interleaves with
// unpacks and a lane exchange, factor 4 transposes two 4x4 tiles per step,
// factor 8 transposes 8x8 tiles; other factors and the last columns take the
// portable loop. Moves only: values arrive bit for bit.
#include <immintrin.h>

#include "kernel/cpu/avx/pixel_shuffle/pixel_shuffle.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

// v[x] = [r0[x], ..., r7[x]] for the eight rows in v.
inline void Transpose8(__m256* v) {
  const __m256 t0 = _mm256_unpacklo_ps(v[0], v[1]), t1 = _mm256_unpackhi_ps(v[0], v[1]);
  const __m256 t2 = _mm256_unpacklo_ps(v[2], v[3]), t3 = _mm256_unpackhi_ps(v[2], v[3]);
  const __m256 t4 = _mm256_unpacklo_ps(v[4], v[5]), t5 = _mm256_unpackhi_ps(v[4], v[5]);
  const __m256 t6 = _mm256_unpacklo_ps(v[6], v[7]), t7 = _mm256_unpackhi_ps(v[6], v[7]);
  const __m256 u0 = _mm256_shuffle_ps(t0, t2, 0x44), u1 = _mm256_shuffle_ps(t0, t2, 0xEE);
  const __m256 u2 = _mm256_shuffle_ps(t1, t3, 0x44), u3 = _mm256_shuffle_ps(t1, t3, 0xEE);
  const __m256 u4 = _mm256_shuffle_ps(t4, t6, 0x44), u5 = _mm256_shuffle_ps(t4, t6, 0xEE);
  const __m256 u6 = _mm256_shuffle_ps(t5, t7, 0x44), u7 = _mm256_shuffle_ps(t5, t7, 0xEE);
  v[0] = _mm256_permute2f128_ps(u0, u4, 0x20);
  v[1] = _mm256_permute2f128_ps(u1, u5, 0x20);
  v[2] = _mm256_permute2f128_ps(u2, u6, 0x20);
  v[3] = _mm256_permute2f128_ps(u3, u7, 0x20);
  v[4] = _mm256_permute2f128_ps(u0, u4, 0x31);
  v[5] = _mm256_permute2f128_ps(u1, u5, 0x31);
  v[6] = _mm256_permute2f128_ps(u2, u6, 0x31);
  v[7] = _mm256_permute2f128_ps(u3, u7, 0x31);
}

}  // namespace

void interleave_rows_f32_avx(const float* const* rows, std::uint32_t r, std::uint32_t width, float* out) {
  std::uint32_t x = 0;
  if (r == 2) {
    for (; x + 8 <= width; x += 8, out += 16) {
      const __m256 a = _mm256_loadu_ps(rows[0] + x), b = _mm256_loadu_ps(rows[1] + x);
      const __m256 lo = _mm256_unpacklo_ps(a, b), hi = _mm256_unpackhi_ps(a, b);
      _mm256_storeu_ps(out, _mm256_permute2f128_ps(lo, hi, 0x20));
      _mm256_storeu_ps(out + 8, _mm256_permute2f128_ps(lo, hi, 0x31));
    }
  } else if (r == 4) {
    for (; x + 8 <= width; x += 8, out += 32) {
      const __m256 a = _mm256_loadu_ps(rows[0] + x), b = _mm256_loadu_ps(rows[1] + x);
      const __m256 c = _mm256_loadu_ps(rows[2] + x), d = _mm256_loadu_ps(rows[3] + x);
      const __m256 t0 = _mm256_unpacklo_ps(a, b), t1 = _mm256_unpacklo_ps(c, d);
      const __m256 t2 = _mm256_unpackhi_ps(a, b), t3 = _mm256_unpackhi_ps(c, d);
      // u_k holds pixels k and k + 4 (one per 128-bit lane).
      const __m256 u0 = _mm256_shuffle_ps(t0, t1, 0x44), u1 = _mm256_shuffle_ps(t0, t1, 0xEE);
      const __m256 u2 = _mm256_shuffle_ps(t2, t3, 0x44), u3 = _mm256_shuffle_ps(t2, t3, 0xEE);
      _mm256_storeu_ps(out, _mm256_permute2f128_ps(u0, u1, 0x20));
      _mm256_storeu_ps(out + 8, _mm256_permute2f128_ps(u2, u3, 0x20));
      _mm256_storeu_ps(out + 16, _mm256_permute2f128_ps(u0, u1, 0x31));
      _mm256_storeu_ps(out + 24, _mm256_permute2f128_ps(u2, u3, 0x31));
    }
  } else if (r == 8) {
    for (; x + 8 <= width; x += 8, out += 64) {
      __m256 v[8];
      for (int j = 0; j < 8; ++j) v[j] = _mm256_loadu_ps(rows[j] + x);
      Transpose8(v);
      for (int j = 0; j < 8; ++j) _mm256_storeu_ps(out + 8 * j, v[j]);
    }
  }
  InterleaveRest(rows, r, x, width, out);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
