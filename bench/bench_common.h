// Shared set-up of the benchmark programs: the run's context lines (processor,
// OpenBLAS core) and a device for tensor factories.
#pragma once

#include <benchmark/benchmark.h>
#include <cblas.h>

#include <memory>
#include <string>

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
