// The fixed-geometry SSE convolution members, the Winograd members and the
// 16-bit member on the real layer shapes each serves, single thread. Every
// row is labelled with its layer and gives GFLOP/s (direct convolution flops,
// also for Winograd), the fraction of the SSE FMA peak measured in the same
// run, and the ratio to the general SSE member of the same layout on the same
// layer (Winograd and the other CHW 3x3 members also against the direct CHW
// 3x3 member). The 16-bit member is set against the general C8HW8 member
// (its input and output already 16-bit; the converters are timed apart, in
// GB/s against memcpy). A table of all of it is printed at the end.
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench_common.h"
#include "tarn/runtime/inference_config.h"

namespace {

using tarn::bench::Context;
using tarn::bench::MapTensor;
using tarn::bench::Random;
using tarn::bench::Registry;
using tarn::runtime::TensorShape;
using TensorPtr = std::shared_ptr<tarn::runtime::Tensor>;

struct Layer {
  const char* label;
  unsigned c, n, h, w, ky, kx, s, py, px;
  unsigned OutH() const { return (h + 2 * py - ky) / s + 1; }
  unsigned OutW() const { return (w + 2 * px - kx) / s + 1; }
  double Flops() const { return 2.0 * n * c * ky * kx * OutH() * OutW(); }
};

const Layer kLayers[] = {
    {"resnet18 3x3 64->64 56x56", 64, 64, 56, 56, 3, 3, 1, 1, 1},
    {"resnet18 3x3 128->128 28x28", 128, 128, 28, 28, 3, 3, 1, 1, 1},
    {"resnet18 3x3 256->256 14x14", 256, 256, 14, 14, 3, 3, 1, 1, 1},
    {"resnet18 3x3 512->512 7x7", 512, 512, 7, 7, 3, 3, 1, 1, 1},
    {"resnet18 3x3/2 64->128 56x56", 64, 128, 56, 56, 3, 3, 2, 1, 1},
    {"resnet18 3x3/2 256->512 14x14", 256, 512, 14, 14, 3, 3, 2, 1, 1},
    {"resnet18 1x1/2 64->128 56x56", 64, 128, 56, 56, 1, 1, 2, 0, 0},
    {"resnet18 1x1/2 256->512 14x14", 256, 512, 14, 14, 1, 1, 2, 0, 0},
    {"mbv2 1x1 24->144 56x56", 24, 144, 56, 56, 1, 1, 1, 0, 0},
    {"mbv2 1x1 144->24 56x56", 144, 24, 56, 56, 1, 1, 1, 0, 0},
    {"mbv2 1x1 96->576 14x14", 96, 576, 14, 14, 1, 1, 1, 0, 0},
    {"mbv2 stem 3x3/2 3->32 224x224", 3, 32, 224, 224, 3, 3, 2, 1, 1},
    {"squeezenet fire3 1x1 128->16 55x55", 128, 16, 55, 55, 1, 1, 1, 0, 0},
    {"squeezenet fire3 1x1 16->64 55x55", 16, 64, 55, 55, 1, 1, 1, 0, 0},
    {"squeezenet fire3 3x3 16->64 55x55", 16, 64, 55, 55, 3, 3, 1, 1, 1},
    {"squeezenet fire9 3x3 64->256 13x13", 64, 256, 13, 13, 3, 3, 1, 1, 1},
    {"erfnet 3x1 64->64 64x128", 64, 64, 64, 128, 3, 1, 1, 1, 0},
    {"erfnet 1x3 64->64 64x128", 64, 64, 64, 128, 1, 3, 1, 0, 1},
    {"inception-v3 mixed7 3x1 384->384 8x8", 384, 384, 8, 8, 3, 1, 1, 1, 0},
    {"inception-v3 mixed7 1x3 384->384 8x8", 384, 384, 8, 8, 1, 3, 1, 0, 1},
};

struct Member {
  const char* name;
  unsigned lanes;
  unsigned ky, kx, s;  // 0: any (the general members)
  bool int16 = false;
};

const char* const kGeneral[] = {"", "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1", "", "",
                                "Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1", "", "", "",
                                "Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1"};
const char kDirect3x3Chw[] = "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1";

const Member kMembers[] = {
    {kGeneral[1], 1, 0, 0, 0},
    {kGeneral[4], 4, 0, 0, 0},
    {kGeneral[8], 8, 0, 0, 0},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 1, 1, 1},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4, 1, 1, 1},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2", 4, 1, 1, 1},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 8, 1, 1, 1},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1", 8, 1, 1, 1, true},
    {"Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 1, 1, 2},
    {"Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4, 1, 1, 2},
    {"Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1", 8, 1, 1, 2},
    {"Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 1, 3, 1},
    {"Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4, 1, 3, 1},
    {"Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 8, 1, 3, 1},
    {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 3, 1, 1},
    {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2", 1, 3, 1, 1},
    {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4, 3, 1, 1},
    {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 8, 3, 1, 1},
    {kDirect3x3Chw, 1, 3, 3, 1},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1", 1, 3, 3, 1},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2", 1, 3, 3, 1},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4, 3, 3, 1},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2", 4, 3, 3, 1},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3", 4, 3, 3, 1},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 8, 3, 3, 1},
    {"Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 3, 3, 2},
    {"Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4, 3, 3, 2},
    {"Conv2d_K3x3_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1", 8, 3, 3, 2},
};

bool Serves(const Member& m, const Layer& l) {
  return m.ky == 0 || (m.ky == l.ky && m.kx == l.kx && m.s == l.s);
}

struct Result {
  std::string layer, member;
  unsigned lanes;
  double seconds, flops;
  bool bytes;  // a converter: flops holds the bytes moved
};

std::vector<Result>& Results() {
  static std::vector<Result> r;
  return r;
}

double g_peak = 0.0, g_copy = 0.0;

// The fastest of the timed calls in thread CPU time: the machine is shared,
// so time spent waiting for the processor is left out, and of the calls the
// fastest is the one least disturbed (the peak is taken the same way).
template <typename Body>
void Measure(benchmark::State& state, const std::string& layer, const std::string& member, unsigned lanes,
             double work, bool bytes, Body body) {
  body();
  double seconds = 1e30;
  for (auto _ : state) {
    const double start = tarn::bench::Seconds(true);
    body();
    const double s = tarn::bench::Seconds(true) - start;
    if (s < seconds) seconds = s;
  }
  state.counters[bytes ? "GBs" : "GFLOPs"] = work / seconds * 1e-9;
  for (Result& r : Results()) {
    if (r.layer == layer && r.member == member) return void(r.seconds = seconds);
  }
  Results().push_back({layer, member, lanes, seconds, work, bytes});
}

// A 16-bit C8HW8 copy of `map` in the step `step` (values of magnitude below
// 1 as ten fraction bits).
TensorPtr Int16Map(const std::shared_ptr<tarn::runtime::TensorCPU>& map, std::int16_t step) {
  auto shape = map->shape;
  shape.data_type = TensorShape::INT16;
  shape.extra.step_size = step;
  auto t = Context()->cpu->CreateTensor(shape);
  const float* f = map->DataAs<float>();
  std::int16_t* q = t->DataAs<std::int16_t>();
  for (std::size_t i = 0; i < map->shape.ElementCount(); ++i) q[i] = static_cast<std::int16_t>(f[i] * 1024.0f);
  return t;
}

void BM_Member(benchmark::State& state, const Layer* layer, const Member* member) {
  auto info = tarn::bench::ConvRecord(layer->c, layer->n, layer->ky, layer->kx, layer->s, layer->s, layer->py,
                                      layer->px, true);
  std::shared_ptr<tarn::runtime::InferenceParam> param;
  if (member->int16) {
    auto quant = std::make_shared<tarn::runtime::InferenceParamConv2DQuant>();
    quant->weight_step_size = -12;
    quant->output_step_size = -10;
    param = quant;
  }
  auto kernel = Registry().Create(member->name);
  if (!kernel || !kernel->Config(info, param, Context())) return state.SkipWithError("Config failed");
  auto map = MapTensor(layer->c, layer->h, layer->w, member->lanes, 3);
  std::vector<TensorPtr> inputs = {member->int16 ? Int16Map(map, -10) : TensorPtr(map)}, outputs;
  if (kernel->IsValidInput(inputs) != 0) return state.SkipWithError("input refused");
  Measure(state, layer->label, member->name, member->lanes, layer->Flops(), false, [&] {
    outputs.clear();
    kernel->Forward(inputs, outputs, Context());
    benchmark::DoNotOptimize(outputs[0]->Data());
  });
}

// A quantisation converter over the input of a layer (bytes read and written).
void BM_Converter(benchmark::State& state, const Layer* layer, const char* name, bool to_int16) {
  auto param = std::make_shared<tarn::runtime::InferenceParamActQuant>();
  param->output_step_size = -10;
  auto kernel = Registry().Create(name);
  if (!kernel || !kernel->Config(tarn::bench::ConvRecord(8, 8, 1, 1, 1, 1, 0, 0, false), param, Context())) {
    return state.SkipWithError("Config failed");
  }
  auto map = MapTensor(layer->c, layer->h, layer->w, 8, 3);
  std::vector<TensorPtr> inputs = {to_int16 ? TensorPtr(map) : Int16Map(map, -10)}, outputs;
  const double bytes = double(map->shape.ElementCount()) * (4 + 2);
  Measure(state, layer->label, name, 8, bytes, true, [&] {
    outputs.clear();
    kernel->Forward(inputs, outputs, Context());
    benchmark::DoNotOptimize(outputs[0]->Data());
  });
}

void RegisterAll() {
  for (const Layer& layer : kLayers) {
    for (const Member& m : kMembers) {
      if (!Serves(m, layer)) continue;
      benchmark::RegisterBenchmark((std::string(layer.label) + " | " + m.name).c_str(), BM_Member, &layer, &m)
          ->Unit(benchmark::kMillisecond)
          ->MinTime(0.3);
    }
  }
  const Layer& map = kLayers[8];
  benchmark::RegisterBenchmark("converter | quantise", BM_Converter, &map, "Quantize_SSE_C8HW8_Float_To_Int16_M1", true)
      ->MinTime(0.3);
  benchmark::RegisterBenchmark("converter | de-quantise", BM_Converter, &map, "DeQuantize_SSE_C8HW8_Int16_To_Float_M1",
                               false)
      ->MinTime(0.3);
}

// One row per run; the ratios are to runs of the same layer.
void PrintTable() {
  std::map<std::string, double> seconds;  // layer | member
  for (const Result& r : Results()) seconds[r.layer + "|" + r.member] = r.seconds;
  auto ratio = [&](const Result& r, const std::string& other) {
    auto it = seconds.find(r.layer + "|" + other);
    char text[32] = "";
    if (it != seconds.end() && other != r.member) std::snprintf(text, sizeof text, "%.2f", it->second / r.seconds);
    return std::string(text);
  };
  std::printf("\nSSE FMA peak, one thread, this run: %.1f GFLOP/s; memcpy of the converter's map: %.1f GB/s\n\n",
              g_peak, g_copy);
  std::printf("| layer | member | ms/call | GFLOP/s | %% of SSE peak | x general (same layout) | x direct CHW 3x3 |\n");
  std::printf("|---|---|---:|---:|---:|---:|---:|\n");
  for (const Result& r : Results()) {
    const double rate = r.flops / r.seconds * 1e-9;
    if (r.bytes) {
      std::printf("| %s | %s | %.3f | %.2f GB/s | %.0f%% of memcpy | | |\n", r.layer.c_str(), r.member.c_str(),
                  r.seconds * 1e3, rate, 100.0 * rate / g_copy);
      continue;
    }
    const bool chw3x3 = r.member.find("K3x3_S1x1") != std::string::npos && r.lanes == 1;
    std::printf("| %s | %s | %.3f | %.2f | %.0f%% | %s | %s |\n", r.layer.c_str(), r.member.c_str(), r.seconds * 1e3,
                rate, 100.0 * rate / g_peak, ratio(r, kGeneral[r.lanes]).c_str(),
                chw3x3 ? ratio(r, kDirect3x3Chw).c_str() : "");
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  tarn::bench::AddRunContext();
  g_peak = tarn::bench::BestOf(5, [] { return tarn::bench::FmaPeakGflopsSse(true); });
  g_copy = tarn::bench::BestOf(3, [] { return tarn::bench::CopyBandwidthGBs(std::size_t(144) * 56 * 56 * 4, true); });
  benchmark::AddCustomContext("fma_peak_sse_gflops", std::to_string(g_peak));
  RegisterAll();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  PrintTable();
  return 0;
}
