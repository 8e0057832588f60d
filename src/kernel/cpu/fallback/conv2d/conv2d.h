// The portable convolution: direct loops, the reference of the family.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_base.h"

namespace tarn {
namespace kernel {

// Any kernel, stride, dilation and groups on CHW; weight kept GNCHW.
class Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1 : public Conv2DKernelBase {
 public:
  ~Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1() override;
  TRN_KERNEL_NAME(Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1)
  Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1()
      : Conv2DKernelBase(runtime::TensorShape::CHW, 1, false, Geometry::Any(), WeightOrder::kGNCHW) {}
  TRN_LAYER_FORWARD
};

}  // namespace kernel
}  // namespace tarn
