// The loops of the vector softmax and clip forms, written once for any
// register width. V supplies Reg, kLanes, Load, Store, Set1, Zero, Add, Sub,
// Mul, Div, Fma, Min, Max (the second operand when either is NaN), Floor, Pow2,
// ReduceMax and ReduceAdd; each family's file brings its V and the one-float
// Lane with internal linkage, so this header holds no intrinsics.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

#include "kernel/cpu/fallback/resampling_common/scalar_lane.h"

namespace tarn {
namespace kernel {
namespace functional {

// e^x for x <= 88 (larger x are taken as 88): x = n ln2 + r with n =
// floor(x log2(e) + 1/2) and ln2 split in two parts, e^r by a degree-7
// polynomial, 2^n written into the exponent. Below -87.3 n reaches -127 and
// the result is 0. NaN stays NaN.
template <typename V>
inline typename V::Reg Exp(typename V::Reg x) {
  using R = typename V::Reg;
  x = V::Min(V::Set1(88.0f), x);
  x = V::Max(V::Set1(-88.3762626647949f), x);
  const R n = V::Floor(V::Fma(x, V::Set1(1.44269504088896341f), V::Set1(0.5f)));
  x = V::Fma(n, V::Set1(-0.693359375f), x);
  x = V::Fma(n, V::Set1(2.12194440e-4f), x);
  const R z = V::Mul(x, x);
  R y = V::Set1(1.9875691500e-4f);
  y = V::Fma(y, x, V::Set1(1.3981999507e-3f));
  y = V::Fma(y, x, V::Set1(8.3334519073e-3f));
  y = V::Fma(y, x, V::Set1(4.1665795894e-2f));
  y = V::Fma(y, x, V::Set1(1.6666665459e-1f));
  y = V::Fma(y, x, V::Set1(5.0000001201e-1f));
  y = V::Add(V::Fma(y, z, x), V::Set1(1.0f));
  return V::Mul(y, V::Pow2(n));
}

// Softmax of one contiguous row of n floats, the registers along the row.
template <typename V>
void SoftmaxRow(const float* x, std::size_t n, float* y) {
  constexpr std::size_t L = V::kLanes;
  const float lowest = -std::numeric_limits<float>::infinity();
  typename V::Reg vm = V::Set1(lowest);
  std::size_t i = 0;
  for (; i + L <= n; i += L) vm = V::Max(V::Load(x + i), vm);
  float m = V::ReduceMax(vm);
  for (; i < n; ++i) m = Lane::Max(x[i], m);
  vm = V::Set1(m);
  typename V::Reg vs = V::Zero();
  for (i = 0; i + L <= n; i += L) {
    const typename V::Reg e = Exp<V>(V::Sub(V::Load(x + i), vm));
    V::Store(y + i, e);
    vs = V::Add(vs, e);
  }
  float s = V::ReduceAdd(vs);
  for (; i < n; ++i) {
    const float e = Exp<Lane>(x[i] - m);
    y[i] = e;
    s += e;
  }
  const float inv = 1.0f / s;
  const typename V::Reg vi = V::Set1(inv);
  for (i = 0; i + L <= n; i += L) V::Store(y + i, V::Mul(V::Load(y + i), vi));
  for (; i < n; ++i) y[i] = y[i] * inv;
}

// Softmax of V::kLanes neighbouring columns of a [dim, inner] block (the axis
// strided by inner), one column per lane.
template <typename V>
void SoftmaxColumns(const float* x, std::size_t dim, std::size_t inner, float* y) {
  typename V::Reg m = V::Set1(-std::numeric_limits<float>::infinity());
  for (std::size_t d = 0; d < dim; ++d) m = V::Max(V::Load(x + d * inner), m);
  typename V::Reg s = V::Zero();
  for (std::size_t d = 0; d < dim; ++d) {
    const typename V::Reg e = Exp<V>(V::Sub(V::Load(x + d * inner), m));
    V::Store(y + d * inner, e);
    s = V::Add(s, e);
  }
  const typename V::Reg inv = V::Div(V::Set1(1.0f), s);
  for (std::size_t d = 0; d < dim; ++d) V::Store(y + d * inner, V::Mul(V::Load(y + d * inner), inv));
}

template <typename V>
void Softmax(const float* src, std::size_t outer, std::size_t dim, std::size_t inner, float* dst) {
  constexpr std::size_t L = V::kLanes;
  const std::size_t block = dim * inner;
  for (std::size_t o = 0; o < outer; ++o, src += block, dst += block) {
    if (inner == 1) {
      SoftmaxRow<V>(src, dim, dst);
      continue;
    }
    std::size_t i = 0;
    for (; i + L <= inner; i += L) SoftmaxColumns<V>(src + i, dim, inner, dst + i);
    for (; i < inner; ++i) SoftmaxColumns<Lane>(src + i, dim, inner, dst + i);
  }
}

// min(hi, max(lo, x)): NaN and values equal to a bound come through as they are.
template <typename V>
void Clip(const float* src, std::uint32_t count, float lo, float hi, float* dst) {
  constexpr std::uint32_t L = V::kLanes;
  const typename V::Reg vl = V::Set1(lo), vh = V::Set1(hi);
  std::uint32_t i = 0;
  for (; i + 4 * L <= count; i += 4 * L) {
    const typename V::Reg r0 = V::Min(vh, V::Max(vl, V::Load(src + i)));
    const typename V::Reg r1 = V::Min(vh, V::Max(vl, V::Load(src + i + L)));
    const typename V::Reg r2 = V::Min(vh, V::Max(vl, V::Load(src + i + 2 * L)));
    const typename V::Reg r3 = V::Min(vh, V::Max(vl, V::Load(src + i + 3 * L)));
    V::Store(dst + i, r0);
    V::Store(dst + i + L, r1);
    V::Store(dst + i + 2 * L, r2);
    V::Store(dst + i + 3 * L, r3);
  }
  for (; i + L <= count; i += L) V::Store(dst + i, V::Min(vh, V::Max(vl, V::Load(src + i))));
  for (; i < count; ++i) dst[i] = Lane::Min(hi, Lane::Max(lo, src[i]));
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
