// The inference configuration: for every layer, the kernel class that runs it,
// its parameter record and the converter kernels around it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "tarn/runtime/class_registry.h"
#include "tarn/runtime/model_info.h"
#include "tarn/runtime/serializable.h"

namespace tarn {
namespace runtime {

// ---------------------------------------------------------------- parameters

// Base of the per-kernel parameter records. Parameter records write no
// "serializable_type"; GetName is the class name and the registry key.
class InferenceParam : public Serializable {
 public:
  void VisitAttr(const VisitorPtr& visitor) override;
  virtual std::string GetName() const;
};

using InferenceParamPtr = std::shared_ptr<InferenceParam>;
using InferenceParamRegistry = ClassRegistry<std::shared_ptr<InferenceParam>>;

#define TRN_INFERENCE_PARAM_NAME(cls) \
  std::string GetName() const override { return #cls; }

class InferenceParamActQuant : public InferenceParam {
 public:
  TRN_INFERENCE_PARAM_NAME(InferenceParamActQuant)
  void VisitAttr(const VisitorPtr& visitor) override;
  std::int16_t output_step_size = 0;
};

class InferenceParamConv2DQuant : public InferenceParam {
 public:
  TRN_INFERENCE_PARAM_NAME(InferenceParamConv2DQuant)
  void VisitAttr(const VisitorPtr& visitor) override;
  std::int16_t weight_step_size = 0;
  std::int16_t output_step_size = 0;
};

class InferenceParamFullConnectionQuant : public InferenceParam {
 public:
  TRN_INFERENCE_PARAM_NAME(InferenceParamFullConnectionQuant)
  void VisitAttr(const VisitorPtr& visitor) override;
  std::int16_t weight_step_size = 0;
  std::int16_t output_step_size = 0;
};

class InferenceParamUpsampling2DQuant : public InferenceParam {
 public:
  TRN_INFERENCE_PARAM_NAME(InferenceParamUpsampling2DQuant)
  void VisitAttr(const VisitorPtr& visitor) override;
  std::int16_t output_step_size = 0;
};

class InferenceParamConv2DCUDA : public InferenceParam {
 public:
  TRN_INFERENCE_PARAM_NAME(InferenceParamConv2DCUDA)
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint32_t x = 0, y = 0, z = 0;
  std::string activation;
};

class InferenceParamVulkan : public InferenceParam {
 public:
  TRN_INFERENCE_PARAM_NAME(InferenceParamVulkan)
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint32_t local_x = 1, local_y = 1, local_z = 1;
};

class InferenceParamConv2DVulkan : public InferenceParamVulkan {
 public:
  TRN_INFERENCE_PARAM_NAME(InferenceParamConv2DVulkan)
  void VisitAttr(const VisitorPtr& visitor) override;
  std::string activation;
};

class InferenceParamOpenGLCompute : public InferenceParam {
 public:
  TRN_INFERENCE_PARAM_NAME(InferenceParamOpenGLCompute)
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint32_t local_x = 1, local_y = 1, local_z = 1;
};

#define TRN_OPENGL_PARAM(cls)                                   \
  class cls : public InferenceParamOpenGLCompute {              \
   public:                                                      \
    TRN_INFERENCE_PARAM_NAME(cls)                               \
  };

TRN_OPENGL_PARAM(InferenceParamConcatOpenGLCompute)
TRN_OPENGL_PARAM(InferenceParamUpsampling2DOpenGLCompute)
TRN_OPENGL_PARAM(InferenceParamPixelShuffleOpenGLCompute)
TRN_OPENGL_PARAM(InferenceParamPooling2DOpenGLCompute)
TRN_OPENGL_PARAM(InferenceParamFullConnectionOpenGLCompute)
TRN_OPENGL_PARAM(InferenceParamTensorReshapeOpenGLCompute)
TRN_OPENGL_PARAM(InferenceParamTensorExpandOpenGLCompute)
TRN_OPENGL_PARAM(InferenceParamBroadcastOpenGLCompute)
#undef TRN_OPENGL_PARAM

// OpenGL parameters that carry a fused activation.
class InferenceParamOpenGLComputeActivation : public InferenceParamOpenGLCompute {
 public:
  void VisitAttr(const VisitorPtr& visitor) override;
  std::string activation;
  std::int32_t activation_type = 0;
  half_float::half activation_alpha{1.0f};
  half_float::half activation_beta{0.0f};
  std::int16_t num_parameters = 1;
  std::string weight;
};

#define TRN_OPENGL_ACTIVATION_PARAM(cls)                         \
  class cls : public InferenceParamOpenGLComputeActivation {     \
   public:                                                       \
    TRN_INFERENCE_PARAM_NAME(cls)                                \
  };

TRN_OPENGL_ACTIVATION_PARAM(InferenceParamConv2DOpenGLCompute)
TRN_OPENGL_ACTIVATION_PARAM(InferenceParamConvTranspose2DOpenGLCompute)
TRN_OPENGL_ACTIVATION_PARAM(InferenceParamElementwiseOpenGLCompute)
TRN_OPENGL_ACTIVATION_PARAM(InferenceParamActivationOpenGLCompute)
#undef TRN_OPENGL_ACTIVATION_PARAM

class InferenceParamLuaCustomMetalCompute : public InferenceParam {
 public:
  TRN_INFERENCE_PARAM_NAME(InferenceParamLuaCustomMetalCompute)
  void VisitAttr(const VisitorPtr& visitor) override;
  std::string lua_script;
  std::string mtl_shader;
};

class InferenceParamMetalComputeFusedActivation : public InferenceParam {
 public:
  TRN_INFERENCE_PARAM_NAME(InferenceParamMetalComputeFusedActivation)
  void VisitAttr(const VisitorPtr& visitor) override;
  std::string activation;
  std::int32_t activation_type = 0;
  float activation_alpha = 1.0f;
  float activation_beta = 0.0f;
};

#define TRN_METAL_ACTIVATION_PARAM(cls)                             \
  class cls : public InferenceParamMetalComputeFusedActivation {    \
   public:                                                          \
    TRN_INFERENCE_PARAM_NAME(cls)                                   \
  };

TRN_METAL_ACTIVATION_PARAM(InferenceParamConv2dMetalCompute)
TRN_METAL_ACTIVATION_PARAM(InferenceParamElementwiseMetalCompute)
TRN_METAL_ACTIVATION_PARAM(InferenceParamConcatenateMetalCompute)
#undef TRN_METAL_ACTIVATION_PARAM

class InferenceParamMetalComputeCommon : public InferenceParam {
 public:
  TRN_INFERENCE_PARAM_NAME(InferenceParamMetalComputeCommon)
  void VisitAttr(const VisitorPtr& visitor) override;
  std::string lua_script;
  std::string mtl_shader;
  std::uint32_t write_slice_offset = 0;
  std::uint32_t activation_type = 0;
  float activation_alpha = 1.0f;
  float activation_beta = 0.0f;
};

// A new parameter record of the named class; null for "none" and for names it
// does not know.
std::shared_ptr<InferenceParam> CreateInferenceParamPtr(const std::string& name);
// Every class name CreateInferenceParamPtr knows, "none" excluded.
const std::vector<std::string>& InferenceParamNames();

// ---------------------------------------------------------------- kernels

// One kernel: its class name, its parameter class and the parameters. The
// parameter record is created from "infer_param_type" when reading; "none"
// stands for no parameters and is stored as an empty record.
class KernelCfg : public Serializable {
 public:
  void VisitAttr(const VisitorPtr& visitor) override;
  std::string kernel_type;
  std::string infer_param_type = "none";
  std::shared_ptr<InferenceParam> infer_param;
};

using KernelCfgPtr = std::shared_ptr<KernelCfg>;

// The same record in the stand-alone configuration (InferenceConfig).
class KernelInferenceConfig : public KernelCfg {};

using KernelInferenceConfigPtr = std::shared_ptr<KernelInferenceConfig>;

// Kernels keyed by decimal kernel id.
class KernelCfgArr : public Serializable {
 public:
  void VisitAttr(const VisitorPtr& visitor) override;
  std::vector<std::string> kernel_ids;
  std::unordered_map<std::string, std::shared_ptr<KernelCfg>> kernels;
};

// One layer: converters before, the compute kernel, converters after. Each is
// a list of kernels keyed by id; the compute kernel is the "kernel" list's
// entry (its last one if a file holds several).
class LayerCfg : public Serializable {
 public:
  void VisitAttr(const VisitorPtr& visitor) override;
  std::string summary;
  KernelCfgArr input_converters;
  KernelCfgArr kernel;
  KernelCfgArr output_converters;
};

// The per-layer configuration of one network, keyed by layer id.
class TRModelCfg : public Serializable {
 public:
  void VisitAttr(const VisitorPtr& visitor) override;
  std::string summary;
  std::vector<std::string> squential_ids;
  std::unordered_map<std::string, std::shared_ptr<LayerCfg>> layers;
};

using TRModelCfgPtr = std::shared_ptr<TRModelCfg>;

// One configuration per back end, in this order: "cpu_sse", "cpu_avx",
// "cpu_armv7", "cpu_armv8", "gpu_opengl", "gpu_metal", "gpu_cuda", "cpu_armv82".
class TRModelMultiBackendCfgs : public Serializable {
 public:
  TRModelMultiBackendCfgs();
  void VisitAttr(const VisitorPtr& visitor) override;
  // The member of a back-end name, or null for a name it does not know.
  std::shared_ptr<TRModelCfg> Get(const std::string& backend) const;

  std::shared_ptr<TRModelCfg> cpu_sse, cpu_avx, cpu_armv7, cpu_armv8, gpu_opengl, gpu_metal, gpu_cuda, cpu_armv82;
};

class TRModelMultiBackendCfgsArr : public Serializable {
 public:
  void VisitAttr(const VisitorPtr& visitor) override;
  std::vector<std::string> squential_ids;
  std::unordered_map<std::string, std::shared_ptr<TRModelMultiBackendCfgs>> configs;
};

// A model package: version block, models and their configurations. The
// configurations ("config_arr") mirror the models ("model_arr"): one
// TRModelMultiBackendCfgs per network name.
class TRNModel : public Serializable {
 public:
  void VisitAttr(const VisitorPtr& visitor) override;
  std::string sdk_type;
  std::uint16_t core_major_ver = 1;
  std::uint16_t core_minor_ver = 0;
  std::uint16_t sdk_major_ver = 0;
  std::uint16_t sdk_minor_ver = 0;
  TRModelInfoArr model_arr;
  TRModelMultiBackendCfgsArr config_arr;
};

// ---------------------------------------------------------------- stand-alone configuration

struct LayerInferenceConfig {
  std::map<std::string, KernelInferenceConfigPtr> input_converters;
  KernelInferenceConfigPtr kernel;
  std::map<std::string, KernelInferenceConfigPtr> output_converters;
};

// A whole configuration, convertible to and from JSON:
// {"allocator_": "...", "config": {"<layer id>": {"input_converters": {"<kernel id>": {kernel}},
//  "kernel": {kernel} or null, "output_converters": {...}}}}
// where {kernel} is {"kernel_type", "infer_param_type", "infer_param"}.
// "allocator_" names the memory pool the configuration was prepared for
// ("AlignUpPool" on the CPU); it is carried, not interpreted.
class InferenceConfig {
 public:
  std::string ToJSON() const;
  // The configuration of one layer, or null.
  const LayerInferenceConfig* Find(const std::string& layer_id) const;

  std::string allocator_ = "AlignUpPool";
  std::map<std::string, LayerInferenceConfig> config;
};

using InferenceConfigPtr = std::shared_ptr<InferenceConfig>;

// Parses the JSON form; parameter records come from `registry`. Malformed
// text throws std::runtime_error.
InferenceConfigPtr CreateConfigFromJSON(const std::string& json, const InferenceParamRegistry& registry);

// The per-layer form stored in model packages, and back.
std::shared_ptr<TRModelCfg> ToTRModelCfg(const InferenceConfig& config, const TRModelInfo& model);
InferenceConfigPtr FromTRModelCfg(const TRModelCfg& cfg);

// Prepared configurations. Each names, for every layer of `model`, the kernel
// of its family that computes the layer (an "Input_Fallback_M1" for inputs):
// CreateCfg for the CPU family "Fallback", "SSE", "AVX" or "SGEMM" (layers a
// family lacks fall back to the fallback kernels), the others for the GPU back
// ends with their parameter records. This library registers CPU kernels only.
InferenceConfigPtr CreateCfg(const TRModelInfo& model, const std::string& family = "Fallback");
InferenceConfigPtr CreateOpenGLCfg(const TRModelInfo& model);
InferenceConfigPtr CreateMetalCfg(const TRModelInfo& model);
InferenceConfigPtr CreateMetalCfgImgC8HW8F16(const TRModelInfo& model);

}  // namespace runtime
}  // namespace tarn
