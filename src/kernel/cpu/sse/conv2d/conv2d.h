// SSE convolutions: im2col followed by a 1x1 core.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_base.h"

namespace tarn {
namespace kernel {

// Any geometry and groups on CHW: pad, CHW im2col, the CHW core once per group
// on that group's rows of the column matrix (the GNCHW weight as it is).
class Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1 : public Conv2DKernelBase {
 public:
  ~Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1() override;
  TRN_KERNEL_NAME(Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1)
  Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1()
      : Conv2DKernelBase(runtime::TensorShape::CHW, 1, true, Geometry::Any(), WeightOrder::kGNCHW) {}
  TRN_LAYER_FORWARD
};

// One group on C4HW4: pad, C4HW4 im2col, the C4HW4 core; weight GN4C4HW4c4n.
class Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1 : public Conv2DKernelBase {
 public:
  ~Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1() override;
  TRN_KERNEL_NAME(Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1)
  Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1()
      : Conv2DKernelBase(runtime::TensorShape::C4HW4, 4, true, Geometry::OneGroup(), WeightOrder::kGN4C4HW4c4n) {}
  TRN_LAYER_FORWARD
};

// One group on C8HW8: pad, an 8-lane column matrix, the SSE C8HW8 core;
// weight GN8C8HW8c8n.
class Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1 : public Conv2DKernelBase {
 public:
  ~Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1() override;
  TRN_KERNEL_NAME(Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1)
  Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1()
      : Conv2DKernelBase(runtime::TensorShape::C8HW8, 8, true, Geometry::OneGroup(), WeightOrder::kGN8C8HW8c8n) {}
  TRN_LAYER_FORWARD
};

}  // namespace kernel
}  // namespace tarn
