#include "kernel/cpu/fallback/pad/pad.h"

#include <algorithm>
#include <cstring>

#include "kernel/cpu/avx/pad/pad.h"
#include "kernel/cpu/sse/pad/pad.h"
#include "kernel/crossplatform/shape_common/shape_common.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

namespace functional {

void pad_plane_f32(float* d, const float* s, const PadPlane& g, const float* pattern, std::uint32_t lanes) {
  PadPlaneWith(d, s, g, [pattern, lanes](float* dr, const float* sr, std::size_t l, std::size_t w, std::size_t r, bool) {
    for (std::size_t i = 0; i < l; ++i) dr[i] = pattern[i % lanes];
    if (w) std::memcpy(dr + l, sr, w * sizeof(float));
    dr += l + w;
    for (std::size_t i = 0; i < r; ++i) dr[i] = pattern[i % lanes];
  });
}

}  // namespace functional

std::int32_t PadKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                         std::shared_ptr<runtime::InferenceParam>) const {
  const bool fits = two_d_ ? std::dynamic_pointer_cast<runtime::Pad2dInfo>(layer) != nullptr
                           : std::dynamic_pointer_cast<runtime::Pad1dInfo>(layer) != nullptr;
  return fits ? kValid : kInvalidParam;
}

bool PadKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
                           std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (IsValidParam(layer, param) != kValid) {
    utility::Log(utility::kLogError, "%s needs a %s record.", GetName().c_str(), two_d_ ? "Pad2dInfo" : "Pad1dInfo");
    return false;
  }
  if (two_d_) {
    const auto& info = static_cast<const runtime::Pad2dInfo&>(*layer);
    left_ = info.padding_l, right_ = info.padding_r, top_ = info.padding_t, bottom_ = info.padding_b;
    value_ = info.padding_v;
  } else {
    const auto& info = static_cast<const runtime::Pad1dInfo&>(*layer);
    left_ = info.padding_l, right_ = info.padding_r, top_ = bottom_ = 0;
    value_ = info.padding_v;
  }
  configured_ = true;
  return true;
}

bool PadKernelBase::MakePlan(const TensorShape& input, Plan* plan, std::string* why) const {
  if (!configured_) {
    *why = "the kernel is not configured";
    return false;
  }
  std::uint64_t count = 0;
  const auto& dims = input.dims;
  if (input.data_type != TensorShape::FLOAT32 || input.location != TensorShape::MainMemory || dims.empty() ||
      !shape::CheckedCount(dims, &count) || count == 0) {
    *why = "the input " + shape::DimsText(dims) + " is not a non-empty float tensor in main memory";
    return false;
  }
  const bool blocked = shape::IsBlocked(input.layout);
  const bool takes = layout_ == TensorShape::FLEXIABLE
                         ? !blocked || (two_d_ && (input.layout == TensorShape::C4HW4 || input.layout == TensorShape::C8HW8))
                         : layout_ == TensorShape::CHW ? !blocked : input.layout == layout_;
  if (!takes) {
    *why = "it does not take the layout of its input";
    return false;
  }
  const std::size_t rank = dims.size();
  plan->lanes = shape::LayoutLanes(input.layout);
  plan->tail_lanes = 0;
  if (blocked) {
    if (rank != 4 || dims[3] != plan->lanes) {
      *why = "the blocked input " + shape::DimsText(dims) + " is not [blocks, H, W, lanes]";
      return false;
    }
    plan->planes = dims[0], plan->height = dims[1], plan->width = dims[2];
  } else {
    if (rank < (two_d_ ? 2u : 1u)) {
      *why = "the input " + shape::DimsText(dims) + " has too few dims";
      return false;
    }
    plan->width = dims[rank - 1];
    plan->height = two_d_ ? dims[rank - 2] : 1;
    plan->planes = count / (plan->width * plan->height);
  }
  const std::int64_t out_h = std::int64_t(plan->height) + top_ + bottom_;
  const std::int64_t out_w = std::int64_t(plan->width) + left_ + right_;
  if (out_h < 1 || out_w < 1) {
    *why = "the padding leaves nothing of the input " + shape::DimsText(dims);
    return false;
  }
  plan->output = input;
  plan->output.dims[blocked ? 2 : rank - 1] = static_cast<unsigned>(out_w);
  if (two_d_) plan->output.dims[blocked ? 1 : rank - 2] = static_cast<unsigned>(out_h);
  if (!shape::CheckedCount(plan->output.dims, &count)) {
    *why = "the output would hold too many elements";
    return false;
  }
  std::uint32_t value_bits;
  std::memcpy(&value_bits, &value_, sizeof value_bits);
  if (blocked && value_bits != 0) {
    // The new pixels' tail lanes must stay zero: the real channels are needed.
    const std::int64_t c = channels_.size() == 1 ? channels_[0] : -1;
    if (c < 0 || (std::uint64_t(c) + plan->lanes - 1) / plan->lanes != dims[0]) {
      *why = c < 0 ? "the real channel count of the blocked input is not known, and padding_v is not zero"
                   : "the input's " + std::to_string(dims[0]) + " blocks do not hold its " + std::to_string(c) +
                         " channels";
      return false;
    }
    plan->tail_lanes = static_cast<std::uint32_t>(c % plan->lanes);
  }
  return true;
}

