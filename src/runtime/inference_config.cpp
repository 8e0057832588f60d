// The inference configuration records, their JSON forms, and the prepared
// configurations (CreateCfg and kin). CpuKernelName names the CPU kernel of
// every layer record type the model loader can produce, except
// LayerPlaceholderInfo: a placeholder describes a layer that cannot run here,
// no kernel is registered for it, and its layer gets no kernel (logged), so a
// net with one cannot be built.
#include "tarn/runtime/inference_config.h"

#include <functional>

#include "runtime/record_registration.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace runtime {
namespace {

// Stands for a null parameter record: visits nothing, so it is "{}" in JSON
// and no bytes in the binary format.
class EmptyRecord : public Serializable {
 public:
  void VisitAttr(const VisitorPtr&) override {}
};

using ParamCreator = std::function<std::shared_ptr<InferenceParam>()>;

template <typename T>
std::pair<std::string, ParamCreator> Entry() {
  return {T().GetName(), [] { return std::make_shared<T>(); }};
}

const std::vector<std::pair<std::string, ParamCreator>>& ParamCreators() {
  static const auto* list = new std::vector<std::pair<std::string, ParamCreator>>{
      Entry<InferenceParamActQuant>(),
      Entry<InferenceParamConv2DQuant>(),
      Entry<InferenceParamFullConnectionQuant>(),
      Entry<InferenceParamUpsampling2DQuant>(),
      Entry<InferenceParamConv2DCUDA>(),
      Entry<InferenceParamVulkan>(),
      Entry<InferenceParamConv2DVulkan>(),
      Entry<InferenceParamOpenGLCompute>(),
      Entry<InferenceParamConcatOpenGLCompute>(),
      Entry<InferenceParamUpsampling2DOpenGLCompute>(),
      Entry<InferenceParamPixelShuffleOpenGLCompute>(),
      Entry<InferenceParamPooling2DOpenGLCompute>(),
      Entry<InferenceParamFullConnectionOpenGLCompute>(),
      Entry<InferenceParamTensorReshapeOpenGLCompute>(),
      Entry<InferenceParamTensorExpandOpenGLCompute>(),
      Entry<InferenceParamBroadcastOpenGLCompute>(),
      Entry<InferenceParamConv2DOpenGLCompute>(),
      Entry<InferenceParamConvTranspose2DOpenGLCompute>(),
      Entry<InferenceParamElementwiseOpenGLCompute>(),
      Entry<InferenceParamActivationOpenGLCompute>(),
      Entry<InferenceParamLuaCustomMetalCompute>(),
      Entry<InferenceParamMetalComputeFusedActivation>(),
      Entry<InferenceParamConv2dMetalCompute>(),
      Entry<InferenceParamElementwiseMetalCompute>(),
      Entry<InferenceParamConcatenateMetalCompute>(),
      Entry<InferenceParamMetalComputeCommon>(),
  };
  return *list;
}

// Visits the three attributes of a kernel record, creating the parameter
// record from its class name with `create` when it is missing or of another class.
void VisitKernelRecord(KernelCfg& k, const VisitorPtr& v,
                       const std::function<std::shared_ptr<InferenceParam>(const std::string&)>& create) {
  v->Visit(&k.kernel_type, "kernel_type");
  if (k.infer_param) k.infer_param_type = k.infer_param->GetName();
  v->Visit(&k.infer_param_type, "infer_param_type");
  if (!k.infer_param || k.infer_param->GetName() != k.infer_param_type) {
    k.infer_param = create(k.infer_param_type);
    utility::Assert(k.infer_param != nullptr || k.infer_param_type == "none" || k.infer_param_type.empty(),
                    "Unsupported inference param type [%s].", k.infer_param_type.c_str());
  }
  if (k.infer_param) {
    v->Visit(k.infer_param.get(), "infer_param");
  } else {
    EmptyRecord empty;
    v->Visit(&empty, "infer_param");
  }
}

}  // namespace

// ---------------------------------------------------------------- parameters

void InferenceParam::VisitAttr(const VisitorPtr&) {}
std::string InferenceParam::GetName() const { return "InferenceParam"; }

