// The depthwise and transposed convolution members are registered by their
// family's function under their exact class names (the depthwise names carry
// no group field, the specialised transposed names no stride field).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tarn/kernel/register.h"
#include "tarn/runtime/device_cpu.h"

namespace tarn {
namespace testing {
namespace {

struct FamilyNames {
  void (*reg)(runtime::KernelRegistry&);
  bool runs_here;  // GetName of a vector kernel is code of its family
  std::vector<std::string> names;
};

TEST(DepthwiseRegistration, EachFamilyRegistersItsMembers) {
  const runtime::CPUDeviceInfo cpu = runtime::DetectCPUDevice();
  const FamilyNames families[] = {
      {kernel::RegisterFallback, true, {"ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"}},
      {kernel::RegisterSSE,
       cpu.CanRunSSEKernels(),
       {"Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1", "Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1",
        "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1", "Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1",
        "ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1", "ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1"}},
      {kernel::RegisterAVX,
       cpu.CanRunAVXKernels(),
       {"Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1", "Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1",
        "Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1", "Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1",
        "Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1", "Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1",
        "ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1"}},
  };
  std::size_t total = 0;
  for (const auto& family : families) {
    runtime::KernelRegistry registry;
    family.reg(registry);
    for (const auto& name : family.names) {
      auto kernel = registry.Create(name);
      ASSERT_NE(kernel, nullptr) << name;
      ++total;
      if (!family.runs_here) continue;
      EXPECT_EQ(kernel->GetName(), name);
      EXPECT_FALSE(kernel->IsConfiged()) << name;
      EXPECT_EQ(kernel->ResetRNNState(), -4) << name;
    }
    // Each name belongs to one family only.
    for (const auto& other : families) {
      if (&other == &family) continue;
      for (const auto& name : other.names) EXPECT_EQ(registry.Create(name), nullptr) << name;
    }
  }
  EXPECT_EQ(total, 14u);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
