// The 1x1 convolution as one CBLAS matrix product.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_base.h"

namespace tarn {
namespace kernel {

// 1x1 kernel, stride 1, dilation 1, one group, CHW: output = W (N x C) times
// the input (C x H*W) with beta 0, then the bias added.
class Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1 : public Conv2DKernelBase {
 public:
  ~Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1() override;
  TRN_KERNEL_NAME(Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1)
  Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1()
      : Conv2DKernelBase(runtime::TensorShape::CHW, 1, false, Geometry::Fixed(1, 1, 1, 1), WeightOrder::kGNCHW) {}
  TRN_LAYER_FORWARD
};

}  // namespace kernel
}  // namespace tarn
