// SSE routines of the fully connected kernels.
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

// Lane sums of four vectors: result lane r = sum of the lanes of v[r].
inline __m128 HorizontalSums4(__m128 a, __m128 b, __m128 c, __m128 d) {
  return _mm_hadd_ps(_mm_hadd_ps(a, b), _mm_hadd_ps(c, d));
}

inline float HorizontalSum(__m128 v) {
  const __m128 h = _mm_hadd_ps(v, v);
  return _mm_cvtss_f32(_mm_hadd_ps(h, h));
}

// One row dotted with x: two accumulators over whole vectors, scalar tail.
float Dot(const float* w, const float* x, ptrdiff_t n) {
  __m128 a = _mm_setzero_ps(), b = _mm_setzero_ps();
  ptrdiff_t i = 0;
  for (; i + 8 <= n; i += 8) {
    a = _mm_fmadd_ps(_mm_loadu_ps(w + i), _mm_loadu_ps(x + i), a);
    b = _mm_fmadd_ps(_mm_loadu_ps(w + i + 4), _mm_loadu_ps(x + i + 4), b);
  }
  if (i + 4 <= n) {
    a = _mm_fmadd_ps(_mm_loadu_ps(w + i), _mm_loadu_ps(x + i), a);
    i += 4;
  }
  float tail = 0.0f;
  for (; i < n; ++i) tail = ScalarFma(w[i], x[i], tail);
  return HorizontalSum(_mm_add_ps(a, b)) + tail;
}

// Four rows w[0..4) dotted with x: result lane j is row j's sum.
__m128 Dot4(const float* const* p, const float* x, ptrdiff_t n) {
  __m128 a0 = _mm_setzero_ps(), a1 = _mm_setzero_ps(), a2 = _mm_setzero_ps(), a3 = _mm_setzero_ps();
  ptrdiff_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m128 xv = _mm_loadu_ps(x + i);
    a0 = _mm_fmadd_ps(_mm_loadu_ps(p[0] + i), xv, a0);
    a1 = _mm_fmadd_ps(_mm_loadu_ps(p[1] + i), xv, a1);
    a2 = _mm_fmadd_ps(_mm_loadu_ps(p[2] + i), xv, a2);
    a3 = _mm_fmadd_ps(_mm_loadu_ps(p[3] + i), xv, a3);
  }
  alignas(16) float tail[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  for (; i < n; ++i) {
    for (int j = 0; j < 4; ++j) tail[j] = ScalarFma(p[j][i], x[i], tail[j]);
  }
  return _mm_add_ps(HorizontalSums4(a0, a1, a2, a3), _mm_load_ps(tail));
}

