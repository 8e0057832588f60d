#include "kernel/crossplatform/reshape/reshape.h"

#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

TensorReshape_Fallback_M1::~TensorReshape_Fallback_M1() = default;

bool TensorReshape_Fallback_M1::Accept(const runtime::LayerInfo& layer, std::string* why) const {
  const auto* info = dynamic_cast<const runtime::TensorReshapeInfo*>(&layer);
  if (!info) {
    *why = "not a TensorReshapeInfo record";
    return false;
  }
  int inferred = 0;
  for (short d : info->new_shape) {
    if (d < -1) {
      *why = "new_shape " + shape::DimsText(info->new_shape) + " holds a negative extent other than -1";
      return false;
    }
    inferred += d == -1;
  }
  if (inferred > 1) {
    *why = "new_shape " + shape::DimsText(info->new_shape) + " infers more than one extent";
    return false;
  }
  return true;
}

void TensorReshape_Fallback_M1::Keep(const runtime::LayerInfo& layer) {
  new_shape_ = static_cast<const runtime::TensorReshapeInfo&>(layer).new_shape;
}

bool TensorReshape_Fallback_M1::Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const {
  std::uint64_t count = 0;
  shape::CheckedCount(input.dims, &count);
  std::vector<std::uint64_t> dims(new_shape_.size());
  std::uint64_t known = 1;
  int inferred = -1;
  for (std::size_t i = 0; i < new_shape_.size(); ++i) {
    const short d = new_shape_[i];
    if (d == -1) {
      inferred = static_cast<int>(i);
      continue;
    }
    if (d == 0) {
      if (i >= input.dims.size()) {
        *why = "new_shape " + shape::DimsText(new_shape_) + " copies dim " + std::to_string(i) + " of a rank-" +
               std::to_string(input.dims.size()) + " input";
        return false;
      }
      dims[i] = input.dims[i];
    } else {
      dims[i] = static_cast<std::uint64_t>(d);
    }
    // Every factor is below 2^32 and known stays at most the input count.
    known *= dims[i];
    if (known > count) break;
  }
  if (inferred >= 0) {
    if (known == 0 || count % known != 0) {
      *why = "new_shape " + shape::DimsText(new_shape_) + " cannot hold the " + std::to_string(count) +
             " elements of the input " + shape::DimsText(input.dims);
      return false;
    }
    dims[inferred] = count / known;
    known = count;
  }
  if (known != count) {
    *why = "new_shape " + shape::DimsText(new_shape_) + " does not hold the " + std::to_string(count) +
           " elements of the input " + shape::DimsText(input.dims);
    return false;
  }
  plan->output = input;
  plan->output.dims.assign(dims.begin(), dims.end());
  if (plan->output.dims.empty()) plan->output.dims = {1};
  plan->view = true;
  return true;
}

}  // namespace kernel
}  // namespace tarn
