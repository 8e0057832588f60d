// AVX routines of the fully connected kernels.
#include <immintrin.h>

#include <cstddef>

#include "kernel/cpu/fallback/fullconnection/fc_output.h"
#include "tarn/kernel/fullconnection.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace {

using std::ptrdiff_t;

inline float ScalarFma(float a, float b, float c) {
  return _mm_cvtss_f32(_mm_fmadd_ss(_mm_set_ss(a), _mm_set_ss(b), _mm_set_ss(c)));
}

inline float HorizontalSum(__m256 v) {
  __m128 s = _mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
  s = _mm_hadd_ps(s, s);
  return _mm_cvtss_f32(_mm_hadd_ps(s, s));
}

// Lane r of the result is the lane sum of a[r], for four vectors.
inline __m128 HorizontalSums4(__m256 a0, __m256 a1, __m256 a2, __m256 a3) {
  const __m256 h = _mm256_hadd_ps(_mm256_hadd_ps(a0, a1), _mm256_hadd_ps(a2, a3));
  return _mm_add_ps(_mm256_castps256_ps128(h), _mm256_extractf128_ps(h, 1));
}

// Lane r of the result is the lane sum of a[r], for eight vectors.
inline __m256 HorizontalSums8(const __m256* a) {
  const __m256 q0 = _mm256_hadd_ps(_mm256_hadd_ps(a[0], a[1]), _mm256_hadd_ps(a[2], a[3]));
  const __m256 q1 = _mm256_hadd_ps(_mm256_hadd_ps(a[4], a[5]), _mm256_hadd_ps(a[6], a[7]));
  return _mm256_add_ps(_mm256_permute2f128_ps(q0, q1, 0x20), _mm256_permute2f128_ps(q0, q1, 0x31));
}

float DotRow(const float* w, const float* x, ptrdiff_t n) {
  __m256 a = _mm256_setzero_ps(), b = _mm256_setzero_ps();
  ptrdiff_t i = 0;
  for (; i + 16 <= n; i += 16) {
    a = _mm256_fmadd_ps(_mm256_loadu_ps(w + i), _mm256_loadu_ps(x + i), a);
    b = _mm256_fmadd_ps(_mm256_loadu_ps(w + i + 8), _mm256_loadu_ps(x + i + 8), b);
  }
  if (i + 8 <= n) {
    a = _mm256_fmadd_ps(_mm256_loadu_ps(w + i), _mm256_loadu_ps(x + i), a);
    i += 8;
  }
  float tail = 0.0f;
  for (; i < n; ++i) tail = ScalarFma(w[i], x[i], tail);
  return HorizontalSum(_mm256_add_ps(a, b)) + tail;
}

// Adds `acc` to the first `valid` floats of out.
inline void AddPartial(float* out, __m256 acc, int valid) {
  if (valid == 8) {
    _mm256_storeu_ps(out, _mm256_add_ps(_mm256_loadu_ps(out), acc));
    return;
  }
  alignas(32) float lanes[8];
  _mm256_store_ps(lanes, acc);
  for (int j = 0; j < valid; ++j) out[j] += lanes[j];
}

}  // namespace

