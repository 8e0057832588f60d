// SSE activations: 16 elements per step (four 4-float vectors), unaligned
// loads and stores, a scalar tail.
#include <immintrin.h>

#include <cmath>

#include "kernel/cpu/fallback/activation/activation_rules.h"
#include "tarn/kernel/activation.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

// Applies vec to 16 elements per step and scalar to the count & 15 rest.
template <typename Vec, typename Scalar>
inline void Map16(const float* src, std::uint32_t count, float* dst, Vec vec, Scalar scalar) {
  const std::uint32_t steps = count >> 4;
  for (std::uint32_t s = 0; s < steps; ++s, src += 16, dst += 16) {
    const __m128 a = _mm_loadu_ps(src), b = _mm_loadu_ps(src + 4);
    const __m128 c = _mm_loadu_ps(src + 8), d = _mm_loadu_ps(src + 12);
    _mm_storeu_ps(dst, vec(a));
    _mm_storeu_ps(dst + 4, vec(b));
    _mm_storeu_ps(dst + 8, vec(c));
    _mm_storeu_ps(dst + 12, vec(d));
  }
  for (std::uint32_t i = 0; i < (count & 15); ++i) dst[i] = scalar(src[i]);
}

// 4 elements per step, count & 3 rest.
template <typename Vec, typename Scalar>
inline void Map4(const float* src, std::uint32_t count, float* dst, Vec vec, Scalar scalar) {
  const std::uint32_t steps = count >> 2;
  for (std::uint32_t s = 0; s < steps; ++s, src += 4, dst += 4) _mm_storeu_ps(dst, vec(_mm_loadu_ps(src)));
  for (std::uint32_t i = 0; i < (count & 3); ++i) dst[i] = scalar(src[i]);
}

inline float TanhExact(float x) { return std::tanh(x); }

// e^z by rounding u = z * log2(e) to n + f, |f| <= 0.5, and a quadratic for
// 2^f whose exponent field is then raised by n. No range check: the exponent
// wraps outside |z| < 87.
inline __m128 ExpRoundingTrick(__m128 z) {
  const __m128 u = _mm_mul_ps(z, _mm_set1_ps(1.442695f));
  const __m128i n = _mm_cvtps_epi32(u);
  const __m128 magic = _mm_set1_ps(12582912.0f);  // 1.5 * 2^23 rounds to an integer
  const __m128 f = _mm_sub_ps(u, _mm_sub_ps(_mm_add_ps(u, magic), magic));
  const __m128 p =
      _mm_fmadd_ps(f, _mm_fmadd_ps(f, _mm_set1_ps(0.23842894f), _mm_set1_ps(0.703448f)), _mm_set1_ps(1.0004431f));
  return _mm_castsi128_ps(_mm_add_epi32(_mm_slli_epi32(n, 23), _mm_castps_si128(p)));
}

// e^z by writing a*z + b straight into the high word of a double: the integer
// part lands in the exponent, the fraction linearly in the mantissa (a few
// percent error). Valid while the int32 does not overflow, |z| < 709.
inline __m128 ExpBitPattern(__m128 z) {
  // 1072632450 is not a float; its float is 1072632448.
  const __m128i i = _mm_cvtps_epi32(_mm_fmadd_ps(z, _mm_set1_ps(1512775.0f), _mm_set1_ps(1072632448.0f)));
  const __m128i zero = _mm_setzero_si128();
  const __m128 lo = _mm_cvtpd_ps(_mm_castsi128_pd(_mm_unpacklo_epi32(zero, i)));
  const __m128 hi = _mm_cvtpd_ps(_mm_castsi128_pd(_mm_unpackhi_epi32(zero, i)));
  return _mm_movelh_ps(lo, hi);
}

// 1 / (e^-x + 1) and (e^x - e^-x) / (e^-x + e^x) over a fast exponential.
template <__m128 (*Exp)(__m128)>
inline __m128 Sigmoid(__m128 x) {
  return _mm_div_ps(_mm_set1_ps(1.0f), _mm_add_ps(Exp(_mm_sub_ps(_mm_setzero_ps(), x)), _mm_set1_ps(1.0f)));
}

template <__m128 (*Exp)(__m128)>
inline __m128 Tanh(__m128 x) {
  const __m128 e = Exp(x);
  const __m128 r = _mm_div_ps(_mm_set1_ps(1.0f), e);
  return _mm_div_ps(_mm_sub_ps(e, r), _mm_add_ps(r, e));
}

