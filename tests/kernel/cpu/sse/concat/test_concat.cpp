// Concatenation of C4HW4 tensors (SSE): the lane placement against the
// portable one for every offset, channel count and pixel tail, and the kernel
// on the fixture's channel cases.
#include <gtest/gtest.h>

#include "kernel/cpu/sse/concat/concat.h"
#include "kernel/cpu/shape_test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(ConcatSSE, PlacementMatchesPortableBitForBit) {
  ExpectPlacementMatchesPortable(kernel::functional::place_channels_c4_f32_sse, 4);
}

class ConcatSSEReference : public ::testing::TestWithParam<RefCase> {};

TEST_P(ConcatSSEReference, MatchesPyTorch) {
  ExpectBlockedChannels<kernel::Concatenate_SSE_C4HW4_Float_M1>(GetParam(), 4);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, ConcatSSEReference, ::testing::ValuesIn(ChannelConcatCases()),
                         [](const auto& info) { return info.param.name; });

TEST(ConcatSSE, TakesItsLayoutOnly) {
  auto ctx = ElementContext();
  auto k = Configured<kernel::Concatenate_SSE_C4HW4_Float_M1>(Concat(0), ctx);
  k->SetInputChannels({3, 3});
  auto chw = MakeTensor(ctx, {3, 2, 2}, {});
  EXPECT_EQ(k->IsValidInput({chw, chw}), kernel::kInvalidTensor);
  const unsigned other = 4 == 4 ? 8 : 4;
  auto blocked = MakeTensor(ctx, {1, 2, 2, other}, {}, other == 4 ? runtime::TensorShape::C4HW4 : runtime::TensorShape::C8HW8);
  EXPECT_EQ(k->IsValidInput({blocked, blocked}), kernel::kInvalidTensor);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
