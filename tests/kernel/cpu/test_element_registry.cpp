// Every element kernel is registered under its class name by its family.
#include <gtest/gtest.h>

#include "tarn/kernel/register.h"

namespace tarn {
namespace testing {
namespace {

void ExpectRegistered(void (*reg)(runtime::KernelRegistry&), const std::vector<std::string>& names) {
  runtime::KernelRegistry registry;
  reg(registry);
  for (const auto& name : names) {
    auto k = registry.Create(name);
    ASSERT_TRUE(k) << name;
    EXPECT_EQ(k->GetName(), name);
    EXPECT_FALSE(k->IsConfiged()) << name;
  }
}

TEST(ElementRegistry, Fallback) {
  ExpectRegistered(
      kernel::RegisterFallback,
      {"ReLU_Fallback_Float_M1", "ReLU6_Fallback_Float_M1", "Sigmoid_Fallback_Float_M1", "TanH_Fallback_Float_M1",
       "HSigmoid_Fallback_Float_M1", "HSwish_Fallback_Float_M1", "Leaky_Fallback_Float_M1", "PReLU_Fallback_Float_M1",
       "Linear_Fallback_Float_M1", "Elementwise_Fallback_Float_M1", "BroadcastOperator_Fallback_Float_M1",
       "TensorArithmetic_Fallback_M1", "Pooling2D_Max_Fallback_Float_M1", "Pooling2D_Avg_Fallback_Float_M1",
       "AdaptivePooling2D_Avg_Fallback_CHW_Float_M1"});
}

TEST(ElementRegistry, SSE) {
  ExpectRegistered(kernel::RegisterSSE,
                   {"ReLU_SSE_Float_M1", "ReLU6_SSE_Float_M1", "Sigmoid_SSE_Float_M1", "TanH_SSE_Float_M1",
                    "HSigmoid_SSE_Float_M1", "HSwish_SSE_Float_M1", "Leaky_SSE_Float_M1", "PReLU_SSE_Float_M1",
                    "ReLU_Inplace_SSE_Float_M1", "HSigmoid_Inplace_SSE_Float_M1"});
  ExpectRegistered(kernel::RegisterSSE,
                   {"Elementwise_Add_SSE_Float_M1", "Elementwise_Sub_SSE_Float_M1", "Elementwise_Mul_SSE_Float_M1",
                    "Elementwise_Div_SSE_Float_M1", "Elementwise_Max_SSE_Float_M1", "Elementwise_Min_SSE_Float_M1"});
  ExpectRegistered(kernel::RegisterSSE,
                   {"Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1", "Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1",
                    "Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1", "Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1",
                    "Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1", "Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1",
                    "Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1"});
  ExpectRegistered(
      kernel::RegisterSSE,
      {"LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1", "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2",
       "LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1",
       "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1", "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2",
       "LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1",
       "LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1"});
}

TEST(ElementRegistry, AVX) {
  ExpectRegistered(kernel::RegisterAVX, {"ReLU_AVX_Float_M1", "ReLU6_AVX_Float_M1", "Sigmoid_AVX_Float_M1",
                                         "HSwish_AVX_Float_M1", "Leaky_AVX_Float_M1", "PReLU_AVX_Float_M1"});
  ExpectRegistered(
      kernel::RegisterAVX,
      {"Elementwise_Add_AVX_Float_M1", "Elementwise_Sub_AVX_Float_M1", "Elementwise_Mul_AVX_Float_M1",
       "Elementwise_Div_AVX_Float_M1", "Elementwise_Max_AVX_Float_M1", "Elementwise_Min_AVX_Float_M1",
       "BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1", "BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1"});
  ExpectRegistered(kernel::RegisterAVX,
                   {"Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1", "Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1",
                    "Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1", "Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1",
                    "Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1", "Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1",
                    "Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1", "Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1"});
  ExpectRegistered(kernel::RegisterAVX, {"LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1",
                                         "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1",
                                         "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2"});
}

TEST(ElementRegistry, NoAVXOnlyOperationLeaksIntoOtherFamilies) {
  runtime::KernelRegistry registry;
  kernel::RegisterAVX(registry);
  for (const char* absent :
       {"TanH_AVX_Float_M1", "HSigmoid_AVX_Float_M1", "Linear_AVX_Float_M1", "Linear_SSE_Float_M1"}) {
    EXPECT_FALSE(registry.Create(absent)) << absent;
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn
