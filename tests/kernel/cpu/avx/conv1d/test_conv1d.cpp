// The AVX three-tap 1-D convolution against PyTorch fixtures and a double
// reference, and its refusals of bad records and inputs.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/conv_test_util.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::Conv1DGeom;

const char kAvx1D[] = "Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1";

TEST(Conv1DAvxReference, ThreeTapCasesMatchPyTorch) { EXPECT_GE(conv::RunConv1DFixtures(kAvx1D, true), 2); }

class Conv1DAvxLengths : public ::testing::TestWithParam<std::pair<unsigned, unsigned>> {};

// Output lengths 1..17 (eight positions per step, 1..7 in the tail), with
// symmetric, asymmetric and no padding.
TEST_P(Conv1DAvxLengths, MatchesTheDoubleReference) {
  const auto ch = GetParam();
  const unsigned pads[][2] = {{1, 1}, {0, 2}, {0, 0}};
  for (const auto& p : pads) {
    for (unsigned out = 1; out <= 17; ++out) {
      const Conv1DGeom g{ch.first, ch.second, out + 2 - p[0] - p[1], 3, 1, 1, 1, p[0], p[1], out % 3 != 0};
      const auto x = conv::Random(std::size_t(g.c) * g.length, out), w = conv::Random(std::size_t(g.n) * g.c * 3, 9);
      const auto b = conv::Random(g.n, 4);
      EXPECT_TRUE(conv::RunConv1D(kAvx1D, g, x, w, b, conv::NaiveConv1d(g, x, w, b))) << "length " << out;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Channels, Conv1DAvxLengths, ::testing::ValuesIn(std::vector<std::pair<unsigned, unsigned>>{
                                                         {1, 1}, {3, 5}, {8, 4}, {13, 9}, {17, 16}}),
                         TRN_INDEX_NAMES);

TEST(Conv1DAvxRefusals, RecordsInputsAndGeometriesOtherThanThreeTaps) {
  conv::ExpectConv1DRefusals(kAvx1D);
  auto avx = conv::CreateKernel(kAvx1D);
  const Conv1DGeom wide{4, 2, 8, 5, 1, 1, 1, 1, 1, false}, strided{4, 2, 8, 3, 2, 1, 1, 1, 1, false};
  EXPECT_EQ(avx->IsValidParam(conv::MakeConv1dInfo(wide, conv::Random(40, 1), {}), nullptr), -1);
  EXPECT_EQ(avx->IsValidParam(conv::MakeConv1dInfo(strided, conv::Random(24, 1), {}), nullptr), -1);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
