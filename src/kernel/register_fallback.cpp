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

// Recurrent layers.
// (recurrent includes)

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

  // Recurrent layers.
  // (recurrent registrations)

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

  // Quantisation converters.
  // (quantisation registrations)
}

}  // namespace kernel
}  // namespace tarn
