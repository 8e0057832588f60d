// The fully connected layer as one CBLAS matrix-vector product.
#pragma once

#include "kernel/cpu/fallback/fullconnection/fullconnection_base.h"

namespace tarn {
namespace kernel {

class FullConnection_SGEMM_C_Float_M1 : public FullConnectionKernelBase {
 public:
  ~FullConnection_SGEMM_C_Float_M1() override;
  TRN_KERNEL_NAME(FullConnection_SGEMM_C_Float_M1)
  FullConnection_SGEMM_C_Float_M1() : FullConnectionKernelBase(InputForm::kVector) {}
  TRN_LAYER_FORWARD
};

}  // namespace kernel
}  // namespace tarn
