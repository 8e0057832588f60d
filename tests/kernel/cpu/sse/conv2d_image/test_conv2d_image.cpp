// The SSE image stem end to end: against the double reference at every tile
// width and tail, against PyTorch on the image stems it serves, against
// padding + the general CHW member + the CHW-to-C4HW4 conversion, and its
// refusals.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/conv2d_member_test_util.h"

namespace tarn {
namespace testing {
namespace {

class SseImageStemGrid : public ::testing::TestWithParam<std::pair<unsigned, unsigned>> {};

TEST_P(SseImageStemGrid, MatchesTheDoubleReferenceAtEveryWidth) {
  conv::ExpectMemberGrid(conv::SseImageStem(), GetParam(), 4000);
}

INSTANTIATE_TEST_SUITE_P(Channels, SseImageStemGrid,
                         ::testing::ValuesIn(conv::MemberChannelPairs(conv::SseImageStem())), [](const auto& info) {
                           return std::to_string(info.param.first) + "to" + std::to_string(info.param.second);
                         });

TEST(SseImageStem, MatchesPyTorchOnTheImageStems) {
  int ran = 0;
  for (const std::string& fixture : conv::MemberFixtures()) ran += conv::ExpectMemberMatchesTorch(conv::SseImageStem(), fixture);
  EXPECT_GT(ran, 0);
}

TEST(SseImageStem, RefusesOtherGeometriesChannelsAndLayouts) { conv::ExpectMemberRefusals(conv::SseImageStem()); }

TEST(SseImageStem, EqualsPaddingGeneralMemberAndConversion) {
  auto ctx = conv::MakeContext();
  for (unsigned n : {64u, 20u}) {
    const conv::ConvGeom g{3, n, 13, 11, 3, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, true};
    const std::vector<float> x = conv::Random(3 * 13 * 11, n), w = conv::Random(g.WeightCount(), n + 1),
                             b = conv::Random(n, n + 2);
    auto input = conv::LayoutTensor(ctx->cpu, x, 3, 13, 11, 1);
    auto general = conv::RunKernel("Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1", conv::MakeConv2dInfo(g, w, b), ctx,
                                   input);
    auto stem = conv::RunKernel(conv::SseImageStem().name, conv::MakeConv2dInfo(g, w, b), ctx, input);
    ASSERT_TRUE(general.forwarded && stem.forwarded);
    auto converted = ctx->cpu->CreateTensor(
        runtime::MakeShape({n / 4, 13, 11, 4}, conv::TensorShape::FLOAT32, conv::TensorShape::C4HW4));
    kernel::functional::LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2(
        std::static_pointer_cast<runtime::TensorCPU>(general.outputs[0]), converted);
    const std::vector<float> want = conv::Values(converted), got = conv::Values(stem.outputs[0]);
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t i = 0; i < got.size(); ++i) ASSERT_NEAR(got[i], want[i], 1e-4f * (1.0f + std::fabs(want[i]))) << i;
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn
