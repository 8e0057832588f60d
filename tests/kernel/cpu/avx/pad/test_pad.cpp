// 2-D padding (AVX): the padded plane against the portable one for every
// amount and tail, and both kernels on the fixture's cases (CHW, and C8HW8
// with a border value in the real channels only).
#include <gtest/gtest.h>

#include "kernel/cpu/avx/pad/pad.h"
#include "kernel/cpu/shape_test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(PadAVX, PlaneMatchesPortableBitForBit) { ExpectPadPlaneMatchesPortable(kernel::functional::pad_plane_f32_avx, 8); }

class PadAVXReference : public ::testing::TestWithParam<RefCase> {};

TEST_P(PadAVXReference, MatchesPyTorch) {
  ExpectPad2dCase<kernel::Pad2d_AVX_CHW_Float_M1>(GetParam(), 1);
  ExpectPad2dCase<kernel::Pad2d_AVX_C8HW8_Float_M1>(GetParam(), 8);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, PadAVXReference, ::testing::ValuesIn(Pad2dMapCases()),
                         [](const auto& info) { return info.param.name; });

TEST(PadAVX, EachMemberTakesItsLayoutOnly) {
  ExpectPadMembersTakeTheirLayouts<kernel::Pad2d_AVX_CHW_Float_M1, kernel::Pad2d_AVX_C8HW8_Float_M1>(8);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
