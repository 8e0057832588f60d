// Portable element-wise kernel: the four operations over every tail of the
// 8-element step, the overlap rule, code handling and input checks.
#include <gtest/gtest.h>

#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/fallback/elementwise/elementwise.h"

namespace tarn {
namespace testing {
namespace {

namespace fn = kernel::functional;

class FallbackElementwiseCounts : public ::testing::TestWithParam<int> {};

TEST_P(FallbackElementwiseCounts, OperationsAndOverlap) {
  const std::uint32_t n = static_cast<std::uint32_t>(GetParam());
  const std::vector<float> a = TestValues(n + 8, -4.0f, 4.0f, n, 7), b = TestValues(n + 8, -4.0f, 4.0f, n + 99, 5);
  const std::pair<BinaryFn, float (*)(float, float)> cases[] = {{fn::elementwise_add_f32_m1, Plus},
                                                                {fn::elementwise_sub_f32_m1, Minus},
                                                                {fn::elementwise_mul_f32_m1, Times},
                                                                {fn::elementwise_div_f32_m1, Over}};
  for (const auto& [f, op] : cases) {
    ExpectBinaryForms({{f, op, op}}, a, b, n, 1);
    // Destination one float behind the first source: the plain loop still
    // reads a[i] before writing it.
    std::vector<float> shared(a), want(n);
    f(shared.data() + 1, b.data(), n, shared.data());
    for (std::uint32_t i = 0; i < n; ++i) want[i] = op(a[i + 1], b[i]);
    EXPECT_TRUE(SameBits(shared.data(), want.data(), n, true));
  }
}

INSTANTIATE_TEST_SUITE_P(Counts, FallbackElementwiseCounts, ::testing::Range(0, 71), TRN_INDEX_NAMES);

TEST(FallbackElementwise, CodesZeroToThreeOnly) {
  EXPECT_EQ(fn::ElementwiseOpName(0), "Add");
  EXPECT_EQ(fn::ElementwiseOpName(1), "Sub");
  EXPECT_EQ(fn::ElementwiseOpName(2), "Mul");
  EXPECT_EQ(fn::ElementwiseOpName(3), "Div");
  for (std::uint16_t code : {4, 5, 6, 65535}) {
    EXPECT_EQ(ThrownMessage([&] { fn::ElementwiseOpName(code); }), "Invalid element wise type") << code;
  }
  auto ctx = ElementContext();
  kernel::Elementwise_Fallback_Float_M1 k;
  EXPECT_EQ(ThrownMessage([&] { k.Config(ElementwiseOp(4), nullptr, ctx); }), "Invalid element wise type");
  EXPECT_FALSE(k.IsConfiged());
  EXPECT_EQ(k.IsValidParam(std::make_shared<runtime::BroadcastOperatorInfo>(), nullptr), kernel::kInvalidParam);
  EXPECT_EQ(k.IsValidParam(ElementwiseOp(0), std::make_shared<runtime::InferenceParam>()), kernel::kInvalidParam);
  EXPECT_FALSE(k.Config(ElementwiseOp(0), std::make_shared<runtime::InferenceParam>(), ctx));
}

TEST(FallbackElementwise, KernelRunsTheConfiguredOperationOnEqualCounts) {
  auto ctx = ElementContext();
  // 9 elements: one 8-element step and one scalar element.
  auto a = MakeTensor(ctx, {1, 3, 3}, {1, 2, 3, 4, 5, 6, 7, 8, 9});
  auto b = MakeTensor(ctx, {1, 3, 3}, {2, 2, 2, 2, 2, 2, 2, 2, 0});
  const std::vector<std::vector<float>> expect = {{3, 4, 5, 6, 7, 8, 9, 10, 9},
                                                  {-1, 0, 1, 2, 3, 4, 5, 6, 9},
                                                  {2, 4, 6, 8, 10, 12, 14, 16, 0},
                                                  {0.5f, 1, 1.5f, 2, 2.5f, 3, 3.5f, 4, INFINITY}};
  for (std::uint16_t code = 0; code < 4; ++code) {
    auto k = Configured<kernel::Elementwise_Fallback_Float_M1>(ElementwiseOp(code), ctx);
    auto out = RunKernel(k, {a, b}, ctx);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->shape, a->shape);
    EXPECT_EQ(Values(out), expect[code]) << k->op_name;
  }
  // Unconfigured: nothing is computed, and no unwritten tensor is handed out.
  kernel::Elementwise_Fallback_Float_M1 k;
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_FALSE(k.Forward({a, b}, outputs, ctx));
  EXPECT_TRUE(outputs.empty());
  // Inputs: any dims holding the same element count.
  a = MakeTensor(ctx, {2, 3}, {});
  EXPECT_EQ(k.IsValidInput({a, MakeTensor(ctx, {6}, {})}), 0);
  EXPECT_EQ(k.IsValidInput({a, MakeTensor(ctx, {5}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(k.IsValidInput({a}), kernel::kInvalidTensor);
  EXPECT_EQ(k.IsValidInput({a, a, a}), kernel::kInvalidTensor);
  EXPECT_EQ(k.IsValidInput({a, ctx->cpu->CreateTensor(runtime::MakeShape({2, 3}, runtime::TensorShape::INT16))}),
            kernel::kInvalidTensor);
  EXPECT_EQ(k.IsValidInput({a, nullptr}), kernel::kInvalidTensor);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