void InferenceParamActQuant::VisitAttr(const VisitorPtr& v) { v->Visit(&output_step_size, "output_step_size"); }

void InferenceParamConv2DQuant::VisitAttr(const VisitorPtr& v) {
  v->Visit(&weight_step_size, "weight_step_size");
  v->Visit(&output_step_size, "output_step_size");
}

void InferenceParamFullConnectionQuant::VisitAttr(const VisitorPtr& v) {
  v->Visit(&weight_step_size, "weight_step_size");
  v->Visit(&output_step_size, "output_step_size");
}

void InferenceParamUpsampling2DQuant::VisitAttr(const VisitorPtr& v) {
  v->Visit(&output_step_size, "output_step_size");
}

void InferenceParamConv2DCUDA::VisitAttr(const VisitorPtr& v) {
  v->Visit(&x, "x");
  v->Visit(&y, "y");
  v->Visit(&z, "z");
  v->Visit(&activation, "activation");
}

void InferenceParamVulkan::VisitAttr(const VisitorPtr& v) {
  v->Visit(&local_x, "local_x");
  v->Visit(&local_y, "local_y");
  v->Visit(&local_z, "local_z");
}

void InferenceParamConv2DVulkan::VisitAttr(const VisitorPtr& v) {
  InferenceParamVulkan::VisitAttr(v);
  v->Visit(&activation, "activation");
}

void InferenceParamOpenGLCompute::VisitAttr(const VisitorPtr& v) {
  v->Visit(&local_x, "local_x");
  v->Visit(&local_y, "local_y");
  v->Visit(&local_z, "local_z");
}

void InferenceParamOpenGLComputeActivation::VisitAttr(const VisitorPtr& v) {
  InferenceParamOpenGLCompute::VisitAttr(v);
  v->Visit(&activation, "activation");
  v->Visit(&activation_type, "activation_type");
  v->Visit(&activation_alpha, "activation_alpha");
  v->Visit(&activation_beta, "activation_beta");
  v->Visit(&num_parameters, "num_parameters");
  v->Visit(&weight, "weight");
}

void InferenceParamLuaCustomMetalCompute::VisitAttr(const VisitorPtr& v) {
  v->Visit(&lua_script, "lua_script");
  v->Visit(&mtl_shader, "mtl_shader");
}

void InferenceParamMetalComputeFusedActivation::VisitAttr(const VisitorPtr& v) {
  v->Visit(&activation, "activation");
  v->Visit(&activation_type, "activation_type");
  v->Visit(&activation_alpha, "activation_alpha");
  v->Visit(&activation_beta, "activation_beta");
}

void InferenceParamMetalComputeCommon::VisitAttr(const VisitorPtr& v) {
  v->Visit(&lua_script, "lua_script");
  v->Visit(&mtl_shader, "mtl_shader");
  v->Visit(&write_slice_offset, "write_slice_offset");
  v->Visit(&activation_type, "activation_type");
  v->Visit(&activation_alpha, "activation_alpha");
  v->Visit(&activation_beta, "activation_beta");
}

std::shared_ptr<InferenceParam> CreateInferenceParamPtr(const std::string& name) {
  for (const auto& entry : ParamCreators()) {
    if (entry.first == name) return entry.second();
  }
  return nullptr;  // "none" and unknown names
}

const std::vector<std::string>& InferenceParamNames() {
  static const auto* names = [] {
    auto* v = new std::vector<std::string>();
    for (const auto& entry : ParamCreators()) v->push_back(entry.first);
    return v;
  }();
  return *names;
}

// ---------------------------------------------------------------- kernel records

void KernelCfg::VisitAttr(const VisitorPtr& v) { VisitKernelRecord(*this, v, CreateInferenceParamPtr); }

void KernelCfgArr::VisitAttr(const VisitorPtr& v) {
  v->Visit(&kernel_ids, "kernel_ids");
  VisitRecordsById(v, kernel_ids, kernels);
}

void LayerCfg::VisitAttr(const VisitorPtr& v) {
  v->Visit(&summary, "summary");
  v->Visit(&input_converters, "input_converters");
  v->Visit(&kernel, "kernel");
  v->Visit(&output_converters, "output_converters");
}

