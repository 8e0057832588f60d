// Portable tensor helpers of the convolution-like kernels: padding, cutting,
// bias fill and zero fill. Border widths are always given as left, right,
// top, bottom (for sequences: front, back).
#pragma once

#include <cstdint>
#include <memory>

#include "tarn/runtime/device_cpu.h"

namespace tarn {
namespace kernel {

using TensorCPUPtr = std::shared_ptr<runtime::TensorCPU>;
using DeviceCPUPtr = std::shared_ptr<runtime::DeviceCPU>;

// A new CHW float tensor [C, H + top + bottom, W + left + right] with the input
// in its interior and `value` in the border.
TensorCPUPtr Padding_HW_MainMemory_CHW_Float_Fallback_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                         std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                         float value, const DeviceCPUPtr& device);
TensorCPUPtr Padding_HW_MainMemory_CHW_Zero_Fallback_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                        std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                        const DeviceCPUPtr& device);
// Zero borders of 16-bit tensors: CHW [C, H, W], blocked [B, H, W, 4] and [B, H, W, 8].
TensorCPUPtr ZeroPadding_HW_MainMemory_CHW_Int16_Fallback_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                             std::uint32_t right, std::uint32_t top,
                                                             std::uint32_t bottom, const DeviceCPUPtr& device);
TensorCPUPtr ZeroPadding_HW_MainMemory_C4HW4_Int16_Fallback_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                               std::uint32_t right, std::uint32_t top,
                                                               std::uint32_t bottom, const DeviceCPUPtr& device);
TensorCPUPtr ZeroPadding_HW_MainMemory_C8HW8_Int16_Fallback_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                               std::uint32_t right, std::uint32_t top,
                                                               std::uint32_t bottom, const DeviceCPUPtr& device);
// A CL sequence [C, L] padded to [C, front + L + back] with `value`.
TensorCPUPtr Padding_L_MainMemory_CL_Float_Fallback_M1(const TensorCPUPtr& input, std::uint32_t front,
                                                       std::uint32_t back, float value, const DeviceCPUPtr& device);
// The inverse of padding: drops border columns and rows.
TensorCPUPtr Cutting_HW_MainMemory_Fallback_CHW_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                         std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                         const DeviceCPUPtr& device);
TensorCPUPtr Cutting_HW_MainMemory_Fallback_C4HW4_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                           std::uint32_t right, std::uint32_t top,
                                                           std::uint32_t bottom, const DeviceCPUPtr& device);
TensorCPUPtr Cutting_HW_MainMemory_Fallback_C8HW8_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                           std::uint32_t right, std::uint32_t top,
                                                           std::uint32_t bottom, const DeviceCPUPtr& device);

// Every element of channel c of a CHW tensor becomes bias[c]. The bias may be
// two-dimensional; its dims must multiply to the channel count.
void FillBias_MainMemory_CHW_Float_Fallback_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias);
// The same for a CL tensor [C, L].
void FillBias_MainMemory_CL_Float_Fallback_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias);
// Copies the bias vector into a one-dimensional tensor.
void FillBias_MainMemory_Float_Fallback_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias);
// Adds bias[c] to every element of channel c of a CHW tensor.
void ADDBias_MainMemory_CHW_Float_Fallback_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias);
void FillZero_MainMemory_Float_Fallback_M1(const TensorCPUPtr& inout);
void FillZero_MainMemory_Int16_Fallback_M1(const TensorCPUPtr& inout);

}  // namespace kernel
}  // namespace tarn
