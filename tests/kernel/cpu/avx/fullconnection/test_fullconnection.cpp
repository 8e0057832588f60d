// The AVX fully connected members and routines against PyTorch fixtures and
// the double reference, and the members' refusals.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/fc_test_util.h"
#include "tarn/kernel/fullconnection.h"
#include "tarn/kernel/packing.h"

namespace tarn {
namespace testing {
namespace {

using conv::Form;

const conv::FcMember kAvxMembers[] = {
    {"FullConnection_AVX_C_Float_M1", Form::kVector, 1},   {"FullConnection_AVX_C_Float_M2", Form::kVector, 1},
    {"FullConnection_AVX_C_Float_M3", Form::kVector, 1},   {"FullConnection_AVX_C88_Float_M1", Form::kVector, 8},
    {"FullConnection_AVX_C8HW8_Float_M1", Form::kC8HW8, 1},
};

TRN_FC_MEMBER_TESTS(FullConnectionAvx, kAvxMembers);

// Row-major and 8x8-tiled forms; the tiled form with rounded-up tiles takes
// any counts, the c88 one whole tiles only.
TEST(FullConnectionAvxRoutines, RowMajorAndTiledFormsMatchTheReference) {
  const std::vector<unsigned> outs = {1, 3, 4, 7, 8, 9, 16, 17};
  conv::ExpectRoutineMatches(
      "m0",
      [](std::vector<float>& x, const std::vector<float>& w, unsigned in, unsigned out, float* bias, float* y) {
        auto rows = w;
        kernel::native::fc_c_f32_avx_m0(x.data(), in, out, rows.data(), bias, y);
      },
      conv::FeatureCounts(), outs);
  conv::ExpectRoutineMatches(
      "M2",
      [](std::vector<float>& x, const std::vector<float>& w, unsigned in, unsigned out, float* bias, float* y) {
        auto tiles = conv::Tiles(w, in, out, 8);
        kernel::FullConnection_AVX_C_Float_M2_Full_Connection(x.data(), in, out, tiles.data(), bias, y);
      },
      conv::FeatureCounts(), outs);
  conv::ExpectRoutineMatches(
      "M3",
      [](std::vector<float>& x, const std::vector<float>& w, unsigned in, unsigned out, float* bias, float* y) {
        auto rows = w;
        kernel::FullConnection_AVX_C_Float_M3_Full_Connection(x.data(), in, out, rows.data(), bias, y);
      },
      conv::FeatureCounts(), outs);
  conv::ExpectRoutineMatches(
      "c88",
      [](std::vector<float>& x, const std::vector<float>& w, unsigned in, unsigned out, float* bias, float* y) {
        auto tiles = conv::Tiles(w, in, out, 8);
        kernel::native::fc_c88_f32_avx_m0(x.data(), in, out, tiles.data(), bias, y);
      },
      conv::FeatureCounts(), outs, 8);
}

TEST(FullConnectionAvxC88, WithoutInputsTheOutputIsTheBias) {
  auto x = conv::Random(8, 1), b = conv::Random(8, 3);
  auto tiles = conv::Tiles(conv::Random(64, 2), 8, 8, 8);
  std::vector<float> y(8);
  kernel::native::fc_c88_f32_avx_m0(x.data(), 0, 8, tiles.data(), b.data(), y.data());
  EXPECT_EQ(y, b);
}

TEST(FullConnectionAvxC88DeathTest, CountsMustBeMultiplesOfEight) {
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
