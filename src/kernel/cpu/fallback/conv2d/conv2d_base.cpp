#include "kernel/cpu/fallback/conv2d/conv2d_base.h"

#include "kernel/cpu/fallback/conv2d/conv2d.h"
#include "kernel/cpu/sse/conv2d/conv2d.h"
#include "kernel/cpu/avx/conv2d/conv2d.h"
#include "kernel/cpu/sgemm/conv2d/conv2d.h"

#include <climits>
#include <initializer_list>

#include "tarn/kernel/conv_layout.h"
#include "tarn/kernel/packing.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

namespace {

// Buffers of a pass are addressed with int arguments by the raw routines.
constexpr std::uint64_t kMaxFloats = INT_MAX;

// Whether the product of `factors` stays within kMaxFloats (no overflow on
// the way: shapes may claim any dims).
bool FitsInt(std::initializer_list<std::uint64_t> factors) {
  std::uint64_t product = 1;
  for (std::uint64_t f : factors) {
    if (f != 0 && product > kMaxFloats / f) return false;
    product *= f;
  }
  return product <= kMaxFloats;
}

bool ReadParams(const runtime::Conv2dInfo& info, Conv2DParams* p) {
  if (info.in_channels == 0 || info.out_channels == 0 || info.kernel_x == 0 || info.kernel_y == 0 ||
      info.stride_x == 0 || info.stride_y == 0 || info.dilation_x == 0 || info.dilation_y == 0 || info.groups == 0 ||
      info.in_channels % info.groups != 0 || info.out_channels % info.groups != 0) {
    return false;
  }
  p->kernel_x = info.kernel_x;
  p->kernel_y = info.kernel_y;
  p->stride_x = info.stride_x;
  p->stride_y = info.stride_y;
  p->dilation_x = info.dilation_x;
  p->dilation_y = info.dilation_y;
  p->groups = info.groups;
  p->in_channels_per_group = info.in_channels / info.groups;
  p->out_channels_per_group = info.out_channels / info.groups;
  p->padding_l = info.padding_l;
  p->padding_t = info.padding_t;
  p->padding_r = info.padding_r;
  p->padding_b = info.padding_b;
  p->if_bias = info.if_bias ? 1 : 0;
  return true;
}

}  // namespace

Conv2DKernelBase::Conv2DKernelBase(TensorShape::Layout layout, std::uint32_t lanes, bool builds_column,
                                   Geometry geometry, WeightOrder order)
    : layout_(layout), lanes_(lanes), builds_column_(builds_column), geometry_(geometry), order_(order) {}

bool Conv2DKernelBase::AcceptsGeometry(const Conv2DParams& p) const {
  switch (geometry_) {
    case Geometry::kAny: return true;
    case Geometry::kGroups1: return p.groups == 1;
    case Geometry::k1x1:
      return p.kernel_x == 1 && p.kernel_y == 1 && p.stride_x == 1 && p.stride_y == 1 && p.dilation_x == 1 &&
             p.dilation_y == 1 && p.groups == 1;
  }
  return false;
}

std::int32_t Conv2DKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                            std::shared_ptr<runtime::InferenceParam>) const {
  auto info = std::dynamic_pointer_cast<runtime::Conv2dInfo>(layer);
  Conv2DParams p;
  if (!info || !ReadParams(*info, &p) || !AcceptsGeometry(p)) return kInvalidParam;
  return kValid;
}

bool Conv2DKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
                              std::shared_ptr<runtime::Context> context) {
  configured_ = false;
  weight_.reset();
  bias_.reset();
  if (IsValidParam(layer, param) != kValid) {
    utility::Log(utility::kLogError, "%s: the layer record is not a convolution this kernel computes.",
                 GetName().c_str());
    return false;
  }
  if (!context || !context->cpu) return false;
  const auto& info = static_cast<const runtime::Conv2dInfo&>(*layer);
  ReadParams(info, &params_);
  const Conv2DParams& p = params_;
  const std::uint64_t expected = std::uint64_t(OutChannels()) * p.in_channels_per_group * p.kernel_y * p.kernel_x;
  const std::vector<float> weights = runtime::DecodeWeights(info.weight);
  if (weights.size() != expected) {
    utility::Log(utility::kLogError, "%s: the weight holds %zu floats, the geometry needs %llu.", GetName().c_str(),
                 weights.size(), static_cast<unsigned long long>(expected));
    return false;
  }
  const auto& device = context->cpu;
  if (p.if_bias) {
    const std::vector<float> bias = runtime::DecodeWeights(info.bias);
    if (bias.size() != OutChannels()) {
      utility::Log(utility::kLogError, "%s: the bias holds %zu floats for %u output channels.", GetName().c_str(),
                   bias.size(), OutChannels());
      return false;
    }
    bias_ = device->CreateTensor(runtime::MakeShape({OutChannels()}), bias.data());
  }
  auto gnchw = device->CreateTensor(
      runtime::MakeShape({p.groups, p.out_channels_per_group, p.in_channels_per_group, p.kernel_y, p.kernel_x},
                         TensorShape::FLOAT32, TensorShape::GNCHW),
      weights.data());
  switch (order_) {
    case WeightOrder::kGNCHW: weight_ = gnchw; break;
    case WeightOrder::kGN4C4HW4c4n: weight_ = Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback(gnchw, device); break;
    case WeightOrder::kGN8C8HW8c8n: weight_ = Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback(gnchw, device); break;
  }
  if (!weight_) {
    utility::Log(utility::kLogError, "%s: the weight could not be packed.", GetName().c_str());
    return false;
  }
  configured_ = true;
  return true;
}