bool PadKernelBase::OutputShape(const std::vector<TensorShape>& inputs, TensorShape* output, std::string* why) const {
  Plan plan;
  if (inputs.size() != 1) {
    *why = "it takes one tensor";
    return false;
  }
  if (!MakePlan(inputs[0], &plan, why)) return false;
  *output = plan.output;
  return true;
}

bool PadKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                            std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                            std::shared_ptr<runtime::Context> context) const {
  auto out = Prepare(inputs, context);
  if (!out) return false;
  Plan plan;
  std::string why;
  MakePlan(inputs[0]->shape, &plan, &why);
  const std::int64_t w = plan.width, h = plan.height;
  const std::int64_t out_w = w + left_ + right_, out_h = h + top_ + bottom_;
  // Every copied row has the same shape: `left` new pixels, `copy` pixels from
  // column `from` of the input, `right` new pixels (negative amounts crop).
  const std::int64_t left = std::min<std::int64_t>(std::max<std::int64_t>(left_, 0), out_w);
  const std::int64_t from = std::max<std::int64_t>(-left_, 0);
  const std::int64_t copy = std::max<std::int64_t>(std::min<std::int64_t>(out_w, w + left_) - left, 0);
  const std::int64_t right = out_w - left - copy;
  const std::size_t k = plan.lanes;
  const float* s = static_cast<const float*>(inputs[0]->Data());
  float* d = out->DataAs<float>();
  float pattern[8];
  for (std::size_t plane = 0; plane < plan.planes; ++plane) {
    // The last block's new pixels keep zero in the lanes beyond the channels.
    const bool tail = plan.tail_lanes != 0 && plane + 1 == plan.planes;
    for (std::size_t j = 0; j < k; ++j) pattern[j] = tail && j >= plan.tail_lanes ? 0.0f : value_;
    functional::PadPlane g;
    g.out_rows = static_cast<std::size_t>(out_h), g.in_rows = static_cast<std::size_t>(h), g.top = top_;
    g.in_row = static_cast<std::size_t>(w) * k, g.left = left * k, g.width = copy * k, g.right = right * k;
    plane_(d, s + (plane * std::size_t(h * w) + from) * k, g, pattern, static_cast<std::uint32_t>(k));
    d += std::size_t(out_h * out_w) * k;
  }
  outputs.assign(1, out);
  return true;
}

// Baseline-compiled destructors (and so vtables and names) of every padding
// kernel, whatever its family.
Pad1d_Fallback_Float_M1::~Pad1d_Fallback_Float_M1() = default;
Pad2d_Fallback_Float_M1::~Pad2d_Fallback_Float_M1() = default;
Pad2d_SSE_CHW_Float_M1::~Pad2d_SSE_CHW_Float_M1() = default;
Pad2d_SSE_C4HW4_Float_M1::~Pad2d_SSE_C4HW4_Float_M1() = default;
Pad2d_AVX_CHW_Float_M1::~Pad2d_AVX_CHW_Float_M1() = default;
Pad2d_AVX_C8HW8_Float_M1::~Pad2d_AVX_C8HW8_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
