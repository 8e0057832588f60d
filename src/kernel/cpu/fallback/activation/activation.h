// Activation kernels: the shared skeleton of every family and the portable
// kernels.
#pragma once

#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

// One float tensor in, one out of the same shape. Subclasses add Forward and,
// where they take parameters, Config.
class ActivationKernelBase : public KernelBase {
 public:
  // Any ActivationInfo record; the inference parameters are not read.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  // A record of another type is a programming error and throws.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One float tensor in main memory whose element count fits 32 bits.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;

 protected:
  // The checked record, or null (after the type assertion) when IsValidParam fails.
  std::shared_ptr<runtime::ActivationInfo> CheckedRecord(const std::shared_ptr<runtime::LayerInfo>& layer,
                                                         const std::shared_ptr<runtime::InferenceParam>& param) const;
  using ElementFn = void (*)(const float*, const std::uint32_t&, float*);
  // The out-of-place pattern: a fresh output of the input's shape.
  bool ForwardOutOfPlace(ElementFn fn, const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                         std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                         const std::shared_ptr<runtime::Context>& context) const;
  // The in-place pattern: the input is overwritten and handed on.
  bool ForwardInPlace(ElementFn fn, const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                      std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const;
};

// The slope of the PReLU kernels: the first float of "weight".
class PReLUKernelBase : public ActivationKernelBase {
 public:
  // An empty or undecodable "weight" leaves the kernel unconfigured.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  float slope = 0.0f;
};

// alpha of the Leaky kernels, widened from the half "activation_alpha".
class LeakyKernelBase : public ActivationKernelBase {
 public:
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  float alpha = 0.0f;
};

// The destructor is declared first and defined in baseline code, so the
// vtable, GetName and the destructor of every family's class are compiled
// without family instructions: any kernel can be created and named on any
// x86-64. Only Forward runs family code.
#define TRN_ACTIVATION_KERNEL(cls, base)                                      \
  class cls : public base {                                                   \
   public:                                                                    \
    ~cls() override;                                                          \
    TRN_KERNEL_NAME(cls)                                                      \
    bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, \
                 std::vector<std::shared_ptr<runtime::Tensor>>& outputs,      \
                 std::shared_ptr<runtime::Context> context) const override;   \
  };

TRN_ACTIVATION_KERNEL(ReLU_Fallback_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(ReLU6_Fallback_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(Sigmoid_Fallback_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(TanH_Fallback_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(HSigmoid_Fallback_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(HSwish_Fallback_Float_M1, ActivationKernelBase)
TRN_ACTIVATION_KERNEL(Leaky_Fallback_Float_M1, LeakyKernelBase)
TRN_ACTIVATION_KERNEL(PReLU_Fallback_Float_M1, PReLUKernelBase)

class Linear_Fallback_Float_M1 : public ActivationKernelBase {
 public:
  TRN_KERNEL_NAME(Linear_Fallback_Float_M1)
  Linear_Fallback_Float_M1() : params(std::make_shared<Params>()) {}
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;
  struct Params {
    float alpha = 1.0f;
    float beta = 0.0f;
  };
  std::shared_ptr<Params> params;
};

}  // namespace kernel
}  // namespace tarn