// One weight row against four batch rows: each weight load serves all four.
__m128 DotRowBy4(const float* w, const float* const* x, ptrdiff_t n) {
  __m128 a0 = _mm_setzero_ps(), a1 = _mm_setzero_ps(), a2 = _mm_setzero_ps(), a3 = _mm_setzero_ps();
  ptrdiff_t i = 0;
  for (; i + 4 <= n; i += 4) {
    const __m128 wv = _mm_loadu_ps(w + i);
    a0 = _mm_fmadd_ps(wv, _mm_loadu_ps(x[0] + i), a0);
    a1 = _mm_fmadd_ps(wv, _mm_loadu_ps(x[1] + i), a1);
    a2 = _mm_fmadd_ps(wv, _mm_loadu_ps(x[2] + i), a2);
    a3 = _mm_fmadd_ps(wv, _mm_loadu_ps(x[3] + i), a3);
  }
  alignas(16) float tail[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  for (; i < n; ++i) {
    for (int j = 0; j < 4; ++j) tail[j] = ScalarFma(w[i], x[j][i], tail[j]);
  }
  return _mm_add_ps(HorizontalSums4(a0, a1, a2, a3), _mm_load_ps(tail));
}

// R outputs (rows w[0..R)) of the C4HW4 product, added to out[0..R).
template <int R>
void C4HW4Rows(const float* input, int channels, ptrdiff_t plane, const float* const* w, float* out) {
  __m128 acc[R];
  float tail[R];
  for (int j = 0; j < R; ++j) {
    acc[j] = _mm_setzero_ps();
    tail[j] = 0.0f;
  }
  const int blocks = (channels + 3) / 4;
  for (int cb = 0; cb < blocks; ++cb) {
    const int lanes = channels - 4 * cb < 4 ? channels - 4 * cb : 4;
    const float* s = input + cb * plane * 4;
    ptrdiff_t p = 0;
    for (; p + 4 <= plane; p += 4) {
      // Four pixel vectors become four channel vectors over pixels p..p+3,
      // matching the CHW order of the weight rows.
      __m128 v[4] = {_mm_loadu_ps(s + 4 * p), _mm_loadu_ps(s + 4 * p + 4), _mm_loadu_ps(s + 4 * p + 8),
                     _mm_loadu_ps(s + 4 * p + 12)};
      _MM_TRANSPOSE4_PS(v[0], v[1], v[2], v[3]);
      for (int k = 0; k < lanes; ++k) {
        const ptrdiff_t at = (4 * cb + k) * plane + p;
        for (int j = 0; j < R; ++j) acc[j] = _mm_fmadd_ps(_mm_loadu_ps(w[j] + at), v[k], acc[j]);
      }
    }
    for (; p < plane; ++p) {
      for (int k = 0; k < lanes; ++k) {
        const ptrdiff_t at = (4 * cb + k) * plane + p;
        for (int j = 0; j < R; ++j) tail[j] = ScalarFma(w[j][at], s[4 * p + k], tail[j]);
      }
    }
  }
  for (int j = 0; j < R; ++j) out[j] += HorizontalSum(acc[j]) + tail[j];
}

}  // namespace

namespace functional {

void fullconnection_sse_c_f32_m1(const float* input, const std::uint32_t& inFeatures,
                                 const std::uint32_t& outFeatures, const float* weight, const float* bias,
                                 float* output) {
  detail::InitFcOutput(bias, output, outFeatures);
  const std::size_t whole = inFeatures / 4 * 4;
  alignas(16) float lanes[4];
  for (std::size_t o = 0; o < outFeatures; ++o) {
    const float* w = weight + o * inFeatures;
    __m128 acc = _mm_setzero_ps();
    for (std::size_t i = 0; i < whole; i += 4) acc = _mm_fmadd_ps(_mm_loadu_ps(w + i), _mm_loadu_ps(input + i), acc);
    _mm_store_ps(lanes, acc);
    const float vector_sum = ((lanes[0] + lanes[1]) + lanes[2]) + lanes[3];
    float tail = 0.0f;
    for (std::size_t i = whole; i < inFeatures; ++i) tail = ScalarFma(w[i], input[i], tail);
    output[o] += vector_sum + tail;
  }
}

void fullconnection_sse_c_f32_m2(const float* input, const std::uint32_t& inFeatures,
                                 const std::uint32_t& outFeatures, const float* weight, const float* bias,
                                 float* output) {
  detail::InitFcOutput(bias, output, outFeatures);
  const ptrdiff_t in = inFeatures;
  std::size_t o = 0;
  for (; o + 4 <= outFeatures; o += 4) {
    const float* rows[4] = {weight + o * in, weight + (o + 1) * in, weight + (o + 2) * in, weight + (o + 3) * in};
    _mm_storeu_ps(output + o, _mm_add_ps(_mm_loadu_ps(output + o), Dot4(rows, input, in)));
  }
  for (; o < outFeatures; ++o) output[o] += Dot(weight + o * in, input, in);
}

}  // namespace functional

