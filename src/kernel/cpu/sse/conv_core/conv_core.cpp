// SSE im2col and convolution cores on raw pointers.
#include <immintrin.h>

#include <cstddef>
#include <cstdlib>

#include "tarn/kernel/native_conv.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace native {
namespace {

using std::ptrdiff_t;

void CopyFloats(float* d, const float* s, ptrdiff_t n) {
  ptrdiff_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128 a = _mm_loadu_ps(s + i), b = _mm_loadu_ps(s + i + 4);
    const __m128 c = _mm_loadu_ps(s + i + 8), e = _mm_loadu_ps(s + i + 12);
    _mm_storeu_ps(d + i, a);
    _mm_storeu_ps(d + i + 4, b);
    _mm_storeu_ps(d + i + 8, c);
    _mm_storeu_ps(d + i + 12, e);
  }
  for (; i + 4 <= n; i += 4) _mm_storeu_ps(d + i, _mm_loadu_ps(s + i));
  for (; i < n; ++i) d[i] = s[i];
}

template <int L>
inline void MoveElement(const float* s, float* d) {
  if (L == 4) {
    _mm_storeu_ps(d, _mm_loadu_ps(s));
  } else {
    *d = *s;
  }
}

// The tap-table scheme: per channel, one source and one destination pointer
// per kernel tap (row of the kernel outer); per output pixel one element moves
// per tap. L is the element width in floats (1: CHW, 4: C4HW4).
template <int L>
void Im2colByTaps(int channels, int imgH, int imgW, int colH, int colW, int kernelY, int kernelX, int strideY,
                  int strideX, int dilateY, int dilateX, const float* img, float* col) {
  const int taps = kernelY * kernelX;
  const ptrdiff_t imgPlane = ptrdiff_t(imgH) * imgW * L;
  const ptrdiff_t colPlane = ptrdiff_t(colH) * colW * L;
  const ptrdiff_t rowStep = ptrdiff_t(strideY) * imgW * L;
  const ptrdiff_t colStep = ptrdiff_t(strideX) * L;
  for (int c = 0; c < channels; ++c) {
    const float** src = static_cast<const float**>(std::calloc(taps, sizeof(float*)));
    float** dst = static_cast<float**>(std::calloc(taps, sizeof(float*)));
    TARN_NATIVE_ASSERT(src != nullptr && dst != nullptr);
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
    std::free(src);
    std::free(dst);
  }
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

// Half `half` (outputs 4 half .. 4 half + 3) of row k of an 8x8 tile.
inline void LoadHalfTile(const float* tile, int half, __m128* w) {
  for (int k = 0; k < 8; ++k) w[k] = _mm_loadu_ps(tile + 8 * k + 4 * half);
}

}  // namespace

