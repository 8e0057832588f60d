// The AVX 1x1 cores, every layout pair.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/core_test_util.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::CoreDesc;
namespace native = kernel::native;

#define SKIP_WITHOUT_AVX() \
  if (!conv::CanRunAVX()) GTEST_SKIP() << "no AVX2 + FMA"

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
  SKIP_WITHOUT_AVX();
  const CoreDesc& core = kAvxCores[std::get<0>(GetParam())];
  const auto channels = std::get<1>(GetParam());
  for (unsigned h : {1u, 3u}) {
    for (unsigned w = 1; w <= 17; ++w) {
      EXPECT_TRUE(conv::CheckCore(core, channels.first, channels.second, h, w, 10 * w + h))
          << core.name << " h " << h << " w " << w;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Cores, ConvCoreAvx, ::testing::ValuesIn(CoreCases()),
                         [](const auto& info) {
                           return std::string(kAvxCores[std::get<0>(info.param)].name) + "_" +
                                  std::to_string(std::get<1>(info.param).first) + "to" +
                                  std::to_string(std::get<1>(info.param).second);
                         });

// Input counts 5..7 and 0 modulo 8 pass the rounding-by-3 check of the second
// C8HW8-to-C4HW4 core; 13 and 21 are the tail cases among them.
TEST(ConvCoreAvxOddCheck, AcceptedCountsComputeCorrectly) {
  SKIP_WITHOUT_AVX();
  for (unsigned c : {5u, 6u, 7u, 8u, 13u, 16u, 21u}) {
    for (unsigned w : {1u, 2u, 7u, 8u, 9u, 15u}) {
      EXPECT_TRUE(conv::CheckCore(kAvxCores[kOddCheckCore], c, 6, 2, w, c + w)) << c << " channels, width " << w;
    }
  }
}

TEST(ConvCoreAvxDeathTest, TheSecondC8ToC4CoreRoundsWithThree) {
  SKIP_WITHOUT_AVX();
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::vector<float> buf(4096, 0.0f);
  float* b = buf.data();
  // 9 channels are two C8HW8 blocks, but (9 + 3) / 8 == 1.
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_c4hw4_f32_avx_m1(9, 2, 2, b, 2, 4, 1, 1, 1, 1, 1, 1, 1, b, 1,
                                                                         2, 2, b),
               conv::Quoted("(i_inChannels + 3) / 8 == i_srcC"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_c4hw4_f32_avx_m1(8, 2, 2, b, 1, 5, 1, 1, 1, 1, 1, 1, 1, b, 1,
                                                                         2, 2, b),
               conv::Quoted("(i_outChannels + 3) / 4 == i_dstC"));
  // The first form uses the ordinary C8HW8 rule for the same 9 channels.
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_c4hw4_f32_avx_m0(9, 2, 2, b, 1, 4, 1, 1, 1, 1, 1, 1, 1, b, 1,
                                                                         2, 2, b),
               conv::Quoted("(i_inChannels + 7) / 8 == i_srcC"));
}

TEST(ConvCoreAvxDeathTest, LayoutRulesOfEveryPair) {
  SKIP_WITHOUT_AVX();
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::vector<float> buf(4096, 0.0f);
  float* b = buf.data();
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_avx_m0(5, 2, 2, b, 1, 4, 1, 1, 1, 1, 1, 1, 1, b, 1, 2, 2, b),
               conv::Quoted("(i_inChannels + 3) / 4 == i_srcC"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_avx_m1(4, 2, 2, b, 1, 5, 1, 1, 1, 1, 1, 1, 1, b, 1, 2, 2, b),
               conv::Quoted("(i_outChannels + 3) / 4 == i_dstC"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m3(9, 2, 2, b, 1, 8, 1, 1, 1, 1, 1, 1, 1, b, 1, 2, 2, b),
               conv::Quoted("(i_inChannels + 7) / 8 == i_srcC"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_to_c8hw8_f32_avx_m0(4, 2, 2, b, 1, 9, 1, 1, 1, 1, 1, 1, 1, b, 1,
                                                                         2, 2, b),
               conv::Quoted("(i_outChannels + 7) / 8 == i_dstC"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_chw_f32_avx_m0(8, 2, 2, b, 1, 3, 1, 1, 1, 1, 1, 1, 1, b, 1, 2,
                                                                       2, b),
               conv::Quoted("i_outChannels == i_dstC"));
  EXPECT_DEATH(native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m0(8, 2, 2, b, 1, 8, 1, 1, 1, 1, 2, 1, 1, b, 1, 2, 2, b),
               conv::Quoted("i_dilateY == 1"));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
