// Activation kernels: the shared skeleton of every family and the portable
// kernels.
#pragma once

#include "tarn/kernel/activation.h"
#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

// One float tensor in, one out of the same shape, computed by the element
// function the kernel class hands over: into a fresh tensor, or in place over
// the input, which is then handed on. An in-place kernel overwrites its input
// only where its caller allows it: SetOutputs with reuse false hands out a
// fresh output that Forward then fills (the net does so whenever another
// reader, the caller or a view still needs the input's storage); called
// without outputs, Forward works in place.
class ActivationKernelBase : public KernelBase {
 public:
  using ElementFn = void (*)(const float*, const std::uint32_t&, float*);
  explicit ActivationKernelBase(ElementFn fn = nullptr, bool in_place = false) : fn_(fn), in_place_(in_place) {}
  // Any ActivationInfo record; the inference parameters are not read.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  // A record of another type is a programming error and throws.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One float tensor in main memory whose element count fits 32 bits.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  // In-place kernels: the input itself with reuse, else a fresh output.
  bool SetOutputs(const std::shared_ptr<runtime::Context>& context,
                  const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, const bool& reuse,
                  std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

 protected:
  // The fresh output SetOutputs handed out for an in-place kernel, or null
  // when Forward is to work in place.
  static std::shared_ptr<runtime::Tensor> SeparateOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                         const std::vector<std::shared_ptr<runtime::Tensor>>& outputs);
  // The checked record, or null (after the type assertion) when IsValidParam fails.
  std::shared_ptr<runtime::ActivationInfo> CheckedRecord(const std::shared_ptr<runtime::LayerInfo>& layer,
                                                         const std::shared_ptr<runtime::InferenceParam>& param) const;
  // A fresh output of the input's shape; null without an input or a device.
  static std::shared_ptr<runtime::TensorCPU> CreateOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                          const std::shared_ptr<runtime::Context>& context);

 private:
  ElementFn fn_;
  bool in_place_;
};

// alpha of the Leaky kernels, widened from the half "activation_alpha".
class LeakyKernelBase : public ActivationKernelBase {
 public:
  using LeakyFn = void (*)(const float*, const std::uint32_t&, const float&, float*);
  explicit LeakyKernelBase(LeakyFn fn) : leaky_(fn) {}
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;
  float alpha = 0.0f;

 private:
  LeakyFn leaky_;
};

// The slope of the PReLU kernels, the first float of "weight"; they work in place.
class PReLUKernelBase : public ActivationKernelBase {
 public:
  using PReLUFn = void (*)(const std::shared_ptr<runtime::Tensor>&, float);
  explicit PReLUKernelBase(PReLUFn fn) : ActivationKernelBase(nullptr, true), prelu_(fn) {}
  // An empty or undecodable "weight" leaves the kernel unconfigured.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;
  float slope = 0.0f;

 private:
  PReLUFn prelu_;
};

// The destructor is declared first and defined in baseline code, so the
// vtable, GetName, Forward and the destructor of every family's class are
// compiled without family instructions: any kernel can be created and named
// on any x86-64. Family code runs only inside the function handed to the base.
#define TRN_ACTIVATION_KERNEL(cls, base, ...) \
  class cls : public base {                   \
   public:                                    \
    ~cls() override;                          \
    TRN_KERNEL_NAME(cls)                      \
    cls() : base(__VA_ARGS__) {}              \
  };

TRN_ACTIVATION_KERNEL(ReLU_Fallback_Float_M1, ActivationKernelBase, functional::relu_f32)
TRN_ACTIVATION_KERNEL(ReLU6_Fallback_Float_M1, ActivationKernelBase, functional::relu6_f32)
TRN_ACTIVATION_KERNEL(Sigmoid_Fallback_Float_M1, ActivationKernelBase, functional::sigmoid_f32)
TRN_ACTIVATION_KERNEL(TanH_Fallback_Float_M1, ActivationKernelBase, functional::tanh_f32)
TRN_ACTIVATION_KERNEL(HSigmoid_Fallback_Float_M1, ActivationKernelBase, functional::hsigmoid_f32)
TRN_ACTIVATION_KERNEL(HSwish_Fallback_Float_M1, ActivationKernelBase, functional::hswish_f32)
TRN_ACTIVATION_KERNEL(Leaky_Fallback_Float_M1, LeakyKernelBase, functional::leaky_f32)
TRN_ACTIVATION_KERNEL(PReLU_Fallback_Float_M1, PReLUKernelBase, functional::PReLU_F32)

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
