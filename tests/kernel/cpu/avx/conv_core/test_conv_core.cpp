// The AVX 1x1 cores, every layout pair.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/core_test_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::CoreDesc;
namespace native = kernel::native;

const CoreDesc kAvxCores[] = {
    {"c4hw4_avx_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_avx_m0, 4, 4,
     kernel::Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback},
    {"c4hw4_avx_m1", native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_avx_m1, 4, 4,
     kernel::Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback},
    {"c8hw8_avx_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m0, 8, 8,
     kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback},
    {"c8hw8_avx_m3", native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m3, 8, 8,
     kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback},
    {"c4hw4_to_c8hw8_avx_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_to_c8hw8_f32_avx_m0, 4, 8,
     kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback},
    {"c8hw8_to_c4hw4_avx_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_c4hw4_f32_avx_m0, 8, 4,
     kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback},
    {"c8hw8_to_c4hw4_avx_m1", native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_c4hw4_f32_avx_m1, 8, 4,
     kernel::Function_Tensor_GNCHW_To_GN4C8HW8c4n_Fallback},
    {"c8hw8_to_chw_avx_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_chw_f32_avx_m0, 8, 1,
     kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback},
};
constexpr int kCoreCount = 8;
constexpr int kOddCheckCore = 6;

// Every core with every channel pair, except the pairs the second
// C8HW8-to-C4HW4 core refuses by its input check (see the death test below).
std::vector<std::tuple<int, std::pair<unsigned, unsigned>>> CoreCases() {
  std::vector<std::tuple<int, std::pair<unsigned, unsigned>>> cases;
  for (int core = 0; core < kCoreCount; ++core) {
    for (const auto& pair : conv::ChannelPairs()) {
      if (core == kOddCheckCore && (pair.first + 3) / 8 != (pair.first + 7) / 8) continue;
      cases.emplace_back(core, pair);
    }
  }
  return cases;
}

class ConvCoreAvx : public ::testing::TestWithParam<std::tuple<int, std::pair<unsigned, unsigned>>> {};

TEST_P(ConvCoreAvx, MatchesTheReferenceForWidthsOneToSeventeen) {
  conv::ExpectCoreWidths(kAvxCores[std::get<0>(GetParam())], std::get<1>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Cores, ConvCoreAvx, ::testing::ValuesIn(CoreCases()), conv::CoreCaseName<kAvxCores>);

// Input counts 5..7 and 0 modulo 8 pass the rounding-by-3 check of the second
// C8HW8-to-C4HW4 core; 13 and 21 are the tail cases among them.
TEST(ConvCoreAvxOddCheck, AcceptedCountsComputeCorrectly) {
  for (unsigned c : {5u, 6u, 7u, 8u, 13u, 16u, 21u}) {
    for (unsigned w : {1u, 2u, 7u, 8u, 9u, 15u}) {
      EXPECT_TRUE(conv::CheckCore(kAvxCores[kOddCheckCore], c, 6, 2, w, c + w)) << c << " channels, width " << w;
    }
  }
}

TEST(ConvCoreAvxDeathTest, TheSecondC8ToC4CoreRoundsWithThree) {
  conv::ExpectCoreDeaths({
      // 9 channels are two C8HW8 blocks, but (9 + 3) / 8 == 1.
      {kAvxCores[6].fn, {9, 2, 2, 2, 4, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2}, "(i_inChannels + 3) / 8 == i_srcC"},
      {kAvxCores[6].fn, {8, 2, 2, 1, 5, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2}, "(i_outChannels + 3) / 4 == i_dstC"},
      // The first form uses the ordinary C8HW8 rule for the same 9 channels.
      {kAvxCores[5].fn, {9, 2, 2, 1, 4, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2}, "(i_inChannels + 7) / 8 == i_srcC"},
  });
}

TEST(ConvCoreAvxDeathTest, LayoutRulesOfEveryPair) {
  conv::ExpectCoreDeaths({
      {kAvxCores[0].fn, {5, 2, 2, 1, 4, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2}, "(i_inChannels + 3) / 4 == i_srcC"},
      {kAvxCores[1].fn, {4, 2, 2, 1, 5, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2}, "(i_outChannels + 3) / 4 == i_dstC"},
      {kAvxCores[3].fn, {9, 2, 2, 1, 8, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2}, "(i_inChannels + 7) / 8 == i_srcC"},
      {kAvxCores[4].fn, {4, 2, 2, 1, 9, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2}, "(i_outChannels + 7) / 8 == i_dstC"},
      {kAvxCores[7].fn, {8, 2, 2, 1, 3, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2}, "i_outChannels == i_dstC"},
      {kAvxCores[2].fn, {8, 2, 2, 1, 8, 1, 1, 1, 1, 2, 1, 1, 1, 2, 2}, "i_dilateY == 1"},
  });
}

}  // namespace
}  // namespace testing
}  // namespace tarn
