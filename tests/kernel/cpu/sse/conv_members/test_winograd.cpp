// The Winograd F(2x2, 3x3) members against the direct SSE 3x3 member on the
// same data, within a stated bound, and against the double reference over
// every batch tail.
//
// Bound: |winograd - direct| <= 2^-20 * 9 C * max|x| * max|w| + 2^-20 * max|b|.
// Both members round in float; the transforms add up to nine terms of at most
// 2.25 (filter) and 4 (input) times the largest weight and input, so each
// product of the element-wise stage carries a relative error of a few float
// epsilons (2^-23) of 9 max|x| max|w|, summed over C input channels; 2^-20
// (eight epsilons) per term covers it with room, and the bound grows with C
// and with the magnitude of the data as the errors do.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "kernel/cpu/sse/conv_members/conv_members_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::ConvGeom;
using conv::FixedMember;

const FixedMember kWinograd[] = {
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1", 1, 3, 3, 1, true},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2", 1, 3, 3, 1, true},
};
const char kDirect[] = "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1";

std::vector<float> Scaled(std::vector<float> v, float scale) {
  for (float& f : v) f *= scale;
  return v;
}

float MaxAbs(const std::vector<float>& v) {
  float m = 0.0f;
  for (float f : v) m = std::max(m, std::fabs(f));
  return m;
}

std::vector<float> RunMember(const char* name, const ConvGeom& g, const std::vector<float>& x, const std::vector<float>& w,
                       const std::vector<float>& b) {
  auto ctx = conv::MakeContext();
  conv::KernelRun run = conv::RunKernel(name, conv::MakeConv2dInfo(g, w, b), ctx,
                                        conv::LayoutTensor(ctx->cpu, x, g.c, g.h, g.w, 1));
  EXPECT_TRUE(run.forwarded) << name;
  return run.forwarded ? conv::Values(run.outputs[0]) : std::vector<float>();
}

class WinogradBound : public ::testing::TestWithParam<std::tuple<int, unsigned, float>> {};

// Channel counts up to 256 and data of magnitude 1 and 100 (input and weight
// both scaled): the bound holds, and is not slack by orders of magnitude
// either (the largest error is above 1/1000 of it for the wide layers), so a
// transform that loses precision would show.
TEST_P(WinogradBound, StaysWithinTheBoundOfTheDirectMember) {
  const FixedMember& m = kWinograd[std::get<0>(GetParam())];
  const unsigned c = std::get<1>(GetParam());
  const float magnitude = std::get<2>(GetParam());
  const ConvGeom g{c, 8, 13, 21, 3, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, true};
  const std::vector<float> x = Scaled(conv::Random(std::size_t(c) * g.h * g.w, c), magnitude);
  const std::vector<float> w = Scaled(conv::Random(g.WeightCount(), c + 1), magnitude);
  const std::vector<float> b = Scaled(conv::Random(g.n, c + 2), magnitude);
  const std::vector<float> got = RunMember(m.name, g, x, w, b), want = RunMember(kDirect, g, x, w, b);
  ASSERT_EQ(got.size(), want.size());
  const double bound = std::ldexp(1.0, -20) * (9.0 * c * MaxAbs(x) * MaxAbs(w) + MaxAbs(b));
  double worst = 0.0;
  for (std::size_t i = 0; i < got.size(); ++i) worst = std::max(worst, std::fabs(double(got[i]) - want[i]));
  EXPECT_LE(worst, bound) << m.name << ", " << c << " channels, magnitude " << magnitude;
  if (c >= 64) {
    EXPECT_GT(worst, bound * 1e-3) << "an error this small means the member did not run Winograd";
  }
}

INSTANTIATE_TEST_SUITE_P(Members, WinogradBound,
                         ::testing::Combine(::testing::Range(0, 2), ::testing::Values(1u, 7u, 64u, 256u),
                                            ::testing::Values(1.0f, 100.0f)),
                         TRN_INDEX_NAMES);

class WinogradGrid : public ::testing::TestWithParam<std::tuple<int, std::pair<unsigned, unsigned>>> {};

// Output widths 1..17 reach every tail of the sixteen-column batches (and
// with padding the batches that run past the input), heights 1..3 the odd
// last tile row; channel tails on both sides, with and without bias.
TEST_P(WinogradGrid, MatchesTheDoubleReference) {
  const auto ch = std::get<1>(GetParam());
  conv::ExpectFixedMemberMatches(kWinograd[std::get<0>(GetParam())], ch.first, ch.second, 70);
}

INSTANTIATE_TEST_SUITE_P(Members, WinogradGrid,
                         ::testing::Combine(::testing::Range(0, 2), ::testing::ValuesIn(conv::ChannelPairs())),
                         TRN_INDEX_NAMES);

// Wide rows (several batches per tile row, a partial last one) and the
// refusals every member makes.
TEST(Winograd, WideRowsMatchTheDoubleReference) {
  for (const FixedMember& m : kWinograd) {
    for (unsigned ow : {32u, 33u, 47u, 56u}) {
      const ConvGeom g = conv::FixedGeom(m, 6, 10, 5, ow, {1, 1, 1, 1}, true);
      EXPECT_TRUE(conv::RunConvMember(m.desc(), g, ow)) << m.name << " " << g;
    }
  }
}

TEST(Winograd, RefusesOtherGeometriesAndInputs) {
  for (const FixedMember& m : kWinograd) conv::ExpectFixedRefusals(m);
}

TEST(Winograd, WithoutBiasStartsFromZero) {
  for (const FixedMember& m : kWinograd) EXPECT_TRUE(conv::StartsFromZero(m)) << m.name;
}

}  // namespace
}  // namespace testing
}  // namespace tarn
