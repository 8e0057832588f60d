// The converters between float C8HW8 tensors and 16-bit fixed-point C8HW8
// tensors, as the 16-bit convolution reads and writes them (step sizes as in
// conv2d_fixed_base.h: a stored integer q stands for q * 2^step). Everything
// but Forward is baseline code.
//
// In a net they are the input and output converters of the layer whose
// kernel is the 16-bit convolution: the layer's configuration names the
// quantiser among its "input_converters" with an InferenceParamActQuant whose
// "output_step_size" is the step the convolution's input gets, and the
// de-quantiser among its "output_converters" (its parameter record is not
// read: it takes the step from the extra record of the tensor it converts,
// which the convolution set to its own output step). Being converters they
// take whatever layer record they are configured with.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

class QuantisationC8HW8Base : public KernelBase {
 public:
  // The quantiser needs an InferenceParamActQuant (-1 otherwise); the
  // de-quantiser takes any parameter record, or none.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  // The input's dims and layout in the other element type; the quantiser's
  // output carries its step size, the de-quantiser's step size 0.
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One main-memory C8HW8 tensor [B, H, W, 8] of the source type.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  std::int32_t IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const override;

  std::int16_t step() const { return step_; }

 protected:
  explicit QuantisationC8HW8Base(bool to_int16) : to_int16_(to_int16) {}
  bool ValidShape(const runtime::TensorShape& s, bool int16) const;

  bool to_int16_;
  std::int16_t step_ = 0;
};

}  // namespace kernel
}  // namespace tarn
