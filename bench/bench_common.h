// Shared set-up of the benchmark programs: the run's context lines (processor,
// OpenBLAS core), a device for tensor factories, the measured FMA peaks and
// copy bandwidth, and for the kernel benchmarks a registry of every family,
// random maps in any layout and the timing records their tables print.
#pragma once

#include <benchmark/benchmark.h>
#include <cblas.h>

#include <immintrin.h>
#include <time.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tarn/kernel/register.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/layer_info.h"

extern "C" char* openblas_get_corename(void);
extern "C" char* openblas_get_config(void);

namespace tarn {
namespace bench {

inline void AddRunContext() {
  const runtime::CPUDeviceInfo info = runtime::DetectCPUDevice();
  benchmark::AddCustomContext("trn_cpu", info.ToString());
  benchmark::AddCustomContext("openblas_core", openblas_get_corename());
  benchmark::AddCustomContext("openblas_config", openblas_get_config());
}

inline std::shared_ptr<runtime::Context> MakeContext() {
  auto pool = std::make_shared<runtime::AlignUpPool>(64);
  auto device = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), pool, nullptr, pool);
  return runtime::CreateContext(device, nullptr, nullptr, nullptr, nullptr, nullptr);
}

// Seconds of processor time this thread has used. On a machine shared with
// other work, ratios of thread times stay meaningful where wall-clock ratios
// do not (time spent waiting for a core is not counted).
inline double ThreadSeconds() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
}

// Seconds on a clock: the thread's processor time (what a benchmark on a
// machine shared with other work should compare) or the wall clock.
inline double Seconds(bool thread_time) {
  if (thread_time) return ThreadSeconds();
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Single-thread fused multiply-add peak in GFLOP/s for a vector width of 4
// (SSE + FMA) or 8 (AVX2 + FMA) floats: ten independent accumulator chains
// hide the FMA latency. Measured, not taken from a data sheet.
__attribute__((target("avx2,fma"))) inline double FmaPeakGflopsAvx(bool thread_time = false) {
  __m256 acc[10];
  for (int i = 0; i < 10; ++i) acc[i] = _mm256_set1_ps(0.001f * static_cast<float>(i));
  const __m256 a = _mm256_set1_ps(0.999999f), b = _mm256_set1_ps(1e-7f);
  const long iterations = 20000000;
  const double start = Seconds(thread_time);
  for (long it = 0; it < iterations; ++it) {
    for (int i = 0; i < 10; ++i) acc[i] = _mm256_fmadd_ps(acc[i], a, b);
  }
  const double seconds = Seconds(thread_time) - start;
  float sink[8];
  __m256 s = acc[0];
  for (int i = 1; i < 10; ++i) s = _mm256_add_ps(s, acc[i]);
  _mm256_storeu_ps(sink, s);
  benchmark::DoNotOptimize(sink);
  return 2.0 * 8 * 10 * static_cast<double>(iterations) / seconds * 1e-9;
}

__attribute__((target("sse4.1,fma"))) inline double FmaPeakGflopsSse(bool thread_time = false) {
  __m128 acc[10];
  for (int i = 0; i < 10; ++i) acc[i] = _mm_set1_ps(0.001f * static_cast<float>(i));
  const __m128 a = _mm_set1_ps(0.999999f), b = _mm_set1_ps(1e-7f);
  const long iterations = 20000000;
  const double start = Seconds(thread_time);
  for (long it = 0; it < iterations; ++it) {
    for (int i = 0; i < 10; ++i) acc[i] = _mm_fmadd_ps(acc[i], a, b);
  }
  const double seconds = Seconds(thread_time) - start;
  float sink[4];
  __m128 s = acc[0];
  for (int i = 1; i < 10; ++i) s = _mm_add_ps(s, acc[i]);
  _mm_storeu_ps(sink, s);
  benchmark::DoNotOptimize(sink);
  return 2.0 * 4 * 10 * static_cast<double>(iterations) / seconds * 1e-9;
}

// The best of `runs` measurements of a rate: on a machine shared with other
// work the best run is the one that had the core to itself.
template <typename F>
double BestOf(int runs, F rate) {
  double best = 0.0;
  for (int i = 0; i < runs; ++i) {
    const double r = rate();
    if (r > best) best = r;
  }
  return best;
}

// memcpy bandwidth in GB/s (bytes copied per second) for a buffer of `bytes`,
// the yardstick of the memory-bound kernels.
inline double CopyBandwidthGBs(size_t bytes, bool thread_time = false) {
  std::vector<char> src(bytes, 1), dst(bytes, 0);
  std::memcpy(dst.data(), src.data(), bytes);  // warm both buffers
  int reps = 1;
  double seconds = 0;
  while (true) {
    const double start = Seconds(thread_time);
    for (int r = 0; r < reps; ++r) {
      std::memcpy(dst.data(), src.data(), bytes);
      benchmark::ClobberMemory();
    }
    seconds = Seconds(thread_time) - start;
    if (seconds > 0.2) break;
    reps *= 2;
  }
  benchmark::DoNotOptimize(dst.data());
  return static_cast<double>(bytes) * reps / seconds * 1e-9;
}

// ---------------------------------------------------------------- kernel benchmarks

// The vector width a timing is set against (its FMA peak).
enum class Width { kScalar, kSse, kAvx, kBlas };

inline const char* WidthName(Width w) {
  switch (w) {
    case Width::kScalar: return "scalar";
    case Width::kSse: return "SSE";
    case Width::kAvx: return "AVX";
    case Width::kBlas: return "BLAS";
  }
  return "";
}

// One timed run: seconds per call of `member` on `shape`, and its flops.
struct Timing {
  std::string shape, member;
  Width width;
  double seconds;  // per call, wall clock
  double flops;
  double thread_seconds;  // per call, this thread's processor time
};

using Result = Timing;

inline std::vector<Timing>& Results() {
  static std::vector<Timing> r;
  return r;
}

// Times `body` over the benchmark's iterations and records the result.
template <typename Body>
void Measure(benchmark::State& state, const std::string& shape, const std::string& member, Width width, double flops,
             Body body) {
  body();  // warm caches and the tensor pool
  const double cpu_start = ThreadSeconds();
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) body();
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / double(state.iterations());
  const double thread_seconds = (ThreadSeconds() - cpu_start) / double(state.iterations());
  state.counters["GFLOPs"] = flops / seconds * 1e-9;
  // The library calls a benchmark several times while it sizes the run; the
  // last call is the one it reports.
  for (Timing& r : Results()) {
    if (r.shape == shape && r.member == member) {
      r.seconds = seconds;
      r.thread_seconds = thread_seconds;
      return;
    }
  }
  Results().push_back({shape, member, width, seconds, flops, thread_seconds});
}

