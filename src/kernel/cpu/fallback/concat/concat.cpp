#include "kernel/cpu/fallback/concat/concat.h"

#include <cstring>

#include "kernel/cpu/avx/concat/concat.h"
#include "kernel/cpu/sse/concat/concat.h"
#include "kernel/crossplatform/shape_common/shape_common.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

namespace functional {

void place_channels_f32(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset,
                        std::uint32_t lanes, float* out) {
  if (channels == 0) return;
  const std::size_t plane = std::size_t(pixels) * lanes;
  const std::uint32_t first = offset / lanes, last = (offset + channels - 1) / lanes;
  if (offset % lanes == 0) {
    // Whole blocks move as they are; only the last one may need its tail cleared.
    const std::uint32_t full = channels / lanes, rest = channels % lanes;
    std::memcpy(out + first * plane, in, full * plane * sizeof(float));
    if (rest == 0) return;
    const float* s = in + full * plane;
    float* d = out + (first + full) * plane;
    for (std::size_t p = 0; p < plane; p += lanes) {
      for (std::uint32_t j = 0; j < lanes; ++j) d[p + j] = j < rest ? s[p + j] : 0.0f;
    }
    return;
  }
  // Output lane j of block b is input channel b * lanes + j - offset.
  for (std::uint32_t b = first; b <= last; ++b) {
    float* d = out + b * plane;
    for (std::uint32_t j = 0; j < lanes; ++j) {
      const std::int64_t c = std::int64_t(b) * lanes + j - offset;
      if (c < 0) continue;  // an earlier input's lane
      if (c >= channels) {
        for (std::size_t p = 0; p < plane; p += lanes) d[p + j] = 0.0f;
        continue;
      }
      const float* s = in + (c / lanes) * plane + c % lanes;
      for (std::size_t p = 0; p < plane; p += lanes) d[p + j] = s[p];
    }
  }
}

}  // namespace functional

namespace {

void PlaceC4(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset, float* out) {
  functional::place_channels_f32(in, channels, pixels, offset, 4, out);
}
void PlaceC8(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset, float* out) {
  functional::place_channels_f32(in, channels, pixels, offset, 8, out);
}

}  // namespace

Concatenate_Fallback_Float_M1::Concatenate_Fallback_Float_M1() : ConcatKernelBase(TensorShape::CHW, PlaceC4, PlaceC8) {}

std::int32_t ConcatKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                            std::shared_ptr<runtime::InferenceParam>) const {
  return std::dynamic_pointer_cast<runtime::ConcatenateInfo>(layer) ? kValid : kInvalidParam;
}

bool ConcatKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
                              std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (IsValidParam(layer, param) != kValid) {
    utility::Log(utility::kLogError, "%s needs a ConcatenateInfo record.", GetName().c_str());
    return false;
  }
  // The unsigned field carries negative dims as their 16-bit patterns.
  dim_ = static_cast<std::int16_t>(static_cast<const runtime::ConcatenateInfo&>(*layer).dim);
  configured_ = true;
  return true;
}

bool ConcatKernelBase::DensePlan(const std::vector<TensorShape>& inputs, std::size_t axis, Plan* plan,
                                 std::string* why) const {
  const TensorShape& first = inputs[0];
  std::uint64_t joined = 0;
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    const auto& d = inputs[i].dims;
    bool same = d.size() == first.dims.size();
    for (std::size_t k = 0; same && k < d.size(); ++k) same = k == axis || d[k] == first.dims[k];
    if (!same) {
      *why = "input " + std::to_string(i) + " " + shape::DimsText(d) + " does not match input 0 " +
             shape::DimsText(first.dims) + " outside dim " + std::to_string(axis);
      return false;
    }
    joined += d[axis];
  }
  plan->output = first;
  plan->output.dims[axis] = static_cast<unsigned>(joined > UINT32_MAX ? 0 : joined);
  std::uint64_t count = 0;
  if (joined > UINT32_MAX || !shape::CheckedCount(plan->output.dims, &count)) {
    *why = "the output would hold too many elements";
    return false;
  }
  plan->axis = axis;
  return true;
}

bool ConcatKernelBase::ChannelPlan(const std::vector<TensorShape>& inputs, std::uint32_t lanes, Plan* plan,
                                   std::string* why) const {
  const TensorShape& first = inputs[0];
  std::uint64_t total = 0;
  plan->counts.clear();
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    const auto& d = inputs[i].dims;
    if (d[1] != first.dims[1] || d[2] != first.dims[2]) {
      *why = "input " + std::to_string(i) + " " + shape::DimsText(d) + " does not match input 0 " +
             shape::DimsText(first.dims) + " in height and width";
      return false;
    }
  }
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    const auto& d = inputs[i].dims;
    // Counts of another number of inputs than arrive say nothing about these.
    const std::int64_t known = channels_.size() == inputs.size() ? channels_[i] : -1;
    std::uint64_t count;
    if (known >= 0) {
      if ((std::uint64_t(known) + lanes - 1) / lanes != d[0]) {
        *why = "input " + std::to_string(i) + " holds " + std::to_string(d[0]) + " blocks of " +
               std::to_string(lanes) + " lanes, not the blocks of its " + std::to_string(known) + " channels";
        return false;
      }
      count = std::uint64_t(known);
    } else if (i + 1 == inputs.size() && total % lanes == 0) {
      count = std::uint64_t(d[0]) * lanes;  // copied block for block
    } else {
      *why = "the real channel count of blocked input " + std::to_string(i) +
             " is not known (no record before it fixes it); concatenate such inputs in CHW";
      return false;
    }
    total += count;
    plan->counts.push_back(static_cast<std::uint32_t>(count));
  }
  plan->output = first;
  const std::uint64_t blocks = (total + lanes - 1) / lanes;
  plan->output.dims[0] = static_cast<unsigned>(blocks > UINT32_MAX ? 0 : blocks);
  std::uint64_t count = 0;
  if (blocks > UINT32_MAX || total > UINT32_MAX || !shape::CheckedCount(plan->output.dims, &count)) {
    *why = "the output would hold too many elements";
    return false;
  }
  plan->channels = true;
  return true;
}

