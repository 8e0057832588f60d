#include <cstdlib>
#include <functional>

#include "tarn/runtime/net.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace runtime {

std::uint32_t ParseKernelId(const std::string& id) {
  return static_cast<std::uint32_t>(std::strtol(id.c_str(), nullptr, 10));
}

namespace {

// Runs Config, turning an exception of the kernel into a refusal.
bool RunConfig(IKernel& kernel, const std::shared_ptr<LayerInfo>& layer, const std::shared_ptr<InferenceParam>& param,
               const std::shared_ptr<Context>& ctx) {
  try {
    return kernel.Config(layer, param, ctx);
  } catch (const std::exception& e) {
    utility::Log(utility::kLogError, "Kernel <%s> refused its layer: %s", kernel.GetName().c_str(), e.what());
    return false;
  }
}

}  // namespace

std::shared_ptr<IKernel> CreateKernel(const std::shared_ptr<KernelCfg>& cfg, const std::shared_ptr<LayerInfo>& layer,
                                      const KernelRegistry& registry, const std::shared_ptr<Context>& ctx) {
  const std::string& name = cfg->kernel_type;
  std::shared_ptr<IKernel> kernel = registry.Create(name);
  utility::Log(utility::kLogVerbose, "Create Kernel >> %s >> %s", name.c_str(), kernel ? "ok" : "nullptr");
  utility::Assert(kernel != nullptr, "Kernel <%s> is not registered.", name.c_str());
  if (!RunConfig(*kernel, layer, cfg->infer_param, ctx)) {
    utility::Log(utility::kLogVerbose, "Config Kernel <%s> failed.", name.c_str());
    return nullptr;
  }
  return kernel;
}

std::shared_ptr<IKernel> ConfigKernel(std::shared_ptr<KernelInferenceConfig> cfg, std::shared_ptr<LayerInfo> layer,
                                      const KernelRegistry& registry, std::shared_ptr<Context> ctx) {
  if (!cfg) return nullptr;
  std::shared_ptr<IKernel> kernel = registry.Create(cfg->kernel_type);
  if (!kernel || !RunConfig(*kernel, layer, cfg->infer_param, ctx)) return nullptr;
  return kernel;
}

namespace {

// What went wrong with a kernel that could not be placed, for the report.
std::string WhyNoKernel(const std::string& name, const std::shared_ptr<LayerInfo>& layer,
                        const std::shared_ptr<InferenceParam>& param, const KernelRegistry& registry) {
  if (!registry.Has(name)) return "kernel <" + name + "> is not registered";
  try {
    std::shared_ptr<IKernel> probe = registry.Create(name);
    if (probe && probe->IsValidParam(layer, param) != 0) {
      return "kernel <" + name + "> does not compute this layer record (IsValidParam refuses it)";
    }
  } catch (const std::exception&) {
  }
  return "kernel <" + name + "> refused the layer in Config (see its message above)";
}

using Problems = std::vector<std::string>;

}  // namespace

class NetBuilder {
 public:
  // Lays out the layers of `model`; `configure` fills each layer's kernels and
  // notes every kernel it could not place. All layers are tried, so that a
  // broken configuration is reported whole before the check fails.
  static std::shared_ptr<Net> Build(const TRModelInfo& model,
                                    const std::function<void(Layer&, Problems&)>& configure) {
    auto net = std::make_shared<Net>();
    net->output_ids_ = model.GetOutputIDs();
    Problems report;
    for (size_t i = 0; i < model.squential_ids.size(); ++i) {
      const std::string& id = model.squential_ids[i];
      auto layer = std::make_shared<Layer>();
      layer->id = id;
      auto it = model.layers.find(id);
      if (it != model.layers.end()) layer->layer_info = it->second;
      const ENUM_TYPE_LAYER type = layer->layer_info ? layer->layer_info->type : LAYER_UNKNOWN;
      net->type_names_.push_back(LayerTypeToString(type));
      if (type == LAYER_INPUT) net->inputs_[id] = static_cast<std::uint32_t>(i);
      Problems problems;
      if (layer->layer_info) {
        try {
          configure(*layer, problems);
        } catch (const std::exception& e) {
          problems.push_back(e.what());
        }
      } else {
        problems.push_back("the model holds no record for it");
      }
      if (!layer->kernel && problems.empty()) problems.push_back("its configuration names no compute kernel");
      for (const std::string& p : problems) {
        report.push_back(utility::FormatString("layer %zu <%s> (%s): %s", i, id.c_str(), net->type_names_.back().c_str(),
                                               p.c_str()));
      }
      net->layers_.push_back(layer);
      net->index_of_.emplace(id, static_cast<std::uint32_t>(i));
    }
    if (!report.empty()) {
      for (const std::string& line : report) utility::Log(utility::kLogError, "%s", line.c_str());
      utility::Log(utility::kLogError, "The net cannot be built: %zu problem(s) in %zu layers.", report.size(),
                   model.squential_ids.size());
    }
    utility::Assert(report.empty());
    Link(*net);
    return net;
  }

