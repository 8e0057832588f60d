// Portable concatenation: every PyTorch fixture case in CHW, the channel
// cases again in C4HW4 and C8HW8 with counts that are not multiples of the
// block (the real counts handed over as the net builder does), height and
// width in the blocked layouts, and the inputs it refuses.
#include <gtest/gtest.h>

#include "kernel/cpu/fallback/concat/concat.h"
#include "kernel/cpu/shape_test_util.h"

namespace tarn {
namespace testing {
namespace {

using runtime::TensorShape;

class ConcatReference : public ::testing::TestWithParam<RefCase> {};

TEST_P(ConcatReference, MatchesPyTorchInCHW) {
  const RefCase& c = GetParam();
  auto ctx = ElementContext();
  auto k = Configured<kernel::Concatenate_Fallback_Float_M1>(
      Concat(static_cast<std::uint16_t>(ParseParams(c)["dim"].GetUint())), ctx);
  std::vector<std::shared_ptr<runtime::Tensor>> in;
  for (const auto& t : c.inputs) in.push_back(RefInput(ctx, t));
  auto out = RunAsNet(k, in, ctx);
  EXPECT_TRUE(SameTensor(out, c.outputs[0])) << c.name;
}

INSTANTIATE_TEST_SUITE_P(Fixtures, ConcatReference, ::testing::ValuesIn(ShapeCases("concat", "concat")),
                         [](const auto& info) { return info.param.name; });

class ConcatBlockedReference : public ::testing::TestWithParam<RefCase> {};

TEST_P(ConcatBlockedReference, MatchesPyTorchInBothBlockedLayouts) {
  for (unsigned lanes : {4u, 8u}) ExpectBlockedChannels<kernel::Concatenate_Fallback_Float_M1>(GetParam(), lanes);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, ConcatBlockedReference, ::testing::ValuesIn(ChannelConcatCases()),
                         [](const auto& info) { return info.param.name; });

// Along height and width, blocked tensors join row blocks as they are.
TEST(ConcatBlocked, JoinsHeightAndWidth) {
  auto ctx = ElementContext();
  for (unsigned lanes : {4u, 8u}) {
    const auto layout = lanes == 4 ? TensorShape::C4HW4 : TensorShape::C8HW8;
    const unsigned c = lanes + 3;
    const std::vector<float> a = MovePatterns(c * 2 * 3, 1), b = MovePatterns(c * 4 * 3, 2);
    for (std::uint16_t dim : {std::uint16_t(1), std::uint16_t(65534)}) {  // 1 and -2: height
      auto k = Configured<kernel::Concatenate_Fallback_Float_M1>(Concat(dim), ctx);
      auto out = RunAsNet(k,
                          {MakeTensor(ctx, {2, 2, 3, lanes}, ToBlocked(a, c, 2, 3, lanes), layout),
                           MakeTensor(ctx, {2, 4, 3, lanes}, ToBlocked(b, c, 4, 3, lanes), layout)},
                          ctx);
      ASSERT_TRUE(out);
      std::vector<float> want;
      for (unsigned ch = 0; ch < c; ++ch) {
        want.insert(want.end(), a.begin() + ch * 6, a.begin() + ch * 6 + 6);
        want.insert(want.end(), b.begin() + ch * 12, b.begin() + ch * 12 + 12);
      }
      EXPECT_TRUE(SameBits(Values(out), ToBlocked(want, c, 6, 3, lanes)));
    }
    auto k = Configured<kernel::Concatenate_Fallback_Float_M1>(Concat(2), ctx);
    auto out = RunAsNet(k,
                        {MakeTensor(ctx, {2, 2, 3, lanes}, ToBlocked(a, c, 2, 3, lanes), layout),
                         MakeTensor(ctx, {2, 2, 6, lanes}, ToBlocked(b, c, 2, 6, lanes), layout)},
                        ctx);
    ASSERT_TRUE(out);
    std::vector<float> want;
    for (unsigned row = 0; row < c * 2; ++row) {
      want.insert(want.end(), a.begin() + row * 3, a.begin() + row * 3 + 3);
      want.insert(want.end(), b.begin() + row * 6, b.begin() + row * 6 + 6);
    }
    EXPECT_TRUE(SameBits(Values(out), ToBlocked(want, c, 2, 9, lanes)));
  }
}

// Unknown counts: only a last input that starts on a block boundary can be
// copied as it is; anything else is refused with the reason.
TEST(ConcatBlocked, NeedsTheRealCountsOfEveryInputButAnAlignedLast) {
  auto ctx = ElementContext();
  const auto layout = TensorShape::C4HW4;
  auto a = MakeTensor(ctx, {2, 2, 2, 4}, MovePatterns(32, 5), layout);  // 8 real channels
  auto b = MakeTensor(ctx, {1, 2, 2, 4}, ToBlocked(MovePatterns(12, 6), 3, 2, 2, 4), layout);
  auto k = Configured<kernel::Concatenate_Fallback_Float_M1>(Concat(0), ctx);
  LogCapture log;
  // Without counts, the first input's channels are unknown.
  EXPECT_EQ(k->IsValidInput({a, b}), kernel::kInvalidTensor);
  EXPECT_TRUE(log.Contains("real channel count of blocked input 0 is not known"));
  // The last input's count may stay unknown when the first ends on a block boundary.
  k->SetInputChannels({8, -1});
  auto out = RunAsNet(k, {a, b}, ctx);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->shape.dims, (std::vector<unsigned>{3, 2, 2, 4}));
  EXPECT_TRUE(SameBits(Values(out), [&] {
    std::vector<float> v = Values(a), w = Values(b);
    v.insert(v.end(), w.begin(), w.end());
    return v;
  }()));
  // ...but not when it ends inside a block.
  k->SetInputChannels({6, -1});
  EXPECT_EQ(k->IsValidInput({a, b}), kernel::kInvalidTensor);
  // Counts that disagree with the stored blocks are refused.
  k->SetInputChannels({3, 3});
  EXPECT_EQ(k->IsValidInput({a, b}), kernel::kInvalidTensor);
  EXPECT_TRUE(log.Contains("holds 2 blocks of 4 lanes, not the blocks of its 3 channels"));
  // Counts for another number of inputs say nothing.
  k->SetInputChannels({8});
  EXPECT_EQ(k->IsValidInput({a, b}), kernel::kInvalidTensor);
}

struct BadConcat {
  std::string what;
  std::uint16_t dim;
  std::vector<std::vector<unsigned>> dims;
  std::vector<TensorShape::Layout> layouts;
  std::string reason;
};

class ConcatRefusal : public ::testing::TestWithParam<BadConcat> {};

TEST_P(ConcatRefusal, IsRefusedWithItsReason) {
  const BadConcat& b = GetParam();
  auto ctx = ElementContext();
  auto k = Configured<kernel::Concatenate_Fallback_Float_M1>(Concat(b.dim), ctx);
  std::vector<std::shared_ptr<runtime::Tensor>> in;
  for (size_t i = 0; i < b.dims.size(); ++i) in.push_back(MakeTensor(ctx, b.dims[i], {}, b.layouts[i]));
  LogCapture log;
  EXPECT_EQ(k->IsValidInput(in), kernel::kInvalidTensor);
  EXPECT_TRUE(log.Contains(b.reason)) << (log.lines.empty() ? "" : log.lines.back().second);
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_FALSE(k->Forward(in, outputs, ctx));
  std::vector<TensorShape> shapes;
  for (const auto& t : in) shapes.push_back(t->shape);
  EXPECT_TRUE(k->GetOutputShapes(shapes).empty());
}

const auto kCHW = TensorShape::CHW;
const auto kC4 = TensorShape::C4HW4;

INSTANTIATE_TEST_SUITE_P(
    Inputs, ConcatRefusal,
    ::testing::Values(BadConcat{"mismatched", 0, {{2, 3, 4}, {2, 4, 4}}, {kCHW, kCHW}, "outside dim 0"},
                      BadConcat{"ranks", 1, {{2, 3, 4}, {2, 3}}, {kCHW, kCHW}, "does not match"},
                      BadConcat{"dim_out_of_range", 3, {{2, 3, 4}, {2, 3, 4}}, {kCHW, kCHW}, "dim 3 is outside"},
                      BadConcat{"negative_out_of_range", 65532, {{2, 3, 4}}, {kCHW}, "dim -4 is outside"},
                      BadConcat{"blocked_dim_3", 3, {{1, 3, 4, 4}, {1, 3, 4, 4}}, {kC4, kC4}, "dim 3 is outside"},
                      BadConcat{"mixed_layouts", 0, {{1, 3, 4, 4}, {4, 3, 4}}, {kC4, kCHW}, "layout of input 0"},
                      BadConcat{"blocked_hw", 0, {{1, 3, 4, 4}, {1, 2, 4, 4}}, {kC4, kC4}, "height and width"},
                      BadConcat{"no_inputs", 0, {}, {}, "no input"},
                      BadConcat{"empty_input", 0, {{2, 0, 4}, {2, 0, 4}}, {kCHW, kCHW}, "non-empty"}),
    [](const auto& info) { return info.param.what; });

// Sizes whose sum passes the 32-bit element count are refused from the shapes alone.
TEST(ConcatRefusal, OverflowingOutput) {
  auto ctx = ElementContext();
  auto k = Configured<kernel::Concatenate_Fallback_Float_M1>(Concat(0), ctx);
  const TensorShape big = runtime::MakeShape({40000, 40000, 2});
  EXPECT_TRUE(k->GetOutputShapes({big, big}).empty());
  EXPECT_FALSE(k->GetOutputShapes({big}).empty());
}

TEST(ConcatRecord, TakesConcatenateRecordsOnly) {
  auto ctx = ElementContext();
  kernel::Concatenate_Fallback_Float_M1 k;
  EXPECT_EQ(k.IsValidParam(std::make_shared<runtime::Pad2dInfo>(), nullptr), kernel::kInvalidParam);
  EXPECT_FALSE(k.Config(std::make_shared<runtime::Pad2dInfo>(), nullptr, ctx));
  EXPECT_EQ(k.IsValidInput({MakeTensor(ctx, {2}, {})}), kernel::kInvalidTensor);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
