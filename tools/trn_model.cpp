// Converts model and configuration files between JSON and the binary format,
// and prints a summary of what a file holds.
//
//   trn_model summary FILE
//   trn_model convert IN OUT
//
// The record kind comes from the extension (".trmod" model, ".trcfg" network
// configuration, ".trmods" models, ".trcfgs" configurations of several
// networks, ".trnmodel" package) or, for ".json", from the document's keys.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <set>
#include <string>

#include "tarn/runtime/binary_stream.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/runtime/model_info.h"
#include "tarn/runtime/version1.h"
#include "tarn/utility/log.h"

using namespace tarn::runtime;

namespace {

enum class Kind { kModel, kModels, kNetConfig, kConfigs, kPackage, kUnknown };

bool EndsWith(const std::string& s, const std::string& suffix) {
  return s.size() >= suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool IsJson(const std::string& path) { return EndsWith(path, ".json"); }

Kind KindOfExtension(const std::string& path) {
  if (EndsWith(path, ".trmod")) return Kind::kModel;
  if (EndsWith(path, ".trmods")) return Kind::kModels;
  if (EndsWith(path, ".trcfg")) return Kind::kNetConfig;
  if (EndsWith(path, ".trcfgs")) return Kind::kConfigs;
  if (EndsWith(path, ".trnmodel")) return Kind::kPackage;
  return Kind::kUnknown;
}

Kind KindOfJson(const std::string& path) {
  const std::string text = ReadJsonFile2StrStream(path.c_str()).str();
  JSONDocument doc;
  ParseJsonObject(doc, text.c_str(), "The file is not a JSON object.");
  if (doc.HasMember("sdk_type")) return Kind::kPackage;
  auto type = doc.FindMember("serializable_type");
  if (type != doc.MemberEnd() && type->value.IsString()) {
    const std::string name = type->value.GetString();
    if (name == "TRModelInfo") return Kind::kModel;
    if (name == "TRModelInfoArr") return Kind::kModels;
  }
  if (doc.HasMember("squential_ids")) return doc.HasMember("summary") ? Kind::kNetConfig : Kind::kConfigs;
  return Kind::kUnknown;
}

std::shared_ptr<Serializable> MakeRecord(Kind kind) {
  switch (kind) {
    case Kind::kModel: return std::make_shared<TRModelInfo>();
    case Kind::kModels: return std::make_shared<TRModelInfoArr>();
    case Kind::kNetConfig: return std::make_shared<TRModelCfg>();
    case Kind::kConfigs: return std::make_shared<TRModelMultiBackendCfgsArr>();
    case Kind::kPackage: return std::make_shared<TRNModel>();
    default: return nullptr;
  }
}

std::shared_ptr<Serializable> Load(const std::string& path, Kind* kind_out) {
  const tarn1::Version1Detection legacy = tarn1::DetectVersion1File(path.c_str());
  if (legacy.detected) tarn::utility::AssertFailedMessage(tarn1::Version1Message(path, legacy));
  const Kind kind = IsJson(path) ? KindOfJson(path) : KindOfExtension(path);
  auto record = MakeRecord(kind);
  tarn::utility::Assert(record != nullptr, "Cannot tell what %s holds.", path.c_str());
  if (!record->FromFile(path.c_str(), IsJson(path) ? "json" : "bin")) {
    tarn::utility::AssertFailed("Cannot read %s.", path.c_str());
  }
  *kind_out = kind;
  return record;
}

const std::set<std::string>& WeightKeys() {
  static const std::set<std::string> keys = {
      "weight", "bias", "scale", "shift", "variance", "mean", "weight_ih", "weight_hh", "bias_ih", "bias_hh",
      "weight_ih_forward", "weight_hh_forward", "bias_ih_forward", "bias_hh_forward", "weight_ih_reverse",
      "weight_hh_reverse", "bias_ih_reverse", "bias_hh_reverse"};
  return keys;
}

// Float counts of the weight attributes of one layer, e.g. "weight 864, bias 32".
std::string WeightSizes(LayerInfo& layer) {
  JSONDocument doc;
  JSONValue value = ToJSONValue(&layer, doc.GetAllocator());
  std::string out;
  for (const auto& m : value.GetObject()) {
    const std::string key = m.name.GetString();
    if (!WeightKeys().count(key)) continue;
    size_t floats = 0;
    if (m.value.IsString()) {
      floats = Base64Decode(m.value.GetString()).size() / 4;
    } else if (m.value.IsArray()) {
      for (const auto& e : m.value.GetArray()) {
        if (e.IsString()) floats += Base64Decode(e.GetString()).size() / 4;
      }
    }
    if (floats == 0) continue;
    if (!out.empty()) out += ", ";
    out += key + " " + std::to_string(floats);
  }
  return out.empty() ? "-" : out;
}

void PrintModel(TRModelInfo& model, const std::string& indent) {
  const NetExtraInfo& e = model.extra_info;
  std::cout << indent << "model version " << e.version << ", app " << e.app_type << ", id " << e.model_id
            << ", base input " << e.model_base_w << "x" << e.model_base_h << ", fmlas " << e.fmlas << "\n";
  if (!e.device.empty() || !e.summary.empty()) std::cout << indent << "device \"" << e.device << "\", summary \"" << e.summary << "\"\n";
  std::cout << indent << model.squential_ids.size() << " layers; outputs:";
  for (const auto& id : model.GetOutputIDs()) std::cout << " " << id;
  std::cout << "\n";
  for (size_t i = 0; i < model.squential_ids.size(); ++i) {
    const std::string& id = model.squential_ids[i];
    auto it = model.layers.find(id);
    if (it == model.layers.end() || !it->second) continue;
    LayerInfo& layer = *it->second;
    std::cout << indent << "  [" << i << "] " << id << "  " << layer.serializable_type_ << " (type " << layer.type
              << " " << LayerTypeToString(layer.type) << ")  inputs:";
    if (layer.input_ids.empty()) std::cout << " -";
    for (const auto& in : layer.input_ids) std::cout << " " << in;
    std::cout << "  weights: " << WeightSizes(layer) << "\n";
  }
}

std::string KernelNames(const KernelCfgArr& arr) {
  std::string out;
  for (const auto& id : arr.kernel_ids) {
    auto it = arr.kernels.find(id);
    if (it == arr.kernels.end() || !it->second) continue;
    if (!out.empty()) out += ", ";
    out += id + ":" + it->second->kernel_type;
    if (it->second->infer_param) out += "(" + it->second->infer_param_type + ")";
  }
  return out.empty() ? "-" : out;
}

void PrintNetConfig(const TRModelCfg& cfg, const std::string& indent) {
  std::cout << indent << cfg.squential_ids.size() << " configured layers";
  if (!cfg.summary.empty()) std::cout << " (" << cfg.summary << ")";
  std::cout << "\n";
  for (const auto& id : cfg.squential_ids) {
    auto it = cfg.layers.find(id);
    if (it == cfg.layers.end() || !it->second) continue;
    std::cout << indent << "  " << id << ": in " << KernelNames(it->second->input_converters) << " | kernel "
              << KernelNames(it->second->kernel) << " | out " << KernelNames(it->second->output_converters) << "\n";
  }
}

void PrintConfigs(TRModelMultiBackendCfgsArr& arr, const std::string& indent) {
  for (const auto& name : arr.squential_ids) {
    auto it = arr.configs.find(name);
    if (it == arr.configs.end() || !it->second) continue;
    for (const char* backend :
         {"cpu_sse", "cpu_avx", "cpu_armv7", "cpu_armv8", "gpu_opengl", "gpu_metal", "gpu_cuda", "cpu_armv82"}) {
      auto cfg = it->second->Get(backend);
      if (!cfg || cfg->squential_ids.empty()) continue;
      std::cout << indent << name << " / " << backend << "\n";
      PrintNetConfig(*cfg, indent + "  ");
    }
  }
}

int Summary(const std::string& path) {
  Kind kind;
  auto record = Load(path, &kind);
  switch (kind) {
    case Kind::kModel:
      std::cout << path << ": model\n";
      PrintModel(static_cast<TRModelInfo&>(*record), "  ");
      break;
    case Kind::kModels: {
      auto& arr = static_cast<TRModelInfoArr&>(*record);
      std::cout << path << ": " << arr.squential_ids.size() << " models\n";
      for (const auto& name : arr.squential_ids) {
        std::cout << "  network " << name << "\n";
        if (arr.models[name]) PrintModel(*arr.models[name], "    ");
      }
      break;
    }
    case Kind::kNetConfig:
      std::cout << path << ": network configuration\n";
      PrintNetConfig(static_cast<TRModelCfg&>(*record), "  ");
      break;
    case Kind::kConfigs:
      std::cout << path << ": configurations\n";
      PrintConfigs(static_cast<TRModelMultiBackendCfgsArr&>(*record), "  ");
      break;
    case Kind::kPackage: {
      auto& pkg = static_cast<TRNModel&>(*record);
      std::cout << path << ": package for " << pkg.sdk_type << ", core " << pkg.core_major_ver << "."
                << pkg.core_minor_ver << ", sdk " << pkg.sdk_major_ver << "." << pkg.sdk_minor_ver << ", "
                << pkg.model_arr.squential_ids.size() << " networks\n";
      for (const auto& name : pkg.model_arr.squential_ids) {
        std::cout << "  network " << name << "\n";
        if (pkg.model_arr.models[name]) PrintModel(*pkg.model_arr.models[name], "    ");
      }
      PrintConfigs(pkg.config_arr, "  ");
      break;
    }
    default:
      return 1;
  }
  return 0;
}

int Convert(const std::string& in, const std::string& out) {
  Kind kind;
  auto record = Load(in, &kind);
  if (!IsJson(out)) {
    const Kind out_kind = KindOfExtension(out);
    tarn::utility::Assert(out_kind != Kind::kUnknown, "Unknown output extension: %s.", out.c_str());
    tarn::utility::Assert(out_kind == kind, "%s holds another kind of record than %s names.", in.c_str(), out.c_str());
  }
  if (!record->ToFile(out.c_str(), IsJson(out) ? "json" : "bin")) return 1;
  std::cout << in << " -> " << out << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "summary") == 0) {
    try {
      return Summary(argv[2]);
    } catch (const std::exception& e) {
      std::cerr << "error: " << e.what() << "\n";
      return 1;
    }
  }
  if (argc == 4 && std::strcmp(argv[1], "convert") == 0) {
    try {
      return Convert(argv[2], argv[3]);
    } catch (const std::exception& e) {
      std::cerr << "error: " << e.what() << "\n";
      return 1;
    }
  }
  std::cerr << "usage: trn_model summary FILE\n       trn_model convert IN OUT\n";
  return 2;
}