void im2col_chw_f32_sse_m0(int i_imgC, int i_imgH, int i_imgW, int i_colC, int i_colH, int i_colW, int i_kernelY,
                           int i_kernelX, int i_strideY, int i_strideX, int i_dilateY, int i_dilateX, float* img,
                           float* col) {
  TARN_NATIVE_ASSERT(i_imgC * i_kernelY * i_kernelX == i_colC);
  TARN_NATIVE_ASSERT((i_imgH - i_dilateY * (i_kernelY - 1) - 1) / i_strideY + 1 == i_colH);
  TARN_NATIVE_ASSERT((i_imgW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_colW);
  if (i_kernelY == 1 && i_kernelX == 1 && i_strideY == 1 && i_strideX == 1) {
    CopyFloats(col, img, ptrdiff_t(i_imgC) * i_imgH * i_imgW);
    return;
  }
  Im2colByTaps<1>(i_imgC, i_imgH, i_imgW, i_colH, i_colW, i_kernelY, i_kernelX, i_strideY, i_strideX, i_dilateY,
                  i_dilateX, img, col);
}

void im2col_c4hw4_f32_sse_m0(int i_imgC, int i_imgH, int i_imgW, int i_colC, int i_colH, int i_colW, int i_kernelY,
                             int i_kernelX, int i_strideY, int i_strideX, int i_dilateY, int i_dilateX, float* img,
                             float* col) {
  TARN_NATIVE_ASSERT(i_imgC * i_kernelY * i_kernelX == i_colC);
  TARN_NATIVE_ASSERT((i_imgH - i_dilateY * (i_kernelY - 1) - 1) / i_strideY + 1 == i_colH);
  TARN_NATIVE_ASSERT((i_imgW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_colW);
  if (i_kernelY == 1 && i_kernelX == 1 && i_strideY == 1 && i_strideX == 1) {
    CopyFloats(col, img, ptrdiff_t(i_imgC) * i_imgH * i_imgW * 4);
    return;
  }
  Im2colByTaps<4>(i_imgC, i_imgH, i_imgW, i_colH, i_colW, i_kernelY, i_kernelX, i_strideY, i_strideX, i_dilateY,
                  i_dilateX, img, col);
}

void conv2d_k1x1_s1x1_d1x1_g1_chw_f32_sse_m1(TARN_CONV_CORE_PARAMS) {
  TARN_NATIVE_ASSERT(i_groups == 1);
  TARN_NATIVE_ASSERT(i_inChannels == i_srcC);
  TARN_NATIVE_ASSERT(i_outChannels == i_dstC);
  TARN_NATIVE_ASSERT(i_kernelX == 1);
  TARN_NATIVE_ASSERT(i_kernelY == 1);
  TARN_NATIVE_ASSERT(i_strideX == 1);
  TARN_NATIVE_ASSERT(i_strideY == 1);
  TARN_NATIVE_ASSERT(i_dilateX == 1);
  TARN_NATIVE_ASSERT(i_dilateY == 1);
  TARN_NATIVE_ASSERT((i_srcH - i_dilateY * (i_kernelY - 1) - 1) / i_strideY + 1 == i_dstH);
  TARN_NATIVE_ASSERT((i_srcW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_dstW);
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
  TARN_NATIVE_ASSERT(i_groups == 1);
  TARN_NATIVE_ASSERT((i_inChannels + 3) / 4 == i_srcC);
  TARN_NATIVE_ASSERT((i_outChannels + 3) / 4 == i_dstC);
  TARN_NATIVE_ASSERT(i_kernelX == 1);
  TARN_NATIVE_ASSERT(i_kernelY == 1);
  TARN_NATIVE_ASSERT(i_strideX == 1);
  TARN_NATIVE_ASSERT(i_strideY == 1);
  TARN_NATIVE_ASSERT(i_dilateX == 1);
  TARN_NATIVE_ASSERT(i_dilateY == 1);
  TARN_NATIVE_ASSERT((i_srcH - i_dilateY * (i_kernelY - 1) - 1) / i_strideY + 1 == i_dstH);
  TARN_NATIVE_ASSERT((i_srcW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_dstW);
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
  TARN_NATIVE_ASSERT(i_groups == 1);
  TARN_NATIVE_ASSERT((i_inChannels + 7) / 8 == i_srcC);
  TARN_NATIVE_ASSERT((i_outChannels + 7) / 8 == i_dstC);
  TARN_NATIVE_ASSERT(i_kernelX == 1);
  TARN_NATIVE_ASSERT(i_kernelY == 1);
  TARN_NATIVE_ASSERT(i_strideX == 1);
  TARN_NATIVE_ASSERT(i_strideY == 1);
  TARN_NATIVE_ASSERT(i_dilateX == 1);
  TARN_NATIVE_ASSERT(i_dilateY == 1);
  TARN_NATIVE_ASSERT((i_srcH - i_dilateY * (i_kernelY - 1) - 1) / i_strideY + 1 == i_dstH);
  TARN_NATIVE_ASSERT((i_srcW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_dstW);
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  const ptrdiff_t row = ptrdiff_t(i_dstW) * 8;
  const ptrdiff_t plane = row * i_dstH;
  __m128 w[8];
  for (int ob = 0; ob < i_dstC; ++ob) {
    for (int ib = 0; ib < i_srcC; ++ib) {
      const float* tile = weight + (ptrdiff_t(ob) * i_srcC + ib) * 64;
      // An 8x8 tile is all sixteen registers: sweep the plane once per half.
      for (int half = 0; half < 2; ++half) {
        LoadHalfTile(tile, half, w);
        const float* s = src + ib * plane;
        float* d = dst + ob * plane + 4 * half;
        for (int y = 0; y < i_dstH; ++y, s += row, d += row) RowC8Half(s, d, i_dstW, w);
      }
    }
  }
}

void conv2d_k3x3_s1x1_d1x1_g1_c8hw8_f32_sse_m0(TARN_CONV_CORE_PARAMS) {
  TARN_NATIVE_ASSERT(i_groups == 1);
  TARN_NATIVE_ASSERT((i_inChannels + 7) / 8 == i_srcC);
  TARN_NATIVE_ASSERT((i_outChannels + 7) / 8 == i_dstC);
  TARN_NATIVE_ASSERT(i_kernelX == 3);
  TARN_NATIVE_ASSERT(i_kernelY == 3);
  TARN_NATIVE_ASSERT(i_strideX == 1);
  TARN_NATIVE_ASSERT(i_strideY == 1);
  TARN_NATIVE_ASSERT(i_dilateX == 1);
  TARN_NATIVE_ASSERT(i_dilateY == 1);
  TARN_NATIVE_ASSERT((i_srcH - i_dilateY * (i_kernelY - 1) - 1) / i_strideY + 1 == i_dstH);
  TARN_NATIVE_ASSERT((i_srcW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_dstW);
  if (i_dstC <= 0 || i_dstH <= 0 || i_dstW <= 0) return;
  const ptrdiff_t srcRow = ptrdiff_t(i_srcW) * 8, srcPlane = srcRow * i_srcH;
  const ptrdiff_t dstRow = ptrdiff_t(i_dstW) * 8, dstPlane = dstRow * i_dstH;
  __m128 w[8];
  for (int ob = 0; ob < i_dstC; ++ob) {
    for (int ib = 0; ib < i_srcC; ++ib) {
      for (int ky = 0; ky < 3; ++ky) {
        for (int kx = 0; kx < 3; ++kx) {
          const float* tile = weight + ((ptrdiff_t(ob) * i_srcC + ib) * 9 + ky * 3 + kx) * 64;
          for (int half = 0; half < 2; ++half) {
            LoadHalfTile(tile, half, w);
            const float* s = src + ib * srcPlane + ky * srcRow + kx * 8;
            float* d = dst + ob * dstPlane + 4 * half;
            for (int y = 0; y < i_dstH; ++y, s += srcRow, d += dstRow) RowC8Half(s, d, i_dstW, w);
          }
        }
      }
    }
  }
}

}  // namespace native
}  // namespace kernel
}  // namespace tarn
