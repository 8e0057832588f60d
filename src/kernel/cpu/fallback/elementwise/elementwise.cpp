#include "kernel/cpu/fallback/elementwise/elementwise.h"

#include <cstdint>

#include "kernel/cpu/avx/elementwise/elementwise.h"
#include "kernel/cpu/sse/elementwise/elementwise.h"
#include "tarn/kernel/activation.h"
#include "tarn/kernel/elementwise.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

inline bool Apart8(const float* a, const float* b) {
  const std::uintptr_t x = reinterpret_cast<std::uintptr_t>(a), y = reinterpret_cast<std::uintptr_t>(b);
  return (x > y ? x - y : y - x) >= 8 * sizeof(float);
}

template <typename Op>
inline void Binary8(const float* a, const float* b, std::uint32_t count, float* dst, Op op) {
  std::uint32_t i = 0;
  if (count >= 8 && Apart8(dst, a) && Apart8(dst, b)) {
    for (; i + 8 <= count; i += 8) {
      float v[8];
      for (int k = 0; k < 8; ++k) v[k] = op(a[i + k], b[i + k]);
      for (int k = 0; k < 8; ++k) dst[i + k] = v[k];
    }
  }
  for (; i < count; ++i) dst[i] = op(a[i], b[i]);
}

}  // namespace

void elementwise_add_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary8(a, b, count, dst, [](float x, float y) { return x + y; });
}
void elementwise_sub_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary8(a, b, count, dst, [](float x, float y) { return x - y; });
}
void elementwise_mul_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary8(a, b, count, dst, [](float x, float y) { return x * y; });
}
void elementwise_div_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst) {
  Binary8(a, b, count, dst, [](float x, float y) { return x / y; });
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

std::int32_t Elementwise_Fallback_Float_M1::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                         std::shared_ptr<runtime::InferenceParam> param) const {
  if (param) return kInvalidParam;
  return std::dynamic_pointer_cast<runtime::ElementWiseOperatorInfo>(layer) ? kValid : kInvalidParam;
}

bool Elementwise_Fallback_Float_M1::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                           std::shared_ptr<runtime::InferenceParam> param,
                                           std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (IsValidParam(layer, param) != kValid) return false;
  op_name = functional::ElementwiseOpName(std::static_pointer_cast<runtime::ElementWiseOperatorInfo>(layer)->op_type);
  configured_ = true;
  return true;
}

std::vector<runtime::TensorShape> Elementwise_Fallback_Float_M1::GetOutputShapes(
    const std::vector<runtime::TensorShape>& inputs) const {
  if (inputs.empty()) return {};
  return {inputs[0]};
}

std::int32_t Elementwise_Fallback_Float_M1::IsValidInput(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (CheckFloatTensors(inputs, 2) != kValid) return kInvalidTensor;
  // Forward walks the first operand's count through both buffers.
  const std::size_t n = inputs[0]->shape.ElementCount();
  if (n != inputs[1]->shape.ElementCount() || n > UINT32_MAX) return kInvalidTensor;
  return kValid;
}

bool Elementwise_Fallback_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                            std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                            std::shared_ptr<runtime::Context> context) const {
  if (inputs.size() < 2 || !context || !context->cpu) return false;
  auto out = context->cpu->CreateTensor(inputs[0]->shape, nullptr);
  const std::uint32_t count = functional::ActivationElementCount(out->shape);
  const float* a = static_cast<const float*>(inputs[0]->Data());
  const float* b = static_cast<const float*>(inputs[1]->Data());
  float* d = out->DataAs<float>();
  if (op_name == "Add") {
    functional::elementwise_add_f32_m1(a, b, count, d);
  } else if (op_name == "Sub") {
    functional::elementwise_sub_f32_m1(a, b, count, d);
  } else if (op_name == "Mul") {
    functional::elementwise_mul_f32_m1(a, b, count, d);
  } else if (op_name == "Div") {
    functional::elementwise_div_f32_m1(a, b, count, d);
  } else {
    // Only an unconfigured kernel gets here; never hand out unwritten memory.
    return false;
  }
  outputs.assign(1, out);
  return true;
}

// ---------------------------------------------------------------------------

std::int32_t ElementwiseKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                 std::shared_ptr<runtime::InferenceParam> param) const {
  if (param) return kInvalidParam;
  auto info = std::dynamic_pointer_cast<runtime::ElementWiseOperatorInfo>(layer);
  if (!info) return kInvalidParam;
  return functional::ElementwiseOpName(info->op_type) == op_ ? kValid : kInvalidParam;
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

bool ElementwiseKernelBase::ForwardBinary(BinaryFn fn, const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                          std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                          const std::shared_ptr<runtime::Context>& context) const {
  if (inputs.size() < 2 || !context || !context->cpu) return false;
  auto out = context->cpu->CreateTensor(inputs[0]->shape, nullptr);
  fn(static_cast<const float*>(inputs[0]->Data()), static_cast<const float*>(inputs[1]->Data()),
     functional::ActivationElementCount(out->shape), out->DataAs<float>());
  outputs.assign(1, out);
  return true;
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
