// Registration of the SGEMM kernels. Compiled for baseline x86-64: the
// registration itself must run on any processor.
#include "tarn/kernel/register.h"

// Convolution and fully connected kernels.
// (conv includes)
#include "kernel/cpu/sgemm/conv2d/conv2d.h"
#include "kernel/cpu/sgemm/fullconnection/fullconnection.h"

// Element kernels: activations, element-wise, pooling, layout transforms.
// (element includes)

// Specialised convolutions.
// (specialised conv includes)

// Depthwise and transposed convolutions.
// (depthwise conv includes)

// Recurrent layers.
// (recurrent includes)
#include "kernel/cpu/sgemm/recurrent/recurrent.h"

// Shape operations, concatenation, padding and Gemm.
// (shape includes)

// Normalisation, resampling, softmax, clip and grid sampling.
// (resampling includes)

// Quantisation converters.
// (quantisation includes)

namespace tarn {
namespace kernel {

void RegisterSGEMM(runtime::KernelRegistry& registry) {
  // Convolution and fully connected kernels.
  // (conv registrations)
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, FullConnection_SGEMM_C_Float_M1);
  // Element kernels.
  // (element registrations)

  // Specialised convolutions.
  // (specialised conv registrations)

  // Depthwise and transposed convolutions.
  // (depthwise conv registrations)

  // Recurrent layers.
  // (recurrent registrations)
  TRN_REGISTER_KERNEL(registry, LSTMCell_SGEMM_C_F32_M1);
  TRN_REGISTER_KERNEL(registry, LSTM_SGEMM_SC_F32_M1);
  TRN_REGISTER_KERNEL(registry, GRUCell_SGEMM_C_F32_M1);
  TRN_REGISTER_KERNEL(registry, GRU_SGEMM_SC_F32_M1);
  TRN_REGISTER_KERNEL(registry, GRUCell_SSE_SGEMM_C_F32_M2);
  TRN_REGISTER_KERNEL(registry, GRU_SSE_SGEMM_SC_F32_M2);

  // Shape operations, concatenation, padding and Gemm.
  // (shape registrations)

  // Normalisation, resampling, softmax, clip and grid sampling.
  // (resampling registrations)

  // Quantisation converters.
  // (quantisation registrations)

  (void)registry;
}

void RegisterSGEMM(runtime::InferenceParamRegistry& registry) {
  registry.Register("InferenceParamConv2DQuant", [] { return runtime::CreateInferenceParamPtr("InferenceParamConv2DQuant"); },
                    false);
}

}  // namespace kernel
}  // namespace tarn
