// Gemm: both kernels on every PyTorch fixture case (transposes, alpha, beta,
// each broadcast of C), the CBLAS kernel against the portable reference on
// larger products, and the inputs they refuse.
#include <gtest/gtest.h>

#include "kernel/cpu/fallback/gemm/gemm.h"
#include "kernel/cpu/sgemm/gemm/gemm.h"
#include "kernel/cpu/shape_test_util.h"

namespace tarn {
namespace testing {
namespace {

std::shared_ptr<runtime::GemmInfo> Gemm(bool ta, bool tb, float alpha, float beta) {
  auto rec = std::make_shared<runtime::GemmInfo>();
  rec->trans_a = ta, rec->trans_b = tb, rec->alpha = alpha, rec->beta = beta;
  return rec;
}

class GemmReference : public ::testing::TestWithParam<RefCase> {};

// The fixture's values lie on a 1/16 grid and its sums are short, so every
// product and sum is exact in float whatever the order: both kernels must
// match to the bit.
TEST_P(GemmReference, MatchesPyTorch) {
  const RefCase& c = GetParam();
  const auto p = ParseParams(c);
  auto rec = Gemm(p["trans_a"].GetBool(), p["trans_b"].GetBool(), static_cast<float>(p["alpha"].GetDouble()),
                  static_cast<float>(p["beta"].GetDouble()));
  auto ctx = ElementContext();
  std::vector<std::shared_ptr<runtime::Tensor>> in;
  for (const auto& t : c.inputs) in.push_back(RefInput(ctx, t));
  EXPECT_TRUE(SameTensor(RunAsNet(Configured<kernel::Gemm_Fallback_Float_M1>(rec, ctx), in, ctx), c.outputs[0]));
  EXPECT_TRUE(SameTensor(RunAsNet(Configured<kernel::Gemm_SGEMM_Float_M1>(rec, ctx), in, ctx), c.outputs[0]));
}

INSTANTIATE_TEST_SUITE_P(Fixtures, GemmReference, ::testing::ValuesIn(ShapeCases("gemm", "gemm")),
                         [](const auto& info) { return info.param.name; });

// Products too long for exact sums: the CBLAS kernel agrees with the
// portable loop to a relative 1e-5 of the sum of absolute products.
class GemmAgainstReference : public ::testing::TestWithParam<int> {};

TEST_P(GemmAgainstReference, CblasMatchesPortable) {
  const bool ta = GetParam() & 1, tb = GetParam() & 2;
  const unsigned m = 17, k = 129, n = 33;
  auto ctx = ElementContext();
  auto rec = Gemm(ta, tb, 0.75f, -1.25f);
  const std::vector<float> a = TestValues(m * k, -1, 1, 1), b = TestValues(k * n, -1, 1, 2), c = TestValues(n, -1, 1, 3);
  std::vector<std::shared_ptr<runtime::Tensor>> in = {
      MakeTensor(ctx, ta ? std::vector<unsigned>{k, m} : std::vector<unsigned>{m, k}, a),
      MakeTensor(ctx, tb ? std::vector<unsigned>{n, k} : std::vector<unsigned>{k, n}, b), MakeTensor(ctx, {1, n}, c)};
  auto want = RunAsNet(Configured<kernel::Gemm_Fallback_Float_M1>(rec, ctx), in, ctx);
  auto got = RunAsNet(Configured<kernel::Gemm_SGEMM_Float_M1>(rec, ctx), in, ctx);
  ASSERT_TRUE(want && got);
  ASSERT_EQ(got->shape.dims, (std::vector<unsigned>{m, n}));
  const std::vector<float> g = Values(got), w = Values(want);
  for (unsigned i = 0; i < m; ++i) {
    for (unsigned j = 0; j < n; ++j) {
      float scale = std::fabs(1.25f * c[j]);
      for (unsigned q = 0; q < k; ++q) {
        scale += 0.75f * std::fabs(a[ta ? q * m + i : i * k + q] * b[tb ? j * k + q : q * n + j]);
      }
      ASSERT_NEAR(g[i * n + j], w[i * n + j], 1e-5f * scale) << i << "," << j;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Transposes, GemmAgainstReference, ::testing::Range(0, 4), TRN_INDEX_NAMES);

struct BadGemm {
  std::string what;
  bool ta, tb;
  std::vector<std::vector<unsigned>> dims;
  std::string reason;
};

class GemmRefusal : public ::testing::TestWithParam<BadGemm> {};

TEST_P(GemmRefusal, IsRefusedWithItsReason) {
  const BadGemm& b = GetParam();
  auto ctx = ElementContext();
  auto k = Configured<kernel::Gemm_SGEMM_Float_M1>(Gemm(b.ta, b.tb, 1, 1), ctx);
  std::vector<std::shared_ptr<runtime::Tensor>> in;
  for (const auto& d : b.dims) in.push_back(MakeTensor(ctx, d, {}));
  LogCapture log;
  EXPECT_EQ(k->IsValidInput(in), kernel::kInvalidTensor);
  EXPECT_TRUE(log.Contains(b.reason)) << (log.lines.empty() ? "" : log.lines.back().second);
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_FALSE(k->Forward(in, outputs, ctx));
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, GemmRefusal,
    ::testing::Values(BadGemm{"k_mismatch", false, false, {{2, 3}, {4, 5}}, "do not share K"},
                      BadGemm{"k_mismatch_transposed", true, false, {{2, 3}, {3, 5}}, "do not share K"},
                      BadGemm{"c_not_broadcast", false, false, {{2, 3}, {3, 4}, {3}}, "does not broadcast"},
                      BadGemm{"c_rows", false, false, {{2, 3}, {3, 4}, {3, 4}}, "does not broadcast"},
                      BadGemm{"vector_a", false, false, {{3}, {3, 4}}, "dense float matrix"},
                      BadGemm{"three_d_c", false, false, {{2, 3}, {3, 4}, {1, 2, 4}}, "dense float matrix"},
                      BadGemm{"one_input", false, false, {{2, 3}}, "not 1 inputs"}),
    [](const auto& info) { return info.param.what; });

TEST(GemmRefusal, OverflowingProduct) {
  auto ctx = ElementContext();
  auto k = Configured<kernel::Gemm_Fallback_Float_M1>(Gemm(false, false, 1, 1), ctx);
  EXPECT_TRUE(k->GetOutputShapes({runtime::MakeShape({100000, 1}), runtime::MakeShape({1, 100000})}).empty());
  EXPECT_EQ(k->GetOutputShapes({runtime::MakeShape({1000, 1}), runtime::MakeShape({1, 1000})})[0].dims,
            (std::vector<unsigned>{1000, 1000}));
  EXPECT_EQ(k->IsValidParam(std::make_shared<runtime::ConcatenateInfo>(), nullptr), kernel::kInvalidParam);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
