// Depthwise and transposed convolution members on layer shapes of real
// networks, single thread: every depthwise member on MobileNetV2's depthwise
// layers (and the 5x5 members on 5x5 layers of the same sizes), beside the
// general grouped CHW member; the transposed members on a decoder layer
// beside the portable one. Per run: GFLOP/s, the fraction of the FMA peak of
// the member's vector width (an FMA loop in the same process) and the ratios
// to the general member, the portable member and PyTorch on one thread. The
// PyTorch times come from bench/torch_depthwise_peer.py, run by this program
// before its own benchmarks (--no_peer leaves it out).
//
// Blocked members are timed on blocked tensors: a network that runs them
// keeps its maps blocked, so no layout conversion is counted.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench_common.h"
#include "tarn/runtime/layer_info.h"

namespace {

using namespace tarn::bench;  // NOLINT: the shared helpers of the benchmark programs

double g_peak_sse = 0.0, g_peak_avx = 0.0;
std::map<std::string, double> g_torch;  // label -> seconds per call

// ---------------------------------------------------------------- depthwise

// MobileNetV2's depthwise layers (input 224x224): 17 layers of 10 shapes.
struct DwShape {
  const char* label;
  unsigned c, size, stride, layers;
};

const DwShape kMbv2[] = {
    {"mbv2 dw 32 112x112 s1", 32, 112, 1, 1},  {"mbv2 dw 96 112x112 s2", 96, 112, 2, 1},
    {"mbv2 dw 144 56x56 s1", 144, 56, 1, 1},   {"mbv2 dw 144 56x56 s2", 144, 56, 2, 1},
    {"mbv2 dw 192 28x28 s1", 192, 28, 1, 2},   {"mbv2 dw 192 28x28 s2", 192, 28, 2, 1},
    {"mbv2 dw 384 14x14 s1", 384, 14, 1, 4},   {"mbv2 dw 576 14x14 s1", 576, 14, 1, 2},
    {"mbv2 dw 576 14x14 s2", 576, 14, 2, 1},   {"mbv2 dw 960 7x7 s1", 960, 7, 1, 3},
};

// The same sizes with a 5x5 kernel (padding 2).
std::string Label(const DwShape& s, unsigned k) {
  return k == 3 ? s.label : std::string("dw5x5") + (s.label + std::strlen("mbv2 dw"));
}

const char kGeneral[] = "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1";

struct DwMember {
  const char* name;
  unsigned lanes, kernel, stride;
  Width width;
};

const DwMember kDwMembers[] = {
    {"Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1", 1, 3, 1, Width::kSse},
    {"Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1", 1, 3, 2, Width::kSse},
    {"Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1", 4, 3, 1, Width::kSse},
    {"Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1", 4, 3, 2, Width::kSse},
    {"Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1", 4, 3, 1, Width::kAvx},
    {"Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1", 4, 3, 2, Width::kAvx},
    {"Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1", 8, 3, 1, Width::kAvx},
    {"Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1", 8, 3, 2, Width::kAvx},
    {"Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1", 8, 5, 1, Width::kAvx},
    {"Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1", 8, 5, 2, Width::kAvx},
    // The general grouped member on the same layers: the yardstick.
    {kGeneral, 1, 3, 0, Width::kSse},
    {kGeneral, 1, 5, 0, Width::kSse},
};

double DwFlops(const DwShape& s, unsigned k) {
  const double out = (s.size + 2 * (k / 2) - k) / s.stride + 1;
  return 2.0 * s.c * k * k * out * out;
}

void BM_Depthwise(benchmark::State& state, const DwShape* shape, const DwMember* member, unsigned k) {
  auto info = std::make_shared<tarn::runtime::Conv2dInfo>();
  info->in_channels = info->out_channels = info->groups = static_cast<std::uint16_t>(shape->c);
  info->kernel_x = info->kernel_y = static_cast<std::uint16_t>(k);
  info->stride_x = info->stride_y = static_cast<std::uint16_t>(shape->stride);
  info->padding_l = info->padding_r = info->padding_t = info->padding_b = static_cast<std::uint16_t>(k / 2);
  info->if_bias = true;
  info->weight = tarn::runtime::EncodeWeights(Random(std::size_t(shape->c) * k * k, 1));
  info->bias = tarn::runtime::EncodeWeights(Random(shape->c, 2));
  MeasureKernel(state, member->name, info, {MapTensor(shape->c, shape->size, shape->size, member->lanes, 3)},
                Label(*shape, k), member->name, member->width, DwFlops(*shape, k));
}

// ---------------------------------------------------------------- transposed

const char kDecoder[] = "decoder convT 3x3/2 64->32 56x56";
const char kTransposedFallback[] = "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1";

struct TransposedMember {
  const char* name;
  unsigned lanes;
  Width width;
};

const TransposedMember kTransposed[] = {
    {kTransposedFallback, 1, Width::kScalar},
    {"ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1", 1, Width::kSse},
    {"ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4, Width::kSse},
    {"ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1", 8, Width::kAvx},
};

void BM_Transposed(benchmark::State& state, const TransposedMember* member) {
  const unsigned c = 64, n = 32, size = 56, k = 3;
  auto info = std::make_shared<tarn::runtime::ConvTranspose2dInfo>();
  info->in_channels = c;
  info->out_channels = n;
  info->kernel_x = info->kernel_y = k;
  info->stride_x = info->stride_y = 2;
  // PyTorch padding 1, output_padding 1: 112 x 112.
  info->padding_l = info->padding_t = 1;
  info->padding_r = info->padding_b = 0;
  info->if_bias = true;
  info->weight = tarn::runtime::EncodeWeights(Random(std::size_t(c) * n * k * k, 1));
  info->bias = tarn::runtime::EncodeWeights(Random(n, 2));
  MeasureKernel(state, member->name, info, {MapTensor(c, size, size, member->lanes, 3)}, kDecoder, member->name,
                member->width, 2.0 * c * n * k * k * size * size);
}

// ---------------------------------------------------------------- registration, peer and report

void RegisterAll() {
  for (const DwShape& shape : kMbv2) {
    for (const DwMember& m : kDwMembers) {
      if (m.stride != 0 && m.stride != shape.stride) continue;
      const unsigned k = m.kernel;
      benchmark::RegisterBenchmark((Label(shape, k) + " | " + m.name).c_str(), BM_Depthwise, &shape, &m, k)
          ->Unit(benchmark::kMillisecond)
          ->MinTime(0.3);
    }
  }
  for (const TransposedMember& m : kTransposed) {
    auto* b = benchmark::RegisterBenchmark((std::string(kDecoder) + " | " + m.name).c_str(), BM_Transposed, &m);
    b->Unit(benchmark::kMillisecond);
    // The portable member is slow on this layer: three timed calls.
    if (m.width == Width::kScalar) {
      b->Iterations(3);
    } else {
      b->MinTime(0.5);
    }
  }
}

// Runs the PyTorch peer and reads its "label<TAB>seconds" lines.
void RunTorchPeer() {
  const std::string command = std::string("/usr/bin/python3 ") + TRN_BENCH_DIR + "/torch_depthwise_peer.py --raw";
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return;
  char line[512];
  while (std::fgets(line, sizeof line, pipe)) {
    char* tab = std::strchr(line, '\t');
    if (!tab) continue;
    *tab = '\0';
    g_torch[line] = std::atof(tab + 1);
  }
  if (pclose(pipe) != 0 || g_torch.empty()) std::printf("PyTorch peer did not run: no PyTorch column.\n");
}

// The FMA peaks, best of several loops before and after the benchmarks: on a
// loaded machine any one loop may lose the core for a while.
void MeasurePeaks() {
  for (int i = 0; i < 5; ++i) {
    g_peak_sse = std::max(g_peak_sse, tarn::bench::FmaPeakGflopsSse());
    g_peak_avx = std::max(g_peak_avx, tarn::bench::FmaPeakGflopsAvx());
  }
}

double Peak(Width w) {
  return w == Width::kSse ? g_peak_sse : (w == Width::kAvx ? g_peak_avx : 0.0);
}

std::string Ratio(double reference_seconds, double seconds) {
  if (reference_seconds <= 0) return "";
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", reference_seconds / seconds);
  return text;
}

void PrintTable() {
  std::map<std::string, double> general, fallback;
  for (const Result& r : Results()) {
    if (r.member == kGeneral) general[r.shape] = r.seconds;
    if (r.member == kTransposedFallback) fallback[r.shape] = r.seconds;
  }
  std::printf("\nFMA peak, one thread: SSE %.1f GFLOP/s, AVX %.1f GFLOP/s\n\n", g_peak_sse, g_peak_avx);
  std::printf("| shape | member | width | ms/call | GFLOP/s | %% of width peak | x general grouped | x portable | "
              "x PyTorch 1 thread |\n");
  std::printf("|---|---|---|---:|---:|---:|---:|---:|---:|\n");
  std::map<std::string, const Result*> best;  // fastest depthwise member per shape
  for (const Result& r : Results()) {
    const double gflops = r.flops / r.seconds * 1e-9;
    char peak[32] = "";
    if (Peak(r.width) > 0) std::snprintf(peak, sizeof peak, "%.0f%%", 100.0 * gflops / Peak(r.width));
    const double torch = g_torch.count(r.shape) ? g_torch[r.shape] : 0.0;
    std::printf("| %s | %s | %s | %.3f | %.2f | %s | %s | %s | %s |\n", r.shape.c_str(), r.member.c_str(),
                WidthName(r.width), r.seconds * 1e3, gflops, peak,
                Ratio(general.count(r.shape) ? general[r.shape] : 0.0, r.seconds).c_str(),
                Ratio(fallback.count(r.shape) ? fallback[r.shape] : 0.0, r.seconds).c_str(),
                Ratio(torch, r.seconds).c_str());
    if (r.member != kGeneral && r.member.rfind("Depthwise_", 0) == 0 &&
        (!best.count(r.shape) || r.seconds < best[r.shape]->seconds)) {
      best[r.shape] = &r;
    }
  }
  std::printf("\nFastest depthwise member per shape against PyTorch on one thread:\n\n");
  std::printf("| shape | layers | fastest member | ms/call | x PyTorch 1 thread | x general grouped |\n");
  std::printf("|---|---:|---|---:|---:|---:|\n");
  for (unsigned k : {3u, 5u}) {
    for (const DwShape& s : kMbv2) {
      const std::string label = Label(s, k);
      if (!best.count(label)) continue;
      const Result& r = *best[label];
      std::printf("| %s | %u | %s | %.3f | %s | %s |\n", label.c_str(), s.layers, r.member.c_str(), r.seconds * 1e3,
                  Ratio(g_torch.count(label) ? g_torch[label] : 0.0, r.seconds).c_str(),
                  Ratio(general.count(label) ? general[label] : 0.0, r.seconds).c_str());
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  bool peer = true;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--no_peer") == 0) {
      peer = false;
      for (int j = i; j + 1 < argc; ++j) argv[j] = argv[j + 1];
      --argc;
      break;
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  tarn::bench::AddRunContext();
  MeasurePeaks();
  benchmark::AddCustomContext("fma_peak_sse_gflops", std::to_string(g_peak_sse));
  benchmark::AddCustomContext("fma_peak_avx_gflops", std::to_string(g_peak_avx));
  if (peer) RunTorchPeer();
  RegisterAll();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  MeasurePeaks();
  PrintTable();
  return 0;
}