namespace native {

void fc_c_f32_avx_m0(float* input, int i_inFeatures, int i_outFeatures, float* weight, float* bias, float* output) {
  if (i_outFeatures <= 0) return;
  detail::InitFcOutput(bias, output, static_cast<std::size_t>(i_outFeatures));
  const ptrdiff_t in = i_inFeatures < 0 ? 0 : i_inFeatures;
  const ptrdiff_t whole = in / 8 * 8;
  int o = 0;
  for (; o + 4 <= i_outFeatures; o += 4) {
    const float* w0 = weight + o * in;
    const float* w1 = w0 + in;
    const float* w2 = w1 + in;
    const float* w3 = w2 + in;
    __m256 a0 = _mm256_setzero_ps(), a1 = _mm256_setzero_ps(), a2 = _mm256_setzero_ps(), a3 = _mm256_setzero_ps();
    for (ptrdiff_t i = 0; i < whole; i += 8) {
      const __m256 x = _mm256_loadu_ps(input + i);
      a0 = _mm256_fmadd_ps(_mm256_loadu_ps(w0 + i), x, a0);
      a1 = _mm256_fmadd_ps(_mm256_loadu_ps(w1 + i), x, a1);
      a2 = _mm256_fmadd_ps(_mm256_loadu_ps(w2 + i), x, a2);
      a3 = _mm256_fmadd_ps(_mm256_loadu_ps(w3 + i), x, a3);
    }
    alignas(16) float tail[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    for (ptrdiff_t i = whole; i < in; ++i) {
      tail[0] = ScalarFma(w0[i], input[i], tail[0]);
      tail[1] = ScalarFma(w1[i], input[i], tail[1]);
      tail[2] = ScalarFma(w2[i], input[i], tail[2]);
      tail[3] = ScalarFma(w3[i], input[i], tail[3]);
    }
    const __m128 sums = _mm_add_ps(HorizontalSums4(a0, a1, a2, a3), _mm_load_ps(tail));
    _mm_storeu_ps(output + o, _mm_add_ps(_mm_loadu_ps(output + o), sums));
  }
  for (; o < i_outFeatures; ++o) output[o] += DotRow(weight + o * in, input, in);
}

void fc_c88_f32_avx_m0(float* input, int i_inFeatures, int i_outFeatures, float* weight, float* bias,
                       float* output) {
  TARN_NATIVE_ASSERT(i_inFeatures % 8 == 0);
  TARN_NATIVE_ASSERT(i_outFeatures % 8 == 0);
  if (i_outFeatures > 0) detail::InitFcOutput(bias, output, static_cast<std::size_t>(i_outFeatures));
  if (i_outFeatures < 8) return;
  const int inBlocks = i_inFeatures / 8;
  for (int ob = 0; ob < i_outFeatures / 8; ++ob) {
    float* out = output + 8 * ob;
    const float* tile = weight + ptrdiff_t(ob) * inBlocks * 64;
    _mm_prefetch(reinterpret_cast<const char*>(out), _MM_HINT_T0);
    __m256 acc = _mm256_loadu_ps(out);
    for (int ib = 0; ib < inBlocks; ++ib, tile += 64) {
      const float* x = input + 8 * ib;
      _mm_prefetch(reinterpret_cast<const char*>(tile + 64), _MM_HINT_T0);
      _mm_prefetch(reinterpret_cast<const char*>(tile + 96), _MM_HINT_T0);
      _mm_prefetch(reinterpret_cast<const char*>(x + 8), _MM_HINT_T0);
      // The eight products of a tile summed pairwise before they reach acc.
      const __m256 p01 = _mm256_fmadd_ps(_mm256_broadcast_ss(x + 1), _mm256_loadu_ps(tile + 8),
                                         _mm256_mul_ps(_mm256_broadcast_ss(x + 0), _mm256_loadu_ps(tile)));
      const __m256 p23 = _mm256_fmadd_ps(_mm256_broadcast_ss(x + 3), _mm256_loadu_ps(tile + 24),
                                         _mm256_mul_ps(_mm256_broadcast_ss(x + 2), _mm256_loadu_ps(tile + 16)));
      const __m256 p45 = _mm256_fmadd_ps(_mm256_broadcast_ss(x + 5), _mm256_loadu_ps(tile + 40),
                                         _mm256_mul_ps(_mm256_broadcast_ss(x + 4), _mm256_loadu_ps(tile + 32)));
      const __m256 p67 = _mm256_fmadd_ps(_mm256_broadcast_ss(x + 7), _mm256_loadu_ps(tile + 56),
                                         _mm256_mul_ps(_mm256_broadcast_ss(x + 6), _mm256_loadu_ps(tile + 48)));
      acc = _mm256_add_ps(acc, _mm256_add_ps(_mm256_add_ps(p01, p23), _mm256_add_ps(p45, p67)));
    }
    _mm256_storeu_ps(out, acc);
  }
}

}  // namespace native

void FullConnection_AVX_C_Float_M2_Full_Connection(float* input, int inFeatures, int outFeatures, float* weight,
                                                   float* bias, float* output) {
  if (outFeatures <= 0) return;
  detail::InitFcOutput(bias, output, static_cast<std::size_t>(outFeatures));
  if (inFeatures <= 0) return;
  const int inBlocks = (inFeatures + 7) / 8, outBlocks = (outFeatures + 7) / 8;
  const int wholeIn = inFeatures / 8;
  for (int ob = 0; ob < outBlocks; ++ob) {
    const float* tile = weight + ptrdiff_t(ob) * inBlocks * 64;
    __m256 a0 = _mm256_setzero_ps(), a1 = _mm256_setzero_ps(), a2 = _mm256_setzero_ps(), a3 = _mm256_setzero_ps();
    for (int ib = 0; ib < wholeIn; ++ib, tile += 64) {
      const float* x = input + 8 * ib;
      a0 = _mm256_fmadd_ps(_mm256_broadcast_ss(x + 0), _mm256_loadu_ps(tile), a0);
      a1 = _mm256_fmadd_ps(_mm256_broadcast_ss(x + 1), _mm256_loadu_ps(tile + 8), a1);
      a2 = _mm256_fmadd_ps(_mm256_broadcast_ss(x + 2), _mm256_loadu_ps(tile + 16), a2);
      a3 = _mm256_fmadd_ps(_mm256_broadcast_ss(x + 3), _mm256_loadu_ps(tile + 24), a3);
      a0 = _mm256_fmadd_ps(_mm256_broadcast_ss(x + 4), _mm256_loadu_ps(tile + 32), a0);
      a1 = _mm256_fmadd_ps(_mm256_broadcast_ss(x + 5), _mm256_loadu_ps(tile + 40), a1);
      a2 = _mm256_fmadd_ps(_mm256_broadcast_ss(x + 6), _mm256_loadu_ps(tile + 48), a2);
      a3 = _mm256_fmadd_ps(_mm256_broadcast_ss(x + 7), _mm256_loadu_ps(tile + 56), a3);
    }
    // The last, partial tile: its rows beyond inFeatures are zero but x ends.
    for (int k = 0; k < inFeatures - 8 * wholeIn; ++k) {
      a0 = _mm256_fmadd_ps(_mm256_broadcast_ss(input + 8 * wholeIn + k), _mm256_loadu_ps(tile + 8 * k), a0);
    }
    const __m256 acc = _mm256_add_ps(_mm256_add_ps(a0, a1), _mm256_add_ps(a2, a3));
    const int valid = outFeatures - 8 * ob < 8 ? outFeatures - 8 * ob : 8;
    AddPartial(output + 8 * ob, acc, valid);
  }
}

void FullConnection_AVX_C_Float_M3_Full_Connection(float* input, int inFeatures, int outFeatures, float* weight,
                                                   float* bias, float* output) {
  if (outFeatures <= 0) return;
  detail::InitFcOutput(bias, output, static_cast<std::size_t>(outFeatures));
  const ptrdiff_t in = inFeatures < 0 ? 0 : inFeatures;
  const ptrdiff_t whole = in / 8 * 8;
  int o = 0;
  for (; o + 8 <= outFeatures; o += 8) {
    const float* w = weight + o * in;
    __m256 a[8];
    for (int r = 0; r < 8; ++r) a[r] = _mm256_setzero_ps();
    for (ptrdiff_t i = 0; i < whole; i += 8) {
      const __m256 x = _mm256_loadu_ps(input + i);
      for (int r = 0; r < 8; ++r) a[r] = _mm256_fmadd_ps(_mm256_loadu_ps(w + r * in + i), x, a[r]);
    }
    alignas(32) float tail[8] = {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
    for (ptrdiff_t i = whole; i < in; ++i) {
      for (int r = 0; r < 8; ++r) tail[r] = ScalarFma(w[r * in + i], input[i], tail[r]);
    }
    const __m256 sums = _mm256_add_ps(HorizontalSums8(a), _mm256_load_ps(tail));
    _mm256_storeu_ps(output + o, _mm256_add_ps(_mm256_loadu_ps(output + o), sums));
  }
  for (; o < outFeatures; ++o) output[o] += DotRow(weight + o * in, input, in);
}

void FullConnection_AVX_C8HW8_Float_M1_Full_Connection(const float* input, int channels, int height, int width,
                                                       int outFeatures, const float* weight, float* output) {
  if (outFeatures <= 0 || channels <= 0) return;
  const ptrdiff_t plane = ptrdiff_t(height) * width;
  const ptrdiff_t inTiles = (plane * channels + 7) / 8;
  const int blocks = (channels + 7) / 8;
  const ptrdiff_t step = 8 * plane;
  for (int ob = 0; ob < (outFeatures + 7) / 8; ++ob) {
    const float* tiles = weight + ob * inTiles * 64;
    __m256 a0 = _mm256_setzero_ps(), a1 = _mm256_setzero_ps(), a2 = _mm256_setzero_ps(), a3 = _mm256_setzero_ps();
    for (int cb = 0; cb < blocks; ++cb) {
      const int lanes = channels - 8 * cb < 8 ? channels - 8 * cb : 8;
      const float* s = input + cb * plane * 8;
      for (ptrdiff_t p = 0; p < plane; ++p, s += 8) {
        // Input (c, p) is element i = c * plane + p of the CHW-flattened
        // vector; its eight weights, row i % 8 of tile i / 8, start at 8 i.
        const float* row = tiles + 8 * (8 * cb * plane + p);
        int k = 0;
        for (; k + 4 <= lanes; k += 4, row += 4 * step) {
          a0 = _mm256_fmadd_ps(_mm256_broadcast_ss(s + k), _mm256_loadu_ps(row), a0);
          a1 = _mm256_fmadd_ps(_mm256_broadcast_ss(s + k + 1), _mm256_loadu_ps(row + step), a1);
          a2 = _mm256_fmadd_ps(_mm256_broadcast_ss(s + k + 2), _mm256_loadu_ps(row + 2 * step), a2);
          a3 = _mm256_fmadd_ps(_mm256_broadcast_ss(s + k + 3), _mm256_loadu_ps(row + 3 * step), a3);
        }
        for (; k < lanes; ++k, row += step) a0 = _mm256_fmadd_ps(_mm256_broadcast_ss(s + k), _mm256_loadu_ps(row), a0);
      }
    }
    float* out = output + 8 * ob;
    const __m256 sum = _mm256_add_ps(_mm256_add_ps(a0, a1), _mm256_add_ps(a2, a3));
    _mm256_storeu_ps(out, _mm256_add_ps(_mm256_loadu_ps(out), sum));
  }
}

}  // namespace kernel
}  // namespace tarn
