#include "tarn/utility/model_loader.h"

#include <stdexcept>

#include "tarn/kernel/register.h"
#include "tarn/runtime/device_cpu.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace utility {

namespace {

constexpr unsigned kCoreMajor = 1;
constexpr unsigned kCoreMinor = 0;

void RegisterParamIfAbsent(runtime::InferenceParamRegistry& params, const std::string& name) {
  if (params.Has(name)) return;
  params.Register(name, [name] { return runtime::CreateInferenceParamPtr(name); }, false);
}

}  // namespace

void init_register_operators(runtime::KernelRegistry& kernels, runtime::InferenceParamRegistry& params) {
  kernel::Register_CrossPlatform_Fallback(kernels);
  kernel::RegisterFallback(kernels);
  kernel::RegisterSSE(kernels);
  kernel::RegisterSSE(params);
  RegisterParamIfAbsent(params, "InferenceParamConv2DQuant");
  RegisterParamIfAbsent(params, "InferenceParamUpsampling2DQuant");
  kernel::RegisterAVX(kernels);
  kernel::RegisterAVX(params);
  RegisterParamIfAbsent(params, "InferenceParamConv2DQuant");
  kernel::RegisterSGEMM(kernels);
  kernel::RegisterSGEMM(params);
  RegisterParamIfAbsent(params, "InferenceParamConv2DQuant");
}

void create_context(std::shared_ptr<runtime::Context>& ctx, unsigned int alignment) {
  auto main_pool = std::make_shared<runtime::AlignUpPool>(alignment);
  auto second_pool = std::make_shared<runtime::AlignUpPool>(alignment);
  auto device = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), main_pool, nullptr, second_pool);
  ctx = runtime::CreateContext(device, nullptr, nullptr, nullptr, nullptr, nullptr);
}

int check_version(std::string sdk_type, unsigned short sdk_major, unsigned short sdk_minor, _TRNModelVerInfo info) {
  if (info.sdk_type != sdk_type) {
    Log(kLogError, "Model type is %s, can not match sdk type", info.sdk_type.c_str());
    return -2;
  }
  // Each field is compared on its own: a package asking for core 0.5 is refused too.
  if (info.core_major_ver > kCoreMajor || info.core_minor_ver != kCoreMinor) {
    Log(kLogError, "trn_core version required by model is larger than actually used!");
    return -2;
  }
  if (info.sdk_major_ver != sdk_major || info.sdk_minor_ver != sdk_minor) {
    Log(kLogError, "sdk version required by model: %d.%d", info.sdk_major_ver, info.sdk_minor_ver);
    Log(kLogError, "sdk version used now: %d.%d", sdk_major, sdk_minor);
    return -2;
  }
  return 0;
}

int load_model(std::string path, std::map<std::string, std::shared_ptr<_NetworkPackage>>& nets,
               std::shared_ptr<runtime::Context>& ctx, runtime::KernelRegistry& kernels,
               runtime::InferenceParamRegistry& params, std::string sdk_type, unsigned short sdk_major,
               unsigned short sdk_minor) {
  auto package = std::make_shared<runtime::TRNModel>();
  // A path shorter than an ending is a caller error: substr throws std::out_of_range.
  try {
    bool read = false;
    if (path.substr(path.size() - 5) == ".json") {
      read = package->FromFile(path.c_str(), "json");
    } else if (path.substr(path.size() - 9) == ".trnmodel") {
      read = package->FromFile(path.c_str(), "bin");
    } else {
      Assert(false, "Unknow file type, file path: %s.", path.c_str());
    }
    if (!read) return -2;
  } catch (const std::out_of_range&) {
    throw;
  } catch (const std::exception& e) {
    // The system's own checks have logged their message; the JSON and stream
    // layers may add a line of their own.
    Log(kLogError, "Cannot load model package %s: %s", path.c_str(), e.what());
    return -2;
  }

  _TRNModelVerInfo info;
  info.sdk_type = package->sdk_type;
  info.core_major_ver = package->core_major_ver;
  info.core_minor_ver = package->core_minor_ver;
  info.sdk_major_ver = package->sdk_major_ver;
  info.sdk_minor_ver = package->sdk_minor_ver;
  const int version = check_version(sdk_type, sdk_major, sdk_minor, info);
  if (version != 0) return version;

  for (const std::string& name : package->model_arr.squential_ids) {
    auto pkg = std::make_shared<_NetworkPackage>(kernels, params, ctx);
    std::shared_ptr<runtime::TRModelInfo> model;
    std::shared_ptr<runtime::TRModelMultiBackendCfgs> cfgs;
    auto m = package->model_arr.models.find(name);
    if (m != package->model_arr.models.end()) model = m->second;
    auto c = package->config_arr.configs.find(name);
    if (c != package->config_arr.configs.end()) cfgs = c->second;
    Load_Single_Net(pkg, model, cfgs, "x86");
    nets.emplace(name, pkg);  // an existing network of the same name stays
  }
  return 0;
}

void Load_Single_Net(std::shared_ptr<_NetworkPackage>& pkg, const std::shared_ptr<runtime::TRModelInfo>& model,
                     const std::shared_ptr<runtime::TRModelMultiBackendCfgs>& cfgs, const char* platform) {
  if (!model) {
    Log(kLogError, "No model to build.");
    return;
  }
  std::unordered_map<std::string, std::uint32_t> index_of;
  for (std::uint32_t i = 0; i < model->squential_ids.size(); ++i) index_of.emplace(model->squential_ids[i], i);
  for (const std::string& id : model->GetInputIDs()) {
    auto it = index_of.find(id);
    if (it != index_of.end()) pkg->input_tensors.emplace(it->second, nullptr);
  }
  for (const std::string& id : model->GetOutputIDs()) {
    auto it = index_of.find(id);
    if (it != index_of.end()) pkg->output_indices.push_back(it->second);
  }

  std::shared_ptr<runtime::TRModelCfg> configuration;
  const std::string where(platform ? platform : "");
  if (cfgs && where == "metal") {
    if (cfgs->gpu_metal && !cfgs->gpu_metal->summary.empty()) configuration = cfgs->gpu_metal;
  } else if (cfgs && where == "x86") {
    configuration = cfgs->cpu_sse;
  }

  pkg->net.reset();
  try {
    pkg->net = runtime::CreateNet(model, configuration, pkg->kernel_registry, pkg->context);
  } catch (const std::exception& e) {
    Log(kLogError, "Failed to build a net: %s", e.what());
  }
  pkg->extra_info = model->extra_info;
}

}  // namespace utility
}  // namespace tarn