void TRModelCfg::VisitAttr(const VisitorPtr& v) {
  v->Visit(&summary, "summary");
  v->Visit(&squential_ids, "squential_ids");
  VisitRecordsById(v, squential_ids, layers);
}

TRModelMultiBackendCfgs::TRModelMultiBackendCfgs()
    : cpu_sse(std::make_shared<TRModelCfg>()),
      cpu_avx(std::make_shared<TRModelCfg>()),
      cpu_armv7(std::make_shared<TRModelCfg>()),
      cpu_armv8(std::make_shared<TRModelCfg>()),
      gpu_opengl(std::make_shared<TRModelCfg>()),
      gpu_metal(std::make_shared<TRModelCfg>()),
      gpu_cuda(std::make_shared<TRModelCfg>()),
      cpu_armv82(std::make_shared<TRModelCfg>()) {}

void TRModelMultiBackendCfgs::VisitAttr(const VisitorPtr& v) {
  v->Visit(cpu_sse.get(), "cpu_sse");
  v->Visit(cpu_avx.get(), "cpu_avx");
  v->Visit(cpu_armv7.get(), "cpu_armv7");
  v->Visit(cpu_armv8.get(), "cpu_armv8");
  v->Visit(gpu_opengl.get(), "gpu_opengl");
  v->Visit(gpu_metal.get(), "gpu_metal");
  v->Visit(gpu_cuda.get(), "gpu_cuda");
  v->Visit(cpu_armv82.get(), "cpu_armv82");
}

std::shared_ptr<TRModelCfg> TRModelMultiBackendCfgs::Get(const std::string& backend) const {
  if (backend == "cpu_sse") return cpu_sse;
  if (backend == "cpu_avx") return cpu_avx;
  if (backend == "cpu_armv7") return cpu_armv7;
  if (backend == "cpu_armv8") return cpu_armv8;
  if (backend == "gpu_opengl") return gpu_opengl;
  if (backend == "gpu_metal") return gpu_metal;
  if (backend == "gpu_cuda") return gpu_cuda;
  if (backend == "cpu_armv82") return cpu_armv82;
  return nullptr;
}

void TRModelMultiBackendCfgsArr::VisitAttr(const VisitorPtr& v) {
  v->Visit(&squential_ids, "squential_ids");
  VisitRecordsById(v, squential_ids, configs);
}

void TRNModel::VisitAttr(const VisitorPtr& v) {
  v->Visit(&sdk_type, "sdk_type");
  v->Visit(&core_major_ver, "core_major_ver");
  v->Visit(&core_minor_ver, "core_minor_ver");
  v->Visit(&sdk_major_ver, "sdk_major_ver");
  v->Visit(&sdk_minor_ver, "sdk_minor_ver");
  v->Visit(&model_arr, "model_arr");
  v->Visit(&config_arr, "config_arr");
}

// ---------------------------------------------------------------- stand-alone configuration

const LayerInferenceConfig* InferenceConfig::Find(const std::string& layer_id) const {
  auto it = config.find(layer_id);
  return it == config.end() ? nullptr : &it->second;
}

std::string InferenceConfig::ToJSON() const {
  JSONDocument document;
  document.SetObject();
  auto& a = document.GetAllocator();
  auto kernel_value = [&](const KernelInferenceConfigPtr& k) {
    if (!k) return JSONValue(rapidjson::kNullType);
    JSONValue object(rapidjson::kObjectType);
    k->VisitAttr(std::make_shared<JSONNodeSetter>(object, a, false));
    return object;
  };
  auto converters_value = [&](const std::map<std::string, KernelInferenceConfigPtr>& list) {
    JSONValue object(rapidjson::kObjectType);
    for (const auto& entry : list) object.AddMember(ToJSONValue(entry.first, a), kernel_value(entry.second), a);
    return object;
  };
  JSONValue layers(rapidjson::kObjectType);
  for (const auto& entry : config) {
    JSONValue layer(rapidjson::kObjectType);
    layer.AddMember("input_converters", converters_value(entry.second.input_converters), a);
    layer.AddMember("kernel", kernel_value(entry.second.kernel), a);
    layer.AddMember("output_converters", converters_value(entry.second.output_converters), a);
    layers.AddMember(ToJSONValue(entry.first, a), layer, a);
  }
  document.AddMember("allocator_", ToJSONValue(allocator_, a), a);
  document.AddMember("config", layers, a);
  return SerializeJSONValue(document);
}

