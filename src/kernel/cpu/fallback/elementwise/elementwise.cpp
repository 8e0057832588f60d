#include "kernel/cpu/fallback/elementwise/elementwise.h"

#include <cstdint>
#include <functional>

#include "kernel/cpu/avx/elementwise/elementwise.h"
#include "kernel/cpu/fallback/elementwise/elementwise_steps.h"
#include "kernel/cpu/sse/elementwise/elementwise.h"
#include "tarn/kernel/activation.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace functional {

void elementwise_add_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Portable8(count, dst, std::plus<float>(), a, b);
}
void elementwise_sub_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Portable8(count, dst, std::minus<float>(), a, b);
}
void elementwise_mul_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Portable8(count, dst, std::multiplies<float>(), a, b);
}
void elementwise_div_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Portable8(count, dst, std::divides<float>(), a, b);
}

std::string ElementwiseOpName(std::uint16_t op_type) {
  switch (op_type) {
    case runtime::ELEMENTWISE_ADD:
      return "Add";
    case runtime::ELEMENTWISE_SUB:
      return "Sub";
    case runtime::ELEMENTWISE_MUL:
      return "Mul";
    case runtime::ELEMENTWISE_DIV:
      return "Div";
    default:
      break;
  }
  utility::Assert(false, "Invalid element wise type");
  return std::string();
}

}  // namespace functional

bool SameTensorShape(const runtime::TensorShape& a, const runtime::TensorShape& b) {
  return a.dims == b.dims && a.data_type == b.data_type && a.layout == b.layout && a.location == b.location &&
         a.extra.step_size == b.extra.step_size;
}

// ---------------------------------------------------------------------------

std::int32_t ElementwiseKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                 std::shared_ptr<runtime::InferenceParam> param) const {
  if (param) return kInvalidParam;
  auto info = std::dynamic_pointer_cast<runtime::ElementWiseOperatorInfo>(layer);
  if (!info) return kInvalidParam;
  return !op_ || functional::ElementwiseOpName(info->op_type) == op_ ? kValid : kInvalidParam;
}

bool ElementwiseKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                   std::shared_ptr<runtime::InferenceParam> param, std::shared_ptr<runtime::Context>) {
  configured_ = IsValidParam(layer, param) == kValid;
  return configured_;
}

std::vector<runtime::TensorShape> ElementwiseKernelBase::GetOutputShapes(
    const std::vector<runtime::TensorShape>& inputs) const {
  if (inputs.empty()) return {};
  return {inputs[0]};
}

std::int32_t ElementwiseKernelBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (CheckFloatTensors(inputs, 2) != kValid) return kInvalidTensor;
  if (!SameTensorShape(inputs[0]->shape, inputs[1]->shape)) return kInvalidTensor;
  if (inputs[0]->shape.ElementCount() > UINT32_MAX) return kInvalidTensor;
  return kValid;
}

bool ElementwiseKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                    std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                    std::shared_ptr<runtime::Context> context) const {
  // Without an operation (an unconfigured portable kernel) no unwritten tensor is handed out.
  if (inputs.size() < 2 || !context || !context->cpu || !fn_) return false;
  auto out = context->cpu->CreateTensor(inputs[0]->shape, nullptr);
  fn_(static_cast<const float*>(inputs[0]->Data()), static_cast<const float*>(inputs[1]->Data()),
      functional::ActivationElementCount(out->shape), out->DataAs<float>());
  outputs.assign(1, out);
  return true;
}

bool Elementwise_Fallback_Float_M1::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                           std::shared_ptr<runtime::InferenceParam> param,
                                           std::shared_ptr<runtime::Context>) {
  static constexpr BinaryFn kOperations[] = {functional::elementwise_add_f32_m1, functional::elementwise_sub_f32_m1,
                                             functional::elementwise_mul_f32_m1, functional::elementwise_div_f32_m1};
  configured_ = false;
  if (IsValidParam(layer, param) != kValid) return false;
  const std::uint16_t code = std::static_pointer_cast<runtime::ElementWiseOperatorInfo>(layer)->op_type;
  op_name = functional::ElementwiseOpName(code);  // only codes 0 to 3 get past this
  fn_ = kOperations[code];
  configured_ = true;
  return true;
}

std::int32_t Elementwise_Fallback_Float_M1::IsValidInput(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (CheckFloatTensors(inputs, 2) != kValid) return kInvalidTensor;
  // Forward walks the first operand's count through both buffers.
  const std::size_t n = inputs[0]->shape.ElementCount();
  if (n != inputs[1]->shape.ElementCount() || n > UINT32_MAX) return kInvalidTensor;
  return kValid;
}

// Baseline-compiled destructors (and so vtables and names) of every kernel
// of this operation, whatever its family.
Elementwise_Add_SSE_Float_M1::~Elementwise_Add_SSE_Float_M1() = default;
Elementwise_Sub_SSE_Float_M1::~Elementwise_Sub_SSE_Float_M1() = default;
Elementwise_Mul_SSE_Float_M1::~Elementwise_Mul_SSE_Float_M1() = default;
Elementwise_Div_SSE_Float_M1::~Elementwise_Div_SSE_Float_M1() = default;
Elementwise_Max_SSE_Float_M1::~Elementwise_Max_SSE_Float_M1() = default;
Elementwise_Min_SSE_Float_M1::~Elementwise_Min_SSE_Float_M1() = default;
Elementwise_Add_AVX_Float_M1::~Elementwise_Add_AVX_Float_M1() = default;
Elementwise_Sub_AVX_Float_M1::~Elementwise_Sub_AVX_Float_M1() = default;
Elementwise_Mul_AVX_Float_M1::~Elementwise_Mul_AVX_Float_M1() = default;
Elementwise_Div_AVX_Float_M1::~Elementwise_Div_AVX_Float_M1() = default;
Elementwise_Max_AVX_Float_M1::~Elementwise_Max_AVX_Float_M1() = default;
Elementwise_Min_AVX_Float_M1::~Elementwise_Min_AVX_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
