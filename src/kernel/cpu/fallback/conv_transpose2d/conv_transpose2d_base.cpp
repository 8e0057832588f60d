#include "kernel/cpu/fallback/conv_transpose2d/conv_transpose2d_base.h"

#include "kernel/cpu/avx/conv_transpose2d/conv_transpose2d.h"
#include "kernel/cpu/fallback/conv_transpose2d/conv_transpose2d.h"
#include "kernel/cpu/sse/conv_transpose2d/conv_transpose2d.h"

#include <algorithm>

#include "tarn/kernel/packing.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

namespace {

bool ReadParams(const runtime::ConvTranspose2dInfo& info, ConvTranspose2DParams* p) {
  if (!ReadConvGeometry(info, p)) return false;
  p->padding_l = info.padding_l;
  p->padding_t = info.padding_t;
  p->padding_r = info.padding_r;
  p->padding_b = info.padding_b;
  return true;
}

// One axis of a plan: the scatter's extent, the enlarged extent, where the
// scatter starts in it, the cut at both ends and the output extent; false
// when the output would be empty.
bool PlanAxis(std::uint64_t in, std::uint32_t kernel, std::uint32_t stride, std::uint32_t dilation,
              std::int32_t pad_begin, std::int32_t pad_end, std::uint64_t* full, std::uint64_t* enlarged,
              std::uint32_t* origin, std::uint32_t* cut_begin, std::uint32_t* cut_end, std::uint64_t* out) {
  if (in == 0) return false;
  *full = (in - 1) * stride + std::uint64_t(dilation) * (kernel - 1) + 1;
  const std::int64_t size = std::int64_t(*full) - pad_begin - pad_end;
  if (size < 1) return false;
  *origin = static_cast<std::uint32_t>(std::max(0, -pad_begin));
  *cut_begin = static_cast<std::uint32_t>(std::max(0, pad_begin));
  *cut_end = static_cast<std::uint32_t>(std::max(0, pad_end));
  *enlarged = *full + *origin + static_cast<std::uint32_t>(std::max(0, -pad_end));
  *out = static_cast<std::uint64_t>(size);
  return true;
}

}  // namespace

ConvTranspose2DKernelBase::ConvTranspose2DKernelBase(Port port, std::uint32_t kernel_y, std::uint32_t kernel_x,
                                                     std::uint32_t dilation, bool one_group, WeightOrder order)
    : port_(port), kernel_y_(kernel_y), kernel_x_(kernel_x), dilation_(dilation), one_group_(one_group),
      order_(order) {}

bool ConvTranspose2DKernelBase::AcceptsGeometry(const ConvTranspose2DParams& p) const {
  if ((kernel_y_ != 0 && p.kernel_y != kernel_y_) || (kernel_x_ != 0 && p.kernel_x != kernel_x_)) return false;
  if (dilation_ != 0 && (p.dilation_y != dilation_ || p.dilation_x != dilation_)) return false;
  return !one_group_ || p.groups == 1;
}

std::int32_t ConvTranspose2DKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                     std::shared_ptr<runtime::InferenceParam>) const {
  auto info = std::dynamic_pointer_cast<runtime::ConvTranspose2dInfo>(layer);
  ConvTranspose2DParams p;
  if (!info || !ReadParams(*info, &p) || !AcceptsGeometry(p)) return kInvalidParam;
  return kValid;
}

bool ConvTranspose2DKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                       std::shared_ptr<runtime::InferenceParam> param,
                                       std::shared_ptr<runtime::Context> context) {
  if (!StartConfig(layer, param, context, "transposed convolution")) return false;
  const auto& info = static_cast<const runtime::ConvTranspose2dInfo&>(*layer);
  ReadParams(info, &params_);
  const ConvTranspose2DParams& p = params_;
  const auto& device = context->cpu;
  std::vector<float> weights;
  if (!DecodeBlobs(info.weight, std::uint64_t(InChannels()) * p.out_channels_per_group * p.kernel_y * p.kernel_x,
                   p.if_bias, info.bias, OutChannels(), *device, &weights)) {
    return false;
  }
  const std::uint32_t G = p.groups, C = p.in_channels_per_group, N = p.out_channels_per_group;
  const std::size_t taps = std::size_t(p.kernel_y) * p.kernel_x;
  if (order_ == WeightOrder::kStored) {
    weight_ = device->CreateTensor(
        runtime::MakeShape({G, C, N, p.kernel_y, p.kernel_x}, TensorShape::FLOAT32, TensorShape::GNCHW),
        weights.data());
  } else {
    // [G, C, N, taps] to [G, N, C, taps]: output channels outer, as the
    // blocked orders expect of a GNCHW weight.
    std::vector<float> gnchw(weights.size());
    for (std::size_t g = 0; g < G; ++g)
      for (std::size_t c = 0; c < C; ++c)
        for (std::size_t n = 0; n < N; ++n)
          std::copy_n(&weights[((g * C + c) * N + n) * taps], taps, &gnchw[((g * N + n) * C + c) * taps]);
    auto plain = device->CreateTensor(
        runtime::MakeShape({G, N, C, p.kernel_y, p.kernel_x}, TensorShape::FLOAT32, TensorShape::GNCHW),
        gnchw.data());
    weight_ = order_ == WeightOrder::kGN4C4HW4c4n ? Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback(plain, device)
                                                   : Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback(plain, device);
  }
  if (!weight_) {
    utility::Log(utility::kLogError, "%s: the weight could not be packed.", GetName().c_str());
    return false;
  }
  configured_ = true;
  return true;
}

