// Registration of the portable kernels. Compiled for baseline x86-64 like
// every registration file: registering must not execute family instructions.
#include "kernel/cpu/fallback/input/input.h"
#include "tarn/kernel/register.h"

// Convolution and fully connected kernels.
// (conv includes)
#include "kernel/cpu/fallback/conv1d/conv1d.h"
#include "kernel/cpu/fallback/conv2d/conv2d.h"
#include "kernel/cpu/fallback/fullconnection/fullconnection.h"

// Element kernels: activations, element-wise, pooling, layout transforms.
// (element includes)
#include "kernel/cpu/fallback/activation/activation.h"
#include "kernel/cpu/fallback/elementwise/elementwise.h"
#include "kernel/cpu/fallback/broadcast/broadcast.h"
#include "kernel/cpu/fallback/tensor_arithmetic/tensor_arithmetic.h"
#include "kernel/cpu/fallback/pooling/pooling.h"

// Specialised convolutions.
// (specialised conv includes)

// Depthwise and transposed convolutions.
// (depthwise conv includes)
#include "kernel/cpu/fallback/conv_transpose2d/conv_transpose2d.h"

// Recurrent layers.
// (recurrent includes)
#include "kernel/cpu/fallback/recurrent/recurrent.h"
#include "kernel/cpu/sgemm/recurrent/recurrent.h"

// Shape operations, concatenation, padding and Gemm.
// (shape includes)
#include "kernel/cpu/fallback/concat/concat.h"
#include "kernel/cpu/fallback/gemm/gemm.h"
#include "kernel/cpu/fallback/pad/pad.h"
#include "kernel/cpu/fallback/pixel_shuffle/pixel_shuffle.h"
#include "kernel/cpu/fallback/space_to_depth/space_to_depth.h"
#include "kernel/cpu/sgemm/gemm/gemm.h"
#include "kernel/crossplatform/expand/expand.h"
#include "kernel/crossplatform/getitem/getitem.h"
#include "kernel/crossplatform/reshape/reshape.h"
#include "kernel/crossplatform/slice/slice.h"
#include "kernel/crossplatform/squeeze/squeeze.h"
#include "kernel/crossplatform/transpose/transpose.h"
#include "kernel/crossplatform/unsqueeze/unsqueeze.h"

// Normalisation, resampling, softmax, clip and grid sampling.
// (resampling includes)
#include "kernel/cpu/fallback/adaptive_max_pooling/adaptive_max_pooling.h"
#include "kernel/cpu/fallback/batchnorm/batchnorm.h"
#include "kernel/cpu/fallback/clip/clip.h"
#include "kernel/cpu/fallback/gridsample/gridsample.h"
#include "kernel/cpu/fallback/instancenorm/instancenorm.h"
#include "kernel/cpu/fallback/softmax/softmax.h"
#include "kernel/cpu/fallback/sqfc_conv2d/sqfc_conv2d.h"
#include "kernel/cpu/fallback/upsampling2d/upsampling2d.h"

// Quantisation converters.
// (quantisation includes)

namespace tarn {
namespace kernel {

// The layout-independent shape operations shared by every platform.
void Register_CrossPlatform_Fallback(runtime::KernelRegistry& registry) {
  TRN_REGISTER_KERNEL(registry, TensorReshape_Fallback_M1);
  TRN_REGISTER_KERNEL(registry, TensorSqueeze_Fallback_M1);
  TRN_REGISTER_KERNEL(registry, TensorUnSqueeze_Fallback_M1);
  TRN_REGISTER_KERNEL(registry, TensorTranspose_Fallback_M1);
  TRN_REGISTER_KERNEL(registry, TensorExpand_Fallback_M1);
  TRN_REGISTER_KERNEL(registry, TensorSlice_Fallback_M1);
  TRN_REGISTER_KERNEL(registry, TensorGetItem_Fallback_M1);
}

void RegisterFallback(runtime::KernelRegistry& registry) {
  TRN_REGISTER_KERNEL(registry, Input_Fallback_M1);
  // Convolution and fully connected kernels.
  // (conv registrations)
  TRN_REGISTER_KERNEL(registry, Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1);
  TRN_REGISTER_KERNEL(registry, FullConnection_Fallback_C_Float_M1);
  // Element kernels.
  // (element registrations)
  TRN_REGISTER_KERNEL(registry, ReLU_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, ReLU6_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, Sigmoid_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, TanH_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, HSigmoid_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, HSwish_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, Leaky_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, PReLU_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, Linear_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, Elementwise_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, BroadcastOperator_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, TensorArithmetic_Fallback_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Max_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pooling2D_Avg_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, AdaptivePooling2D_Avg_Fallback_CHW_Float_M1);

  // Specialised convolutions.
  // (specialised conv registrations)

  // Depthwise and transposed convolutions.
  // (depthwise conv registrations)
  TRN_REGISTER_KERNEL(registry, ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1);

  // Recurrent layers.
  // (recurrent registrations)
  TRN_REGISTER_KERNEL(registry, RNNCell_Fallback_C_F32_M1);
  TRN_REGISTER_KERNEL(registry, RNN_Fallback_SC_F32_M1);
  TRN_REGISTER_KERNEL(registry, LSTMCell_Fallback_C_F32_M1);
  TRN_REGISTER_KERNEL(registry, LSTM_Fallback_SC_F32_M1);
  TRN_REGISTER_KERNEL(registry, GRUCell_Fallback_C_F32_M1);
  TRN_REGISTER_KERNEL(registry, GRU_Fallback_SC_F32_M1);
  // The CBLAS simple cell and stack run on any x86-64 and sit with the portable kernels.
  TRN_REGISTER_KERNEL(registry, RNNCell_SGEMM_C_F32_M1);
  TRN_REGISTER_KERNEL(registry, RNN_SGEMM_SC_F32_M1);

  // Shape operations, concatenation, padding and Gemm.
  // (shape registrations)
  TRN_REGISTER_KERNEL(registry, Concatenate_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pad1d_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, Pad2d_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, PixelShuffle_Fallback_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, SpaceToDepth_Fallback_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Gemm_Fallback_Float_M1);
  // Runs on the CBLAS; registered here since the SGEMM family's slots hold
  // the convolution, fully connected and recurrent products.
  TRN_REGISTER_KERNEL(registry, Gemm_SGEMM_Float_M1);

  // Normalisation, resampling, softmax, clip and grid sampling.
  // (resampling registrations)
  TRN_REGISTER_KERNEL(registry, BatchNorm2D_Fallback_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, BatchNorm1D_Fallback_CL_Float_M1);
  TRN_REGISTER_KERNEL(registry, InstanceNorm2D_Fallback_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Upsampling2D_Fallback_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, Softmax_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, Clip_Fallback_Float_M1);
  TRN_REGISTER_KERNEL(registry, GridSample_Fallback_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, AdaptivePooling2D_Max_Fallback_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1);
  TRN_REGISTER_KERNEL(registry, SQFCConv2DFoldedBN_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1);

  // Quantisation converters.
  // (quantisation registrations)
}

}  // namespace kernel
}  // namespace tarn
