// Builds small models and their configurations for the net and loader tests.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tarn/runtime/context.h"
#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/model_info.h"

namespace tarn {
namespace testing {

class NetRecipe {
 public:
  NetRecipe() : model(std::make_shared<runtime::TRModelInfo>()), cfg(std::make_shared<runtime::TRModelCfg>()) {}

  NetRecipe& Input(const std::string& id, const std::string& kernel = "Input_Fallback_M1") {
    return Add(std::make_shared<runtime::InputInfo>(), id, {}, kernel);
  }
  NetRecipe& Scale(const std::string& id, const std::string& input, float alpha,
                 const std::string& kernel = "Test_Scale_M1") {
    auto layer = std::make_shared<runtime::ActivationInfo>();
    layer->activation_alpha = half_float::half(alpha);
    return Add(layer, id, {input}, kernel);
  }
  NetRecipe& Sum(const std::string& id, const std::vector<std::string>& inputs,
               const std::string& kernel = "Test_Sum_M1") {
    return Add(std::make_shared<runtime::ElementWiseOperatorInfo>(), id, inputs, kernel);
  }
  // A converter before ("in") or after ("out") the kernel of layer `id`.
  NetRecipe& Converter(const std::string& id, const std::string& side, const std::string& kernel_id,
                     const std::string& kernel) {
    auto& arr = side == "in" ? cfg->layers[id]->input_converters : cfg->layers[id]->output_converters;
    arr.kernel_ids.push_back(kernel_id);
    arr.kernels[kernel_id] = MakeKernelCfg(kernel);
    return *this;
  }
  NetRecipe& Outputs(std::vector<std::string> ids) {
    model->squential_output_ids = std::move(ids);
    return *this;
  }

  static std::shared_ptr<runtime::KernelCfg> MakeKernelCfg(const std::string& name) {
    auto k = std::make_shared<runtime::KernelCfg>();
    k->kernel_type = name;
    return k;
  }

  std::shared_ptr<runtime::TRModelInfo> model;
  std::shared_ptr<runtime::TRModelCfg> cfg;

 private:
  NetRecipe& Add(runtime::LayerInfoPtr layer, const std::string& id, std::vector<std::string> inputs,
               const std::string& kernel) {
    layer->id = id;
    layer->input_ids = std::move(inputs);
    model->squential_ids.push_back(id);
    model->squential_types.push_back(layer->type);
    model->layers[id] = layer;
    auto lc = std::make_shared<runtime::LayerCfg>();
    if (!kernel.empty()) {
      lc->kernel.kernel_ids = {"0"};
      lc->kernel.kernels["0"] = MakeKernelCfg(kernel);
    }
    cfg->squential_ids.push_back(id);
    cfg->layers[id] = lc;
    return *this;
  }
};

inline std::shared_ptr<runtime::Context> MakeTestContext() {
  auto pool = std::make_shared<runtime::AlignUpPool>(64);
  auto device = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), pool, nullptr, pool);
  return runtime::CreateContext(device, nullptr, nullptr, nullptr, nullptr, nullptr);
}

inline std::shared_ptr<runtime::TensorCPU> FloatTensor(const std::shared_ptr<runtime::Context>& ctx,
                                                       const std::vector<float>& values) {
  return ctx->cpu->CreateTensor(runtime::MakeShape({static_cast<unsigned>(values.size())}), values.data());
}

inline std::vector<float> Values(const std::shared_ptr<runtime::Tensor>& t) {
  const float* p = static_cast<const float*>(t->Data());
  return std::vector<float>(p, p + t->shape.ElementCount());
}

}  // namespace testing
}  // namespace tarn
