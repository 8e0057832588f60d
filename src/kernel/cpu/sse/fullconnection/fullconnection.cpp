#include "kernel/cpu/sse/fullconnection/fullconnection.h"

#include "tarn/kernel/fullconnection.h"
#include "tarn/kernel/tensor_helpers.h"

namespace tarn {
namespace kernel {

bool FullConnection_SSE_C_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                            std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                            std::shared_ptr<runtime::Context> context) const {
  return ForwardWith(inputs, outputs, context, functional::fullconnection_sse_c_f32_m2);
}

bool FullConnection_SSE_C44_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                              std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                              std::shared_ptr<runtime::Context> context) const {
  return ForwardWith(inputs, outputs, context, native::fullconnection_sse_c44_f32_m1);
}

bool FullConnection_SSE_BC_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                             std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                             std::shared_ptr<runtime::Context> context) const {
  std::shared_ptr<runtime::TensorCPU> output;
  auto input = Prepare(inputs, context, &output);
  if (!input) return false;
  FullConnection_SSE_BC_Float_M1_Full_Connection(input->DataAs<float>(), static_cast<int>(output->shape.dims[0]),
                                                 static_cast<int>(in_features_), static_cast<int>(out_features_),
                                                 weight_->DataAs<float>(), BiasData(), output->DataAs<float>());
  outputs.assign(1, output);
  return true;
}

bool FullConnection_SSE_C4HW4_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                std::shared_ptr<runtime::Context> context) const {
  // The output is CHW {outFeatures, 1, 1}: the portable bias fill serves.
  return ForwardMap(inputs, outputs, context, FillBias_MainMemory_CHW_Float_Fallback_M1,
                    FullConnection_SSE_C4HW4_Float_M1_Full_Connection);
}

}  // namespace kernel
}  // namespace tarn
