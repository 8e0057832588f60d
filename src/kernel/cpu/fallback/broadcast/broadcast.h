// Broadcast kernels: the portable one for any shapes and operation, and the
// skeleton of the blocked per-channel multiply kernels.
#pragma once

#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

class BroadcastOperator_Fallback_Float_M1 : public KernelBase {
 public:
  TRN_KERNEL_NAME(BroadcastOperator_Fallback_Float_M1)
  // A null inference parameter and any BroadcastOperatorInfo.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // Two float main-memory tensors of the same layout whose dims broadcast.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  // False when the record's code has no operation (outside 0 to 5).
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

  std::shared_ptr<runtime::BroadcastOperatorInfo> info;
};

// A per-channel scale [B, 1, 1, lanes] times data [B, H, W, lanes], either order.
class BroadcastChannelMulBase : public KernelBase {
 public:
  BroadcastChannelMulBase(unsigned lanes, runtime::TensorShape::Layout layout) : lanes_(lanes), layout_(layout) {}
  // A null inference parameter and a BroadcastOperatorInfo with code 2.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  // The data operand's shape.
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // Both float main-memory tensors in the kernel's layout with `lanes` lanes and
  // the same block count; one of them has H = W = 1.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;

  std::shared_ptr<runtime::BroadcastOperatorInfo> info;

 protected:
  // Index of the scale operand: the first when its H and W are both 1.
  static size_t ScaleIndex(const std::vector<runtime::TensorShape>& shapes);
  using MulFn = void (*)(const float*, const float*, std::uint32_t, std::uint32_t, float*);
  bool ForwardMul(MulFn fn, const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                  std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                  const std::shared_ptr<runtime::Context>& context) const;

 private:
  unsigned lanes_;
  runtime::TensorShape::Layout layout_;
};

}  // namespace kernel
}  // namespace tarn
