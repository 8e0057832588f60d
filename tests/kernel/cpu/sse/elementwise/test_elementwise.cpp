// SSE element-wise kernels: each operation over every tail of its vector
// steps against the scalar operation, the Max/Min NaN rules, and the checks.
#include <gtest/gtest.h>

#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/sse/elementwise/elementwise.h"

namespace tarn {
namespace testing {
namespace {

namespace fn = kernel::functional;

struct SseElementwise {
  static constexpr std::uint32_t kWidth = 4;
  static constexpr BinaryFn kAdd = fn::elementwise_add_sse_f32_m1, kSub = fn::elementwise_sub_sse_f32_m1,
                            kMul = fn::elementwise_mul_sse_f32_m1, kDiv = fn::elementwise_div_sse_f32_m1,
                            kMax = fn::elementwise_max_sse_f32_m1, kMin = fn::elementwise_min_sse_f32_m1;
  using Add = kernel::Elementwise_Add_SSE_Float_M1;
  using Sub = kernel::Elementwise_Sub_SSE_Float_M1;
  using Mul = kernel::Elementwise_Mul_SSE_Float_M1;
  using Div = kernel::Elementwise_Div_SSE_Float_M1;
  using Max = kernel::Elementwise_Max_SSE_Float_M1;
  using Min = kernel::Elementwise_Min_SSE_Float_M1;
};

class SSEElementwiseCounts : public ::testing::TestWithParam<int> {};

TEST_P(SSEElementwiseCounts, EveryOperationEqualsItsScalarForm) {
  TRN_REQUIRE_SSE();
  ExpectVectorElementwiseForms<SseElementwise>(static_cast<std::uint32_t>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Counts, SSEElementwiseCounts, ::testing::Range(0, 71), TRN_INDEX_NAMES);

TEST(SSEElementwise, NaNRulesCodesAndShapes) {
  TRN_REQUIRE_SSE();
  ExpectVectorElementwiseRulesAndKernels<SseElementwise>();
}

}  // namespace
}  // namespace testing
}  // namespace tarn
