// 2-D padding (SSE): the padded plane against the portable one for every
// amount and tail, and both kernels on the fixture's cases (CHW, and C4HW4
// with a border value in the real channels only).
#include <gtest/gtest.h>

#include "kernel/cpu/sse/pad/pad.h"
#include "kernel/cpu/shape_test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(PadSSE, PlaneMatchesPortableBitForBit) { ExpectPadPlaneMatchesPortable(kernel::functional::pad_plane_f32_sse, 4); }

class PadSSEReference : public ::testing::TestWithParam<RefCase> {};

TEST_P(PadSSEReference, MatchesPyTorch) {
  ExpectPad2dCase<kernel::Pad2d_SSE_CHW_Float_M1>(GetParam(), 1);
  ExpectPad2dCase<kernel::Pad2d_SSE_C4HW4_Float_M1>(GetParam(), 4);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, PadSSEReference, ::testing::ValuesIn(Pad2dMapCases()),
                         [](const auto& info) { return info.param.name; });

TEST(PadSSE, EachMemberTakesItsLayoutOnly) {
  ExpectPadMembersTakeTheirLayouts<kernel::Pad2d_SSE_CHW_Float_M1, kernel::Pad2d_SSE_C4HW4_Float_M1>(4);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
