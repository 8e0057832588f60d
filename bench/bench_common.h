// Shared set-up of the benchmark programs: the run's context lines (processor,
// OpenBLAS core) and a device for tensor factories.
#pragma once

#include <benchmark/benchmark.h>
#include <cblas.h>

#include <immintrin.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tarn/runtime/context.h"
#include "tarn/runtime/device_cpu.h"

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

// Single-thread fused multiply-add peak in GFLOP/s for a vector width of 4
// (SSE + FMA) or 8 (AVX2 + FMA) floats: ten independent accumulator chains
// hide the FMA latency. Measured, not taken from a data sheet.
__attribute__((target("avx2,fma"))) inline double FmaPeakGflopsAvx() {
  __m256 acc[10];
  for (int i = 0; i < 10; ++i) acc[i] = _mm256_set1_ps(0.001f * static_cast<float>(i));
  const __m256 a = _mm256_set1_ps(0.999999f), b = _mm256_set1_ps(1e-7f);
  const long iterations = 20000000;
  const auto start = std::chrono::steady_clock::now();
  for (long it = 0; it < iterations; ++it) {
    for (int i = 0; i < 10; ++i) acc[i] = _mm256_fmadd_ps(acc[i], a, b);
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  float sink[8];
  __m256 s = acc[0];
  for (int i = 1; i < 10; ++i) s = _mm256_add_ps(s, acc[i]);
  _mm256_storeu_ps(sink, s);
  benchmark::DoNotOptimize(sink);
  return 2.0 * 8 * 10 * static_cast<double>(iterations) / seconds * 1e-9;
}

__attribute__((target("sse4.1,fma"))) inline double FmaPeakGflopsSse() {
  __m128 acc[10];
  for (int i = 0; i < 10; ++i) acc[i] = _mm_set1_ps(0.001f * static_cast<float>(i));
  const __m128 a = _mm_set1_ps(0.999999f), b = _mm_set1_ps(1e-7f);
  const long iterations = 20000000;
  const auto start = std::chrono::steady_clock::now();
  for (long it = 0; it < iterations; ++it) {
    for (int i = 0; i < 10; ++i) acc[i] = _mm_fmadd_ps(acc[i], a, b);
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  float sink[4];
  __m128 s = acc[0];
  for (int i = 1; i < 10; ++i) s = _mm_add_ps(s, acc[i]);
  _mm_storeu_ps(sink, s);
  benchmark::DoNotOptimize(sink);
  return 2.0 * 4 * 10 * static_cast<double>(iterations) / seconds * 1e-9;
}

// memcpy bandwidth in GB/s (bytes copied per second) for a buffer of `bytes`,
// the yardstick of the memory-bound kernels.
inline double CopyBandwidthGBs(size_t bytes) {
  std::vector<char> src(bytes, 1), dst(bytes, 0);
  std::memcpy(dst.data(), src.data(), bytes);  // warm both buffers
  int reps = 1;
  double seconds = 0;
  while (true) {
    const auto start = std::chrono::steady_clock::now();
    for (int r = 0; r < reps; ++r) {
      std::memcpy(dst.data(), src.data(), bytes);
      benchmark::ClobberMemory();
    }
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (seconds > 0.2) break;
    reps *= 2;
  }
  benchmark::DoNotOptimize(dst.data());
  return static_cast<double>(bytes) * reps / seconds * 1e-9;
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
