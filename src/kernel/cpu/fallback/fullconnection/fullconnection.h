// The portable fully connected kernel, the reference of the family.
#pragma once

#include "kernel/cpu/fallback/fullconnection/fullconnection_base.h"

namespace tarn {
namespace kernel {

class FullConnection_Fallback_C_Float_M1 : public FullConnectionKernelBase {
 public:
  ~FullConnection_Fallback_C_Float_M1() override;
  TRN_KERNEL_NAME(FullConnection_Fallback_C_Float_M1)
  FullConnection_Fallback_C_Float_M1() : FullConnectionKernelBase(InputForm::kVector) {}
  TRN_LAYER_FORWARD
};

}  // namespace kernel
}  // namespace tarn
