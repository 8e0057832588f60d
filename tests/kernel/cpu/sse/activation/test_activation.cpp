// SSE activations: every tail of the 16- and 4-element steps against the
// scalar forms, the two fast exponentials bit for bit against a scalar
// rendering of their formulas plus their error against expf/tanhf, and the
// in-place and PReLU patterns.
#include <gtest/gtest.h>
#include <immintrin.h>  // SSE2 conversions only: the scalar rendering stays baseline

#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/sse/activation/activation.h"

namespace tarn {
namespace testing {
namespace {

namespace fn = kernel::functional;

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
float TanhExact(float x) { return std::tanh(x); }

class SseActivationCounts : public ::testing::TestWithParam<int> {};

TEST_P(SseActivationCounts, VectorFormsEqualScalarForms) {
  TRN_REQUIRE_SSE();
  const std::uint32_t n = static_cast<std::uint32_t>(GetParam());
  ExpectVectorFormsEqualScalarForms(TestValues(n, -9.0f, 9.0f, 100 + n, 5),
                                    {{fn::relu_sse_f32_m1, fn::relu_f32},
                                     {fn::relu6_sse_f32_m1, fn::relu6_f32},
                                     {fn::hsigmoid_sse_f32_m1, fn::hsigmoid_f32},
                                     {fn::hswish_sse_f32_m1, fn::hswish_f32}},
                                    fn::leaky_sse_f32_m1, 0.2001953125f, fn::prelu_sse_f32_m1, -1.5f);
}

TEST_P(SseActivationCounts, FastExponentialsMatchTheirFormulasBitForBit) {
  TRN_REQUIRE_SSE();
  const std::uint32_t n = static_cast<std::uint32_t>(GetParam());
  // Wide range including NaN, infinities and arguments far outside the sane
  // domain: the rendering follows the same integer conversions.
  const std::vector<float> x = TestValues(n, -120.0f, 120.0f, 7 + n, 9);
  ExpectBulkAndTail(fn::sigmoid_sse_f32_m1, SigmoidM1, SigmoidExact, 16, x, 0);
  ExpectBulkAndTail(fn::sigmoid_sse_f32_m2, SigmoidM2, SigmoidExact, 16, x, 1);
  ExpectBulkAndTail(fn::tanh_sse_f32_m1, TanhM1, TanhExact, 4, x, 2);
  ExpectBulkAndTail(fn::tanh_sse_f32_m2, TanhM2, TanhExact, 4, x, 3);
}

INSTANTIATE_TEST_SUITE_P(Counts, SseActivationCounts, ::testing::Range(0, 71), TRN_INDEX_NAMES);

// Stated error bounds over each exponential's sane domain, sampled densely.
// Measured worst cases (2^20 samples): rounding trick 4.3e-4 (sigmoid) and
// 1.7e-3 (tanh, near x = 0.15); bit pattern 1.0e-2 (sigmoid) and 4.02e-2
// (tanh, near x = 0.04); polynomial 1.2e-7 (one ulp).
TEST(SseFastExponential, ErrorBoundsAndExactTails) {
  TRN_REQUIRE_SSE();
  const std::uint32_t n = 1 << 16;
  EXPECT_LT(MaxAbsError(fn::sigmoid_sse_f32_m1, SigmoidExact, -80, 80, n), 5e-4f);
  EXPECT_LT(MaxAbsError(fn::tanh_sse_f32_m1, TanhExact, -80, 80, n), 2e-3f);
  EXPECT_LT(MaxAbsError(fn::sigmoid_sse_f32_m2, SigmoidExact, -700, 700, n), 1.1e-2f);
  EXPECT_LT(MaxAbsError(fn::tanh_sse_f32_m2, TanhExact, -700, 700, n), 4.5e-2f);
  EXPECT_LT(MaxAbsError(fn::sigmoid_sse_f32_m3, SigmoidExact, -1000, 1000, n), 2e-7f);
  // 17 elements: one 16-element step, the 17th through expf. Through a
  // volatile so that the compiler cannot fold the library calls.
  volatile float seven_tenths = 0.7f;
  const float v = seven_tenths;
  const std::vector<float> x(17, v);
  const std::vector<float> y = Apply(fn::sigmoid_sse_f32_m2, x);
  EXPECT_EQ(Bits(y[16]), Bits(SigmoidExact(v)));
  EXPECT_EQ(Bits(y[0]), Bits(SigmoidM2(v)));
  EXPECT_NE(Bits(y[0]), Bits(y[16]));  // the bulk is approximate
  // 3 elements of tanh: all through tanhf.
  for (float t : Apply(fn::tanh_sse_f32_m2, {v, v, v})) EXPECT_EQ(Bits(t), Bits(std::tanh(v)));
}

TEST(SseFastExponential, SseM3IsThePolynomialExponential) {
  TRN_REQUIRE_SSE();
  TRN_REQUIRE_AVX();
  const std::vector<float> x = TestValues(64, -150.0f, 150.0f, 5, 7);
  const std::vector<float> a = Apply(fn::sigmoid_sse_f32_m3, x);
  EXPECT_TRUE(SameBits(a, Apply(fn::sigmoid_avx_f32_m1, x), true));
  auto t = MakeTensor(ElementContext(), {2, 4, 8}, x);
  fn::Sigmoid_SSE_F32_M3(t);
  EXPECT_TRUE(SameBits(Values(t), a, true));
}

TEST(SseActivationKernel, EachKernelRunsItsFunction) {
  TRN_REQUIRE_SSE();
  const std::vector<float> x = TestValues(53, -10.0f, 10.0f, 11, 8);
  const std::vector<unsigned> dims = {53};
  auto rec = std::make_shared<runtime::ActivationInfo>();
  ExpectActivation<kernel::ReLU_SSE_Float_M1>(x, dims, rec, false, Apply(fn::relu_f32, x));
  ExpectActivation<kernel::ReLU6_SSE_Float_M1>(x, dims, rec, false, Apply(fn::relu6_f32, x));
  ExpectActivation<kernel::Sigmoid_SSE_Float_M1>(x, dims, rec, false, Apply(fn::sigmoid_sse_f32_m2, x));
  ExpectActivation<kernel::TanH_SSE_Float_M1>(x, dims, rec, false, Apply(fn::tanh_sse_f32_m2, x));
  ExpectActivation<kernel::HSigmoid_SSE_Float_M1>(x, dims, rec, false, Apply(fn::hsigmoid_f32, x));
  ExpectActivation<kernel::HSwish_SSE_Float_M1>(x, dims, rec, false, Apply(fn::hswish_f32, x));
  ExpectActivation<kernel::ReLU_Inplace_SSE_Float_M1>(x, dims, rec, true, Apply(fn::relu_f32, x));
  ExpectActivation<kernel::HSigmoid_Inplace_SSE_Float_M1>(x, dims, rec, true, Apply(fn::hsigmoid_f32, x));
  rec->activation_alpha = half_float::half(0.25f);
  std::vector<float> leaky(x.size()), prelu(x);
  fn::leaky_f32(x.data(), static_cast<std::uint32_t>(x.size()), 0.25f, leaky.data());
  ExpectActivation<kernel::Leaky_SSE_Float_M1>(x, dims, rec, false, leaky);
  rec->weight = runtime::EncodeWeights({3.0f, 1.0f});
  fn::prelu_f32(prelu.data(), static_cast<std::uint32_t>(x.size()), 3.0f);
  ExpectActivation<kernel::PReLU_SSE_Float_M1>(x, dims, rec, true, prelu);
  // Without a weight, PReLU stays unconfigured.
  kernel::PReLU_SSE_Float_M1 k;
  EXPECT_FALSE(k.Config(std::make_shared<runtime::ActivationInfo>(), nullptr, ElementContext()));
  EXPECT_FALSE(k.IsConfiged());
}

}  // namespace
}  // namespace testing
}  // namespace tarn
