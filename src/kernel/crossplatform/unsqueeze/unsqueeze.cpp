#include "kernel/crossplatform/unsqueeze/unsqueeze.h"

#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

TensorUnSqueeze_Fallback_M1::~TensorUnSqueeze_Fallback_M1() = default;

bool TensorUnSqueeze_Fallback_M1::Accept(const runtime::LayerInfo& layer, std::string* why) const {
  if (!dynamic_cast<const runtime::TensorUnSqueezeInfo*>(&layer)) {
    *why = "not a TensorUnSqueezeInfo record";
    return false;
  }
  return true;
}

void TensorUnSqueeze_Fallback_M1::Keep(const runtime::LayerInfo& layer) {
  dim_ = static_cast<const runtime::TensorUnSqueezeInfo&>(layer).dim;
}

bool TensorUnSqueeze_Fallback_M1::Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const {
  std::size_t d = 0;
  if (!shape::NormaliseDim(dim_, input.dims.size() + 1, &d)) {
    *why = "dim " + std::to_string(dim_) + " cannot be inserted into the input " + shape::DimsText(input.dims);
    return false;
  }
  plan->output = input;
  plan->output.dims.insert(plan->output.dims.begin() + d, 1u);
  plan->view = true;
  return true;
}

}  // namespace kernel
}  // namespace tarn
