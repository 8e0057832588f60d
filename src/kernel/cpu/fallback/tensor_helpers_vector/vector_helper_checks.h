// Argument checks and result allocation shared by the SSE and AVX tensor
// helpers, compiled for baseline x86-64 so the vector files hold only loops.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tarn/kernel/tensor_helpers.h"

namespace tarn {
namespace kernel {
namespace detail {

// Asserts a main-memory tensor of `type` and `rank`; rank 4 also needs
// dims[3] == lanes.
void CheckLaneTensor(const TensorCPUPtr& t, runtime::TensorShape::DataType type, std::size_t rank, std::uint32_t lanes,
                     const char* what);
// Values in a bias tensor of `type`: dims[0] * dims[1] when it has two or
// more dims, dims[0] otherwise. Asserts on a missing or mistyped bias.
std::size_t CheckedBiasCount(const TensorCPUPtr& bias, runtime::TensorShape::DataType type);
// Asserts that `count` bias values fill the channel blocks of `inout` exactly
// (ceil(count / lanes) blocks; lanes 1 means one plane per value).
void CheckBiasBlocks(const TensorCPUPtr& inout, std::size_t count, std::uint32_t lanes);
// The uninitialised result of padding `input` ([planes, H, W] or
// [planes, H, W, lanes]) by the borders; asserts on extents beyond 32 bits.
TensorCPUPtr CreatePadded(const TensorCPUPtr& input, std::uint32_t left, std::uint32_t right, std::uint32_t top,
                          std::uint32_t bottom, const DeviceCPUPtr& device, const char* what);

}  // namespace detail
}  // namespace kernel
}  // namespace tarn
