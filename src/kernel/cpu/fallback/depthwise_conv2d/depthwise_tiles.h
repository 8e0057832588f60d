// The depthwise convolution step, written once over a vector type and
// instantiated by each family's file with its own vectors (SSE: CHW and
// C4HW4; AVX: C4HW4 and C8HW8).
//
// The input is already padded, so every output pixel reads a whole window and
// no pixel tests the border. Each output row is cut into tiles of Tr::kTile
// registers that stay in registers across all K * K taps: a row no wider than
// one tile is computed entirely in registers, one load of the bias-filled
// output and one store per register. Per kernel row the K taps are loaded
// once per tile. When a register spans several pixels (CHW, two-pixel C4HW4)
// a row's last register overlaps the one before (see Row); rows narrower than
// a register go through `Tail`, a vector type of one pixel.
//
// A vector type Tr provides:
//   V                  the register type
//   kPixels, kLanes    output pixels per register, floats per pixel
//   kTapFloats         floats per packed tap (1 CHW: the tap is broadcast)
//   kTile              registers of one row tile
//   Load(p), Store(p, v)  kPixels consecutive output pixels at p
//   LoadIn<S>(p)       input pixels p, p + S, ... (one per output pixel of a
//                      register; p counts floats, a pixel is kLanes floats)
//   Tap(w)             one packed tap spread over a register
//   Fma(a, b, c)       a * b + c, fused
#pragma once

#include <cstddef>
#include <cstring>

#include "kernel/cpu/fallback/conv_core/tile_dispatch.h"
#include "kernel/cpu/fallback/depthwise_conv2d/depthwise_conv2d_base.h"

namespace tarn {
namespace kernel {
namespace depthwise {

// T registers of output pixels (T * kPixels pixels) whose windows start at
// `in` (rows `in_row` floats apart), through the K * K taps at `w`: starting
// from the values at `from`, the sums go to `to` (the same place but for the
// last register of a row, see Row).
template <class Tr, int K, int S, int T>
inline void Tile(const float* in, std::ptrdiff_t in_row, const float* from, float* to, const float* w) {
  constexpr int P = Tr::kPixels, L = Tr::kLanes;
  typename Tr::V acc[T];
#pragma GCC unroll 16
  for (int t = 0; t < T; ++t) acc[t] = Tr::Load(from + t * P * L);
#pragma GCC unroll 8
  for (int ky = 0; ky < K; ++ky) {
    const float* r = in + ky * in_row;
    typename Tr::V tap[K];
#pragma GCC unroll 8
    for (int kx = 0; kx < K; ++kx) tap[kx] = Tr::Tap(w + (ky * K + kx) * Tr::kTapFloats);
#pragma GCC unroll 8
    for (int kx = 0; kx < K; ++kx) {
#pragma GCC unroll 16
      for (int t = 0; t < T; ++t) {
        acc[t] = Tr::Fma(tap[kx], Tr::template LoadIn<S>(r + (t * P * S + kx) * L), acc[t]);
      }
    }
  }
#pragma GCC unroll 16
  for (int t = 0; t < T; ++t) Tr::Store(to + t * P * L, acc[t]);
}

// One output row of out_w pixels. A row that ends inside a register (CHW,
// two-pixel C4HW4) computes that register first over its last kPixels
// pixels, while they still hold the bias, and keeps only the pixels the other
// registers do not cover; rows narrower than one register go pixel by pixel.
template <class Tr, class Tail, int K, int S>
inline void Row(const float* in, std::ptrdiff_t in_row, float* out, int out_w, const float* w) {
  static_assert(Tail::kPixels == 1 && Tail::kLanes == Tr::kLanes && Tail::kTapFloats == Tr::kTapFloats,
                "the tail works on single pixels of the same layout");
  constexpr int P = Tr::kPixels, L = Tr::kLanes, T = Tr::kTile;
  const int units = out_w / P, rest = out_w - units * P;
  const bool overlap = rest != 0 && units != 0;
  alignas(32) float last[P * L];
  if (overlap) {
    const std::ptrdiff_t x = out_w - P;
    Tile<Tr, K, S, 1>(in + x * S * L, in_row, out + x * L, last, w);
  }
  int u = 0;
  for (; u + T <= units; u += T) {
    float* o = out + std::ptrdiff_t(u) * P * L;
    Tile<Tr, K, S, T>(in + std::ptrdiff_t(u) * P * S * L, in_row, o, o, w);
  }
  if (u < units) {
    float* o = out + std::ptrdiff_t(u) * P * L;
    DispatchTile<T>(units - u, [&](auto n) {
      Tile<Tr, K, S, decltype(n)::value>(in + std::ptrdiff_t(u) * P * S * L, in_row, o, o, w);
    });
  }
  if (overlap) {
    std::memcpy(out + std::ptrdiff_t(units) * P * L, last + (P - rest) * L, sizeof(float) * rest * L);
    return;
  }
  for (int x = units * P; x < out_w; ++x) {
    float* o = out + std::ptrdiff_t(x) * L;
    Tile<Tail, K, S, 1>(in + std::ptrdiff_t(x) * S * L, in_row, o, o, w);
  }
}

// The whole step: every stored plane (channel or channel block), every row.
template <class Tr, class Tail, int K, int S>
void Step(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight, const char* what) {
  const DepthwiseStepArgs a = CheckDepthwiseStep(input, output, weight, K, S, Tr::kLanes, what);
  constexpr int L = Tr::kLanes;
  const std::ptrdiff_t in_row = std::ptrdiff_t(a.in_w) * L, in_plane = in_row * a.in_h;
  const std::ptrdiff_t out_row = std::ptrdiff_t(a.out_w) * L, out_plane = out_row * a.out_h;
  const std::ptrdiff_t w_plane = std::ptrdiff_t(K) * K * Tr::kTapFloats;
  for (int b = 0; b < a.planes; ++b) {
    const float* in = a.input + b * in_plane;
    float* out = a.output + b * out_plane;
    for (int oy = 0; oy < a.out_h; ++oy) {
      Row<Tr, Tail, K, S>(in + oy * S * in_row, in_row, out + oy * out_row, a.out_w, a.weight + b * w_plane);
    }
  }
}

}  // namespace depthwise
}  // namespace kernel
}  // namespace tarn

// Defines member `cls` in a family file: its step cls_Convolution, the
// template above on vector types Vec and Tail, kernel K and stride S, and its
// Forward (pad by `pad`, fill by `fill`, the step).
#define TRN_DEPTHWISE_MEMBER_CODE(cls, Vec, Tail, K, S, pad, fill)                                      \
  void cls##_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight) { \
    depthwise::Step<Vec, Tail, K, S>(input, output, weight, #cls "_Convolution");                    \
  }                                                                                                  \
  TRN_DEPTHWISE_FORWARD(cls, pad, fill)
