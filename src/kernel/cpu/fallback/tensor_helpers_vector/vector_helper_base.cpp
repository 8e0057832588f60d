#include "kernel/cpu/fallback/tensor_helpers_vector/vector_helper_base.h"

#include <limits>

#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace detail {

using runtime::TensorShape;

namespace {

// The uninitialised result of padding `input` ([planes, H, W] or
// [planes, H, W, lanes]) by the borders; asserts on extents beyond 32 bits.
TensorCPUPtr CreatePadded(const TensorCPUPtr& input, std::uint32_t left, std::uint32_t right, std::uint32_t top,
                          std::uint32_t bottom, const DeviceCPUPtr& device, const char* what) {
  utility::Assert(device != nullptr, "%s needs a device.", what);
  TensorShape shape = input->shape;
  const std::uint64_t h = std::uint64_t(shape.dims[1]) + top + bottom;
  const std::uint64_t w = std::uint64_t(shape.dims[2]) + left + right;
  utility::Assert(h <= std::numeric_limits<unsigned>::max() && w <= std::numeric_limits<unsigned>::max(),
                  "%s: padded extent beyond 32 bits.", what);
  shape.dims[1] = static_cast<unsigned>(h);
  shape.dims[2] = static_cast<unsigned>(w);
  return device->CreateTensor(shape);
}

}  // namespace

void CheckLaneTensor(const TensorCPUPtr& t, TensorShape::DataType type, std::size_t rank, std::uint32_t lanes,
                     const char* what) {
  utility::Assert(t != nullptr && t->Data() != nullptr && t->shape.location == TensorShape::MainMemory &&
                      t->shape.data_type == type && t->shape.dims.size() == rank &&
                      (rank != 4 || t->shape.dims[3] == lanes),
                  "%s expects a main-memory tensor of rank %zu, type %u and %u lanes.", what, rank,
                  static_cast<unsigned>(type), static_cast<unsigned>(lanes));
}

std::size_t CheckedBiasCount(const TensorCPUPtr& bias, TensorShape::DataType type) {
  utility::Assert(bias != nullptr && bias->Data() != nullptr && bias->shape.data_type == type &&
                      !bias->shape.dims.empty() && bias->shape.location == TensorShape::MainMemory,
                  "The bias must be a main-memory tensor of the output's type.");
  const auto& d = bias->shape.dims;
  return d.size() >= 2 ? std::size_t(d[0]) * d[1] : d[0];
}

void CheckBiasBlocks(const TensorCPUPtr& inout, std::size_t count, std::uint32_t lanes) {
  utility::Assert((count + lanes - 1) / lanes == inout->shape.dims[0],
                  "The bias must hold one value per channel: %zu values for %u blocks of %u.", count,
                  inout->shape.dims[0], static_cast<unsigned>(lanes));
}

TensorCPUPtr PadRows(const TensorCPUPtr& input, std::uint32_t left, std::uint32_t right, std::uint32_t top,
                     std::uint32_t bottom, float value, const DeviceCPUPtr& device, std::size_t rank,
                     std::uint32_t lanes, const char* what, PadRowFn pad_row) {
  CheckLaneTensor(input, TensorShape::FLOAT32, rank, lanes, what);
  TensorCPUPtr out = CreatePadded(input, left, right, top, bottom, device, what);
  const std::size_t planes = input->shape.dims[0], h = input->shape.dims[1], w = input->shape.dims[2];
  const std::size_t oh = out->shape.dims[1], row = std::size_t(out->shape.dims[2]) * lanes;
  const float* s = input->DataAs<float>();
  float* d = out->DataAs<float>();
  for (std::size_t p = 0; p < planes; ++p) {
    for (std::size_t y = 0; y < oh; ++y, d += row) {
      if (y < top || y >= top + h) {
        pad_row(d, s, row, 0, 0, value);
        continue;
      }
      pad_row(d, s, std::size_t(left) * lanes, w * lanes, std::size_t(right) * lanes, value);
      s += w * lanes;
    }
  }
  return out;
}

void FillBiasBlocks(const TensorCPUPtr& inout, const TensorCPUPtr& bias, std::size_t rank, std::uint32_t lanes,
                    const char* what, FillPixelsFn fill) {
  CheckLaneTensor(inout, TensorShape::FLOAT32, rank, lanes, what);
  const std::size_t count = CheckedBiasCount(bias, TensorShape::FLOAT32);
  CheckBiasBlocks(inout, count, lanes);
  const std::size_t plane = std::size_t(inout->shape.dims[1]) * inout->shape.dims[2];
  const float* b = bias->DataAs<float>();
  float* d = inout->DataAs<float>();
  for (std::size_t block = 0; block < inout->shape.dims[0]; ++block, d += plane * lanes) {
    float values[8] = {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
    for (std::size_t k = 0; k < lanes && block * lanes + k < count; ++k) values[k] = b[block * lanes + k];
    fill(d, plane, values);
  }
}

}  // namespace detail
}  // namespace kernel
}  // namespace tarn
