// The AVX convolution member against PyTorch fixtures and the double
// reference over strides, dilations, asymmetric padding and channel counts
// with tails, and its refusals.
#include <gtest/gtest.h>

#include "kernel/cpu/conv2d_test_util.h"

namespace tarn {
namespace testing {
namespace {

const conv::MemberDesc kAvxMember[] = {{"Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1", 8}};

TRN_CONV2D_MEMBER_TESTS(Conv2DAvx, kAvxMember);

class Conv2DAvxGrid : public ::testing::TestWithParam<std::tuple<int, std::pair<unsigned, unsigned>>> {};

TEST_P(Conv2DAvxGrid, MatchesTheDoubleReference) {
  conv::ExpectGridMatches(kAvxMember[0], conv::Geometries()[std::get<0>(GetParam())], std::get<1>(GetParam()), 200);
}

INSTANTIATE_TEST_SUITE_P(Geometries, Conv2DAvxGrid,
                         ::testing::Combine(::testing::Range(0, 8), ::testing::ValuesIn(conv::ChannelPairs())),
                         TRN_INDEX_NAMES);

}  // namespace
}  // namespace testing
}  // namespace tarn
