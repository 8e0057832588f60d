// What the shape kernels share: dim arithmetic with Python's index rules,
// overflow-checked element counts, the gather engine's plans, and the
// skeleton of a one-input shape operation. Baseline code.
//
// Conventions of every shape kernel:
// - tensors carry no batch axis; a record's dim indexes the runtime tensor's
//   own dims, negative values count from the end (Python rules);
// - the runtime has no rank-0 tensors: a result that would have no dims is
//   the one-element vector [1];
// - results without elements are refused (no downstream kernel can take them);
// - blocked tensors ([C/4, H, W, 4], [C/8, H, W, 8]) are refused: their dims
//   are not the layer's dims, convert them to CHW first.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarn/kernel/kernel_base.h"
#include "tarn/kernel/shape.h"
#include "tarn/runtime/device_cpu.h"

namespace tarn {
namespace kernel {
namespace shape {

// The largest element count a shape kernel produces: counts are 32-bit in
// the rest of the library.
constexpr std::uint64_t kMaxElements = UINT32_MAX;

// dims[0] * dims[1] * ... in *count; false when it passes kMaxElements.
bool CheckedCount(const std::vector<std::uint64_t>& dims, std::uint64_t* count);
bool CheckedCount(const std::vector<unsigned>& dims, std::uint64_t* count);
// dim + rank for a negative dim; false outside [-rank, rank).
bool NormaliseDim(std::int64_t dim, std::size_t rank, std::size_t* out);
// Python's slice rules on an extent n: negative start/end count from the
// end, both are clamped to [0, n], 32767 as end means n. The count of
// selected indices (0 for an empty range); step must be >= 1.
std::uint64_t SliceRange(std::int64_t start, std::int64_t end, std::int64_t step, std::uint64_t n,
                         std::uint64_t* first);
// "[2, 3, 4]".
std::string DimsText(const std::vector<unsigned>& dims);
std::string DimsText(const std::vector<short>& dims);
bool IsBlocked(runtime::TensorShape::Layout layout);
// Lanes of a layout: 4, 8, or 1 for the dense ones.
std::uint32_t LayoutLanes(runtime::TensorShape::Layout layout);
// True for one non-empty dense float tensor in main memory of `rank` dims;
// false with the reason.
bool OneDenseFloat(const std::vector<runtime::TensorShape>& inputs, std::size_t rank, std::string* why);
// The shapes of tensors.
std::vector<runtime::TensorShape> ShapesOf(const std::vector<std::shared_ptr<runtime::Tensor>>& tensors);
// Row-major strides (in elements) of dense dims.
std::vector<std::size_t> DenseStrides(const std::vector<unsigned>& dims);
// The identity gather over dims with the given source strides per output dim.
functional::GatherPlan StridedPlan(const std::vector<unsigned>& out_dims, const std::vector<std::size_t>& strides);

}  // namespace shape

// The skeleton of a kernel whose main-memory inputs one planning function
// checks: output shapes, the input check (a refusal is logged with its
// reason) and the checked start of Forward.
class PlannedKernelBase : public KernelBase {
 public:
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;

 protected:
  // The output shape for input shapes; false with the reason.
  virtual bool OutputShape(const std::vector<runtime::TensorShape>& inputs, runtime::TensorShape* output,
                           std::string* why) const = 0;
  // A fresh output for main-memory `inputs`; null (logged) when they are refused.
  std::shared_ptr<runtime::TensorCPU> Prepare(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                              const std::shared_ptr<runtime::Context>& context) const;

 private:
  bool Check(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, runtime::TensorShape* output,
             std::string* why) const;
};

// What a one-input shape operation decides for one input shape: the output
// shape, and either a view (the output shares the input's storage) or a
// gather from the input.
struct ShapePlan {
  runtime::TensorShape output;
  bool view = false;
  functional::GatherPlan gather;
};

// The skeleton of the cross-platform shape kernels: one tensor in main memory
// of any element type and any dense layout in, one out. The member checks
// its record (Accept) and plans one input shape (Plan); everything else is
// here. Views are handed out through SetOutputs and Forward alike.
class ShapeOpBase : public KernelBase {
 public:
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  // Keeps what Accept takes from the record; a refused record is logged.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // The view of a viewing plan; false (outputs left to Forward) otherwise.
  bool SetOutputs(const std::shared_ptr<runtime::Context>& context,
                  const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, const bool& reuse,
                  std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const override;
  // One main-memory tensor the plan accepts; a refusal is logged with its reason.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  std::int32_t IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

 protected:
  // Whether the record is one this member computes whatever the input;
  // false with the reason.
  virtual bool Accept(const runtime::LayerInfo& layer, std::string* why) const = 0;
  // Stores the fields of an accepted record.
  virtual void Keep(const runtime::LayerInfo& layer) = 0;
  // The plan for one input shape (dims non-empty, not blocked); false with the reason.
  virtual bool Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const = 0;

 private:
  // The plan for the input of `inputs`; false with the reason.
  bool PlanFor(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, ShapePlan* plan, std::string* why) const;
  // The output for `plan`: a view or a fresh gathered tensor.
  std::shared_ptr<runtime::Tensor> Produce(const std::shared_ptr<runtime::Tensor>& input, const ShapePlan& plan,
                                           const std::shared_ptr<runtime::Context>& context) const;
};

}  // namespace kernel
}  // namespace tarn
