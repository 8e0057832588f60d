// SSE im2col and convolution cores on raw pointers.
#include <immintrin.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "kernel/cpu/fallback/conv_core/core_checks.h"
#include "tarn/kernel/native_conv.h"

namespace tarn {
namespace kernel {
namespace native {
namespace {

using std::ptrdiff_t;

// One element of L floats (1: CHW, 4: C4HW4, 8: C8HW8) from s to d.
template <int L>
inline void MoveElement(const float* s, float* d) {
  if (L == 1) {
    *d = *s;
  } else {
    for (int k = 0; k < L; k += 4) _mm_storeu_ps(d + k, _mm_loadu_ps(s + k));
  }
}

// The tap-table scheme: one source and one destination pointer per kernel
// tap (row of the kernel outer), set up per channel; per output pixel one
// element moves per tap. A 1x1 kernel with stride 1 is one plain copy.
template <int L>
void Im2colByTaps(int channels, int imgH, int imgW, int colH, int colW, int kernelY, int kernelX, int strideY,
                  int strideX, int dilateY, int dilateX, const float* img, float* col) {
  if (kernelY == 1 && kernelX == 1 && strideY == 1 && strideX == 1) {
    std::memcpy(col, img, std::size_t(channels) * imgH * imgW * L * sizeof(float));
    return;
  }
  const int taps = kernelY * kernelX;
  const ptrdiff_t imgPlane = ptrdiff_t(imgH) * imgW * L;
  const ptrdiff_t colPlane = ptrdiff_t(colH) * colW * L;
  const ptrdiff_t rowStep = ptrdiff_t(strideY) * imgW * L;
  const ptrdiff_t colStep = ptrdiff_t(strideX) * L;
  const float** src = static_cast<const float**>(std::calloc(taps, sizeof(float*)));
  float** dst = static_cast<float**>(std::calloc(taps, sizeof(float*)));
  TARN_NATIVE_ASSERT(src != nullptr && dst != nullptr);
  for (int c = 0; c < channels; ++c) {
    for (int ky = 0; ky < kernelY; ++ky) {
      for (int kx = 0; kx < kernelX; ++kx) {
        const int t = ky * kernelX + kx;
        src[t] = img + c * imgPlane + (ptrdiff_t(ky) * dilateY * imgW + ptrdiff_t(kx) * dilateX) * L;
        dst[t] = col + (ptrdiff_t(c) * taps + t) * colPlane;
      }
    }
    for (int oy = 0; oy < colH; ++oy) {
      for (int ox = 0; ox < colW; ++ox) {
        for (int t = 0; t < taps; ++t) MoveElement<L>(src[t] + ox * colStep, dst[t] + ptrdiff_t(ox) * L);
      }
      for (int t = 0; t < taps; ++t) {
        dst[t] += ptrdiff_t(colW) * L;
        // The last row leaves the sources alone: they would point past the image.
        if (oy + 1 < colH) src[t] += rowStep;
      }
    }
  }
  std::free(src);
  std::free(dst);
}

// dst[0..4) += w0 * s[0] + w1 * s[1] + w2 * s[2] + w3 * s[3] for one C4HW4 pixel.
#define TARN_PIXEL_C4(k)                                          \
  {                                                               \
    __m128 acc = _mm_loadu_ps(d + 4 * (k));                       \
    acc = _mm_fmadd_ps(w0, _mm_set1_ps(s[4 * (k) + 0]), acc);     \
    acc = _mm_fmadd_ps(w1, _mm_set1_ps(s[4 * (k) + 1]), acc);     \
    acc = _mm_fmadd_ps(w2, _mm_set1_ps(s[4 * (k) + 2]), acc);     \
    acc = _mm_fmadd_ps(w3, _mm_set1_ps(s[4 * (k) + 3]), acc);     \
    _mm_storeu_ps(d + 4 * (k), acc);                              \
  }

// Four outputs of one C8HW8 pixel from its eight input lanes; `half` selects
// the output lanes the weights w0..w7 belong to.
#define TARN_PIXEL_C8_HALF(k)                                     \
  {                                                               \
    __m128 acc = _mm_loadu_ps(d + 8 * (k));                       \
    acc = _mm_fmadd_ps(w0, _mm_set1_ps(s[8 * (k) + 0]), acc);     \
    acc = _mm_fmadd_ps(w1, _mm_set1_ps(s[8 * (k) + 1]), acc);     \
    acc = _mm_fmadd_ps(w2, _mm_set1_ps(s[8 * (k) + 2]), acc);     \
    acc = _mm_fmadd_ps(w3, _mm_set1_ps(s[8 * (k) + 3]), acc);     \
    acc = _mm_fmadd_ps(w4, _mm_set1_ps(s[8 * (k) + 4]), acc);     \
    acc = _mm_fmadd_ps(w5, _mm_set1_ps(s[8 * (k) + 5]), acc);     \
    acc = _mm_fmadd_ps(w6, _mm_set1_ps(s[8 * (k) + 6]), acc);     \
    acc = _mm_fmadd_ps(w7, _mm_set1_ps(s[8 * (k) + 7]), acc);     \
    _mm_storeu_ps(d + 8 * (k), acc);                              \
  }

// One row of `width` C4HW4 pixels: eight per step, then the tail one by one.
inline void RowC4(const float* s, float* d, int width, __m128 w0, __m128 w1, __m128 w2, __m128 w3) {
  int x = 0;
  for (; x + 8 <= width; x += 8, s += 32, d += 32) {
    TARN_PIXEL_C4(0) TARN_PIXEL_C4(1) TARN_PIXEL_C4(2) TARN_PIXEL_C4(3)
    TARN_PIXEL_C4(4) TARN_PIXEL_C4(5) TARN_PIXEL_C4(6) TARN_PIXEL_C4(7)
  }
  switch (width - x) {
    case 7: TARN_PIXEL_C4(6) [[fallthrough]];
    case 6: TARN_PIXEL_C4(5) [[fallthrough]];
    case 5: TARN_PIXEL_C4(4) [[fallthrough]];
    case 4: TARN_PIXEL_C4(3) [[fallthrough]];
    case 3: TARN_PIXEL_C4(2) [[fallthrough]];
    case 2: TARN_PIXEL_C4(1) [[fallthrough]];
    case 1: TARN_PIXEL_C4(0) [[fallthrough]];
    default: break;
  }
}

// One row of `width` C8HW8 pixels, four of the eight outputs (d points at
// the chosen half of the first pixel).
inline void RowC8Half(const float* s, float* d, int width, const __m128* w) {
  const __m128 w0 = w[0], w1 = w[1], w2 = w[2], w3 = w[3], w4 = w[4], w5 = w[5], w6 = w[6], w7 = w[7];
  int x = 0;
  for (; x + 8 <= width; x += 8, s += 64, d += 64) {
    TARN_PIXEL_C8_HALF(0) TARN_PIXEL_C8_HALF(1) TARN_PIXEL_C8_HALF(2) TARN_PIXEL_C8_HALF(3)
    TARN_PIXEL_C8_HALF(4) TARN_PIXEL_C8_HALF(5) TARN_PIXEL_C8_HALF(6) TARN_PIXEL_C8_HALF(7)
  }
  switch (width - x) {
    case 7: TARN_PIXEL_C8_HALF(6) [[fallthrough]];
    case 6: TARN_PIXEL_C8_HALF(5) [[fallthrough]];
    case 5: TARN_PIXEL_C8_HALF(4) [[fallthrough]];
    case 4: TARN_PIXEL_C8_HALF(3) [[fallthrough]];
    case 3: TARN_PIXEL_C8_HALF(2) [[fallthrough]];
    case 2: TARN_PIXEL_C8_HALF(1) [[fallthrough]];
    case 1: TARN_PIXEL_C8_HALF(0) [[fallthrough]];
    default: break;
  }
}

// Rows of C8HW8 pixels += one 8x8 tile applied to the source rows. The tile
// would take all sixteen registers: each sweep keeps the half of it (rows k,
// outputs 4 half .. 4 half + 3) that feeds one half of the outputs.
void SweepTileC8(const float* tile, const float* s, float* d, ptrdiff_t srcRow, ptrdiff_t dstRow, int height,
                 int width) {
  __m128 w[8];
  for (int half = 0; half < 2; ++half) {
    for (int k = 0; k < 8; ++k) w[k] = _mm_loadu_ps(tile + 8 * k + 4 * half);
    const float* sp = s;
    float* dp = d + 4 * half;
    for (int y = 0; y < height; ++y, sp += srcRow, dp += dstRow) RowC8Half(sp, dp, width, w);
  }
}

}  // namespace

#define TARN_IM2COL_ENTRY(name, L)                                                                                   \
  void name(int i_imgC, int i_imgH, int i_imgW, int i_colC, int i_colH, int i_colW, int i_kernelY, int i_kernelX,    \
            int i_strideY, int i_strideX, int i_dilateY, int i_dilateX, float* img, float* col) {                   \
    TARN_NATIVE_ASSERT(i_imgC * i_kernelY * i_kernelX == i_colC);                                                    \
    TARN_NATIVE_ASSERT((i_imgH - i_dilateY * (i_kernelY - 1) - 1) / i_strideY + 1 == i_colH);                        \
    TARN_NATIVE_ASSERT((i_imgW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_colW);                        \
    Im2colByTaps<L>(i_imgC, i_imgH, i_imgW, i_colH, i_colW, i_kernelY, i_kernelX, i_strideY, i_strideX, i_dilateY, \
                    i_dilateX, img, col);                                                                            \
  }

TARN_IM2COL_ENTRY(im2col_chw_f32_sse_m0, 1)
TARN_IM2COL_ENTRY(im2col_c4hw4_f32_sse_m0, 4)
TARN_IM2COL_ENTRY(im2col_c8hw8_f32_sse_m0, 8)

void conv2d_k1x1_s1x1_d1x1_g1_chw_f32_sse_m1(TARN_CONV_CORE_PARAMS) {
  TARN_CHECK_CORE_CHANNELS(i_inChannels, i_outChannels);
  TARN_CHECK_CORE_GEOMETRY(1, 1);
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  const ptrdiff_t plane = ptrdiff_t(i_dstH) * i_dstW;
  for (int o = 0; o < i_outChannels; ++o) {
    float* d = dst + o * plane;
    for (int i = 0; i < i_inChannels; ++i) {
      const float* s = src + i * plane;
      const float wf = weight[ptrdiff_t(o) * i_inChannels + i];
      const __m128 w = _mm_set1_ps(wf);
      ptrdiff_t p = 0;
      for (; p + 32 <= plane; p += 32) {
        for (int v = 0; v < 32; v += 4) {
          _mm_storeu_ps(d + p + v, _mm_fmadd_ps(w, _mm_loadu_ps(s + p + v), _mm_loadu_ps(d + p + v)));
        }
      }
      for (; p + 16 <= plane; p += 16) {
        for (int v = 0; v < 16; v += 4) {
          _mm_storeu_ps(d + p + v, _mm_fmadd_ps(w, _mm_loadu_ps(s + p + v), _mm_loadu_ps(d + p + v)));
        }
      }
      const ptrdiff_t rest = plane - p;
      if (rest & 8) {
        _mm_storeu_ps(d + p, _mm_fmadd_ps(w, _mm_loadu_ps(s + p), _mm_loadu_ps(d + p)));
        _mm_storeu_ps(d + p + 4, _mm_fmadd_ps(w, _mm_loadu_ps(s + p + 4), _mm_loadu_ps(d + p + 4)));
        p += 8;
      }
      if (rest & 4) {
        _mm_storeu_ps(d + p, _mm_fmadd_ps(w, _mm_loadu_ps(s + p), _mm_loadu_ps(d + p)));
        p += 4;
      }
      for (; p < plane; ++p) {
        d[p] = _mm_cvtss_f32(_mm_fmadd_ss(w, _mm_set_ss(s[p]), _mm_set_ss(d[p])));
      }
    }
  }
}

void conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_sse_m0(TARN_CONV_CORE_PARAMS) {
  TARN_CHECK_CORE_CHANNELS((i_inChannels + 3) / 4, (i_outChannels + 3) / 4);
  TARN_CHECK_CORE_GEOMETRY(1, 1);
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  const ptrdiff_t row = ptrdiff_t(i_dstW) * 4;
  const ptrdiff_t plane = row * i_dstH;
  for (int ob = 0; ob < i_dstC; ++ob) {
    for (int ib = 0; ib < i_srcC; ++ib) {
      const float* tile = weight + (ptrdiff_t(ob) * i_srcC + ib) * 16;
      const __m128 w0 = _mm_loadu_ps(tile), w1 = _mm_loadu_ps(tile + 4);
      const __m128 w2 = _mm_loadu_ps(tile + 8), w3 = _mm_loadu_ps(tile + 12);
      const float* s = src + ib * plane;
      float* d = dst + ob * plane;
      for (int y = 0; y < i_dstH; ++y, s += row, d += row) RowC4(s, d, i_dstW, w0, w1, w2, w3);
    }
  }
}

void conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_sse_m0(TARN_CONV_CORE_PARAMS) {
  TARN_CHECK_CORE_CHANNELS((i_inChannels + 7) / 8, (i_outChannels + 7) / 8);
  TARN_CHECK_CORE_GEOMETRY(1, 1);
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  const ptrdiff_t row = ptrdiff_t(i_dstW) * 8, plane = row * i_dstH;
  for (int ob = 0; ob < i_dstC; ++ob) {
    for (int ib = 0; ib < i_srcC; ++ib) {
      SweepTileC8(weight + (ptrdiff_t(ob) * i_srcC + ib) * 64, src + ib * plane, dst + ob * plane, row, row, i_dstH,
                  i_dstW);
    }
  }
}

}  // namespace native
}  // namespace kernel
}  // namespace tarn
