// The SSE 1x1 cores and the 3x3 C8HW8 core.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/core_test_util.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::CoreDesc;
namespace native = kernel::native;

// ------------------------------------------------------------------ 1x1 cores

const CoreDesc kSseCores[] = {
    {"chw_sse_m1", native::conv2d_k1x1_s1x1_d1x1_g1_chw_f32_sse_m1, 1, 1, nullptr},
    {"c4hw4_sse_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_sse_m0, 4, 4,
     kernel::Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback},
    {"c8hw8_sse_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_sse_m0, 8, 8,
     kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback},
};

class ConvCoreSse : public ::testing::TestWithParam<std::tuple<int, std::pair<unsigned, unsigned>>> {};

TEST_P(ConvCoreSse, MatchesTheReferenceForWidthsOneToSeventeen) {
  conv::ExpectCoreWidths(kSseCores[std::get<0>(GetParam())], std::get<1>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Cores, ConvCoreSse,
                         ::testing::Combine(::testing::Range(0, 3), ::testing::ValuesIn(conv::ChannelPairs())),
                         conv::CoreCaseName<kSseCores>);

// The CHW core sweeps 32, 16, 8, 4 and 1..3 floats: planes of every size up
// to 71 hit each combination.
TEST(ConvCoreSseChw, PlaneSizesHitEverySweepStep) {
  for (unsigned plane = 1; plane <= 71; ++plane) {
    EXPECT_TRUE(conv::CheckCore(kSseCores[0], 3, 2, 1, plane, plane)) << "plane " << plane;
  }
}

TEST(ConvCoreSseDeathTest, LayoutAndGeometryChecksEndTheProcess) {
  const auto chw = native::conv2d_k1x1_s1x1_d1x1_g1_chw_f32_sse_m1;
  const auto c4 = native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_sse_m0;
  const auto c8 = native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_sse_m0;
  conv::ExpectCoreDeaths({
      {chw, {3, 4, 4, 2, 2, 1, 1, 1, 1, 1, 1, 1, 2, 4, 4}, "i_inChannels == i_srcC"},
      {chw, {3, 4, 4, 3, 2, 1, 1, 1, 1, 1, 1, 1, 3, 4, 4}, "i_outChannels == i_dstC"},
      {c4, {5, 4, 4, 1, 4, 1, 1, 1, 1, 1, 1, 1, 1, 4, 4}, "(i_inChannels + 3) / 4 == i_srcC"},
      {c4, {4, 4, 4, 1, 5, 1, 1, 1, 1, 1, 1, 1, 1, 4, 4}, "(i_outChannels + 3) / 4 == i_dstC"},
      {c8, {9, 4, 4, 1, 8, 1, 1, 1, 1, 1, 1, 1, 1, 4, 4}, "(i_inChannels + 7) / 8 == i_srcC"},
      {c8, {8, 4, 4, 1, 9, 1, 1, 1, 1, 1, 1, 1, 1, 4, 4}, "(i_outChannels + 7) / 8 == i_dstC"},
      {c4, {4, 4, 4, 1, 4, 1, 1, 1, 1, 1, 1, 2, 1, 4, 4}, "i_groups == 1"},
      {c4, {4, 4, 4, 1, 4, 1, 2, 1, 1, 1, 1, 1, 1, 4, 4}, "i_kernelX == 1"},
      {c8, {8, 4, 4, 1, 8, 1, 1, 1, 2, 1, 1, 1, 1, 4, 4}, "i_strideX == 1"},
      {chw, {3, 4, 4, 3, 2, 1, 1, 1, 1, 1, 1, 1, 2, 3, 4}, "(i_srcH - i_dilateY * (i_kernelY - 1) - 1) / i_strideY + 1 == i_dstH"},
      {chw, {3, 4, 4, 3, 2, 1, 1, 1, 1, 1, 1, 1, 2, 4, 5}, "(i_srcW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_dstW"},
  });
}

// ------------------------------------------------------------------ 3x3 core

class ConvCoreSse3x3 : public ::testing::TestWithParam<std::pair<unsigned, unsigned>> {};

TEST_P(ConvCoreSse3x3, MatchesADirectConvolutionOfThePaddedInput) {
  const unsigned c = GetParam().first, n = GetParam().second;
  auto ctx = conv::MakeContext();
  for (unsigned ow = 1; ow <= 17; ++ow) {
    const unsigned oh = 2, h = oh + 2, w = ow + 2;
    const std::vector<float> x = conv::Random(std::size_t(c) * h * w, ow);
    const std::vector<float> weight = conv::Random(std::size_t(n) * c * 9, ow + 100);
    const std::vector<float> dst0 = conv::Random(std::size_t(n) * oh * ow, ow + 200);
    const conv::Ref ref =
        conv::AddInitial(conv::NaiveConv2d({c, n, h, w, 3, 3, 1, 1, 1, 1, 1, 0, 0, 0, 0, false}, x, weight, {}), dst0);
    auto packed = kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback(
        conv::MakeTensor(ctx->cpu, {1, n, c, 3, 3}, runtime::TensorShape::GNCHW, weight), ctx->cpu);
    std::vector<float> src = conv::ToBlocked(x, c, h, w, 8), dst = conv::ToBlocked(dst0, n, oh, ow, 8);
    native::conv2d_k3x3_s1x1_d1x1_g1_c8hw8_f32_sse_m0(c, h, w, src.data(), (c + 7) / 8, n, 3, 3, 1, 1, 1, 1, 1,
                                                      packed->DataAs<float>(), (n + 7) / 8, oh, ow, dst.data());
    EXPECT_TRUE(conv::Near(conv::FromBlocked(dst.data(), n, oh, ow, 8), ref)) << "width " << ow;
    EXPECT_TRUE(conv::TailLanesZero(dst.data(), n, oh, ow, 8)) << "width " << ow;
  }
}

INSTANTIATE_TEST_SUITE_P(Channels, ConvCoreSse3x3, ::testing::ValuesIn(conv::ChannelPairs()), TRN_INDEX_NAMES);

TEST(ConvCoreSse3x3DeathTest, OnlyThreeByThreeStrideOne) {
  const auto k3 = native::conv2d_k3x3_s1x1_d1x1_g1_c8hw8_f32_sse_m0;
  conv::ExpectCoreDeaths({
      {k3, {8, 6, 6, 1, 8, 3, 1, 1, 1, 1, 1, 1, 1, 4, 4}, "i_kernelX == 3"},
      {k3, {8, 6, 6, 1, 8, 3, 3, 2, 1, 1, 1, 1, 1, 4, 4}, "i_strideY == 1"},
      {k3, {8, 6, 6, 1, 8, 3, 3, 1, 1, 1, 1, 1, 1, 4, 3}, "(i_srcW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_dstW"},
  });
}

}  // namespace
}  // namespace testing
}  // namespace tarn
