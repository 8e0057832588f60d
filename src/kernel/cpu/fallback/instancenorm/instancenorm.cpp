#include "kernel/cpu/fallback/instancenorm/instancenorm.h"

#include <cmath>

#include "kernel/cpu/avx/instancenorm/instancenorm.h"
#include "kernel/cpu/fallback/resampling_common/resampling_common.h"
#include "kernel/cpu/sse/instancenorm/instancenorm.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

namespace functional {

void mean_var_f32(const float* x, std::size_t n, float* mean, float* variance) {
  double sum = 0.0;
  for (std::size_t i = 0; i < n; ++i) sum += static_cast<double>(x[i]);
  const float m = static_cast<float>(sum / static_cast<double>(n));
  double squares = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    const float d = x[i] - m;
    squares += static_cast<double>(d * d);
  }
  *mean = m;
  *variance = static_cast<float>(squares) / static_cast<float>(n);
}

}  // namespace functional

std::int32_t InstanceNormKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                  std::shared_ptr<runtime::InferenceParam>) const {
  return std::dynamic_pointer_cast<runtime::InstanceNorm2dInfo>(layer) ? kValid : kInvalidParam;
}

bool InstanceNormKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                    std::shared_ptr<runtime::InferenceParam> param,
                                    std::shared_ptr<runtime::Context>) {
  configured_ = false;
  auto r = std::dynamic_pointer_cast<runtime::InstanceNorm2dInfo>(layer);
  if (!r) return RefuseRecord(*this, "the record is not an InstanceNorm2dInfo");
  if (!std::isfinite(r->eps) || r->eps < 0.0f) {
    return RefuseRecord(*this, "eps %g is not a finite value >= 0", static_cast<double>(r->eps));
  }
  affine_params_ = r->if_affine;
  channels_ = r->num_features;
  scale_.clear();
  shift_.clear();
  if (affine_params_) {
    if (channels_ == 0) return RefuseRecord(*this, "an affine record needs num_features > 0");
    if (!DecodeBlob(*this, r->scale, "scale", channels_, &scale_) ||
        !DecodeBlob(*this, r->shift, "shift", channels_, &shift_)) {
      return false;
    }
  }
  eps_ = r->eps;
  configured_ = true;
  return true;
}

const char* InstanceNormKernelBase::Problem(const std::vector<runtime::TensorShape>& in,
                                            runtime::TensorShape* out) const {
  const runtime::TensorShape& s = in[0];
  *out = s;
  if (!IsPlainLayout(s.layout) || s.dims.size() != 3) return "the input is not a CHW tensor [C, H, W]";
  if (affine_params_ && s.dims[0] != channels_) return "the input's channel count differs from num_features";
  return nullptr;
}

bool InstanceNormKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                     std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                     std::shared_ptr<runtime::Context> context) const {
  auto out = Prepare(inputs, context);
  if (!out) return false;
  const auto& d = inputs[0]->shape.dims;
  const std::uint32_t c = d[0];
  const std::size_t plane = std::size_t(d[1]) * d[2];
  const float* src = static_cast<const float*>(inputs[0]->Data());
  std::vector<float> a(c), b(c);
  for (std::uint32_t k = 0; k < c; ++k) {
    float mean, var;
    stats_(src + k * plane, plane, &mean, &var);
    const float invstd = var == 0.0f && eps_ == 0.0f
                             ? 0.0f
                             : static_cast<float>(1.0 / std::sqrt(static_cast<double>(var) + static_cast<double>(eps_)));
    a[k] = affine_params_ ? invstd * scale_[k] : invstd;
    b[k] = (affine_params_ ? shift_[k] : 0.0f) - mean * a[k];
  }
  affine_(src, c, plane, 1, a.data(), b.data(), out->DataAs<float>());
  outputs.assign(1, out);
  return true;
}

// Baseline-compiled destructors of every member, whatever its family.
InstanceNorm2D_Fallback_CHW_Float_M1::~InstanceNorm2D_Fallback_CHW_Float_M1() = default;
InstanceNorm2D_SSE_CHW_Float_M1::~InstanceNorm2D_SSE_CHW_Float_M1() = default;
InstanceNorm2D_AVX_CHW_Float_M1::~InstanceNorm2D_AVX_CHW_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
