// Registration of the SSE kernels. Compiled for baseline x86-64: the
// registration itself must run on any processor.
#include "tarn/kernel/register.h"

// Convolution and fully connected kernels.
// (conv includes)
#include "kernel/cpu/sse/conv2d/conv2d.h"
#include "kernel/cpu/sse/fullconnection/fullconnection.h"

// Element kernels: activations, element-wise, pooling, layout transforms.
// (element includes)
#include "kernel/cpu/sse/activation/activation.h"
#include "kernel/cpu/sse/elementwise/elementwise.h"
#include "kernel/cpu/sse/pooling/pooling.h"
#include "kernel/cpu/sse/layout_transform/layout_transform.h"

// Specialised convolutions.
// (specialised conv includes)
#include "kernel/cpu/sse/conv2d_image/conv2d_image.h"
#include "kernel/cpu/sse/conv2d_k1x1/conv2d_k1x1.h"
#include "kernel/cpu/sse/conv2d_k3x3/conv2d_k3x3.h"
#include "kernel/cpu/sse/conv2d_k1x3_k3x1/conv2d_k1x3_k3x1.h"
#include "kernel/cpu/sse/conv2d_winograd/conv2d_winograd.h"
#include "kernel/cpu/sse/conv2d_int16/conv2d_int16.h"

// Depthwise and transposed convolutions.
// (depthwise conv includes)
#include "kernel/cpu/sse/depthwise_conv2d/depthwise_conv2d.h"
#include "kernel/cpu/sse/conv_transpose2d/conv_transpose2d.h"

// Recurrent layers.
// (recurrent includes)
#include "kernel/cpu/sse/recurrent/recurrent.h"

// Shape operations, concatenation, padding and Gemm.
// (shape includes)
#include "kernel/cpu/sse/concat/concat.h"
#include "kernel/cpu/sse/pad/pad.h"
#include "kernel/cpu/sse/pixel_shuffle/pixel_shuffle.h"

// Normalisation, resampling, softmax, clip and grid sampling.
// (resampling includes)
#include "kernel/cpu/sse/batchnorm/batchnorm.h"
#include "kernel/cpu/sse/clip/clip.h"
#include "kernel/cpu/sse/instancenorm/instancenorm.h"
#include "kernel/cpu/sse/softmax/softmax.h"
#include "kernel/cpu/sse/upsampling2d/upsampling2d.h"

// Quantisation converters.
// (quantisation includes)
#include "kernel/cpu/sse/quantisation/quantisation_c8hw8.h"

namespace tarn {
namespace kernel {

void RegisterSSE(runtime::KernelRegistry& registry) {
  // Convolution and fully connected kernels.
  // (conv registrations)
  TRN_REGISTER_KERNEL(registry, Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1);
  TRN_REGISTER_KERNEL(registry, Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, FullConnection_SSE_C_Float_M1);
  TRN_REGISTER_KERNEL(registry, FullConnection_SSE_C44_Float_M1);
  TRN_REGISTER_KERNEL(registry, FullConnection_SSE_BC_Float_M1);
  TRN_REGISTER_KERNEL(registry, FullConnection_SSE_C4HW4_Float_M1);
  // Element kernels.
  // (element registrations)
  TRN_REGISTER_KERNEL(registry, ReLU_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, ReLU6_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, Sigmoid_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, TanH_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, HSigmoid_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, HSwish_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, Leaky_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, PReLU_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, ReLU_Inplace_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, HSigmoid_Inplace_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, Elementwise_Add_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, Elementwise_Sub_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, Elementwise_Mul_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, Elementwise_Div_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, Elementwise_Max_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, Elementwise_Min_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1);
  TRN_REGISTER_KERNEL(registry, LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1);
  TRN_REGISTER_KERNEL(registry, LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2);
  TRN_REGISTER_KERNEL(registry, LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1);
  TRN_REGISTER_KERNEL(registry, LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1);
  TRN_REGISTER_KERNEL(registry, LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1);
  TRN_REGISTER_KERNEL(registry, LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2);
  TRN_REGISTER_KERNEL(registry, LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1);
  TRN_REGISTER_KERNEL(registry, LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1);

  // Specialised convolutions.
  // (specialised conv registrations)
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1);

  // Depthwise and transposed convolutions.
  // (depthwise conv registrations)
  TRN_REGISTER_KERNEL(registry, Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1);

  // Recurrent layers.
  // (recurrent registrations)
  TRN_REGISTER_KERNEL(registry, RNNCell_SSE_C_F32_M1);
  TRN_REGISTER_KERNEL(registry, RNN_SSE_SC_F32_M1);
  TRN_REGISTER_KERNEL(registry, LSTMCell_SSE_C_F32_M1);
  TRN_REGISTER_KERNEL(registry, LSTM_SSE_SC_F32_M1);
  TRN_REGISTER_KERNEL(registry, GRUCell_SSE_C_F32_M1);
  TRN_REGISTER_KERNEL(registry, GRU_SSE_SC_F32_M1);

  // Shape operations, concatenation, padding and Gemm.
  // (shape registrations)
  TRN_REGISTER_KERNEL(registry, Concatenate_SSE_C4HW4_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pad2d_SSE_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pad2d_SSE_C4HW4_Float_M1);
  TRN_REGISTER_KERNEL(registry, PixelShuffle_SSE_CHW_Float_M1);

  // Normalisation, resampling, softmax, clip and grid sampling.
  // (resampling registrations)
  TRN_REGISTER_KERNEL(registry, BatchNorm2D_SSE_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, BatchNorm2D_SSE_C4HW4_Float_M1);
  TRN_REGISTER_KERNEL(registry, InstanceNorm2D_SSE_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Upsampling2D_SSE_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Upsampling2D_SSE_C4HW4_Float_M1);
  TRN_REGISTER_KERNEL(registry, Softmax_SSE_Float_M1);
  TRN_REGISTER_KERNEL(registry, Clip_SSE_Float_M1);

  // Quantisation converters.
  // (quantisation registrations)
  TRN_REGISTER_KERNEL(registry, Quantize_SSE_C8HW8_Float_To_Int16_M1);
  TRN_REGISTER_KERNEL(registry, DeQuantize_SSE_C8HW8_Int16_To_Float_M1);

  (void)registry;
}

void RegisterSSE(runtime::InferenceParamRegistry& registry) {
  for (const char* name : {"InferenceParamConv2DQuant", "InferenceParamUpsampling2DQuant"}) {
    registry.Register(name, [name] { return runtime::CreateInferenceParamPtr(name); }, false);
  }
}

}  // namespace kernel
}  // namespace tarn
