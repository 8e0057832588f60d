// The CBLAS door: row-major, untransposed, alpha and beta, one thread.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cmath>
#include <vector>

#include "kernel/cpu/conv_test_util.h"
#include "tarn/kernel/sgemm.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

class SgemmShapes : public ::testing::TestWithParam<std::tuple<int, int, int>> {};

TEST_P(SgemmShapes, MatchesARowMajorTripleLoop) {
  const int M = std::get<0>(GetParam()), K = std::get<1>(GetParam()), N = std::get<2>(GetParam());
  const auto A = conv::Random(std::size_t(M) * K, 1), B = conv::Random(std::size_t(K) * N, 2);
  const auto C0 = conv::Random(std::size_t(M) * N, 3);
  for (const float beta : {0.0f, 1.0f, -0.5f}) {
    std::vector<float> C = C0;
    if (beta == 0.0f) C.assign(C.size(), std::nanf(""));  // beta 0 must not read C
    kernel::Sgemm(M, K, N, 2.0f, A.data(), B.data(), beta, C.data());
    conv::Ref want{std::vector<double>(C.size()), std::vector<double>(C.size())};
    for (int m = 0; m < M; ++m)
      for (int n = 0; n < N; ++n) {
        double v = beta == 0.0f ? 0.0 : double(beta) * C0[m * N + n], s = std::fabs(v);
        for (int k = 0; k < K; ++k) {
          const double t = 2.0 * A[m * K + k] * B[k * N + n];
          v += t;
          s += std::fabs(t);
        }
        want.value[m * N + n] = v;
        want.scale[m * N + n] = s;
      }
    EXPECT_TRUE(conv::Near(C, want)) << "beta " << beta;
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, SgemmShapes,
                         ::testing::Values(std::make_tuple(1, 1, 1), std::make_tuple(3, 5, 7),
                                           std::make_tuple(16, 8, 33), std::make_tuple(24, 144, 49),
                                           std::make_tuple(7, 1, 1)),
                         TRN_INDEX_NAMES);

TEST(Sgemm, EmptyInnerDimensionScalesByBeta) {
  std::vector<float> C = {1.0f, 2.0f};
  kernel::Sgemm(1, 0, 2, 1.0f, nullptr, nullptr, 0.5f, C.data());
  EXPECT_EQ(C, (std::vector<float>{0.5f, 1.0f}));
  kernel::Sgemm(0, 3, 2, 1.0f, nullptr, nullptr, 0.5f, C.data());  // no rows: untouched
  EXPECT_EQ(C, (std::vector<float>{0.5f, 1.0f}));
}

TEST(Sgemm, PinsOpenBlasToOneThread) {
  const float a = 1.0f, b = 1.0f;
  float c = 0.0f;
  kernel::Sgemm(1, 1, 1, 1.0f, &a, &b, 0.0f, &c);
  EXPECT_EQ(c, 1.0f);
  // Looked up at run time: the tests do not link OpenBLAS themselves.
  using GetThreads = int (*)();
  auto threads = reinterpret_cast<GetThreads>(dlsym(RTLD_DEFAULT, "openblas_get_num_threads"));
  ASSERT_NE(threads, nullptr);
  EXPECT_EQ(threads(), 1);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
