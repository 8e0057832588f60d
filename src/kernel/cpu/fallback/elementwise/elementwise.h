// Element-wise kernels: the skeleton of every family and the portable kernel.
#pragma once

#include <string>

#include "tarn/kernel/elementwise.h"
#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

// True when both shapes agree in dims, type, layout, location and extra.
bool SameTensorShape(const runtime::TensorShape& a, const runtime::TensorShape& b);

// One operation per class, named by the class and run by the element function
// it hands over; operands of identical shape.
class ElementwiseKernelBase : public KernelBase {
 public:
  using BinaryFn = void (*)(const float*, const float*, const std::uint32_t&, float*);
  ElementwiseKernelBase(const char* op, BinaryFn fn) : fn_(fn), op_(op) {}
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
  // The first operand's element count through both buffers; false while there is no operation.
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

 protected:
  BinaryFn fn_;

 private:
  const char* op_;  // null: any operation
};

// Any operation 0 to 3, chosen in Config; operands of equal element count.
class Elementwise_Fallback_Float_M1 : public ElementwiseKernelBase {
 public:
  TRN_KERNEL_NAME(Elementwise_Fallback_Float_M1)
  Elementwise_Fallback_Float_M1() : ElementwiseKernelBase(nullptr, nullptr) {}
  // Turns "op_type" into its name; an unknown code fails "Invalid element wise type".
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  // Two float tensors in main memory holding the same number of elements.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;

  std::string op_name;
};

// The destructor is declared first and defined in baseline code, so the
// vtable, GetName, Forward and the destructor of every family's class are
// compiled without family instructions: any kernel can be created and named
// on any x86-64. Family code runs only inside the function handed to the base.
#define TRN_ELEMENTWISE_KERNEL(cls, op, fn)              \
  class cls : public ElementwiseKernelBase {             \
   public:                                               \
    ~cls() override;                                     \
    TRN_KERNEL_NAME(cls)                                 \
    cls() : ElementwiseKernelBase(op, functional::fn) {} \
  };

}  // namespace kernel
}  // namespace tarn
