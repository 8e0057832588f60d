// Registration of the SSE kernels. Compiled for baseline x86-64: the
// registration itself must run on any processor.
#include "tarn/kernel/register.h"

// Convolution and fully connected kernels.
// (conv includes)

// Element kernels: activations, element-wise, pooling, layout transforms.
// (element includes)

namespace tarn {
namespace kernel {

void RegisterSSE(runtime::KernelRegistry& registry) {
  // Convolution and fully connected kernels.
  // (conv registrations)
  // Element kernels.
  // (element registrations)
  (void)registry;
}

void RegisterSSE(runtime::InferenceParamRegistry& registry) {
  for (const char* name : {"InferenceParamConv2DQuant", "InferenceParamUpsampling2DQuant"}) {
    registry.Register(name, [name] { return runtime::CreateInferenceParamPtr(name); }, false);
  }
}

}  // namespace kernel
}  // namespace tarn
