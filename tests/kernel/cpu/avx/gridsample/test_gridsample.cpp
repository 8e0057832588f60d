// Grid sampling, AVX form on C8HW8: bit for bit the portable routine on
// blocked planes for both modes, every padding mode and corner convention,
// over pixel counts that cross the strip (grid values past [-1, 1], NaN and
// huge ones included); and the kernel on blocked tensors equals the portable
// kernel on CHW for the PyTorch fixtures, padding lanes kept zero.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/gridsample/gridsample.h"
#include "kernel/cpu/resampling_test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(AvxGridSample, FormEqualsPortable) {
  TRN_REQUIRE_AVX();
  const unsigned blocks = 2, h = 5, w = 7;
  const std::vector<float> x = TestValues(blocks * h * w * 8, -3.0f, 3.0f, 4);
  for (std::size_t pixels : {std::size_t(1), std::size_t(9), std::size_t(kernel::functional::kGridStrip + 9)}) {
    std::vector<float> grid = TestValues(2 * pixels, -1.4f, 1.4f, unsigned(pixels), 13);
    if (pixels > 8) grid[3] = 1e30f, grid[6] = -1e30f;
    for (bool bilinear : {true, false}) {
      for (auto padding : {kernel::functional::GridPadding::kZeros, kernel::functional::GridPadding::kBorder,
                           kernel::functional::GridPadding::kReflection}) {
        for (bool align : {false, true}) {
          kernel::functional::GridSampleSetup setup;
          setup.bilinear = bilinear, setup.padding = padding, setup.align_corners = align, setup.in_h = h, setup.in_w = w;
          std::vector<float> want(blocks * pixels * 8), got(blocks * pixels * 8, -7.0f);
          kernel::functional::grid_sample_f32(x.data(), blocks, 8, setup, grid.data(), pixels, want.data());
          kernel::functional::grid_sample_c8hw8_avx_f32(x.data(), blocks, 8, setup, grid.data(), pixels, got.data());
          EXPECT_TRUE(SameBits(got, want, true))
              << pixels << " pixels, bilinear " << bilinear << " padding " << int(padding) << " align " << align;
        }
      }
    }
  }
}

TEST(AvxGridSample, BlockedKernelEqualsPortableKernel) {
  TRN_REQUIRE_AVX();
  auto ctx = ElementContext();
  const auto cases = ResamplingReference("grid_sample");
  ASSERT_FALSE(cases.empty());
  for (const auto& c : cases) {
    const auto p = ParseParams(c);
    auto r = GridSampleRecord(static_cast<std::uint16_t>(p["mode"].GetUint()),
                              static_cast<std::uint16_t>(p["padding_mode"].GetUint()), p["align_corners"].GetBool());
    const auto& s = c.inputs[0].shape;
    auto grid = MakeTensor(ctx, c.inputs[1].shape, c.inputs[1].data);
    const std::vector<float> want = Output(Configured<kernel::GridSample_Fallback_CHW_Float_M1>(r, ctx),
                                           {MakeTensor(ctx, s, c.inputs[0].data), grid}, ctx);
    auto blocked = MakeTensor(ctx, {(s[0] + 7) / 8, s[1], s[2], 8}, ToBlocked(c.inputs[0].data, s[0], s[1], s[2], 8),
                              runtime::TensorShape::C8HW8);
    std::vector<unsigned> dims;
    const std::vector<float> got = Output(Configured<kernel::GridSample_AVX_C8HW8_Float_M1>(r, ctx), {blocked, grid}, ctx, &dims);
    ASSERT_EQ(dims, (std::vector<unsigned>{1, c.inputs[1].shape[0], c.inputs[1].shape[1], 8})) << c.name;
    EXPECT_TRUE(SameBits(FromBlocked(got, s[0], dims[1], dims[2], 8), want)) << c.name;
    EXPECT_TRUE(SameBits(got, ToBlocked(want, s[0], dims[1], dims[2], 8))) << "padding lanes of " << c.name;
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn
