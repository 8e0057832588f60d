// The window folding of the vector fixed-size pooling forms, written once for
// any register width. V supplies the register type Reg, its float count
// kLanes, Load, Store, Set1, Zero, Add, Max, Mul and Div; each family's file
// defines its V with its own intrinsics in an unnamed namespace, so this
// header holds none and every instantiation stays in that file. Taps are
// folded in the general kernels' order (window row outer, column inner) with
// the same operations, so the results equal theirs bit for bit.
#pragma once

#include <cstdint>

#include "kernel/cpu/fallback/pooling/pooling.h"

namespace tarn {
namespace kernel {
namespace functional {

// Max: the running maximum second, so a NaN input is skipped. Average: the
// sum in window order.
template <typename V, bool kMax>
inline typename V::Reg FoldTap(typename V::Reg acc, typename V::Reg v) {
  return kMax ? V::Max(v, acc) : V::Add(acc, v);
}

// The average of a K x K window from its sum (a 2 x 2 window multiplies by 0.25).
template <typename V, int K, bool kMax>
inline typename V::Reg FinishWindow(typename V::Reg acc) {
  if constexpr (kMax) return acc;
  if constexpr (K == 2) return V::Mul(acc, V::Set1(0.25f));
  return V::Div(acc, V::Set1(static_cast<float>(K * K)));
}

// Blocked layouts [B, H, W, lanes]: one register of lanes channels per pixel.
template <typename V, int K, int S, bool kMax>
void PoolBlocked(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  const FixedPoolingGeometry g = CheckFixedPooling(input, output, V::kLanes, K, S);
  for (std::uint32_t b = 0; b < g.planes; ++b) {
    const float* plane = input->DataAs<float>() + static_cast<size_t>(b) * g.in_plane;
    float* o = output->DataAs<float>() + static_cast<size_t>(b) * g.out_plane;
    for (std::uint32_t oy = 0; oy < g.oh; ++oy) {
      for (std::uint32_t ox = 0; ox < g.ow; ++ox, o += V::kLanes) {
        typename V::Reg acc = kMax ? V::Set1(kMaxPoolingFill) : V::Zero();
        for (int ky = 0; ky < K; ++ky) {
          const float* row = plane + (static_cast<size_t>(oy * S + ky) * g.w + ox * S) * V::kLanes;
          for (int kx = 0; kx < K; ++kx) acc = FoldTap<V, kMax>(acc, V::Load(row + V::kLanes * kx));
        }
        V::Store(o, FinishWindow<V, K, kMax>(acc));
      }
    }
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
