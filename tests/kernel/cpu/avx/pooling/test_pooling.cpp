// AVX fixed-size pooling on C8HW8: equal, bit for bit, to the general kernels
// for the same window and stride without padding, over sizes that exercise
// every vector step and tail; and their record and input checks.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/pooling/pooling.h"
#include "kernel/cpu/element_test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(AvxFixedPooling, EqualsTheGeneralKernels) {
  TRN_REQUIRE_AVX();
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1>(false, 2, 2, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1>(false, 3, 2, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1>(false, 4, 4, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1>(false, 4, 1, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1>(false, 7, 1, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1>(false, 8, 1, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1>(true, 2, 2, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1>(true, 3, 2, 8);
}

TEST(AvxFixedPooling, C8InputChecks) {
  auto ctx = ElementContext();
  auto r = AvgPool(8, 1);
  auto k = Configured<kernel::Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1>(r, ctx);
  const auto C8 = runtime::TensorShape::C8HW8;
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 8, 9, 8}, {}, C8)}), 0);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 8, 7, 8}, {}, C8)}), kernel::kInvalidTensor);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 8, 9, 4}, {}, C8)}), kernel::kInvalidTensor);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 8, 9, 8}, {}, runtime::TensorShape::C4HW4)}), kernel::kInvalidTensor);
  r->stride_x = 2;
  EXPECT_FALSE(k->Config(r, nullptr, ctx));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
