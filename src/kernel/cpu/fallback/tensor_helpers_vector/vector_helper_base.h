// What the SSE and AVX tensor helpers share, compiled for baseline x86-64:
// the argument checks, the result allocation and the walks over a tensor.
// The vector files add only the loops that store vectors.
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

// Stores of one instruction set: one padded row (`left` floats of `value`,
// `width` floats copied from s, `right` floats of `value`), and `pixels`
// pixels of `lanes` floats each set to values[0 .. lanes).
using PadRowFn = void (*)(float* d, const float* s, std::size_t left, std::size_t width, std::size_t right,
                          float value);
using FillPixelsFn = void (*)(float* d, std::size_t pixels, const float* values);

// The padded row and the plane fill made of a family's own FillFloats and
// CopyFloats (file-local functions of its vector file, so every family gets
// its own copy of these).
template <void (*FillFloats)(float*, std::size_t, float), void (*CopyFloats)(float*, const float*, std::size_t)>
void PadRowWith(float* d, const float* s, std::size_t left, std::size_t width, std::size_t right, float value) {
  FillFloats(d, left, value);
  CopyFloats(d + left, s, width);
  FillFloats(d + left + width, right, value);
}
template <void (*FillFloats)(float*, std::size_t, float)>
void FillPlaneWith(float* d, std::size_t pixels, const float* values) {
  FillFloats(d, pixels, values[0]);
}

// A float tensor [planes, H, W] (rank 3, lanes 1) or [planes, H, W, lanes]
// padded by the borders with `value`, written one row at a time by
// `pad_row` (border rows copy nothing). Asserts as the vector helpers do,
// naming `what`.
TensorCPUPtr PadRows(const TensorCPUPtr& input, std::uint32_t left, std::uint32_t right, std::uint32_t top,
                     std::uint32_t bottom, float value, const DeviceCPUPtr& device, std::size_t rank,
                     std::uint32_t lanes, const char* what, PadRowFn pad_row);
// The bias fill of a float tensor: every pixel of channel block b gets the
// bias values of channels b * lanes .. b * lanes + lanes - 1 (zero beyond the
// bias), written by `fill` one block at a time.
void FillBiasBlocks(const TensorCPUPtr& inout, const TensorCPUPtr& bias, std::size_t rank, std::uint32_t lanes,
                    const char* what, FillPixelsFn fill);

}  // namespace detail
}  // namespace kernel
}  // namespace tarn