InferenceConfigPtr CreateConfigFromJSON(const std::string& json, const InferenceParamRegistry& registry) {
  JSONDocument document;
  ParseJsonObject(document, json.c_str(), "Inference configuration is not a JSON object.");
  auto create = [&registry](const std::string& name) -> std::shared_ptr<InferenceParam> {
    if (name == "none" || name.empty()) return nullptr;
    return registry.Create(name);
  };
  auto read_kernel = [&](const JSONValue& value, const char* where) -> KernelInferenceConfigPtr {
    if (value.IsNull()) return nullptr;
    utility::Assert(value.IsObject(), "JSON member \"%s\" is not an object.", where);
    auto k = std::make_shared<KernelInferenceConfig>();
    VisitKernelRecord(*k, std::make_shared<JSONNodeGetter>(value, kSerializationProtocolVersion), create);
    return k;
  };
  auto object_member = [](const JSONValue& parent, const char* key) -> const JSONValue& {
    auto it = parent.FindMember(key);
    utility::Assert(it != parent.MemberEnd(), "JSON member \"%s\" is missing.", key);
    utility::Assert(it->value.IsObject(), "JSON member \"%s\" is not an object.", key);
    return it->value;
  };
  auto read_converters = [&](const JSONValue& layer, const char* key) {
    std::map<std::string, KernelInferenceConfigPtr> list;
    for (const auto& m : object_member(layer, key).GetObject()) {
      list[std::string(m.name.GetString(), m.name.GetStringLength())] = read_kernel(m.value, key);
    }
    return list;
  };

  auto cfg = std::make_shared<InferenceConfig>();
  auto alloc = document.FindMember("allocator_");
  utility::Assert(alloc != document.MemberEnd() && alloc->value.IsString(),
                  "JSON member \"allocator_\" is missing or not a string.");
  cfg->allocator_ = alloc->value.GetString();
  for (const auto& layer : object_member(document, "config").GetObject()) {
    utility::Assert(layer.value.IsObject(), "JSON member \"config\" holds a layer that is not an object.");
    LayerInferenceConfig entry;
    entry.input_converters = read_converters(layer.value, "input_converters");
    auto kernel = layer.value.FindMember("kernel");
    utility::Assert(kernel != layer.value.MemberEnd(), "JSON member \"kernel\" is missing.");
    entry.kernel = read_kernel(kernel->value, "kernel");
    entry.output_converters = read_converters(layer.value, "output_converters");
    cfg->config[std::string(layer.name.GetString(), layer.name.GetStringLength())] = std::move(entry);
  }
  return cfg;
}

namespace {

void FillArr(KernelCfgArr& arr, const std::map<std::string, KernelInferenceConfigPtr>& list) {
  for (const auto& entry : list) {
    if (!entry.second) continue;
    arr.kernel_ids.push_back(entry.first);
    arr.kernels[entry.first] = entry.second;
  }
}

std::map<std::string, KernelInferenceConfigPtr> FromArr(const KernelCfgArr& arr) {
  std::map<std::string, KernelInferenceConfigPtr> list;
  for (const std::string& id : arr.kernel_ids) {
    auto it = arr.kernels.find(id);
    if (it == arr.kernels.end() || !it->second) continue;
    auto k = std::make_shared<KernelInferenceConfig>();
    static_cast<KernelCfg&>(*k) = *it->second;
    list[id] = k;
  }
  return list;
}

}  // namespace

std::shared_ptr<TRModelCfg> ToTRModelCfg(const InferenceConfig& config, const TRModelInfo& model) {
  auto cfg = std::make_shared<TRModelCfg>();
  cfg->summary = "allocator_=" + config.allocator_;
  for (const std::string& id : model.squential_ids) {
    const LayerInferenceConfig* layer = config.Find(id);
    if (layer == nullptr) continue;
    auto entry = std::make_shared<LayerCfg>();
    FillArr(entry->input_converters, layer->input_converters);
    if (layer->kernel) FillArr(entry->kernel, {{"0", layer->kernel}});
    FillArr(entry->output_converters, layer->output_converters);
    cfg->squential_ids.push_back(id);
    cfg->layers[id] = entry;
  }
  return cfg;
}

