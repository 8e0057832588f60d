// The AVX routines and kernels of the normalisation, upsampling, softmax and
// clip tests, in the form the shared bodies of resampling_test_util.h read.
#pragma once

#include "kernel/cpu/resampling_test_util.h"
#include "kernel/cpu/avx/batchnorm/batchnorm.h"
#include "kernel/cpu/avx/clip/clip.h"
#include "kernel/cpu/avx/instancenorm/instancenorm.h"
#include "kernel/cpu/avx/softmax/softmax.h"
#include "kernel/cpu/avx/upsampling2d/upsampling2d.h"

namespace tarn {
namespace testing {

struct AvxForms {
  static constexpr unsigned kLanes = 8;
  static constexpr auto kAffine = kernel::functional::channel_affine_avx_f32;
  static constexpr auto kAffineBlocked = kernel::functional::channel_affine_c8hw8_avx_f32;
  static constexpr auto kMeanVar = kernel::functional::mean_var_avx_f32;
  static constexpr auto kUpsample = kernel::functional::upsample2d_avx_f32;
  static constexpr auto kUpsampleBlocked = kernel::functional::upsample2d_c8hw8_avx_f32;
  static constexpr auto kSoftmax = kernel::functional::softmax_avx_f32;
  static constexpr auto kClip = kernel::functional::clip_avx_f32;
  using BatchNormChw = kernel::BatchNorm2D_AVX_CHW_Float_M1;
  using BatchNormBlocked = kernel::BatchNorm2D_AVX_C8HW8_Float_M1;
  using InstanceNorm = kernel::InstanceNorm2D_AVX_CHW_Float_M1;
  using UpsampleChw = kernel::Upsampling2D_AVX_CHW_Float_M1;
  using UpsampleBlocked = kernel::Upsampling2D_AVX_C8HW8_Float_M1;
  using Softmax = kernel::Softmax_AVX_Float_M1;
  using Clip = kernel::Clip_AVX_Float_M1;
};

}  // namespace testing
}  // namespace tarn
