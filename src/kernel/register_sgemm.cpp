// Registration of the SGEMM kernels. Compiled for baseline x86-64: the
// registration itself must run on any processor.
#include "tarn/kernel/register.h"

// Convolution and fully connected kernels.
// (conv includes)

// Element kernels: activations, element-wise, pooling, layout transforms.
// (element includes)

namespace tarn {
namespace kernel {

void RegisterSGEMM(runtime::KernelRegistry& registry) {
  // Convolution and fully connected kernels.
  // (conv registrations)
  // Element kernels.
  // (element registrations)
  (void)registry;
}

void RegisterSGEMM(runtime::InferenceParamRegistry& registry) {
  registry.Register("InferenceParamConv2DQuant", [] { return runtime::CreateInferenceParamPtr("InferenceParamConv2DQuant"); },
                    false);
}

}  // namespace kernel
}  // namespace tarn
