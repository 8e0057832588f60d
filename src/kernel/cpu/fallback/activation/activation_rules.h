// The scalar rule of each activation, shared by the portable functions and the
// scalar tails of the vector forms, so that every family computes the same
// bits. Internal linkage on purpose: each family's file compiles its own copy
// with its own flags, and no copy built with family instructions can stand in
// for the baseline one at link time.
#pragma once

#include <cmath>

namespace tarn {
namespace kernel {
namespace functional {
namespace rules {

static inline float Relu(float x) { return x <= 0.0f ? 0.0f : x; }
static inline float Relu6(float x) { return x < 0.0f ? 0.0f : (x > 6.0f ? 6.0f : x); }
static inline float Sigmoid(float x) { return 1.0f / (std::exp(0.0f - x) + 1.0f); }
static inline float HSigmoid(float x) {
  const float t = x + 3.0f;
  return t > 0.0f ? (6.0f > t ? t * 0.16666667f : 1.0f) : 0.0f;
}
static inline float HSwish(float x) {
  const float t = x + 3.0f;
  return !(t > 0.0f) ? x * 0.0f : (6.0f > t ? x * (t * 0.16666667f) : x);
}
// Leaky and PReLU: only negative elements change.
static inline float Leaky(float x, float alpha) { return 0.0f > x ? x * alpha : x; }

}  // namespace rules
}  // namespace functional
}  // namespace kernel
}  // namespace tarn
