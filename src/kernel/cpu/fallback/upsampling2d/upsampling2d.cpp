#include "kernel/cpu/fallback/upsampling2d/upsampling2d.h"

#include <algorithm>
#include <cmath>

#include "kernel/cpu/avx/upsampling2d/upsampling2d.h"
#include "kernel/cpu/fallback/resampling_common/resampling_common.h"
#include "kernel/cpu/sse/upsampling2d/upsampling2d.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

namespace functional {

std::uint32_t UpsampleExtent(std::uint32_t in, float scale) {
  if (!std::isfinite(scale) || !(scale > 0.0f)) return 0;
  const double out = std::floor(static_cast<double>(in) * static_cast<double>(scale));
  if (!(out >= 1.0) || out > static_cast<double>(kMaxPassFloats)) return 0;
  return static_cast<std::uint32_t>(out);
}

void UpsampleAxis(std::uint32_t in, std::uint32_t out, float scale, bool bilinear, bool align_corners,
                  std::vector<std::int32_t>* i0, std::vector<std::int32_t>* i1, std::vector<float>* w0,
                  std::vector<float>* w1) {
  i0->resize(out);
  i1->resize(out);
  w0->assign(out, 1.0f);
  w1->assign(out, 0.0f);
  const std::int64_t last = static_cast<std::int64_t>(in) - 1;
  const float inverse = static_cast<float>(1.0 / static_cast<double>(scale));
  if (!bilinear) {
    for (std::uint32_t d = 0; d < out; ++d) {
      const float pos = static_cast<float>(d) * inverse;
      (*i0)[d] = (*i1)[d] = static_cast<std::int32_t>(std::min(static_cast<std::int64_t>(std::floor(pos)), last));
    }
    return;
  }
  if (out == in) {
    for (std::uint32_t d = 0; d < out; ++d) (*i0)[d] = (*i1)[d] = static_cast<std::int32_t>(d);
    return;
  }
  float ratio = inverse;
  if (align_corners) ratio = out > 1 ? static_cast<float>(last) / static_cast<float>(out - 1) : 0.0f;
  for (std::uint32_t d = 0; d < out; ++d) {
    float pos;
    if (align_corners) {
      pos = ratio * static_cast<float>(d);
    } else {
      pos = static_cast<float>(static_cast<double>(ratio) * (d + 0.5) - 0.5);
      if (pos < 0.0f) pos = 0.0f;
    }
    const std::int64_t lo = std::min(static_cast<std::int64_t>(std::floor(pos)), last);
    const float frac = std::min(std::max(pos - static_cast<float>(lo), 0.0f), 1.0f);
    (*i0)[d] = static_cast<std::int32_t>(lo);
    (*i1)[d] = static_cast<std::int32_t>(lo + (lo < last ? 1 : 0));
    (*w1)[d] = frac;
    (*w0)[d] = 1.0f - frac;
  }
}

bool MakeUpsample2DPlan(std::uint32_t in_h, std::uint32_t in_w, float scale_y, float scale_x, bool bilinear,
                        bool align_corners, Upsample2DPlan* plan) {
  plan->in_h = in_h;
  plan->in_w = in_w;
  plan->out_h = UpsampleExtent(in_h, scale_y);
  plan->out_w = UpsampleExtent(in_w, scale_x);
  plan->bilinear = bilinear;
  if (plan->out_h == 0 || plan->out_w == 0) return false;
  UpsampleAxis(in_h, plan->out_h, scale_y, bilinear, align_corners, &plan->y0, &plan->y1, &plan->wy0, &plan->wy1);
  UpsampleAxis(in_w, plan->out_w, scale_x, bilinear, align_corners, &plan->x0, &plan->x1, &plan->wx0, &plan->wx1);
  const bool doubled = plan->out_w == 2 * std::uint64_t(in_w);
  plan->doubles_columns = !bilinear && doubled;
  for (std::uint32_t x = 0; plan->doubles_columns && x < plan->out_w; ++x) {
    plan->doubles_columns = plan->x0[x] == static_cast<std::int32_t>(x / 2);
  }
  plan->pairs_columns = bilinear && doubled && in_w >= 2;
  if (plan->pairs_columns) {
    const auto& p = *plan;
    const float w[4] = {p.wx0[1], p.wx1[1], p.wx0[2], p.wx1[2]};
    for (std::uint32_t i = 0; plan->pairs_columns && i + 1 < in_w; ++i) {
      const std::uint32_t a = 2 * i + 1, b = 2 * i + 2;
      plan->pairs_columns = p.x0[a] == std::int32_t(i) && p.x1[a] == std::int32_t(i + 1) && p.x0[b] == std::int32_t(i) &&
                            p.x1[b] == std::int32_t(i + 1) && p.wx0[a] == w[0] && p.wx1[a] == w[1] &&
                            p.wx0[b] == w[2] && p.wx1[b] == w[3];
    }
    for (int k = 0; k < 4; ++k) plan->pair_w[k] = plan->pairs_columns ? w[k] : 0.0f;
  }
  return true;
}

void upsample2d_f32(const float* src, std::uint32_t planes, std::uint32_t lanes, const Upsample2DPlan& plan,
                    float* dst) {
  const std::size_t row = std::size_t(plan.in_w) * lanes;
  for (std::uint32_t p = 0; p < planes; ++p) {
    const float* plane = src + std::size_t(p) * plan.in_h * row;
    for (std::uint32_t oy = 0; oy < plan.out_h; ++oy) {
      const float* r0 = plane + plan.y0[oy] * row;
      const float* r1 = plane + plan.y1[oy] * row;
      for (std::uint32_t ox = 0; ox < plan.out_w; ++ox) {
        const float* a = r0 + std::size_t(plan.x0[ox]) * lanes;
        if (!plan.bilinear) {
          for (std::uint32_t j = 0; j < lanes; ++j) *dst++ = a[j];
          continue;
        }
        const float* b = r0 + std::size_t(plan.x1[ox]) * lanes;
        const float* c = r1 + std::size_t(plan.x0[ox]) * lanes;
        const float* d = r1 + std::size_t(plan.x1[ox]) * lanes;
        const float wx0 = plan.wx0[ox], wx1 = plan.wx1[ox], wy0 = plan.wy0[oy], wy1 = plan.wy1[oy];
        for (std::uint32_t j = 0; j < lanes; ++j) {
          const float t0 = a[j] * wx0 + b[j] * wx1;
          const float t1 = c[j] * wx0 + d[j] * wx1;
          *dst++ = t0 * wy0 + t1 * wy1;
        }
      }
    }
  }
}

}  // namespace functional

