// The fixed-geometry SSE convolution members against the double reference
// over every register tile and tail, channel tails on both sides, with and
// without bias and padding; their refusals; and PyTorch on real layer
// shapes.
#include <gtest/gtest.h>

#include "kernel/cpu/sse/conv_members/conv_members_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::FixedMember;

const FixedMember kMembers[] = {
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 1, 1, 1, false},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4, 1, 1, 1, false},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2", 4, 1, 1, 1, false},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 8, 1, 1, 1, false},
    {"Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 1, 1, 2, true},
    {"Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4, 1, 1, 2, false},
    {"Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1", 8, 1, 1, 2, false},
    {"Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 1, 3, 1, true},
    {"Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4, 1, 3, 1, true},
    {"Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 8, 1, 3, 1, true},
    {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 3, 1, 1, true},
    {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2", 1, 3, 1, 1, true},
    {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4, 3, 1, 1, true},
    {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 8, 3, 1, 1, true},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 3, 3, 1, true},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4, 3, 3, 1, true},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2", 4, 3, 3, 1, true},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3", 4, 3, 3, 1, true},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 8, 3, 3, 1, true},
    {"Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 3, 3, 2, true},
    {"Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4, 3, 3, 2, true},
    {"Conv2d_K3x3_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1", 8, 3, 3, 2, true},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1", 1, 3, 3, 1, true},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2", 1, 3, 3, 1, true},
};
// The Winograd members (the last two) have tests of their own beside the
// grid (test_winograd.cpp); here they share the PyTorch layers.
constexpr int kDirectMembers = static_cast<int>(std::size(kMembers)) - 2;

std::string MemberName(const ::testing::TestParamInfo<int>& info) { return kMembers[info.param].name; }

class SseConvMemberGrid
    : public ::testing::TestWithParam<std::tuple<int, std::pair<unsigned, unsigned>>> {};

TEST_P(SseConvMemberGrid, MatchesTheDoubleReference) {
  const auto ch = std::get<1>(GetParam());
  conv::ExpectFixedMemberMatches(kMembers[std::get<0>(GetParam())], ch.first, ch.second, 40);
}

INSTANTIATE_TEST_SUITE_P(Members, SseConvMemberGrid,
                         ::testing::Combine(::testing::Range(0, kDirectMembers),
                                            ::testing::ValuesIn(conv::ChannelPairs())),
                         [](const auto& info) {
                           const auto ch = std::get<1>(info.param);
                           return std::string(kMembers[std::get<0>(info.param)].name) + "_" +
                                  std::to_string(ch.first) + "to" + std::to_string(ch.second);
                         });

class SseConvMember : public ::testing::TestWithParam<int> {};

TEST_P(SseConvMember, WithoutBiasStartsFromZero) { EXPECT_TRUE(conv::StartsFromZero(kMembers[GetParam()])); }

TEST_P(SseConvMember, RefusesOtherGeometriesAndInputs) { conv::ExpectFixedRefusals(kMembers[GetParam()]); }


// The blocked steps sum the input blocks in passes sized for L1 (the fewest
// blocks a pass takes is 5 of a 3x3 C8HW8 weight, the most 192 of a 1x1
// C4HW4 one): 776 input channels need several passes on every blocked
// member, and a pass left out or summed twice is far outside the tolerance.
// The CHW members run the same deep sums.
TEST_P(SseConvMember, DeepInputsSumEveryPass) {
  const FixedMember& m = kMembers[GetParam()];
  for (unsigned ow : {5u, 13u}) {
    const conv::ConvGeom g = conv::FixedGeom(m, 776, 5, 2, ow, conv::PaddingsOf(m).back(), ow == 5);
    EXPECT_TRUE(conv::RunConvMember(m.desc(), g, 7 + ow)) << g;
  }
}

INSTANTIATE_TEST_SUITE_P(Members, SseConvMember, ::testing::Range(0, kDirectMembers), MemberName);

// Layers with the geometry of real networks' layers (PyTorch's output, the
// tolerance of the double reference): every member whose kernel and stride
// match runs each, in its own layout.
TEST(SseConvMembers, MatchPyTorchOnRealLayerShapes) {
  const auto cases = LoadReference("conv_members/layers");
  ASSERT_FALSE(cases.empty()) << "tests/data/reference/conv_members/layers.json is missing";
  for (const RefCase& c : cases) {
    const conv::FixtureCase f = conv::ReadConv2DCase(c);
    const conv::ConvGeom& g = f.geom;
    const bool padded = g.pl + g.pr + g.pt + g.pb > 0;
    int ran = 0;
    for (const FixedMember& m : kMembers) {
      if (m.ky != g.ky || m.kx != g.kx || m.s != g.sy || m.s != g.sx || (padded && !m.pads)) continue;
      conv::Ref want = conv::NaiveConv2d(g, f.x, f.weight, f.bias);
      EXPECT_TRUE(conv::Near(f.y, want)) << "the double reference disagrees with PyTorch on " << c.name;
      want.value.assign(f.y.begin(), f.y.end());
      EXPECT_TRUE(conv::RunConvMemberOn(m.desc(), g, f.x, f.weight, f.bias, want)) << c.name;
      ++ran;
    }
    EXPECT_GE(ran, 3) << c.name;
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn
