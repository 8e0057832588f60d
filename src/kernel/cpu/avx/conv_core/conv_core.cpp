// AVX 1x1 convolution cores on raw pointers.
#include <immintrin.h>

#include <cstddef>

#include "kernel/cpu/fallback/conv_core/core_checks.h"
#include "tarn/kernel/native_conv.h"

namespace tarn {
namespace kernel {
namespace native {
namespace {

using std::ptrdiff_t;

inline void LoadTile8(const float* tile, __m256* w) {
  for (int k = 0; k < 8; ++k) w[k] = _mm256_loadu_ps(tile + 8 * k);
}

// A 4-float tile row in both halves: one row serves two C4HW4 pixels.
inline void LoadTile4Twice(const float* tile, int rows, __m256* w) {
  for (int k = 0; k < rows; ++k) {
    const __m128 r = _mm_loadu_ps(tile + 4 * k);
    w[k] = _mm256_set_m128(r, r);
  }
}

// ---------------------------------------------------------------- C8HW8 -> C8HW8

// acc += sum_k w[k] * s[k], broadcasting each of the pixel's eight inputs.
#define TARN_PIXEL_C8(k)                                                   \
  {                                                                        \
    const float* sp = s + 8 * (k);                                         \
    __m256 acc = _mm256_loadu_ps(d + 8 * (k));                             \
    acc = _mm256_fmadd_ps(w0, _mm256_broadcast_ss(sp + 0), acc);           \
    acc = _mm256_fmadd_ps(w1, _mm256_broadcast_ss(sp + 1), acc);           \
    acc = _mm256_fmadd_ps(w2, _mm256_broadcast_ss(sp + 2), acc);           \
    acc = _mm256_fmadd_ps(w3, _mm256_broadcast_ss(sp + 3), acc);           \
    acc = _mm256_fmadd_ps(w4, _mm256_broadcast_ss(sp + 4), acc);           \
    acc = _mm256_fmadd_ps(w5, _mm256_broadcast_ss(sp + 5), acc);           \
    acc = _mm256_fmadd_ps(w6, _mm256_broadcast_ss(sp + 6), acc);           \
    acc = _mm256_fmadd_ps(w7, _mm256_broadcast_ss(sp + 7), acc);           \
    _mm256_storeu_ps(d + 8 * (k), acc);                                    \
  }

void RowC8(const float* s, float* d, int width, const __m256* w) {
  const __m256 w0 = w[0], w1 = w[1], w2 = w[2], w3 = w[3], w4 = w[4], w5 = w[5], w6 = w[6], w7 = w[7];
  int x = 0;
  for (; x + 8 <= width; x += 8, s += 64, d += 64) {
    TARN_PIXEL_C8(0) TARN_PIXEL_C8(1) TARN_PIXEL_C8(2) TARN_PIXEL_C8(3)
    TARN_PIXEL_C8(4) TARN_PIXEL_C8(5) TARN_PIXEL_C8(6) TARN_PIXEL_C8(7)
  }
  switch (width - x) {
    case 7: TARN_PIXEL_C8(6) [[fallthrough]];
    case 6: TARN_PIXEL_C8(5) [[fallthrough]];
    case 5: TARN_PIXEL_C8(4) [[fallthrough]];
    case 4: TARN_PIXEL_C8(3) [[fallthrough]];
    case 3: TARN_PIXEL_C8(2) [[fallthrough]];
    case 2: TARN_PIXEL_C8(1) [[fallthrough]];
    case 1: TARN_PIXEL_C8(0) [[fallthrough]];
    default: break;
  }
}

// Two interleaved sums per pixel: chains of four instead of eight.
#define TARN_PIXEL_C8_SPLIT(k)                                             \
  {                                                                        \
    const float* sp = s + 8 * (k);                                         \
    __m256 a = _mm256_fmadd_ps(w0, _mm256_broadcast_ss(sp + 0), _mm256_loadu_ps(d + 8 * (k))); \
    __m256 b = _mm256_mul_ps(w1, _mm256_broadcast_ss(sp + 1));             \
    a = _mm256_fmadd_ps(w2, _mm256_broadcast_ss(sp + 2), a);               \
    b = _mm256_fmadd_ps(w3, _mm256_broadcast_ss(sp + 3), b);               \
    a = _mm256_fmadd_ps(w4, _mm256_broadcast_ss(sp + 4), a);               \
    b = _mm256_fmadd_ps(w5, _mm256_broadcast_ss(sp + 5), b);               \
    a = _mm256_fmadd_ps(w6, _mm256_broadcast_ss(sp + 6), a);               \
    b = _mm256_fmadd_ps(w7, _mm256_broadcast_ss(sp + 7), b);               \
    _mm256_storeu_ps(d + 8 * (k), _mm256_add_ps(a, b));                    \
  }

void RowC8Split(const float* s, float* d, int width, const __m256* w) {
  const __m256 w0 = w[0], w1 = w[1], w2 = w[2], w3 = w[3], w4 = w[4], w5 = w[5], w6 = w[6], w7 = w[7];
  int x = 0;
  for (; x + 4 <= width; x += 4, s += 32, d += 32) {
    TARN_PIXEL_C8_SPLIT(0) TARN_PIXEL_C8_SPLIT(1) TARN_PIXEL_C8_SPLIT(2) TARN_PIXEL_C8_SPLIT(3)
  }
  switch (width - x) {
    case 3: TARN_PIXEL_C8_SPLIT(2) [[fallthrough]];
    case 2: TARN_PIXEL_C8_SPLIT(1) [[fallthrough]];
    case 1: TARN_PIXEL_C8_SPLIT(0) [[fallthrough]];
    default: break;
  }
}

// ---------------------------------------------------------------- C4HW4 -> C4HW4

// Pixels 2j and 2j + 1 of one input block: lane k of each pixel broadcast in
// its own half by an in-lane permute.
#define TARN_PAIR_C4(j)                                                       \
  {                                                                           \
    const __m256 v = _mm256_loadu_ps(s + 8 * (j));                            \
    __m256 acc = _mm256_loadu_ps(d + 8 * (j));                                \
    acc = _mm256_fmadd_ps(w0, _mm256_permute_ps(v, 0x00), acc);               \
    acc = _mm256_fmadd_ps(w1, _mm256_permute_ps(v, 0x55), acc);               \
    acc = _mm256_fmadd_ps(w2, _mm256_permute_ps(v, 0xAA), acc);               \
    acc = _mm256_fmadd_ps(w3, _mm256_permute_ps(v, 0xFF), acc);               \
    _mm256_storeu_ps(d + 8 * (j), acc);                                       \
  }

// The same pair from two input blocks (s, t) with their tiles (w, u).
#define TARN_PAIR_C4_TWO(j)                                                   \
  {                                                                           \
    const __m256 v = _mm256_loadu_ps(s + 8 * (j));                            \
    const __m256 z = _mm256_loadu_ps(t + 8 * (j));                            \
    __m256 acc = _mm256_loadu_ps(d + 8 * (j));                                \
    acc = _mm256_fmadd_ps(w0, _mm256_permute_ps(v, 0x00), acc);               \
    acc = _mm256_fmadd_ps(w1, _mm256_permute_ps(v, 0x55), acc);               \
    acc = _mm256_fmadd_ps(w2, _mm256_permute_ps(v, 0xAA), acc);               \
    acc = _mm256_fmadd_ps(w3, _mm256_permute_ps(v, 0xFF), acc);               \
    acc = _mm256_fmadd_ps(u0, _mm256_permute_ps(z, 0x00), acc);               \
    acc = _mm256_fmadd_ps(u1, _mm256_permute_ps(z, 0x55), acc);               \
    acc = _mm256_fmadd_ps(u2, _mm256_permute_ps(z, 0xAA), acc);               \
    acc = _mm256_fmadd_ps(u3, _mm256_permute_ps(z, 0xFF), acc);               \
    _mm256_storeu_ps(d + 8 * (j), acc);                                       \
  }

// The odd last pixel of a row, on the low halves.
inline void SingleC4(const float* s, float* d, const __m256* w, int rows) {
  __m128 acc = _mm_loadu_ps(d);
  for (int k = 0; k < rows; ++k) acc = _mm_fmadd_ps(_mm256_castps256_ps128(w[k]), _mm_set1_ps(s[k]), acc);
  _mm_storeu_ps(d, acc);
}

void RowC4(const float* s, float* d, int width, const __m256* w) {
  const __m256 w0 = w[0], w1 = w[1], w2 = w[2], w3 = w[3];
  int x = 0;
  for (; x + 8 <= width; x += 8, s += 32, d += 32) {
    TARN_PAIR_C4(0) TARN_PAIR_C4(1) TARN_PAIR_C4(2) TARN_PAIR_C4(3)
  }
  switch ((width - x) / 2) {
    case 3: TARN_PAIR_C4(2) [[fallthrough]];
    case 2: TARN_PAIR_C4(1) [[fallthrough]];
    case 1: TARN_PAIR_C4(0) [[fallthrough]];
    default: break;
  }
  if ((width - x) & 1) SingleC4(s + 4 * (width - x - 1), d + 4 * (width - x - 1), w, 4);
}

void RowC4Two(const float* s, const float* t, float* d, int width, const __m256* w) {
  const __m256 w0 = w[0], w1 = w[1], w2 = w[2], w3 = w[3], u0 = w[4], u1 = w[5], u2 = w[6], u3 = w[7];
  int x = 0;
  for (; x + 8 <= width; x += 8, s += 32, t += 32, d += 32) {
    TARN_PAIR_C4_TWO(0) TARN_PAIR_C4_TWO(1) TARN_PAIR_C4_TWO(2) TARN_PAIR_C4_TWO(3)
  }
  switch ((width - x) / 2) {
    case 3: TARN_PAIR_C4_TWO(2) [[fallthrough]];
    case 2: TARN_PAIR_C4_TWO(1) [[fallthrough]];
    case 1: TARN_PAIR_C4_TWO(0) [[fallthrough]];
    default: break;
  }
  if ((width - x) & 1) {
    const ptrdiff_t last = 4 * (width - x - 1);
    SingleC4(s + last, d + last, w, 4);
    SingleC4(t + last, d + last, w + 4, 4);
  }
}

// ---------------------------------------------------------------- C4HW4 -> C8HW8

// Eight outputs of one pixel from two C4HW4 input blocks (s: lanes 0..3 of the
// tile, t: lanes 4..7), or from one block when kTwo is false.
template <bool kTwo>
inline void PixelC4ToC8(const float* s, const float* t, float* d, const __m256* w) {
  __m256 acc = _mm256_loadu_ps(d);
  acc = _mm256_fmadd_ps(w[0], _mm256_broadcast_ss(s + 0), acc);
  acc = _mm256_fmadd_ps(w[1], _mm256_broadcast_ss(s + 1), acc);
  acc = _mm256_fmadd_ps(w[2], _mm256_broadcast_ss(s + 2), acc);
  acc = _mm256_fmadd_ps(w[3], _mm256_broadcast_ss(s + 3), acc);
  if (kTwo) {
    acc = _mm256_fmadd_ps(w[4], _mm256_broadcast_ss(t + 0), acc);
    acc = _mm256_fmadd_ps(w[5], _mm256_broadcast_ss(t + 1), acc);
    acc = _mm256_fmadd_ps(w[6], _mm256_broadcast_ss(t + 2), acc);
    acc = _mm256_fmadd_ps(w[7], _mm256_broadcast_ss(t + 3), acc);
  }
  _mm256_storeu_ps(d, acc);
}

template <bool kTwo>
void RowC4ToC8(const float* s, const float* t, float* d, int width, const __m256* w) {
  int x = 0;
  for (; x + 8 <= width; x += 8) {
    for (int k = 0; k < 8; ++k) PixelC4ToC8<kTwo>(s + 4 * (x + k), t + 4 * (x + k), d + 8 * (x + k), w);
  }
  switch (width - x) {
    case 7: PixelC4ToC8<kTwo>(s + 4 * (x + 6), t + 4 * (x + 6), d + 8 * (x + 6), w); [[fallthrough]];
    case 6: PixelC4ToC8<kTwo>(s + 4 * (x + 5), t + 4 * (x + 5), d + 8 * (x + 5), w); [[fallthrough]];
    case 5: PixelC4ToC8<kTwo>(s + 4 * (x + 4), t + 4 * (x + 4), d + 8 * (x + 4), w); [[fallthrough]];
    case 4: PixelC4ToC8<kTwo>(s + 4 * (x + 3), t + 4 * (x + 3), d + 8 * (x + 3), w); [[fallthrough]];
    case 3: PixelC4ToC8<kTwo>(s + 4 * (x + 2), t + 4 * (x + 2), d + 8 * (x + 2), w); [[fallthrough]];
    case 2: PixelC4ToC8<kTwo>(s + 4 * (x + 1), t + 4 * (x + 1), d + 8 * (x + 1), w); [[fallthrough]];
    case 1: PixelC4ToC8<kTwo>(s + 4 * x, t + 4 * x, d + 8 * x, w); [[fallthrough]];
    default: break;
  }
}

// ---------------------------------------------------------------- C8HW8 -> C4HW4 (m0)

// Eight outputs of one pixel written to two C4HW4 blocks (d: outputs 0..3,
// e: 4..7), or to one block when kTwo is false.
template <bool kTwo>
inline void PixelC8ToC4(const float* s, float* d, float* e, const __m256* w) {
  __m256 acc = kTwo ? _mm256_set_m128(_mm_loadu_ps(e), _mm_loadu_ps(d)) : _mm256_castps128_ps256(_mm_loadu_ps(d));
  if (!kTwo) acc = _mm256_insertf128_ps(acc, _mm_setzero_ps(), 1);
  for (int k = 0; k < 8; ++k) acc = _mm256_fmadd_ps(w[k], _mm256_broadcast_ss(s + k), acc);
  _mm_storeu_ps(d, _mm256_castps256_ps128(acc));
  if (kTwo) _mm_storeu_ps(e, _mm256_extractf128_ps(acc, 1));
}

template <bool kTwo>
void RowC8ToC4(const float* s, float* d, float* e, int width, const __m256* w) {
  int x = 0;
  for (; x + 8 <= width; x += 8) {
    for (int k = 0; k < 8; ++k) PixelC8ToC4<kTwo>(s + 8 * (x + k), d + 4 * (x + k), e + 4 * (x + k), w);
  }
  switch (width - x) {
    case 7: PixelC8ToC4<kTwo>(s + 8 * (x + 6), d + 4 * (x + 6), e + 4 * (x + 6), w); [[fallthrough]];
    case 6: PixelC8ToC4<kTwo>(s + 8 * (x + 5), d + 4 * (x + 5), e + 4 * (x + 5), w); [[fallthrough]];
    case 5: PixelC8ToC4<kTwo>(s + 8 * (x + 4), d + 4 * (x + 4), e + 4 * (x + 4), w); [[fallthrough]];
    case 4: PixelC8ToC4<kTwo>(s + 8 * (x + 3), d + 4 * (x + 3), e + 4 * (x + 3), w); [[fallthrough]];
    case 3: PixelC8ToC4<kTwo>(s + 8 * (x + 2), d + 4 * (x + 2), e + 4 * (x + 2), w); [[fallthrough]];
    case 2: PixelC8ToC4<kTwo>(s + 8 * (x + 1), d + 4 * (x + 1), e + 4 * (x + 1), w); [[fallthrough]];
    case 1: PixelC8ToC4<kTwo>(s + 8 * x, d + 4 * x, e + 4 * x, w); [[fallthrough]];
    default: break;
  }
}

// ---------------------------------------------------------------- C8HW8 -> C4HW4 (m1)

// Pixels x and x + 1 of the C4HW4 output in one vector: their inputs' lane k
// broadcast into the matching half.
inline void PairC8ToC4(const float* s, float* d, const __m256* w) {
  const __m256 a = _mm256_loadu_ps(s), b = _mm256_loadu_ps(s + 8);
  const __m256 lo = _mm256_permute2f128_ps(a, b, 0x20);  // lanes 0..3 of both pixels
  const __m256 hi = _mm256_permute2f128_ps(a, b, 0x31);  // lanes 4..7 of both pixels
  __m256 acc = _mm256_loadu_ps(d);
  acc = _mm256_fmadd_ps(w[0], _mm256_permute_ps(lo, 0x00), acc);
  acc = _mm256_fmadd_ps(w[1], _mm256_permute_ps(lo, 0x55), acc);
  acc = _mm256_fmadd_ps(w[2], _mm256_permute_ps(lo, 0xAA), acc);
  acc = _mm256_fmadd_ps(w[3], _mm256_permute_ps(lo, 0xFF), acc);
  acc = _mm256_fmadd_ps(w[4], _mm256_permute_ps(hi, 0x00), acc);
  acc = _mm256_fmadd_ps(w[5], _mm256_permute_ps(hi, 0x55), acc);
  acc = _mm256_fmadd_ps(w[6], _mm256_permute_ps(hi, 0xAA), acc);
  acc = _mm256_fmadd_ps(w[7], _mm256_permute_ps(hi, 0xFF), acc);
  _mm256_storeu_ps(d, acc);
}

void RowC8ToC4Pairs(const float* s, float* d, int width, const __m256* w) {
  int x = 0;
  for (; x + 8 <= width; x += 8) {
    PairC8ToC4(s + 8 * x, d + 4 * x, w);
    PairC8ToC4(s + 8 * (x + 2), d + 4 * (x + 2), w);
    PairC8ToC4(s + 8 * (x + 4), d + 4 * (x + 4), w);
    PairC8ToC4(s + 8 * (x + 6), d + 4 * (x + 6), w);
  }
  switch ((width - x) / 2) {
    case 3: PairC8ToC4(s + 8 * (x + 4), d + 4 * (x + 4), w); [[fallthrough]];
    case 2: PairC8ToC4(s + 8 * (x + 2), d + 4 * (x + 2), w); [[fallthrough]];
    case 1: PairC8ToC4(s + 8 * x, d + 4 * x, w); [[fallthrough]];
    default: break;
  }
  if ((width - x) & 1) {
    const int last = width - 1;
    SingleC4(s + 8 * last, d + 4 * last, w, 8);
  }
}

// ---------------------------------------------------------------- C8HW8 -> CHW

inline void Transpose8x8(__m256* r) {
  const __m256 t0 = _mm256_unpacklo_ps(r[0], r[1]), t1 = _mm256_unpackhi_ps(r[0], r[1]);
  const __m256 t2 = _mm256_unpacklo_ps(r[2], r[3]), t3 = _mm256_unpackhi_ps(r[2], r[3]);
  const __m256 t4 = _mm256_unpacklo_ps(r[4], r[5]), t5 = _mm256_unpackhi_ps(r[4], r[5]);
  const __m256 t6 = _mm256_unpacklo_ps(r[6], r[7]), t7 = _mm256_unpackhi_ps(r[6], r[7]);
  const __m256 u0 = _mm256_shuffle_ps(t0, t2, 0x44), u1 = _mm256_shuffle_ps(t0, t2, 0xEE);
  const __m256 u2 = _mm256_shuffle_ps(t1, t3, 0x44), u3 = _mm256_shuffle_ps(t1, t3, 0xEE);
  const __m256 u4 = _mm256_shuffle_ps(t4, t6, 0x44), u5 = _mm256_shuffle_ps(t4, t6, 0xEE);
  const __m256 u6 = _mm256_shuffle_ps(t5, t7, 0x44), u7 = _mm256_shuffle_ps(t5, t7, 0xEE);
  r[0] = _mm256_permute2f128_ps(u0, u4, 0x20);
  r[1] = _mm256_permute2f128_ps(u1, u5, 0x20);
  r[2] = _mm256_permute2f128_ps(u2, u6, 0x20);
  r[3] = _mm256_permute2f128_ps(u3, u7, 0x20);
  r[4] = _mm256_permute2f128_ps(u0, u4, 0x31);
  r[5] = _mm256_permute2f128_ps(u1, u5, 0x31);
  r[6] = _mm256_permute2f128_ps(u2, u6, 0x31);
  r[7] = _mm256_permute2f128_ps(u3, u7, 0x31);
}

// The eight outputs of one pixel, from zero.
inline __m256 PixelProducts(const float* s, const __m256* w) {
  __m256 acc = _mm256_mul_ps(w[0], _mm256_broadcast_ss(s));
  for (int k = 1; k < 8; ++k) acc = _mm256_fmadd_ps(w[k], _mm256_broadcast_ss(s + k), acc);
  return acc;
}

// d points at pixel x of plane 0 of the block; `planes` of the eight exist.
void RowC8ToCHW(const float* s, float* d, ptrdiff_t planeStride, int planes, int width, const __m256* w) {
  int x = 0;
  __m256 r[8];
  for (; x + 8 <= width; x += 8) {
    for (int p = 0; p < 8; ++p) r[p] = PixelProducts(s + 8 * (x + p), w);
    Transpose8x8(r);  // r[j] now holds output j at pixels x .. x + 7
    for (int j = 0; j < planes; ++j) {
      float* o = d + j * planeStride + x;
      _mm256_storeu_ps(o, _mm256_add_ps(_mm256_loadu_ps(o), r[j]));
    }
  }
  for (; x < width; ++x) {
    alignas(32) float lanes[8];
    _mm256_store_ps(lanes, PixelProducts(s + 8 * x, w));
    for (int j = 0; j < planes; ++j) d[j * planeStride + x] += lanes[j];
  }
}

// For every tile (ob, ib) of the weight: `load` fills the registers from the
// tile, then `row` sweeps each row of input block ib into output block ob.
template <typename Load, typename Row>
void SweepTiles(int outBlocks, int inBlocks, ptrdiff_t tileFloats, const float* weight, const float* src,
                ptrdiff_t srcRow, float* dst, ptrdiff_t dstRow, int height, Load load, Row row) {
  const ptrdiff_t srcPlane = srcRow * height, dstPlane = dstRow * height;
  __m256 w[8];
  for (int ob = 0; ob < outBlocks; ++ob) {
    for (int ib = 0; ib < inBlocks; ++ib) {
      load(weight + (ptrdiff_t(ob) * inBlocks + ib) * tileFloats, w);
      const float* s = src + ib * srcPlane;
      float* d = dst + ob * dstPlane;
      for (int y = 0; y < height; ++y, s += srcRow, d += dstRow) row(s, d, w);
    }
  }
}

}  // namespace

void conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_avx_m0(TARN_CONV_CORE_PARAMS) {
  TARN_CHECK_CORE_CHANNELS((i_inChannels + 3) / 4, (i_outChannels + 3) / 4);
  TARN_CHECK_CORE_GEOMETRY(1, 1);
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  const ptrdiff_t row = ptrdiff_t(i_dstW) * 4;
  SweepTiles(
      i_dstC, i_srcC, 16, weight, src, row, dst, row, i_dstH, [](const float* t, __m256* w) { LoadTile4Twice(t, 4, w); },
      [&](const float* s, float* d, const __m256* w) { RowC4(s, d, i_dstW, w); });
}

void conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_avx_m1(TARN_CONV_CORE_PARAMS) {
  TARN_CHECK_CORE_CHANNELS((i_inChannels + 3) / 4, (i_outChannels + 3) / 4);
  TARN_CHECK_CORE_GEOMETRY(1, 1);
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  const ptrdiff_t row = ptrdiff_t(i_dstW) * 4, plane = row * i_dstH;
  __m256 w[8];
  for (int ob = 0; ob < i_dstC; ++ob) {
    int ib = 0;
    for (; ib + 2 <= i_srcC; ib += 2) {
      // Tiles (ob, ib) and (ob, ib + 1) are adjacent in GN4C4HW4c4n.
      LoadTile4Twice(weight + (ptrdiff_t(ob) * i_srcC + ib) * 16, 8, w);
      const float* s = src + ib * plane;
      const float* t = s + plane;
      float* d = dst + ob * plane;
      for (int y = 0; y < i_dstH; ++y, s += row, t += row, d += row) RowC4Two(s, t, d, i_dstW, w);
    }
    if (ib < i_srcC) {
      LoadTile4Twice(weight + (ptrdiff_t(ob) * i_srcC + ib) * 16, 4, w);
      const float* s = src + ib * plane;
      float* d = dst + ob * plane;
      for (int y = 0; y < i_dstH; ++y, s += row, d += row) RowC4(s, d, i_dstW, w);
    }
  }
}

void conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m0(TARN_CONV_CORE_PARAMS) {
  TARN_CHECK_CORE_CHANNELS((i_inChannels + 7) / 8, (i_outChannels + 7) / 8);
  TARN_CHECK_CORE_GEOMETRY(1, 1);
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  const ptrdiff_t row = ptrdiff_t(i_dstW) * 8;
  SweepTiles(i_dstC, i_srcC, 64, weight, src, row, dst, row, i_dstH, [](const float* t, __m256* w) { LoadTile8(t, w); },
             [&](const float* s, float* d, const __m256* w) { RowC8(s, d, i_dstW, w); });
}

void conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m3(TARN_CONV_CORE_PARAMS) {
  TARN_CHECK_CORE_CHANNELS((i_inChannels + 7) / 8, (i_outChannels + 7) / 8);
  TARN_CHECK_CORE_GEOMETRY(1, 1);
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  const ptrdiff_t row = ptrdiff_t(i_dstW) * 8;
  SweepTiles(i_dstC, i_srcC, 64, weight, src, row, dst, row, i_dstH, [](const float* t, __m256* w) { LoadTile8(t, w); },
             [&](const float* s, float* d, const __m256* w) { RowC8Split(s, d, i_dstW, w); });
}

void conv2d_k1x1_s1x1_d1x1_g1_c4hw4_to_c8hw8_f32_avx_m0(TARN_CONV_CORE_PARAMS) {
  TARN_CHECK_CORE_CHANNELS((i_inChannels + 3) / 4, (i_outChannels + 7) / 8);
  TARN_CHECK_CORE_GEOMETRY(1, 1);
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  const ptrdiff_t srcRow = ptrdiff_t(i_dstW) * 4, srcPlane = srcRow * i_dstH;
  const ptrdiff_t dstRow = ptrdiff_t(i_dstW) * 8, dstPlane = dstRow * i_dstH;
  const int tiles = (i_srcC + 1) / 2;
  __m256 w[8];
  for (int ob = 0; ob < i_dstC; ++ob) {
    for (int ib = 0; ib < tiles; ++ib) {
      LoadTile8(weight + (ptrdiff_t(ob) * tiles + ib) * 64, w);
      const float* s = src + 2 * ib * srcPlane;
      const float* t = s + srcPlane;
      float* d = dst + ob * dstPlane;
      const bool two = 2 * ib + 1 < i_srcC;
      for (int y = 0; y < i_dstH; ++y, s += srcRow, t += srcRow, d += dstRow) {
        if (two) {
          RowC4ToC8<true>(s, t, d, i_dstW, w);
        } else {
          RowC4ToC8<false>(s, s, d, i_dstW, w);
        }
      }
    }
  }
}

void conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_c4hw4_f32_avx_m0(TARN_CONV_CORE_PARAMS) {
  TARN_CHECK_CORE_CHANNELS((i_inChannels + 7) / 8, (i_outChannels + 3) / 4);
  TARN_CHECK_CORE_GEOMETRY(1, 1);
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  const ptrdiff_t srcRow = ptrdiff_t(i_dstW) * 8, srcPlane = srcRow * i_dstH;
  const ptrdiff_t dstRow = ptrdiff_t(i_dstW) * 4, dstPlane = dstRow * i_dstH;
  const int tiles = (i_dstC + 1) / 2;
  __m256 w[8];
  for (int ob = 0; ob < tiles; ++ob) {
    const bool two = 2 * ob + 1 < i_dstC;
    for (int ib = 0; ib < i_srcC; ++ib) {
      LoadTile8(weight + (ptrdiff_t(ob) * i_srcC + ib) * 64, w);
      const float* s = src + ib * srcPlane;
      float* d = dst + 2 * ob * dstPlane;
      // Without a second block `e` is never written; it only mirrors d.
      float* e = two ? d + dstPlane : d;
      for (int y = 0; y < i_dstH; ++y, s += srcRow, d += dstRow, e += dstRow) {
        if (two) {
          RowC8ToC4<true>(s, d, e, i_dstW, w);
        } else {
          RowC8ToC4<false>(s, d, e, i_dstW, w);
        }
      }
    }
  }
}

void conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_c4hw4_f32_avx_m1(TARN_CONV_CORE_PARAMS) {
  TARN_CHECK_CORE_CHANNELS((i_inChannels + 3) / 8, (i_outChannels + 3) / 4);
  TARN_CHECK_CORE_GEOMETRY(1, 1);
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  SweepTiles(
      i_dstC, i_srcC, 32, weight, src, ptrdiff_t(i_dstW) * 8, dst, ptrdiff_t(i_dstW) * 4, i_dstH,
      [](const float* t, __m256* w) { LoadTile4Twice(t, 8, w); },
      [&](const float* s, float* d, const __m256* w) { RowC8ToC4Pairs(s, d, i_dstW, w); });
}

void conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_chw_f32_avx_m0(TARN_CONV_CORE_PARAMS) {
  TARN_CHECK_CORE_CHANNELS((i_inChannels + 7) / 8, i_outChannels);
  TARN_CHECK_CORE_GEOMETRY(1, 1);
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  const ptrdiff_t srcRow = ptrdiff_t(i_dstW) * 8, srcPlane = srcRow * i_dstH;
  const ptrdiff_t dstPlane = ptrdiff_t(i_dstW) * i_dstH;
  const int tiles = (i_outChannels + 7) / 8;
  __m256 w[8];
  for (int ob = 0; ob < tiles; ++ob) {
    const int planes = i_outChannels - 8 * ob < 8 ? i_outChannels - 8 * ob : 8;
    for (int ib = 0; ib < i_srcC; ++ib) {
      LoadTile8(weight + (ptrdiff_t(ob) * i_srcC + ib) * 64, w);
      const float* s = src + ib * srcPlane;
      float* d = dst + 8 * ob * dstPlane;
      for (int y = 0; y < i_dstH; ++y, s += srcRow, d += i_dstW) RowC8ToCHW(s, d, dstPlane, planes, i_dstW, w);
    }
  }
}

}  // namespace native
}  // namespace kernel
}  // namespace tarn
