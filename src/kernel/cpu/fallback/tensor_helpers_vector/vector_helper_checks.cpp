#include "kernel/cpu/fallback/tensor_helpers_vector/vector_helper_checks.h"

#include <limits>

#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace detail {

using runtime::TensorShape;

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

}  // namespace detail
}  // namespace kernel
}  // namespace tarn
