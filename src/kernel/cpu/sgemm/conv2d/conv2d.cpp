#include "kernel/cpu/sgemm/conv2d/conv2d.h"

#include "tarn/kernel/sgemm.h"
#include "tarn/kernel/tensor_helpers.h"
#include "tarn/runtime/context.h"

namespace tarn {
namespace kernel {

bool Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                          std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                          std::shared_ptr<runtime::Context> context) const {
  Conv2DPlan plan;
  auto input = ForwardInput(inputs, context, &plan);
  if (!input) return false;
  // A padded 1x1 layer is rare but valid: its border sees only the bias.
  auto padded = Padded(input, Padding_HW_MainMemory_CHW_Float_Fallback_M1, context->cpu);
  auto output = CreateOutput(plan, *context->cpu);
  // beta 0: the product overwrites the uninitialised output.
  Sgemm(static_cast<int>(output->shape.dims[0]), static_cast<int>(padded->shape.dims[0]),
        static_cast<int>(plan.out_h * plan.out_w), 1.0f, weight_->DataAs<float>(), padded->DataAs<float>(), 0.0f,
        output->DataAs<float>());
  if (bias_) ADDBias_MainMemory_CHW_Float_Fallback_M1(output, bias_);
  outputs.assign(1, output);
  return true;
}

}  // namespace kernel
}  // namespace tarn
