#include "kernel/cpu/fallback/clip/clip.h"

#include <cmath>

#include "kernel/cpu/avx/clip/clip.h"
#include "kernel/cpu/fallback/resampling_common/resampling_common.h"
#include "kernel/cpu/sse/clip/clip.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

namespace functional {

void clip_f32(const float* src, const std::uint32_t& count, float lo, float hi, float* dst) {
  const std::uint32_t n = count;
  for (std::uint32_t i = 0; i < n; ++i) dst[i] = src[i] < lo ? lo : (src[i] > hi ? hi : src[i]);
}

}  // namespace functional

namespace {

const char* RecordProblem(const std::shared_ptr<runtime::LayerInfo>& layer) {
  auto r = std::dynamic_pointer_cast<runtime::ClipInfo>(layer);
  if (!r) return "the record is not a ClipInfo";
  const float lo = static_cast<float>(r->minimum_value), hi = static_cast<float>(r->maximum_value);
  if (std::isnan(lo) || std::isnan(hi)) return "a bound is NaN";
  if (lo > hi) return "the minimum is above the maximum";
  return nullptr;
}

}  // namespace

std::int32_t ClipKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                          std::shared_ptr<runtime::InferenceParam>) const {
  return RecordProblem(layer) ? kInvalidParam : kValid;
}

bool ClipKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam>,
                            std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (const char* p = RecordProblem(layer)) return RefuseRecord(*this, "%s", p);
  const auto& r = static_cast<const runtime::ClipInfo&>(*layer);
  lo_ = static_cast<float>(r.minimum_value);
  hi_ = static_cast<float>(r.maximum_value);
  configured_ = true;
  return true;
}

const char* ClipKernelBase::Problem(const std::vector<runtime::TensorShape>& in, runtime::TensorShape* out) const {
  const runtime::TensorShape& s = in[0];
  *out = s;
  if (LayoutLanes(s.layout) > 1 && !(lo_ <= 0.0f && 0.0f <= hi_)) {
    return "the range excludes 0, which would change the padding lanes of a blocked input";
  }
  return nullptr;
}

bool ClipKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                             std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                             std::shared_ptr<runtime::Context> context) const {
  auto out = Prepare(inputs, context);
  if (!out) return false;
  const std::uint32_t n = static_cast<std::uint32_t>(inputs[0]->shape.ElementCount());
  fn_(static_cast<const float*>(inputs[0]->Data()), n, lo_, hi_, out->DataAs<float>());
  outputs.assign(1, out);
  return true;
}

// Baseline-compiled destructors of every member, whatever its family.
Clip_Fallback_Float_M1::~Clip_Fallback_Float_M1() = default;
Clip_SSE_Float_M1::~Clip_SSE_Float_M1() = default;
Clip_AVX_Float_M1::~Clip_AVX_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
