#include "kernel/crossplatform/expand/expand.h"

#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

TensorExpand_Fallback_M1::~TensorExpand_Fallback_M1() = default;

bool TensorExpand_Fallback_M1::Accept(const runtime::LayerInfo& layer, std::string* why) const {
  const auto* info = dynamic_cast<const runtime::TensorExpandInfo*>(&layer);
  if (!info) {
    *why = "not a TensorExpandInfo record";
    return false;
  }
  if (info->new_shape.empty()) {
    *why = "new_shape is empty";
    return false;
  }
  for (short d : info->new_shape) {
    if (d < -1) {
      *why = "new_shape " + shape::DimsText(info->new_shape) + " holds a negative extent other than -1";
      return false;
    }
  }
  return true;
}

void TensorExpand_Fallback_M1::Keep(const runtime::LayerInfo& layer) {
  new_shape_ = static_cast<const runtime::TensorExpandInfo&>(layer).new_shape;
}

bool TensorExpand_Fallback_M1::Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const {
  const std::size_t rank = input.dims.size();
  const std::size_t out_rank = new_shape_.size();
  if (out_rank < rank) {
    *why = "new_shape " + shape::DimsText(new_shape_) + " has fewer dims than the input " + shape::DimsText(input.dims);
    return false;
  }
  const std::size_t lead = out_rank - rank;
  const std::vector<std::size_t> in_strides = shape::DenseStrides(input.dims);
  plan->output = input;
  plan->output.dims.assign(out_rank, 0);
  std::vector<std::size_t> strides(out_rank, 0);
  for (std::size_t i = 0; i < out_rank; ++i) {
    const short want = new_shape_[i];
    if (i < lead) {
      if (want < 1) {
        *why = "new_shape " + shape::DimsText(new_shape_) + " adds a dim without a positive extent";
        return false;
      }
      plan->output.dims[i] = static_cast<unsigned>(want);
      continue;
    }
    const unsigned have = input.dims[i - lead];
    if (want == -1 || static_cast<unsigned>(want) == have) {
      plan->output.dims[i] = have;
      strides[i] = in_strides[i - lead];
    } else if (have == 1) {
      plan->output.dims[i] = static_cast<unsigned>(want);  // stride 0: every index reads the one element
    } else {
      *why = "new_shape " + shape::DimsText(new_shape_) + " is not a broadcast of the input " +
             shape::DimsText(input.dims);
      return false;
    }
  }
  plan->gather = shape::StridedPlan(plan->output.dims, strides);
  return true;
}

}  // namespace kernel
}  // namespace tarn
