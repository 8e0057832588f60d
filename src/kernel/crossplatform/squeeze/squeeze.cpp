#include "kernel/crossplatform/squeeze/squeeze.h"

#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

TensorSqueeze_Fallback_M1::~TensorSqueeze_Fallback_M1() = default;

// TensorUnSqueezeInfo is a class of its own (the two share a type code), so
// the dynamic type tells them apart.
bool TensorSqueeze_Fallback_M1::Accept(const runtime::LayerInfo& layer, std::string* why) const {
  if (!dynamic_cast<const runtime::TensorSqueezeInfo*>(&layer)) {
    *why = "not a TensorSqueezeInfo record";
    return false;
  }
  return true;
}

void TensorSqueeze_Fallback_M1::Keep(const runtime::LayerInfo& layer) {
  dim_ = static_cast<const runtime::TensorSqueezeInfo&>(layer).dim;
}

bool TensorSqueeze_Fallback_M1::Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const {
  std::size_t d = 0;
  if (!shape::NormaliseDim(dim_, input.dims.size(), &d)) {
    *why = "dim " + std::to_string(dim_) + " is outside the input " + shape::DimsText(input.dims);
    return false;
  }
  plan->output = input;
  if (input.dims[d] == 1 && input.dims.size() > 1) plan->output.dims.erase(plan->output.dims.begin() + d);
  plan->view = true;
  return true;
}

}  // namespace kernel
}  // namespace tarn
