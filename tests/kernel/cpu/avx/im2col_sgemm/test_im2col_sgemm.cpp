// The column-matrix product of the large-kernel CHW members on raw pointers:
// panels of output pixels (a panel boundary inside a row, a short last panel,
// the narrow panels of a layer with very many input channels),
// output channel counts that leave a partial block of four, strides 1 to 3,
// with and without bias, against the double reference.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/conv_test_util.h"
#include "tarn/kernel/native_gemm.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

namespace native = kernel::native;

struct ColumnCase {
  unsigned c, n, h, w, k, s;
  bool bias;
};

class ColumnProduct : public ::testing::TestWithParam<ColumnCase> {};

TEST_P(ColumnProduct, MatchesTheDoubleReference) {
  const ColumnCase t = GetParam();
  // The input is already padded: the geometry has no padding.
  const conv::ConvGeom g{t.c, t.n, t.h, t.w, t.k, t.k, t.s, t.s, 1, 1, 1, 0, 0, 0, 0, t.bias};
  const std::vector<float> x = conv::Random(std::size_t(t.c) * t.h * t.w, t.n);
  const std::vector<float> w = conv::Random(g.WeightCount(), t.n + 1);
  const std::vector<float> b = t.bias ? conv::Random(t.n, t.n + 2) : std::vector<float>();
  std::vector<float> tm(native::conv_im2col_sgemm_weight_floats(t.c, t.n, t.k * t.k), -1.0f);
  native::conv_im2col_sgemm_transform_kernel_sse(w.data(), tm.data(), t.c, t.n, t.k * t.k);
  // One extra row of sentinels after the output: nothing may land there.
  const unsigned oh = g.OutH(), ow = g.OutW();
  std::vector<float> out(std::size_t(t.n) * oh * ow + ow, std::numeric_limits<float>::quiet_NaN());
  for (std::size_t i = std::size_t(t.n) * oh * ow; i < out.size(); ++i) out[i] = 12345.0f;
  native::conv_im2col_sgemm_avx(t.c, t.h, t.w, x.data(), t.n, oh, ow, out.data(), tm.data(),
                                t.bias ? b.data() : nullptr, t.k, t.k, t.s, t.s);
  EXPECT_TRUE(conv::Near(std::vector<float>(out.begin(), out.begin() + std::size_t(t.n) * oh * ow),
                         conv::NaiveConv2d(g, x, w, b)));
  for (std::size_t i = std::size_t(t.n) * oh * ow; i < out.size(); ++i) ASSERT_EQ(out[i], 12345.0f);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, ColumnProduct,
    ::testing::Values(ColumnCase{3, 64, 37, 37, 7, 2, true},   // a stem: 16 x 16 = 256 pixels, two panels
                      ColumnCase{3, 6, 41, 29, 7, 2, false},   // 18 x 12 pixels, six channels (a half block)
                      ColumnCase{5, 9, 27, 31, 5, 2, true},    // 12 x 14 pixels, nine channels
                      ColumnCase{2, 3, 9, 40, 5, 1, true},     // stride 1 (copied rows), 5 x 36 pixels
                      ColumnCase{4, 5, 16, 16, 3, 3, false},   // stride 3 (gathered one by one)
                      ColumnCase{1, 1, 7, 7, 7, 2, true},      // one pixel, one channel
                      ColumnCase{3, 13, 75, 23, 7, 2, true},   // 35 x 9 = 315 pixels: panel edge mid-row
                      ColumnCase{1100, 5, 21, 21, 7, 2, true}),  // 53900 rows: narrow panels of 16 pixels
    TRN_INDEX_NAMES);

}  // namespace
}  // namespace testing
}  // namespace tarn
