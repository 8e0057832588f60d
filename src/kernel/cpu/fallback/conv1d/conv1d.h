// The portable 1-D convolution on CL tensors.
#pragma once

#include "kernel/cpu/fallback/conv1d/conv1d_base.h"

namespace tarn {
namespace kernel {

// Any kernel length, stride, dilation and groups: for each group, output
// channel and input channel, the channel's partial sum over the taps is added
// to the output (the 1-D counterpart of the direct 2-D fallback).
class Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1 : public Conv1DKernelBase {
 public:
  ~Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1() override;
  TRN_KERNEL_NAME(Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1)
  TRN_LAYER_FORWARD
};

}  // namespace kernel
}  // namespace tarn
