// Registration of every kernel of one instruction-set family. No processor
// feature is tested here: the configuration must only name families the
// processor has. A name already present is never replaced.
#pragma once

#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/kernel.h"

namespace tarn {
namespace kernel {

void Register_CrossPlatform_Fallback(runtime::KernelRegistry& registry);
void RegisterFallback(runtime::KernelRegistry& registry);
void RegisterSSE(runtime::KernelRegistry& registry);
void RegisterAVX(runtime::KernelRegistry& registry);
void RegisterSGEMM(runtime::KernelRegistry& registry);

// The inference-parameter classes the kernels of a family read.
void RegisterSSE(runtime::InferenceParamRegistry& registry);
void RegisterAVX(runtime::InferenceParamRegistry& registry);
void RegisterSGEMM(runtime::InferenceParamRegistry& registry);

}  // namespace kernel
}  // namespace tarn

// Registers a kernel class under its class name.
#define TRN_REGISTER_KERNEL(registry, cls) \
  (registry).Register(#cls, [] { return std::shared_ptr<::tarn::runtime::IKernel>(std::make_shared<cls>()); }, false)
