// SSE im2col, the SSE 1x1 cores and the 3x3 C8HW8 core.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kernel/cpu/core_test_util.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::CoreDesc;
namespace native = kernel::native;

#define SKIP_WITHOUT_SSE() \
  if (!conv::CanRunSSE()) GTEST_SKIP() << "no SSE4.1 + FMA"

// ------------------------------------------------------------------ im2col

struct Im2colCase {
  unsigned c, h, w, ky, kx, sy, sx, dy, dx;
};

class ConvIm2colSse : public ::testing::TestWithParam<std::tuple<Im2colCase, unsigned>> {};

// col[(c * KY + ky) * KX + kx][oy * OW + ox] = img[c][oy * SY + ky * DY][ox * SX + kx * DX],
// each element `lanes` floats wide.
std::vector<float> Im2colByFormula(const Im2colCase& k, unsigned lanes, const std::vector<float>& img, unsigned oh,
                                   unsigned ow) {
  std::vector<float> col(std::size_t(k.c) * k.ky * k.kx * oh * ow * lanes);
  for (unsigned c = 0; c < k.c; ++c)
    for (unsigned ky = 0; ky < k.ky; ++ky)
      for (unsigned kx = 0; kx < k.kx; ++kx)
        for (unsigned oy = 0; oy < oh; ++oy)
          for (unsigned ox = 0; ox < ow; ++ox)
            for (unsigned l = 0; l < lanes; ++l) {
              const std::size_t row = (std::size_t(c) * k.ky + ky) * k.kx + kx;
              col[((row * oh + oy) * ow + ox) * lanes + l] =
                  img[((std::size_t(c) * k.h + oy * k.sy + ky * k.dy) * k.w + ox * k.sx + kx * k.dx) * lanes + l];
            }
  return col;
}

TEST_P(ConvIm2colSse, MatchesTheFormulaBitForBit) {
  SKIP_WITHOUT_SSE();
  const Im2colCase k = std::get<0>(GetParam());
  const unsigned lanes = std::get<1>(GetParam());
  const unsigned oh = (k.h - k.dy * (k.ky - 1) - 1) / k.sy + 1, ow = (k.w - k.dx * (k.kx - 1) - 1) / k.sx + 1;
  std::vector<float> img = conv::Random(std::size_t(k.c) * k.h * k.w * lanes, 5);
  std::vector<float> col(std::size_t(k.c) * k.ky * k.kx * oh * ow * lanes, -99.0f);
  const int colC = static_cast<int>(k.c * k.ky * k.kx);
  auto fn = lanes == 1 ? native::im2col_chw_f32_sse_m0 : native::im2col_c4hw4_f32_sse_m0;
  fn(k.c, k.h, k.w, colC, oh, ow, k.ky, k.kx, k.sy, k.sx, k.dy, k.dx, img.data(), col.data());
  const std::vector<float> want = Im2colByFormula(k, lanes, img, oh, ow);
  EXPECT_EQ(0, std::memcmp(col.data(), want.data(), want.size() * sizeof(float)));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ConvIm2colSse,
    ::testing::Combine(::testing::Values(Im2colCase{2, 5, 6, 3, 3, 1, 1, 1, 1},   // plain 3x3
                                         Im2colCase{1, 7, 7, 3, 3, 1, 1, 2, 2},   // dilation 2: 3 x 3 grid
                                         Im2colCase{3, 9, 8, 3, 2, 2, 3, 1, 2},   // mixed strides, dilations
                                         Im2colCase{2, 4, 5, 1, 1, 1, 1, 2, 2},   // 1x1 dilated: plain copy
                                         Im2colCase{5, 3, 17, 1, 1, 1, 1, 1, 1},  // plain copy with tail
                                         Im2colCase{1, 11, 11, 7, 7, 2, 2, 1, 1}, // stem-like
                                         Im2colCase{2, 6, 6, 1, 1, 2, 2, 1, 1}),  // strided 1x1
                       ::testing::Values(1u, 4u)),
    TRN_INDEX_NAMES);