InferenceConfigPtr FromTRModelCfg(const TRModelCfg& cfg) {
  auto config = std::make_shared<InferenceConfig>();
  for (const std::string& id : cfg.squential_ids) {
    auto it = cfg.layers.find(id);
    if (it == cfg.layers.end() || !it->second) continue;
    LayerInferenceConfig entry;
    entry.input_converters = FromArr(it->second->input_converters);
    auto kernels = FromArr(it->second->kernel);
    if (!kernels.empty()) entry.kernel = kernels.rbegin()->second;
    entry.output_converters = FromArr(it->second->output_converters);
    config->config[id] = std::move(entry);
  }
  return config;
}

// ---------------------------------------------------------------- prepared configurations

namespace {

KernelInferenceConfigPtr MakeKernel(const std::string& name, std::shared_ptr<InferenceParam> param = nullptr) {
  auto k = std::make_shared<KernelInferenceConfig>();
  k->kernel_type = name;
  k->infer_param = std::move(param);
  k->infer_param_type = k->infer_param ? k->infer_param->GetName() : "none";
  return k;
}

const char* ActivationName(std::uint16_t code) {
  switch (code) {
    case ACTIVATION_RELU: return "ReLU";
    case ACTIVATION_RELU6: return "ReLU6";
    case ACTIVATION_SIGMOID: return "Sigmoid";
    case ACTIVATION_TANH: return "TanH";
    case ACTIVATION_LEAKY: return "Leaky";
    case ACTIVATION_PRELU: return "PReLU";
    case ACTIVATION_HSIGMOID: return "HSigmoid";
    case ACTIVATION_HSWISH: return "HSwish";
    case ACTIVATION_LINEAR: return "Linear";
    default: return nullptr;
  }
}

const char* ElementwiseName(std::uint16_t code) {
  switch (code) {
    case ELEMENTWISE_ADD: return "Add";
    case ELEMENTWISE_SUB: return "Sub";
    case ELEMENTWISE_MUL: return "Mul";
    case ELEMENTWISE_DIV: return "Div";
    default: return nullptr;
  }
}

// The CPU kernel of one layer for a family, or "" when the library has none.
std::string CpuKernelName(const LayerInfo& layer, const std::string& family) {
  const bool sse = family == "SSE";
  const bool avx = family == "AVX";
  const bool sgemm = family == "SGEMM";
  switch (layer.type) {
    case LAYER_INPUT:
      return "Input_Fallback_M1";
    case LAYER_ACTIVATION: {
      const auto& a = static_cast<const ActivationInfo&>(layer);
      const char* op = ActivationName(a.activation_type);
      if (op == nullptr) return "";
      const std::string name(op);
      const bool has_avx = name != "TanH" && name != "HSigmoid" && name != "Linear";
      if (avx && has_avx) return name + "_AVX_Float_M1";
      if ((sse || avx) && name != "Linear") return name + "_SSE_Float_M1";
      return name + "_Fallback_Float_M1";
    }
    case LAYER_CONV2D: {
      const auto& c = static_cast<const Conv2dInfo&>(layer);
      const bool pointwise = c.kernel_x == 1 && c.kernel_y == 1 && c.stride_x == 1 && c.stride_y == 1 &&
                             c.dilation_x == 1 && c.dilation_y == 1 && c.groups == 1 && c.padding_l == 0 &&
                             c.padding_t == 0 && c.padding_r == 0 && c.padding_b == 0;
      if (sgemm && pointwise) return "Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1";
      // Depthwise 3x3 (one channel in and out per group), stride 1 or 2.
      const bool depthwise = c.in_channels == c.groups && c.out_channels == c.groups &&
                             c.kernel_x == 3 && c.kernel_y == 3 && c.dilation_x == 1 && c.dilation_y == 1 &&
                             c.stride_x == c.stride_y && (c.stride_x == 1 || c.stride_x == 2);
      if ((sse || avx) && depthwise) {
        return c.stride_x == 1 ? "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1"
                               : "Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1";
      }
      if (sse || avx) return "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1";
      return "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1";
    }
    case LAYER_CONV1D:  // the AVX member serves only 3-tap stride-1 layers; the portable one any
      return "Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1";
    case LAYER_CONVTRANSPOSE2D: {
      const auto& c = static_cast<const ConvTranspose2dInfo&>(layer);
      if ((sse || avx) && c.kernel_x == 3 && c.kernel_y == 3 && c.dilation_x == 1 && c.dilation_y == 1 &&
          c.groups == 1) {
        return "ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1";
      }
      return "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1";
    }
    case LAYER_MAXPOOL2D:
      return "Pooling2D_Max_Fallback_Float_M1";
    case LAYER_AVGPOOL2D:
      return "Pooling2D_Avg_Fallback_Float_M1";
    case LAYER_ADAPTIVE_AVGPOOL2D:
      return "AdaptivePooling2D_Avg_Fallback_CHW_Float_M1";
    case LAYER_ELEMENTWISE: {
      const char* op = ElementwiseName(static_cast<const ElementWiseOperatorInfo&>(layer).op_type);
      if (op != nullptr && (sse || avx)) return std::string("Elementwise_") + op + (avx ? "_AVX" : "_SSE") + "_Float_M1";
      return "Elementwise_Fallback_Float_M1";
    }
    case LAYER_BROADCAST:
      return "BroadcastOperator_Fallback_Float_M1";
    case LAYER_FULLCONNECTION:
      if (sgemm) return "FullConnection_SGEMM_C_Float_M1";
      if (avx) return "FullConnection_AVX_C_Float_M1";
      if (sse) return "FullConnection_SSE_C_Float_M1";
      return "FullConnection_Fallback_C_Float_M1";
    case LAYER_TENSOR_ARITHMETIC:
      return "TensorArithmetic_Fallback_M1";
    case LAYER_RNNCELL:
    case LAYER_RNN:
    case LAYER_LSTMCELL:
    case LAYER_LSTM:
    case LAYER_GRUCELL:
    case LAYER_GRU: {
      // AVX machines take the SSE members; the CBLAS ones run anywhere.
      const bool cell = layer.type == LAYER_RNNCELL || layer.type == LAYER_LSTMCELL || layer.type == LAYER_GRUCELL;
      const char* op = layer.type == LAYER_RNNCELL || layer.type == LAYER_RNN
                           ? "RNN"
                           : (layer.type == LAYER_LSTMCELL || layer.type == LAYER_LSTM ? "LSTM" : "GRU");
      const char* isa = sgemm ? "_SGEMM" : (sse || avx ? "_SSE" : "_Fallback");
      return std::string(op) + (cell ? "Cell" : "") + isa + (cell ? "_C_F32_M1" : "_SC_F32_M1");
    }
    // Normalisation, resampling, softmax, clip and grid sampling: the CHW
    // members of the family (SGEMM has none and takes the portable ones).
    case LAYER_BATCHNORM2D:
      if (avx) return "BatchNorm2D_AVX_CHW_Float_M1";
      if (sse) return "BatchNorm2D_SSE_CHW_Float_M1";
      return "BatchNorm2D_Fallback_CHW_Float_M1";
    case LAYER_BATCHNORM1D:
      return "BatchNorm1D_Fallback_CL_Float_M1";
    case LAYER_INSTANCENORM2D:
      if (avx) return "InstanceNorm2D_AVX_CHW_Float_M1";
      if (sse) return "InstanceNorm2D_SSE_CHW_Float_M1";
      return "InstanceNorm2D_Fallback_CHW_Float_M1";
    case LAYER_UPSAMPLE2D:
      if (avx) return "Upsampling2D_AVX_CHW_Float_M1";
      if (sse) return "Upsampling2D_SSE_CHW_Float_M1";
      return "Upsampling2D_Fallback_CHW_Float_M1";
    case LAYER_SOFTMAX:
      if (avx) return "Softmax_AVX_Float_M1";
      if (sse) return "Softmax_SSE_Float_M1";
      return "Softmax_Fallback_Float_M1";
    case LAYER_CLIP:
      if (avx) return "Clip_AVX_Float_M1";
      if (sse) return "Clip_SSE_Float_M1";
      return "Clip_Fallback_Float_M1";
    case LAYER_GRIDSAMPLE:  // the vector member reads C8HW8
      return "GridSample_Fallback_CHW_Float_M1";
    case LAYER_ADAPTIVE_MAXPOOL2D:
      return "AdaptivePooling2D_Max_Fallback_CHW_Float_M1";
    case LAYER_SQFC_CONV2D:
      return "SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1";
    case LAYER_SQFC_CONV2D_FOLDED_BN:
      return "SQFCConv2DFoldedBN_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1";
    // Shape operations: the cross-platform kernels serve every family.
    // TensorUnSqueezeInfo carries the code of TensorSqueezeInfo, so the
    // record's class decides between the two.
    case LAYER_TENSOR_SQUEEZE:
    case LAYER_TENSOR_UNSQUEEZE:
      return dynamic_cast<const TensorUnSqueezeInfo*>(&layer) ? "TensorUnSqueeze_Fallback_M1"
                                                               : "TensorSqueeze_Fallback_M1";
    case LAYER_TENSOR_RESHAPE:
      return "TensorReshape_Fallback_M1";
    case LAYER_TENSOR_TRANSPOSE:
      return "TensorTranspose_Fallback_M1";
    case LAYER_TENSOR_EXPAND:
      return "TensorExpand_Fallback_M1";
    case LAYER_TENSOR_SLICE:
      return "TensorSlice_Fallback_M1";
    case LAYER_TENSOR_GETITEM:
      return "TensorGetItem_Fallback_M1";
    // Prepared configurations are CHW throughout; a CHW concatenation is one
    // copy per input row, which no vector form improves on.
    case LAYER_CONCATENATE:
      return "Concatenate_Fallback_Float_M1";
    case LAYER_PAD1D:
      return "Pad1d_Fallback_Float_M1";
    case LAYER_PAD2D:
      if (avx) return "Pad2d_AVX_CHW_Float_M1";
      if (sse) return "Pad2d_SSE_CHW_Float_M1";
      return "Pad2d_Fallback_Float_M1";
    case LAYER_PIXELSHUFFLE:
      if (avx) return "PixelShuffle_AVX_CHW_Float_M1";
      if (sse) return "PixelShuffle_SSE_CHW_Float_M1";
      return "PixelShuffle_Fallback_CHW_Float_M1";
    case LAYER_SPACE_TO_DEPTH:
      return "SpaceToDepth_Fallback_CHW_Float_M1";
    // The CBLAS product runs on every x86-64; only the portable family keeps
    // the scalar reference.
    case LAYER_GEMM:
      return sse || avx || sgemm ? "Gemm_SGEMM_Float_M1" : "Gemm_Fallback_Float_M1";
    case LAYER_PLACEHOLDER: {
      const auto* p = dynamic_cast<const LayerPlaceholderInfo*>(&layer);
      utility::Log(utility::kLogError,
                   "Layer <%s> is a placeholder (%s): it describes a layer this library cannot run, and no kernel "
                   "is registered for it.",
                   layer.id.c_str(), p ? p->desc.c_str() : "");
      return "";
    }
    default:
      return "";
  }
}

using GpuChoice = std::function<KernelInferenceConfigPtr(const LayerInfo&)>;

InferenceConfigPtr Prepare(const TRModelInfo& model, const std::string& allocator, const GpuChoice& choose) {
  auto cfg = std::make_shared<InferenceConfig>();
  cfg->allocator_ = allocator;
  for (const std::string& id : model.squential_ids) {
    auto it = model.layers.find(id);
    LayerInferenceConfig entry;
    if (it != model.layers.end() && it->second) entry.kernel = choose(*it->second);
    cfg->config[id] = std::move(entry);
  }
  return cfg;
}

template <typename Param>
std::shared_ptr<InferenceParam> OpenGLParam() {
  auto p = std::make_shared<Param>();
  p->local_x = 8;
  p->local_y = 8;
  p->local_z = 1;
  return p;
}

std::shared_ptr<InferenceParam> OpenGLParamFor(ENUM_TYPE_LAYER type) {
  switch (type) {
    case LAYER_CONV2D: return OpenGLParam<InferenceParamConv2DOpenGLCompute>();
    case LAYER_CONVTRANSPOSE2D: return OpenGLParam<InferenceParamConvTranspose2DOpenGLCompute>();
    case LAYER_ELEMENTWISE: return OpenGLParam<InferenceParamElementwiseOpenGLCompute>();
    case LAYER_ACTIVATION: return OpenGLParam<InferenceParamActivationOpenGLCompute>();
    case LAYER_CONCATENATE: return OpenGLParam<InferenceParamConcatOpenGLCompute>();
    case LAYER_UPSAMPLE2D: return OpenGLParam<InferenceParamUpsampling2DOpenGLCompute>();
    case LAYER_PIXELSHUFFLE: return OpenGLParam<InferenceParamPixelShuffleOpenGLCompute>();
    case LAYER_AVGPOOL2D:
    case LAYER_MAXPOOL2D: return OpenGLParam<InferenceParamPooling2DOpenGLCompute>();
    case LAYER_FULLCONNECTION: return OpenGLParam<InferenceParamFullConnectionOpenGLCompute>();
    case LAYER_TENSOR_RESHAPE: return OpenGLParam<InferenceParamTensorReshapeOpenGLCompute>();
    case LAYER_TENSOR_EXPAND: return OpenGLParam<InferenceParamTensorExpandOpenGLCompute>();
    case LAYER_BROADCAST: return OpenGLParam<InferenceParamBroadcastOpenGLCompute>();
    default: return OpenGLParam<InferenceParamOpenGLCompute>();
  }
}

std::shared_ptr<InferenceParam> MetalParamFor(ENUM_TYPE_LAYER type) {
  switch (type) {
    case LAYER_CONV2D: return std::make_shared<InferenceParamConv2dMetalCompute>();
    case LAYER_ELEMENTWISE: return std::make_shared<InferenceParamElementwiseMetalCompute>();
    case LAYER_CONCATENATE: return std::make_shared<InferenceParamConcatenateMetalCompute>();
    default: return std::make_shared<InferenceParamMetalComputeCommon>();
  }
}

}  // namespace

