// Throughput of the normalisation, upsampling, softmax, clip and grid-sampling
// routines on a 64 x 56 x 56 float tensor: every vector form beside the
// portable form of its group, with memcpy of the same bytes, measured in the
// same run, as the yardstick.
//
// Traffic counts the bytes a pass must read once plus the bytes it writes
// (2x upsampling: the input and an output four times as large); every group
// measures memcpy of half its traffic (read plus write) right before its
// forms, as its yardstick. Rates are per CPU second (the machine may be
// shared). The summary prints each form's traffic rate, its speed-up over the
// portable form and its share of the group's copy rate; the memory-bound
// forms (batch norm, clip, softmax, upsampling) are meant to reach 60% of
// copy. Bilinear upsampling and grid sampling also print their latency for
// the PyTorch comparison of bench/torch_resampling_peer.py (one thread).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench_common.h"
#include "tarn/kernel/grid_sample.h"
#include "tarn/kernel/normalization.h"
#include "tarn/kernel/softmax.h"
#include "tarn/kernel/upsampling.h"

namespace {

using namespace tarn;
namespace fn = kernel::functional;

constexpr unsigned kC = 64, kH = 56, kW = 56;
constexpr size_t kPlane = size_t(kH) * kW;
constexpr size_t kN = size_t(kC) * kPlane;
constexpr size_t kBytes = kN * sizeof(float);

const std::vector<float>& Input() {
  static const std::vector<float> x = [] {
    std::mt19937 rng(1);
    std::normal_distribution<float> d(0.0f, 3.0f);
    std::vector<float> v(kN);
    for (float& f : v) f = d(rng);
    return v;
  }();
  return x;
}

// A buffer of n floats that outlives the benchmarks.
float* Buffer(size_t n) {
  static std::vector<std::vector<float>> buffers;
  buffers.emplace_back(n, 0.0f);
  return buffers.back().data();
}

void AddOne(const std::string& group, const std::string& variant, double traffic, std::function<void()> pass);

// Registers "group/variant"; `traffic` bytes per pass. The first form of a
// group is preceded by "group/memcpy" of the same traffic.
void Add(const std::string& group, const std::string& variant, double traffic, std::function<void()> pass) {
  static std::string last;
  if (group != last) {
    const size_t bytes = static_cast<size_t>(traffic / 2);
    char* from = reinterpret_cast<char*>(Buffer(bytes / sizeof(float) + 1));
    char* to = reinterpret_cast<char*>(Buffer(bytes / sizeof(float) + 1));
    AddOne(group, "memcpy", traffic, [from, to, bytes] { std::memcpy(to, from, bytes); });
    last = group;
  }
  AddOne(group, variant, traffic, std::move(pass));
}

void AddOne(const std::string& group, const std::string& variant, double traffic, std::function<void()> pass) {
  benchmark::RegisterBenchmark((group + "/" + variant).c_str(), [traffic, pass](benchmark::State& state) {
    for (auto _ : state) {
      pass();
      benchmark::ClobberMemory();
    }
    state.counters["GBps"] = benchmark::Counter(traffic, benchmark::Counter::kIsIterationInvariantRate);
  })->Unit(benchmark::kMicrosecond);
}

void RegisterAll() {
  const float* x = Input().data();

  // Batch norm: one factor pair per channel (or per lane of a block).
  std::vector<float> a(kC), b(kC);
  for (unsigned c = 0; c < kC; ++c) a[c] = 0.5f + 0.01f * c, b[c] = 0.1f * c - 1.0f;
  static std::vector<float> sa = a, sb = b;
  for (const auto& [group, variant, lanes, f] :
       std::vector<std::tuple<std::string, std::string, unsigned, fn::ChannelAffineFn>>{
           {"batchnorm_chw", "scalar", 1, fn::channel_affine_f32},
           {"batchnorm_chw", "sse", 1, fn::channel_affine_sse_f32},
           {"batchnorm_chw", "avx", 1, fn::channel_affine_avx_f32},
           {"batchnorm_c4hw4", "scalar", 4, fn::channel_affine_f32},
           {"batchnorm_c4hw4", "sse", 4, fn::channel_affine_c4hw4_sse_f32},
           {"batchnorm_c8hw8", "scalar", 8, fn::channel_affine_f32},
           {"batchnorm_c8hw8", "avx", 8, fn::channel_affine_c8hw8_avx_f32}}) {
    float* out = Buffer(kN);
    const unsigned blocks = kC / lanes;
    Add(group, variant, 2.0 * kBytes, [x, out, blocks, lanes = lanes, f = f] {
      f(x, blocks, kPlane, lanes, sa.data(), sb.data(), out);
    });
  }

  // Instance norm: the statistics of every plane, then the affine map.
  for (const auto& [variant, stats, affine] :
       std::vector<std::tuple<std::string, fn::MeanVarFn, fn::ChannelAffineFn>>{
           {"scalar", fn::mean_var_f32, fn::channel_affine_f32},
           {"sse", fn::mean_var_sse_f32, fn::channel_affine_sse_f32},
           {"avx", fn::mean_var_avx_f32, fn::channel_affine_avx_f32}}) {
    float* out = Buffer(kN);
    Add("instancenorm_chw", variant, 2.0 * kBytes, [x, out, stats = stats, affine = affine] {
      static std::vector<float> ia(kC), ib(kC);
      for (unsigned c = 0; c < kC; ++c) {
        float m, v;
        stats(x + c * kPlane, kPlane, &m, &v);
        ia[c] = 1.0f / std::sqrt(v + 1e-5f);
        ib[c] = -m * ia[c];
      }
      affine(x, kC, kPlane, 1, ia.data(), ib.data(), out);
    });
  }

  // Softmax over the channels (the registers across columns) and along rows
  // of 64 (the registers along the axis).
  for (const bool channels : {true, false}) {
    for (const auto& [variant, f] : std::vector<std::pair<std::string, fn::SoftmaxFn>>{
             {"scalar", fn::softmax_f32}, {"sse", fn::softmax_sse_f32}, {"avx", fn::softmax_avx_f32}}) {
      float* out = Buffer(kN);
      if (channels) {
        Add("softmax_channels", variant, 2.0 * kBytes, [x, out, f = f] { f(x, 1, kC, kPlane, out); });
      } else {
        Add("softmax_rows64", variant, 2.0 * kBytes, [x, out, f = f] { f(x, kPlane, kC, 1, out); });
      }
    }
  }

  // Clip.
  for (const auto& [variant, f] : std::vector<std::pair<std::string, fn::ClipFn>>{
           {"scalar", fn::clip_f32}, {"sse", fn::clip_sse_f32}, {"avx", fn::clip_avx_f32}}) {
    float* out = Buffer(kN);
    Add("clip", variant, 2.0 * kBytes, [x, out, f = f] {
      const std::uint32_t n = kN;
      f(x, n, -1.0f, 2.5f, out);
    });
  }

  // 2x upsampling, nearest and bilinear (half-pixel centres); planes and blocks.
  for (const auto& [mode, bilinear] : std::vector<std::pair<std::string, bool>>{{"nearest", false}, {"bilinear", true}}) {
    static std::deque<fn::Upsample2DPlan> plans;  // stable addresses
    plans.emplace_back();
    fn::MakeUpsample2DPlan(kH, kW, 2.0f, 2.0f, bilinear, false, &plans.back());
    const fn::Upsample2DPlan* plan = &plans.back();
    for (const auto& [suffix, variant, lanes, f] :
         std::vector<std::tuple<std::string, std::string, unsigned, fn::Upsample2DFn>>{
             {"chw", "scalar", 1, fn::upsample2d_f32},
             {"chw", "sse", 1, fn::upsample2d_sse_f32},
             {"chw", "avx", 1, fn::upsample2d_avx_f32},
             {"c4hw4", "scalar", 4, fn::upsample2d_f32},
             {"c4hw4", "sse", 4, fn::upsample2d_c4hw4_sse_f32},
             {"c8hw8", "scalar", 8, fn::upsample2d_f32},
             {"c8hw8", "avx", 8, fn::upsample2d_c8hw8_avx_f32}}) {
      float* out = Buffer(4 * kN);
      const unsigned planes = kC / lanes;
      Add("upsample2x_" + mode + "_" + suffix, variant, 5.0 * kBytes,
          [x, out, plan, planes, lanes = lanes, f = f] { f(x, planes, lanes, *plan, out); });
    }
  }

  // Grid sampling: a gently warped identity grid of the input's size.
  static std::vector<float> grid(2 * kPlane);
  std::mt19937 rng(2);
  std::uniform_real_distribution<float> jitter(-0.05f, 0.05f);
  for (unsigned y = 0; y < kH; ++y)
    for (unsigned x0 = 0; x0 < kW; ++x0) {
      grid[2 * (y * kW + x0)] = -1.0f + 2.0f * x0 / (kW - 1) + jitter(rng);
      grid[2 * (y * kW + x0) + 1] = -1.0f + 2.0f * y / (kH - 1) + jitter(rng);
    }
  for (const auto& [mode, bilinear] : std::vector<std::pair<std::string, bool>>{{"bilinear", true}, {"nearest", false}}) {
    fn::GridSampleSetup setup;
    setup.bilinear = bilinear;
    setup.padding = fn::GridPadding::kZeros;
    setup.in_h = kH;
    setup.in_w = kW;
    for (const auto& [suffix, variant, lanes, f] : std::vector<std::tuple<std::string, std::string, unsigned, fn::GridSampleFn>>{
             {"chw", "scalar", 1, fn::grid_sample_f32},
             {"c8hw8", "scalar", 8, fn::grid_sample_f32},
             {"c8hw8", "avx", 8, fn::grid_sample_c8hw8_avx_f32}}) {
      float* out = Buffer(kN);
      // Traffic: the grid and the output (the input is read once per tap, mostly from cache).
      Add("gridsample_" + mode + "_" + suffix, variant, double(kBytes) + 2.0 * kPlane * sizeof(float) + kBytes,
          [x, out, setup, planes = kC / lanes, lanes = lanes, f = f] { f(x, planes, lanes, setup, grid.data(), kPlane, out); });
    }
  }
}

// Console output plus a summary table at the end.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& r : runs) {
      auto it = r.counters.find("GBps");
      if (it != r.counters.end()) rows_.push_back({r.benchmark_name(), it->second.value / 1e9, r.GetAdjustedCPUTime()});
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    std::map<std::string, double> scalar, copy;
    for (const auto& row : rows_) {
      const std::string group = row.name.substr(0, row.name.find('/'));
      const std::string variant = row.name.substr(row.name.find('/') + 1);
      if (variant == "scalar") scalar[group] = row.gbps;
      if (variant == "memcpy") copy[group] = row.gbps;
    }
    std::printf("\nTensor 64x56x56 float (%zu bytes); copy = memcpy of the group's traffic (read + write), "
                "measured just before it; per CPU second\n", kBytes);
    std::printf("%-36s %10s %10s %10s %10s\n", "routine", "GB/s", "x scalar", "of copy", "us/call");
    for (const auto& row : rows_) {
      const std::string group = row.name.substr(0, row.name.find('/'));
      const double s = scalar.count(group) ? scalar[group] : 0, c = copy.count(group) ? copy[group] : 0;
      std::printf("%-36s %10.2f %10.2f %9.0f%% %10.1f\n", row.name.c_str(), row.gbps, s > 0 ? row.gbps / s : 0.0,
                  c > 0 ? 100.0 * row.gbps / c : 0.0, row.us);
    }
  }

 private:
  struct Row {
    std::string name;
    double gbps, us;
  };
  std::vector<Row> rows_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  tarn::bench::AddRunContext();
  const runtime::CPUDeviceInfo info = runtime::DetectCPUDevice();
  if (!info.CanRunAVXKernels() || !info.CanRunSSEKernels()) {
    std::fprintf(stderr, "this benchmark needs SSE4.1, AVX2 and FMA\n");
    return 0;
  }
  RegisterAll();
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
