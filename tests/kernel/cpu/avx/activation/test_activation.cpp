// AVX activations: every tail of the 64/16/4-element blocking against the
// scalar forms, and the polynomial exponential of the AVX sigmoid bit for bit
// against a scalar rendering of its formula plus its error against expf.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/activation/activation.h"
#include "kernel/cpu/element_test_util.h"

namespace tarn {
namespace testing {
namespace {

namespace fn = kernel::functional;

// The polynomial exponential and the sigmoid around it, one float at a time,
// with the vector instructions' rules spelled out: min/max return the second
// operand for NaN (so a NaN input clamps to 88.37626), and every multiply-add
// is one fused operation.
float SigmoidPolynomial(float x) {
  float z = 0.0f - x;
  z = z < 88.37626f ? z : 88.37626f;
  z = z > -88.37626f ? z : -88.37626f;
  float fx = std::fma(z, 1.442695f, 0.5f);
  const float fl = std::floor(fx);
  fx = fl - (fl > fx ? 1.0f : 0.0f);
  float r = std::fma(-fx, 0.693359375f, z);
  r = std::fma(-fx, -0.00021219444f, r);
  float p = 0.00019875691f;
  p = std::fma(p, r, 0.0013981999f);
  p = std::fma(p, r, 0.0083334520f);
  p = std::fma(p, r, 0.041665796f);
  p = std::fma(p, r, 0.16666666f);
  p = std::fma(p, r, 0.5f);
  float y = std::fma(r * r, p, r);
  y = y + 1.0f;
  const float pow2 = FromBits(static_cast<std::uint32_t>(static_cast<std::int32_t>(fx) + 127) << 23);
  return 1.0f / std::fma(pow2, y, 1.0f);
}

float SigmoidExact(float x) { return 1.0f / (std::exp(-x) + 1.0f); }

class AvxActivationCounts : public ::testing::TestWithParam<int> {};

TEST_P(AvxActivationCounts, VectorFormsEqualScalarForms) {
  TRN_REQUIRE_AVX();
  const std::uint32_t n = static_cast<std::uint32_t>(GetParam());
  ExpectVectorFormsEqualScalarForms(TestValues(n, -9.0f, 9.0f, 300 + n, 6),
                                    {{fn::relu_avx_f32_m1, fn::relu_f32},
                                     {fn::relu6_avx_f32_m1, fn::relu6_f32},
                                     {fn::hswish_avx_f32_m1, fn::hswish_f32}},
                                    fn::leaky_avx_f32_m1, 0.0999755859375f, fn::prelu_avx_f32_m1, 0.75f);
}

TEST_P(AvxActivationCounts, PolynomialSigmoidMatchesItsFormulaBitForBit) {
  TRN_REQUIRE_AVX();
  const std::uint32_t n = static_cast<std::uint32_t>(GetParam());
  ExpectBulkAndTail(fn::sigmoid_avx_f32_m1, SigmoidPolynomial, SigmoidExact, 8,
                    TestValues(n, -110.0f, 110.0f, 17 + n, 7), 0);
}

INSTANTIATE_TEST_SUITE_P(Counts, AvxActivationCounts, ::testing::Range(0, 71), TRN_INDEX_NAMES);

TEST(AvxPolynomialExponential, ErrorBoundAndClamp) {
  TRN_REQUIRE_AVX();
  // |sigmoid error| < 2e-7 (about 2 ulp at 0.5) everywhere, thanks to the clamp.
  EXPECT_LT(MaxAbsError(fn::sigmoid_avx_f32_m1, SigmoidExact, -200.0f, 200.0f, 8192), 2e-7f);
  // x = -100: z = 100 is clamped to 88.37626, giving a tiny positive number.
  const float tiny = Apply(fn::sigmoid_avx_f32_m1, std::vector<float>(8, -100.0f))[0];
  EXPECT_GT(tiny, 0.0f);
  EXPECT_LT(tiny, 1e-37f);
  EXPECT_FALSE(std::isnan(tiny));
  EXPECT_EQ(Apply(fn::sigmoid_avx_f32_m1, std::vector<float>(8, 100.0f))[0], 1.0f);
}

TEST(AvxActivationKernel, EachKernelRunsItsFunction) {
  TRN_REQUIRE_AVX();
  const std::vector<float> x = TestValues(3 * 29, -12.0f, 12.0f, 23, 9);
  const std::uint32_t n = static_cast<std::uint32_t>(x.size());
  const std::vector<unsigned> dims = {1, 3, 29};
  auto rec = std::make_shared<runtime::ActivationInfo>();
  ExpectActivation<kernel::ReLU_AVX_Float_M1>(x, dims, rec, false, Apply(fn::relu_f32, x));
  ExpectActivation<kernel::ReLU6_AVX_Float_M1>(x, dims, rec, false, Apply(fn::relu6_f32, x));
  ExpectActivation<kernel::HSwish_AVX_Float_M1>(x, dims, rec, false, Apply(fn::hswish_f32, x));
  std::vector<float> sig(n), leaky(n), prelu(x);
  for (std::uint32_t i = 0; i < n; ++i) sig[i] = i < (n & ~7u) ? SigmoidPolynomial(x[i]) : SigmoidExact(x[i]);
  ExpectActivation<kernel::Sigmoid_AVX_Float_M1>(x, dims, rec, false, sig);
  rec->activation_alpha = half_float::half(0.5f);
  fn::leaky_f32(x.data(), n, 0.5f, leaky.data());
  ExpectActivation<kernel::Leaky_AVX_Float_M1>(x, dims, rec, false, leaky);
  rec->weight = runtime::EncodeWeights({-0.5f});
  fn::prelu_f32(prelu.data(), n, -0.5f);
  ExpectActivation<kernel::PReLU_AVX_Float_M1>(x, dims, rec, true, prelu);
  auto t = MakeTensor(ElementContext(), {n}, x);
  fn::PReLU_AVX_F32_M1(t, -0.5f);
  EXPECT_TRUE(SameBits(Values(t), prelu, true));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