// n floats uniform in [-1, 1), the same for the same seed.
inline std::vector<float> Random(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> d(-1.0f, 1.0f);
  std::vector<float> v(n);
  for (float& f : v) f = d(rng);
  return v;
}

// Every family's kernels, registered once.
inline const runtime::KernelRegistry& Registry() {
  static const runtime::KernelRegistry* r = [] {
    auto* reg = new runtime::KernelRegistry();
    kernel::RegisterFallback(*reg);
    kernel::RegisterSSE(*reg);
    kernel::RegisterAVX(*reg);
    kernel::RegisterSGEMM(*reg);
    return reg;
  }();
  return *r;
}

inline std::shared_ptr<runtime::Context> Context() {
  static auto ctx = MakeContext();
  return ctx;
}

// A random c x h x w map stored in CHW (lanes 1), C4HW4 or C8HW8, tail lanes zero.
inline std::shared_ptr<runtime::TensorCPU> MapTensor(unsigned c, unsigned h, unsigned w, unsigned lanes,
                                                     unsigned seed) {
  using runtime::TensorShape;
  const std::vector<float> chw = Random(std::size_t(c) * h * w, seed);
  auto device = Context()->cpu;
  if (lanes == 1) return device->CreateTensor(runtime::MakeShape({c, h, w}), chw.data());
  const unsigned blocks = (c + lanes - 1) / lanes;
  std::vector<float> blocked(std::size_t(blocks) * h * w * lanes, 0.0f);
  for (unsigned ch = 0; ch < c; ++ch)
    for (unsigned p = 0; p < h * w; ++p) {
      blocked[(std::size_t(ch / lanes) * h * w + p) * lanes + ch % lanes] = chw[std::size_t(ch) * h * w + p];
    }
  return device->CreateTensor(
      runtime::MakeShape({blocks, h, w, lanes}, TensorShape::FLOAT32,
                         lanes == 4 ? TensorShape::C4HW4 : TensorShape::C8HW8),
      blocked.data());
}

// Creates kernel `name`, configures it with `info` and times its Forward on
// `inputs`, recorded under (shape, member); skips the benchmark when the
// kernel is missing or refuses the record or the inputs.
inline void MeasureKernel(benchmark::State& state, const std::string& name,
                          const std::shared_ptr<runtime::LayerInfo>& info,
                          const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, const std::string& shape,
                          const std::string& member, Width width, double flops) {
  auto kernel = Registry().Create(name);
  if (!kernel || !kernel->Config(info, nullptr, Context())) {
    state.SkipWithError("Config failed");
    return;
  }
  if (kernel->IsValidInput(inputs) != 0) {
    state.SkipWithError("input refused");
    return;
  }
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  Measure(state, shape, member, width, flops, [&] {
    outputs.clear();
    kernel->Forward(inputs, outputs, Context());
    benchmark::DoNotOptimize(outputs[0]->Data());
  });
}

// A one-group convolution record with random weights (and bias).
inline std::shared_ptr<runtime::Conv2dInfo> ConvRecord(unsigned c, unsigned n, unsigned ky, unsigned kx, unsigned sy,
                                                       unsigned sx, unsigned pad_y, unsigned pad_x, bool bias) {
  auto info = std::make_shared<runtime::Conv2dInfo>();
  info->in_channels = static_cast<std::uint16_t>(c);
  info->out_channels = static_cast<std::uint16_t>(n);
  info->kernel_y = static_cast<std::uint16_t>(ky);
  info->kernel_x = static_cast<std::uint16_t>(kx);
  info->stride_y = static_cast<std::uint16_t>(sy);
  info->stride_x = static_cast<std::uint16_t>(sx);
  info->padding_t = info->padding_b = static_cast<std::uint16_t>(pad_y);
  info->padding_l = info->padding_r = static_cast<std::uint16_t>(pad_x);
  info->if_bias = bias;
  info->weight = runtime::EncodeWeights(Random(std::size_t(n) * c * ky * kx, 1));
  if (bias) info->bias = runtime::EncodeWeights(Random(n, 2));
  return info;
}

}  // namespace bench
}  // namespace tarn

// main() that records the run's context before the benchmarks run.
#define TRN_BENCHMARK_MAIN()                                          \
  int main(int argc, char** argv) {                                   \
    ::benchmark::Initialize(&argc, argv);                             \
    if (::benchmark::ReportUnrecognizedArguments(argc, argv)) return 1; \
    ::tarn::bench::AddRunContext();                                   \
    ::benchmark::RunSpecifiedBenchmarks();                            \
    ::benchmark::Shutdown();                                          \
    return 0;                                                         \
  }
