// Element-wise kernels: the portable one and the skeleton of the one-operation
// SSE and AVX kernels.
#pragma once

#include <string>

#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

// True when both shapes agree in dims, type, layout, location and extra.
bool SameTensorShape(const runtime::TensorShape& a, const runtime::TensorShape& b);

// Any operation 0 to 3, chosen in Config; operands of equal element count.
class Elementwise_Fallback_Float_M1 : public KernelBase {
 public:
  TRN_KERNEL_NAME(Elementwise_Fallback_Float_M1)
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  // Turns "op_type" into its name; an unknown code fails "Invalid element wise type".
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // Two float tensors in main memory holding the same number of elements.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

  std::string op_name;
};

// One operation per class, named by the class; operands of identical shape.
class ElementwiseKernelBase : public KernelBase {
 public:
  explicit ElementwiseKernelBase(const char* op) : op_(op) {}
  // A null inference parameter, an ElementWiseOperatorInfo, and a code whose
  // name is this kernel's operation. No code names "Max" or "Min", so those
  // kernels cannot be selected through a record.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // Two float main-memory tensors of identical shape (any one layout).
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;

 protected:
  using BinaryFn = void (*)(const float*, const float*, const std::uint32_t&, float*);
  bool ForwardBinary(BinaryFn fn, const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                     std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                     const std::shared_ptr<runtime::Context>& context) const;

 private:
  const char* op_;
};

// The destructor is declared first and defined in baseline code, so the
// vtable, GetName and the destructor of every family's class are compiled
// without family instructions: any kernel can be created and named on any
// x86-64. Only Forward runs family code.
#define TRN_ELEMENTWISE_KERNEL(cls, op)                                       \
  class cls : public ElementwiseKernelBase {                                  \
   public:                                                                    \
    ~cls() override;                                                          \
    TRN_KERNEL_NAME(cls)                                                      \
    cls() : ElementwiseKernelBase(op) {}                                      \
    bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, \
                 std::vector<std::shared_ptr<runtime::Tensor>>& outputs,      \
                 std::shared_ptr<runtime::Context> context) const override;   \
  };

}  // namespace kernel
}  // namespace tarn
