// The AVX fully connected routines against the double reference.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/fc_test_util.h"
#include "tarn/kernel/fullconnection.h"
#include "tarn/kernel/packing.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

// Row-major [out][in] as N8C88c8n tiles, counts rounded up with zero lanes.
std::vector<float> Tiles8(const std::vector<float>& w, unsigned in, unsigned out) {
  const unsigned ib = (in + 7) / 8, ob = (out + 7) / 8;
  std::vector<float> t(std::size_t(ib) * ob * 64, 0.0f);
  for (unsigned o = 0; o < out; ++o)
    for (unsigned i = 0; i < in; ++i) t[((o / 8) * ib + i / 8) * 64 + (i % 8) * 8 + o % 8] = w[std::size_t(o) * in + i];
  return t;
}

class FullConnectionAvxRoutines : public ::testing::TestWithParam<unsigned> {};

TEST_P(FullConnectionAvxRoutines, RowMajorAndTiledFormsMatchTheReference) {
  if (!conv::CanRunAVX()) GTEST_SKIP();
  const unsigned in = GetParam();
  for (unsigned out : {1u, 3u, 4u, 7u, 8u, 9u, 16u, 17u}) {
    auto x = conv::Random(in, in), w = conv::Random(std::size_t(in) * out, out), b = conv::Random(out, 7);
    std::vector<float> tiles = Tiles8(w, in, out);
    for (float* bias : {b.data(), static_cast<float*>(nullptr)}) {
      const conv::Ref want = conv::NaiveFc(in, out, x, w, bias);
      std::vector<float> y(out, 99.0f);
      kernel::native::fc_c_f32_avx_m0(x.data(), in, out, w.data(), bias, y.data());
      EXPECT_TRUE(conv::Near(y, want)) << "m0 " << in << " -> " << out;
      y.assign(out, 99.0f);
      kernel::FullConnection_AVX_C_Float_M2_Full_Connection(x.data(), in, out, tiles.data(), bias, y.data());
      EXPECT_TRUE(conv::Near(y, want)) << "M2 " << in << " -> " << out;
      y.assign(out, 99.0f);
      kernel::FullConnection_AVX_C_Float_M3_Full_Connection(x.data(), in, out, w.data(), bias, y.data());
      EXPECT_TRUE(conv::Near(y, want)) << "M3 " << in << " -> " << out;
      if (in % 8 == 0 && out % 8 == 0) {
        y.assign(out, 99.0f);
        kernel::native::fc_c88_f32_avx_m0(x.data(), in, out, tiles.data(), bias, y.data());
        EXPECT_TRUE(conv::Near(y, want)) << "c88 " << in << " -> " << out;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(InputCounts, FullConnectionAvxRoutines, ::testing::ValuesIn(conv::FeatureCounts()),
                         TRN_INDEX_NAMES);

TEST(FullConnectionAvxC88, OneTileAndTheBiasOnlyCase) {
  if (!conv::CanRunAVX()) GTEST_SKIP();
  auto x = conv::Random(8, 1), w = conv::Random(64, 2), b = conv::Random(8, 3);
  auto tiles = Tiles8(w, 8, 8);
  std::vector<float> y(8);
  kernel::native::fc_c88_f32_avx_m0(x.data(), 8, 8, tiles.data(), b.data(), y.data());
  EXPECT_TRUE(conv::Near(y, conv::NaiveFc(8, 8, x, w, b.data())));
  // No inputs: the output is the bias.
  kernel::native::fc_c88_f32_avx_m0(x.data(), 0, 8, tiles.data(), b.data(), y.data());
  EXPECT_EQ(y, b);
}

TEST(FullConnectionAvxC88DeathTest, CountsMustBeMultiplesOfEight) {
  if (!conv::CanRunAVX()) GTEST_SKIP();
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::vector<float> buf(512, 0.0f);
  EXPECT_DEATH(kernel::native::fc_c88_f32_avx_m0(buf.data(), 12, 8, buf.data(), nullptr, buf.data()),
               "i_inFeatures % 8 == 0");
  EXPECT_DEATH(kernel::native::fc_c88_f32_avx_m0(buf.data(), 8, 12, buf.data(), nullptr, buf.data()),
               "i_outFeatures % 8 == 0");
}

// The C8HW8 map routine reads the weight packed as [1, O, C*H*W, 1, 1] in
// GN8C8HW8c8n and accumulates onto the C8HW8 output.
TEST(FullConnectionAvxC8HW8, MapsOfEveryPlaneSizeAndChannelTail) {
  if (!conv::CanRunAVX()) GTEST_SKIP();
  auto ctx = conv::MakeContext();
  for (unsigned c : {1u, 3u, 8u, 9u, 13u, 17u}) {
    for (unsigned plane : {1u, 2u, 3u, 4u, 7u}) {
      for (unsigned out : {5u, 8u, 11u}) {
        const unsigned in = c * plane;
        const auto x = conv::Random(in, c + plane), w = conv::Random(std::size_t(in) * out, out);
        const auto start = conv::Random(out, 4);
        auto packed = kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback(
            conv::MakeTensor(ctx->cpu, {1, out, in, 1, 1}, runtime::TensorShape::GNCHW, w), ctx->cpu);
        const std::vector<float> blocked = conv::ToBlocked(x, c, plane, 1, 8);
        std::vector<float> y = conv::ToBlocked(start, out, 1, 1, 8);
        kernel::FullConnection_AVX_C8HW8_Float_M1_Full_Connection(blocked.data(), c, 1, plane, out,
                                                                  packed->DataAs<float>(), y.data());
        EXPECT_TRUE(conv::TailLanesZero(y.data(), out, 1, 1, 8));
        y.resize(out);
        EXPECT_TRUE(conv::Near(y, conv::NaiveFc(in, out, x, w, start.data())))
            << c << " channels, plane " << plane << ", " << out << " outputs";
      }
    }
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn
