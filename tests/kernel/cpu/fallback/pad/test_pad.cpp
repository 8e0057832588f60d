// Portable padding: every PyTorch fixture case (negative amounts crop), the
// 2-D cases again in C4HW4 and C8HW8, and the inputs it refuses.
#include <gtest/gtest.h>

#include "kernel/cpu/fallback/pad/pad.h"
#include "kernel/cpu/shape_test_util.h"

namespace tarn {
namespace testing {
namespace {

using runtime::TensorShape;

class Pad1dReference : public ::testing::TestWithParam<RefCase> {};

TEST_P(Pad1dReference, MatchesPyTorch) {
  const RefCase& c = GetParam();
  const auto p = ParseParams(c);
  auto rec = std::make_shared<runtime::Pad1dInfo>();
  rec->padding_l = static_cast<std::int16_t>(p["padding_l"].GetInt());
  rec->padding_r = static_cast<std::int16_t>(p["padding_r"].GetInt());
  rec->padding_v = static_cast<float>(p["padding_v"].GetDouble());
  auto ctx = ElementContext();
  auto k = Configured<kernel::Pad1d_Fallback_Float_M1>(rec, ctx);
  EXPECT_TRUE(SameTensor(RunAsNet(k, {RefInput(ctx, c.inputs[0])}, ctx), c.outputs[0]));
}

INSTANTIATE_TEST_SUITE_P(Fixtures, Pad1dReference, ::testing::ValuesIn(ShapeCases("pad", "pad1d")),
                         [](const auto& info) { return info.param.name; });

class Pad2dReference : public ::testing::TestWithParam<RefCase> {};

TEST_P(Pad2dReference, MatchesPyTorch) {
  ExpectPad2dCase<kernel::Pad2d_Fallback_Float_M1>(GetParam(), 1);
  if (GetParam().inputs[0].shape.size() != 3) return;
  ExpectPad2dCase<kernel::Pad2d_Fallback_Float_M1>(GetParam(), 4);
  ExpectPad2dCase<kernel::Pad2d_Fallback_Float_M1>(GetParam(), 8);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, Pad2dReference, ::testing::ValuesIn(ShapeCases("pad", "pad2d")),
                         [](const auto& info) { return info.param.name; });

std::shared_ptr<runtime::Pad2dInfo> Pad2d(std::int16_t l, std::int16_t r, std::int16_t t, std::int16_t b, float v) {
  auto rec = std::make_shared<runtime::Pad2dInfo>();
  rec->padding_l = l, rec->padding_r = r, rec->padding_t = t, rec->padding_b = b, rec->padding_v = v;
  return rec;
}

// Blocked tensors: a zero border needs no channel count; any other value
// does, and a count that does not fit the blocks is refused.
TEST(Pad2dBlocked, NeedsTheChannelCountForANonZeroBorder) {
  auto ctx = ElementContext();
  auto in = MakeTensor(ctx, {2, 2, 2, 4}, ToBlocked(MovePatterns(24, 3), 6, 2, 2, 4), TensorShape::C4HW4);
  LogCapture log;
  auto zero = Configured<kernel::Pad2d_Fallback_Float_M1>(Pad2d(1, 0, 0, 1, 0.0f), ctx);
  EXPECT_EQ(zero->IsValidInput({in}), 0);
  auto minus_zero = Configured<kernel::Pad2d_Fallback_Float_M1>(Pad2d(1, 0, 0, 1, -0.0f), ctx);
  EXPECT_EQ(minus_zero->IsValidInput({in}), kernel::kInvalidTensor);
  EXPECT_TRUE(log.Contains("real channel count of the blocked input is not known"));
  minus_zero->SetInputChannels({6});
  auto out = RunAsNet(minus_zero, {in}, ctx);
  ASSERT_TRUE(out);
  // Pixel (0, 0) is new: -0 in channels 4 and 5 of block 1, +0 in its tail lanes.
  const float* p = static_cast<const float*>(out->Data()) + 3 * 3 * 4;
  EXPECT_EQ(Bits(p[0]), 0x80000000u);
  EXPECT_EQ(Bits(p[1]), 0x80000000u);
  EXPECT_EQ(Bits(p[2]), 0u);
  EXPECT_EQ(Bits(p[3]), 0u);
  minus_zero->SetInputChannels({9});
  EXPECT_EQ(minus_zero->IsValidInput({in}), kernel::kInvalidTensor);
  EXPECT_TRUE(log.Contains("blocks do not hold its 9 channels"));
}

struct BadPad {
  std::string what;
  bool two_d;
  std::vector<std::int16_t> amounts;  // l, r (, t, b)
  std::vector<unsigned> dims;
  TensorShape::Layout layout;
  std::string reason;
};

class PadRefusal : public ::testing::TestWithParam<BadPad> {};

TEST_P(PadRefusal, IsRefusedWithItsReason) {
  const BadPad& b = GetParam();
  auto ctx = ElementContext();
  std::shared_ptr<runtime::IKernel> k;
  if (b.two_d) {
    k = Configured<kernel::Pad2d_Fallback_Float_M1>(Pad2d(b.amounts[0], b.amounts[1], b.amounts[2], b.amounts[3], 0), ctx);
  } else {
    auto rec = std::make_shared<runtime::Pad1dInfo>();
    rec->padding_l = b.amounts[0], rec->padding_r = b.amounts[1];
    k = Configured<kernel::Pad1d_Fallback_Float_M1>(rec, ctx);
  }
  auto in = MakeTensor(ctx, b.dims, {}, b.layout);
  LogCapture log;
  EXPECT_EQ(k->IsValidInput({in}), kernel::kInvalidTensor);
  EXPECT_TRUE(log.Contains(b.reason)) << (log.lines.empty() ? "" : log.lines.back().second);
  EXPECT_TRUE(k->GetOutputShapes({in->shape}).empty());
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_FALSE(k->Forward({in}, outputs, ctx));
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, PadRefusal,
    ::testing::Values(BadPad{"crops_width", true, {-3, -2, 0, 0}, {2, 3, 5}, TensorShape::CHW, "leaves nothing"},
                      BadPad{"crops_height", true, {0, 0, -2, -1}, {2, 3, 5}, TensorShape::CHW, "leaves nothing"},
                      BadPad{"crops_1d", false, {-4, 0}, {3, 4}, TensorShape::CHW, "leaves nothing"},
                      BadPad{"rank_1_for_2d", true, {1, 1, 1, 1}, {5}, TensorShape::CHW, "too few dims"},
                      BadPad{"blocked_1d", false, {1, 1}, {1, 2, 2, 4}, TensorShape::C4HW4, "layout"},
                      BadPad{"blocked_lanes", true, {1, 1, 1, 1}, {1, 2, 2, 8}, TensorShape::C4HW4, "lanes"},
                      BadPad{"empty", true, {1, 1, 1, 1}, {2, 0, 3}, TensorShape::CHW, "non-empty"}),
    [](const auto& info) { return info.param.what; });

TEST(PadRefusal, OverflowingOutput) {
  auto ctx = ElementContext();
  auto k = Configured<kernel::Pad2d_Fallback_Float_M1>(Pad2d(30000, 30000, 30000, 30000, 0), ctx);
  EXPECT_TRUE(k->GetOutputShapes({runtime::MakeShape({2, 2, 2})}).empty());
  EXPECT_FALSE(k->GetOutputShapes({runtime::MakeShape({1, 2, 2})}).empty());
}

TEST(PadRecord, EachKernelTakesItsOwnRecord) {
  auto ctx = ElementContext();
  kernel::Pad1d_Fallback_Float_M1 one;
  kernel::Pad2d_Fallback_Float_M1 two;
  EXPECT_EQ(one.IsValidParam(std::make_shared<runtime::Pad2dInfo>(), nullptr), kernel::kInvalidParam);
  EXPECT_EQ(two.IsValidParam(std::make_shared<runtime::Pad1dInfo>(), nullptr), kernel::kInvalidParam);
  EXPECT_FALSE(two.Config(std::make_shared<runtime::Pad1dInfo>(), nullptr, ctx));
  EXPECT_EQ(one.IsValidParam(std::make_shared<runtime::Pad1dInfo>(), nullptr), 0);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
