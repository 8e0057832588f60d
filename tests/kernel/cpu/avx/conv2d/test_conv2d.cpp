// The AVX convolution member against the double reference over strides,
// dilations, asymmetric padding and channel counts with tails.
#include <gtest/gtest.h>

#include "kernel/cpu/conv2d_test_util.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::ConvGeom;

const conv::MemberDesc kAvxMember = {"Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1", 8, true, true};

class Conv2DAvxGrid : public ::testing::TestWithParam<std::tuple<int, std::pair<unsigned, unsigned>>> {};

TEST_P(Conv2DAvxGrid, MatchesTheDoubleReference) {
  if (!conv::CanRun(kAvxMember)) GTEST_SKIP();
  const conv::Geometry& k = conv::Geometries()[std::get<0>(GetParam())];
  const auto ch = std::get<1>(GetParam());
  const unsigned h0 = conv::MinExtent(k.ky, k.dy, k.pt, k.pb), w0 = conv::MinExtent(k.kx, k.dx, k.pl, k.pr);
  for (unsigned extra = 0; extra < 17; ++extra) {
    const ConvGeom g = conv::Make(k, ch.first, ch.second, 1, h0 + extra % 3, w0 + extra, extra % 2 == 0);
    EXPECT_TRUE(conv::RunConvMember(kAvxMember, g, 200 + extra));
  }
}

INSTANTIATE_TEST_SUITE_P(Geometries, Conv2DAvxGrid,
                         ::testing::Combine(::testing::Range(0, 8), ::testing::ValuesIn(conv::ChannelPairs())),
                         TRN_INDEX_NAMES);

}  // namespace
}  // namespace testing
}  // namespace tarn
