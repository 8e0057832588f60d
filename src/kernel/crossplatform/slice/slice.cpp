#include "kernel/crossplatform/slice/slice.h"

#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

TensorSlice_Fallback_M1::~TensorSlice_Fallback_M1() = default;

bool TensorSlice_Fallback_M1::Accept(const runtime::LayerInfo& layer, std::string* why) const {
  const auto* info = dynamic_cast<const runtime::TensorSliceInfo*>(&layer);
  if (!info) {
    *why = "not a TensorSliceInfo record";
    return false;
  }
  const auto& s = info->slice_dims;
  if (s.empty() || s.size() % 4 != 0) {
    *why = "slice_dims " + shape::DimsText(s) + " is not a list of (dim, start, end, step) groups";
    return false;
  }
  for (std::size_t g = 0; g < s.size(); g += 4) {
    if (s[g + 3] < 1) {
      *why = "slice_dims " + shape::DimsText(s) + " has a step below 1";
      return false;
    }
  }
  return true;
}

void TensorSlice_Fallback_M1::Keep(const runtime::LayerInfo& layer) {
  slice_dims_ = static_cast<const runtime::TensorSliceInfo&>(layer).slice_dims;
}

bool TensorSlice_Fallback_M1::Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const {
  const std::size_t rank = input.dims.size();
  const std::vector<std::size_t> in_strides = shape::DenseStrides(input.dims);
  plan->output = input;
  plan->gather = shape::StridedPlan(input.dims, in_strides);
  std::vector<bool> sliced(rank, false);
  for (std::size_t g = 0; g < slice_dims_.size(); g += 4) {
    std::size_t d = 0;
    const bool inside = shape::NormaliseDim(slice_dims_[g], rank, &d);
    if (!inside || sliced[d]) {
      *why = "slice_dims " + shape::DimsText(slice_dims_) + " names dim " + std::to_string(slice_dims_[g]) +
             (inside ? " twice" : " outside the input " + shape::DimsText(input.dims));
      return false;
    }
    sliced[d] = true;
    std::uint64_t first = 0;
    const std::int64_t step = slice_dims_[g + 3];
    const std::uint64_t n = shape::SliceRange(slice_dims_[g + 1], slice_dims_[g + 2], step, input.dims[d], &first);
    if (n == 0) {
      *why = "slice " + std::to_string(slice_dims_[g + 1]) + ":" + std::to_string(slice_dims_[g + 2]) + ":" +
             std::to_string(step) + " selects nothing of dim " + std::to_string(d) + " of the input " +
             shape::DimsText(input.dims);
      return false;
    }
    plan->output.dims[d] = static_cast<unsigned>(n);
    auto& table = plan->gather.offsets[d];
    table.resize(n);
    for (std::uint64_t i = 0; i < n; ++i) table[i] = (first + i * step) * in_strides[d];
  }
  return true;
}

}  // namespace kernel
}  // namespace tarn
