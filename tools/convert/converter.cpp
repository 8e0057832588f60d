#include "convert/converter.h"

#include <cstdio>
#include <ctime>
#include <unistd.h>

namespace tarn {
namespace convert {

namespace {

bool EndsWith(const std::string& s, const std::string& end) {
  return s.size() >= end.size() && s.compare(s.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

bool ConvertGraph(Graph graph, const ConvertOptions& options, Planner& planner, ConvertResult* result) {
  Problems& problems = result->problems;
  RemoveNoOps(&graph, &result->passes);
  // Folding can make shapes known (a Reshape whose shape was a chain of
  // Shape, Gather and Concat), which lets more fold: twice is enough for
  // what exporters write.
  for (int round = 0; round < 2; ++round) {
    const int before = result->passes.folded;
    FoldConstants(&graph, &result->passes);
    if (result->passes.folded == before && round > 0) break;
    if (!InferShapes(&graph, &problems)) return false;
  }
  FoldPadding(&graph, &result->passes);
  CanonicaliseArithmetic(&graph);
  FoldIntoWeights(&graph, &result->passes);
  FuseHardSwish(&graph, &result->passes);
  if (!MapGraph(graph, &result->model, &problems)) return false;
  result->warnings = result->model.warnings;
  if (!planner.Make(result->model, options.plan, &result->plan, &problems)) return false;
  if (options.verify) {
    const std::string why = planner.Verify(result->model, result->plan);
    if (why.empty()) {
      result->verified = true;
    } else if (why.find("this processor") == std::string::npos) {
      problems.push_back(Problem{"", "", "the planned net does not run: " + why});
      return false;
    }
  }
  const std::string summary = "converted from ONNX (" + graph.producer + ", opset " + std::to_string(graph.opset) +
                              ") by trn_convert, target " + TargetName(result->plan.target);
  result->package = MakePackage(result->model, result->plan, options.net_name, summary);
  return true;
}

bool ConvertOnnx(const void* data, std::size_t size, const ConvertOptions& options, Planner& planner,
                 ConvertResult* result) {
  Graph graph;
  if (!ReadOnnxModel(data, size, &graph, &result->problems, options.limits)) return false;
  return ConvertGraph(std::move(graph), options, planner, result);
}

bool ConvertOnnxFile(const std::string& path, const ConvertOptions& options, Planner& planner, ConvertResult* result) {
  Graph graph;
  if (!ReadOnnxFile(path, &graph, &result->problems, options.limits)) return false;
  return ConvertGraph(std::move(graph), options, planner, result);
}

std::shared_ptr<runtime::TRNModel> MakePackage(const MappedModel& model, const Plan& plan, const std::string& name,
                                               const std::string& summary) {
  auto package = std::make_shared<runtime::TRNModel>();
  const bool avx = plan.target == Target::kAVX;
  package->sdk_type = avx ? "cpu_avx" : "cpu_sse";
  package->core_major_ver = 1;
  package->core_minor_ver = 0;
  package->sdk_major_ver = 1;
  package->sdk_minor_ver = 0;

  auto info = Planner::ModelInfo(model, name);
  runtime::NetExtraInfo& extra = info->extra_info;
  extra.version = 1;
  extra.device = std::string("x86-64, ") + TargetName(plan.target) + " kernels";
  extra.summary = summary;
  for (const MappedLayer& l : model.layers) {
    if (l.record->type == runtime::LAYER_INPUT && l.dims.size() == 3) {
      extra.model_base_h = l.dims[1];
      extra.model_base_w = l.dims[2];
      break;
    }
  }
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  extra.time.year = static_cast<std::uint32_t>(utc.tm_year + 1900);
  extra.time.moon = static_cast<std::uint32_t>(utc.tm_mon + 1);
  extra.time.day = static_cast<std::uint32_t>(utc.tm_mday);
  extra.time.hour = static_cast<std::uint32_t>(utc.tm_hour);
  extra.time.min = static_cast<std::uint32_t>(utc.tm_min);
  extra.time.sec = static_cast<std::uint32_t>(utc.tm_sec);
  package->model_arr.squential_ids = {name};
  package->model_arr.models[name] = info;

  auto cfgs = std::make_shared<runtime::TRModelMultiBackendCfgs>();
  auto cfg = Planner::ModelCfg(plan);
  cfg->summary = std::string("planned for ") + TargetName(plan.target) + ", blocked layout " +
                 (plan.blocked == Layout::kPlanar ? "none" : LayoutName(plan.blocked));
  cfgs->cpu_sse = cfg;
  if (avx) cfgs->cpu_avx = cfg;
  package->config_arr.squential_ids = {name};
  package->config_arr.configs[name] = cfgs;
  return package;
}

bool WritePackage(runtime::TRNModel& package, const std::string& path, std::string* error) {
  const char* format = EndsWith(path, ".json") ? "json" : EndsWith(path, ".trnmodel") ? "bin" : nullptr;
  if (!format) {
    *error = "the output must end in .json or .trnmodel";
    return false;
  }
  const std::string partial = path + ".partial" + std::to_string(::getpid());
  bool ok = false;
  try {
    ok = package.ToFile(partial.c_str(), format);
  } catch (const std::exception& e) {
    *error = e.what();
  }
  if (ok && std::rename(partial.c_str(), path.c_str()) != 0) {
    *error = "cannot rename the written file to " + path;
    ok = false;
  }
  if (!ok) {
    std::remove(partial.c_str());
    if (error->empty()) *error = "cannot write " + path;
  }
  return ok;
}

std::string FormatProblems(const Problems& problems) {
  std::string text;
  for (const Problem& p : problems) {
    if (p.node.empty()) {
      text += "  model: " + p.message + "\n";
    } else {
      text += "  node '" + p.node + "' (" + p.op + "): " + p.message + "\n";
    }
  }
  return text;
}

}  // namespace convert
}  // namespace tarn
