#include "kernel/cpu/fallback/batchnorm/batchnorm.h"

#include <cmath>

#include "kernel/cpu/avx/batchnorm/batchnorm.h"
#include "kernel/cpu/fallback/resampling_common/resampling_common.h"
#include "kernel/cpu/sse/batchnorm/batchnorm.h"
#include "tarn/kernel/conv_layout.h"
#include "tarn/runtime/context.h"

namespace tarn {
namespace kernel {

namespace functional {

void channel_affine_f32(const float* src, std::uint32_t blocks, std::size_t plane, std::uint32_t lanes,
                        const float* a, const float* b, float* dst) {
  for (std::uint32_t k = 0; k < blocks; ++k) {
    for (std::size_t p = 0; p < plane; ++p) {
      for (std::uint32_t j = 0; j < lanes; ++j, ++src, ++dst) *dst = std::fma(*src, a[k * lanes + j], b[k * lanes + j]);
    }
  }
}

}  // namespace functional

namespace {

// The statistics shared by the two batch-norm records.
struct BatchNormRecord {
  const runtime::NormStatistics* norm;
  const std::string* mean;
  const std::string* variance;
};

bool ReadRecord(const std::shared_ptr<runtime::LayerInfo>& layer, runtime::ENUM_TYPE_LAYER record,
                BatchNormRecord* out) {
  if (record == runtime::LAYER_BATCHNORM2D) {
    auto r = std::dynamic_pointer_cast<runtime::BatchNorm2dInfo>(layer);
    if (!r) return false;
    *out = {r.get(), &r->mean, &r->variance};
  } else {
    auto r = std::dynamic_pointer_cast<runtime::BatchNorm1dInfo>(layer);
    if (!r) return false;
    *out = {r.get(), &r->mean, &r->variance};
  }
  return out->norm->num_features > 0;
}

}  // namespace

BatchNormKernelBase::BatchNormKernelBase(runtime::ENUM_TYPE_LAYER record, runtime::TensorShape::Layout layout,
                                         functional::ChannelAffineFn fn)
    : record_(record), layout_(layout), lanes_(LayoutLanes(layout)), fn_(fn) {}

std::int32_t BatchNormKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                               std::shared_ptr<runtime::InferenceParam>) const {
  BatchNormRecord r;
  return ReadRecord(layer, record_, &r) ? kValid : kInvalidParam;
}

bool BatchNormKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                 std::shared_ptr<runtime::InferenceParam> param, std::shared_ptr<runtime::Context>) {
  configured_ = false;
  BatchNormRecord r;
  if (!ReadRecord(layer, record_, &r)) {
    return RefuseRecord(*this, "the record is not a %s with num_features > 0",
                        record_ == runtime::LAYER_BATCHNORM2D ? "BatchNorm2dInfo" : "BatchNorm1dInfo");
  }
  const std::uint32_t c = r.norm->num_features;
  std::vector<float> mean, variance, scale(c, 1.0f), shift(c, 0.0f);
  if (!DecodeBlob(*this, *r.mean, "mean", c, &mean) || !DecodeBlob(*this, *r.variance, "variance", c, &variance)) {
    return false;
  }
  if (r.norm->if_affine &&
      (!DecodeBlob(*this, r.norm->scale, "scale", c, &scale) || !DecodeBlob(*this, r.norm->shift, "shift", c, &shift))) {
    return false;
  }
  const float eps = r.norm->eps;
  const std::uint32_t padded = ChannelBlocks(c, lanes_) * lanes_;
  a_.assign(padded, 0.0f);
  b_.assign(padded, 0.0f);
  for (std::uint32_t k = 0; k < c; ++k) {
    const float v = variance[k] + eps;
    if (!(v > 0.0f)) {
      return RefuseRecord(*this, "channel %u has variance %g with eps %g: variance + eps must be > 0", k,
                          static_cast<double>(variance[k]), static_cast<double>(eps));
    }
    const float inv = 1.0f / std::sqrt(v);
    a_[k] = inv * scale[k];
    b_[k] = shift[k] - mean[k] * a_[k];
  }
  channels_ = c;
  configured_ = true;
  return true;
}

const char* BatchNormKernelBase::Problem(const std::vector<runtime::TensorShape>& in, runtime::TensorShape* out) const {
  const runtime::TensorShape& s = in[0];
  const auto& d = s.dims;
  *out = s;
  if (lanes_ > 1) {
    if (const char* p = BlockedShapeProblem(s, layout_)) return p;
    return d[0] == ChannelBlocks(channels_, lanes_) ? nullptr : "the input's channel blocks do not hold num_features";
  }
  if (!IsPlainLayout(s.layout)) return "the input is not a plain (CHW) tensor";
  if (record_ == runtime::LAYER_BATCHNORM2D) {
    if (d.size() != 3) return "a BatchNorm2d input must have dims [C, H, W]";
  } else if (d.size() != 1 && d.size() != 2) {
    return "a BatchNorm1d input must have dims [C] or [C, L]";
  }
  return d[0] == channels_ ? nullptr : "the input's channel count differs from num_features";
}

void BatchNormKernelBase::Geometry(const runtime::TensorShape& s, std::uint32_t* blocks, std::size_t* plane) const {
  *blocks = s.dims[0];
  *plane = static_cast<std::size_t>(DimsProduct(s.dims, 1, lanes_ > 1 ? 3 : s.dims.size()));
}

bool BatchNormKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                  std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                  std::shared_ptr<runtime::Context> context) const {
  auto out = Prepare(inputs, context);
  if (!out) return false;
  std::uint32_t blocks;
  std::size_t plane;
  Geometry(inputs[0]->shape, &blocks, &plane);
  fn_(static_cast<const float*>(inputs[0]->Data()), blocks, plane, lanes_, a_.data(), b_.data(), out->DataAs<float>());
  outputs.assign(1, out);
  return true;
}

// Baseline-compiled destructors (and so vtables and names) of every member,
// whatever its family.
BatchNorm2D_Fallback_CHW_Float_M1::~BatchNorm2D_Fallback_CHW_Float_M1() = default;
BatchNorm1D_Fallback_CL_Float_M1::~BatchNorm1D_Fallback_CL_Float_M1() = default;
BatchNorm2D_SSE_CHW_Float_M1::~BatchNorm2D_SSE_CHW_Float_M1() = default;
BatchNorm2D_SSE_C4HW4_Float_M1::~BatchNorm2D_SSE_C4HW4_Float_M1() = default;
BatchNorm2D_AVX_CHW_Float_M1::~BatchNorm2D_AVX_CHW_Float_M1() = default;
BatchNorm2D_AVX_C8HW8_Float_M1::~BatchNorm2D_AVX_C8HW8_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
