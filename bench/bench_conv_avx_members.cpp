// The specialised convolution members (fixed kernel and stride, one group;
// the AVX family and the SSE image stem) on the real layers they serve,
// single thread. Per layer: every registered member that takes the layer's
// record, the general member it replaces (the AVX C8HW8 one, or the SSE CHW
// one for members reading CHW), and for 1x1 stride-1 layers a bare
// cblas_sgemm of the same product. The table at the end gives GFLOP/s, the
// fraction of the FMA peak of the member's width measured in the same run,
// and the speed-up over the general member. Times are this thread's processor
// time (the peak loop's too), so the ratios hold on a machine shared with
// other work; the wall-clock GFLOP/s are in the benchmark library's lines.
#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench_common.h"
#include "tarn/runtime/layer_info.h"

namespace {

using tarn::bench::Context;
using tarn::bench::MapTensor;
using tarn::bench::Measure;
using tarn::bench::Random;
using tarn::bench::Registry;
using tarn::bench::Results;
using tarn::bench::Timing;
using tarn::bench::Width;
using TensorPtr = std::shared_ptr<tarn::runtime::Tensor>;

const char kGeneralAvx[] = "Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1";
const char kGeneralSseChw[] = "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1";
const char kBareSgemm[] = "cblas_sgemm (bare product)";

struct Layer {
  const char* label;
  unsigned c, n, h, w, ky, kx, s, pad_y, pad_x;
  unsigned OutH() const { return (h + 2 * pad_y - ky) / s + 1; }
  unsigned OutW() const { return (w + 2 * pad_x - kx) / s + 1; }
  double Flops() const { return 2.0 * n * c * ky * kx * OutH() * OutW(); }
  bool Pointwise() const { return ky == 1 && kx == 1 && s == 1 && pad_y == 0 && pad_x == 0; }
};

const Layer kLayers[] = {
    {"resnet18 conv1 7x7/2 3->64 224x224", 3, 64, 224, 224, 7, 7, 2, 3, 3},
    {"resnet18 layer1 3x3 64->64 56x56", 64, 64, 56, 56, 3, 3, 1, 1, 1},
    {"resnet18 layer2.0 conv1 3x3/2 64->128 56x56", 64, 128, 56, 56, 3, 3, 2, 1, 1},
    {"resnet18 layer2 3x3 128->128 28x28", 128, 128, 28, 28, 3, 3, 1, 1, 1},
    {"resnet18 layer3 3x3 256->256 14x14", 256, 256, 14, 14, 3, 3, 1, 1, 1},
    {"resnet18 layer4 3x3 512->512 7x7", 512, 512, 7, 7, 3, 3, 1, 1, 1},
    {"resnet18 layer2.0 downsample 1x1/2 64->128 56x56", 64, 128, 56, 56, 1, 1, 2, 0, 0},
    {"resnet18 layer3.0 downsample 1x1/2 128->256 28x28", 128, 256, 28, 28, 1, 1, 2, 0, 0},
    {"resnet18 layer4.0 downsample 1x1/2 256->512 14x14", 256, 512, 14, 14, 1, 1, 2, 0, 0},
    // 1x1 layers whose sizes halve twice: Strassen's recursion runs both levels.
    {"resnet50 layer1 expand 1x1 64->256 56x56", 64, 256, 56, 56, 1, 1, 1, 0, 0},
    {"resnet50 layer1 reduce 1x1 256->64 56x56", 256, 64, 56, 56, 1, 1, 1, 0, 0},
    {"vgg16 conv1_1 3x3 3->64 224x224", 3, 64, 224, 224, 3, 3, 1, 1, 1},
    {"mobilenetv2 conv1 3x3/2 3->32 224x224", 3, 32, 224, 224, 3, 3, 2, 1, 1},
    {"mobilenetv2 block2 expand 1x1 24->144 56x56", 24, 144, 56, 56, 1, 1, 1, 0, 0},
    {"mobilenetv2 block2 project 1x1 144->24 56x56", 144, 24, 56, 56, 1, 1, 1, 0, 0},
    {"mobilenetv2 block15 expand 1x1 160->960 7x7", 160, 960, 7, 7, 1, 1, 1, 0, 0},
    {"squeezenet1_1 fire2 squeeze 1x1 64->16 55x55", 64, 16, 55, 55, 1, 1, 1, 0, 0},
    {"squeezenet1_1 fire2 expand1x1 16->64 55x55", 16, 64, 55, 55, 1, 1, 1, 0, 0},
    {"squeezenet1_1 fire2 expand3x3 16->64 55x55", 16, 64, 55, 55, 3, 3, 1, 1, 1},
    {"squeezenet1_1 fire9 expand3x3 64->256 13x13", 64, 256, 13, 13, 3, 3, 1, 1, 1},
    {"googlenet inception3a 5x5 16->32 28x28", 16, 32, 28, 28, 5, 5, 1, 2, 2},
    {"5x5/2 image stem 3->32 224x224", 3, 32, 224, 224, 5, 5, 2, 2, 2},
    {"erfnet non-bt-1d 3x1 64->64 64x128", 64, 64, 64, 128, 3, 1, 1, 1, 0},
    {"erfnet non-bt-1d 1x3 64->64 64x128", 64, 64, 64, 128, 1, 3, 1, 0, 1},
    {"dncnn gray last 3x3 64->1 128x128", 64, 1, 128, 128, 3, 3, 1, 1, 1},
    {"dncnn color last 3x3 64->3 128x128", 64, 3, 128, 128, 3, 3, 1, 1, 1},
};

std::shared_ptr<tarn::runtime::Conv2dInfo> Record(const Layer& l) {
  auto info = std::make_shared<tarn::runtime::Conv2dInfo>();
  info->in_channels = static_cast<std::uint16_t>(l.c);
  info->out_channels = static_cast<std::uint16_t>(l.n);
  info->kernel_y = static_cast<std::uint16_t>(l.ky);
  info->kernel_x = static_cast<std::uint16_t>(l.kx);
  info->stride_x = info->stride_y = static_cast<std::uint16_t>(l.s);
  info->padding_t = info->padding_b = static_cast<std::uint16_t>(l.pad_y);
  info->padding_l = info->padding_r = static_cast<std::uint16_t>(l.pad_x);
  info->if_bias = true;  // a folded batch norm leaves every layer a bias
  info->weight = tarn::runtime::EncodeWeights(Random(std::size_t(l.n) * l.c * l.ky * l.kx, 1));
  info->bias = tarn::runtime::EncodeWeights(Random(l.n, 2));
  return info;
}

// The kernel `name` configured for `layer` with its input, or a null kernel
// when it does not take the layer.
struct Prepared {
  std::shared_ptr<tarn::runtime::IKernel> kernel;
  std::vector<TensorPtr> inputs;
  unsigned in_lanes = 0;
};

Prepared Prepare(const std::string& name, const Layer& layer) {
  Prepared p;
  auto kernel = Registry().Create(name);
  auto info = Record(layer);
  if (!kernel || kernel->IsValidParam(info, nullptr) != 0 || !kernel->Config(info, nullptr, Context())) return p;
  for (unsigned lanes : {1u, 4u, 8u}) {
    std::vector<TensorPtr> inputs = {MapTensor(layer.c, layer.h, layer.w, lanes, 3)};
    if (kernel->IsValidInput(inputs) == 0) {
      p.kernel = kernel;
      p.inputs = inputs;
      p.in_lanes = lanes;
      return p;
    }
  }
  return p;
}

Width WidthOf(const std::string& name) {
  return name.find("_AVX_") != std::string::npos ? Width::kAvx : Width::kSse;
}

void BM_Member(benchmark::State& state, const Layer* layer, std::string name) {
  Prepared p = Prepare(name, *layer);
  if (!p.kernel) {
    state.SkipWithError("the member does not take the layer");
    return;
  }
  std::vector<TensorPtr> outputs;
  Measure(state, layer->label, name, WidthOf(name), layer->Flops(), [&] {
    outputs.clear();
    p.kernel->Forward(p.inputs, outputs, Context());
    benchmark::DoNotOptimize(outputs[0]->Data());
  });
}

// The bare CBLAS product W (N x C) x X (C x H*W) of a 1x1 layer.
void BM_BareSgemm(benchmark::State& state, const Layer* layer) {
  const int M = static_cast<int>(layer->n), K = static_cast<int>(layer->c), N = static_cast<int>(layer->h * layer->w);
  const std::vector<float> A = Random(std::size_t(M) * K, 1), B = Random(std::size_t(K) * N, 2);
  std::vector<float> C(std::size_t(M) * N);
  Measure(state, layer->label, kBareSgemm, Width::kBlas, layer->Flops(), [&] {
    cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, M, N, K, 1.0f, A.data(), K, B.data(), N, 0.0f, C.data(), N);
    benchmark::DoNotOptimize(C.data());
  });
}

