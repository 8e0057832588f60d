// The portable fully connected member and routine against PyTorch fixtures
// and the double reference, its refusals, and the tile rules of the tiled
// members (decided in baseline code).
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "kernel/cpu/fc_test_util.h"
#include "tarn/kernel/fullconnection.h"

namespace tarn {
namespace testing {
namespace {

const conv::FcMember kFallback[] = {{"FullConnection_Fallback_C_Float_M1", conv::Form::kVector, 1}};

TEST(FullConnectionReference, FixturesArePresentAndTheDoubleReferenceAgrees) {
  const auto cases = LoadReference("fc");
  ASSERT_GE(cases.size(), 7u);
  for (const RefCase& c : cases) {
    auto p = ParseParams(c);
    const unsigned in = p["in_features"].GetUint(), out = p["out_features"].GetUint();
    const float* bias = p["bias"].GetBool() ? c.inputs[2].data.data() : nullptr;
    EXPECT_TRUE(conv::Near(c.outputs[0].data, conv::NaiveFc(in, out, c.inputs[0].data, c.inputs[1].data, bias)))
        << c.name;
  }
}

TRN_FC_MEMBER_TESTS(FullConnectionFallback, kFallback);

TEST(FullConnectionRefusals, TiledMembersNeedWholeTiles) {
  const auto valid = [](const char* name, unsigned in, unsigned out) {
    return conv::CreateKernel(name)->IsValidParam(conv::MakeFcInfo(in, out, {}, nullptr), nullptr);
  };
  EXPECT_EQ(valid("FullConnection_SSE_C44_Float_M1", 12, 6), -1);
  EXPECT_EQ(valid("FullConnection_SSE_C44_Float_M1", 12, 8), 0);
  EXPECT_EQ(valid("FullConnection_AVX_C88_Float_M1", 12, 8), -1);
  EXPECT_EQ(valid("FullConnection_AVX_C88_Float_M1", 16, 12), -1);
  EXPECT_EQ(valid("FullConnection_AVX_C88_Float_M1", 16, 8), 0);
}

TEST(FullConnectionFallbackRoutine, AccumulatesInInputOrderOntoTheBias) {
  conv::ExpectRoutineMatches(
      "fallback",
      [](std::vector<float>& x, const std::vector<float>& w, unsigned in, unsigned out, float* bias, float* y) {
        kernel::functional::fullconnection_fallback_c_f32_m1(x.data(), in, out, w.data(), bias, y);
      },
      conv::FeatureCounts(), {1, 5, 8});
  // The documented order: acc = fma(W[o][i], x[i], acc) from the bias on.
  for (unsigned in : conv::FeatureCounts()) {
    for (unsigned out : {1u, 5u, 8u}) {
      const auto x = conv::Random(in, in), w = conv::Random(std::size_t(in) * out, out), b = conv::Random(out, 3);
      std::vector<float> y(out, 99.0f);
      float acc = b[0];
      for (unsigned i = 0; i < in; ++i) acc = std::fma(w[i], x[i], acc);
      kernel::functional::fullconnection_fallback_c_f32_m1(x.data(), in, out, w.data(), b.data(), y.data());
      EXPECT_EQ(y[0], acc) << in << " -> " << out;
    }
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn
