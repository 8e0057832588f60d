#include "kernel/crossplatform/shape_common/shape_common.h"

#include <algorithm>
#include <cstring>

#include "tarn/runtime/context.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

namespace functional {

namespace {

// One run of the innermost output dim: n elements from the source offsets
// in `inner` (relative to `s`).
template <typename T>
void CopyRun(const char* s, char* d, const std::vector<std::size_t>& inner) {
  T* out = reinterpret_cast<T*>(d);
  for (std::size_t k = 0; k < inner.size(); ++k) std::memcpy(out + k, s + inner[k] * sizeof(T), sizeof(T));
}

void CopyRunBytes(const char* s, char* d, const std::vector<std::size_t>& inner, std::uint32_t eb) {
  switch (eb) {
    case 1: CopyRun<std::uint8_t>(s, d, inner); break;
    case 2: CopyRun<std::uint16_t>(s, d, inner); break;
    case 4: CopyRun<std::uint32_t>(s, d, inner); break;
    default:
      for (std::size_t k = 0; k < inner.size(); ++k) std::memcpy(d + k * eb, s + inner[k] * eb, eb);
  }
}

}  // namespace

void gather_bytes(const void* src, void* dst, const GatherPlan& plan, std::uint32_t element_bytes) {
  const std::size_t rank = plan.offsets.size();
  const char* s = static_cast<const char*>(src);
  char* d = static_cast<char*>(dst);
  const std::size_t eb = element_bytes;
  if (rank == 0) {
    std::memcpy(d, s + plan.base * eb, eb);
    return;
  }
  for (const auto& table : plan.offsets) {
    if (table.empty()) return;
  }
  const std::vector<std::size_t>& inner = plan.offsets[rank - 1];
  const std::size_t n = inner.size();
  // The innermost run is either contiguous in the source (one memcpy) or not.
  bool contiguous = true;
  for (std::size_t k = 1; k < n && contiguous; ++k) contiguous = inner[k] == inner[0] + k;

  // Odometer over the outer dims; acc[l] is base plus the offsets of levels below l.
  std::vector<std::size_t> index(rank, 0), acc(rank, plan.base);
  for (std::size_t l = 0; l + 1 < rank; ++l) acc[l + 1] = acc[l] + plan.offsets[l][0];
  while (true) {
    const char* run = s + acc[rank - 1] * eb;
    if (contiguous) {
      std::memcpy(d, run + inner[0] * eb, n * eb);
    } else {
      CopyRunBytes(run, d, inner, element_bytes);
    }
    d += n * eb;
    std::size_t level = rank - 1;
    while (true) {
      if (level == 0) return;
      --level;
      if (++index[level] < plan.offsets[level].size()) break;
      index[level] = 0;
    }
    for (std::size_t l = level; l + 1 < rank; ++l) acc[l + 1] = acc[l] + plan.offsets[l][index[l]];
  }
}

}  // namespace functional

