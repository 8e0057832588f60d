#include "kernel/cpu/fallback/resampling_common/resampling_common.h"

#include <cstdarg>
#include <cstdio>

#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

bool FitsPassFloats(std::initializer_list<std::uint64_t> factors) {
  std::uint64_t product = 1;
  for (std::uint64_t f : factors) {
    if (f != 0 && product > kMaxPassFloats / f) return false;
    product *= f;
  }
  return product <= kMaxPassFloats;
}

std::uint32_t LayoutLanes(runtime::TensorShape::Layout layout) {
  switch (layout) {
    case runtime::TensorShape::C4HW4: return 4;
    case runtime::TensorShape::C8HW8: return 8;
    default: return 1;
  }
}

bool IsPlainLayout(runtime::TensorShape::Layout layout) {
  return layout == runtime::TensorShape::CHW || layout == runtime::TensorShape::FLEXIABLE;
}

std::shared_ptr<runtime::TensorCPU> AsTensorCPU(const std::shared_ptr<runtime::Tensor>& t) {
  return std::dynamic_pointer_cast<runtime::TensorCPU>(t);
}

const char* FloatTensorProblem(const std::shared_ptr<runtime::Tensor>& t) {
  if (!IsFloatMainMemory(t) || !AsTensorCPU(t)) return "the input is not a float tensor in main memory";
  return ShapeSizeProblem(t->shape);
}

const char* ShapeSizeProblem(const runtime::TensorShape& shape) {
  const auto& dims = shape.dims;
  if (dims.empty()) return "the input has no dims";
  std::uint64_t n = 1;
  for (unsigned d : dims) {
    if (d == 0) return "the input is empty";
    n *= d;
    if (n > kMaxPassFloats) return "the input holds more than 2^31 - 1 floats";
  }
  return nullptr;
}

const char* BlockedShapeProblem(const runtime::TensorShape& shape, runtime::TensorShape::Layout layout) {
  if (shape.layout != layout) return "the input is not in the kernel's blocked layout";
  if (shape.dims.size() != 4 || shape.dims[3] != LayoutLanes(layout)) {
    return "a blocked input must have dims [blocks, H, W, lanes]";
  }
  return nullptr;
}

namespace {

std::string Formatted(const char* format, va_list args) {
  char buffer[512];
  std::vsnprintf(buffer, sizeof(buffer), format, args);
  return buffer;
}

}  // namespace

std::int32_t RefuseInput(const runtime::IKernel& kernel, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const std::string reason = Formatted(format, args);
  va_end(args);
  utility::Log(utility::kLogError, "%s: %s.", kernel.GetName().c_str(), reason.c_str());
  return kInvalidTensor;
}

bool RefuseRecord(const runtime::IKernel& kernel, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const std::string reason = Formatted(format, args);
  va_end(args);
  utility::Log(utility::kLogError, "%s: %s.", kernel.GetName().c_str(), reason.c_str());
  return false;
}

bool DecodeBlob(const runtime::IKernel& kernel, const std::string& blob, const char* key, std::size_t count,
                std::vector<float>* values) {
  *values = runtime::DecodeWeights(blob);
  if (values->size() == count) return true;
  return RefuseRecord(kernel, "\"%s\" holds %zu floats, %zu needed", key, values->size(), count);
}

std::uint64_t DimsProduct(const std::vector<unsigned>& dims, std::size_t begin, std::size_t end) {
  std::uint64_t n = 1;
  for (std::size_t i = begin; i < end && i < dims.size(); ++i) n *= dims[i];
  return n;
}

runtime::TensorShape ShapeWithDims(const runtime::TensorShape& in, std::vector<unsigned> dims) {
  runtime::TensorShape out = in;
  out.dims = std::move(dims);
  return out;
}

}  // namespace kernel
}  // namespace tarn
