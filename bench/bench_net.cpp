// Whole-network runs: the executor's overhead per layer and the peak memory
// of a deep chain, where every intermediate output is released after its
// last reader (the peak stays at a few live tensors, not the sum of layers).
#include <string>

#include "bench_common.h"
#include "tarn/runtime/net.h"
#include "tarn/utility/model_loader.h"

namespace {

using namespace tarn;

// input -> `depth` activation layers in a chain, each `channels` x 56 x 56.
std::shared_ptr<runtime::Net> Chain(int depth, const std::string& kernel, runtime::KernelRegistry& registry,
                                    const std::shared_ptr<runtime::Context>& ctx) {
  auto model = std::make_shared<runtime::TRModelInfo>();
  auto cfg = std::make_shared<runtime::TRModelCfg>();
  auto add = [&](runtime::LayerInfoPtr layer, const std::string& id, const std::string& input,
                 const std::string& name) {
    layer->id = id;
    if (!input.empty()) layer->input_ids = {input};
    model->squential_ids.push_back(id);
    model->squential_types.push_back(layer->type);
    model->layers[id] = layer;
    auto lc = std::make_shared<runtime::LayerCfg>();
    lc->kernel.kernel_ids = {"0"};
    lc->kernel.kernels["0"] = std::make_shared<runtime::KernelCfg>();
    lc->kernel.kernels["0"]->kernel_type = name;
    cfg->squential_ids.push_back(id);
    cfg->layers[id] = lc;
  };
  add(std::make_shared<runtime::InputInfo>(), "x", "", "Input_Fallback_M1");
  std::string prev = "x";
  for (int i = 0; i < depth; ++i) {
    const std::string id = "a" + std::to_string(i);
    add(std::make_shared<runtime::ActivationInfo>(), id, prev, kernel);
    prev = id;
  }
  model->squential_output_ids = {prev};
  return runtime::CreateNet(model, cfg, registry, ctx);
}

void BM_DeepChain(benchmark::State& state) {
  const int depth = static_cast<int>(state.range(0));
  const unsigned channels = 64;
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  std::shared_ptr<runtime::Context> ctx;
  utility::create_context(ctx, 64);
  auto net = Chain(depth, "ReLU_Fallback_Float_M1", kernels, ctx);
  auto input = ctx->cpu->CreateZeroF32CHWMainMem(channels, 56, 56);
  const double tensor_mb = static_cast<double>(input->shape.Bytes()) / (1 << 20);
  ctx->cpu->pool()->ResetPeak();
  for (auto _ : state) {
    auto out = net->Forward({{0, input}}, {static_cast<std::uint32_t>(depth)}, ctx);
    if (out.empty()) state.SkipWithError("forward failed");
    benchmark::DoNotOptimize(out);
  }
  const double peak_mb = static_cast<double>(ctx->cpu->pool()->PeakBytesInUse()) / (1 << 20);
  state.counters["tensor_MiB"] = tensor_mb;
  state.counters["peak_MiB"] = peak_mb;
  state.counters["all_layers_MiB"] = tensor_mb * (depth + 1);
  state.counters["peak_in_tensors"] = peak_mb / tensor_mb;
  state.counters["time_per_layer"] = benchmark::Counter(
      static_cast<double>(depth), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_DeepChain)->Arg(8)->Arg(64)->Arg(256)->Unit(benchmark::kMillisecond);

}  // namespace

TRN_BENCHMARK_MAIN();