namespace shape {

bool CheckedCount(const std::vector<std::uint64_t>& dims, std::uint64_t* count) {
  std::uint64_t n = 1;
  bool zero = false;
  bool over = false;
  for (std::uint64_t d : dims) {
    if (d == 0) zero = true;
    if (!over && d != 0 && n > kMaxElements / d) over = true;
    if (!over) n *= d;
  }
  // A zero dim makes the product zero however large the others are.
  if (zero) {
    *count = 0;
    return true;
  }
  if (over || n > kMaxElements) return false;
  *count = n;
  return true;
}

bool CheckedCount(const std::vector<unsigned>& dims, std::uint64_t* count) {
  return CheckedCount(std::vector<std::uint64_t>(dims.begin(), dims.end()), count);
}

bool NormaliseDim(std::int64_t dim, std::size_t rank, std::size_t* out) {
  const std::int64_t r = static_cast<std::int64_t>(rank);
  if (dim < -r || dim >= r) return false;
  *out = static_cast<std::size_t>(dim < 0 ? dim + r : dim);
  return true;
}

std::uint64_t SliceRange(std::int64_t start, std::int64_t end, std::int64_t step, std::uint64_t n,
                         std::uint64_t* first) {
  const std::int64_t extent = static_cast<std::int64_t>(n);
  auto clamp = [extent](std::int64_t v) {
    if (v < 0) v += extent;
    return std::min(std::max(v, std::int64_t(0)), extent);
  };
  const std::int64_t b = clamp(start);
  const std::int64_t e = end == 32767 ? extent : clamp(end);
  *first = static_cast<std::uint64_t>(b);
  if (step < 1 || e <= b) return 0;
  return static_cast<std::uint64_t>((e - b + step - 1) / step);
}

std::string DimsText(const std::vector<unsigned>& dims) {
  std::string text = "[";
  for (std::size_t i = 0; i < dims.size(); ++i) text += (i ? ", " : "") + std::to_string(dims[i]);
  return text + "]";
}

std::string DimsText(const std::vector<short>& dims) {
  std::string text = "[";
  for (std::size_t i = 0; i < dims.size(); ++i) text += (i ? ", " : "") + std::to_string(dims[i]);
  return text + "]";
}

bool IsBlocked(TensorShape::Layout layout) {
  switch (layout) {
    case TensorShape::C4HW4:
    case TensorShape::C8HW8:
    case TensorShape::N4C4HW4n4c:
    case TensorShape::N8C8HW8n8c:
    case TensorShape::GN4C4HW4n4c:
    case TensorShape::GN8C8HW8n8c:
      return true;
    default:
      return false;
  }
}

std::uint32_t LayoutLanes(TensorShape::Layout layout) {
  return layout == TensorShape::C4HW4 ? 4 : layout == TensorShape::C8HW8 ? 8 : 1;
}

bool OneDenseFloat(const std::vector<TensorShape>& inputs, std::size_t rank, std::string* why) {
  if (inputs.size() != 1) {
    *why = "it takes one tensor";
    return false;
  }
  const TensorShape& s = inputs[0];
  std::uint64_t count = 0;
  if (s.data_type != TensorShape::FLOAT32 || s.location != TensorShape::MainMemory || IsBlocked(s.layout) ||
      s.dims.size() != rank || !CheckedCount(s.dims, &count) || count == 0) {
    *why = "the input " + DimsText(s.dims) + " is not a non-empty dense float tensor of " + std::to_string(rank) +
           " dims in main memory";
    return false;
  }
  return true;
}

std::vector<TensorShape> ShapesOf(const std::vector<std::shared_ptr<runtime::Tensor>>& tensors) {
  std::vector<TensorShape> shapes;
  for (const auto& t : tensors) shapes.push_back(t->shape);
  return shapes;
}

std::vector<std::size_t> DenseStrides(const std::vector<unsigned>& dims) {
  std::vector<std::size_t> strides(dims.size(), 1);
  for (std::size_t i = dims.size(); i-- > 1;) strides[i - 1] = strides[i] * dims[i];
  return strides;
}

functional::GatherPlan StridedPlan(const std::vector<unsigned>& out_dims, const std::vector<std::size_t>& strides) {
  functional::GatherPlan plan;
  plan.offsets.resize(out_dims.size());
  for (std::size_t d = 0; d < out_dims.size(); ++d) {
    plan.offsets[d].resize(out_dims[d]);
    for (std::size_t i = 0; i < out_dims[d]; ++i) plan.offsets[d][i] = i * strides[d];
  }
  return plan;
}

}  // namespace shape

// ---------------------------------------------------------------------------

bool PlannedKernelBase::Check(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, TensorShape* output,
                              std::string* why) const {
  for (const auto& t : inputs) {
    if (!std::dynamic_pointer_cast<runtime::TensorCPU>(t) || !t->Data()) {
      *why = "it takes main-memory tensors only";
      return false;
    }
  }
  if (!configured_) {
    *why = "the kernel is not configured";
    return false;
  }
  return OutputShape(shape::ShapesOf(inputs), output, why);
}

std::vector<TensorShape> PlannedKernelBase::GetOutputShapes(const std::vector<TensorShape>& inputs) const {
  TensorShape out;
  std::string why;
  if (!configured_ || !OutputShape(inputs, &out, &why)) return {};
  return {out};
}

std::int32_t PlannedKernelBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  TensorShape out;
  std::string why;
  if (Check(inputs, &out, &why)) return kValid;
  utility::Log(utility::kLogError, "%s refuses its input: %s.", GetName().c_str(), why.c_str());
  return kInvalidTensor;
}

std::shared_ptr<runtime::TensorCPU> PlannedKernelBase::Prepare(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
    const std::shared_ptr<runtime::Context>& context) const {
  TensorShape out;
  std::string why;
  if (!Check(inputs, &out, &why)) {
    utility::Log(utility::kLogError, "%s refuses its input: %s.", GetName().c_str(), why.c_str());
    return nullptr;
  }
  if (!context || !context->cpu) return nullptr;
  return context->cpu->CreateTensor(out);
}

std::int32_t ShapeOpBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                       std::shared_ptr<runtime::InferenceParam>) const {
  std::string why;
  return layer && Accept(*layer, &why) ? kValid : kInvalidParam;
}

