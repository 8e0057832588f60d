#include "tarn/kernel/transform.h"

#include <limits>

namespace tarn {
namespace kernel {
namespace functional {

using runtime::TensorCPU;
using runtime::TensorShape;

namespace {

bool IsMainMemory(const std::shared_ptr<TensorCPU>& t) {
  return t && t->shape.location == TensorShape::MainMemory && (t->Data() != nullptr || t->shape.ElementCount() == 0);
}

}  // namespace

std::shared_ptr<TensorCPU> Transform_MainMemory_Reshape_Fallback(const std::shared_ptr<TensorCPU>& input,
                                                                 const std::vector<int>& dims,
                                                                 const std::shared_ptr<runtime::DeviceCPU>& device) {
  if (!IsMainMemory(input)) return nullptr;
  const std::size_t count = input->shape.ElementCount();
  std::size_t known = 1;
  int inferred = -1;
  for (std::size_t i = 0; i < dims.size(); ++i) {
    if (dims[i] == -1) {
      if (inferred >= 0) return nullptr;
      inferred = static_cast<int>(i);
    } else if (dims[i] < 0) {
      return nullptr;
    } else {
      if (dims[i] != 0 && known > std::numeric_limits<std::size_t>::max() / static_cast<std::size_t>(dims[i])) {
        return nullptr;
      }
      known *= static_cast<std::size_t>(dims[i]);
    }
  }
  std::vector<unsigned> out(dims.begin(), dims.end());
  if (inferred >= 0) {
    if (known == 0 || count % known != 0 || count / known > std::numeric_limits<unsigned>::max()) return nullptr;
    out[inferred] = static_cast<unsigned>(count / known);
    known *= out[inferred];
  }
  if (known != count) return nullptr;
  TensorShape shape = input->shape;
  shape.dims = out;
  // A view: the new tensor shares (and keeps alive) the input's storage.
  return std::make_shared<TensorCPU>(shape, input->storage(), device ? device : input->device);
}

std::shared_ptr<TensorCPU> Transform_MainMemory_Permute_Fallback(const std::shared_ptr<TensorCPU>& input,
                                                                 const std::vector<unsigned>& axes,
                                                                 const std::shared_ptr<runtime::DeviceCPU>& device) {
  if (!IsMainMemory(input) || !device) return nullptr;
  const auto& dims = input->shape.dims;
  if (axes.size() != dims.size()) return nullptr;
  std::vector<bool> seen(dims.size(), false);
  for (unsigned a : axes) {
    if (a >= dims.size() || seen[a]) return nullptr;
    seen[a] = true;
  }
  TensorShape shape = input->shape;
  for (std::size_t i = 0; i < axes.size(); ++i) shape.dims[i] = dims[axes[i]];
  std::shared_ptr<TensorCPU> out = device->CreateTensor(shape);
  runtime::TransposeRaw(input->Data(), out->Data(), dims, axes, input->shape.ElementSize());
  return out;
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
