// The 4-float register of the SSE family (SSE4.1) in the form the step
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

struct Sse {
  using Reg = __m128;
  static constexpr std::uint32_t kLanes = 4;
  static Reg Load(const float* p) { return _mm_loadu_ps(p); }
  static void Store(float* p, Reg v) { _mm_storeu_ps(p, v); }
  static Reg Set1(float f) { return _mm_set1_ps(f); }
  static Reg Zero() { return _mm_setzero_ps(); }
  static Reg Add(Reg a, Reg b) { return _mm_add_ps(a, b); }
  static Reg Sub(Reg a, Reg b) { return _mm_sub_ps(a, b); }
  static Reg Mul(Reg a, Reg b) { return _mm_mul_ps(a, b); }
  static Reg Div(Reg a, Reg b) { return _mm_div_ps(a, b); }
  static Reg Fma(Reg a, Reg b, Reg c) { return _mm_fmadd_ps(a, b, c); }
  static Reg Min(Reg a, Reg b) { return _mm_min_ps(a, b); }
  static Reg Max(Reg a, Reg b) { return _mm_max_ps(a, b); }
  static Reg Floor(Reg a) { return _mm_floor_ps(a); }
  static Reg Pow2(Reg n) {
    const __m128i i = _mm_add_epi32(_mm_cvttps_epi32(n), _mm_set1_epi32(127));
    return _mm_castsi128_ps(_mm_slli_epi32(i, 23));
  }
  static float ReduceMax(Reg a) {
    a = _mm_max_ps(a, _mm_movehl_ps(a, a));
    a = _mm_max_ss(a, _mm_shuffle_ps(a, a, 1));
    return _mm_cvtss_f32(a);
  }
  static float ReduceAdd(Reg a) {
    a = _mm_add_ps(a, _mm_movehl_ps(a, a));
    a = _mm_add_ss(a, _mm_shuffle_ps(a, a, 1));
    return _mm_cvtss_f32(a);
  }
  static Reg Gather(const float* base, const std::int32_t* idx) {
    return _mm_setr_ps(base[idx[0]], base[idx[1]], base[idx[2]], base[idx[3]]);
  }
  // Alternating floats of a and b: a0 b0 a1 b1 in lo, a2 b2 a3 b3 in hi.
  static void Interleave(Reg a, Reg b, Reg* lo, Reg* hi) {
    *lo = _mm_unpacklo_ps(a, b);
    *hi = _mm_unpackhi_ps(a, b);
  }
  struct DAcc {
    __m128d lo, hi;
  };
  static DAcc DZero() { return {_mm_setzero_pd(), _mm_setzero_pd()}; }
  static DAcc DAdd(DAcc acc, Reg v) {
    return {_mm_add_pd(acc.lo, _mm_cvtps_pd(v)), _mm_add_pd(acc.hi, _mm_cvtps_pd(_mm_movehl_ps(v, v)))};
  }
  static double DSum(DAcc acc) {
    const __m128d s = _mm_add_pd(acc.lo, acc.hi);
    return _mm_cvtsd_f64(_mm_add_sd(s, _mm_unpackhi_pd(s, s)));
  }
};

}  // namespace
}  // namespace functional
}  // namespace kernel
}  // namespace tarn
