// Portable activations: the element rules (signs, NaN, saturation), the
// 8-element blocking with and without overlap, the kernels' record handling,
// the legacy code map, and agreement with PyTorch.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/fallback/activation/activation.h"
#include "reference/reference_data.h"
#include "tarn/kernel/activation.h"

namespace tarn {
namespace testing {
namespace {

using kernel::functional::ActivationElementCount;
namespace fn = kernel::functional;

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

float Apply1(ElementFn f, float x) { return Apply(f, {x})[0]; }

// The element rules, bit-exact (a quiet NaN without payload, kNaN, stands for
// any NaN). ReLU clears negatives and -0.0 to +0.0 and keeps NaN payloads;
// ReLU6 saturates at exactly six; HSigmoid gives 0 for NaN (!(NaN > 0));
// HSwish gives x * 0.0 for x <= -3, so -0.0 on purpose and NaN for -inf, and
// large inputs as they are.
TEST(ActivationScalar, ElementRules) {
  const float payload = FromBits(0x7fc12345u), sixth = 0.16666667f;
  const std::pair<ElementFn, std::vector<std::pair<float, float>>> rules[] = {
      {fn::relu_f32, {{-2.5f, 0.0f}, {-0.0f, 0.0f}, {3.25f, 3.25f}, {payload, payload}, {-kInf, 0.0f}, {kInf, kInf}}},
      {fn::relu6_f32, {{7.5f, 6.0f}, {kInf, 6.0f}, {-1.0f, 0.0f}, {5.999f, 5.999f}, {kNaN, kNaN}}},
      {fn::hsigmoid_f32,
       {{3.0f, 1.0f}, {100.0f, 1.0f}, {-3.0f, 0.0f}, {-50.0f, 0.0f}, {0.0f, 3.0f * sixth}, {kNaN, 0.0f}}},
      {fn::hswish_f32,
       {{-4.0f, -0.0f}, {-3.0f, -0.0f}, {3.0f, 3.0f}, {1234.5f, 1234.5f}, {1.0f, 4.0f * sixth}, {-kInf, kNaN}}}};
  for (const auto& [f, cases] : rules) {
    for (const auto& [x, want] : cases) {
      const float got = Apply1(f, x);
      EXPECT_TRUE(Bits(got) == Bits(want) || (Bits(want) == Bits(kNaN) && std::isnan(got))) << x << " gave " << got;
    }
  }
}

TEST(ActivationScalar, LeakyAndLinear) {
  float y;
  const std::uint32_t one = 1;
  float x = -8.0f;
  fn::leaky_f32(&x, one, 0.125f, &y);
  EXPECT_EQ(y, -1.0f);
  x = kNaN;
  fn::leaky_f32(&x, one, 0.125f, &y);
  EXPECT_TRUE(std::isnan(y));
  // linear is one fused multiply-add: no intermediate rounding.
  x = 1.0f + std::ldexp(1.0f, -12);
  fn::linear_f32(&x, one, 1.0f - std::ldexp(1.0f, -12), -1.0f, &y);
  EXPECT_EQ(y, -std::ldexp(1.0f, -24));
}

// relu_f32 / relu6_f32 / linear_f32 take 8 per step only when source and
// destination are 8 floats apart; in place they run a plain loop. Every path
// must give the scalar rule.
class ActivationFallbackCounts : public ::testing::TestWithParam<int> {};

TEST_P(ActivationFallbackCounts, BlockedAndInPlacePathsAgree) {
  const std::uint32_t n = static_cast<std::uint32_t>(GetParam());
  const std::vector<float> x = TestValues(n + 3, -9.0f, 9.0f, n, 5);
  for (auto f : {fn::relu_f32, fn::relu6_f32}) {
    std::vector<float> apart(n), shifted(x.begin(), x.end()), expect(n);
    f(x.data(), n, apart.data());
    for (std::uint32_t i = 0; i < n; ++i) expect[i] = Apply1(f, x[i]);
    EXPECT_TRUE(SameBits(apart, expect));
    // Overlapping by 3 floats: the plain loop reads each source before it is overwritten.
    f(shifted.data() + 3, n, shifted.data());
    for (std::uint32_t i = 0; i < n; ++i) expect[i] = Apply1(f, x[i + 3]);
    EXPECT_TRUE(SameBits(shifted.data(), expect.data(), n));
  }
  std::vector<float> lin(n), expect(n);
  fn::linear_f32(x.data(), n, 0.75f, 0.5f, lin.data());
  for (std::uint32_t i = 0; i < n; ++i) expect[i] = std::fma(x[i], 0.75f, 0.5f);
  EXPECT_TRUE(SameBits(lin, expect, true));
}

INSTANTIATE_TEST_SUITE_P(Counts, ActivationFallbackCounts, ::testing::Range(0, 71), TRN_INDEX_NAMES);

TEST(ActivationKernel, CountIsTheDimProductAndOneWithoutDims) {
  EXPECT_EQ(ActivationElementCount(runtime::MakeShape({2, 3, 5})), 30u);
  EXPECT_EQ(ActivationElementCount(runtime::MakeShape({})), 1u);
  EXPECT_EQ(ActivationElementCount(runtime::MakeShape({4, 0, 5})), 0u);
  // The tensor helpers: a rank-zero tensor is one element, an empty one is not touched.
  auto ctx = ElementContext();
  auto t = MakeTensor(ctx, {}, {0.0f});
  fn::Sigmoid_F32_M2(t);
  EXPECT_EQ(t->DataAs<float>()[0], 0.5f);
  auto empty = MakeTensor(ctx, {0, 4}, {});
  fn::Sigmoid_F32_M2(empty);
  fn::PReLU_F32(empty, 2.0f);
}

TEST(ActivationKernel, OutOfPlaceRecordAndInputChecks) {
  auto ctx = ElementContext();
  auto in = MakeTensor(ctx, {2, 2, 2, 4}, TestValues(32, -5, 5, 1), runtime::TensorShape::C4HW4);
  const std::vector<float> before = Values(in);
  auto k = Configured<kernel::ReLU6_Fallback_Float_M1>(std::make_shared<runtime::ActivationInfo>(), ctx);
  EXPECT_EQ(k->GetOutputShapes({in->shape})[0], in->shape);
  auto out = RunKernel(k, {in}, ctx);
  ASSERT_TRUE(out);
  EXPECT_NE(out.get(), in.get());
  EXPECT_EQ(out->shape, in->shape);
  EXPECT_TRUE(SameBits(Values(in), before));
  for (size_t i = 0; i < 32; ++i) EXPECT_EQ(Values(out)[i], std::min(std::max(before[i], 0.0f), 6.0f));
  // A record of another type is a fatal error.
  kernel::Sigmoid_Fallback_Float_M1 s;
  EXPECT_EQ(s.IsValidParam(std::make_shared<runtime::InputInfo>(), nullptr), kernel::kInvalidParam);
  EXPECT_NE(ThrownMessage([&] { s.Config(std::make_shared<runtime::InputInfo>(), nullptr, ctx); }), "");
  EXPECT_NE(ThrownMessage([&] { s.Config(nullptr, nullptr, ctx); }), "");
  EXPECT_FALSE(s.IsConfiged());
  // One float tensor whose element count fits 32 bits (a larger one would wrap the count).
  kernel::ReLU_Fallback_Float_M1 r;
  auto f = MakeTensor(ctx, {3}, {1, 2, 3});
  float dummy = 0;
  EXPECT_EQ(r.IsValidInput({f}), 0);
  EXPECT_EQ(r.IsValidInput({}), kernel::kInvalidTensor);
  EXPECT_EQ(r.IsValidInput({f, f}), kernel::kInvalidTensor);
  EXPECT_EQ(r.IsValidInput({ctx->cpu->CreateTensor(runtime::MakeShape({3}, runtime::TensorShape::INT32))}),
            kernel::kInvalidTensor);
  EXPECT_EQ(r.IsValidInput({nullptr}), kernel::kInvalidTensor);
  EXPECT_EQ(r.IsValidInput({ctx->cpu->CreateExternalTensor(runtime::MakeShape({65536, 65536, 2}), &dummy)}),
            kernel::kInvalidTensor);
}

TEST(ActivationKernel, LeakyAndLinearTakeTheWidenedHalves) {
  auto ctx = ElementContext();
  kernel::Linear_Fallback_Float_M1 fresh;
  EXPECT_EQ(fresh.params->alpha, 1.0f);
  EXPECT_EQ(fresh.params->beta, 0.0f);
  auto rec = std::make_shared<runtime::ActivationInfo>();
  // With the default record Linear is the identity in value: fmaf(-0.0, 1,
  // +0.0) is +0.0, so zeros lose their sign.
  const std::vector<float> x = TestValues(37, -1e6f, 1e6f, 3, 6);
  auto out = RunKernel(Configured<kernel::Linear_Fallback_Float_M1>(rec, ctx), {MakeTensor(ctx, {37}, x)}, ctx);
  ASSERT_TRUE(out);
  const std::vector<float> y = Values(out);
  for (size_t i = 0; i < x.size(); ++i) EXPECT_TRUE(y[i] == x[i] || (std::isnan(y[i]) && std::isnan(x[i]))) << i;
  rec->activation_alpha = half_float::half(0.1f);  // 0.0999755859375 as a half
  rec->activation_beta = half_float::half(-0.5f);
  auto leaky = Configured<kernel::Leaky_Fallback_Float_M1>(rec, ctx);
  EXPECT_EQ(leaky->alpha, 0.0999755859375f);
  auto linear = Configured<kernel::Linear_Fallback_Float_M1>(rec, ctx);
  EXPECT_EQ(linear->params->alpha, 0.0999755859375f);
  EXPECT_EQ(linear->params->beta, -0.5f);
  auto in = MakeTensor(ctx, {4}, {-10, 10, 0, 2});
  out = RunKernel(linear, {in}, ctx);
  ASSERT_TRUE(out);
  EXPECT_EQ(Values(out)[0], std::fma(-10.0f, 0.0999755859375f, -0.5f));
  EXPECT_EQ(Values(RunKernel(leaky, {in}, ctx))[0], -10.0f * 0.0999755859375f);
}

TEST(ActivationKernel, PReLUUsesOnlyTheFirstSlopeAndWorksInPlace) {
  auto ctx = ElementContext();
  auto rec = std::make_shared<runtime::ActivationInfo>();
  rec->num_parameters = 3;
  rec->weight = runtime::EncodeWeights({0.5f, 7.0f, 9.0f});
  auto k = Configured<kernel::PReLU_Fallback_Float_M1>(rec, ctx);
  EXPECT_EQ(k->slope, 0.5f);
  auto in = MakeTensor(ctx, {3, 1, 2}, {-2, 2, -0.0f, kNaN, -kInf, 4});
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  ASSERT_TRUE(k->Forward({in}, outputs, ctx));
  ASSERT_EQ(outputs.size(), 1u);
  EXPECT_EQ(outputs[0].get(), in.get());
  const std::vector<float> v = Values(in);
  EXPECT_EQ(v[0], -1.0f);
  EXPECT_EQ(v[1], 2.0f);
  EXPECT_EQ(Bits(v[2]), Bits(-0.0f));  // not negative: untouched
  EXPECT_TRUE(std::isnan(v[3]));
  EXPECT_EQ(v[4], -kInf);
  // Without a decodable weight it stays unconfigured.
  kernel::PReLU_Fallback_Float_M1 none;
  EXPECT_FALSE(none.Config(std::make_shared<runtime::ActivationInfo>(), nullptr, ctx));
  EXPECT_FALSE(none.IsConfiged());
  rec->weight = "AAA";  // decodes to fewer than 4 bytes: no float
  EXPECT_FALSE(none.Config(rec, nullptr, ctx));
}

TEST(ActivationLegacy, TransActivationTypeFrom1To2) {
  const std::pair<int, int> map[] = {{0, 0}, {1, 1}, {2, 2}, {3, 5}, {4, 6}, {5, 7}, {6, 4}, {8, 3}};
  for (const auto& m : map) EXPECT_EQ(fn::TransActivationTypeFrom1To2(m.first), m.second) << m.first;
  for (int code : {7, 9, 255, 65535}) {
    EXPECT_NE(ThrownMessage([&] { fn::TransActivationTypeFrom1To2(code); }).find("Not Implemented."), std::string::npos)
        << code;
  }
}

// ---------------------------------------------------------------------------
// PyTorch: relu, relu6, sigmoid, tanh, hardsigmoid, hardswish, leaky_relu, prelu.

template <typename K>
std::vector<float> RunOn(const RefCase& c, const std::shared_ptr<runtime::ActivationInfo>& rec) {
  auto ctx = ElementContext();
  auto in = MakeTensor(ctx, {static_cast<unsigned>(c.inputs[0].data.size())}, c.inputs[0].data);
  auto out = RunKernel(Configured<K>(rec, ctx), {in}, ctx);
  return out ? Values(out) : std::vector<float>();
}

TEST(ActivationReference, FallbackKernelsMatchPyTorch) {
  const auto cases = LoadReference("element_activation");
  ASSERT_EQ(cases.size(), 8u) << "run tests/reference/make_reference_data.py";
  for (const auto& c : cases) {
    auto rec = std::make_shared<runtime::ActivationInfo>();
    auto params = ParseParams(c);
    if (params.HasMember("alpha"))
      rec->activation_alpha = half_float::half(static_cast<float>(params["alpha"].GetDouble()));
    if (params.HasMember("slope"))
      rec->weight = runtime::EncodeWeights({static_cast<float>(params["slope"].GetDouble())});
    std::vector<float> got;
    // Ulps allowed: exact for the piecewise-linear ops; the library's 1/6 is
    // the float 0.16666667 where PyTorch divides by 6, and expf/tanhf may
    // differ from PyTorch's vectorised forms by a couple of ulps.
    std::int64_t ulps = 0;
    if (c.op == "relu") got = RunOn<kernel::ReLU_Fallback_Float_M1>(c, rec);
    if (c.op == "relu6") got = RunOn<kernel::ReLU6_Fallback_Float_M1>(c, rec);
    if (c.op == "sigmoid") got = RunOn<kernel::Sigmoid_Fallback_Float_M1>(c, rec), ulps = 4;
    if (c.op == "tanh") got = RunOn<kernel::TanH_Fallback_Float_M1>(c, rec), ulps = 4;
    if (c.op == "hardsigmoid") got = RunOn<kernel::HSigmoid_Fallback_Float_M1>(c, rec), ulps = 2;
    if (c.op == "hardswish") got = RunOn<kernel::HSwish_Fallback_Float_M1>(c, rec), ulps = 3;
    if (c.op == "leaky_relu") got = RunOn<kernel::Leaky_Fallback_Float_M1>(c, rec);
    if (c.op == "prelu") got = RunOn<kernel::PReLU_Fallback_Float_M1>(c, rec);
    const auto& want = c.outputs[0].data;
    ASSERT_EQ(got.size(), want.size()) << c.name;
    for (size_t i = 0; i < want.size(); ++i) {
      // Values near zero compare absolutely (torch's -0.0 / +0.0 choices differ).
      const bool ok = UlpDistance(got[i], want[i]) <= ulps || std::fabs(got[i] - want[i]) <= 1e-7f;
      EXPECT_TRUE(ok) << c.name << " x=" << c.inputs[0].data[i] << " got " << got[i] << " want " << want[i];
    }
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn
