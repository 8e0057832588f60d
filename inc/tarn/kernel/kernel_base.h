// Shared skeleton of the library's kernels: the configured flag, the float
// main-memory input and output checks, and the name.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tarn/runtime/kernel.h"

namespace tarn {
namespace kernel {

// Result codes of the input and output checks.
constexpr std::int32_t kValid = 0;
constexpr std::int32_t kInvalidParam = -1;
constexpr std::int32_t kInvalidTensor = -2;

// True for a tensor of 32-bit floats in main memory.
bool IsFloatMainMemory(const std::shared_ptr<runtime::Tensor>& tensor);
// kValid when every tensor is a float tensor in main memory and there are `count` of them
// (any number when count < 0), kInvalidTensor otherwise.
std::int32_t CheckFloatTensors(const std::vector<std::shared_ptr<runtime::Tensor>>& tensors, int count);

class KernelBase : public runtime::IKernel {
 public:
  bool IsConfiged() const override { return configured_; }
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override {
    return CheckFloatTensors(inputs, 1);
  }
  std::int32_t IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const override {
    return CheckFloatTensors(outputs, 1);
  }

 protected:
  bool configured_ = false;
};

}  // namespace kernel
}  // namespace tarn

// Inside a kernel class: the registry name is the class name.
#define TRN_KERNEL_NAME(cls) \
  std::string GetName() const override { return #cls; }
