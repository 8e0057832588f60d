// AVX convolution: an 8-lane column matrix followed by the AVX C8HW8 core.
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_base.h"

namespace tarn {
namespace kernel {

// One group on C8HW8: pad, column matrix, the AVX C8HW8 core; weight GN8C8HW8c8n.
class Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1 : public Conv2DKernelBase {
 public:
  ~Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1() override;
  TRN_KERNEL_NAME(Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1)
  Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1()
      : Conv2DKernelBase(runtime::TensorShape::C8HW8, 8, true, Geometry::OneGroup(), WeightOrder::kGN8C8HW8c8n) {}
  TRN_LAYER_FORWARD
};

}  // namespace kernel
}  // namespace tarn
