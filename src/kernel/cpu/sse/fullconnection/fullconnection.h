// SSE fully connected kernels.
#pragma once

#include "kernel/cpu/fallback/fullconnection/fullconnection_base.h"

namespace tarn {
namespace kernel {

// Flat vector, row-major weight; runs fullconnection_sse_c_f32_m2.
class FullConnection_SSE_C_Float_M1 : public FullConnectionKernelBase {
 public:
  ~FullConnection_SSE_C_Float_M1() override;
  TRN_KERNEL_NAME(FullConnection_SSE_C_Float_M1)
  FullConnection_SSE_C_Float_M1() : FullConnectionKernelBase(InputForm::kVector) {}
  TRN_LAYER_FORWARD
};

// Flat vector, weight re-ordered into 4x4 tiles in Config; both feature
// counts must be multiples of 4.
class FullConnection_SSE_C44_Float_M1 : public FullConnectionKernelBase {
 public:
  ~FullConnection_SSE_C44_Float_M1() override;
  TRN_KERNEL_NAME(FullConnection_SSE_C44_Float_M1)
  FullConnection_SSE_C44_Float_M1() : FullConnectionKernelBase(InputForm::kVector, WeightOrder::kTiles44, 4) {}
  TRN_LAYER_FORWARD
};

// Batch rows [batch, inFeatures] to [batch, outFeatures].
class FullConnection_SSE_BC_Float_M1 : public FullConnectionKernelBase {
 public:
  ~FullConnection_SSE_BC_Float_M1() override;
  TRN_KERNEL_NAME(FullConnection_SSE_BC_Float_M1)
  FullConnection_SSE_BC_Float_M1() : FullConnectionKernelBase(InputForm::kBatchRows) {}
  TRN_LAYER_FORWARD
};

// A C4HW4 map flattened in CHW order; the output is CHW {outFeatures, 1, 1}.
class FullConnection_SSE_C4HW4_Float_M1 : public FullConnectionKernelBase {
 public:
  ~FullConnection_SSE_C4HW4_Float_M1() override;
  TRN_KERNEL_NAME(FullConnection_SSE_C4HW4_Float_M1)
  FullConnection_SSE_C4HW4_Float_M1() : FullConnectionKernelBase(InputForm::kC4HW4) {}
  TRN_LAYER_FORWARD
};

}  // namespace kernel
}  // namespace tarn
