// What the normalisation, resampling, softmax, clip and grid-sampling kernels
// share: the layout vocabulary of their tensors, the size limits of a pass and
// the refusals, which always say why in a log line. Compiled for baseline
// x86-64 with the bases of every family.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "tarn/kernel/kernel_base.h"
#include "tarn/runtime/tensor.h"

namespace tarn {
namespace kernel {

// Buffers of a pass are addressed with 32-bit signed offsets by the vector
// routines (gathers); no tensor of these kernels may hold more floats.
constexpr std::uint64_t kMaxPassFloats = 0x7fffffff;

// Whether the product of `factors` stays within kMaxPassFloats (checked
// without overflow: shapes may claim any dims).
bool FitsPassFloats(std::initializer_list<std::uint64_t> factors);

// Floats per pixel vector of a layout: 4 for C4HW4, 8 for C8HW8, 1 for the
// plain layouts.
std::uint32_t LayoutLanes(runtime::TensorShape::Layout layout);

// CHW or FLEXIABLE: elements in the row-major order of the dims.
bool IsPlainLayout(runtime::TensorShape::Layout layout);

// The tensor as a main-memory CPU tensor, or null.
std::shared_ptr<runtime::TensorCPU> AsTensorCPU(const std::shared_ptr<runtime::Tensor>& t);

// Why a shape cannot be a tensor of a pass, or null when it can: at least one
// dim, no zero extent, at most kMaxPassFloats elements.
const char* ShapeSizeProblem(const runtime::TensorShape& shape);

// Why a tensor cannot be read as a float tensor of a pass, or null when it can:
// a float main-memory CPU tensor with data whose shape passes ShapeSizeProblem.
const char* FloatTensorProblem(const std::shared_ptr<runtime::Tensor>& t);

// Why `shape` is not a [blocks, H, W, lanes] tensor of `layout` (C4HW4 or
// C8HW8), or null when it is.
const char* BlockedShapeProblem(const runtime::TensorShape& shape, runtime::TensorShape::Layout layout);

// Logs "<kernel>: <reason>" at error level and returns kInvalidTensor; the
// forward pass adds which layer it was.
std::int32_t RefuseInput(const runtime::IKernel& kernel, const char* format, ...)
    __attribute__((format(printf, 2, 3)));
// Logs "<kernel>: <reason>" at error level and returns false.
bool RefuseRecord(const runtime::IKernel& kernel, const char* format, ...) __attribute__((format(printf, 2, 3)));

// The floats of a weight blob of a record; false (logged as "<key> holds n
// floats, m needed") when the count is not `count`.
bool DecodeBlob(const runtime::IKernel& kernel, const std::string& blob, const char* key, std::size_t count,
                std::vector<float>* values);

// The product of dims[begin, end), 1 for an empty range.
std::uint64_t DimsProduct(const std::vector<unsigned>& dims, std::size_t begin, std::size_t end);

// A copy of `in` with other dims.
runtime::TensorShape ShapeWithDims(const runtime::TensorShape& in, std::vector<unsigned> dims);

// A kernel of a fixed number of float inputs whose checks and output shape
// come from one function, Problem; GetOutputShapes and IsValidInput follow
// from it, and Forward starts with Prepare.
class ShapedKernelBase : public KernelBase {
 public:
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // Refuses, with a log line saying why, anything Problem refuses.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;

 protected:
  explicit ShapedKernelBase(std::size_t inputs = 1) : inputs_(inputs) {}
  // Why input shapes (already checked by ShapeSizeProblem) do not fit the
  // configured kernel, or null with `out` the output shape.
  virtual const char* Problem(const std::vector<runtime::TensorShape>& in, runtime::TensorShape* out) const = 0;
  // The output of a pass over `inputs` (created through the context's device,
  // uninitialised); null when the inputs or the context do not fit.
  std::shared_ptr<runtime::TensorCPU> Prepare(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                              const std::shared_ptr<runtime::Context>& context) const;

 private:
  std::size_t inputs_;
};

}  // namespace kernel
}  // namespace tarn
