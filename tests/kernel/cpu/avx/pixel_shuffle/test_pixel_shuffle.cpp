// Pixel shuffle (AVX): the row interleave against the portable one for
// factors 1 to 9 over every width tail, and the kernel on the fixture's cases.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/pixel_shuffle/pixel_shuffle.h"
#include "kernel/cpu/shape_test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(PixelShuffleAVX, InterleaveMatchesPortableBitForBit) {
  ExpectInterleaveMatchesPortable(kernel::functional::interleave_rows_f32_avx, 8);
}

class PixelShuffleAVXReference : public ::testing::TestWithParam<RefCase> {};

TEST_P(PixelShuffleAVXReference, MatchesPyTorch) {
  const RefCase& c = GetParam();
  auto ctx = ElementContext();
  auto k = Configured<kernel::PixelShuffle_AVX_CHW_Float_M1>(Shuffle(static_cast<float>(ParseParams(c)["upscale_factor"].GetDouble())), ctx);
  EXPECT_TRUE(SameTensor(RunAsNet(k, {RefInput(ctx, c.inputs[0])}, ctx), c.outputs[0]));
}

INSTANTIATE_TEST_SUITE_P(Fixtures, PixelShuffleAVXReference, ::testing::ValuesIn(ShapeCases("pixel", "pixel_shuffle")),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace testing
}  // namespace tarn