// The specialised members: every registered AVX "Conv2d_" kernel with a
// fixed geometry, and the SSE image stem.
std::vector<std::string> Members() {
  tarn::runtime::KernelRegistry avx;
  tarn::kernel::RegisterAVX(avx);
  std::vector<std::string> names;
  for (const std::string& name : avx.GetKeys()) {
    if (name.rfind("Conv2d_K", 0) == 0) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  names.push_back("Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1");
  return names;
}

// The general member a specialised one replaces on the layer.
std::string GeneralOf(const Prepared& p) { return p.in_lanes == 1 ? kGeneralSseChw : kGeneralAvx; }

double g_peak_sse = 0.0, g_peak_avx = 0.0;

void RegisterAll() {
  const std::vector<std::string> members = Members();
  for (const Layer& layer : kLayers) {
    std::vector<std::string> names = {kGeneralAvx, kGeneralSseChw};
    for (const std::string& m : members) {
      if (Prepare(m, layer).kernel) names.push_back(m);
    }
    for (const std::string& name : names) {
      benchmark::RegisterBenchmark((std::string(layer.label) + " | " + name).c_str(), BM_Member, &layer, name)
          ->Unit(benchmark::kMillisecond)
          ->MinTime(0.3);
    }
    if (layer.Pointwise()) {
      benchmark::RegisterBenchmark((std::string(layer.label) + " | " + kBareSgemm).c_str(), BM_BareSgemm, &layer)
          ->Unit(benchmark::kMillisecond)
          ->MinTime(0.3);
    }
  }
}

// One row per run: GFLOP/s, fraction of the peak of the member's width (BLAS
// against the AVX peak), speed-up over the general member it replaces and,
// on 1x1 layers, its time relative to the bare product.
void PrintTable() {
  std::map<std::string, double> seconds;  // layer | member
  for (const Timing& r : Results()) seconds[r.shape + "|" + r.member] = r.thread_seconds;
  std::printf("\nFMA peak, one thread, this run (thread time): SSE %.1f GFLOP/s, AVX %.1f GFLOP/s\n\n", g_peak_sse,
              g_peak_avx);
  std::printf("| layer | member | ms/call | GFLOP/s | %% of width peak | x general | bare sgemm / member |\n");
  std::printf("|---|---|---:|---:|---:|---:|---:|\n");
  for (const Layer& layer : kLayers) {
    for (const Timing& r : Results()) {
      if (r.shape != layer.label) continue;
      const double gflops = r.flops / r.thread_seconds * 1e-9;
      const double peak = r.width == Width::kSse ? g_peak_sse : g_peak_avx;
      char general[32] = "", bare[32] = "";
      const bool specialised = r.member.rfind("Conv2d_K", 0) == 0;
      if (specialised) {
        const Prepared p = Prepare(r.member, layer);
        const auto g = seconds.find(r.shape + "|" + GeneralOf(p));
        if (g != seconds.end()) std::snprintf(general, sizeof general, "%.2f", g->second / r.thread_seconds);
        const auto s = seconds.find(r.shape + "|" + kBareSgemm);
        if (s != seconds.end()) std::snprintf(bare, sizeof bare, "%.2f", s->second / r.thread_seconds);
      }
      std::printf("| %s | %s | %.3f | %.1f | %.0f%% | %s | %s |\n", r.shape.c_str(), r.member.c_str(),
                  r.thread_seconds * 1e3, gflops, 100.0 * gflops / peak, general, bare);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  tarn::bench::AddRunContext();
  openblas_set_num_threads(1);
  g_peak_sse = tarn::bench::FmaPeakGflopsSse(true);
  g_peak_avx = tarn::bench::FmaPeakGflopsAvx(true);
  benchmark::AddCustomContext("fma_peak_sse_gflops", std::to_string(g_peak_sse));
  benchmark::AddCustomContext("fma_peak_avx_gflops", std::to_string(g_peak_avx));
  RegisterAll();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  PrintTable();
  return 0;
}
