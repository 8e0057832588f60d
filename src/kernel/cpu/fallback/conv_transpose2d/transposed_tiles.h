// The specialised transposed-convolution steps, written once over a vector
// type and instantiated by each family's file with its own vectors.
//
// The scatter is computed output-stationary. An output pixel at (y, x) of the
// scatter, y = jy * stride_y + ry with phase 0 <= ry < stride_y, is reached by
// the kernel rows ky = ry + stride_y * my, from input row jy - my; columns
// likewise. So every output row of one column phase rx gathers a small,
// fixed set of taps from consecutive input pixels: the pixels of that phase
// are computed in register tiles across all input channels and taps, and each
// is read and written once. The input is padded by (kernel - 1) / stride zero
// pixels per side, so no tap tests the border. Phases that no tap reaches
// (stride larger than the kernel) keep the bias.
//
// A vector type Tr (see the depthwise tiles) adds, for the blocked layouts:
//   Broadcast(p)       the float at p in every lane
//   Zero()             a register of zeros
#pragma once

#include <cstddef>

#include "kernel/cpu/fallback/conv_core/tile_dispatch.h"
#include "kernel/cpu/fallback/conv_transpose2d/conv_transpose2d_base.h"

namespace tarn {
namespace kernel {
namespace transposed {

// One output row of the scatter, restricted to one column phase.
struct PhaseRow {
  int in_row;          // padded input row of the taps my = 0
  int ry, rx;          // the row's phase and the column phase
  int taps_y, taps_x;  // taps of these phases along each axis
  int count;           // output pixels of the column phase in the row
  std::ptrdiff_t out;  // pixel offset of the row's first pixel of the phase within an output plane
};

// Calls body(row) for every output row of the scatter and every column
// phase some tap reaches.
template <class Body>
inline void ForEachPhaseRow(const ConvTranspose2DStepArgs& a, const ConvTranspose2DStepGeometry& g, int kernel,
                            Body&& body) {
  const int sy = int(g.stride_y), sx = int(g.stride_x);
  for (int y = 0; y < a.full_h; ++y) {
    const int ry = y % sy;
    if (ry >= kernel) continue;
    for (int rx = 0; rx < sx && rx < kernel; ++rx) {
      PhaseRow r;
      r.in_row = y / sy + a.border_y;
      r.ry = ry;
      r.rx = rx;
      r.taps_y = (kernel - 1 - ry) / sy + 1;
      r.taps_x = (kernel - 1 - rx) / sx + 1;
      r.count = (a.full_w - rx + sx - 1) / sx;
      r.out = (std::ptrdiff_t(g.origin_y) + y) * a.out_w + g.origin_x + rx;
      body(r);
    }
  }
}

// Blocked layouts: T output pixels (of one block, one phase row, starting at
// phase column jx) gather every input block through the lanes x lanes weight
// tiles of their taps, one broadcast input lane times one weight row per
// fused multiply-add.
template <class Tr, int K, int T>
inline void BlockedTile(const ConvTranspose2DStepArgs& a, const ConvTranspose2DStepGeometry& g, const PhaseRow& r,
                        int jx, const float* w_block, float* out_plane) {
  constexpr int L = Tr::kLanes;
  const std::ptrdiff_t in_row = std::ptrdiff_t(a.in_w) * L, in_plane = in_row * a.in_h;
  const std::ptrdiff_t step = std::ptrdiff_t(g.stride_x) * L;
  float* out = out_plane + (r.out + std::ptrdiff_t(jx) * g.stride_x) * L;
  typename Tr::V acc[T];
#pragma GCC unroll 16
  for (int t = 0; t < T; ++t) acc[t] = Tr::Load(out + t * step);
  for (int cb = 0; cb < a.in_planes; ++cb) {
    const float* row0 = a.input + cb * in_plane + r.in_row * in_row + std::ptrdiff_t(jx + a.border_x) * L;
    const float* w_cb = w_block + std::ptrdiff_t(cb) * K * K * L * L;
    // Rows innermost: the taps of one row would read shifted copies of the
    // same pixels, which compilers then try to carry between iterations in
    // registers the accumulators need.
    for (int mx = 0; mx < r.taps_x; ++mx) {
      const int kx = r.rx + int(g.stride_x) * mx;
      for (int my = 0; my < r.taps_y; ++my) {
        const int ky = r.ry + int(g.stride_y) * my;
        const float* px = row0 - my * in_row - mx * L;
        const float* tile = w_cb + (ky * K + kx) * L * L;
#pragma GCC unroll 8
        for (int k = 0; k < L; ++k) {
          const typename Tr::V wk = Tr::Load(tile + k * L);
#pragma GCC unroll 16
          for (int t = 0; t < T; ++t) acc[t] = Tr::Fma(Tr::Broadcast(px + t * L + k), wk, acc[t]);
        }
      }
    }
  }
#pragma GCC unroll 16
  for (int t = 0; t < T; ++t) Tr::Store(out + t * step, acc[t]);
}

// The step of a blocked layout: weight GN4C4HW4c4n / GN8C8HW8c8n with the
// record's output channels as N.
template <class Tr, int K>
void BlockedStep(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight,
                 const ConvTranspose2DStepGeometry& g, const char* what) {
  constexpr int L = Tr::kLanes, T = Tr::kTile;
  const ConvTranspose2DStepArgs a = CheckConvTranspose2DStep(input, output, weight, g, K, L, what);
  const std::ptrdiff_t out_plane = std::ptrdiff_t(a.out_h) * a.out_w * L;
  for (int nb = 0; nb < a.out_planes; ++nb) {
    const float* w_block = a.weight + std::ptrdiff_t(nb) * a.in_planes * K * K * L * L;
    float* plane = a.output + nb * out_plane;
    ForEachPhaseRow(a, g, K, [&](const PhaseRow& r) {
      int jx = 0;
      for (; jx + T <= r.count; jx += T) BlockedTile<Tr, K, T>(a, g, r, jx, w_block, plane);
      if (jx < r.count) {
        DispatchTile<T>(r.count - jx,
                        [&](auto n) { BlockedTile<Tr, K, decltype(n)::value>(a, g, r, jx, w_block, plane); });
      }
    });
  }
}

}  // namespace transposed
}  // namespace kernel
}  // namespace tarn
