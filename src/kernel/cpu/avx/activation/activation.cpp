// AVX activations: 64 elements per step, then up to three 16-element steps,
// up to three 4-element steps and a scalar tail of count & 3.
#include <immintrin.h>

#include <cmath>

#include "kernel/cpu/fallback/activation/activation_rules.h"
#include "tarn/kernel/activation.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

// op8 works on 8 floats, op4 on 4, scalar on one.
template <typename Op8, typename Op4, typename Scalar>
inline void Map64(const float* src, std::uint32_t count, float* dst, Op8 op8, Op4 op4, Scalar scalar) {
  for (std::uint32_t s = count >> 6; s > 0; --s, src += 64, dst += 64) {
    __m256 v[8];
    for (int k = 0; k < 8; ++k) v[k] = _mm256_loadu_ps(src + 8 * k);
    for (int k = 0; k < 8; ++k) _mm256_storeu_ps(dst + 8 * k, op8(v[k]));
  }
  for (std::uint32_t s = (count >> 4) & 3; s > 0; --s, src += 16, dst += 16) {
    const __m256 a = _mm256_loadu_ps(src), b = _mm256_loadu_ps(src + 8);
    _mm256_storeu_ps(dst, op8(a));
    _mm256_storeu_ps(dst + 8, op8(b));
  }
  for (std::uint32_t s = (count >> 2) & 3; s > 0; --s, src += 4, dst += 4) {
    _mm_storeu_ps(dst, op4(_mm_loadu_ps(src)));
  }
  for (std::uint32_t i = 0; i < (count & 3); ++i) dst[i] = scalar(src[i]);
}

inline __m256 Relu8(__m256 x) { return _mm256_andnot_ps(_mm256_cmp_ps(x, _mm256_setzero_ps(), _CMP_LE_OQ), x); }
inline __m128 Relu4(__m128 x) { return _mm_andnot_ps(_mm_cmple_ps(x, _mm_setzero_ps()), x); }

inline __m256 Relu6_8(__m256 x) { return _mm256_min_ps(_mm256_set1_ps(6.0f), _mm256_max_ps(_mm256_setzero_ps(), x)); }
inline __m128 Relu6_4(__m128 x) { return _mm_min_ps(_mm_set1_ps(6.0f), _mm_max_ps(_mm_setzero_ps(), x)); }

// x * (min(max(x + 3, 0), 6) * 0.16666667): the factor first, so that
// x >= 3 returns x exactly, as the scalar form does.
inline __m256 HSwish8(__m256 x) {
  const __m256 t = _mm256_add_ps(x, _mm256_set1_ps(3.0f));
  const __m256 h = _mm256_mul_ps(_mm256_min_ps(_mm256_max_ps(t, _mm256_setzero_ps()), _mm256_set1_ps(6.0f)),
                                 _mm256_set1_ps(0.16666667f));
  return _mm256_mul_ps(x, h);
}
inline __m128 HSwish4(__m128 x) {
  const __m128 t = _mm_add_ps(x, _mm_set1_ps(3.0f));
  const __m128 h = _mm_mul_ps(_mm_min_ps(_mm_max_ps(t, _mm_setzero_ps()), _mm_set1_ps(6.0f)), _mm_set1_ps(0.16666667f));
  return _mm_mul_ps(x, h);
}

