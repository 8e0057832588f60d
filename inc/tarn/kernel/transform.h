// Generic main-memory transforms of whole tensors, used where a kernel
// re-orders its weights in Config.
#pragma once

#include <memory>
#include <vector>

#include "tarn/runtime/device_cpu.h"

namespace tarn {
namespace kernel {
namespace functional {

// A tensor with new dims over the input's storage (nothing is copied; the
// result keeps the storage alive). One entry may be -1 and takes the extent
// that keeps the element count. Null when the dims do not keep the count, the
// input is not in main memory, or more than one entry is -1.
std::shared_ptr<runtime::TensorCPU> Transform_MainMemory_Reshape_Fallback(
    const std::shared_ptr<runtime::TensorCPU>& input, const std::vector<int>& dims,
    const std::shared_ptr<runtime::DeviceCPU>& device);

// A new dense tensor with out.dims[i] = in.dims[axes[i]] and the elements
// moved accordingly (bit-exact, any element size). Null when `axes` is not a
// permutation of the input's dims or the input is not in main memory.
std::shared_ptr<runtime::TensorCPU> Transform_MainMemory_Permute_Fallback(
    const std::shared_ptr<runtime::TensorCPU>& input, const std::vector<unsigned>& axes,
    const std::shared_ptr<runtime::DeviceCPU>& device);

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
