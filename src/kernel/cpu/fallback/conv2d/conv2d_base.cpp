#include "kernel/cpu/fallback/conv2d/conv2d_base.h"

#include "kernel/cpu/fallback/conv2d/conv2d.h"
#include "kernel/cpu/sse/conv2d/conv2d.h"
#include "kernel/cpu/avx/conv2d/conv2d.h"
#include "kernel/cpu/sgemm/conv2d/conv2d.h"

#include <climits>
#include <initializer_list>

#include "tarn/kernel/conv_layout.h"
#include "tarn/kernel/packing.h"
#include "tarn/kernel/tensor_helpers.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

namespace {

bool ReadParams(const runtime::Conv2dInfo& info, Conv2DParams* p) {
  if (!ReadConvGeometry(info, p)) return false;
  p->padding_l = info.padding_l;
  p->padding_t = info.padding_t;
  p->padding_r = info.padding_r;
  p->padding_b = info.padding_b;
  return true;
}

}  // namespace

bool FitsInt(std::initializer_list<std::uint64_t> factors) {
  constexpr std::uint64_t kMaxFloats = INT_MAX;
  std::uint64_t product = 1;
  for (std::uint64_t f : factors) {
    if (f != 0 && product > kMaxFloats / f) return false;
    product *= f;
  }
  return product <= kMaxFloats;
}

void FillBiasOrZero(const std::shared_ptr<runtime::TensorCPU>& output, const std::shared_ptr<runtime::TensorCPU>& bias,
                    void (*fill)(const std::shared_ptr<runtime::TensorCPU>&, const std::shared_ptr<runtime::TensorCPU>&)) {
  if (bias && fill) {
    fill(output, bias);
  } else if (output->shape.data_type == TensorShape::INT16) {
    FillZero_MainMemory_Int16_Fallback_M1(output);
  } else {
    FillZero_MainMemory_Float_Fallback_M1(output);
  }
}

TensorShape Conv2DKernelBase::Port::Shape(std::uint32_t count, std::uint32_t h, std::uint32_t w) const {
  if (lanes == 1) return runtime::MakeShape({count, h, w}, type);
  return runtime::MakeShape({ChannelBlocks(count, lanes), h, w, lanes}, type, layout);
}

bool Conv2DKernelBase::Port::Holds(const TensorShape& shape, std::uint32_t count) const {
  const auto& d = shape.dims;
  if (shape.data_type != type || shape.location != TensorShape::MainMemory) return false;
  if (lanes == 1) {
    return d.size() == 3 && (shape.layout == TensorShape::CHW || shape.layout == TensorShape::FLEXIABLE) &&
           d[0] == count;
  }
  return d.size() == 4 && shape.layout == layout && d[3] == lanes && d[0] == ChannelBlocks(count, lanes);
}

Conv2DKernelBase::Conv2DKernelBase(Port input, Port output, bool builds_column, Geometry geometry, WeightOrder order)
    : in_(input), out_(output), builds_column_(builds_column), geometry_(geometry), order_(order) {}

bool Conv2DKernelBase::AcceptsGeometry(const Conv2DParams& p) const {
  const Geometry& g = geometry_;
  if ((g.kernel_y != 0 && p.kernel_y != g.kernel_y) || (g.kernel_x != 0 && p.kernel_x != g.kernel_x)) return false;
  if ((g.stride_y != 0 && p.stride_y != g.stride_y) || (g.stride_x != 0 && p.stride_x != g.stride_x)) return false;
  if (g.dilation != 0 && (p.dilation_y != g.dilation || p.dilation_x != g.dilation)) return false;
  if (!g.takes_padding && (p.padding_l != 0 || p.padding_r != 0 || p.padding_t != 0 || p.padding_b != 0)) {
    return false;
  }
  switch (g.groups) {
    case Geometry::Groups::kAny: break;
    case Geometry::Groups::kOne:
      if (p.groups != 1) return false;
      break;
    case Geometry::Groups::kDepthwise:
      if (p.in_channels_per_group != 1 || p.out_channels_per_group != 1) return false;
      break;
  }
  const std::uint32_t in_channels = p.in_channels_per_group * p.groups;
  const std::uint32_t out_channels = p.out_channels_per_group * p.groups;
  return (in_.channels == 0 || in_channels == in_.channels) && (out_.channels == 0 || out_channels == out_.channels);
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
  if (!StartConfig(layer, param, context, "convolution")) return false;
  const auto& info = static_cast<const runtime::Conv2dInfo&>(*layer);
  ReadParams(info, &params_);
  const Conv2DParams& p = params_;
  const auto& device = context->cpu;
  std::vector<float> weights;
  if (!DecodeBlobs(info.weight, std::uint64_t(OutChannels()) * p.in_channels_per_group * p.kernel_y * p.kernel_x,
                   p.if_bias, info.bias, OutChannels(), *device, &weights)) {
    return false;
  }
  auto gnchw = device->CreateTensor(
      runtime::MakeShape({p.groups, p.out_channels_per_group, p.in_channels_per_group, p.kernel_y, p.kernel_x},
                         TensorShape::FLOAT32, TensorShape::GNCHW),
      weights.data());
  switch (order_) {
    case WeightOrder::kGNCHW: weight_ = gnchw; break;
    case WeightOrder::kGN4C4HW4c4n: weight_ = Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback(gnchw, device); break;
    case WeightOrder::kGN8C8HW8c8n: weight_ = Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback(gnchw, device); break;
    case WeightOrder::kCustom: weight_ = PackWeight(gnchw, device); break;
  }
  if (!weight_) {
    utility::Log(utility::kLogError, "%s: the weight could not be packed.", GetName().c_str());
    return false;
  }
  configured_ = true;
  return true;
}

