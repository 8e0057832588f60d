// The loops of the vector normalisation forms, written once for any register
// width. V supplies Reg, kLanes, Load, Store, Set1, Sub, Mul, Fma and the double
// accumulator DAcc with DZero, DAdd and DSum; each family's file brings its V
// (and the one-float Lane for the tails) with internal linkage, so this header
// holds no intrinsics and every instantiation stays in that file. The affine
// map is one fused multiply-add in every lane and tail, so the vector forms
// equal the portable one bit for bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "kernel/cpu/fallback/resampling_common/scalar_lane.h"

namespace tarn {
namespace kernel {
namespace functional {

// Planes (lanes 1): factor pair k over plane k; four registers per step, then
// single registers, then one float at a time.
template <typename V>
void ChannelAffinePlanes(const float* src, std::uint32_t blocks, std::size_t plane, const float* a, const float* b,
                         float* dst) {
  constexpr std::size_t L = V::kLanes;
  for (std::uint32_t k = 0; k < blocks; ++k, src += plane, dst += plane) {
    const typename V::Reg va = V::Set1(a[k]), vb = V::Set1(b[k]);
    std::size_t i = 0;
    for (; i + 4 * L <= plane; i += 4 * L) {
      const typename V::Reg r0 = V::Fma(V::Load(src + i), va, vb);
      const typename V::Reg r1 = V::Fma(V::Load(src + i + L), va, vb);
      const typename V::Reg r2 = V::Fma(V::Load(src + i + 2 * L), va, vb);
      const typename V::Reg r3 = V::Fma(V::Load(src + i + 3 * L), va, vb);
      V::Store(dst + i, r0);
      V::Store(dst + i + L, r1);
      V::Store(dst + i + 2 * L, r2);
      V::Store(dst + i + 3 * L, r3);
    }
    for (; i + L <= plane; i += L) V::Store(dst + i, V::Fma(V::Load(src + i), va, vb));
    for (; i < plane; ++i) dst[i] = Lane::Fma(src[i], a[k], b[k]);
  }
}

// Blocked (lanes = V::kLanes): one register per pixel, the block's factors in
// the lanes.
template <typename V>
void ChannelAffineBlocked(const float* src, std::uint32_t blocks, std::size_t plane, const float* a, const float* b,
                          float* dst) {
  constexpr std::size_t L = V::kLanes;
  for (std::uint32_t k = 0; k < blocks; ++k) {
    const typename V::Reg va = V::Load(a + k * L), vb = V::Load(b + k * L);
    for (std::size_t p = 0; p < plane; ++p, src += L, dst += L) V::Store(dst, V::Fma(V::Load(src), va, vb));
  }
}

// The double sum of f(x) over n floats: four independent accumulators in
// register lanes (so the additions overlap), then single registers, then the
// tail one float at a time.
template <typename V, typename F>
double DoubleSum(const float* x, std::size_t n, F f) {
  constexpr std::size_t L = V::kLanes;
  typename V::DAcc a0 = V::DZero(), a1 = V::DZero(), a2 = V::DZero(), a3 = V::DZero();
  std::size_t i = 0;
  for (; i + 4 * L <= n; i += 4 * L) {
    a0 = V::DAdd(a0, f(V::Load(x + i)));
    a1 = V::DAdd(a1, f(V::Load(x + i + L)));
    a2 = V::DAdd(a2, f(V::Load(x + i + 2 * L)));
    a3 = V::DAdd(a3, f(V::Load(x + i + 3 * L)));
  }
  for (; i + L <= n; i += L) a0 = V::DAdd(a0, f(V::Load(x + i)));
  double sum = (V::DSum(a0) + V::DSum(a1)) + (V::DSum(a2) + V::DSum(a3));
  for (; i < n; ++i) sum += static_cast<double>(f(x[i]));
  return sum;
}

// Mean and biased variance with double sums in register lanes.
template <typename V>
void MeanVar(const float* x, std::size_t n, float* mean, float* variance) {
  const double sum = DoubleSum<V>(x, n, [](auto v) { return v; });
  const float m = static_cast<float>(sum / static_cast<double>(n));
  const typename V::Reg vm = V::Set1(m);
  const double squares = DoubleSum<V>(x, n, [vm, m](auto v) {
    if constexpr (std::is_same_v<decltype(v), float>) {
      const float d = v - m;
      return d * d;
    } else {
      const typename V::Reg d = V::Sub(v, vm);
      return V::Mul(d, d);
    }
  });
  *mean = m;
  *variance = static_cast<float>(squares) / static_cast<float>(n);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