bool ShapeOpBase::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam>,
                         std::shared_ptr<runtime::Context>) {
  configured_ = false;
  std::string why = "no layer record";
  if (!layer || !Accept(*layer, &why)) {
    utility::Log(utility::kLogError, "%s refuses layer <%s>: %s.", GetName().c_str(), layer ? layer->id.c_str() : "",
                 why.c_str());
    return false;
  }
  Keep(*layer);
  configured_ = true;
  return true;
}

bool ShapeOpBase::PlanFor(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, ShapePlan* plan,
                          std::string* why) const {
  if (!configured_) {
    *why = "the kernel is not configured";
    return false;
  }
  if (inputs.size() != 1 || !std::dynamic_pointer_cast<runtime::TensorCPU>(inputs[0])) {
    *why = "it takes one main-memory tensor";
    return false;
  }
  const TensorShape& s = inputs[0]->shape;
  if (s.location != TensorShape::MainMemory || s.data_type > TensorShape::UINT8 || inputs[0]->Data() == nullptr) {
    *why = "the input is not a tensor of a known element type in main memory";
    return false;
  }
  if (shape::IsBlocked(s.layout)) {
    *why = "a channel-blocked input has no layer dims (convert it to CHW first)";
    return false;
  }
  std::uint64_t count = 0;
  if (s.dims.empty() || !shape::CheckedCount(s.dims, &count) || count == 0) {
    *why = "the input " + shape::DimsText(s.dims) + " holds no elements or too many";
    return false;
  }
  if (!Plan(s, plan, why)) return false;
  if (!shape::CheckedCount(plan->output.dims, &count) || count == 0) {
    *why = "the output " + shape::DimsText(plan->output.dims) + " would hold no elements or too many";
    return false;
  }
  return true;
}

std::vector<TensorShape> ShapeOpBase::GetOutputShapes(const std::vector<TensorShape>& inputs) const {
  if (!configured_ || inputs.size() != 1 || inputs[0].dims.empty() || shape::IsBlocked(inputs[0].layout)) return {};
  ShapePlan plan;
  std::string why;
  std::uint64_t count = 0;
  if (!shape::CheckedCount(inputs[0].dims, &count) || count == 0 || !Plan(inputs[0], &plan, &why)) return {};
  if (!shape::CheckedCount(plan.output.dims, &count) || count == 0) return {};
  return {plan.output};
}

std::int32_t ShapeOpBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  ShapePlan plan;
  std::string why;
  if (PlanFor(inputs, &plan, &why)) return kValid;
  utility::Log(utility::kLogError, "%s cannot take its input: %s.", GetName().c_str(), why.c_str());
  return kInvalidTensor;
}

std::int32_t ShapeOpBase::IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const {
  if (outputs.size() != 1 || !outputs[0] || outputs[0]->shape.location != TensorShape::MainMemory ||
      outputs[0]->Data() == nullptr) {
    return kInvalidTensor;
  }
  return kValid;
}

std::shared_ptr<runtime::Tensor> ShapeOpBase::Produce(const std::shared_ptr<runtime::Tensor>& input,
                                                      const ShapePlan& plan,
                                                      const std::shared_ptr<runtime::Context>& context) const {
  auto in = std::dynamic_pointer_cast<runtime::TensorCPU>(input);
  if (!in) return nullptr;
  if (plan.view) {
    // The view shares, and keeps alive, the input's storage.
    return std::make_shared<runtime::TensorCPU>(plan.output, in->storage(), in->device);
  }
  if (!context || !context->cpu) return nullptr;
  auto out = context->cpu->CreateTensor(plan.output);
  functional::gather_bytes(in->Data(), out->Data(), plan.gather, in->shape.ElementSize());
  return out;
}

bool ShapeOpBase::SetOutputs(const std::shared_ptr<runtime::Context>& context,
                             const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, const bool&,
                             std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const {
  ShapePlan plan;
  std::string why;
  if (!PlanFor(inputs, &plan, &why) || !plan.view) return false;
  auto view = Produce(inputs[0], plan, context);
  if (!view) return false;
  outputs.assign(1, view);
  return true;
}

bool ShapeOpBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                          std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                          std::shared_ptr<runtime::Context> context) const {
  ShapePlan plan;
  std::string why;
  if (!PlanFor(inputs, &plan, &why)) {
    utility::Log(utility::kLogError, "%s cannot take its input: %s.", GetName().c_str(), why.c_str());
    return false;
  }
  // A view SetOutputs already handed out is kept.
  if (plan.view && outputs.size() == 1 && outputs[0] && outputs[0]->Data() == inputs[0]->Data() &&
      outputs[0]->shape == plan.output) {
    return true;
  }
  auto out = Produce(inputs[0], plan, context);
  if (!out) return false;
  outputs.assign(1, out);
  return true;
}

}  // namespace kernel
}  // namespace tarn