bool Conv2DKernelBase::HasPadding() const {
  return params_.padding_l != 0 || params_.padding_r != 0 || params_.padding_t != 0 || params_.padding_b != 0;
}

bool Conv2DKernelBase::MakePlan(const TensorShape& input, Conv2DPlan* plan) const {
  const Conv2DParams& p = params_;
  const auto& d = input.dims;
  if (input.data_type != TensorShape::FLOAT32 || input.location != TensorShape::MainMemory) return false;
  std::uint64_t stored_channels = 0;
  if (lanes_ == 1) {
    if (d.size() != 3 || (input.layout != TensorShape::CHW && input.layout != TensorShape::FLEXIABLE)) return false;
    if (d[0] != InChannels()) return false;
    stored_channels = d[0];
  } else {
    if (d.size() != 4 || input.layout != layout_ || d[3] != lanes_) return false;
    if (d[0] != ChannelBlocks(InChannels(), lanes_)) return false;
    stored_channels = std::uint64_t(d[0]) * lanes_;
  }
  const std::uint64_t ph = std::uint64_t(d[1]) + p.padding_t + p.padding_b;
  const std::uint64_t pw = std::uint64_t(d[2]) + p.padding_l + p.padding_r;
  const std::int64_t oh = ConvOutputSize(static_cast<std::int64_t>(ph), p.kernel_y, p.stride_y, p.dilation_y);
  const std::int64_t ow = ConvOutputSize(static_cast<std::int64_t>(pw), p.kernel_x, p.stride_x, p.dilation_x);
  if (oh <= 0 || ow <= 0) return false;
  // Every buffer of the pass must stay addressable with int arguments.
  const std::uint64_t out_stored = lanes_ == 1 ? OutChannels() : std::uint64_t(ChannelBlocks(OutChannels(), lanes_)) * lanes_;
  if (!FitsInt({stored_channels, ph, pw}) || !FitsInt({out_stored, std::uint64_t(oh), std::uint64_t(ow)})) {
    return false;
  }
  if (builds_column_ && !FitsInt({stored_channels, p.kernel_y, p.kernel_x, std::uint64_t(oh), std::uint64_t(ow)})) {
    return false;
  }
  plan->channels = InChannels();
  plan->in_h = d[1];
  plan->in_w = d[2];
  plan->padded_h = static_cast<std::uint32_t>(ph);
  plan->padded_w = static_cast<std::uint32_t>(pw);
  plan->out_h = static_cast<std::uint32_t>(oh);
  plan->out_w = static_cast<std::uint32_t>(ow);
  return true;
}

std::vector<TensorShape> Conv2DKernelBase::GetOutputShapes(const std::vector<TensorShape>& inputs) const {
  Conv2DPlan plan;
  if (!configured_ || inputs.size() != 1 || !MakePlan(inputs[0], &plan)) return {};
  if (lanes_ == 1) return {runtime::MakeShape({OutChannels(), plan.out_h, plan.out_w})};
  return {runtime::MakeShape({ChannelBlocks(OutChannels(), lanes_), plan.out_h, plan.out_w, lanes_},
                             TensorShape::FLOAT32, layout_)};
}

std::int32_t Conv2DKernelBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (!configured_ || CheckFloatTensors(inputs, 1) != kValid) return kInvalidTensor;
  if (!std::dynamic_pointer_cast<runtime::TensorCPU>(inputs[0])) return kInvalidTensor;
  Conv2DPlan plan;
  return MakePlan(inputs[0]->shape, &plan) ? kValid : kInvalidTensor;
}

std::int32_t Conv2DKernelBase::IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const {
  if (CheckFloatTensors(outputs, 1) != kValid) return kInvalidTensor;
  const TensorShape& s = outputs[0]->shape;
  if (lanes_ == 1) return s.dims.size() == 3 && s.dims[0] == OutChannels() ? kValid : kInvalidTensor;
  return s.dims.size() == 4 && s.layout == layout_ && s.dims[3] == lanes_ &&
                 s.dims[0] == ChannelBlocks(OutChannels(), lanes_)
             ? kValid
             : kInvalidTensor;
}

std::shared_ptr<runtime::TensorCPU> Conv2DKernelBase::CreateOutput(const Conv2DPlan& plan,
                                                                   runtime::DeviceCPU& device) const {
  if (lanes_ == 1) return device.CreateTensor(runtime::MakeShape({OutChannels(), plan.out_h, plan.out_w}));
  return device.CreateTensor(runtime::MakeShape({ChannelBlocks(OutChannels(), lanes_), plan.out_h, plan.out_w, lanes_},
                                                TensorShape::FLOAT32, layout_));
}

std::shared_ptr<runtime::TensorCPU> Conv2DKernelBase::ForwardInput(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, const std::shared_ptr<runtime::Context>& context,
    Conv2DPlan* plan) const {
  if (!context || !context->cpu || IsValidInput(inputs) != kValid) {
    utility::Log(utility::kLogError, "%s: Forward on an input the kernel refuses.", GetName().c_str());
    return nullptr;
  }
  auto input = std::dynamic_pointer_cast<runtime::TensorCPU>(inputs[0]);
  MakePlan(input->shape, plan);
  return input;
}

// Every member's destructor is its key function: defined here, in baseline
// code, it puts the vtable, GetName and the destructor of each family's class
// in this file, so any kernel can be created and named on any x86-64. Only
// Forward runs family code.
Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1::~Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1() = default;
Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1::~Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1() = default;
Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1::~Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1() = default;
Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1::~Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1() = default;
Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1::~Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1() = default;
Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1::~Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1() = default;

}  // namespace kernel
}  // namespace tarn
