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
};

std::string MemberName(const ::testing::TestParamInfo<int>& info) { return kMembers[info.param].name; }

class SseConvMemberGrid
    : public ::testing::TestWithParam<std::tuple<int, std::pair<unsigned, unsigned>>> {};

TEST_P(SseConvMemberGrid, MatchesTheDoubleReference) {
  const auto ch = std::get<1>(GetParam());
  conv::ExpectFixedMemberMatches(kMembers[std::get<0>(GetParam())], ch.first, ch.second, 40);
}

INSTANTIATE_TEST_SUITE_P(Members, SseConvMemberGrid,
                         ::testing::Combine(::testing::Range(0, static_cast<int>(std::size(kMembers))),
                                            ::testing::ValuesIn(conv::ChannelPairs())),
                         [](const auto& info) {
                           const auto ch = std::get<1>(info.param);
                           return std::string(kMembers[std::get<0>(info.param)].name) + "_" +
                                  std::to_string(ch.first) + "to" + std::to_string(ch.second);
                         });

class SseConvMember : public ::testing::TestWithParam<int> {};

TEST_P(SseConvMember, WithoutBiasStartsFromZero) { EXPECT_TRUE(conv::StartsFromZero(kMembers[GetParam()])); }

TEST_P(SseConvMember, RefusesOtherGeometriesAndInputs) { conv::ExpectFixedRefusals(kMembers[GetParam()]); }

INSTANTIATE_TEST_SUITE_P(Members, SseConvMember, ::testing::Range(0, static_cast<int>(std::size(kMembers))),
                         MemberName);

}  // namespace
}  // namespace testing
}  // namespace tarn
