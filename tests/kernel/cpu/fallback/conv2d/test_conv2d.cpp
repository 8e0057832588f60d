// The portable convolution against PyTorch fixtures and the double reference,
// the double reference itself against PyTorch, and the geometry every
// member's name promises (decided in baseline code).
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/conv2d_test_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::ConvGeom;

const conv::MemberDesc kFallback[] = {{"Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", 1}};

TEST(Conv2DReference, FixturesArePresent) { EXPECT_GE(LoadReference("conv2d").size(), 10u); }

// The double reference itself against PyTorch, so that the grids, which use
// it, rest on the fixtures too.
TEST(Conv2DReference, DoubleReferenceMatchesPyTorch) {
  for (const RefCase& c : LoadReference("conv2d")) {
    const conv::FixtureCase f = conv::ReadConv2DCase(c);
    EXPECT_TRUE(conv::Near(f.y, conv::NaiveConv2d(f.geom, f.x, f.weight, f.bias))) << c.name;
  }
}

TRN_CONV2D_MEMBER_TESTS(Conv2DFallback, kFallback);

class Conv2DFallbackGrid : public ::testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(Conv2DFallbackGrid, MatchesTheDoubleReference) {
  const conv::Geometry& k = conv::Geometries()[std::get<0>(GetParam())];
  // (c, n, groups): one group, grouped, depthwise.
  const unsigned cng[][3] = {{3, 5, 1}, {6, 9, 3}, {5, 5, 5}, {8, 4, 2}, {13, 9, 1}};
  const auto* t = cng[std::get<1>(GetParam())];
  const unsigned h0 = conv::MinExtent(k.ky, k.dy, k.pt, k.pb), w0 = conv::MinExtent(k.kx, k.dx, k.pl, k.pr);
  for (unsigned extra = 0; extra < 6; ++extra) {
    const ConvGeom g = conv::Make(k, t[0], t[1], t[2], h0 + extra, w0 + 2 * extra, extra % 2 == 0);
    EXPECT_TRUE(conv::RunConvMember(kFallback[0], g, 31 + extra));
  }
}

INSTANTIATE_TEST_SUITE_P(Geometries, Conv2DFallbackGrid,
                         ::testing::Combine(::testing::Range(0, 8), ::testing::Range(0, 5)), TRN_INDEX_NAMES);

TEST(Conv2DNames, GeometryPromisedByTheNameIsEnforced) {
  const ConvGeom grouped{4, 6, 5, 5, 3, 3, 1, 1, 1, 1, 2, 1, 1, 1, 1, true};  // 2 groups, 3x3
  auto info = conv::MakeConv2dInfo(grouped, conv::Random(grouped.WeightCount(), 1), conv::Random(6, 2));
  const auto valid = [&](const char* name) { return conv::CreateKernel(name)->IsValidParam(info, nullptr); };
  EXPECT_EQ(valid(kFallback[0].name), 0);
  EXPECT_EQ(valid("Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1"), 0);
  EXPECT_EQ(valid("Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1"), -1);
  EXPECT_EQ(valid("Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1"), -1);
  EXPECT_EQ(valid("Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1"), -1);
  const char kSgemm[] = "Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1";
  info->groups = 1;
  EXPECT_EQ(valid(kSgemm), -1);
  info->kernel_x = info->kernel_y = 1;
  EXPECT_EQ(valid(kSgemm), 0);
  info->dilation_x = 2;
  EXPECT_EQ(valid(kSgemm), -1);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
