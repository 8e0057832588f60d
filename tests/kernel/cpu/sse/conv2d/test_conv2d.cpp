// The SSE convolution members against PyTorch fixtures and the double
// reference over strides, dilations, groups, asymmetric padding and channel
// counts with tails, and their refusals.
#include <gtest/gtest.h>

#include "kernel/cpu/conv2d_test_util.h"

namespace tarn {
namespace testing {
namespace {

const conv::MemberDesc kSseMembers[] = {
    {"Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1", 1},
    {"Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1", 4},
    {"Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1", 8},
};

TRN_CONV2D_MEMBER_TESTS(Conv2DSse, kSseMembers);

class Conv2DSseGrid : public ::testing::TestWithParam<std::tuple<int, int, std::pair<unsigned, unsigned>>> {};

TEST_P(Conv2DSseGrid, MatchesTheDoubleReference) {
  conv::ExpectGridMatches(kSseMembers[std::get<0>(GetParam())], conv::Geometries()[std::get<1>(GetParam())],
                          std::get<2>(GetParam()), 100);
}

INSTANTIATE_TEST_SUITE_P(Members, Conv2DSseGrid,
                         ::testing::Combine(::testing::Range(0, 3), ::testing::Range(0, 8),
                                            ::testing::ValuesIn(conv::ChannelPairs())),
                         TRN_INDEX_NAMES);

class Conv2DSseGroups : public ::testing::TestWithParam<int> {};

// Grouped and depthwise layers through the CHW member: one core call per group.
TEST_P(Conv2DSseGroups, GroupedLayersMatchTheDoubleReference) {
  const conv::Geometry& k = conv::Geometries()[GetParam()];
  const unsigned cng[][3] = {{6, 9, 3}, {5, 5, 5}, {8, 4, 2}, {4, 8, 4}, {16, 16, 16}};
  const unsigned h0 = conv::MinExtent(k.ky, k.dy, k.pt, k.pb), w0 = conv::MinExtent(k.kx, k.dx, k.pl, k.pr);
  for (const auto& t : cng) {
    for (unsigned extra = 0; extra < 5; ++extra) {
      const conv::ConvGeom g = conv::Make(k, t[0], t[1], t[2], h0 + 1, w0 + 3 * extra, extra % 2 == 1);
      EXPECT_TRUE(conv::RunConvMember(kSseMembers[0], g, 7 + extra));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Geometries, Conv2DSseGroups, ::testing::Range(0, 8), TRN_INDEX_NAMES);

}  // namespace
}  // namespace testing
}  // namespace tarn
