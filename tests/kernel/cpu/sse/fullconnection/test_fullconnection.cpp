// The SSE fully connected routines against the double reference.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/fc_test_util.h"
#include "tarn/kernel/fullconnection.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

namespace fn = kernel::functional;

class FullConnectionSseRoutines : public ::testing::TestWithParam<unsigned> {};

// Each input count (1..17 and beyond: whole vectors, tails only, both) with
// outputs around the four-row step, bias and none.
TEST_P(FullConnectionSseRoutines, BothVectorFormsMatchTheReference) {
  if (!conv::CanRunSSE()) GTEST_SKIP();
  const unsigned in = GetParam();
  for (unsigned out : {1u, 3u, 4u, 5u, 8u, 13u}) {
    const auto x = conv::Random(in, in), w = conv::Random(std::size_t(in) * out, out), b = conv::Random(out, 7);
    const std::uint32_t fin = in, fout = out;
    for (const float* bias : {static_cast<const float*>(b.data()), static_cast<const float*>(nullptr)}) {
      const conv::Ref want = conv::NaiveFc(in, out, x, w, bias);
      std::vector<float> y(out, 99.0f);
      fn::fullconnection_sse_c_f32_m1(x.data(), fin, fout, w.data(), bias, y.data());
      EXPECT_TRUE(conv::Near(y, want)) << "m1 " << in << " -> " << out;
      y.assign(out, 99.0f);
      fn::fullconnection_sse_c_f32_m2(x.data(), fin, fout, w.data(), bias, y.data());
      EXPECT_TRUE(conv::Near(y, want)) << "m2 " << in << " -> " << out;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(InputCounts, FullConnectionSseRoutines, ::testing::ValuesIn(conv::FeatureCounts()),
                         TRN_INDEX_NAMES);

// The first form sums whole vectors lane 0 + 1, + 2, + 3 and the tail apart.
TEST(FullConnectionSseRoutinesOrder, FirstFormSummationOrder) {
  if (!conv::CanRunSSE()) GTEST_SKIP();
  const std::vector<float> x = {1e8f, 1.0f, -1e8f, 1.0f, 0.5f, 0.25f};
  const std::vector<float> w = {1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f};
  float y = 0.0f;
  const std::uint32_t in = 6, out = 1;
  fn::fullconnection_sse_c_f32_m1(x.data(), in, out, w.data(), nullptr, &y);
  // ((1e8 + 1) + -1e8) + 1 = 1 in float; the tail 0.75 comes on top.
  EXPECT_EQ(y, 1.75f);
}

TEST(FullConnectionSseC44, FourByFourTilesWithAndWithoutBias) {
  if (!conv::CanRunSSE()) GTEST_SKIP();
  for (unsigned in : {4u, 8u, 12u, 32u}) {
    for (unsigned out : {4u, 8u, 20u}) {
      const auto x = conv::Random(in, in), w = conv::Random(std::size_t(in) * out, out), b = conv::Random(out, 2);
      std::vector<float> tiles(w.size());
      for (unsigned o = 0; o < out; ++o)
        for (unsigned i = 0; i < in; ++i) tiles[((o / 4) * (in / 4) + i / 4) * 16 + (i % 4) * 4 + o % 4] = w[o * in + i];
      std::vector<float> y(out, 5.0f), xin = x, bias = b;
      kernel::native::fullconnection_sse_c44_f32_m1(xin.data(), in, out, tiles.data(), bias.data(), y.data());
      EXPECT_TRUE(conv::Near(y, conv::NaiveFc(in, out, x, w, b.data())));
      kernel::native::fullconnection_sse_c44_f32_m1(xin.data(), in, out, tiles.data(), nullptr, y.data());
      EXPECT_TRUE(conv::Near(y, conv::NaiveFc(in, out, x, w, nullptr)));
    }
  }
}

TEST(FullConnectionSseC44DeathTest, CountsMustBeMultiplesOfFour) {
  if (!conv::CanRunSSE()) GTEST_SKIP();
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::vector<float> buf(256, 0.0f);
  EXPECT_DEATH(kernel::native::fullconnection_sse_c44_f32_m1(buf.data(), 6, 4, buf.data(), nullptr, buf.data()),
               "i_inFeatures % 4 == 0");
  EXPECT_DEATH(kernel::native::fullconnection_sse_c44_f32_m1(buf.data(), 8, 6, buf.data(), nullptr, buf.data()),
               "i_outFeatures % 4 == 0");
}

// The C4HW4 map routine accumulates onto what the output holds.
TEST(FullConnectionSseC4HW4, MapsOfEveryPlaneSizeAndChannelTail) {
  if (!conv::CanRunSSE()) GTEST_SKIP();
  for (unsigned c : {1u, 3u, 4u, 5u, 9u, 13u}) {
    for (unsigned plane : {1u, 2u, 3u, 4u, 5u, 8u, 9u}) {
      const unsigned in = c * plane, out = 6;
      const auto x = conv::Random(in, c + plane), w = conv::Random(std::size_t(in) * out, 3);
      const auto start = conv::Random(out, 4);
      const std::vector<float> blocked = conv::ToBlocked(x, c, plane, 1, 4);
      std::vector<float> y = start;
      kernel::FullConnection_SSE_C4HW4_Float_M1_Full_Connection(blocked.data(), c, plane, 1, out, w.data(), y.data());
      EXPECT_TRUE(conv::Near(y, conv::NaiveFc(in, out, x, w, start.data()))) << c << " channels, plane " << plane;
    }
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn
