// Concatenation of C8HW8 tensors (AVX): the lane placement against the
// portable one for every offset, channel count and pixel tail, and the kernel
// on the fixture's channel cases.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/concat/concat.h"
#include "kernel/cpu/shape_test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(ConcatAVX, PlacementMatchesPortableBitForBit) {
  ExpectPlacementMatchesPortable(kernel::functional::place_channels_c8_f32_avx, 8);
}

class ConcatAVXReference : public ::testing::TestWithParam<RefCase> {};

TEST_P(ConcatAVXReference, MatchesPyTorch) {
  ExpectBlockedChannels<kernel::Concatenate_AVX_C8HW8_Float_M1>(GetParam(), 8);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, ConcatAVXReference, ::testing::ValuesIn(ChannelConcatCases()),
                         [](const auto& info) { return info.param.name; });

TEST(ConcatAVX, TakesItsLayoutOnly) {
  auto ctx = ElementContext();
  auto k = Configured<kernel::Concatenate_AVX_C8HW8_Float_M1>(Concat(0), ctx);
  k->SetInputChannels({3, 3});
  auto chw = MakeTensor(ctx, {3, 2, 2}, {});
  EXPECT_EQ(k->IsValidInput({chw, chw}), kernel::kInvalidTensor);
  const unsigned other = 8 == 4 ? 8 : 4;
  auto blocked = MakeTensor(ctx, {1, 2, 2, other}, {}, other == 4 ? runtime::TensorShape::C4HW4 : runtime::TensorShape::C8HW8);
  EXPECT_EQ(k->IsValidInput({blocked, blocked}), kernel::kInvalidTensor);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
