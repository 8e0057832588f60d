// The loops of the vector normalisation forms, written once for any register
// width. V supplies Reg, kLanes, Load, Store, Set1, Add, Sub, Mul and the double
// accumulator DAcc with DZero, DAdd and DSum; each family's file brings its V
// (and the one-float Lane for the tails) with internal linkage, so this header
// holds no intrinsics and every instantiation stays in that file. The affine
// map is a product then a sum in every lane and tail, so the vector forms equal
// the portable one bit for bit.
#pragma once

#include <cstddef>
#include <cstdint>

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
      const typename V::Reg r0 = V::Add(V::Mul(V::Load(src + i), va), vb);
      const typename V::Reg r1 = V::Add(V::Mul(V::Load(src + i + L), va), vb);
      const typename V::Reg r2 = V::Add(V::Mul(V::Load(src + i + 2 * L), va), vb);
      const typename V::Reg r3 = V::Add(V::Mul(V::Load(src + i + 3 * L), va), vb);
      V::Store(dst + i, r0);
      V::Store(dst + i + L, r1);
      V::Store(dst + i + 2 * L, r2);
      V::Store(dst + i + 3 * L, r3);
    }
    for (; i + L <= plane; i += L) V::Store(dst + i, V::Add(V::Mul(V::Load(src + i), va), vb));
    for (; i < plane; ++i) dst[i] = Lane::Add(Lane::Mul(src[i], a[k]), b[k]);
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
    for (std::size_t p = 0; p < plane; ++p, src += L, dst += L) V::Store(dst, V::Add(V::Mul(V::Load(src), va), vb));
  }
}

// Mean and biased variance with double sums in register lanes, the tail added
// one float at a time.
template <typename V>
void MeanVar(const float* x, std::size_t n, float* mean, double* variance) {
  constexpr std::size_t L = V::kLanes;
  typename V::DAcc acc = V::DZero();
  std::size_t i = 0;
  for (; i + L <= n; i += L) acc = V::DAdd(acc, V::Load(x + i));
  double sum = V::DSum(acc);
  for (; i < n; ++i) sum += static_cast<double>(x[i]);
  const float m = static_cast<float>(sum / static_cast<double>(n));
  const typename V::Reg vm = V::Set1(m);
  acc = V::DZero();
  for (i = 0; i + L <= n; i += L) {
    const typename V::Reg d = V::Sub(V::Load(x + i), vm);
    acc = V::DAdd(acc, V::Mul(d, d));
  }
  double squares = V::DSum(acc);
  for (; i < n; ++i) {
    const float d = x[i] - m;
    squares += static_cast<double>(d * d);
  }
  *mean = m;
  *variance = squares / static_cast<double>(n);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