 private:
  // Resolves every layer's inputs to earlier layers and finds each output's last reader.
  static void Link(Net& net) {
    const size_t n = net.layers_.size();
    net.producers_.assign(n, {});
    net.last_reader_.assign(n, -1);
    std::unordered_map<std::string, std::uint32_t> seen;
    for (size_t i = 0; i < n; ++i) {
      const Layer& layer = *net.layers_[i];
      if (layer.layer_info && layer.layer_info->type != LAYER_INPUT) {
        for (const std::string& input : layer.layer_info->input_ids) {
          // Only layers that come earlier can be read; later ones (cycles) stay unresolved.
          auto it = seen.find(input);
          const std::int64_t p = it == seen.end() ? std::int64_t(-1) : std::int64_t(it->second);
          net.producers_[i].push_back(p);
          if (p >= 0) net.last_reader_[p] = static_cast<std::int64_t>(i);
        }
      }
      seen[layer.id] = static_cast<std::uint32_t>(i);  // a repeated id reads the latest layer of that name
    }
  }
};

namespace {

template <typename Arr>
void PlaceKernels(Layer& layer, const Arr& arr, std::map<std::uint32_t, std::shared_ptr<IKernel>>* converters,
                  const char* role, const KernelRegistry& registry, const std::shared_ptr<Context>& ctx,
                  Problems& problems) {
  for (const std::string& kid : arr.kernel_ids) {
    auto it = arr.kernels.find(kid);
    if (it == arr.kernels.end() || !it->second) continue;
    const KernelCfg& cfg = *it->second;
    std::shared_ptr<IKernel> kernel;
    try {
      kernel = CreateKernel(it->second, layer.layer_info, registry, ctx);
    } catch (const std::exception&) {
      // An unregistered name: CreateKernel has logged it; the report says it again.
    }
    if (!kernel) {
      // A converter that fails would silently change the layer's meaning, so it is fatal too.
      problems.push_back(std::string(role) + " " + kid + ": " +
                         WhyNoKernel(cfg.kernel_type, layer.layer_info, cfg.infer_param, registry));
      continue;
    }
    if (converters) {
      (*converters)[ParseKernelId(kid)] = kernel;
    } else {
      layer.kernel = kernel;
    }
  }
}

void PlaceConverters(Layer& layer, const std::map<std::string, KernelInferenceConfigPtr>& list,
                     std::map<std::uint32_t, std::shared_ptr<IKernel>>& converters, const char* role,
                     const KernelRegistry& registry, const std::shared_ptr<Context>& ctx, Problems& problems) {
  for (const auto& entry : list) {
    auto kernel = ConfigKernel(entry.second, layer.layer_info, registry, ctx);
    if (!kernel) {
      problems.push_back(std::string(role) + " " + entry.first + ": " +
                         (entry.second ? WhyNoKernel(entry.second->kernel_type, layer.layer_info,
                                                     entry.second->infer_param, registry)
                                       : std::string("no kernel named")));
      continue;
    }
    converters[ParseKernelId(entry.first)] = kernel;
  }
}

}  // namespace

std::shared_ptr<Net> CreateNet(const std::shared_ptr<TRModelInfo>& model, const std::shared_ptr<TRModelCfg>& cfg,
                               const KernelRegistry& registry, const std::shared_ptr<Context>& ctx) {
  return NetBuilder::Build(*model, [&](Layer& layer, Problems& problems) {
    if (!cfg) return;
    auto it = cfg->layers.find(layer.id);
    if (it == cfg->layers.end() || !it->second) return;
    const LayerCfg& lc = *it->second;
    PlaceKernels(layer, lc.input_converters, &layer.input_converters, "input converter", registry, ctx, problems);
    PlaceKernels(layer, lc.kernel, nullptr, "compute kernel", registry, ctx, problems);
    PlaceKernels(layer, lc.output_converters, &layer.output_converters, "output converter", registry, ctx, problems);
  });
}

std::shared_ptr<Net> CreateNet(const std::shared_ptr<TRModelInfo>& model, std::shared_ptr<InferenceConfig> cfg,
                               const KernelRegistry& registry, std::shared_ptr<Context> ctx) {
  return NetBuilder::Build(*model, [&](Layer& layer, Problems& problems) {
    if (!cfg) return;
    const LayerInferenceConfig* lc = cfg->Find(layer.id);
    if (lc == nullptr) return;
    PlaceConverters(layer, lc->input_converters, layer.input_converters, "input converter", registry, ctx, problems);
    layer.kernel = ConfigKernel(lc->kernel, layer.layer_info, registry, ctx);
    if (!layer.kernel && lc->kernel) {
      problems.push_back("compute kernel: " +
                         WhyNoKernel(lc->kernel->kernel_type, layer.layer_info, lc->kernel->infer_param, registry));
    }
    PlaceConverters(layer, lc->output_converters, layer.output_converters, "output converter", registry, ctx,
                    problems);
  });
}

}  // namespace runtime
}  // namespace tarn
