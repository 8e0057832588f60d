// SSE activations: every tail of the 16- and 4-element steps against the
// scalar forms, the two fast exponentials bit for bit against a scalar
// rendering of their formulas plus their error against expf/tanhf, and the
// in-place and PReLU patterns.
#include <gtest/gtest.h>
#include <immintrin.h>  // SSE2 conversions only: the scalar rendering stays baseline

#include <cmath>

#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/sse/activation/activation.h"
#include "tarn/kernel/activation.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

namespace fn = kernel::functional;
using ElementFn = void (*)(const float*, const std::uint32_t&, float*);

// cvtss2si: round to nearest even, 0x80000000 when out of range or NaN.
std::int32_t RoundToInt(float x) { return _mm_cvtss_si32(_mm_set_ss(x)); }

// e^z by the rounding trick, one float at a time.
float ExpRoundingTrick(float z) {
  const float u = z * 1.442695f;
  const std::int32_t n = RoundToInt(u);
  const float f = u - ((u + 12582912.0f) - 12582912.0f);
  const float p = std::fma(f, std::fma(f, 0.23842894f, 0.703448f), 1.0004431f);
  return FromBits((static_cast<std::uint32_t>(n) << 23) + Bits(p));
}

// e^z by the bit pattern: the int32 becomes the high word of a double.
float ExpBitPattern(float z) {
  const std::int32_t i = RoundToInt(std::fma(z, 1512775.0f, 1072632448.0f));
  const std::uint64_t pattern = static_cast<std::uint64_t>(static_cast<std::uint32_t>(i)) << 32;
  double d;
  std::memcpy(&d, &pattern, 8);
  return static_cast<float>(d);
}

float SigmoidM1(float x) { return 1.0f / (1.0f + ExpRoundingTrick(0.0f - x)); }
float SigmoidM2(float x) { return 1.0f / (ExpBitPattern(0.0f - x) + 1.0f); }
float TanhM1(float x) {
  const float e = ExpRoundingTrick(x);
  return (e - 1.0f / e) / (1.0f / e + e);
}
float TanhM2(float x) {
  const float e = ExpBitPattern(x);
  const float r = 1.0f / e;
  return (e - r) / (r + e);
}
float SigmoidExact(float x) { return 1.0f / (std::exp(0.0f - x) + 1.0f); }

// ---------------------------------------------------------------------------

class SseActivationCounts : public ::testing::TestWithParam<int> {};

TEST_P(SseActivationCounts, VectorFormsEqualScalarForms) {
  TRN_REQUIRE_SSE();
  const std::uint32_t n = static_cast<std::uint32_t>(GetParam());
  const std::vector<float> x = TestValues(n, -9.0f, 9.0f, 100 + n, 5);
  const std::pair<ElementFn, ElementFn> pairs[] = {{fn::relu_sse_f32_m1, fn::relu_f32},
                                                   {fn::relu6_sse_f32_m1, fn::relu6_f32},
                                                   {fn::hsigmoid_sse_f32_m1, fn::hsigmoid_f32},
                                                   {fn::hswish_sse_f32_m1, fn::hswish_f32}};
  int which = 0;
  for (const auto& p : pairs) {
    std::vector<float> got(n), want(n), inplace(x);
    p.first(x.data(), n, got.data());
    p.second(x.data(), n, want.data());
    EXPECT_TRUE(SameBits(got.data(), want.data(), n)) << "function " << which;
    p.first(inplace.data(), n, inplace.data());
    EXPECT_TRUE(SameBits(inplace.data(), want.data(), n)) << "in place, function " << which;
    ++which;
  }
  // Leaky: the fused min/max form equals 0 > x ? x * alpha : x for alpha > 0
  // (NaN payloads may come out quieted).
  const float alpha = 0.2001953125f;
  std::vector<float> got(n), want(n);
  fn::leaky_sse_f32_m1(x.data(), n, alpha, got.data());
  fn::leaky_f32(x.data(), n, alpha, want.data());
  EXPECT_TRUE(SameBits(got.data(), want.data(), n, true));
  // PReLU changes negative elements only and leaves every other bit pattern.
  std::vector<float> a(x), b(x);
  fn::prelu_sse_f32_m1(a.data(), n, -1.5f);
  fn::prelu_f32(b.data(), n, -1.5f);
  EXPECT_TRUE(SameBits(a.data(), b.data(), n));
}

