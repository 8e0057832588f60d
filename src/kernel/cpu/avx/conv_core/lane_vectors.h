// AVX register types of the direct convolution steps (depthwise and
// transposed), beside the SSE ones they use for single-pixel tails. Needs
// AVX2 + FMA; included by AVX files only. Anonymous namespace for the reason
// the SSE header gives.
#pragma once

#include <immintrin.h>

#include "kernel/cpu/sse/conv_core/lane_vectors.h"

namespace tarn {
namespace kernel {
namespace {

// One C8HW8 pixel (8 channels) per register.
struct PixelC8x1 {
  using V = __m256;
  static constexpr int kPixels = 1, kLanes = 8, kTapFloats = 8, kTile = 8;
  static V Load(const float* p) { return _mm256_loadu_ps(p); }
  static void Store(float* p, V v) { _mm256_storeu_ps(p, v); }
  template <int S>
  static V LoadIn(const float* p) {
    return _mm256_loadu_ps(p);
  }
  static V Tap(const float* w) { return _mm256_loadu_ps(w); }
  static V Broadcast(const float* p) { return _mm256_broadcast_ss(p); }
  static V Zero() { return _mm256_setzero_ps(); }
  static V Fma(V a, V b, V c) { return _mm256_fmadd_ps(a, b, c); }
};

// Two C4HW4 pixels per register; a 4-float tap fills both halves.
struct PixelC4x2 {
  using V = __m256;
  static constexpr int kPixels = 2, kLanes = 4, kTapFloats = 4, kTile = 8;
  static V Load(const float* p) { return _mm256_loadu_ps(p); }
  static void Store(float* p, V v) { _mm256_storeu_ps(p, v); }
  // Pixels p and p + S: adjacent for stride 1, two loads otherwise.
  template <int S>
  static V LoadIn(const float* p) {
    if constexpr (S == 1) {
      return _mm256_loadu_ps(p);
    } else {
      return _mm256_loadu2_m128(p + 4 * S, p);
    }
  }
  static V Tap(const float* w) { return _mm256_broadcast_ps(reinterpret_cast<const __m128*>(w)); }
  static V Fma(V a, V b, V c) { return _mm256_fmadd_ps(a, b, c); }
};

}  // namespace
}  // namespace kernel
}  // namespace tarn
