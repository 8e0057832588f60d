// SSE register types of the direct convolution steps (depthwise and
// transposed): how a register maps onto pixels of a layout, for the step
// templates of the fallback directory. Needs SSE4.1 + FMA; included by vector
// files only.
//
// The types live in an anonymous namespace: every family file that includes
// this compiles its own copy with its own flags, so no copy made for one
// instruction set stands in for another at link time.
#pragma once

#include <immintrin.h>

#include <cmath>

namespace tarn {
namespace kernel {
namespace {

// One C4HW4 pixel (4 channels) per register.
struct PixelC4x1 {
  using V = __m128;
  static constexpr int kPixels = 1, kLanes = 4, kTapFloats = 4, kTile = 8;
  static V Load(const float* p) { return _mm_loadu_ps(p); }
  static void Store(float* p, V v) { _mm_storeu_ps(p, v); }
  template <int S>
  static V LoadIn(const float* p) {
    return _mm_loadu_ps(p);
  }
  static V Tap(const float* w) { return _mm_loadu_ps(w); }
  static V Broadcast(const float* p) { return _mm_set1_ps(*p); }
  static V Zero() { return _mm_setzero_ps(); }
  static V Fma(V a, V b, V c) { return _mm_fmadd_ps(a, b, c); }
};

// Four CHW pixels of one channel per register; a tap is one weight for all.
struct PixelChwx4 {
  using V = __m128;
  static constexpr int kPixels = 4, kLanes = 1, kTapFloats = 1, kTile = 4;
  static V Load(const float* p) { return _mm_loadu_ps(p); }
  static void Store(float* p, V v) { _mm_storeu_ps(p, v); }
  // p[0], p[S], p[2S], p[3S]; stride 2 reads p[0..6] only, never p[7].
  template <int S>
  static V LoadIn(const float* p) {
    static_assert(S == 1 || S == 2, "strides 1 and 2");
    if constexpr (S == 1) {
      return _mm_loadu_ps(p);
    } else {
      return _mm_shuffle_ps(_mm_loadu_ps(p), _mm_loadu_ps(p + 3), _MM_SHUFFLE(3, 1, 2, 0));
    }
  }
  static V Tap(const float* w) { return _mm_set1_ps(*w); }
  static V Zero() { return _mm_setzero_ps(); }
  static V Fma(V a, V b, V c) { return _mm_fmadd_ps(a, b, c); }
};

// One CHW pixel: the tail of PixelChwx4.
struct PixelChwx1 {
  using V = float;
  static constexpr int kPixels = 1, kLanes = 1, kTapFloats = 1, kTile = 1;
  static V Load(const float* p) { return *p; }
  static void Store(float* p, V v) { *p = v; }
  template <int S>
  static V LoadIn(const float* p) {
    return *p;
  }
  static V Tap(const float* w) { return *w; }
  static V Zero() { return 0.0f; }
  static V Fma(V a, V b, V c) { return std::fma(a, b, c); }
};

}  // namespace
}  // namespace kernel
}  // namespace tarn