TEST_P(SseActivationCounts, FastExponentialsMatchTheirFormulasBitForBit) {
  TRN_REQUIRE_SSE();
  const std::uint32_t n = static_cast<std::uint32_t>(GetParam());
  // Wide range including NaN, infinities and arguments far outside the sane
  // domain: the rendering follows the same integer conversions.
  std::vector<float> x = TestValues(n, -120.0f, 120.0f, 7 + n, 9);
  struct Case {
    ElementFn vector;
    float (*bulk)(float);
    float (*tail)(float);
    std::uint32_t step;
  };
  const Case cases[] = {{fn::sigmoid_sse_f32_m1, SigmoidM1, SigmoidExact, 16},
                        {fn::sigmoid_sse_f32_m2, SigmoidM2, SigmoidExact, 16},
                        {fn::tanh_sse_f32_m1, TanhM1, std::tanh, 4},
                        {fn::tanh_sse_f32_m2, TanhM2, std::tanh, 4}};
  int which = 0;
  for (const auto& c : cases) {
    std::vector<float> got(n), want(n);
    c.vector(x.data(), n, got.data());
    const std::uint32_t bulk = n / c.step * c.step;
    for (std::uint32_t i = 0; i < n; ++i) want[i] = i < bulk ? c.bulk(x[i]) : c.tail(x[i]);
    EXPECT_TRUE(SameBits(got.data(), want.data(), n, true)) << "function " << which;
    ++which;
  }
}

INSTANTIATE_TEST_SUITE_P(Counts, SseActivationCounts, ::testing::Range(0, 71), TRN_INDEX_NAMES);

// Stated error bounds over each exponential's sane domain, sampled densely.
// Measured worst cases (2^20 samples): rounding trick 4.3e-4 (sigmoid) and
// 1.7e-3 (tanh, near x = 0.15); bit pattern 1.0e-2 (sigmoid) and 4.02e-2
// (tanh, near x = 0.04); polynomial 1.2e-7 (one ulp).
TEST(SseFastExponential, ErrorBounds) {
  TRN_REQUIRE_SSE();
  const std::uint32_t n = 1 << 16;
  std::vector<float> x(n), y(n);
  struct Bound {
    ElementFn f;
    bool tanh;
    float lo, hi, max_abs_error;
  };
  const Bound bounds[] = {{fn::sigmoid_sse_f32_m1, false, -80, 80, 5e-4f},
                          {fn::tanh_sse_f32_m1, true, -80, 80, 2e-3f},
                          {fn::sigmoid_sse_f32_m2, false, -700, 700, 1.1e-2f},
                          {fn::tanh_sse_f32_m2, true, -700, 700, 4.5e-2f},
                          {fn::sigmoid_sse_f32_m3, false, -1000, 1000, 2e-7f}};
  int which = 0;
  for (const auto& b : bounds) {
    for (std::uint32_t i = 0; i < n; ++i) x[i] = b.lo + (b.hi - b.lo) * static_cast<float>(i) / (n - 1);
    b.f(x.data(), n, y.data());
    float worst = 0;
    for (std::uint32_t i = 0; i < n; ++i) {
      const float ref = b.tanh ? std::tanh(x[i]) : SigmoidExact(x[i]);
      worst = std::max(worst, std::fabs(y[i] - ref));
    }
    EXPECT_LT(worst, b.max_abs_error) << "function " << which;
    ++which;
  }
}

TEST(SseFastExponential, TailsAreExact) {
  TRN_REQUIRE_SSE();
  // 17 elements: one 16-element step, the 17th through expf.
  // Through a volatile so that the compiler cannot fold the library calls.
  volatile float seven_tenths = 0.7f;
  const float v = seven_tenths;
  std::vector<float> x(17, v), y(17);
  const std::uint32_t n17 = 17;
  fn::sigmoid_sse_f32_m2(x.data(), n17, y.data());
  EXPECT_EQ(Bits(y[16]), Bits(SigmoidExact(v)));
  EXPECT_EQ(Bits(y[0]), Bits(SigmoidM2(v)));
  EXPECT_NE(Bits(y[0]), Bits(y[16]));  // the bulk is approximate
  // 3 elements of tanh: all through tanhf.
  const std::uint32_t n3 = 3;
  fn::tanh_sse_f32_m2(x.data(), n3, y.data());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Bits(y[i]), Bits(std::tanh(v)));
}