InferenceConfigPtr CreateCfg(const TRModelInfo& model, const std::string& family) {
  return Prepare(model, "AlignUpPool", [&family](const LayerInfo& layer) -> KernelInferenceConfigPtr {
    const std::string name = CpuKernelName(layer, family);
    return name.empty() ? nullptr : MakeKernel(name);
  });
}

InferenceConfigPtr CreateOpenGLCfg(const TRModelInfo& model) {
  return Prepare(model, "OpenGLSSBO", [](const LayerInfo& layer) {
    return MakeKernel(LayerTypeToString(layer.type) + "_OpenGL_M1", OpenGLParamFor(layer.type));
  });
}

InferenceConfigPtr CreateMetalCfg(const TRModelInfo& model) {
  return Prepare(model, "MetalBuffer", [](const LayerInfo& layer) {
    return MakeKernel(LayerTypeToString(layer.type) + "_Metal_M1", MetalParamFor(layer.type));
  });
}

InferenceConfigPtr CreateMetalCfgImgC8HW8F16(const TRModelInfo& model) {
  return Prepare(model, "MetalImage", [](const LayerInfo& layer) {
    return MakeKernel(LayerTypeToString(layer.type) + "_Metal_IMG_C8HW8_F16_M1", MetalParamFor(layer.type));
  });
}

void RegisterConfigRecords(SerializableRegistry& registry) {
  for (const auto& entry : ParamCreators()) {
    registry.Register(entry.first, [creator = entry.second] { return SerializablePtr(creator()); }, false);
  }
  RegisterRecord<KernelCfg>(registry);
  RegisterRecord<KernelInferenceConfig>(registry);
  RegisterRecord<KernelCfgArr>(registry);
  RegisterRecord<LayerCfg>(registry);
  RegisterRecord<TRModelCfg>(registry);
  RegisterRecord<TRModelMultiBackendCfgs>(registry);
  RegisterRecord<TRModelMultiBackendCfgsArr>(registry);
  RegisterRecord<TRNModel>(registry);
}

}  // namespace runtime
}  // namespace tarn
