// The portable transposed convolution against the double reference over
// kernels, strides, dilations, groups and signed paddings, PyTorch fixtures
// and hostile records.
#include <gtest/gtest.h>

#include "kernel/cpu/depthwise_test_util.h"

namespace tarn {
namespace testing {
namespace {

const conv::MemberDesc kFallback = {"ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", 1};

std::vector<conv::TransposeKernel> AllKernels() {
  std::vector<conv::TransposeKernel> all = conv::Transpose3x3Kernels();
  const auto& other = conv::TransposeOtherKernels();
  all.insert(all.end(), other.begin(), other.end());
  return all;
}

class ConvTransposeFallback : public ::testing::TestWithParam<conv::TransposeKernel> {};

TEST_P(ConvTransposeFallback, OneGroupMatchesTheDoubleReference) { conv::ExpectTransposeGrid(kFallback, GetParam(), 7, 3); }

// Groups map input channel blocks onto output channel blocks; one channel per
// group is the depthwise case.
TEST_P(ConvTransposeFallback, GroupsMatchTheDoubleReference) {
  const unsigned cng[][3] = {{4, 6, 2}, {6, 9, 3}, {5, 5, 5}, {8, 4, 4}, {2, 8, 2}};
  for (const auto& t : cng) {
    for (unsigned w = 1; w <= 5; ++w) {
      const conv::TransposeGeom g = conv::MakeTranspose(GetParam(), t[0], t[1], t[2], 1 + w % 3, w, w % 2 == 1);
      if (g.OutH() < 1 || g.OutW() < 1) continue;
      EXPECT_TRUE(conv::RunTransposeMember(kFallback, g, 17 + w));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Kernels, ConvTransposeFallback, ::testing::ValuesIn(AllKernels()), TRN_INDEX_NAMES);

TEST(ConvTransposeFallbackMember, MatchesPyTorch) { conv::ExpectTransposeMatchesTorch(kFallback, false); }

TEST(ConvTransposeFallbackMember, RefusesHostileRecordsAndInputs) { conv::ExpectTransposeRefusals(kFallback, false); }

}  // namespace
}  // namespace testing
}  // namespace tarn
