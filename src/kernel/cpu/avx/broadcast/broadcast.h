// Per-channel multiply of the blocked layouts (AVX2 + FMA): a C x 1 x 1 scale
// times a C x H x W tensor, whichever input the scale is.
#pragma once

#include "kernel/cpu/fallback/broadcast/broadcast.h"

namespace tarn {
namespace kernel {

class BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1 : public BroadcastChannelMulBase {
 public:
  TRN_KERNEL_NAME(BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1)
  ~BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1() override;  // defined in baseline code: see TRN_ACTIVATION_KERNEL
  BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1() : BroadcastChannelMulBase(4, runtime::TensorShape::C4HW4) {}
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;
};

class BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1 : public BroadcastChannelMulBase {
 public:
  TRN_KERNEL_NAME(BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1)
  ~BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1() override;  // defined in baseline code: see TRN_ACTIVATION_KERNEL
  BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1() : BroadcastChannelMulBase(8, runtime::TensorShape::C8HW8) {}
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;
};

}  // namespace kernel
}  // namespace tarn
