// Broadcast kernels: the portable one for any shapes and operation, and the
// skeleton of the blocked per-channel multiply kernels.
#pragma once

#include "tarn/kernel/broadcast.h"
#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

// The record of every broadcast kernel: a BroadcastOperatorInfo (with the code
// `only_code` when that is not negative) and a null inference parameter.
class BroadcastKernelBase : public KernelBase {
 public:
  explicit BroadcastKernelBase(int only_code = -1) : only_code_(only_code) {}
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;

  std::shared_ptr<runtime::BroadcastOperatorInfo> info;

 private:
  int only_code_;
};

// Any record code; Forward is false when the code has no operation (outside 0 to 5).
class BroadcastOperator_Fallback_Float_M1 : public BroadcastKernelBase {
 public:
  TRN_KERNEL_NAME(BroadcastOperator_Fallback_Float_M1)
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // Two float main-memory tensors of the same layout whose dims broadcast.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;
};

// A per-channel scale [B, 1, 1, lanes] times data [B, H, W, lanes], either
// order, by the multiply function the kernel class hands over; code 2 only.
class BroadcastChannelMulBase : public BroadcastKernelBase {
 public:
  using MulFn = void (*)(const float*, const float*, std::uint32_t, std::uint32_t, float*);
  BroadcastChannelMulBase(unsigned lanes, runtime::TensorShape::Layout layout, MulFn fn);
  // The data operand's shape.
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // Both float main-memory tensors in the kernel's layout with `lanes` lanes and
  // the same block count; one of them has H = W = 1.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

 private:
  // Index of the scale operand: the first when its H and W are both 1.
  static size_t ScaleIndex(const std::vector<runtime::TensorShape>& shapes);
  unsigned lanes_;
  runtime::TensorShape::Layout layout_;
  MulFn fn_;
};

// The destructor is declared first and defined in baseline code, so the
// vtable, GetName, Forward and the destructor of every family's class are
// compiled without family instructions: any kernel can be created and named
// on any x86-64. Family code runs only inside the function handed to the base.
#define TRN_CHANNEL_MUL_KERNEL(cls, lanes, layout, fn)                                      \
  class cls : public BroadcastChannelMulBase {                                              \
   public:                                                                                  \
    ~cls() override;                                                                        \
    TRN_KERNEL_NAME(cls)                                                                    \
    cls() : BroadcastChannelMulBase(lanes, runtime::TensorShape::layout, functional::fn) {} \
  };

}  // namespace kernel
}  // namespace tarn