TEST(ConvIm2colSseChecks, ADilatedThreeByThreeOnSevenGivesAThreeGrid) {
  SKIP_WITHOUT_SSE();
  std::vector<float> img = conv::Random(49, 2), col(81);
  native::im2col_chw_f32_sse_m0(1, 7, 7, 9, 3, 3, 3, 3, 1, 1, 2, 2, img.data(), col.data());
  EXPECT_EQ(col[0], img[0]);
  EXPECT_EQ(col[8 * 9 + 8], img[(2 + 4) * 7 + 2 + 4]);  // last tap, last pixel
}

TEST(ConvIm2colSseDeathTest, WrongSizesEndTheProcess) {
  SKIP_WITHOUT_SSE();
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::vector<float> img(64), col(1024);
  EXPECT_DEATH(native::im2col_chw_f32_sse_m0(1, 8, 8, 8, 6, 6, 3, 3, 1, 1, 1, 1, img.data(), col.data()),
               conv::Quoted("i_imgC * i_kernelY * i_kernelX == i_colC"));
  EXPECT_DEATH(native::im2col_c4hw4_f32_sse_m0(1, 8, 8, 9, 5, 6, 3, 3, 1, 1, 1, 1, img.data(), col.data()),
               conv::Quoted("(i_imgH - i_dilateY * (i_kernelY - 1) - 1) / i_strideY + 1 == i_colH"));
  EXPECT_DEATH(native::im2col_chw_f32_sse_m0(1, 8, 8, 9, 6, 7, 3, 3, 1, 1, 1, 1, img.data(), col.data()),
               conv::Quoted("(i_imgW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_colW"));
}

// ------------------------------------------------------------------ 1x1 cores

const CoreDesc kSseCores[] = {
    {"chw_sse_m1", native::conv2d_k1x1_s1x1_d1x1_g1_chw_f32_sse_m1, 1, 1, nullptr},
    {"c4hw4_sse_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_sse_m0, 4, 4,
     kernel::Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback},
    {"c8hw8_sse_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_sse_m0, 8, 8,
     kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback},
};

class ConvCoreSse : public ::testing::TestWithParam<std::tuple<int, std::pair<unsigned, unsigned>>> {};

