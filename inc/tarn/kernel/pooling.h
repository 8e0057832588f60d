// Size rules of the pooling kernels and the pooling functions of the
// fixed-size SSE and AVX kernels.
#pragma once

#include <cstdint>
#include <memory>

#include "tarn/runtime/tensor.h"

namespace tarn {
namespace kernel {

// Max pooling: R((in + pads - 1 - (kernel - 1) * dilation) / stride) + 1, the
// division in single precision, R truncating, or rounding up with ceil_mode.
// False when the window does not fit the padded extent or a factor is zero.
bool MaxPool2dOutputSize(std::uint32_t in, std::uint32_t pads, std::uint32_t kernel, std::uint32_t stride,
                         std::uint32_t dilation, bool ceil_mode, std::uint32_t* out);
// Average pooling: (in + pads - kernel) / stride + 1 in integers (floor);
// ceil_mode plays no part. False when the window does not fit.
bool AvgPool2dOutputSize(std::uint32_t in, std::uint32_t pads, std::uint32_t kernel, std::uint32_t stride,
                         std::uint32_t* out);

// Floats in one channel plane (or block plane) of a pooling tensor. A tensor
// that does not hold floats fails the assertion "false && \"Invalid type\"".
std::uint32_t PoolingPlaneFloats(const runtime::TensorShape& shape);

namespace functional {

using TensorCPUPtr = std::shared_ptr<runtime::TensorCPU>;

// The fixed-size pooling functions: no padding, output (in - k) / s + 1.
// CHW [C, H, W] with SSE4.1:
void Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1_Pooling2d_Max(const TensorCPUPtr& input, const TensorCPUPtr& output);
void Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1_Pooling2d_Max(const TensorCPUPtr& input, const TensorCPUPtr& output);
void Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output);
void Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output);
void Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output);
void Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output);
// C4HW4 [B, H, W, 4] with SSE4.1 (the one spelled "2D"):
void Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1_Pooling2D_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output);
// C8HW8 [B, H, W, 8] with AVX2:
void Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output);
void Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output);
void Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output);
void Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output);
void Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output);
void Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output);
void Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Max(const TensorCPUPtr& input, const TensorCPUPtr& output);
void Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Max(const TensorCPUPtr& input, const TensorCPUPtr& output);

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