// 1 / (1 + e^-x) with the clamped polynomial exponential, four lanes wide;
// the same fused operations as the AVX form, so both give the same bits.
inline __m128 SigmoidPolynomial(__m128 x) {
  const __m128 one = _mm_set1_ps(1.0f);
  __m128 z = _mm_sub_ps(_mm_setzero_ps(), x);
  z = _mm_min_ps(z, _mm_set1_ps(88.37626f));
  z = _mm_max_ps(z, _mm_set1_ps(-88.37626f));
  __m128 fx = _mm_fmadd_ps(z, _mm_set1_ps(1.442695f), _mm_set1_ps(0.5f));
  const __m128 fl = _mm_floor_ps(fx);
  fx = _mm_sub_ps(fl, _mm_and_ps(_mm_cmpgt_ps(fl, fx), one));
  __m128 r = _mm_fnmadd_ps(fx, _mm_set1_ps(0.693359375f), z);
  r = _mm_fnmadd_ps(fx, _mm_set1_ps(-0.00021219444f), r);
  __m128 p = _mm_set1_ps(0.00019875691f);
  p = _mm_fmadd_ps(p, r, _mm_set1_ps(0.0013981999f));
  p = _mm_fmadd_ps(p, r, _mm_set1_ps(0.0083334520f));
  p = _mm_fmadd_ps(p, r, _mm_set1_ps(0.041665796f));
  p = _mm_fmadd_ps(p, r, _mm_set1_ps(0.16666666f));
  p = _mm_fmadd_ps(p, r, _mm_set1_ps(0.5f));
  __m128 y = _mm_fmadd_ps(_mm_mul_ps(r, r), p, r);
  y = _mm_add_ps(y, one);
  const __m128i e = _mm_slli_epi32(_mm_add_epi32(_mm_cvttps_epi32(fx), _mm_set1_epi32(127)), 23);
  return _mm_div_ps(one, _mm_fmadd_ps(_mm_castsi128_ps(e), y, one));
}

inline __m128 Relu4(__m128 x) {
  // Clearing the lanes that are <= 0 keeps NaN and turns -0.0 into +0.0.
  return _mm_andnot_ps(_mm_cmple_ps(x, _mm_setzero_ps()), x);
}

inline __m128 HSigmoid4(__m128 x) {
  // max(t, 0) with t first: a NaN t yields 0 like the scalar form.
  const __m128 t = _mm_add_ps(x, _mm_set1_ps(3.0f));
  return _mm_mul_ps(_mm_min_ps(_mm_max_ps(t, _mm_setzero_ps()), _mm_set1_ps(6.0f)), _mm_set1_ps(0.16666667f));
}

}  // namespace

void relu_sse_f32_m1(const float* src, const std::uint32_t& count, float* dst) {
  Map16(src, count, dst, Relu4, rules::Relu);
}

void relu6_sse_f32_m1(const float* src, const std::uint32_t& count, float* dst) {
  Map16(
      src, count, dst, [](__m128 x) { return _mm_min_ps(_mm_set1_ps(6.0f), _mm_max_ps(_mm_setzero_ps(), x)); },
      rules::Relu6);
}

void hsigmoid_sse_f32_m1(const float* src, const std::uint32_t& count, float* dst) {
  Map16(src, count, dst, HSigmoid4, rules::HSigmoid);
}

void hswish_sse_f32_m1(const float* src, const std::uint32_t& count, float* dst) {
  Map16(src, count, dst, [](__m128 x) { return _mm_mul_ps(x, HSigmoid4(x)); }, rules::HSwish);
}

void leaky_sse_f32_m1(const float* src, const std::uint32_t& count, const float& alpha, float* dst) {
  const float a = alpha;
  const __m128 va = _mm_set1_ps(a);
  Map16(
      src, count, dst,
      [va](__m128 x) {
        const __m128 zero = _mm_setzero_ps();
        return _mm_fmadd_ps(_mm_min_ps(zero, x), va, _mm_max_ps(zero, x));
      },
      [a](float x) { return rules::Leaky(x, a); });
}

void sigmoid_sse_f32_m1(const float* src, const std::uint32_t& count, float* dst) {
  Map16(src, count, dst, Sigmoid<ExpRoundingTrick>, rules::Sigmoid);
}

void sigmoid_sse_f32_m2(const float* src, const std::uint32_t& count, float* dst) {
  Map16(src, count, dst, Sigmoid<ExpBitPattern>, rules::Sigmoid);
}

void sigmoid_sse_f32_m3(const float* src, const std::uint32_t& count, float* dst) {
  Map4(src, count, dst, SigmoidPolynomial, rules::Sigmoid);
}

void tanh_sse_f32_m1(const float* src, const std::uint32_t& count, float* dst) {
  Map4(src, count, dst, Tanh<ExpRoundingTrick>, TanhExact);
}

void tanh_sse_f32_m2(const float* src, const std::uint32_t& count, float* dst) {
  Map4(src, count, dst, Tanh<ExpBitPattern>, TanhExact);
}

void prelu_sse_f32_m1(float* data, const std::uint32_t& count, const float& slope) {
  const float s = slope;
  const __m128 vs = _mm_set1_ps(s);
  Map16(
      data, count, data,
      [vs](__m128 x) { return _mm_blendv_ps(x, _mm_mul_ps(x, vs), _mm_cmplt_ps(x, _mm_setzero_ps())); },
      [s](float x) { return rules::Leaky(x, s); });
}

void Sigmoid_SSE_F32_M3(const std::shared_ptr<runtime::Tensor>& tensor) {
  const std::uint32_t n = ActivationElementCount(tensor->shape);
  if (n < 1) return;
  float* p = static_cast<float*>(tensor->Data());
  sigmoid_sse_f32_m3(p, n, p);
}

void PReLU_SSE_Float_M1(const std::shared_ptr<runtime::Tensor>& tensor, float slope) {
  const std::uint32_t n = ActivationElementCount(tensor->shape);
  if (n < 1) return;
  prelu_sse_f32_m1(static_cast<float*>(tensor->Data()), n, slope);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
