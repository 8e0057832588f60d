// Grid sampling, AVX form: bit for bit the portable routine for both modes,
// every padding mode and corner convention, over pixel counts that cross the
// strip and leave every tail (grid values past [-1, 1], NaN and huge ones
// included), and the kernel equals the portable kernel on the PyTorch fixtures.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/gridsample/gridsample.h"
#include "kernel/cpu/resampling_test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(AvxGridSample, FormEqualsPortable) {
  TRN_REQUIRE_AVX();
  const unsigned c = 3, h = 5, w = 7;
  const std::vector<float> x = TestValues(c * h * w, -3.0f, 3.0f, 4);
  for (std::size_t pixels : {std::size_t(1), std::size_t(7), std::size_t(8), std::size_t(9), std::size_t(63),
                             std::size_t(kernel::functional::kGridStrip + 9)}) {
    std::vector<float> grid = TestValues(2 * pixels, -1.4f, 1.4f, unsigned(pixels), 13);
    if (pixels > 8) grid[3] = 1e30f, grid[6] = -1e30f;
    for (bool bilinear : {true, false}) {
      for (auto padding : {kernel::functional::GridPadding::kZeros, kernel::functional::GridPadding::kBorder,
                           kernel::functional::GridPadding::kReflection}) {
        for (bool align : {false, true}) {
          kernel::functional::GridSampleSpec spec;
          spec.bilinear = bilinear, spec.padding = padding, spec.align_corners = align, spec.in_h = h, spec.in_w = w;
          std::vector<float> want(c * pixels), got(c * pixels, -7.0f);
          kernel::functional::grid_sample_f32(x.data(), c, spec, grid.data(), pixels, want.data());
          kernel::functional::grid_sample_avx_f32(x.data(), c, spec, grid.data(), pixels, got.data());
          EXPECT_TRUE(SameBits(got, want, true))
              << pixels << " pixels, bilinear " << bilinear << " padding " << int(padding) << " align " << align;
        }
      }
    }
  }
}

TEST(AvxGridSample, KernelEqualsPortableKernel) {
  TRN_REQUIRE_AVX();
  auto ctx = ElementContext();
  const auto cases = ResamplingReference("grid_sample");
  ASSERT_FALSE(cases.empty());
  for (const auto& c : cases) {
    const auto p = ParseParams(c);
    auto r = GridSampleRecord(static_cast<std::uint16_t>(p["mode"].GetUint()),
                              static_cast<std::uint16_t>(p["padding_mode"].GetUint()), p["align_corners"].GetBool());
    const std::vector<std::shared_ptr<runtime::Tensor>> in = {MakeTensor(ctx, c.inputs[0].shape, c.inputs[0].data),
                                                              MakeTensor(ctx, c.inputs[1].shape, c.inputs[1].data)};
    const std::vector<float> want = Output(Configured<kernel::GridSample_Fallback_CHW_Float_M1>(r, ctx), in, ctx);
    EXPECT_TRUE(SameBits(Output(Configured<kernel::GridSample_AVX_CHW_Float_M1>(r, ctx), in, ctx), want)) << c.name;
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn
