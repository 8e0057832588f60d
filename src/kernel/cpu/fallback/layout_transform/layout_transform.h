// Skeleton of the layout-transform kernels: shapes and checks of a move from
// one layout to another.
#pragma once

#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

class LayoutTransformBase : public KernelBase {
 public:
  LayoutTransformBase(runtime::TensorShape::Layout from, runtime::TensorShape::Layout to) : from_(from), to_(to) {}
  // Any record: a transform has no parameters.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  // Same channels, height and width in the target layout; nothing for a shape
  // the transform cannot take.
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One float main-memory tensor in the source layout: CHW of rank 3, blocked
  // of rank 4 with 4 (8) lanes; to C4HW4 C % 4 == 0, to C8HW8 from CHW
  // C % 8 == 0 and from C4HW4 an even block count.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  // One float main-memory tensor in the target layout.
  std::int32_t IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const override;

 protected:
  using TransformFn = void (*)(const std::shared_ptr<runtime::TensorCPU>&, const std::shared_ptr<runtime::TensorCPU>&);
  bool ForwardTransform(TransformFn fn, const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                        std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                        const std::shared_ptr<runtime::Context>& context) const;

 private:
  runtime::TensorShape::Layout from_, to_;
};

// The destructor is declared first and defined in baseline code, so the
// vtable, GetName and the destructor of every family's class are compiled
// without family instructions: any kernel can be created and named on any
// x86-64. Only Forward runs family code.
#define TRN_LAYOUT_TRANSFORM_KERNEL(cls, from, to)                                       \
  class cls : public LayoutTransformBase {                                               \
   public:                                                                               \
    ~cls() override;                                                                     \
    TRN_KERNEL_NAME(cls)                                                                 \
    cls() : LayoutTransformBase(runtime::TensorShape::from, runtime::TensorShape::to) {} \
    bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,            \
                 std::vector<std::shared_ptr<runtime::Tensor>>& outputs,                 \
                 std::shared_ptr<runtime::Context> context) const override;              \
  };

}  // namespace kernel
}  // namespace tarn
