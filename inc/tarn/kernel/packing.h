// Weight re-packing, done once in a kernel's Config, and the converters
// between stored weight bytes, floats and half floats.
//
// Packed orders are named by their dims: upper-case letters are the outer
// dims in storage order (G groups, N output channels, C input channels, H and
// W kernel rows and columns); a number right after a letter splits that dim
// into blocks of that size with only the block index outer; the trailing
// lower-case part names the inner block dims, innermost last ("4c4n": 4 input
// channels, each holding 4 contiguous output channels). A single trailing
// number (GN4CHW4) is the lane count of the one blocked dim.
//
// Rounding: the orders with one blocked dim (GN4CHW4, GN8CHW8, GNC8HW8,
// G4NCHW4, G8NCHW8) round the block count down, so channels beyond the last
// whole block are dropped: pad the weight first (Function_Tensor_GNCHW_Concat_Value).
// The orders with two blocked dims (…c4n, …n4c, GHWN4C44c4n, N8C88c8n, …) round
// up and leave the extra lanes zero.
//
// Every Function_Tensor_* takes a float tensor (GNCHW layout, five dims; the
// NC form any two-dimensional float tensor) in main memory and returns a new
// tensor made by `device`, or null when the source is not such a tensor or the
// result would hold no element.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarn/half.h"
#include "tarn/runtime/device_cpu.h"

namespace tarn {
namespace kernel {

using TensorCPUPtr = std::shared_ptr<runtime::TensorCPU>;
using DeviceCPUPtr = std::shared_ptr<runtime::DeviceCPU>;

// {G, N/4, C, H, W, 4}: output channels innermost.
TensorCPUPtr Function_Tensor_GNCHW_To_GN4CHW4_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G, N/8, C, H, W, 8}.
TensorCPUPtr Function_Tensor_GNCHW_To_GN8CHW8_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G, N, C/8, H, W, 8}: input channels innermost.
TensorCPUPtr Function_Tensor_GNCHW_To_GNC8HW8_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G, N4, C4, H, W, 4 c, 4 n}: the order of the C4HW4 cores.
TensorCPUPtr Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G, N4, C4, H, W, 4 n, 4 c}.
TensorCPUPtr Function_Tensor_GNCHW_To_GN4C4HW4n4c_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G, N4, C8, H, W, 4 n, 8 c}.
TensorCPUPtr Function_Tensor_GNCHW_To_GN4C8HW4n8c_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G, N8, C4, H, W, 8 n, 4 c}.
TensorCPUPtr Function_Tensor_GNCHW_To_GN8C4HW8n4c_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G, N4, C8, H, W, 8 c, 4 n}.
TensorCPUPtr Function_Tensor_GNCHW_To_GN4C8HW8c4n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G, N8, C8, H, W, 8 c, 8 n}: the order of the C8HW8 cores.
TensorCPUPtr Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G, N8, C8, H, W, 8 n, 8 c}.
TensorCPUPtr Function_Tensor_GNCHW_To_GN8C8HW8n8c_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G, N2, C2, H, W, 2 c, 2 n}.
TensorCPUPtr Function_Tensor_GNCHW_To_GN2C2HW2c2n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G, N16, C16, H, W, 16 c, 16 n}.
TensorCPUPtr Function_Tensor_GNCHW_To_GN16C16HW16c16n_Fallback(const TensorCPUPtr& weight,
                                                               const DeviceCPUPtr& device);
// {G, H, W, N4, C4, 4 c, 4 n}: kernel taps outermost.
TensorCPUPtr Function_Tensor_GNCHW_To_GHWN4C44c4n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G, C4, N4, H, W, 4 c, 4 n}: input block outer.
TensorCPUPtr Function_Tensor_GNCHW_To_GC4N4HW4c4n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G, C, N, H, W}.
TensorCPUPtr Function_Tensor_GNCHW_To_GCNHW_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G/4, N, C, H, W, 4}: groups innermost.
TensorCPUPtr Function_Tensor_GNCHW_To_G4NCHW4_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// {G/8, N, C, H, W, 8}.
TensorCPUPtr Function_Tensor_GNCHW_To_G8NCHW8_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// A matrix [N, C] as {N8, C8, 8 c, 8 n}: tile (nb, cb) holds at k * 8 + j the
// weight from input 8 cb + k to output 8 nb + j.
TensorCPUPtr Function_Tensor_NC_To_N8C88c8n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device);
// The GNCHW weight with `count` output channels appended to every group, all
// their elements `value`: {G, N + count, C, H, W}. Pads N to a whole block
// before a rounding-down packing.
TensorCPUPtr Function_Tensor_GNCHW_Concat_Value(const TensorCPUPtr& weight, std::uint32_t count, float value,
                                                const DeviceCPUPtr& device);

// The same re-orderings from a plain GNCHW array of G * N * C * H * W values.
// Null when a dim is zero, the element count overflows, or data is null.
TensorCPUPtr Function_FloatArray_GNCHW_To_GN4C4HW4c4n_Fallback(const float* data, std::uint32_t G, std::uint32_t N,
                                                               std::uint32_t C, std::uint32_t H, std::uint32_t W,
                                                               const DeviceCPUPtr& device);
TensorCPUPtr Function_FloatArray_GNCHW_To_GC4N4HW4c4n_Fallback(const float* data, std::uint32_t G, std::uint32_t N,
                                                               std::uint32_t C, std::uint32_t H, std::uint32_t W,
                                                               const DeviceCPUPtr& device);
TensorCPUPtr Function_FloatArray_GNCHW_To_GHWN4C44c4n_Fallback(const float* data, std::uint32_t G, std::uint32_t N,
                                                               std::uint32_t C, std::uint32_t H, std::uint32_t W,
                                                               const DeviceCPUPtr& device);
TensorCPUPtr Function_FloatArray_GNCHW_To_G4NCHW4_Fallback(const float* data, std::uint32_t G, std::uint32_t N,
                                                           std::uint32_t C, std::uint32_t H, std::uint32_t W,
                                                           const DeviceCPUPtr& device);
// Half values, widened exactly to float.
TensorCPUPtr Function_HalfArray_GNCHW_To_GN4C4HW4c4n_Fallback(const half_float::half* data, std::uint32_t G,
                                                              std::uint32_t N, std::uint32_t C, std::uint32_t H,
                                                              std::uint32_t W, const DeviceCPUPtr& device);
TensorCPUPtr Function_HalfArray_GNCHW_To_G4NCHW4_Fallback(const half_float::half* data, std::uint32_t G,
                                                          std::uint32_t N, std::uint32_t C, std::uint32_t H,
                                                          std::uint32_t W, const DeviceCPUPtr& device);

// Stored weight bytes are packed little-endian values. The byte converters
// refuse (false, output cleared) a byte count that is not a whole number of
// values.
bool ByteArray_To_FloatArray_Fallback(const std::string& bytes, std::vector<float>& floats);
bool ByteArray_To_HalfArray_Fallback(const std::string& bytes, std::vector<half_float::half>& halves);
// Exact widening.
std::vector<float> HalfArray_To_FloatArray_Fallback(const half_float::half* halves, std::size_t count);
// Narrowing truncates toward zero, like every float-to-half conversion here.
std::vector<half_float::half> FloatArray_To_HalfArray_Fallback(const float* floats, std::size_t count);
std::string FloatArrayToByteArrayFallback(const float* floats, std::size_t count);

}  // namespace kernel
}  // namespace tarn
