#include <algorithm>
#include <cstdlib>
#include <functional>
#include <unordered_map>

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

// A field of the record when it is of class T (a repeated layer id can leave a
// record whose class is not the one its type code names), else -1.
template <typename T, typename Member>
std::int64_t Field(const LayerInfo& layer, Member field) {
  const T* record = dynamic_cast<const T*>(&layer);
  return record ? static_cast<std::int64_t>(record->*field) : -1;
}

// The record-fixed channel count of one layer's output from its inputs' counts.
std::int64_t LayerChannels(const LayerInfo& layer, const std::vector<std::int64_t>& in) {
  const std::int64_t first = in.empty() ? -1 : in[0];
  switch (layer.type) {
    case LAYER_CONV2D:
      return Field<Conv2dInfo>(layer, &Conv2dInfo::out_channels);
    case LAYER_CONVTRANSPOSE2D:
      return Field<ConvTranspose2dInfo>(layer, &ConvTranspose2dInfo::out_channels);
    case LAYER_SQFC_CONV2D:
    case LAYER_SQFC_CONV2D_FOLDED_BN:
      return Field<SQFCConv2dInfo>(layer, &SQFCConv2dInfo::out_channels);
    case LAYER_CONV1D:
      return Field<Conv1dInfo>(layer, &Conv1dInfo::out_channels);
    case LAYER_FULLCONNECTION:
      return Field<FullConnectionInfo>(layer, &FullConnectionInfo::out_features);
    case LAYER_BATCHNORM2D:
      return Field<BatchNorm2dInfo>(layer, &BatchNorm2dInfo::num_features);
    case LAYER_BATCHNORM1D:
      return Field<BatchNorm1dInfo>(layer, &BatchNorm1dInfo::num_features);
    case LAYER_INSTANCENORM2D:
      return Field<InstanceNorm2dInfo>(layer, &InstanceNorm2dInfo::num_features);
    case LAYER_CONCATENATE: {
      std::int64_t sum = 0;
      for (std::int64_t c : in) {
        if (c < 0) return -1;
        sum += c;
      }
      const std::int64_t dim = Field<ConcatenateInfo>(layer, &ConcatenateInfo::dim);
      if (dim < 0) return -1;
      if (dim == 0) return in.empty() ? -1 : sum;
      for (std::int64_t c : in) {
        if (c != first) return -1;
      }
      return first;
    }
    case LAYER_PIXELSHUFFLE: {
      const auto* info = dynamic_cast<const PixelShuffleInfo*>(&layer);
      if (!info) return -1;
      const float r = info->upscale_factor;
      if (first < 0 || !(r >= 1.0f && r <= 65535.0f) || r != static_cast<float>(static_cast<std::int64_t>(r))) return -1;
      const std::int64_t rr = static_cast<std::int64_t>(r) * static_cast<std::int64_t>(r);
      return first % rr == 0 ? first / rr : -1;
    }
    case LAYER_SPACE_TO_DEPTH: {
      const auto* info = dynamic_cast<const SpaceToDepthInfo*>(&layer);
      if (!info) return -1;
      const float b = info->scale_factor;
      if (first < 0 || !(b >= 1.0f && b <= 65535.0f) || b != static_cast<float>(static_cast<std::int64_t>(b))) return -1;
      return first * static_cast<std::int64_t>(b) * static_cast<std::int64_t>(b);
    }
    case LAYER_BROADCAST: {
      std::int64_t most = -1;
      for (std::int64_t c : in) {
        if (c < 0) return -1;
        most = std::max(most, c);
      }
      return most;
    }
    case LAYER_ELEMENTWISE:
      for (std::int64_t c : in) {
        if (c >= 0) return c;
      }
      return -1;
    case LAYER_ACTIVATION:
    case LAYER_AVGPOOL2D:
    case LAYER_MAXPOOL2D:
    case LAYER_ADAPTIVE_AVGPOOL2D:
    case LAYER_ADAPTIVE_MAXPOOL2D:
    case LAYER_UPSAMPLE2D:
    case LAYER_PAD2D:
    case LAYER_CLIP:
    case LAYER_SOFTMAX:
    case LAYER_GRIDSAMPLE:
      return first;
    default:
      return -1;
  }
}

}  // namespace

std::vector<std::int64_t> InferChannelCounts(const TRModelInfo& model) {
  std::vector<std::int64_t> counts;
  std::unordered_map<std::string, std::size_t> seen;
  for (std::size_t i = 0; i < model.squential_ids.size(); ++i) {
    const std::string& id = model.squential_ids[i];
    auto it = model.layers.find(id);
    std::int64_t count = -1;
    if (it != model.layers.end() && it->second) {
      std::vector<std::int64_t> in;
      for (const std::string& input : it->second->input_ids) {
        auto p = seen.find(input);
        in.push_back(p == seen.end() ? -1 : counts[p->second]);
      }
      count = LayerChannels(*it->second, in);
    }
    counts.push_back(count);
    seen[id] = i;  // a repeated id reads the latest layer of that name
  }
  return counts;
}

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
    HandOverChannels(model, *net);
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

  // Gives the kernels that need them the channel counts of their inputs.
  static void HandOverChannels(const TRModelInfo& model, Net& net) {
    const std::vector<std::int64_t> counts = InferChannelCounts(model);
    for (size_t i = 0; i < net.layers_.size(); ++i) {
      auto* receiver = dynamic_cast<BlockedChannelsReceiver*>(net.layers_[i]->kernel.get());
      if (!receiver) continue;
      std::vector<std::int64_t> in;
      for (std::int64_t p : net.producers_[i]) in.push_back(p >= 0 ? counts[p] : -1);
      receiver->SetInputChannels(in);
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
