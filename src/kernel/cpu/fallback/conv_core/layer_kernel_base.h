// What the weighted layer kernels (the 1-D and 2-D convolutions and the fully
// connected kernels) share: the start of Config, the weight and bias blobs
// decoded once, and the checked input of Forward. Compiled for baseline
// x86-64 like every base of a kernel family.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarn/kernel/kernel_base.h"
#include "tarn/runtime/device_cpu.h"

namespace tarn {
namespace kernel {

class LayerKernelBase : public KernelBase {
 protected:
  // The start of Config: forgets any previous configuration, then refuses
  // (logged as not a `what` this kernel computes) a record IsValidParam
  // refuses, and a context without a CPU device.
  bool StartConfig(const std::shared_ptr<runtime::LayerInfo>& layer,
                   const std::shared_ptr<runtime::InferenceParam>& param,
                   const std::shared_ptr<runtime::Context>& context, const char* what);
  // The weight blob decoded into `weights`, and with has_bias the bias blob
  // into bias_ ({outputs}); false (logged) when the float counts are not
  // weight_count and outputs.
  bool DecodeBlobs(const std::string& weight, std::uint64_t weight_count, bool has_bias, const std::string& bias,
                   std::uint32_t outputs, runtime::DeviceCPU& device, std::vector<float>* weights);
  // The input of Forward; null (logged) without a CPU device or for an input
  // IsValidInput refuses.
  std::shared_ptr<runtime::TensorCPU> CheckedInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                   const std::shared_ptr<runtime::Context>& context) const;
  const float* BiasData() const { return bias_ ? bias_->DataAs<float>() : nullptr; }

  std::shared_ptr<runtime::TensorCPU> weight_;
  std::shared_ptr<runtime::TensorCPU> bias_;  // null without bias
};

}  // namespace kernel
}  // namespace tarn

// The Forward declaration of a member.
#define TRN_LAYER_FORWARD                                                    \
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, \
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,      \
               std::shared_ptr<runtime::Context> context) const override;
