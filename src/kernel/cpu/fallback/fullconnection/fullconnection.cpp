#include "kernel/cpu/fallback/fullconnection/fullconnection.h"

#include "tarn/kernel/fullconnection.h"

namespace tarn {
namespace kernel {

bool FullConnection_Fallback_C_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                 std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                 std::shared_ptr<runtime::Context> context) const {
  return ForwardWith(inputs, outputs, context, functional::fullconnection_fallback_c_f32_m1);
}

}  // namespace kernel
}  // namespace tarn
