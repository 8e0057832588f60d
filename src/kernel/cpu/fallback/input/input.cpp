#include "kernel/cpu/fallback/input/input.h"

namespace tarn {
namespace kernel {

std::int32_t Input_Fallback_M1::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                             std::shared_ptr<runtime::InferenceParam>) const {
  return std::dynamic_pointer_cast<runtime::InputInfo>(layer) ? kValid : kInvalidParam;
}

bool Input_Fallback_M1::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
                               std::shared_ptr<runtime::Context>) {
  configured_ = IsValidParam(layer, param) == kValid;
  return configured_;
}

std::vector<runtime::TensorShape> Input_Fallback_M1::GetOutputShapes(
    const std::vector<runtime::TensorShape>& inputs) const {
  return inputs;
}

std::int32_t Input_Fallback_M1::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (inputs.size() != 1 || !inputs[0] || inputs[0]->shape.location != runtime::TensorShape::MainMemory) {
    return kInvalidTensor;
  }
  return kValid;
}

std::int32_t Input_Fallback_M1::IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const {
  return IsValidInput(outputs);
}

bool Input_Fallback_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                std::shared_ptr<runtime::Context>) const {
  outputs = inputs;
  return true;
}

}  // namespace kernel
}  // namespace tarn
