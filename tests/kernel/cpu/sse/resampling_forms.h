// The SSE routines and kernels of the normalisation, upsampling, softmax and
// clip tests, in the form the shared bodies of resampling_test_util.h read.
#pragma once

#include "kernel/cpu/resampling_test_util.h"
#include "kernel/cpu/sse/batchnorm/batchnorm.h"
#include "kernel/cpu/sse/clip/clip.h"
#include "kernel/cpu/sse/instancenorm/instancenorm.h"
#include "kernel/cpu/sse/softmax/softmax.h"
#include "kernel/cpu/sse/upsampling2d/upsampling2d.h"

namespace tarn {
namespace testing {

struct SseForms {
  static constexpr unsigned kLanes = 4;
  static constexpr auto kAffine = kernel::functional::channel_affine_sse_f32;
  static constexpr auto kAffineBlocked = kernel::functional::channel_affine_c4hw4_sse_f32;
  static constexpr auto kMeanVar = kernel::functional::mean_var_sse_f32;
  static constexpr auto kUpsample = kernel::functional::upsample2d_sse_f32;
  static constexpr auto kUpsampleBlocked = kernel::functional::upsample2d_c4hw4_sse_f32;
  static constexpr auto kSoftmax = kernel::functional::softmax_sse_f32;
  static constexpr auto kClip = kernel::functional::clip_sse_f32;
  using BatchNormChw = kernel::BatchNorm2D_SSE_CHW_Float_M1;
  using BatchNormBlocked = kernel::BatchNorm2D_SSE_C4HW4_Float_M1;
  using InstanceNorm = kernel::InstanceNorm2D_SSE_CHW_Float_M1;
  using UpsampleChw = kernel::Upsampling2D_SSE_CHW_Float_M1;
  using UpsampleBlocked = kernel::Upsampling2D_SSE_C4HW4_Float_M1;
  using Softmax = kernel::Softmax_SSE_Float_M1;
  using Clip = kernel::Clip_SSE_Float_M1;
};

}  // namespace testing
}  // namespace tarn
