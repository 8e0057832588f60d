#include "kernel/cpu/avx/fullconnection/fullconnection.h"

#include "tarn/kernel/fullconnection.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {

bool FullConnection_AVX_C_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                            std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                            std::shared_ptr<runtime::Context> context) const {
  return ForwardWith(inputs, outputs, context, native::fc_c_f32_avx_m0);
}

bool FullConnection_AVX_C_Float_M2::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                            std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                            std::shared_ptr<runtime::Context> context) const {
  return ForwardWith(inputs, outputs, context, FullConnection_AVX_C_Float_M2_Full_Connection);
}

bool FullConnection_AVX_C_Float_M3::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                            std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                            std::shared_ptr<runtime::Context> context) const {
  return ForwardWith(inputs, outputs, context, FullConnection_AVX_C_Float_M3_Full_Connection);
}

bool FullConnection_AVX_C88_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                              std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                              std::shared_ptr<runtime::Context> context) const {
  return ForwardWith(inputs, outputs, context, native::fc_c88_f32_avx_m0);
}

bool FullConnection_AVX_C8HW8_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                std::shared_ptr<runtime::Context> context) const {
  return ForwardMap(inputs, outputs, context, functional::FillBias_AVX_C8HW8_Float_M1,
                    FullConnection_AVX_C8HW8_Float_M1_Full_Connection);
}

}  // namespace kernel
}  // namespace tarn