bool ConvTranspose2DKernelBase::MakePlan(const TensorShape& input, ConvTranspose2DPlan* plan) const {
  const ConvTranspose2DParams& p = params_;
  if (!port_.Holds(input, InChannels())) return false;
  const auto& d = input.dims;
  std::uint64_t full_h, full_w, enlarged_h, enlarged_w, out_h, out_w;
  ConvTranspose2DPlan q;
  if (!PlanAxis(d[1], p.kernel_y, p.stride_y, p.dilation_y, p.padding_t, p.padding_b, &full_h, &enlarged_h,
                &q.origin_y, &q.cut_t, &q.cut_b, &out_h) ||
      !PlanAxis(d[2], p.kernel_x, p.stride_x, p.dilation_x, p.padding_l, p.padding_r, &full_w, &enlarged_w,
                &q.origin_x, &q.cut_l, &q.cut_r, &out_w)) {
    return false;
  }
  // Every buffer of the pass (the input padded for a specialised step, the
  // enlarged output) must stay addressable with int arguments.
  const std::uint64_t lanes = port_.lanes;
  const std::uint64_t border_y = ScatterInputBorder(p.kernel_y, p.stride_y);
  const std::uint64_t border_x = ScatterInputBorder(p.kernel_x, p.stride_x);
  if (!FitsInt({std::uint64_t(d[0]) * lanes, d[1] + 2 * border_y, d[2] + 2 * border_x}) ||
      !FitsInt({std::uint64_t(port_.Stored(OutChannels())) * lanes, enlarged_h, enlarged_w})) {
    return false;
  }
  q.in_h = d[1];
  q.in_w = d[2];
  q.full_h = static_cast<std::uint32_t>(full_h);
  q.full_w = static_cast<std::uint32_t>(full_w);
  q.enlarged_h = static_cast<std::uint32_t>(enlarged_h);
  q.enlarged_w = static_cast<std::uint32_t>(enlarged_w);
  q.out_h = static_cast<std::uint32_t>(out_h);
  q.out_w = static_cast<std::uint32_t>(out_w);
  *plan = q;
  return true;
}

std::vector<TensorShape> ConvTranspose2DKernelBase::GetOutputShapes(const std::vector<TensorShape>& inputs) const {
  ConvTranspose2DPlan plan;
  if (!configured_ || inputs.size() != 1 || !MakePlan(inputs[0], &plan)) return {};
  return {port_.Shape(OutChannels(), plan.out_h, plan.out_w)};
}

std::int32_t ConvTranspose2DKernelBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (!configured_ || inputs.size() != 1 || !inputs[0]) return kInvalidTensor;
  if (!std::dynamic_pointer_cast<runtime::TensorCPU>(inputs[0])) return kInvalidTensor;
  ConvTranspose2DPlan plan;
  return MakePlan(inputs[0]->shape, &plan) ? kValid : kInvalidTensor;
}

