#include "kernel/cpu/sgemm/fullconnection/fullconnection.h"

#include "tarn/kernel/fullconnection.h"

namespace tarn {
namespace kernel {

bool FullConnection_SGEMM_C_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                              std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                              std::shared_ptr<runtime::Context> context) const {
  std::shared_ptr<runtime::TensorCPU> output;
  auto input = Prepare(inputs, context, &output);
  if (!input) return false;
  functional::fullconnection_sgemm_c_f32_m1(input->DataAs<float>(), in_features_, out_features_,
                                            weight_->DataAs<float>(), BiasData(), output->DataAs<float>());
  outputs.assign(1, output);
  return true;
}

}  // namespace kernel
}  // namespace tarn
