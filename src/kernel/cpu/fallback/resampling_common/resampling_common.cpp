#include "kernel/cpu/fallback/resampling_common/resampling_common.h"

#include <cstdarg>
#include <cstdio>

#include "tarn/runtime/context.h"
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

std::vector<runtime::TensorShape> ShapedKernelBase::GetOutputShapes(
    const std::vector<runtime::TensorShape>& inputs) const {
  if (!configured_ || inputs.size() != inputs_) return {};
  for (const auto& s : inputs) {
    if (ShapeSizeProblem(s)) return {};
  }
  runtime::TensorShape out;
  if (Problem(inputs, &out)) return {};
  return {out};
}

std::int32_t ShapedKernelBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (!configured_) return RefuseInput(*this, "the kernel is not configured");
  if (inputs.size() != inputs_) return RefuseInput(*this, "%zu inputs, %zu expected", inputs.size(), inputs_);
  std::vector<runtime::TensorShape> shapes;
  for (const auto& t : inputs) {
    if (const char* p = FloatTensorProblem(t)) return RefuseInput(*this, "%s", p);
    shapes.push_back(t->shape);
  }
  runtime::TensorShape out;
  if (const char* p = Problem(shapes, &out)) return RefuseInput(*this, "%s", p);
  return kValid;
}

std::shared_ptr<runtime::TensorCPU> ShapedKernelBase::Prepare(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                              const std::shared_ptr<runtime::Context>& context) const {
  if (!context || !context->cpu || IsValidInput(inputs) != kValid) return nullptr;
  std::vector<runtime::TensorShape> shapes;
  for (const auto& t : inputs) shapes.push_back(t->shape);
  runtime::TensorShape out;
  Problem(shapes, &out);
  return context->cpu->CreateTensor(out);
}

}  // namespace kernel
}  // namespace tarn