std::int32_t ConvTranspose2DKernelBase::IsValidOutput(
    const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const {
  return outputs.size() == 1 && outputs[0] && port_.Holds(outputs[0]->shape, OutChannels()) ? kValid
                                                                                             : kInvalidTensor;
}

ConvTranspose2DKernelBase::TensorCPUPtr ConvTranspose2DKernelBase::ForwardInput(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, const std::shared_ptr<runtime::Context>& context,
    ConvTranspose2DPlan* plan) const {
  auto input = CheckedInput(inputs, context);
  if (input) MakePlan(input->shape, plan);
  return input;
}

ConvTranspose2DKernelBase::TensorCPUPtr ConvTranspose2DKernelBase::EnlargedOutput(const ConvTranspose2DPlan& plan,
                                                                                  runtime::DeviceCPU& device,
                                                                                  FillFn fill) const {
  auto output = device.CreateTensor(port_.Shape(OutChannels(), plan.enlarged_h, plan.enlarged_w));
  FillBiasOrZero(output, bias_, fill);
  return output;
}

bool ConvTranspose2DKernelBase::ForwardScatter(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                               const std::shared_ptr<runtime::Context>& context,
                                               const ScatterPass& pass) const {
  ConvTranspose2DPlan plan;
  auto input = ForwardInput(inputs, context, &plan);
  if (!input) return false;
  const ConvTranspose2DParams& p = params_;
  const auto& device = context->cpu;
  const std::uint32_t by = ScatterInputBorder(p.kernel_y, p.stride_y);
  const std::uint32_t bx = ScatterInputBorder(p.kernel_x, p.stride_x);
  auto padded = by == 0 && bx == 0 ? input : pass.pad(input, bx, bx, by, by, 0.0f, device);
  auto output = EnlargedOutput(plan, *device, pass.fill);
  pass.step(padded, output, weight_, {p.stride_y, p.stride_x, plan.origin_y, plan.origin_x});
  if (plan.cut_l != 0 || plan.cut_r != 0 || plan.cut_t != 0 || plan.cut_b != 0) {
    output = pass.cut(output, plan.cut_l, plan.cut_r, plan.cut_t, plan.cut_b, device);
  }
  outputs.assign(1, output);
  return true;
}

ConvTranspose2DStepArgs CheckConvTranspose2DStep(const std::shared_ptr<runtime::TensorCPU>& input,
                                                 const std::shared_ptr<runtime::TensorCPU>& output,
                                                 const std::shared_ptr<runtime::TensorCPU>& weight,
                                                 const ConvTranspose2DStepGeometry& g, int kernel, int lanes,
                                                 const char* what) {
  auto holds = [lanes](const std::shared_ptr<runtime::TensorCPU>& t) {
    return t && t->shape.data_type == TensorShape::FLOAT32 && t->shape.location == TensorShape::MainMemory &&
           t->shape.dims.size() == (lanes == 1 ? 3u : 4u) && (lanes == 1 || int(t->shape.dims[3]) == lanes);
  };
  utility::Assert(holds(input) && holds(output), "%s: the input and output must be float tensors of %d-float pixels.",
                  what, lanes);
  utility::Assert(g.stride_y > 0 && g.stride_x > 0, "%s: the strides must be positive.", what);
  const auto& i = input->shape.dims;
  const auto& o = output->shape.dims;
  utility::Assert(FitsInt({i[0], i[1], i[2], std::uint64_t(lanes)}) && FitsInt({o[0], o[1], o[2], std::uint64_t(lanes)}),
                  "%s: the tensors are too large.", what);
  const std::uint64_t by = ScatterInputBorder(kernel, g.stride_y), bx = ScatterInputBorder(kernel, g.stride_x);
  utility::Assert(i[1] > 2 * by && i[2] > 2 * bx, "%s: the input lacks its zero border.", what);
  const std::uint64_t full_h = (i[1] - 2 * by - 1) * g.stride_y + kernel;
  const std::uint64_t full_w = (i[2] - 2 * bx - 1) * g.stride_x + kernel;
  utility::Assert(g.origin_y + full_h <= o[1] && g.origin_x + full_w <= o[2], "%s: the scatter leaves the output.",
                  what);
  const std::uint64_t tile = std::uint64_t(lanes) * lanes * kernel * kernel;
  utility::Assert(weight && weight->shape.data_type == TensorShape::FLOAT32 &&
                      weight->shape.ElementCount() == std::uint64_t(i[0]) * o[0] * tile,
                  "%s: the weight does not fit the channels.", what);
  return {input->DataAs<float>(), output->DataAs<float>(), weight->DataAs<float>(),
          int(i[0]), int(o[0]), int(i[1]), int(i[2]), int(o[1]), int(o[2]), int(by), int(bx), int(full_h),
          int(full_w)};
}

// Key functions, in baseline code: any member can be created, named and
// configured on any x86-64; only Forward runs family code.
ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1::~ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1() =
    default;
ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1::~ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1() = default;
ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1::~ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1() = default;
ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1::~ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1() = default;

}  // namespace kernel
}  // namespace tarn
