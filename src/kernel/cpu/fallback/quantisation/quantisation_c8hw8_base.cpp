#include "kernel/cpu/fallback/quantisation/quantisation_c8hw8_base.h"

#include "kernel/cpu/sse/quantisation/quantisation_c8hw8.h"

#include "tarn/runtime/context.h"
#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/tensor.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

std::int32_t QuantisationC8HW8Base::IsValidParam(std::shared_ptr<runtime::LayerInfo>,
                                                 std::shared_ptr<runtime::InferenceParam> param) const {
  if (to_int16_ && !std::dynamic_pointer_cast<runtime::InferenceParamActQuant>(param)) return kInvalidParam;
  return kValid;
}

bool QuantisationC8HW8Base::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                   std::shared_ptr<runtime::InferenceParam> param,
                                   std::shared_ptr<runtime::Context> context) {
  configured_ = false;
  if (IsValidParam(layer, param) != kValid) {
    utility::Log(utility::kLogError, "%s: needs an InferenceParamActQuant with the output step size.",
                 GetName().c_str());
    return false;
  }
  if (!context || !context->cpu) return false;
  step_ = to_int16_ ? std::static_pointer_cast<runtime::InferenceParamActQuant>(param)->output_step_size : 0;
  configured_ = true;
  return true;
}

bool QuantisationC8HW8Base::ValidShape(const TensorShape& s, bool int16) const {
  return s.data_type == (int16 ? TensorShape::INT16 : TensorShape::FLOAT32) && s.location == TensorShape::MainMemory &&
         s.layout == TensorShape::C8HW8 && s.dims.size() == 4 && s.dims[3] == 8;
}

std::vector<TensorShape> QuantisationC8HW8Base::GetOutputShapes(const std::vector<TensorShape>& inputs) const {
  if (!configured_ || inputs.size() != 1 || !ValidShape(inputs[0], !to_int16_)) return {};
  TensorShape out = inputs[0];
  out.data_type = to_int16_ ? TensorShape::INT16 : TensorShape::FLOAT32;
  out.extra.step_size = to_int16_ ? step_ : 0;
  return {out};
}

std::int32_t QuantisationC8HW8Base::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (!configured_ || inputs.size() != 1 || !inputs[0] || !std::dynamic_pointer_cast<runtime::TensorCPU>(inputs[0])) {
    return kInvalidTensor;
  }
  return ValidShape(inputs[0]->shape, !to_int16_) ? kValid : kInvalidTensor;
}

std::int32_t QuantisationC8HW8Base::IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const {
  return outputs.size() == 1 && outputs[0] && ValidShape(outputs[0]->shape, to_int16_) ? kValid : kInvalidTensor;
}

// Key functions in baseline code: only Forward runs SSE code.
Quantize_SSE_C8HW8_Float_To_Int16_M1::~Quantize_SSE_C8HW8_Float_To_Int16_M1() = default;
DeQuantize_SSE_C8HW8_Int16_To_Float_M1::~DeQuantize_SSE_C8HW8_Int16_To_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