Conv2DKernelBase::TensorCPUPtr Conv2DKernelBase::PackWeight(const TensorCPUPtr&,
                                                            const std::shared_ptr<runtime::DeviceCPU>&) const {
  return nullptr;
}

bool Conv2DKernelBase::MakePlan(const TensorShape& input, Conv2DPlan* plan) const {
  const Conv2DParams& p = params_;
  const auto& d = input.dims;
  if (!in_.Holds(input, InChannels())) return false;
  const std::uint64_t stored_channels = std::uint64_t(d[0]) * in_.lanes;
  const std::uint64_t ph = std::uint64_t(d[1]) + p.padding_t + p.padding_b;
  const std::uint64_t pw = std::uint64_t(d[2]) + p.padding_l + p.padding_r;
  const std::int64_t oh = ConvOutputSize(static_cast<std::int64_t>(ph), p.kernel_y, p.stride_y, p.dilation_y);
  const std::int64_t ow = ConvOutputSize(static_cast<std::int64_t>(pw), p.kernel_x, p.stride_x, p.dilation_x);
  if (oh <= 0 || ow <= 0) return false;
  // Every buffer of the pass must stay addressable with int arguments.
  const std::uint64_t out_stored = std::uint64_t(out_.Stored(OutChannels())) * out_.lanes;
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
  return {OutputShape(plan)};
}

std::int32_t Conv2DKernelBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (!configured_ || inputs.size() != 1 || !inputs[0]) return kInvalidTensor;
  if (!std::dynamic_pointer_cast<runtime::TensorCPU>(inputs[0])) return kInvalidTensor;
  Conv2DPlan plan;
  return MakePlan(inputs[0]->shape, &plan) ? kValid : kInvalidTensor;
}

std::int32_t Conv2DKernelBase::IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const {
  if (outputs.size() != 1 || !outputs[0]) return kInvalidTensor;
  const TensorShape& s = outputs[0]->shape;
  if (s.data_type != out_.type || s.location != TensorShape::MainMemory) return kInvalidTensor;
  if (out_.lanes == 1) return s.dims.size() == 3 && s.dims[0] == OutChannels() ? kValid : kInvalidTensor;
  return s.dims.size() == 4 && s.layout == out_.layout && s.dims[3] == out_.lanes &&
                 s.dims[0] == ChannelBlocks(OutChannels(), out_.lanes)
             ? kValid
             : kInvalidTensor;
}

Conv2DKernelBase::TensorCPUPtr Conv2DKernelBase::ForwardInput(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, const std::shared_ptr<runtime::Context>& context,
    Conv2DPlan* plan) const {
  auto input = CheckedInput(inputs, context);
  if (input) MakePlan(input->shape, plan);
  return input;
}

Conv2DKernelBase::TensorCPUPtr Conv2DKernelBase::Padded(const TensorCPUPtr& input, PadFn pad,
                                                        const std::shared_ptr<runtime::DeviceCPU>& device) const {
  const Conv2DParams& p = params_;
  if (p.padding_l == 0 && p.padding_r == 0 && p.padding_t == 0 && p.padding_b == 0) return input;
  return pad(input, p.padding_l, p.padding_r, p.padding_t, p.padding_b, 0.0f, device);
}

TensorShape Conv2DKernelBase::OutputShape(const Conv2DPlan& plan) const {
  return out_.Shape(OutChannels(), plan.out_h, plan.out_w);
}

