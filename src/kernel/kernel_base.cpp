#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace runtime {

IKernel::~IKernel() = default;

BlockedChannelsReceiver::~BlockedChannelsReceiver() = default;

bool IKernel::SetOutputs(const std::shared_ptr<Context>&, const std::vector<std::shared_ptr<Tensor>>&, const bool&,
                         std::vector<std::shared_ptr<Tensor>>&) const {
  return false;
}

int IKernel::ResetRNNState() const { return -4; }

}  // namespace runtime

namespace kernel {

bool IsFloatMainMemory(const std::shared_ptr<runtime::Tensor>& tensor) {
  return tensor && tensor->shape.data_type == runtime::TensorShape::FLOAT32 &&
         tensor->shape.location == runtime::TensorShape::MainMemory && tensor->Data() != nullptr;
}

std::int32_t CheckFloatTensors(const std::vector<std::shared_ptr<runtime::Tensor>>& tensors, int count) {
  if (count >= 0 && tensors.size() != static_cast<size_t>(count)) return kInvalidTensor;
  for (const auto& t : tensors) {
    if (!IsFloatMainMemory(t)) return kInvalidTensor;
  }
  return kValid;
}

}  // namespace kernel
}  // namespace tarn
