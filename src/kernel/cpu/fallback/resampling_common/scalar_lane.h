// One float with the rules of the packed instructions, for the tails of the
// vector forms of the normalisation, softmax, clip and upsampling kernels: the
// same step templates run on it, so a tail computes what a full register
// would. Min and Max return the second operand when either is NaN, as the
// packed instructions do. Internal linkage on purpose: each family's file
// compiles its own copy with its own flags.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

namespace tarn {
namespace kernel {
namespace functional {
namespace {

struct Lane {
  using Reg = float;
  static constexpr std::uint32_t kLanes = 1;
  static Reg Load(const float* p) { return *p; }
  static void Store(float* p, Reg v) { *p = v; }
  static Reg Set1(float f) { return f; }
  static Reg Zero() { return 0.0f; }
  static Reg Add(Reg a, Reg b) { return a + b; }
  static Reg Sub(Reg a, Reg b) { return a - b; }
  static Reg Mul(Reg a, Reg b) { return a * b; }
  static Reg Div(Reg a, Reg b) { return a / b; }
  static Reg Fma(Reg a, Reg b, Reg c) { return std::fma(a, b, c); }
  static Reg Min(Reg a, Reg b) { return a < b ? a : b; }
  static Reg Max(Reg a, Reg b) { return a > b ? a : b; }
  static Reg Floor(Reg a) { return std::floor(a); }
  // 2^n for an integral n in [-127, 127]; other n (NaN) give 2^0, their
  // result is NaN by then anyway.
  static Reg Pow2(Reg n) {
    const std::int32_t i = n >= -127.0f && n <= 127.0f ? static_cast<std::int32_t>(n) : 0;
    const std::uint32_t bits = static_cast<std::uint32_t>(i + 127) << 23;
    float f;
    std::memcpy(&f, &bits, 4);
    return f;
  }
  static float ReduceMax(Reg a) { return a; }
  static float ReduceAdd(Reg a) { return a; }
  using DAcc = double;
  static DAcc DZero() { return 0.0; }
  static DAcc DAdd(DAcc acc, Reg v) { return acc + static_cast<double>(v); }
  static double DSum(DAcc acc) { return acc; }
};

}  // namespace
}  // namespace functional
}  // namespace kernel
}  // namespace tarn
