#include "kernel/cpu/fallback/activation/activation.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "kernel/cpu/avx/activation/activation.h"
#include "kernel/cpu/fallback/activation/activation_rules.h"
#include "kernel/cpu/fallback/elementwise/elementwise_steps.h"
#include "kernel/cpu/sse/activation/activation.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace functional {

void relu_f32(const float* src, const std::uint32_t& count, float* dst) { Portable8(count, dst, rules::Relu, src); }

void relu6_f32(const float* src, const std::uint32_t& count, float* dst) { Portable8(count, dst, rules::Relu6, src); }

void sigmoid_f32(const float* src, const std::uint32_t& count, float* dst) {
  for (std::uint32_t i = 0; i < count; ++i) dst[i] = rules::Sigmoid(src[i]);
}

void tanh_f32(const float* src, const std::uint32_t& count, float* dst) {
  for (std::uint32_t i = 0; i < count; ++i) dst[i] = std::tanh(src[i]);
}

void hsigmoid_f32(const float* src, const std::uint32_t& count, float* dst) {
  for (std::uint32_t i = 0; i < count; ++i) dst[i] = rules::HSigmoid(src[i]);
}

void hswish_f32(const float* src, const std::uint32_t& count, float* dst) {
  for (std::uint32_t i = 0; i < count; ++i) dst[i] = rules::HSwish(src[i]);
}

void leaky_f32(const float* src, const std::uint32_t& count, const float& alpha, float* dst) {
  const float a = alpha;
  for (std::uint32_t i = 0; i < count; ++i) dst[i] = rules::Leaky(src[i], a);
}

void linear_f32(const float* src, const std::uint32_t& count, const float& alpha, const float& beta, float* dst) {
  const float a = alpha, b = beta;
  const auto fma = [a, b](float x) { return std::fma(x, a, b); };
  Portable8(count, dst, fma, src);
}

void prelu_f32(float* data, const std::uint32_t& count, const float& slope) {
  const float s = slope;
  for (std::uint32_t i = 0; i < count; ++i) data[i] = rules::Leaky(data[i], s);
}

std::uint32_t ActivationElementCount(const runtime::TensorShape& shape) {
  std::uint32_t n = 1;
  for (unsigned d : shape.dims) n *= d;
  return n;
}

void Sigmoid_F32_M2(const std::shared_ptr<runtime::Tensor>& tensor) {
  const std::uint32_t n = ActivationElementCount(tensor->shape);
  if (n < 1) return;
  float* p = static_cast<float*>(tensor->Data());
  for (std::uint32_t i = 0; i < n; ++i) p[i] = 1.0f / (1.0f + std::exp(-p[i]));
}

void PReLU_F32(const std::shared_ptr<runtime::Tensor>& tensor, float slope) {
  const std::uint32_t n = ActivationElementCount(tensor->shape);
  if (n < 1) return;
  prelu_f32(static_cast<float*>(tensor->Data()), n, slope);
}

std::uint16_t TransActivationTypeFrom1To2(std::uint16_t legacy_type) {
  switch (legacy_type) {
    case 0:
    case 1:
    case 2:
      return legacy_type;
    case 3:
      return 5;
    case 4:
      return 6;
    case 5:
      return 7;
    case 6:
      return 4;
    case 8:
      return 3;
    default:
      break;
  }
  utility::Assert(false, "Not Implemented.");
  return 0;
}

}  // namespace functional

// ---------------------------------------------------------------------------
// Shared skeleton.

std::int32_t ActivationKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                std::shared_ptr<runtime::InferenceParam>) const {
  return std::dynamic_pointer_cast<runtime::ActivationInfo>(layer) ? kValid : kInvalidParam;
}

std::shared_ptr<runtime::ActivationInfo> ActivationKernelBase::CheckedRecord(
    const std::shared_ptr<runtime::LayerInfo>& layer, const std::shared_ptr<runtime::InferenceParam>& param) const {
  const std::int32_t valid = IsValidParam(layer, param);
  auto info = std::dynamic_pointer_cast<runtime::ActivationInfo>(layer);
  // The net builder only hands activation records to activation kernels.
  utility::Assert(info != nullptr, "%s needs an ActivationInfo record.", GetName().c_str());
  return valid == kValid ? info : nullptr;
}

bool ActivationKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                  std::shared_ptr<runtime::InferenceParam> param, std::shared_ptr<runtime::Context>) {
  configured_ = CheckedRecord(layer, param) != nullptr;
  return configured_;
}

std::vector<runtime::TensorShape> ActivationKernelBase::GetOutputShapes(
    const std::vector<runtime::TensorShape>& inputs) const {
  return inputs;
}

std::int32_t ActivationKernelBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (CheckFloatTensors(inputs, 1) != kValid) return kInvalidTensor;
  // The 32-bit element count must not wrap.
  if (inputs[0]->shape.ElementCount() > UINT32_MAX) return kInvalidTensor;
  return kValid;
}

std::shared_ptr<runtime::TensorCPU> ActivationKernelBase::CreateOutput(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, const std::shared_ptr<runtime::Context>& context) {
  if (inputs.empty() || !inputs[0] || !context || !context->cpu) return nullptr;
  return context->cpu->CreateTensor(inputs[0]->shape, nullptr);
}

