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

class NetBuilder {
 public:
  // Lays out the layers of `model`; `configure` fills each layer's kernels.
  static std::shared_ptr<Net> Build(const TRModelInfo& model, const std::function<void(Layer&)>& configure) {
    auto net = std::make_shared<Net>();
    net->output_ids_ = model.GetOutputIDs();
    for (size_t i = 0; i < model.squential_ids.size(); ++i) {
      const std::string& id = model.squential_ids[i];
      auto layer = std::make_shared<Layer>();
      layer->id = id;
      auto it = model.layers.find(id);
      if (it != model.layers.end()) layer->layer_info = it->second;
      const ENUM_TYPE_LAYER type = layer->layer_info ? layer->layer_info->type : LAYER_UNKNOWN;
      net->type_names_.push_back(LayerTypeToString(type));
      if (type == LAYER_INPUT) net->inputs_[id] = static_cast<std::uint32_t>(i);
      if (layer->layer_info) configure(*layer);
      utility::Assert(layer->kernel != nullptr);
      net->layers_.push_back(layer);
      net->index_of_.emplace(id, static_cast<std::uint32_t>(i));
    }
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
                  const KernelRegistry& registry, const std::shared_ptr<Context>& ctx) {
  for (const std::string& kid : arr.kernel_ids) {
    auto it = arr.kernels.find(kid);
    if (it == arr.kernels.end() || !it->second) continue;
    std::shared_ptr<IKernel> kernel = CreateKernel(it->second, layer.layer_info, registry, ctx);
    if (converters) {
      // A converter that fails would silently change the layer's meaning.
      utility::Assert(kernel != nullptr, "Converter kernel %s of layer <%s> is not configured.", kid.c_str(),
                      layer.id.c_str());
      (*converters)[ParseKernelId(kid)] = kernel;
    } else {
      layer.kernel = kernel;
    }
  }
}

void PlaceConverters(Layer& layer, const std::map<std::string, KernelInferenceConfigPtr>& list,
                     std::map<std::uint32_t, std::shared_ptr<IKernel>>& converters, const KernelRegistry& registry,
                     const std::shared_ptr<Context>& ctx) {
  for (const auto& entry : list) {
    auto kernel = ConfigKernel(entry.second, layer.layer_info, registry, ctx);
    utility::Assert(kernel != nullptr, "Converter kernel %s of layer <%s> is not configured.", entry.first.c_str(),
                    layer.id.c_str());
    converters[ParseKernelId(entry.first)] = kernel;
  }
}

}  // namespace

std::shared_ptr<Net> CreateNet(const std::shared_ptr<TRModelInfo>& model, const std::shared_ptr<TRModelCfg>& cfg,
                               const KernelRegistry& registry, const std::shared_ptr<Context>& ctx) {
  return NetBuilder::Build(*model, [&](Layer& layer) {
    if (!cfg) return;
    auto it = cfg->layers.find(layer.id);
    if (it == cfg->layers.end() || !it->second) return;
    const LayerCfg& lc = *it->second;
    PlaceKernels(layer, lc.input_converters, &layer.input_converters, registry, ctx);
    PlaceKernels(layer, lc.kernel, nullptr, registry, ctx);
    PlaceKernels(layer, lc.output_converters, &layer.output_converters, registry, ctx);
  });
}

std::shared_ptr<Net> CreateNet(const std::shared_ptr<TRModelInfo>& model, std::shared_ptr<InferenceConfig> cfg,
                               const KernelRegistry& registry, std::shared_ptr<Context> ctx) {
  return NetBuilder::Build(*model, [&](Layer& layer) {
    if (!cfg) return;
    const LayerInferenceConfig* lc = cfg->Find(layer.id);
    if (lc == nullptr) return;
    PlaceConverters(layer, lc->input_converters, layer.input_converters, registry, ctx);
    layer.kernel = ConfigKernel(lc->kernel, layer.layer_info, registry, ctx);
    PlaceConverters(layer, lc->output_converters, layer.output_converters, registry, ctx);
  });
}

}  // namespace runtime
}  // namespace tarn
