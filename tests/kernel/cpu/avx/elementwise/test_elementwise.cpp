// AVX element-wise kernels: each operation over every tail of its vector
// steps against the scalar operation, the Max/Min NaN rules, and the checks.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/elementwise/elementwise.h"
#include "kernel/cpu/element_test_util.h"

namespace tarn {
namespace testing {
namespace {

namespace fn = kernel::functional;

struct AvxElementwise {
  static constexpr std::uint32_t kWidth = 8;
  static constexpr BinaryFn kAdd = fn::elementwise_add_avx_f32_m1, kSub = fn::elementwise_sub_avx_f32_m1,
                            kMul = fn::elementwise_mul_avx_f32_m1, kDiv = fn::elementwise_div_avx_f32_m1,
                            kMax = fn::elementwise_max_avx_f32_m1, kMin = fn::elementwise_min_avx_f32_m1;
  using Add = kernel::Elementwise_Add_AVX_Float_M1;
  using Sub = kernel::Elementwise_Sub_AVX_Float_M1;
  using Mul = kernel::Elementwise_Mul_AVX_Float_M1;
  using Div = kernel::Elementwise_Div_AVX_Float_M1;
  using Max = kernel::Elementwise_Max_AVX_Float_M1;
  using Min = kernel::Elementwise_Min_AVX_Float_M1;
};

class AVXElementwiseCounts : public ::testing::TestWithParam<int> {};

TEST_P(AVXElementwiseCounts, EveryOperationEqualsItsScalarForm) {
  TRN_REQUIRE_AVX();
  ExpectVectorElementwiseForms<AvxElementwise>(static_cast<std::uint32_t>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Counts, AVXElementwiseCounts, ::testing::Range(0, 71), TRN_INDEX_NAMES);

TEST(AVXElementwise, NaNRulesCodesAndShapes) {
  TRN_REQUIRE_AVX();
  ExpectVectorElementwiseRulesAndKernels<AvxElementwise>();
}

}  // namespace
}  // namespace testing
}  // namespace tarn
