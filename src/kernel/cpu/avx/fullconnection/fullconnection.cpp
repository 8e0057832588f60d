#include "kernel/cpu/avx/fullconnection/fullconnection.h"

#include "tarn/kernel/fullconnection.h"
#include "tarn/kernel/tensor_helpers.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {

#define TRN_FC_PREPARE                                        \
  std::shared_ptr<runtime::TensorCPU> output;                 \
  auto input = Prepare(inputs, context, &output);             \
  if (!input) return false;                                   \
  float* bias = bias_ ? bias_->DataAs<float>() : nullptr;     \
  (void)bias;

bool FullConnection_AVX_C_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                            std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                            std::shared_ptr<runtime::Context> context) const {
  TRN_FC_PREPARE
  native::fc_c_f32_avx_m0(input->DataAs<float>(), static_cast<int>(in_features_), static_cast<int>(out_features_),
                          weight_->DataAs<float>(), bias, output->DataAs<float>());
  outputs.assign(1, output);
  return true;
}

bool FullConnection_AVX_C_Float_M2::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                            std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                            std::shared_ptr<runtime::Context> context) const {
  TRN_FC_PREPARE
  FullConnection_AVX_C_Float_M2_Full_Connection(input->DataAs<float>(), static_cast<int>(in_features_),
                                                static_cast<int>(out_features_), weight_->DataAs<float>(), bias,
                                                output->DataAs<float>());
  outputs.assign(1, output);
  return true;
}

bool FullConnection_AVX_C_Float_M3::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                            std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                            std::shared_ptr<runtime::Context> context) const {
  TRN_FC_PREPARE
  FullConnection_AVX_C_Float_M3_Full_Connection(input->DataAs<float>(), static_cast<int>(in_features_),
                                                static_cast<int>(out_features_), weight_->DataAs<float>(), bias,
                                                output->DataAs<float>());
  outputs.assign(1, output);
  return true;
}

bool FullConnection_AVX_C88_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                              std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                              std::shared_ptr<runtime::Context> context) const {
  TRN_FC_PREPARE
  native::fc_c88_f32_avx_m0(input->DataAs<float>(), static_cast<int>(in_features_), static_cast<int>(out_features_),
                            weight_->DataAs<float>(), bias, output->DataAs<float>());
  outputs.assign(1, output);
  return true;
}

bool FullConnection_AVX_C8HW8_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                std::shared_ptr<runtime::Context> context) const {
  TRN_FC_PREPARE
  if (bias_) {
    functional::FillBias_AVX_C8HW8_Float_M1(output, bias_);
  } else {
    FillZero_MainMemory_Float_Fallback_M1(output);
  }
  const auto& d = input->shape.dims;
  FullConnection_AVX_C8HW8_Float_M1_Full_Connection(input->DataAs<float>(), static_cast<int>(MapChannels(input->shape)),
                                                    static_cast<int>(d[1]), static_cast<int>(d[2]),
                                                    static_cast<int>(out_features_), weight_->DataAs<float>(),
                                                    output->DataAs<float>());
  outputs.assign(1, output);
  return true;
}

}  // namespace kernel
}  // namespace tarn
