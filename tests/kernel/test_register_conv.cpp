// The convolution and fully connected kernels are registered by their
// family's function under their class names.
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

TEST(ConvRegistration, EachFamilyRegistersItsMembers) {
  const runtime::CPUDeviceInfo cpu = runtime::DetectCPUDevice();
  const FamilyNames families[] = {
      {kernel::RegisterFallback, true,
       {"Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", "Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1",
        "FullConnection_Fallback_C_Float_M1"}},
      {kernel::RegisterSSE, cpu.CanRunSSEKernels(),
       {"Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1", "Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1",
        "Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1", "FullConnection_SSE_C_Float_M1",
        "FullConnection_SSE_C44_Float_M1", "FullConnection_SSE_BC_Float_M1", "FullConnection_SSE_C4HW4_Float_M1"}},
      {kernel::RegisterAVX, cpu.CanRunAVXKernels(),
       {"Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1", "Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1",
        "FullConnection_AVX_C_Float_M1", "FullConnection_AVX_C_Float_M2", "FullConnection_AVX_C_Float_M3",
        "FullConnection_AVX_C88_Float_M1", "FullConnection_AVX_C8HW8_Float_M1"}},
      {kernel::RegisterSGEMM, true, {"Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1", "FullConnection_SGEMM_C_Float_M1"}},
  };
  for (const auto& family : families) {
    runtime::KernelRegistry registry;
    family.reg(registry);
    for (const auto& name : family.names) {
      auto kernel = registry.Create(name);
      ASSERT_NE(kernel, nullptr) << name;
      if (!family.runs_here) continue;
      EXPECT_EQ(kernel->GetName(), name);
      EXPECT_FALSE(kernel->IsConfiged()) << name;
      EXPECT_EQ(kernel->ResetRNNState(), -4) << name;
    }
  }
  runtime::KernelRegistry fallback;
  kernel::RegisterFallback(fallback);
  EXPECT_EQ(fallback.Create("conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"), nullptr);  // case-sensitive
}

}  // namespace
}  // namespace testing
}  // namespace tarn
