#include "kernel/crossplatform/transpose/transpose.h"

#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

TensorTranspose_Fallback_M1::~TensorTranspose_Fallback_M1() = default;

bool TensorTranspose_Fallback_M1::Accept(const runtime::LayerInfo& layer, std::string* why) const {
  const auto* info = dynamic_cast<const runtime::TensorTransposeInfo*>(&layer);
  if (!info) {
    *why = "not a TensorTransposeInfo record";
    return false;
  }
  std::vector<bool> seen(info->axes.size(), false);
  for (unsigned short a : info->axes) {
    if (a >= seen.size() || seen[a]) {
      *why = "axes do not name each of the " + std::to_string(seen.size()) + " dims once";
      return false;
    }
    seen[a] = true;
  }
  if (info->axes.empty()) {
    *why = "axes are empty";
    return false;
  }
  return true;
}

void TensorTranspose_Fallback_M1::Keep(const runtime::LayerInfo& layer) {
  axes_ = static_cast<const runtime::TensorTransposeInfo&>(layer).axes;
}

bool TensorTranspose_Fallback_M1::Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const {
  const std::size_t rank = input.dims.size();
  if (axes_.size() != rank) {
    *why = std::to_string(axes_.size()) + " axes for the rank-" + std::to_string(rank) + " input " +
           shape::DimsText(input.dims);
    return false;
  }
  const std::vector<std::size_t> in_strides = shape::DenseStrides(input.dims);
  plan->output = input;
  std::vector<std::size_t> strides(rank);
  // The elements stay in place when the dims of extent > 1 keep their order.
  bool in_order = true;
  int last = -1;
  for (std::size_t i = 0; i < rank; ++i) {
    plan->output.dims[i] = input.dims[axes_[i]];
    strides[i] = in_strides[axes_[i]];
    if (input.dims[axes_[i]] != 1) {
      in_order = in_order && static_cast<int>(axes_[i]) > last;
      last = axes_[i];
    }
  }
  plan->view = in_order;
  if (!in_order) plan->gather = shape::StridedPlan(plan->output.dims, strides);
  return true;
}

}  // namespace kernel
}  // namespace tarn
