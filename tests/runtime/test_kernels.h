// Small kernels that exist only for the executor tests.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tarn/kernel/kernel_base.h"
#include "tarn/runtime/kernel.h"

namespace tarn {
namespace testing {

// out = in * alpha (alpha from an ActivationInfo record).
class Test_Scale_M1 : public kernel::KernelBase {
 public:
  TRN_KERNEL_NAME(Test_Scale_M1)
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam>) const override {
    return std::dynamic_pointer_cast<runtime::ActivationInfo>(layer) ? 0 : -1;
  }
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context>) override {
    if (IsValidParam(layer, param) != 0) return false;
    alpha_ = static_cast<float>(std::static_pointer_cast<runtime::ActivationInfo>(layer)->activation_alpha);
    return configured_ = true;
  }
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& in) const override {
    return in;
  }
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> ctx) const override {
    auto out = ctx->cpu->CreateTensor(inputs[0]->shape);
    const float* x = static_cast<const float*>(inputs[0]->Data());
    float* y = out->DataAs<float>();
    for (size_t i = 0; i < out->shape.ElementCount(); ++i) y[i] = x[i] * alpha_;
    outputs = {out};
    return true;
  }

 private:
  float alpha_ = 1;
};

// out = sum of all inputs (any number of same-sized inputs).
class Test_Sum_M1 : public kernel::KernelBase {
 public:
  TRN_KERNEL_NAME(Test_Sum_M1)
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam>) const override {
    return std::dynamic_pointer_cast<runtime::ElementWiseOperatorInfo>(layer) ? 0 : -1;
  }
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context>) override {
    return configured_ = IsValidParam(layer, param) == 0;
  }
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& in) const override {
    return {in[0]};
  }
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override {
    if (inputs.empty() || kernel::CheckFloatTensors(inputs, -1) != 0) return -2;
    for (const auto& t : inputs) {
      if (t->shape.ElementCount() != inputs[0]->shape.ElementCount()) return -2;
    }
    return 0;
  }
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> ctx) const override {
    auto out = ctx->cpu->CreateTensor(inputs[0]->shape);
    float* y = out->DataAs<float>();
    for (size_t i = 0; i < out->shape.ElementCount(); ++i) {
      y[i] = 0;
      for (const auto& t : inputs) y[i] += static_cast<const float*>(t->Data())[i];
    }
    outputs = {out};
    return true;
  }
};

// A converter: out = in + 100, whatever the layer.
class Test_Offset_M1 : public kernel::KernelBase {
 public:
  TRN_KERNEL_NAME(Test_Offset_M1)
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo>, std::shared_ptr<runtime::InferenceParam>) const override {
    return 0;
  }
  bool Config(std::shared_ptr<runtime::LayerInfo>, std::shared_ptr<runtime::InferenceParam>,
              std::shared_ptr<runtime::Context>) override {
    return configured_ = true;
  }
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& in) const override {
    return in;
  }
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> ctx) const override {
    auto out = ctx->cpu->CreateTensor(inputs[0]->shape);
    for (size_t i = 0; i < out->shape.ElementCount(); ++i) {
      out->DataAs<float>()[i] = static_cast<const float*>(inputs[0]->Data())[i] + 100.0f;
    }
    outputs = {out};
    return true;
  }
};

// Refuses every layer in Config.
class Test_Refuse_M1 : public Test_Offset_M1 {
 public:
  TRN_KERNEL_NAME(Test_Refuse_M1)
  bool Config(std::shared_ptr<runtime::LayerInfo>, std::shared_ptr<runtime::InferenceParam>,
              std::shared_ptr<runtime::Context>) override {
    return false;
  }
};

// Configures, but its Forward fails.
class Test_Broken_M1 : public Test_Offset_M1 {
 public:
  TRN_KERNEL_NAME(Test_Broken_M1)
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>&, std::vector<std::shared_ptr<runtime::Tensor>>&,
               std::shared_ptr<runtime::Context>) const override {
    return false;
  }
};

inline void RegisterTestKernels(runtime::KernelRegistry& r) {
  r.Register("Test_Scale_M1", [] { return std::make_shared<Test_Scale_M1>(); }, false);
  r.Register("Test_Sum_M1", [] { return std::make_shared<Test_Sum_M1>(); }, false);
  r.Register("Test_Offset_M1", [] { return std::make_shared<Test_Offset_M1>(); }, false);
  r.Register("Test_Refuse_M1", [] { return std::make_shared<Test_Refuse_M1>(); }, false);
  r.Register("Test_Broken_M1", [] { return std::make_shared<Test_Broken_M1>(); }, false);
}

}  // namespace testing
}  // namespace tarn