TEST(SseFastExponential, SseM3IsThePolynomialExponential) {
  TRN_REQUIRE_SSE();
  TRN_REQUIRE_AVX();
  const std::uint32_t n = 64;
  const std::vector<float> x = TestValues(n, -150.0f, 150.0f, 5, 7);
  std::vector<float> a(n), b(n);
  fn::sigmoid_sse_f32_m3(x.data(), n, a.data());
  fn::sigmoid_avx_f32_m1(x.data(), n, b.data());
  EXPECT_TRUE(SameBits(a.data(), b.data(), n, true));
  auto t = MakeTensor(ElementContext(), {2, 4, 8}, x);
  fn::Sigmoid_SSE_F32_M3(t);
  EXPECT_TRUE(SameBits(Values(t).data(), a.data(), n, true));
}

// ---------------------------------------------------------------------------
// Kernels.

template <typename K>
std::vector<float> RunSse(const std::vector<float>& x, const std::shared_ptr<runtime::ActivationInfo>& rec,
                          bool expect_in_place) {
  auto ctx = ElementContext();
  auto k = Configured<K>(rec, ctx);
  auto in = MakeTensor(ctx, {static_cast<unsigned>(x.size())}, x);
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_EQ(k->IsValidInput({in}), 0);
  EXPECT_TRUE(k->Forward({in}, outputs, ctx));
  EXPECT_EQ(outputs.size(), 1u);
  if (outputs.empty()) return {};
  EXPECT_EQ(outputs[0].get() == in.get(), expect_in_place) << k->GetName();
  return Values(outputs[0]);
}

std::vector<float> Expect(ElementFn f, const std::vector<float>& x) {
  std::vector<float> y(x.size());
  f(x.data(), static_cast<std::uint32_t>(x.size()), y.data());
  return y;
}

TEST(SseActivationKernel, EachKernelRunsItsFunction) {
  TRN_REQUIRE_SSE();
  const std::vector<float> x = TestValues(53, -10.0f, 10.0f, 11, 8);
  auto rec = std::make_shared<runtime::ActivationInfo>();
  auto same = [](const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && SameBits(a.data(), b.data(), a.size(), true);
  };
  EXPECT_TRUE(same(RunSse<kernel::ReLU_SSE_Float_M1>(x, rec, false), Expect(fn::relu_f32, x)));
  EXPECT_TRUE(same(RunSse<kernel::ReLU6_SSE_Float_M1>(x, rec, false), Expect(fn::relu6_f32, x)));
  EXPECT_TRUE(same(RunSse<kernel::Sigmoid_SSE_Float_M1>(x, rec, false), Expect(fn::sigmoid_sse_f32_m2, x)));
  EXPECT_TRUE(same(RunSse<kernel::TanH_SSE_Float_M1>(x, rec, false), Expect(fn::tanh_sse_f32_m2, x)));
  EXPECT_TRUE(same(RunSse<kernel::HSigmoid_SSE_Float_M1>(x, rec, false), Expect(fn::hsigmoid_f32, x)));
  EXPECT_TRUE(same(RunSse<kernel::HSwish_SSE_Float_M1>(x, rec, false), Expect(fn::hswish_f32, x)));
  EXPECT_TRUE(same(RunSse<kernel::ReLU_Inplace_SSE_Float_M1>(x, rec, true), Expect(fn::relu_f32, x)));
  EXPECT_TRUE(same(RunSse<kernel::HSigmoid_Inplace_SSE_Float_M1>(x, rec, true), Expect(fn::hsigmoid_f32, x)));
  rec->activation_alpha = half_float::half(0.25f);
  std::vector<float> leaky(x.size());
  fn::leaky_f32(x.data(), static_cast<std::uint32_t>(x.size()), 0.25f, leaky.data());
  EXPECT_TRUE(same(RunSse<kernel::Leaky_SSE_Float_M1>(x, rec, false), leaky));
  rec->weight = runtime::EncodeWeights({3.0f, 1.0f});
  std::vector<float> prelu(x);
  fn::prelu_f32(prelu.data(), static_cast<std::uint32_t>(x.size()), 3.0f);
  EXPECT_TRUE(same(RunSse<kernel::PReLU_SSE_Float_M1>(x, rec, true), prelu));
}

TEST(SseActivationKernel, PReLUNeedsAWeight) {
  kernel::PReLU_SSE_Float_M1 k;
  EXPECT_FALSE(k.Config(std::make_shared<runtime::ActivationInfo>(), nullptr, ElementContext()));
  EXPECT_FALSE(k.IsConfiged());
}

}  // namespace
}  // namespace testing
}  // namespace tarn
