// Copies between the plane layout CHW [C, H, W] and the channel-blocked
// layouts C4HW4 [C/4, H, W, 4] and C8HW8 [C/8, H, W, 8]. Every function copies
// bit for bit (NaN payloads included) from `input` into `output`, which must
// already have the target shape; they read whole blocks of 4 (or 8) planes.
#pragma once

#include <cstdint>
#include <memory>

#include "tarn/runtime/tensor.h"

namespace tarn {
namespace kernel {

// Floats in one plane (CHW) or block plane (blocked) of a layout tensor. A
// tensor that does not hold floats fails the assertion "false && \"Invalid type\"".
std::uint32_t LayoutPlaneFloats(const runtime::TensorShape& shape);

namespace functional {

using TensorCPUPtr = std::shared_ptr<runtime::TensorCPU>;

// SSE4.1. CHW to C4HW4 M1 gathers one pixel at a time, C8HW8 to CHW M1 moves
// two pixels per step; the M2 members and the other transforms move 4 pixels
// per step through 4x4 transposes.
void LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1(const TensorCPUPtr& input, const TensorCPUPtr& output);
void LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2(const TensorCPUPtr& input, const TensorCPUPtr& output);
void LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1(const TensorCPUPtr& input, const TensorCPUPtr& output);
void LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1(const TensorCPUPtr& input, const TensorCPUPtr& output);
void LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1(const TensorCPUPtr& input, const TensorCPUPtr& output);
void LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2(const TensorCPUPtr& input, const TensorCPUPtr& output);
void LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1(const TensorCPUPtr& input, const TensorCPUPtr& output);
void LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1(const TensorCPUPtr& input, const TensorCPUPtr& output);
// AVX2. M1 moves 4 pixels of all 8 channels per step; M2 transposes 8x8 blocks.
void LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1(const TensorCPUPtr& input, const TensorCPUPtr& output);
void LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1(const TensorCPUPtr& input, const TensorCPUPtr& output);
void LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2(const TensorCPUPtr& input, const TensorCPUPtr& output);

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