// 1 / (1 + e^-x). The exponential clamps its argument to +-88.37626, splits
// it into fx * ln2 + r (ln2 in two parts for precision), evaluates e^r with a
// degree-5 polynomial and scales by 2^fx through the exponent field. Every
// multiply-add is written as one fused operation, so the result does not
// depend on whether the compiler would have contracted them.
inline __m256 SigmoidPolynomial8(__m256 x) {
  const __m256 one = _mm256_set1_ps(1.0f);
  __m256 z = _mm256_sub_ps(_mm256_setzero_ps(), x);
  z = _mm256_min_ps(z, _mm256_set1_ps(88.37626f));
  z = _mm256_max_ps(z, _mm256_set1_ps(-88.37626f));
  __m256 fx = _mm256_fmadd_ps(z, _mm256_set1_ps(1.442695f), _mm256_set1_ps(0.5f));
  const __m256 fl = _mm256_floor_ps(fx);
  fx = _mm256_sub_ps(fl, _mm256_and_ps(_mm256_cmp_ps(fl, fx, _CMP_GT_OQ), one));
  __m256 r = _mm256_fnmadd_ps(fx, _mm256_set1_ps(0.693359375f), z);
  r = _mm256_fnmadd_ps(fx, _mm256_set1_ps(-0.00021219444f), r);
  __m256 p = _mm256_set1_ps(0.00019875691f);
  p = _mm256_fmadd_ps(p, r, _mm256_set1_ps(0.0013981999f));
  p = _mm256_fmadd_ps(p, r, _mm256_set1_ps(0.0083334520f));
  p = _mm256_fmadd_ps(p, r, _mm256_set1_ps(0.041665796f));
  p = _mm256_fmadd_ps(p, r, _mm256_set1_ps(0.16666666f));
  p = _mm256_fmadd_ps(p, r, _mm256_set1_ps(0.5f));
  __m256 y = _mm256_fmadd_ps(_mm256_mul_ps(r, r), p, r);
  y = _mm256_add_ps(y, one);
  const __m256i e = _mm256_slli_epi32(_mm256_add_epi32(_mm256_cvttps_epi32(fx), _mm256_set1_epi32(127)), 23);
  return _mm256_div_ps(one, _mm256_fmadd_ps(_mm256_castsi256_ps(e), y, one));
}

}  // namespace

void relu_avx_f32_m1(const float* src, const std::uint32_t& count, float* dst) {
  Map64(src, count, dst, Relu8, Relu4, rules::Relu);
}

void relu6_avx_f32_m1(const float* src, const std::uint32_t& count, float* dst) {
  Map64(src, count, dst, Relu6_8, Relu6_4, rules::Relu6);
}

void hswish_avx_f32_m1(const float* src, const std::uint32_t& count, float* dst) {
  Map64(src, count, dst, HSwish8, HSwish4, rules::HSwish);
}

void leaky_avx_f32_m1(const float* src, const std::uint32_t& count, const float& alpha, float* dst) {
  const float a = alpha;
  const __m256 va8 = _mm256_set1_ps(a);
  const __m128 va4 = _mm_set1_ps(a);
  Map64(
      src, count, dst,
      [va8](__m256 x) {
        const __m256 zero = _mm256_setzero_ps();
        return _mm256_fmadd_ps(_mm256_min_ps(zero, x), va8, _mm256_max_ps(zero, x));
      },
      [va4](__m128 x) {
        const __m128 zero = _mm_setzero_ps();
        return _mm_fmadd_ps(_mm_min_ps(zero, x), va4, _mm_max_ps(zero, x));
      },
      [a](float x) { return rules::Leaky(x, a); });
}

void prelu_avx_f32_m1(float* data, const std::uint32_t& count, const float& slope) {
  const float s = slope;
  const __m256 vs8 = _mm256_set1_ps(s);
  const __m128 vs4 = _mm_set1_ps(s);
  Map64(
      data, count, data,
      [vs8](__m256 x) {
        return _mm256_blendv_ps(x, _mm256_mul_ps(x, vs8), _mm256_cmp_ps(x, _mm256_setzero_ps(), _CMP_LT_OQ));
      },
      [vs4](__m128 x) { return _mm_blendv_ps(x, _mm_mul_ps(x, vs4), _mm_cmplt_ps(x, _mm_setzero_ps())); },
      [s](float x) { return rules::Leaky(x, s); });
}

void sigmoid_avx_f32_m1(const float* src, const std::uint32_t& count, float* dst) {
  const std::uint32_t steps = count >> 3;
  for (std::uint32_t s = 0; s < steps; ++s, src += 8, dst += 8) {
    _mm256_storeu_ps(dst, SigmoidPolynomial8(_mm256_loadu_ps(src)));
  }
  for (std::uint32_t i = 0; i < (count & 7); ++i) dst[i] = 1.0f / (std::exp(-src[i]) + 1.0f);
}

void PReLU_AVX_F32_M1(const std::shared_ptr<runtime::Tensor>& tensor, float slope) {
  const std::uint32_t n = ActivationElementCount(tensor->shape);
  if (n < 1) return;
  prelu_avx_f32_m1(static_cast<float*>(tensor->Data()), n, slope);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
