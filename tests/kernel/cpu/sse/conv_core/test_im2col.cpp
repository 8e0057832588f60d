// The SSE column matrices of every layout against their formula, bit for
// bit, and their size checks.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kernel/cpu/core_test_util.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

namespace native = kernel::native;

struct Im2colCase {
  unsigned c, h, w, ky, kx, sy, sx, dy, dx;
};

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

class ConvIm2colSse : public ::testing::TestWithParam<std::tuple<Im2colCase, unsigned>> {};

TEST_P(ConvIm2colSse, MatchesTheFormulaBitForBit) {
  const Im2colCase k = std::get<0>(GetParam());
  const unsigned lanes = std::get<1>(GetParam());
  const unsigned oh = (k.h - k.dy * (k.ky - 1) - 1) / k.sy + 1, ow = (k.w - k.dx * (k.kx - 1) - 1) / k.sx + 1;
  std::vector<float> img = conv::Random(std::size_t(k.c) * k.h * k.w * lanes, 5);
  std::vector<float> col(std::size_t(k.c) * k.ky * k.kx * oh * ow * lanes, -99.0f);
  const int colC = static_cast<int>(k.c * k.ky * k.kx);
  auto fn = lanes == 1 ? native::im2col_chw_f32_sse_m0
                       : (lanes == 4 ? native::im2col_c4hw4_f32_sse_m0 : native::im2col_c8hw8_f32_sse_m0);
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
                       ::testing::Values(1u, 4u, 8u)),
    TRN_INDEX_NAMES);

TEST(ConvIm2colSseDeathTest, WrongSizesEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::vector<float> img(64), col(1024);
  EXPECT_DEATH(native::im2col_chw_f32_sse_m0(1, 8, 8, 8, 6, 6, 3, 3, 1, 1, 1, 1, img.data(), col.data()),
               conv::Quoted("i_imgC * i_kernelY * i_kernelX == i_colC"));
  EXPECT_DEATH(native::im2col_c4hw4_f32_sse_m0(1, 8, 8, 9, 5, 6, 3, 3, 1, 1, 1, 1, img.data(), col.data()),
               conv::Quoted("(i_imgH - i_dilateY * (i_kernelY - 1) - 1) / i_strideY + 1 == i_colH"));
  EXPECT_DEATH(native::im2col_chw_f32_sse_m0(1, 8, 8, 9, 6, 7, 3, 3, 1, 1, 1, 1, img.data(), col.data()),
               conv::Quoted("(i_imgW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_colW"));
  EXPECT_DEATH(native::im2col_c8hw8_f32_sse_m0(2, 8, 8, 9, 6, 6, 3, 3, 1, 1, 1, 1, img.data(), col.data()),
               conv::Quoted("i_imgC * i_kernelY * i_kernelX == i_colC"));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