Upsampling2DKernelBase::Upsampling2DKernelBase(runtime::TensorShape::Layout layout, functional::Upsample2DFn fn)
    : layout_(layout), lanes_(LayoutLanes(layout)), fn_(fn) {}

namespace {

const char* RecordProblem(const std::shared_ptr<runtime::LayerInfo>& layer) {
  auto r = std::dynamic_pointer_cast<runtime::Upsample2dInfo>(layer);
  if (!r) return "the record is not an Upsample2dInfo";
  if (!std::isfinite(r->scale_factor_y) || !(r->scale_factor_y > 0.0f) || !std::isfinite(r->scale_factor_x) ||
      !(r->scale_factor_x > 0.0f)) {
    return "a scale factor is not a finite value > 0";
  }
  if (r->unsample_type > 1) return "\"unsample_type\" is neither 0 (nearest) nor 1 (bilinear)";
  return nullptr;
}

}  // namespace

std::int32_t Upsampling2DKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                  std::shared_ptr<runtime::InferenceParam>) const {
  return RecordProblem(layer) ? kInvalidParam : kValid;
}

bool Upsampling2DKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                    std::shared_ptr<runtime::InferenceParam>, std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (const char* p = RecordProblem(layer)) return RefuseRecord(*this, "%s", p);
  const auto& r = static_cast<const runtime::Upsample2dInfo&>(*layer);
  scale_y_ = r.scale_factor_y;
  scale_x_ = r.scale_factor_x;
  bilinear_ = r.unsample_type == 1;
  align_corners_ = r.align_corner;
  configured_ = true;
  return true;
}

const char* Upsampling2DKernelBase::Problem(const std::vector<runtime::TensorShape>& inputs,
                                            runtime::TensorShape* out) const {
  const runtime::TensorShape& in = inputs[0];
  if (lanes_ > 1) {
    if (const char* p = BlockedShapeProblem(in, layout_)) return p;
  } else if (!IsPlainLayout(in.layout) || in.dims.size() != 3) {
    return "the input is not a CHW tensor [C, H, W]";
  }
  const std::uint32_t oh = functional::UpsampleExtent(in.dims[1], scale_y_);
  const std::uint32_t ow = functional::UpsampleExtent(in.dims[2], scale_x_);
  if (oh == 0 || ow == 0) return "an output extent floor(in * scale) is below 1 or above 2^31 - 1";
  if (!FitsPassFloats({in.dims[0], oh, ow, lanes_})) return "the output would hold more than 2^31 - 1 floats";
  std::vector<unsigned> dims = in.dims;
  dims[1] = oh;
  dims[2] = ow;
  *out = ShapeWithDims(in, dims);
  return nullptr;
}

bool Upsampling2DKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                     std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                     std::shared_ptr<runtime::Context> context) const {
  auto out = Prepare(inputs, context);
  if (!out) return false;
  const auto& d = inputs[0]->shape.dims;
  functional::Upsample2DPlan plan;
  if (!functional::MakeUpsample2DPlan(d[1], d[2], scale_y_, scale_x_, bilinear_, align_corners_, &plan)) return false;
  fn_(static_cast<const float*>(inputs[0]->Data()), d[0], lanes_, plan, out->DataAs<float>());
  outputs.assign(1, out);
  return true;
}

// Baseline-compiled destructors of every member, whatever its family.
Upsampling2D_Fallback_CHW_Float_M1::~Upsampling2D_Fallback_CHW_Float_M1() = default;
Upsampling2D_SSE_CHW_Float_M1::~Upsampling2D_SSE_CHW_Float_M1() = default;
Upsampling2D_SSE_C4HW4_Float_M1::~Upsampling2D_SSE_C4HW4_Float_M1() = default;
Upsampling2D_AVX_CHW_Float_M1::~Upsampling2D_AVX_CHW_Float_M1() = default;
Upsampling2D_AVX_C8HW8_Float_M1::~Upsampling2D_AVX_C8HW8_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