namespace native {

void fullconnection_sse_c44_f32_m1(float* input, int i_inFeatures, int i_outFeatures, float* weight, float* bias,
                                   float* output) {
  TARN_NATIVE_ASSERT(i_inFeatures % 4 == 0);
  TARN_NATIVE_ASSERT(i_outFeatures % 4 == 0);
  if (i_outFeatures <= 0) return;
  detail::InitFcOutput(bias, output, static_cast<std::size_t>(i_outFeatures));
  const int inBlocks = i_inFeatures / 4;
  for (int ob = 0; ob < i_outFeatures / 4; ++ob) {
    const float* tile = weight + ptrdiff_t(ob) * inBlocks * 16;
    // One accumulator per tile row keeps four independent chains.
    __m128 a0 = _mm_loadu_ps(output + 4 * ob), a1 = _mm_setzero_ps(), a2 = _mm_setzero_ps(), a3 = _mm_setzero_ps();
    for (int ib = 0; ib < inBlocks; ++ib, tile += 16) {
      const float* x = input + 4 * ib;
      a0 = _mm_fmadd_ps(_mm_loadu_ps(tile), _mm_set1_ps(x[0]), a0);
      a1 = _mm_fmadd_ps(_mm_loadu_ps(tile + 4), _mm_set1_ps(x[1]), a1);
      a2 = _mm_fmadd_ps(_mm_loadu_ps(tile + 8), _mm_set1_ps(x[2]), a2);
      a3 = _mm_fmadd_ps(_mm_loadu_ps(tile + 12), _mm_set1_ps(x[3]), a3);
    }
    _mm_storeu_ps(output + 4 * ob, _mm_add_ps(_mm_add_ps(a0, a1), _mm_add_ps(a2, a3)));
  }
}

}  // namespace native

void FullConnection_SSE_BC_Float_M1_Full_Connection(const float* input, int batch, int inFeatures, int outFeatures,
                                                    const float* weight, const float* bias, float* output) {
  if (batch <= 0 || outFeatures <= 0) return;
  const ptrdiff_t in = inFeatures, out = outFeatures;
  for (int b = 0; b < batch; ++b) detail::InitFcOutput(bias, output + b * out, static_cast<std::size_t>(out));
  int b = 0;
  for (; b + 4 <= batch; b += 4) {
    const float* x[4] = {input + b * in, input + (b + 1) * in, input + (b + 2) * in, input + (b + 3) * in};
    for (ptrdiff_t o = 0; o < out; ++o) {
      alignas(16) float sums[4];
      _mm_store_ps(sums, DotRowBy4(weight + o * in, x, in));
      for (int r = 0; r < 4; ++r) output[(b + r) * out + o] += sums[r];
    }
  }
  for (; b < batch; ++b) {
    for (ptrdiff_t o = 0; o < out; ++o) output[b * out + o] += Dot(weight + o * in, input + b * in, in);
  }
}

void FullConnection_SSE_C4HW4_Float_M1_Full_Connection(const float* input, int channels, int height, int width,
                                                       int outFeatures, const float* weight, float* output) {
  if (outFeatures <= 0 || channels <= 0) return;
  const ptrdiff_t plane = ptrdiff_t(height) * width;
  const ptrdiff_t in = plane * channels;
  if (plane == 1) {
    // A 1x1 map: the blocks, read in order, are the channel vector itself.
    for (ptrdiff_t o = 0; o < outFeatures; ++o) output[o] += Dot(weight + o * in, input, channels);
    return;
  }
  int o = 0;
  for (; o + 4 <= outFeatures; o += 4) {
    const float* w[4] = {weight + o * in, weight + (o + 1) * in, weight + (o + 2) * in, weight + (o + 3) * in};
    C4HW4Rows<4>(input, channels, plane, w, output + o);
  }
  for (; o < outFeatures; ++o) {
    const float* w[1] = {weight + o * in};
    C4HW4Rows<1>(input, channels, plane, w, output + o);
  }
}

}  // namespace kernel
}  // namespace tarn
