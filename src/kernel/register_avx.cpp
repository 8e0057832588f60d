// Registration of the AVX kernels. Compiled for baseline x86-64: the
// registration itself must run on any processor.
#include "tarn/kernel/register.h"

// Convolution and fully connected kernels.
// (conv includes)
#include "kernel/cpu/avx/conv1d/conv1d.h"
#include "kernel/cpu/avx/conv2d/conv2d.h"
#include "kernel/cpu/avx/fullconnection/fullconnection.h"

// Element kernels: activations, element-wise, pooling, layout transforms.
// (element includes)
#include "kernel/cpu/avx/activation/activation.h"
#include "kernel/cpu/avx/elementwise/elementwise.h"
#include "kernel/cpu/avx/broadcast/broadcast.h"
#include "kernel/cpu/avx/pooling/pooling.h"
#include "kernel/cpu/avx/layout_transform/layout_transform.h"

// Specialised convolutions.
// (specialised conv includes)
#include "kernel/cpu/avx/conv2d_image/conv2d_image.h"
#include "kernel/cpu/avx/conv2d_k1x1/conv2d_k1x1.h"
#include "kernel/cpu/avx/conv2d_k1x3/conv2d_k1x3.h"
#include "kernel/cpu/avx/conv2d_k3x3/conv2d_k3x3.h"
#include "kernel/cpu/avx/conv2d_k5x5/conv2d_k5x5.h"
#include "kernel/cpu/avx/im2col_sgemm/im2col_sgemm.h"
#include "kernel/cpu/avx/strassen/strassen.h"

// Depthwise and transposed convolutions.
// (depthwise conv includes)
#include "kernel/cpu/avx/depthwise_conv2d/depthwise_conv2d.h"
#include "kernel/cpu/avx/conv_transpose2d/conv_transpose2d.h"

// Recurrent layers.
// (recurrent includes)

// Shape operations, concatenation, padding and Gemm.
// (shape includes)
#include "kernel/cpu/avx/concat/concat.h"
#include "kernel/cpu/avx/pad/pad.h"
#include "kernel/cpu/avx/pixel_shuffle/pixel_shuffle.h"

// Normalisation, resampling, softmax, clip and grid sampling.
// (resampling includes)
#include "kernel/cpu/avx/batchnorm/batchnorm.h"
#include "kernel/cpu/avx/clip/clip.h"
#include "kernel/cpu/avx/gridsample/gridsample.h"
#include "kernel/cpu/avx/instancenorm/instancenorm.h"
#include "kernel/cpu/avx/softmax/softmax.h"
#include "kernel/cpu/avx/upsampling2d/upsampling2d.h"

// Quantisation converters.
// (quantisation includes)

namespace tarn {
namespace kernel {

void RegisterAVX(runtime::KernelRegistry& registry) {
  // Convolution and fully connected kernels.
  // (conv registrations)
  TRN_REGISTER_KERNEL(registry, Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, FullConnection_AVX_C_Float_M1);
  TRN_REGISTER_KERNEL(registry, FullConnection_AVX_C_Float_M2);
  TRN_REGISTER_KERNEL(registry, FullConnection_AVX_C_Float_M3);
  TRN_REGISTER_KERNEL(registry, FullConnection_AVX_C88_Float_M1);
  TRN_REGISTER_KERNEL(registry, FullConnection_AVX_C8HW8_Float_M1);
  // Element kernels.
  // (element registrations)
  TRN_REGISTER_KERNEL(registry, ReLU_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, ReLU6_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, Sigmoid_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, HSwish_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, Leaky_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, PReLU_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, Elementwise_Add_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, Elementwise_Sub_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, Elementwise_Mul_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, Elementwise_Div_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, Elementwise_Max_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, Elementwise_Min_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1);
  TRN_REGISTER_KERNEL(registry, LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1);
  TRN_REGISTER_KERNEL(registry, LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2);

  // Specialised convolutions.
  // (specialised conv registrations)
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M3);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_Strassen_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_TO_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K5x5_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K5x5_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Conv2d_K7x7_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1);

  // Depthwise and transposed convolutions.
  // (depthwise conv registrations)
  TRN_REGISTER_KERNEL(registry, Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1);
  TRN_REGISTER_KERNEL(registry, ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1);

  // Recurrent layers.
  // (recurrent registrations)

  // Shape operations, concatenation, padding and Gemm.
  // (shape registrations)
  TRN_REGISTER_KERNEL(registry, Concatenate_AVX_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pad2d_AVX_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pad2d_AVX_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, PixelShuffle_AVX_CHW_Float_M1);

  // Normalisation, resampling, softmax, clip and grid sampling.
  // (resampling registrations)
  TRN_REGISTER_KERNEL(registry, BatchNorm2D_AVX_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, BatchNorm2D_AVX_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, InstanceNorm2D_AVX_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Upsampling2D_AVX_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Upsampling2D_AVX_C8HW8_Float_M1);
  TRN_REGISTER_KERNEL(registry, Softmax_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, Clip_AVX_Float_M1);
  TRN_REGISTER_KERNEL(registry, GridSample_AVX_C8HW8_Float_M1);

  // Quantisation converters.
  // (quantisation registrations)

  (void)registry;
}

void RegisterAVX(runtime::InferenceParamRegistry& registry) {
  registry.Register("InferenceParamConv2DQuant", [] { return runtime::CreateInferenceParamPtr("InferenceParamConv2DQuant"); },
                    false);
}

}  // namespace kernel
}  // namespace tarn
