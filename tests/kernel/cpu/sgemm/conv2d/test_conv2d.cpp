// The CBLAS 1x1 convolution against PyTorch fixtures and the double
// reference, and its refusals.
#include <gtest/gtest.h>

#include "kernel/cpu/conv2d_test_util.h"

namespace tarn {
namespace testing {
namespace {

const conv::MemberDesc kSgemmMember[] = {{"Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1", 1}};

TRN_CONV2D_MEMBER_TESTS(Conv2DSgemm, kSgemmMember);

class Conv2DSgemmGrid : public ::testing::TestWithParam<std::pair<unsigned, unsigned>> {};

// Borders (left, right, top, bottom) included: a padded 1x1 layer's border is the bias.
TEST_P(Conv2DSgemmGrid, MatchesTheDoubleReference) {
  const auto ch = GetParam();
  const unsigned pads[][4] = {{0, 0, 0, 0}, {1, 0, 2, 1}};
  for (const auto& p : pads) {
    for (unsigned w = 1; w <= 17; w += 2) {
      const conv::ConvGeom g{ch.first, ch.second, 3, w, 1, 1, 1, 1, 1, 1, 1, p[0], p[1], p[2], p[3], w % 4 == 1};
      EXPECT_TRUE(conv::RunConvMember(kSgemmMember[0], g, w));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Channels, Conv2DSgemmGrid, ::testing::ValuesIn(conv::ChannelPairs()), TRN_INDEX_NAMES);

}  // namespace
}  // namespace testing
}  // namespace tarn