bool ActivationKernelBase::SetOutputs(const std::shared_ptr<runtime::Context>& context,
                                      const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, const bool& reuse,
                                      std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const {
  if (!in_place_ || inputs.size() != 1 || !inputs[0]) return false;
  if (reuse) {
    outputs = inputs;
    return true;
  }
  auto out = CreateOutput(inputs, context);
  if (!out) return false;
  outputs.assign(1, out);
  return true;
}

std::shared_ptr<runtime::Tensor> ActivationKernelBase::SeparateOutput(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
    const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) {
  if (outputs.size() != 1 || !outputs[0] || outputs[0] == inputs[0] || outputs[0]->shape != inputs[0]->shape ||
      !outputs[0]->Data()) {
    return nullptr;
  }
  return outputs[0];
}

bool ActivationKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                   std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                   std::shared_ptr<runtime::Context> context) const {
  if (in_place_) {
    if (inputs.empty() || !inputs[0]) return false;
    const float* src = static_cast<const float*>(inputs[0]->Data());
    const std::uint32_t n = functional::ActivationElementCount(inputs[0]->shape);
    if (auto out = SeparateOutput(inputs, outputs)) {
      fn_(src, n, static_cast<float*>(out->Data()));
      return true;
    }
    fn_(src, n, const_cast<float*>(src));
    outputs = inputs;
    return true;
  }
  auto out = CreateOutput(inputs, context);
  if (!out) return false;
  fn_(static_cast<const float*>(inputs[0]->Data()), functional::ActivationElementCount(inputs[0]->shape),
      out->DataAs<float>());
  outputs.assign(1, out);
  return true;
}

bool PReLUKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
                             std::shared_ptr<runtime::Context>) {
  configured_ = false;
  auto info = CheckedRecord(layer, param);
  if (!info) return false;
  // One slope serves every channel, whatever num_parameters says.
  const std::vector<float> weights = runtime::DecodeWeights(info->weight);
  if (weights.empty()) return false;
  slope = weights[0];
  configured_ = true;
  return true;
}

bool PReLUKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                              std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                              std::shared_ptr<runtime::Context>) const {
  if (inputs.empty() || !inputs[0]) return false;
  if (auto out = SeparateOutput(inputs, outputs)) {
    std::memcpy(out->Data(), inputs[0]->Data(), inputs[0]->shape.Bytes());
    prelu_(out, slope);
    return true;
  }
  prelu_(inputs[0], slope);
  outputs = inputs;
  return true;
}

bool LeakyKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
                             std::shared_ptr<runtime::Context>) {
  configured_ = false;
  auto info = CheckedRecord(layer, param);
  if (!info) return false;
  alpha = static_cast<float>(info->activation_alpha);
  configured_ = true;
  return true;
}

bool LeakyKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                              std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                              std::shared_ptr<runtime::Context> context) const {
  auto out = CreateOutput(inputs, context);
  if (!out) return false;
  leaky_(static_cast<const float*>(inputs[0]->Data()), functional::ActivationElementCount(inputs[0]->shape), alpha,
         out->DataAs<float>());
  outputs.assign(1, out);
  return true;
}

bool Linear_Fallback_Float_M1::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                      std::shared_ptr<runtime::InferenceParam> param,
                                      std::shared_ptr<runtime::Context>) {
  configured_ = false;
  auto info = CheckedRecord(layer, param);
  if (!info) return false;
  params->alpha = static_cast<float>(info->activation_alpha);
  params->beta = static_cast<float>(info->activation_beta);
  configured_ = true;
  return true;
}

bool Linear_Fallback_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                       std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                       std::shared_ptr<runtime::Context> context) const {
  auto out = CreateOutput(inputs, context);
  if (!out) return false;
  functional::linear_f32(static_cast<const float*>(inputs[0]->Data()),
                         functional::ActivationElementCount(inputs[0]->shape), params->alpha, params->beta,
                         out->DataAs<float>());
  outputs.assign(1, out);
  return true;
}

// Baseline-compiled destructors (and so vtables and names) of every kernel
// of this operation, whatever its family.
ReLU_Fallback_Float_M1::~ReLU_Fallback_Float_M1() = default;
ReLU6_Fallback_Float_M1::~ReLU6_Fallback_Float_M1() = default;
Sigmoid_Fallback_Float_M1::~Sigmoid_Fallback_Float_M1() = default;
TanH_Fallback_Float_M1::~TanH_Fallback_Float_M1() = default;
HSigmoid_Fallback_Float_M1::~HSigmoid_Fallback_Float_M1() = default;
HSwish_Fallback_Float_M1::~HSwish_Fallback_Float_M1() = default;
Leaky_Fallback_Float_M1::~Leaky_Fallback_Float_M1() = default;
PReLU_Fallback_Float_M1::~PReLU_Fallback_Float_M1() = default;
ReLU_SSE_Float_M1::~ReLU_SSE_Float_M1() = default;
ReLU6_SSE_Float_M1::~ReLU6_SSE_Float_M1() = default;
Sigmoid_SSE_Float_M1::~Sigmoid_SSE_Float_M1() = default;
TanH_SSE_Float_M1::~TanH_SSE_Float_M1() = default;
HSigmoid_SSE_Float_M1::~HSigmoid_SSE_Float_M1() = default;
HSwish_SSE_Float_M1::~HSwish_SSE_Float_M1() = default;
Leaky_SSE_Float_M1::~Leaky_SSE_Float_M1() = default;
PReLU_SSE_Float_M1::~PReLU_SSE_Float_M1() = default;
ReLU_Inplace_SSE_Float_M1::~ReLU_Inplace_SSE_Float_M1() = default;
HSigmoid_Inplace_SSE_Float_M1::~HSigmoid_Inplace_SSE_Float_M1() = default;
ReLU_AVX_Float_M1::~ReLU_AVX_Float_M1() = default;
ReLU6_AVX_Float_M1::~ReLU6_AVX_Float_M1() = default;
Sigmoid_AVX_Float_M1::~Sigmoid_AVX_Float_M1() = default;
HSwish_AVX_Float_M1::~HSwish_AVX_Float_M1() = default;
Leaky_AVX_Float_M1::~Leaky_AVX_Float_M1() = default;
PReLU_AVX_Float_M1::~PReLU_AVX_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
