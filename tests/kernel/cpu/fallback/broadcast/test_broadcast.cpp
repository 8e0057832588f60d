// Broadcast operator: the operation table, the shape rules, and results
// against a direct nested-loop rendering.
#include <gtest/gtest.h>

#include <cmath>

#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/fallback/broadcast/broadcast.h"
#include "tarn/kernel/broadcast.h"

namespace tarn {
namespace testing {
namespace {

std::shared_ptr<runtime::Tensor> RunBroadcast(std::uint16_t code, const std::shared_ptr<runtime::TensorCPU>& a,
                                              const std::shared_ptr<runtime::TensorCPU>& b) {
  auto ctx = ElementContext();
  auto k = Configured<kernel::BroadcastOperator_Fallback_Float_M1>(BroadcastOp(code), ctx);
  return RunKernel(k, {a, b}, ctx);
}

TEST(BroadcastTable, OperationsAndNaNRule) {
  const auto& t = kernel::BroadcastOpType2Func;
  EXPECT_EQ(t.at(0)(5, 2), 7.0f);
  EXPECT_EQ(t.at(1)(5, 2), 3.0f);
  EXPECT_EQ(t.at(2)(5, 2), 10.0f);
  EXPECT_EQ(t.at(3)(5, 2), 2.5f);
  EXPECT_EQ(t.at(4)(5, 2), 5.0f);
  EXPECT_EQ(t.at(5)(5, 2), 2.0f);
  // The scalar max/min instruction: b whenever either is NaN.
  EXPECT_EQ(t.at(4)(NAN, 1.0f), 1.0f);
  EXPECT_TRUE(std::isnan(t.at(4)(1.0f, NAN)));
  EXPECT_EQ(t.at(5)(NAN, 1.0f), 1.0f);
  EXPECT_TRUE(std::isnan(t.at(5)(1.0f, NAN)));
  EXPECT_TRUE(std::isinf(t.at(3)(1.0f, 0.0f)));  // IEEE, not an error
}

TEST(Broadcast, ChannelConstantAddsToEachPlane) {
  auto ctx = ElementContext();
  auto a = MakeTensor(ctx, {1, 3, 1, 1}, {10, 20, 30});
  auto b = MakeTensor(ctx, {1, 3, 4, 4}, TestValues(48, -1, 1, 3));
  auto out = RunBroadcast(0, a, b);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->shape.dims, (std::vector<unsigned>{1, 3, 4, 4}));
  for (unsigned c = 0; c < 3; ++c) {
    for (unsigned i = 0; i < 16; ++i) EXPECT_EQ(Values(out)[c * 16 + i], 10.0f * (c + 1) + Values(b)[c * 16 + i]);
  }
}

TEST(Broadcast, TrailingDimsOfUnequalRanks) {
  auto ctx = ElementContext();
  auto a = MakeTensor(ctx, {4, 4}, TestValues(16, -1, 1, 5));
  auto b = MakeTensor(ctx, {1, 3, 4, 4}, TestValues(48, 1, 2, 6));
  auto out = RunBroadcast(3, a, b);  // a / b with a repeated over the channels
  ASSERT_TRUE(out);
  EXPECT_EQ(out->shape.dims, (std::vector<unsigned>{1, 3, 4, 4}));
  for (unsigned i = 0; i < 48; ++i) EXPECT_EQ(Values(out)[i], Values(a)[i % 16] / Values(b)[i]);
}

TEST(Broadcast, BothSidesBroadcastAgainstANestedLoop) {
  auto ctx = ElementContext();
  auto a = MakeTensor(ctx, {2, 1, 5, 1}, TestValues(10, -2, 2, 7, 4));
  auto b = MakeTensor(ctx, {3, 1, 6}, TestValues(18, -2, 2, 8, 5));
  auto out = RunBroadcast(1, a, b);
  ASSERT_TRUE(out);
  ASSERT_EQ(out->shape.dims, (std::vector<unsigned>{2, 3, 5, 6}));
  const std::vector<float> va = Values(a), vb = Values(b), vo = Values(out);
  for (unsigned n = 0; n < 2; ++n)
    for (unsigned c = 0; c < 3; ++c)
      for (unsigned y = 0; y < 5; ++y)
        for (unsigned x = 0; x < 6; ++x) {
          const float want = va[n * 5 + y] - vb[c * 6 + x];
          EXPECT_TRUE(SameValue(vo[((n * 3 + c) * 5 + y) * 6 + x], want));
        }
}

TEST(Broadcast, RankZeroAndEmptyOperands) {
  auto ctx = ElementContext();
  auto s = MakeTensor(ctx, {}, {2.0f});
  auto v = MakeTensor(ctx, {3}, {1, 2, 3});
  auto out = RunBroadcast(2, v, s);
  ASSERT_TRUE(out);
  EXPECT_EQ(Values(out), (std::vector<float>{2, 4, 6}));
  auto empty = MakeTensor(ctx, {0, 3}, {});
  out = RunBroadcast(0, empty, v);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->shape.ElementCount(), 0u);
}

TEST(Broadcast, ShapeChecks) {
  auto ctx = ElementContext();
  kernel::BroadcastOperator_Fallback_Float_M1 k;
  auto t34 = MakeTensor(ctx, {2, 3}, {});
  auto t44 = MakeTensor(ctx, {2, 4}, {});
  EXPECT_EQ(k.IsValidInput({t34, t44}), kernel::kInvalidTensor);  // 3 against 4
  // A zero against a one would take the one and read the empty operand.
  auto zero = MakeTensor(ctx, {0}, {});
  auto one = MakeTensor(ctx, {1}, {});
  EXPECT_EQ(k.IsValidInput({zero, one}), kernel::kInvalidTensor);
  EXPECT_EQ(k.IsValidInput({zero, zero}), 0);
  auto c4 = MakeTensor(ctx, {2, 3}, {}, runtime::TensorShape::C4HW4);
  EXPECT_EQ(k.IsValidInput({t34, c4}), kernel::kInvalidTensor);
  EXPECT_EQ(k.IsValidInput({t34}), kernel::kInvalidTensor);
  // An output too large for 32-bit counts.
  float dummy[2] = {};
  auto wide = ctx->cpu->CreateExternalTensor(runtime::MakeShape({1, 100000}), dummy);
  auto tall = ctx->cpu->CreateExternalTensor(runtime::MakeShape({100000, 1}), dummy);
  EXPECT_EQ(k.IsValidInput({wide, tall}), kernel::kInvalidTensor);
  EXPECT_EQ(k.IsValidParam(BroadcastOp(9), nullptr), 0);  // any record passes
  EXPECT_EQ(k.IsValidParam(BroadcastOp(0), std::make_shared<runtime::InferenceParam>()), kernel::kInvalidParam);
  EXPECT_EQ(k.IsValidParam(std::make_shared<runtime::ElementWiseOperatorInfo>(), nullptr), kernel::kInvalidParam);
}

TEST(Broadcast, UnknownCodeHasNoOperation) {
  auto ctx = ElementContext();
  auto k = Configured<kernel::BroadcastOperator_Fallback_Float_M1>(BroadcastOp(17), ctx);
  auto a = MakeTensor(ctx, {2}, {1, 2});
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_FALSE(k->Forward({a, a}, outputs, ctx));
  EXPECT_TRUE(outputs.empty());
  EXPECT_EQ(kernel::BroadcastOpType2Func.count(17), 1u);  // the lookup inserted an empty entry
  EXPECT_FALSE(kernel::BroadcastOpType2Func.at(17));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
