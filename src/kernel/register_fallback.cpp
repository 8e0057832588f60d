// Registration of the portable kernels. Compiled for baseline x86-64 like
// every registration file: registering must not execute family instructions.
#include "kernel/cpu/fallback/input/input.h"
#include "tarn/kernel/register.h"

// Convolution and fully connected kernels.
// (conv includes)

// Element kernels: activations, element-wise, pooling, layout transforms.
// (element includes)

namespace tarn {
namespace kernel {

void Register_CrossPlatform_Fallback(runtime::KernelRegistry& registry) {
  // The cross-platform kernels (resampling and shape operations) are not part of this build.
  (void)registry;
}

void RegisterFallback(runtime::KernelRegistry& registry) {
  TRN_REGISTER_KERNEL(registry, Input_Fallback_M1);
  // Convolution and fully connected kernels.
  // (conv registrations)
  // Element kernels.
  // (element registrations)
}

}  // namespace kernel
}  // namespace tarn
