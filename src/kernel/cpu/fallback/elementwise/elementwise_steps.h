// The step structures of the element forms. The portable one serves the
// activation and element-wise functions of the portable files. The vector one
// is written once for any register width: four registers per step, then
// single registers, then a scalar tail. V supplies the register type Reg, its float count kLanes, Load,
// Store and the packed operations Add, Sub, Mul, Div, Max and Min. Each
// family's file defines its V with its own intrinsics in an unnamed namespace,
// so this header holds none and every instantiation stays in that file.
#pragma once

#include <cstdint>

namespace tarn {
namespace kernel {
namespace functional {

// True when [a, a + 8) and [b, b + 8) do not overlap, so an 8-element step may
// read ahead of what it writes.
inline bool Apart8(const float* a, const float* b) {
  const std::uintptr_t x = reinterpret_cast<std::uintptr_t>(a), y = reinterpret_cast<std::uintptr_t>(b);
  return (x > y ? x - y : y - x) >= 8 * sizeof(float);
}

// dst[i] = op(src[i]...) over count elements: 8 per step when dst is apart
// from every source, else a plain loop (in-place calls end up here).
template <typename Op, typename... Src>
inline void Portable8(std::uint32_t count, float* dst, Op op, const Src*... src) {
  std::uint32_t i = 0;
  if (count >= 8 && (Apart8(dst, src) && ...)) {
    for (; i + 8 <= count; i += 8) {
      float v[8];
      for (int k = 0; k < 8; ++k) v[k] = op(src[i + k]...);
      for (int k = 0; k < 8; ++k) dst[i + k] = v[k];
    }
  }
  for (; i < count; ++i) dst[i] = op(src[i]...);
}

template <typename V>
struct ElementwiseSteps {
  template <typename VecOp, typename ScalarOp>
  static void Run(const float* a, const float* b, std::uint32_t count, float* dst, VecOp vec, ScalarOp scalar) {
    constexpr std::uint32_t kL = V::kLanes;
    std::uint32_t i = 0;
    for (; i + 4 * kL <= count; i += 4 * kL) {
      const typename V::Reg r0 = vec(V::Load(a + i), V::Load(b + i));
      const typename V::Reg r1 = vec(V::Load(a + i + kL), V::Load(b + i + kL));
      const typename V::Reg r2 = vec(V::Load(a + i + 2 * kL), V::Load(b + i + 2 * kL));
      const typename V::Reg r3 = vec(V::Load(a + i + 3 * kL), V::Load(b + i + 3 * kL));
      V::Store(dst + i, r0);
      V::Store(dst + i + kL, r1);
      V::Store(dst + i + 2 * kL, r2);
      V::Store(dst + i + 3 * kL, r3);
    }
    for (; i + kL <= count; i += kL) V::Store(dst + i, vec(V::Load(a + i), V::Load(b + i)));
    for (; i < count; ++i) dst[i] = scalar(a[i], b[i]);
  }

  using Reg = typename V::Reg;
  static void Add(const float* a, const float* b, std::uint32_t n, float* dst) {
    Run(
        a, b, n, dst, [](Reg x, Reg y) { return V::Add(x, y); }, [](float x, float y) { return x + y; });
  }
  static void Sub(const float* a, const float* b, std::uint32_t n, float* dst) {
    Run(
        a, b, n, dst, [](Reg x, Reg y) { return V::Sub(x, y); }, [](float x, float y) { return x - y; });
  }
  static void Mul(const float* a, const float* b, std::uint32_t n, float* dst) {
    Run(
        a, b, n, dst, [](Reg x, Reg y) { return V::Mul(x, y); }, [](float x, float y) { return x * y; });
  }
  static void Div(const float* a, const float* b, std::uint32_t n, float* dst) {
    Run(
        a, b, n, dst, [](Reg x, Reg y) { return V::Div(x, y); }, [](float x, float y) { return x / y; });
  }
  // The packed maximum and minimum return b when either is NaN; the tail's
  // b > a ? b : a (b < a ? b : a) keeps a.
  static void Max(const float* a, const float* b, std::uint32_t n, float* dst) {
    Run(
        a, b, n, dst, [](Reg x, Reg y) { return V::Max(x, y); }, [](float x, float y) { return y > x ? y : x; });
  }
  static void Min(const float* a, const float* b, std::uint32_t n, float* dst) {
    Run(
        a, b, n, dst, [](Reg x, Reg y) { return V::Min(x, y); }, [](float x, float y) { return y < x ? y : x; });
  }
};

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
