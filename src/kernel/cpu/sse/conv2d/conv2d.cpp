#include "kernel/cpu/sse/conv2d/conv2d.h"

#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {

bool Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                        std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                        std::shared_ptr<runtime::Context> context) const {
  return ForwardByColumns(inputs, outputs, context,
                          {functional::Padding_HW_MainMemory_SSE_CHW_Float_M1, native::im2col_chw_f32_sse_m0,
                           functional::FillBias_SSE_CHW_Float_M1, native::conv2d_k1x1_s1x1_d1x1_g1_chw_f32_sse_m1});
}

bool Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                          std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                          std::shared_ptr<runtime::Context> context) const {
  return ForwardByColumns(inputs, outputs, context,
                          {functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1, native::im2col_c4hw4_f32_sse_m0,
                           functional::FillBias_SSE_C4HW4_Float_M1, native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_sse_m0});
}

bool Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                          std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                          std::shared_ptr<runtime::Context> context) const {
  return ForwardByColumns(inputs, outputs, context,
                          {functional::Padding_HW_MainMemory_SSE_C8HW8_Float_M1, native::im2col_c8hw8_f32_sse_m0,
                           functional::FillBias_SSE_C8HW8_Float_M1, native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_sse_m0});
}

}  // namespace kernel
}  // namespace tarn