// Widths 1..17 hit the eight-pixel body and every tail length; heights 1 and
// 3 cover one row and several.
TEST_P(ConvCoreSse, MatchesTheReferenceForWidthsOneToSeventeen) {
  SKIP_WITHOUT_SSE();
  const CoreDesc& core = kSseCores[std::get<0>(GetParam())];
  const auto channels = std::get<1>(GetParam());
  for (unsigned h : {1u, 3u}) {
    for (unsigned w = 1; w <= 17; ++w) {
      EXPECT_TRUE(conv::CheckCore(core, channels.first, channels.second, h, w, 10 * w + h))
          << core.name << " h " << h << " w " << w;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Cores, ConvCoreSse,
                         ::testing::Combine(::testing::Range(0, 3), ::testing::ValuesIn(conv::ChannelPairs())),
                         [](const auto& info) {
                           return std::string(kSseCores[std::get<0>(info.param)].name) + "_" +
                                  std::to_string(std::get<1>(info.param).first) + "to" +
                                  std::to_string(std::get<1>(info.param).second);
                         });

// The CHW core sweeps 32, 16, 8, 4 and 1..3 floats: planes of every size up
// to 71 hit each combination.
TEST(ConvCoreSseChw, PlaneSizesHitEverySweepStep) {
  SKIP_WITHOUT_SSE();
  for (unsigned plane = 1; plane <= 71; ++plane) {
    EXPECT_TRUE(conv::CheckCore(kSseCores[0], 3, 2, 1, plane, plane)) << "plane " << plane;
  }
}

TEST(ConvCoreSseDeathTest, LayoutAndGeometryChecksEndTheProcess) {
  SKIP_WITHOUT_SSE();
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::vector<float> buf(4096, 0.0f);
  float* b = buf.data();
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_chw_f32_sse_m1(3, 4, 4, b, 2, 2, 1, 1, 1, 1, 1, 1, 1, b, 2, 4, 4, b),
               conv::Quoted("i_inChannels == i_srcC"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_chw_f32_sse_m1(3, 4, 4, b, 3, 2, 1, 1, 1, 1, 1, 1, 1, b, 3, 4, 4, b),
               conv::Quoted("i_outChannels == i_dstC"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_sse_m0(5, 4, 4, b, 1, 4, 1, 1, 1, 1, 1, 1, 1, b, 1, 4, 4, b),
               conv::Quoted("(i_inChannels + 3) / 4 == i_srcC"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_sse_m0(4, 4, 4, b, 1, 5, 1, 1, 1, 1, 1, 1, 1, b, 1, 4, 4, b),
               conv::Quoted("(i_outChannels + 3) / 4 == i_dstC"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_sse_m0(9, 4, 4, b, 1, 8, 1, 1, 1, 1, 1, 1, 1, b, 1, 4, 4, b),
               conv::Quoted("(i_inChannels + 7) / 8 == i_srcC"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_sse_m0(8, 4, 4, b, 1, 9, 1, 1, 1, 1, 1, 1, 1, b, 1, 4, 4, b),
               conv::Quoted("(i_outChannels + 7) / 8 == i_dstC"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_sse_m0(4, 4, 4, b, 1, 4, 1, 1, 1, 1, 1, 1, 2, b, 1, 4, 4, b),
               conv::Quoted("i_groups == 1"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_sse_m0(4, 4, 4, b, 1, 4, 1, 2, 1, 1, 1, 1, 1, b, 1, 4, 4, b),
               conv::Quoted("i_kernelX == 1"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_sse_m0(8, 4, 4, b, 1, 8, 1, 1, 1, 2, 1, 1, 1, b, 1, 4, 4, b),
               conv::Quoted("i_strideX == 1"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_chw_f32_sse_m1(3, 4, 4, b, 3, 2, 1, 1, 1, 1, 1, 1, 1, b, 2, 3, 4, b),
               conv::Quoted("(i_srcH - i_dilateY * (i_kernelY - 1) - 1) / i_strideY + 1 == i_dstH"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_chw_f32_sse_m1(3, 4, 4, b, 3, 2, 1, 1, 1, 1, 1, 1, 1, b, 2, 4, 5, b),
               conv::Quoted("(i_srcW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_dstW"));
}

// ------------------------------------------------------------------ 3x3 core

class ConvCoreSse3x3 : public ::testing::TestWithParam<std::pair<unsigned, unsigned>> {};

TEST_P(ConvCoreSse3x3, MatchesADirectConvolutionOfThePaddedInput) {
  SKIP_WITHOUT_SSE();
  const unsigned c = GetParam().first, n = GetParam().second;
  auto ctx = conv::MakeContext();
  for (unsigned ow = 1; ow <= 17; ++ow) {
    const unsigned oh = 2, h = oh + 2, w = ow + 2;
    const std::vector<float> x = conv::Random(std::size_t(c) * h * w, ow);
    const std::vector<float> weight = conv::Random(std::size_t(n) * c * 9, ow + 100);
    const std::vector<float> dst0 = conv::Random(std::size_t(n) * oh * ow, ow + 200);
    conv::ConvGeom g{c, n, h, w, 3, 3, 1, 1, 1, 1, 1, 0, 0, 0, 0, false};
    conv::Ref ref = conv::NaiveConv2d(g, x, weight, {});
    for (std::size_t i = 0; i < dst0.size(); ++i) {
      ref.value[i] += dst0[i];
      ref.scale[i] += std::fabs(dst0[i]);
    }
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
  SKIP_WITHOUT_SSE();
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::vector<float> buf(8192, 0.0f);
  float* b = buf.data();
  EXPECT_DEATH(native::conv2d_k3x3_s1x1_d1x1_g1_c8hw8_f32_sse_m0(8, 6, 6, b, 1, 8, 3, 1, 1, 1, 1, 1, 1, b, 1, 4, 4, b),
               conv::Quoted("i_kernelX == 3"));
  EXPECT_DEATH(native::conv2d_k3x3_s1x1_d1x1_g1_c8hw8_f32_sse_m0(8, 6, 6, b, 1, 8, 3, 3, 2, 1, 1, 1, 1, b, 1, 4, 4, b),
               conv::Quoted("i_strideY == 1"));
  EXPECT_DEATH(native::conv2d_k3x3_s1x1_d1x1_g1_c8hw8_f32_sse_m0(8, 6, 6, b, 1, 8, 3, 3, 1, 1, 1, 1, 1, b, 1, 4, 3, b),
               conv::Quoted("(i_srcW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_dstW"));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
