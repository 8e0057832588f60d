// AVX fully connected kernels.
#pragma once

#include "kernel/cpu/fallback/fullconnection/fullconnection_base.h"

namespace tarn {
namespace kernel {

// Flat vector, row-major weight; runs fc_c_f32_avx_m0.
class FullConnection_AVX_C_Float_M1 : public FullConnectionKernelBase {
 public:
  ~FullConnection_AVX_C_Float_M1() override;
  TRN_KERNEL_NAME(FullConnection_AVX_C_Float_M1)
  FullConnection_AVX_C_Float_M1() : FullConnectionKernelBase(InputForm::kVector) {}
  TRN_LAYER_FORWARD
};

// Flat vector, weight packed N8C88c8n (tiles rounded up with zero lanes), so
// any feature counts.
class FullConnection_AVX_C_Float_M2 : public FullConnectionKernelBase {
 public:
  ~FullConnection_AVX_C_Float_M2() override;
  TRN_KERNEL_NAME(FullConnection_AVX_C_Float_M2)
  FullConnection_AVX_C_Float_M2() : FullConnectionKernelBase(InputForm::kVector, WeightOrder::kN8C88c8n) {}
  TRN_LAYER_FORWARD
};

// Flat vector, row-major weight, eight rows per step.
class FullConnection_AVX_C_Float_M3 : public FullConnectionKernelBase {
 public:
  ~FullConnection_AVX_C_Float_M3() override;
  TRN_KERNEL_NAME(FullConnection_AVX_C_Float_M3)
  FullConnection_AVX_C_Float_M3() : FullConnectionKernelBase(InputForm::kVector) {}
  TRN_LAYER_FORWARD
};

// Flat vector, weight re-ordered into 8x8 tiles in Config; both feature
// counts must be multiples of 8.
class FullConnection_AVX_C88_Float_M1 : public FullConnectionKernelBase {
 public:
  ~FullConnection_AVX_C88_Float_M1() override;
  TRN_KERNEL_NAME(FullConnection_AVX_C88_Float_M1)
  FullConnection_AVX_C88_Float_M1() : FullConnectionKernelBase(InputForm::kVector, WeightOrder::kTiles88, 8) {}
  TRN_LAYER_FORWARD
};

// A C8HW8 map flattened in CHW order; the output is C8HW8
// {ceil(outFeatures / 8), 1, 1, 8} with zero tail lanes.
class FullConnection_AVX_C8HW8_Float_M1 : public FullConnectionKernelBase {
 public:
  ~FullConnection_AVX_C8HW8_Float_M1() override;
  TRN_KERNEL_NAME(FullConnection_AVX_C8HW8_Float_M1)
  FullConnection_AVX_C8HW8_Float_M1() : FullConnectionKernelBase(InputForm::kC8HW8, WeightOrder::kGN8C8HW8c8n) {}
  TRN_LAYER_FORWARD
};

}  // namespace kernel
}  // namespace tarn
