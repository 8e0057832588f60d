// The portable 1-D convolution against PyTorch fixtures and a double
// reference, and its refusals of bad records and inputs.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/conv_test_util.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::Conv1DGeom;

const char kFallback1D[] = "Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1";

TEST(Conv1DReference, FallbackMatchesPyTorch) { EXPECT_GE(conv::RunConv1DFixtures(kFallback1D, false), 5); }

class Conv1DFallbackGrid : public ::testing::TestWithParam<int> {};

TEST_P(Conv1DFallbackGrid, MatchesTheDoubleReference) {
  const Conv1DGeom shapes[] = {
      {3, 5, 9, 3, 1, 1, 1, 1, 1, true},  {4, 6, 17, 5, 2, 2, 2, 2, 3, false}, {6, 6, 11, 3, 3, 1, 6, 0, 2, true},
      {2, 4, 5, 1, 1, 1, 1, 0, 0, true},  {8, 4, 20, 4, 1, 3, 4, 3, 0, false}, {1, 1, 1, 1, 1, 1, 1, 0, 0, false},
  };
  const Conv1DGeom& g = shapes[GetParam()];
  const auto x = conv::Random(std::size_t(g.c) * g.length, 1), w = conv::Random(std::size_t(g.n) * (g.c / g.g) * g.k, 2);
  const auto b = conv::Random(g.n, 3);
  EXPECT_TRUE(conv::RunConv1D(kFallback1D, g, x, w, b, conv::NaiveConv1d(g, x, w, b)));
  EXPECT_TRUE(conv::RunConv1D(kFallback1D, g, x, w, b, conv::NaiveConv1d(g, x, w, b), runtime::TensorShape::CHW));
}

INSTANTIATE_TEST_SUITE_P(Shapes, Conv1DFallbackGrid, ::testing::Range(0, 6), TRN_INDEX_NAMES);

TEST(Conv1DRefusals, RecordsAndInputs) { conv::ExpectConv1DRefusals(kFallback1D); }

}  // namespace
}  // namespace testing
}  // namespace tarn
