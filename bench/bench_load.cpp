// Load time of model packages: reading the file into records, building the
// nets from the records (kernel configuration, weight re-packing), and the
// whole load_model call, beside the time it takes just to read the file's bytes
// (the floor any loader pays), measured in the same run.
//
//   bench_load [PACKAGE...] [benchmark flags]
//
// Without packages it measures build/models/resnet18.{json,trnmodel} (made by
// tools/make_resnet18_package.py) when they exist, and the shipped demo.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bench_common.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/utility/log.h"
#include "tarn/utility/model_loader.h"

#ifndef TRN_SOURCE_DIR
#define TRN_SOURCE_DIR "."
#endif

namespace {

using namespace tarn;

bool EndsWith(const std::string& s, const char* suffix) {
  const std::string t(suffix);
  return s.size() >= t.size() && s.compare(s.size() - t.size(), t.size(), t) == 0;
}

bool Exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

struct Registries {
  Registries() { utility::init_register_operators(kernels, params); }
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
};

Registries& Shared() {
  static Registries* r = new Registries();
  return *r;
}

std::shared_ptr<runtime::TRNModel> Read(const std::string& path) {
  auto package = std::make_shared<runtime::TRNModel>();
  if (!package->FromFile(path.c_str(), EndsWith(path, ".json") ? "json" : "bin")) return nullptr;
  return package;
}

void BM_FileBytes(benchmark::State& state, const std::string& path) {
  std::vector<char> buffer;
  for (auto _ : state) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
      state.SkipWithError("cannot open");
      return;
    }
    std::fseek(f, 0, SEEK_END);
    buffer.resize(static_cast<size_t>(std::ftell(f)));
    std::fseek(f, 0, SEEK_SET);
    const size_t n = std::fread(buffer.data(), 1, buffer.size(), f);
    std::fclose(f);
    benchmark::DoNotOptimize(n);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * buffer.size()));
}

void BM_Read(benchmark::State& state, const std::string& path) {
  for (auto _ : state) {
    auto package = Read(path);
    if (!package) state.SkipWithError("cannot read");
    benchmark::DoNotOptimize(package);
  }
}

void BM_Build(benchmark::State& state, const std::string& path) {
  auto package = Read(path);
  if (!package) {
    state.SkipWithError("cannot read");
    return;
  }
  std::shared_ptr<runtime::Context> ctx;
  utility::create_context(ctx, 64);
  for (auto _ : state) {
    for (const std::string& name : package->model_arr.squential_ids) {
      auto cfgs = package->config_arr.configs[name];
      auto net = runtime::CreateNet(package->model_arr.models[name], cfgs ? cfgs->cpu_sse : nullptr,
                                    Shared().kernels, ctx);
      benchmark::DoNotOptimize(net);
    }
  }
}

void BM_LoadModel(benchmark::State& state, const std::string& path) {
  std::shared_ptr<runtime::Context> ctx;
  utility::create_context(ctx, 64);
  for (auto _ : state) {
    std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
    const int rc = utility::load_model(path, nets, ctx, Shared().kernels, Shared().params, "cpu_sse", 1, 0);
    if (rc != 0 || nets.empty() || !nets.begin()->second->net) state.SkipWithError("load_model failed");
    benchmark::DoNotOptimize(nets);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::vector<std::string> packages(argv + 1, argv + argc);
  if (packages.empty()) {
    for (const char* p : {TRN_SOURCE_DIR "/build/models/resnet18.json", TRN_SOURCE_DIR "/build/models/resnet18.trnmodel",
                          TRN_SOURCE_DIR "/examples/models/tiny_cnn.json"}) {
      if (Exists(p)) packages.push_back(p);
    }
  }
  tarn::bench::AddRunContext();
  for (const std::string& path : packages) {
    const std::string name = path.substr(path.find_last_of('/') + 1);
    for (auto* b : {benchmark::RegisterBenchmark(("file_bytes/" + name).c_str(), BM_FileBytes, path),
                    benchmark::RegisterBenchmark(("read/" + name).c_str(), BM_Read, path),
                    benchmark::RegisterBenchmark(("build/" + name).c_str(), BM_Build, path),
                    benchmark::RegisterBenchmark(("load_model/" + name).c_str(), BM_LoadModel, path)}) {
      // On a loaded machine the least of several runs is the best estimate of
      // the uncontended time; the CPU column (user + system, page faults
      // included) suffers less from other processes than the wall time.
      b->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0)->Repetitions(5)->ReportAggregatesOnly(true);
      b->ComputeStatistics("min", [](const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); });
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