bool ConcatKernelBase::MakePlan(const std::vector<TensorShape>& inputs, Plan* plan, std::string* why) const {
  if (!configured_) {
    *why = "the kernel is not configured";
    return false;
  }
  if (inputs.empty()) {
    *why = "there is no input";
    return false;
  }
  const TensorShape::Layout layout = inputs[0].layout;
  const bool blocked = shape::IsBlocked(layout);
  if (layout_ != TensorShape::CHW ? layout != layout_
                                  : blocked && layout != TensorShape::C4HW4 && layout != TensorShape::C8HW8) {
    *why = "it does not take the layout of input 0";
    return false;
  }
  const std::uint32_t lanes = shape::LayoutLanes(layout);
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    const TensorShape& s = inputs[i];
    std::uint64_t count = 0;
    if (s.data_type != TensorShape::FLOAT32 || s.location != TensorShape::MainMemory || s.layout != layout ||
        s.dims.empty() || !shape::CheckedCount(s.dims, &count) || count == 0 ||
        (blocked && (s.dims.size() != 4 || s.dims[3] != lanes))) {
      *why = "input " + std::to_string(i) + " " + shape::DimsText(s.dims) +
             " is not a non-empty float tensor in main memory in the layout of input 0";
      return false;
    }
  }
  std::size_t axis = 0;
  // A blocked tensor's dim indexes the layer's (C, H, W).
  if (!shape::NormaliseDim(dim_, blocked ? 3 : inputs[0].dims.size(), &axis)) {
    *why = "dim " + std::to_string(dim_) + " is outside the inputs " + shape::DimsText(inputs[0].dims);
    return false;
  }
  if (blocked && axis == 0) return ChannelPlan(inputs, lanes, plan, why);
  if (blocked) {
    // Height and width: the inputs must agree on their real channels where known.
    for (std::size_t i = 1; i < inputs.size() && channels_.size() == inputs.size(); ++i) {
      if (channels_[i] >= 0 && channels_[0] >= 0 && channels_[i] != channels_[0]) {
        *why = "input " + std::to_string(i) + " has " + std::to_string(channels_[i]) + " channels, input 0 " +
               std::to_string(channels_[0]);
        return false;
      }
    }
  }
  return DensePlan(inputs, axis, plan, why);
}

bool ConcatKernelBase::OutputShape(const std::vector<TensorShape>& inputs, TensorShape* output,
                                   std::string* why) const {
  Plan plan;
  if (!MakePlan(inputs, &plan, why)) return false;
  *output = plan.output;
  return true;
}

bool ConcatKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                               std::shared_ptr<runtime::Context> context) const {
  auto out = Prepare(inputs, context);
  if (!out) return false;
  const std::vector<TensorShape> shapes = shape::ShapesOf(inputs);
  Plan plan;
  std::string why;
  MakePlan(shapes, &plan, &why);
  float* d = out->DataAs<float>();
  if (plan.channels) {
    const std::uint32_t pixels = plan.output.dims[1] * plan.output.dims[2];
    const PlaceFn place = plan.output.dims[3] == 4 ? place4_ : place8_;
    std::uint32_t offset = 0;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      place(static_cast<const float*>(inputs[i]->Data()), plan.counts[i], pixels, offset, d);
      offset += plan.counts[i];
    }
  } else {
    // Rows of every input in turn: outer rows above the axis, each input's
    // run of its extent along the axis times the inner elements.
    std::size_t outer = 1, inner = 1;
    for (std::size_t k = 0; k < plan.axis; ++k) outer *= plan.output.dims[k];
    for (std::size_t k = plan.axis + 1; k < plan.output.dims.size(); ++k) inner *= plan.output.dims[k];
    for (std::size_t o = 0; o < outer; ++o) {
      for (const auto& t : inputs) {
        const std::size_t run = std::size_t(t->shape.dims[plan.axis]) * inner;
        std::memcpy(d, static_cast<const float*>(t->Data()) + o * run, run * sizeof(float));
        d += run;
      }
    }
  }
  outputs.assign(1, out);
  return true;
}

// Baseline-compiled destructors (and so vtables and names) of every
// concatenation kernel, whatever its family.
Concatenate_Fallback_Float_M1::~Concatenate_Fallback_Float_M1() = default;
Concatenate_SSE_C4HW4_Float_M1::~Concatenate_SSE_C4HW4_Float_M1() = default;
Concatenate_AVX_C8HW8_Float_M1::~Concatenate_AVX_C8HW8_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
