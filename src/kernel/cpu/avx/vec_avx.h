// The 8-float register of the AVX family (AVX2) in the form the step
// templates of the normalisation, softmax, clip and upsampling kernels read.
// Internal linkage: only the family's own files include it.
#pragma once

#include <immintrin.h>

#include <cstdint>

#include "kernel/cpu/fallback/resampling_common/scalar_lane.h"

namespace tarn {
namespace kernel {
namespace functional {
namespace {

struct Avx {
  using Reg = __m256;
  static constexpr std::uint32_t kLanes = 8;
  static Reg Load(const float* p) { return _mm256_loadu_ps(p); }
  static void Store(float* p, Reg v) { _mm256_storeu_ps(p, v); }
  static Reg Set1(float f) { return _mm256_set1_ps(f); }
  static Reg Zero() { return _mm256_setzero_ps(); }
  static Reg Add(Reg a, Reg b) { return _mm256_add_ps(a, b); }
  static Reg Sub(Reg a, Reg b) { return _mm256_sub_ps(a, b); }
  static Reg Mul(Reg a, Reg b) { return _mm256_mul_ps(a, b); }
  static Reg Div(Reg a, Reg b) { return _mm256_div_ps(a, b); }
  static Reg Fma(Reg a, Reg b, Reg c) { return _mm256_fmadd_ps(a, b, c); }
  static Reg Min(Reg a, Reg b) { return _mm256_min_ps(a, b); }
  static Reg Max(Reg a, Reg b) { return _mm256_max_ps(a, b); }
  static Reg Floor(Reg a) { return _mm256_floor_ps(a); }
  static Reg Pow2(Reg n) {
    const __m256i i = _mm256_add_epi32(_mm256_cvttps_epi32(n), _mm256_set1_epi32(127));
    return _mm256_castsi256_ps(_mm256_slli_epi32(i, 23));
  }
  static float ReduceMax(Reg a) {
    __m128 h = _mm_max_ps(_mm256_castps256_ps128(a), _mm256_extractf128_ps(a, 1));
    h = _mm_max_ps(h, _mm_movehl_ps(h, h));
    h = _mm_max_ss(h, _mm_shuffle_ps(h, h, 1));
    return _mm_cvtss_f32(h);
  }
  static float ReduceAdd(Reg a) {
    __m128 h = _mm_add_ps(_mm256_castps256_ps128(a), _mm256_extractf128_ps(a, 1));
    h = _mm_add_ps(h, _mm_movehl_ps(h, h));
    h = _mm_add_ss(h, _mm_shuffle_ps(h, h, 1));
    return _mm_cvtss_f32(h);
  }
  static Reg Gather(const float* base, const std::int32_t* idx) {
    return _mm256_i32gather_ps(base, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(idx)), 4);
  }
  // Alternating floats of a and b: a0 b0 .. a3 b3 in lo, a4 b4 .. a7 b7 in hi.
  static void Interleave(Reg a, Reg b, Reg* lo, Reg* hi) {
    const __m256 l = _mm256_unpacklo_ps(a, b), h = _mm256_unpackhi_ps(a, b);
    *lo = _mm256_permute2f128_ps(l, h, 0x20);
    *hi = _mm256_permute2f128_ps(l, h, 0x31);
  }
  struct DAcc {
    __m256d lo, hi;
  };
  static DAcc DZero() { return {_mm256_setzero_pd(), _mm256_setzero_pd()}; }
  static DAcc DAdd(DAcc acc, Reg v) {
    return {_mm256_add_pd(acc.lo, _mm256_cvtps_pd(_mm256_castps256_ps128(v))),
            _mm256_add_pd(acc.hi, _mm256_cvtps_pd(_mm256_extractf128_ps(v, 1)))};
  }
  static double DSum(DAcc acc) {
    const __m256d s = _mm256_add_pd(acc.lo, acc.hi);
    __m128d h = _mm_add_pd(_mm256_castpd256_pd128(s), _mm256_extractf128_pd(s, 1));
    return _mm_cvtsd_f64(_mm_add_sd(h, _mm_unpackhi_pd(h, h)));
  }
};

}  // namespace
}  // namespace functional
}  // namespace kernel
}  // namespace tarn