Conv2DKernelBase::TensorCPUPtr Conv2DKernelBase::CreateOutput(const Conv2DPlan& plan,
                                                              runtime::DeviceCPU& device) const {
  return device.CreateTensor(OutputShape(plan));
}

Conv2DKernelBase::TensorCPUPtr Conv2DKernelBase::BiasedOutput(const Conv2DPlan& plan, runtime::DeviceCPU& device,
                                                              FillFn fill) const {
  auto output = CreateOutput(plan, device);
  FillBiasOrZero(output, bias_, fill);
  return output;
}

bool Conv2DKernelBase::ForwardByColumns(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                        std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                        const std::shared_ptr<runtime::Context>& context,
                                        const ColumnPass& pass) const {
  Conv2DPlan plan;
  auto input = ForwardInput(inputs, context, &plan);
  if (!input) return false;
  const auto& device = context->cpu;
  const Conv2DParams& p = params_;
  auto padded = Padded(input, pass.pad, device);
  // Stored planes (CHW) or blocks; each column row is one of them seen
  // through one kernel tap.
  const int blocks = static_cast<int>(input->shape.dims[0]);
  const int taps = static_cast<int>(p.kernel_y * p.kernel_x);
  const int rows = blocks * taps;
  const int oh = static_cast<int>(plan.out_h), ow = static_cast<int>(plan.out_w);
  const unsigned urows = static_cast<unsigned>(rows);
  const std::uint32_t lanes = in_.lanes;
  auto column = device->CreateTensor(lanes == 1 ? runtime::MakeShape({urows, plan.out_h, plan.out_w})
                                                : runtime::MakeShape({urows, plan.out_h, plan.out_w, lanes},
                                                                     TensorShape::FLOAT32, in_.layout));
  pass.im2col(blocks, static_cast<int>(plan.padded_h), static_cast<int>(plan.padded_w), rows, oh, ow,
              static_cast<int>(p.kernel_y), static_cast<int>(p.kernel_x), static_cast<int>(p.stride_y),
              static_cast<int>(p.stride_x), static_cast<int>(p.dilation_y), static_cast<int>(p.dilation_x),
              padded->DataAs<float>(), column->DataAs<float>());
  auto output = BiasedOutput(plan, *device, pass.fill);
  float* col = column->DataAs<float>();
  float* out = output->DataAs<float>();
  float* weight = weight_->DataAs<float>();
  if (lanes == 1) {
    const int group_rows = static_cast<int>(p.in_channels_per_group) * taps;
    const int outs = static_cast<int>(p.out_channels_per_group);
    const std::ptrdiff_t plane = std::ptrdiff_t(oh) * ow;
    for (std::uint32_t g = 0; g < p.groups; ++g) {
      pass.core(group_rows, oh, ow, col + g * group_rows * plane, group_rows, outs, 1, 1, 1, 1, 1, 1, 1,
                weight + std::ptrdiff_t(g) * outs * group_rows, outs, oh, ow, out + g * outs * plane);
    }
  } else {
    // Column block (c, ky, kx) meets weight tile (ob, c, ky, kx).
    pass.core(static_cast<int>(lanes) * rows, oh, ow, col, rows, static_cast<int>(OutChannels()), 1, 1, 1, 1, 1, 1,
              1, weight, static_cast<int>(output->shape.dims[0]), oh, ow, out);
  }
  outputs.assign(1, output);
  return true;
}

bool Conv2DKernelBase::ForwardDirect(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                     std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                     const std::shared_ptr<runtime::Context>& context, const DirectPass& pass) const {
  Conv2DPlan plan;
  auto input = ForwardInput(inputs, context, &plan);
  if (!input) return false;
  const auto& device = context->cpu;
  auto padded = pass.pad ? Padded(input, pass.pad, device) : input;
  auto output = BiasedOutput(plan, *device, pass.fill);
  pass.step(padded, output, weight_);
  outputs.assign(1, output);
  return true;
}

bool Conv2DKernelBase::ForwardWriting(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                      std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                      const std::shared_ptr<runtime::Context>& context,
                                      const WritingPass& pass) const {
  Conv2DPlan plan;
  auto input = ForwardInput(inputs, context, &plan);
  if (!input) return false;
  auto padded = pass.pad ? Padded(input, pass.pad, context->cpu) : input;
  auto output = CreateOutput(plan, *context->cpu);
  pass.step(padded, output, weight_, bias_, context);
  outputs.assign(1, output);
  return true;
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
