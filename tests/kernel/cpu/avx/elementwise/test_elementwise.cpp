// AVX element-wise kernels: each operation over every tail of its vector
// steps against the scalar operation, the Max/Min NaN rules, and the checks.
#include <gtest/gtest.h>

#include <cmath>

#include "kernel/cpu/avx/elementwise/elementwise.h"
#include "kernel/cpu/element_test_util.h"
#include "tarn/kernel/elementwise.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

namespace fn = kernel::functional;
using BinaryFn = void (*)(const float*, const float*, const std::uint32_t&, float*);

std::shared_ptr<runtime::ElementWiseOperatorInfo> Op(std::uint16_t code) {
  auto r = std::make_shared<runtime::ElementWiseOperatorInfo>();
  r->op_type = code;
  return r;
}

// The packed max/min return b when either is NaN; the scalar tail keeps a.
float VectorMax(float a, float b) { return a > b ? a : b; }
float VectorMin(float a, float b) { return a < b ? a : b; }
float TailMax(float a, float b) { return b > a ? b : a; }
float TailMin(float a, float b) { return b < a ? b : a; }

struct OpCase {
  BinaryFn f;
  float (*bulk)(float, float);
  float (*tail)(float, float);
};

const OpCase kCases[] = {
    {fn::elementwise_add_avx_f32_m1, [](float x, float y) { return x + y; }, [](float x, float y) { return x + y; }},
    {fn::elementwise_sub_avx_f32_m1, [](float x, float y) { return x - y; }, [](float x, float y) { return x - y; }},
    {fn::elementwise_mul_avx_f32_m1, [](float x, float y) { return x * y; }, [](float x, float y) { return x * y; }},
    {fn::elementwise_div_avx_f32_m1, [](float x, float y) { return x / y; }, [](float x, float y) { return x / y; }},
    {fn::elementwise_max_avx_f32_m1, VectorMax, TailMax},
    {fn::elementwise_min_avx_f32_m1, VectorMin, TailMin},
};

class AVXElementwiseCounts : public ::testing::TestWithParam<int> {};

TEST_P(AVXElementwiseCounts, EveryOperationEqualsItsScalarForm) {
  TRN_REQUIRE_AVX();
  const std::uint32_t n = static_cast<std::uint32_t>(GetParam());
  const std::uint32_t width = std::string("AVX") == "SSE" ? 4 : 8;
  const std::uint32_t bulk = n / width * width;
  const std::vector<float> a = TestValues(n, -3.0f, 3.0f, 40 + n, 4), b = TestValues(n, -3.0f, 3.0f, 90 + n, 3);
  int which = 0;
  for (const auto& c : kCases) {
    std::vector<float> got(n), want(n);
    c.f(a.data(), b.data(), n, got.data());
    for (std::uint32_t i = 0; i < n; ++i) want[i] = i < bulk ? c.bulk(a[i], b[i]) : c.tail(a[i], b[i]);
    // Bit-exact except where the hardware picks one of two NaN operands.
    EXPECT_TRUE(SameBits(got.data(), want.data(), n, true)) << "operation " << which;
    ++which;
  }
}

INSTANTIATE_TEST_SUITE_P(Counts, AVXElementwiseCounts, ::testing::Range(0, 71), TRN_INDEX_NAMES);

TEST(AVXElementwise, MaxNaNRuleDiffersBetweenVectorAndTail) {
  TRN_REQUIRE_AVX();
  const std::uint32_t width = std::string("AVX") == "SSE" ? 4 : 8;
  const std::uint32_t n = width + 1;
  std::vector<float> a(n, NAN), b(n, 1.0f), out(n);
  fn::elementwise_max_avx_f32_m1(a.data(), b.data(), n, out.data());
  EXPECT_EQ(out[0], 1.0f);              // packed maximum: b
  EXPECT_TRUE(std::isnan(out[n - 1]));  // tail: b > a is false, a stays
  fn::elementwise_min_avx_f32_m1(a.data(), b.data(), n, out.data());
  EXPECT_EQ(out[0], 1.0f);
  EXPECT_TRUE(std::isnan(out[n - 1]));
}

template <typename K>
void ExpectSelectedBy(std::uint16_t code, bool selected) {
  K k;
  EXPECT_EQ(k.IsValidParam(Op(code), nullptr), selected ? 0 : kernel::kInvalidParam) << k.GetName() << " " << code;
}

TEST(AVXElementwise, EachKernelAnswersOnlyItsOwnCode) {
  for (std::uint16_t code = 0; code < 4; ++code) {
    ExpectSelectedBy<kernel::Elementwise_Add_AVX_Float_M1>(code, code == 0);
    ExpectSelectedBy<kernel::Elementwise_Sub_AVX_Float_M1>(code, code == 1);
    ExpectSelectedBy<kernel::Elementwise_Mul_AVX_Float_M1>(code, code == 2);
    ExpectSelectedBy<kernel::Elementwise_Div_AVX_Float_M1>(code, code == 3);
    ExpectSelectedBy<kernel::Elementwise_Max_AVX_Float_M1>(code, false);
    ExpectSelectedBy<kernel::Elementwise_Min_AVX_Float_M1>(code, false);
  }
  // No code names Max: code 4 fails the assertion even for the Max kernel.
  kernel::Elementwise_Max_AVX_Float_M1 max;
  EXPECT_EQ(ThrownMessage([&] { max.IsValidParam(Op(4), nullptr); }), "Invalid element wise type");
  EXPECT_EQ(ThrownMessage([&] { max.Config(Op(4), nullptr, ElementContext()); }), "Invalid element wise type");
  kernel::Elementwise_Add_AVX_Float_M1 add;
  EXPECT_EQ(add.IsValidParam(Op(0), std::make_shared<runtime::InferenceParam>()), kernel::kInvalidParam);
  EXPECT_EQ(add.IsValidParam(std::make_shared<runtime::ActivationInfo>(), nullptr), kernel::kInvalidParam);
}

TEST(AVXElementwise, KernelsNeedIdenticalShapes) {
  TRN_REQUIRE_AVX();
  auto ctx = ElementContext();
  kernel::Elementwise_Sub_AVX_Float_M1 k;
  ASSERT_TRUE(k.Config(Op(1), nullptr, ctx));
  auto a = MakeTensor(ctx, {2, 5, 5, 4}, TestValues(200, -1, 1, 1), runtime::TensorShape::C4HW4);
  auto b = MakeTensor(ctx, {2, 5, 5, 4}, TestValues(200, -1, 1, 2), runtime::TensorShape::C4HW4);
  auto chw = MakeTensor(ctx, {2, 5, 5, 4}, {}, runtime::TensorShape::CHW);
  auto other = MakeTensor(ctx, {2, 5, 4, 5}, {}, runtime::TensorShape::C4HW4);
  EXPECT_EQ(k.IsValidInput({a, chw}), kernel::kInvalidTensor);
  EXPECT_EQ(k.IsValidInput({a, other}), kernel::kInvalidTensor);
  EXPECT_EQ(k.IsValidInput({a}), kernel::kInvalidTensor);
  auto out = RunKernel(std::make_shared<kernel::Elementwise_Sub_AVX_Float_M1>(k), {a, b}, ctx);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->shape, a->shape);
  for (size_t i = 0; i < 200; ++i) EXPECT_EQ(Values(out)[i], Values(a)[i] - Values(b)[i]);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
