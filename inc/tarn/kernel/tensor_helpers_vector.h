// SSE and AVX forms of the tensor helpers (tarn/kernel/tensor_helpers.h), the
// ones the vector kernels call. Each does what its portable namesake does, for
// the layout and instruction set of its name (SSE: SSE4.1 + FMA, AVX: AVX2 +
// FMA). Border widths are given left, right, top, bottom. A wrong tensor
// (type, rank, lanes, bias count) throws through utility::Assert.
#pragma once

#include <cstdint>
#include <memory>

#include "tarn/kernel/tensor_helpers.h"

namespace tarn {
namespace kernel {
namespace functional {

// Every element of plane c of a CHW tensor becomes bias[c]; the bias may be
// two-dimensional, its dims multiplying to the channel count.
void FillBias_SSE_CHW_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias);
void FillBias_AVX_CHW_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias);
// Blocked [ceil(N / k), H, W, k]: lane c % k of block c / k of every pixel
// becomes bias[c]; lanes beyond the N bias values become zero.
void FillBias_SSE_C4HW4_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias);
void FillBias_AVX_C4HW4_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias);
void FillBias_SSE_C8HW8_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias);
void FillBias_AVX_C8HW8_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias);
// 16-bit C8HW8 tensor and 16-bit bias: one pixel is one 128-bit vector.
void FillBias_SSE_C8HW8_Int16_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias);

// A new tensor enlarged by the borders, the border filled with `value`. The
// blocked forms fill every lane of a border pixel: they cannot tell tail lanes
// from channels, so keep `value` zero for tensors with a channel tail.
TensorCPUPtr Padding_HW_MainMemory_SSE_CHW_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                    std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                    float value, const DeviceCPUPtr& device);
TensorCPUPtr Padding_HW_MainMemory_SSE_C4HW4_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                      std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                      float value, const DeviceCPUPtr& device);
TensorCPUPtr Padding_HW_MainMemory_SSE_C8HW8_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                      std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                      float value, const DeviceCPUPtr& device);
TensorCPUPtr Padding_HW_MainMemory_AVX_C8HW8_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                      std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                      float value, const DeviceCPUPtr& device);
TensorCPUPtr Padding_HW_MainMemory_AVX_C8HW8_Zero_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                     std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                     const DeviceCPUPtr& device);

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
