// The portable transposed convolution: direct scatter loops, the reference of
// the family.
#pragma once

#include "kernel/cpu/fallback/conv_transpose2d/conv_transpose2d_base.h"

namespace tarn {
namespace kernel {

// Any kernel, stride, dilation, groups and signed padding on CHW; the weight
// stays as stored. Fills the enlarged output with the bias, scatters every
// input pixel through the kernel into it and crops the positive paddings,
// all with its own loops.
class ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1 : public ConvTranspose2DKernelBase {
 public:
  ~ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1() override;
  TRN_KERNEL_NAME(ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1)
  ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1()
      : ConvTranspose2DKernelBase(Port::CHW(), 0, 0, 0, false, WeightOrder::kStored) {}
  TRN_LAYER_FORWARD
};

}  // namespace kernel
}  // namespace tarn
