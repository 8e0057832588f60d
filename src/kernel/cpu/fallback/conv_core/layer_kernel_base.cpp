#include "kernel/cpu/fallback/conv_core/layer_kernel_base.h"

#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

bool LayerKernelBase::StartConfig(const std::shared_ptr<runtime::LayerInfo>& layer,
                                  const std::shared_ptr<runtime::InferenceParam>& param,
                                  const std::shared_ptr<runtime::Context>& context, const char* what) {
  configured_ = false;
  weight_.reset();
  bias_.reset();
  if (IsValidParam(layer, param) != kValid) {
    utility::Log(utility::kLogError, "%s: the layer record is not a %s this kernel computes.", GetName().c_str(),
                 what);
    return false;
  }
  return context && context->cpu;
}

bool LayerKernelBase::DecodeBlobs(const std::string& weight, std::uint64_t weight_count, bool has_bias,
                                  const std::string& bias, std::uint32_t outputs, runtime::DeviceCPU& device,
                                  std::vector<float>* weights) {
  *weights = runtime::DecodeWeights(weight);
  if (weights->size() != weight_count) {
    utility::Log(utility::kLogError, "%s: the weight holds %zu floats, the geometry needs %llu.", GetName().c_str(),
                 weights->size(), static_cast<unsigned long long>(weight_count));
    return false;
  }
  if (!has_bias) return true;
  const std::vector<float> values = runtime::DecodeWeights(bias);
  if (values.size() != outputs) {
    utility::Log(utility::kLogError, "%s: the bias holds %zu floats for %u outputs.", GetName().c_str(),
                 values.size(), outputs);
    return false;
  }
  bias_ = device.CreateTensor(runtime::MakeShape({outputs}), values.data());
  return true;
}

std::shared_ptr<runtime::TensorCPU> LayerKernelBase::CheckedInput(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
    const std::shared_ptr<runtime::Context>& context) const {
  if (!context || !context->cpu || IsValidInput(inputs) != kValid) {
    utility::Log(utility::kLogError, "%s: Forward on an input the kernel refuses.", GetName().c_str());
    return nullptr;
  }
  return std::dynamic_pointer_cast<runtime::TensorCPU>(inputs[0]);
}

}  // namespace kernel
}  // namespace tarn
