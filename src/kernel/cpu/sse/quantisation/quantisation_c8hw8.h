// SSE converters between float C8HW8 and 16-bit fixed-point C8HW8 tensors
// (how a net uses them: quantisation_c8hw8_base.h).
#pragma once

#include "kernel/cpu/fallback/quantisation/quantisation_c8hw8_base.h"

namespace tarn {
namespace kernel {

// Float to 16-bit: q = x * 2^-step rounded to nearest (ties to even, the
// processor's default rounding), saturated to [-32768, 32767]; NaN gives 0.
class Quantize_SSE_C8HW8_Float_To_Int16_M1 : public QuantisationC8HW8Base {
 public:
  Quantize_SSE_C8HW8_Float_To_Int16_M1() : QuantisationC8HW8Base(true) {}
  ~Quantize_SSE_C8HW8_Float_To_Int16_M1() override;
  TRN_KERNEL_NAME(Quantize_SSE_C8HW8_Float_To_Int16_M1)
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;
};

// 16-bit to float: x = q * 2^step, exact.
class DeQuantize_SSE_C8HW8_Int16_To_Float_M1 : public QuantisationC8HW8Base {
 public:
  DeQuantize_SSE_C8HW8_Int16_To_Float_M1() : QuantisationC8HW8Base(false) {}
  ~DeQuantize_SSE_C8HW8_Int16_To_Float_M1() override;
  TRN_KERNEL_NAME(DeQuantize_SSE_C8HW8_Int16_To_Float_M1)
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;
};

}  // namespace kernel
}  // namespace tarn
