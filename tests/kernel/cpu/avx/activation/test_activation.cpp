// AVX activations: every tail of the 64/16/4-element blocking against the
// scalar forms, and the polynomial exponential of the AVX sigmoid bit for bit
// against a scalar rendering of its formula plus its error against expf.
#include <gtest/gtest.h>

#include <cmath>

#include "kernel/cpu/avx/activation/activation.h"
#include "kernel/cpu/element_test_util.h"
#include "tarn/kernel/activation.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

namespace fn = kernel::functional;
using ElementFn = void (*)(const float*, const std::uint32_t&, float*);

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
  const std::vector<float> x = TestValues(n, -9.0f, 9.0f, 300 + n, 6);
  const std::pair<ElementFn, ElementFn> pairs[] = {{fn::relu_avx_f32_m1, fn::relu_f32},
                                                   {fn::relu6_avx_f32_m1, fn::relu6_f32},
                                                   {fn::hswish_avx_f32_m1, fn::hswish_f32}};
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
  const float alpha = 0.0999755859375f;
  std::vector<float> got(n), want(n);
  fn::leaky_avx_f32_m1(x.data(), n, alpha, got.data());
  fn::leaky_f32(x.data(), n, alpha, want.data());
  EXPECT_TRUE(SameBits(got.data(), want.data(), n, true));
  std::vector<float> a(x), b(x);
  fn::prelu_avx_f32_m1(a.data(), n, 0.75f);
  fn::prelu_f32(b.data(), n, 0.75f);
  EXPECT_TRUE(SameBits(a.data(), b.data(), n));
}

TEST_P(AvxActivationCounts, PolynomialSigmoidMatchesItsFormulaBitForBit) {
  TRN_REQUIRE_AVX();
  const std::uint32_t n = static_cast<std::uint32_t>(GetParam());
  const std::vector<float> x = TestValues(n, -110.0f, 110.0f, 17 + n, 7);
  std::vector<float> got(n), want(n);
  fn::sigmoid_avx_f32_m1(x.data(), n, got.data());
  const std::uint32_t bulk = n & ~7u;
  for (std::uint32_t i = 0; i < n; ++i) want[i] = i < bulk ? SigmoidPolynomial(x[i]) : SigmoidExact(x[i]);
  EXPECT_TRUE(SameBits(got.data(), want.data(), n, true));
}

INSTANTIATE_TEST_SUITE_P(Counts, AvxActivationCounts, ::testing::Range(0, 71), TRN_INDEX_NAMES);

TEST(AvxPolynomialExponential, ErrorBoundAndClamp) {
  TRN_REQUIRE_AVX();
  // |sigmoid error| < 2e-7 (about 2 ulp at 0.5) everywhere, thanks to the clamp.
  const std::uint32_t n = 8192;
  std::vector<float> x(n), y(n);
  for (std::uint32_t i = 0; i < n; ++i) x[i] = -200.0f + 400.0f * static_cast<float>(i) / (n - 1);
  fn::sigmoid_avx_f32_m1(x.data(), n, y.data());
  float worst = 0;
  for (std::uint32_t i = 0; i < n; ++i) worst = std::max(worst, std::fabs(y[i] - SigmoidExact(x[i])));
  EXPECT_LT(worst, 2e-7f);
  // x = -100: z = 100 is clamped to 88.37626, giving a tiny positive number.
  std::vector<float> in(8, -100.0f), out(8);
  const std::uint32_t eight = 8;
  fn::sigmoid_avx_f32_m1(in.data(), eight, out.data());
  EXPECT_GT(out[0], 0.0f);
  EXPECT_LT(out[0], 1e-37f);
  EXPECT_FALSE(std::isnan(out[0]));
  std::fill(in.begin(), in.end(), 100.0f);
  fn::sigmoid_avx_f32_m1(in.data(), eight, out.data());
  EXPECT_EQ(out[0], 1.0f);
}

template <typename K>
std::vector<float> RunAvx(const std::vector<float>& x, const std::shared_ptr<runtime::ActivationInfo>& rec,
                          bool expect_in_place) {
  auto ctx = ElementContext();
  auto k = Configured<K>(rec, ctx);
  auto in = MakeTensor(ctx, {1, 3, static_cast<unsigned>(x.size() / 3)}, x);
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_EQ(k->IsValidInput({in}), 0);
  EXPECT_TRUE(k->Forward({in}, outputs, ctx));
  if (outputs.size() != 1) return {};
  EXPECT_EQ(outputs[0].get() == in.get(), expect_in_place) << k->GetName();
  return Values(outputs[0]);
}

TEST(AvxActivationKernel, EachKernelRunsItsFunction) {
  TRN_REQUIRE_AVX();
  const std::vector<float> x = TestValues(3 * 29, -12.0f, 12.0f, 23, 9);
  const std::uint32_t n = static_cast<std::uint32_t>(x.size());
  auto rec = std::make_shared<runtime::ActivationInfo>();
  auto expect = [&](ElementFn f) {
    std::vector<float> y(n);
    f(x.data(), n, y.data());
    return y;
  };
  auto same = [](const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && SameBits(a.data(), b.data(), a.size(), true);
  };
  EXPECT_TRUE(same(RunAvx<kernel::ReLU_AVX_Float_M1>(x, rec, false), expect(fn::relu_f32)));
  EXPECT_TRUE(same(RunAvx<kernel::ReLU6_AVX_Float_M1>(x, rec, false), expect(fn::relu6_f32)));
  EXPECT_TRUE(same(RunAvx<kernel::HSwish_AVX_Float_M1>(x, rec, false), expect(fn::hswish_f32)));
  std::vector<float> sig(n);
  for (std::uint32_t i = 0; i < n; ++i) sig[i] = i < (n & ~7u) ? SigmoidPolynomial(x[i]) : SigmoidExact(x[i]);
  EXPECT_TRUE(same(RunAvx<kernel::Sigmoid_AVX_Float_M1>(x, rec, false), sig));
  rec->activation_alpha = half_float::half(0.5f);
  std::vector<float> leaky(n);
  fn::leaky_f32(x.data(), n, 0.5f, leaky.data());
  EXPECT_TRUE(same(RunAvx<kernel::Leaky_AVX_Float_M1>(x, rec, false), leaky));
  rec->weight = runtime::EncodeWeights({-0.5f});
  std::vector<float> prelu(x);
  fn::prelu_f32(prelu.data(), n, -0.5f);
  EXPECT_TRUE(same(RunAvx<kernel::PReLU_AVX_Float_M1>(x, rec, true), prelu));
  auto t = MakeTensor(ElementContext(), {n}, x);
  fn::PReLU_AVX_F32_M1(t, -0.5f);
  EXPECT_TRUE(same(Values(t), prelu));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
