// The SSE fully connected members and routines against PyTorch fixtures and
// the double reference, and the members' refusals.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/fc_test_util.h"
#include "tarn/kernel/fullconnection.h"

namespace tarn {
namespace testing {
namespace {

using conv::Form;
namespace fn = kernel::functional;

const conv::FcMember kSseMembers[] = {
    {"FullConnection_SSE_C_Float_M1", Form::kVector, 1},
    {"FullConnection_SSE_C44_Float_M1", Form::kVector, 4},
    {"FullConnection_SSE_BC_Float_M1", Form::kBatch, 1},
    {"FullConnection_SSE_C4HW4_Float_M1", Form::kC4HW4, 1},
};

TRN_FC_MEMBER_TESTS(FullConnectionSse, kSseMembers);

TEST(FullConnectionSseBatch, FourRowsShareEachWeightLoadAndTheRestGoOneByOne) {
  auto ctx = conv::MakeContext();
  const unsigned in = 13, out = 6;
  const auto w = conv::Random(in * out, 1), b = conv::Random(out, 2);
  auto kernel = conv::CreateKernel("FullConnection_SSE_BC_Float_M1");
  ASSERT_TRUE(kernel->Config(conv::MakeFcInfo(in, out, w, &b), nullptr, ctx));
  for (unsigned batch : {1u, 3u, 4u, 5u, 9u}) {
    const auto x = conv::Random(std::size_t(batch) * in, batch);
    auto input = conv::MakeTensor(ctx->cpu, {batch, in}, runtime::TensorShape::FLEXIABLE, x);
    std::vector<std::shared_ptr<runtime::Tensor>> outputs;
    ASSERT_EQ(kernel->IsValidInput({input}), 0);
    ASSERT_TRUE(kernel->Forward({input}, outputs, ctx));
    ASSERT_EQ(outputs[0]->shape.dims, (std::vector<unsigned>{batch, out}));
    const auto got = conv::Values(outputs[0]);
    for (unsigned r = 0; r < batch; ++r) {
      const std::vector<float> row(x.begin() + r * in, x.begin() + (r + 1) * in);
      EXPECT_TRUE(conv::Near(std::vector<float>(got.begin() + r * out, got.begin() + (r + 1) * out),
                             conv::NaiveFc(in, out, row, w, b.data())))
          << "batch " << batch << " row " << r;
    }
  }
}

// Each input count (whole vectors, tails only, both) with outputs around the
// four-row step; the 4x4 tiles on whole tiles.
TEST(FullConnectionSseRoutines, EveryFormMatchesTheReference) {
  const std::vector<unsigned> outs = {1, 3, 4, 5, 8, 13};
  conv::ExpectRoutineMatches(
      "m1",
      [](std::vector<float>& x, const std::vector<float>& w, unsigned in, unsigned out, float* bias, float* y) {
        fn::fullconnection_sse_c_f32_m1(x.data(), in, out, w.data(), bias, y);
      },
      conv::FeatureCounts(), outs);
  conv::ExpectRoutineMatches(
      "m2",
      [](std::vector<float>& x, const std::vector<float>& w, unsigned in, unsigned out, float* bias, float* y) {
        fn::fullconnection_sse_c_f32_m2(x.data(), in, out, w.data(), bias, y);
      },
      conv::FeatureCounts(), outs);
  conv::ExpectRoutineMatches(
      "c44",
      [](std::vector<float>& x, const std::vector<float>& w, unsigned in, unsigned out, float* bias, float* y) {
        auto tiles = conv::Tiles(w, in, out, 4);
        kernel::native::fullconnection_sse_c44_f32_m1(x.data(), in, out, tiles.data(), bias, y);
      },
      {4, 8, 12, 32}, {4, 8, 20}, 4);
}

// The first form sums whole vectors lane 0 + 1, + 2, + 3 and the tail apart.
TEST(FullConnectionSseRoutines, FirstFormSummationOrder) {
  const std::vector<float> x = {1e8f, 1.0f, -1e8f, 1.0f, 0.5f, 0.25f};
  const std::vector<float> w = {1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f};
  float y = 0.0f;
  fn::fullconnection_sse_c_f32_m1(x.data(), 6, 1, w.data(), nullptr, &y);
  // ((1e8 + 1) + -1e8) + 1 = 1 in float; the tail 0.75 comes on top.
  EXPECT_EQ(y, 1.75f);
}

TEST(FullConnectionSseC44DeathTest, CountsMustBeMultiplesOfFour) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::vector<float> buf(256, 0.0f);
  EXPECT_DEATH(kernel::native::fullconnection_sse_c44_f32_m1(buf.data(), 6, 4, buf.data(), nullptr, buf.data()),
               "i_inFeatures % 4 == 0");
  EXPECT_DEATH(kernel::native::fullconnection_sse_c44_f32_m1(buf.data(), 8, 6, buf.data(), nullptr, buf.data()),
               "i_outFeatures % 4 == 0");
}

// The C4HW4 map routine accumulates onto what the output holds.
TEST(FullConnectionSseC4HW4, MapsOfEveryPlaneSizeAndChannelTail) {
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
