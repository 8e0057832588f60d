#include "kernel/cpu/fallback/space_to_depth/space_to_depth.h"

#include "kernel/cpu/fallback/pixel_shuffle/pixel_shuffle.h"
#include "kernel/crossplatform/shape_common/shape_common.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

SpaceToDepth_Fallback_CHW_Float_M1::~SpaceToDepth_Fallback_CHW_Float_M1() = default;

std::int32_t SpaceToDepth_Fallback_CHW_Float_M1::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                              std::shared_ptr<runtime::InferenceParam>) const {
  auto info = std::dynamic_pointer_cast<runtime::SpaceToDepthInfo>(layer);
  return info && WholeFactor(info->scale_factor) != 0 ? kValid : kInvalidParam;
}

bool SpaceToDepth_Fallback_CHW_Float_M1::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                                std::shared_ptr<runtime::InferenceParam> param,
                                                std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (IsValidParam(layer, param) != kValid) {
    utility::Log(utility::kLogError, "%s needs a SpaceToDepthInfo record with a whole scale_factor >= 1.",
                 GetName().c_str());
    return false;
  }
  b_ = WholeFactor(static_cast<const runtime::SpaceToDepthInfo&>(*layer).scale_factor);
  configured_ = true;
  return true;
}

bool SpaceToDepth_Fallback_CHW_Float_M1::OutputShape(const std::vector<TensorShape>& inputs, TensorShape* output,
                                                     std::string* why) const {
  if (!shape::OneDenseFloat(inputs, 3, why)) return false;
  std::uint64_t count = 0;
  const auto& d = inputs[0].dims;
  if (d[1] % b_ != 0 || d[2] % b_ != 0) {
    *why = "the input " + shape::DimsText(d) + " has a height or width that " + std::to_string(b_) +
           " does not divide";
    return false;
  }
  const std::vector<std::uint64_t> out = {std::uint64_t(d[0]) * b_ * b_, d[1] / b_, d[2] / b_};
  if (!shape::CheckedCount(out, &count)) {
    *why = "the output would hold too many elements";
    return false;
  }
  *output = inputs[0];
  output->dims.assign(out.begin(), out.end());
  return true;
}

bool SpaceToDepth_Fallback_CHW_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                 std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                 std::shared_ptr<runtime::Context> context) const {
  auto out = Prepare(inputs, context);
  if (!out) return false;
  // The output in the order (by, bx, c, y, x), each read from its source offset.
  const std::size_t b = b_, c = inputs[0]->shape.dims[0], h = inputs[0]->shape.dims[1], w = inputs[0]->shape.dims[2];
  functional::GatherPlan plan;
  plan.offsets.resize(5);
  for (std::size_t by = 0; by < b; ++by) plan.offsets[0].push_back(by * w);
  for (std::size_t bx = 0; bx < b; ++bx) plan.offsets[1].push_back(bx);
  for (std::size_t ch = 0; ch < c; ++ch) plan.offsets[2].push_back(ch * h * w);
  for (std::size_t y = 0; y < h / b; ++y) plan.offsets[3].push_back(y * b * w);
  for (std::size_t x = 0; x < w / b; ++x) plan.offsets[4].push_back(x * b);
  functional::gather_bytes(inputs[0]->Data(), out->Data(), plan, sizeof(float));
  outputs.assign(1, out);
  return true;
}

}  // namespace kernel
}  // namespace tarn
