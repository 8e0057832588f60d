#include "kernel/cpu/fallback/conv1d/conv1d_base.h"

#include "kernel/cpu/fallback/conv1d/conv1d.h"
#include "kernel/cpu/avx/conv1d/conv1d.h"

#include <climits>

#include "tarn/kernel/conv_layout.h"
#include "tarn/kernel/tensor_helpers.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

namespace {

bool ReadParams(const runtime::Conv1dInfo& info, Conv1DParams* p) {
  if (info.in_channels == 0 || info.out_channels == 0 || info.kernel_size == 0 || info.stride == 0 ||
      info.dilation == 0 || info.groups == 0 || info.in_channels % info.groups != 0 ||
      info.out_channels % info.groups != 0) {
    return false;
  }
  p->kernel = info.kernel_size;
  p->stride = info.stride;
  p->dilation = info.dilation;
  p->groups = info.groups;
  p->in_channels_per_group = info.in_channels / info.groups;
  p->out_channels_per_group = info.out_channels / info.groups;
  p->padding_f = info.padding_f;
  p->padding_b = info.padding_b;
  p->if_bias = info.if_bias ? 1 : 0;
  return true;
}

}  // namespace

bool Conv1DKernelBase::AcceptsGeometry(const Conv1DParams& p) const {
  return !three_taps_only_ || (p.kernel == 3 && p.stride == 1 && p.dilation == 1 && p.groups == 1);
}

std::int32_t Conv1DKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                            std::shared_ptr<runtime::InferenceParam>) const {
  auto info = std::dynamic_pointer_cast<runtime::Conv1dInfo>(layer);
  Conv1DParams p;
  return info && ReadParams(*info, &p) && AcceptsGeometry(p) ? kValid : kInvalidParam;
}

bool Conv1DKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
                              std::shared_ptr<runtime::Context> context) {
  if (!StartConfig(layer, param, context, "convolution")) return false;
  const auto& info = static_cast<const runtime::Conv1dInfo&>(*layer);
  ReadParams(info, &params_);
  std::vector<float> weights;
  if (!DecodeBlobs(info.weight, std::uint64_t(OutChannels()) * params_.in_channels_per_group * params_.kernel,
                   params_.if_bias, info.bias, OutChannels(), *context->cpu, &weights)) {
    return false;
  }
  weight_ = context->cpu->CreateTensor(
      runtime::MakeShape({OutChannels(), params_.in_channels_per_group, 1, params_.kernel}), weights.data());
  configured_ = true;
  return true;
}

std::uint32_t Conv1DKernelBase::OutputLength(std::uint32_t length) const {
  const std::int64_t padded = std::int64_t(length) + params_.padding_f + params_.padding_b;
  const std::int64_t out = ConvOutputSize(padded, params_.kernel, params_.stride, params_.dilation);
  return out > 0 ? static_cast<std::uint32_t>(out) : 0;
}

std::vector<TensorShape> Conv1DKernelBase::GetOutputShapes(const std::vector<TensorShape>& inputs) const {
  if (!configured_ || inputs.size() != 1) return {};
  const TensorShape& in = inputs[0];
  if (in.dims.size() != 2 || in.dims[0] != InChannels() || OutputLength(in.dims[1]) == 0) return {};
  TensorShape out = in;
  out.dims = {OutChannels(), OutputLength(in.dims[1])};
  return {out};
}

std::int32_t Conv1DKernelBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (!configured_ || CheckFloatTensors(inputs, 1) != kValid) return kInvalidTensor;
  if (!std::dynamic_pointer_cast<runtime::TensorCPU>(inputs[0])) return kInvalidTensor;
  const auto& d = inputs[0]->shape.dims;
  const auto layout = inputs[0]->shape.layout;
  if (d.size() != 2 || d[0] != InChannels() || (layout != TensorShape::CHW && layout != TensorShape::FLEXIABLE)) {
    return kInvalidTensor;
  }
  const std::uint32_t out = OutputLength(d[1]);
  if (out == 0) return kInvalidTensor;
  const std::uint64_t padded = std::uint64_t(d[1]) + params_.padding_f + params_.padding_b;
  // Channel counts are 16-bit and lengths below 2^33: no overflow here.
  if (std::uint64_t(d[0]) * padded > INT_MAX || std::uint64_t(OutChannels()) * out > INT_MAX) return kInvalidTensor;
  return kValid;
}

bool Conv1DKernelBase::Prepare(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                               const std::shared_ptr<runtime::Context>& context,
                               std::shared_ptr<runtime::TensorCPU>* padded,
                               std::shared_ptr<runtime::TensorCPU>* output) const {
  auto input = CheckedInput(inputs, context);
  if (!input) return false;
  const auto& device = context->cpu;
  *padded = params_.padding_f || params_.padding_b
                ? Padding_L_MainMemory_CL_Float_Fallback_M1(input, params_.padding_f, params_.padding_b, 0.0f, device)
                : input;
  TensorShape shape = input->shape;
  shape.dims = {OutChannels(), OutputLength(input->shape.dims[1])};
  *output = device->CreateTensor(shape);
  if (bias_) {
    FillBias_MainMemory_CL_Float_Fallback_M1(*output, bias_);
  } else {
    FillZero_MainMemory_Float_Fallback_M1(*output);
  }
  return true;
}

// Every member's destructor is its key function: defined here, in baseline
// code, it puts the vtable, GetName and the destructor of each family's class
// in this file, so any kernel can be created and named on any x86-64. Only
// Forward runs family code.
Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1::~Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1() = default;
Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1::~Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1() = default;

}  // namespace kernel
}  // namespace tarn
