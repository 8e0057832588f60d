// Per-channel multiply of the blocked layouts: every tail of the 4-vector step,
// either operand order, and the shape checks.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/broadcast/broadcast.h"
#include "kernel/cpu/element_test_util.h"

namespace tarn {
namespace testing {
namespace {

template <typename K>
void CheckChannelMul(unsigned lanes, runtime::TensorShape::Layout layout, unsigned pixels_w) {
  auto ctx = ElementContext();
  auto k = Configured<K>(BroadcastOp(2), ctx);
  const unsigned blocks = 3, h = 2;
  auto scale = MakeTensor(ctx, {blocks, 1, 1, lanes}, TestValues(blocks * lanes, -2, 2, 1, 5), layout);
  auto data =
      MakeTensor(ctx, {blocks, h, pixels_w, lanes}, TestValues(blocks * h * pixels_w * lanes, -3, 3, 2, 7), layout);
  const std::vector<float> s = Values(scale), d = Values(data);
  for (int order = 0; order < 2; ++order) {
    auto out = order == 0 ? RunKernel(k, {scale, data}, ctx) : RunKernel(k, {data, scale}, ctx);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->shape, data->shape);
    EXPECT_EQ(k->GetOutputShapes({scale->shape, data->shape})[0], data->shape);
    const std::vector<float> o = Values(out);
    for (size_t i = 0; i < d.size(); ++i) {
      const size_t block = i / (h * pixels_w * lanes), lane = i % lanes;
      EXPECT_TRUE(SameValue(o[i], d[i] * s[block * lanes + lane])) << "order " << order << " element " << i;
    }
  }
}

class ChannelMulWidths : public ::testing::TestWithParam<int> {};

TEST_P(ChannelMulWidths, C4AndC8) {
  TRN_REQUIRE_AVX();
  // Width w with height 2: 2w pixel vectors, every tail of the 4-vector step.
  CheckChannelMul<kernel::BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1>(4, runtime::TensorShape::C4HW4, GetParam());
  CheckChannelMul<kernel::BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1>(8, runtime::TensorShape::C8HW8, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Widths, ChannelMulWidths, ::testing::Range(1, 10), TRN_INDEX_NAMES);

TEST(ChannelMul, RecordAndShapeChecks) {
  auto ctx = ElementContext();
  kernel::BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1 k;
  EXPECT_EQ(k.IsValidParam(BroadcastOp(2), nullptr), 0);
  EXPECT_EQ(k.IsValidParam(BroadcastOp(0), nullptr), kernel::kInvalidParam);
  EXPECT_EQ(k.IsValidParam(BroadcastOp(2), std::make_shared<runtime::InferenceParam>()), kernel::kInvalidParam);
  EXPECT_FALSE(k.Config(BroadcastOp(3), nullptr, ctx));
  const auto C4 = runtime::TensorShape::C4HW4;
  auto scale = MakeTensor(ctx, {2, 1, 1, 4}, {}, C4);
  auto data = MakeTensor(ctx, {2, 3, 5, 4}, {}, C4);
  EXPECT_EQ(k.IsValidInput({scale, data}), 0);
  EXPECT_EQ(k.IsValidInput({data, data}), kernel::kInvalidTensor);                                   // no scale
  EXPECT_EQ(k.IsValidInput({MakeTensor(ctx, {3, 1, 1, 4}, {}, C4), data}), kernel::kInvalidTensor);  // blocks
  EXPECT_EQ(k.IsValidInput({MakeTensor(ctx, {2, 1, 5, 4}, {}, C4), data}), kernel::kInvalidTensor);  // W not 1
  EXPECT_EQ(k.IsValidInput({MakeTensor(ctx, {2, 1, 1, 4}, {}), data}), kernel::kInvalidTensor);      // layout
  EXPECT_EQ(k.IsValidInput({MakeTensor(ctx, {2, 1, 1, 8}, {}, C4), MakeTensor(ctx, {2, 3, 5, 8}, {}, C4)}),
            kernel::kInvalidTensor);  // lanes
  EXPECT_EQ(k.IsValidInput({scale}), kernel::kInvalidTensor);
  // An empty data plane: W = 0 against the scale's 1 fails "the product equals the larger".
  EXPECT_EQ(k.IsValidInput({scale, MakeTensor(ctx, {2, 3, 0, 4}, {}, C4)}), kernel::kInvalidTensor);
  // A data operand whose H is 1: the scale is still recognised by H = W = 1.
  auto row = MakeTensor(ctx, {2, 1, 5, 4}, TestValues(40, -1, 1, 9), C4);
  EXPECT_EQ(k.IsValidInput({row, scale}), 0);
  EXPECT_EQ(k.GetOutputShapes({row->shape, scale->shape})[0], row->shape);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
