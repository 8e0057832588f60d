// Long-running use: many forward passes of one net, with the resident memory
// of the process (RSS), the memory pool's bytes in use and the latency printed
// every --every passes. After the first interval (the warm-up, which fills
// the pool's cache) the RSS must stay flat, and every output must equal the
// first pass's bit for bit.
//
//   bench_soak [--every N] [PACKAGE[:PASSES]]...
//
// Without packages: the demo package for 100000 passes and, when
// tools/make_resnet18_package.py has made it, build/models/resnet18.json for
// 2000. Inputs are random (seeded), of the model's base input size.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "tarn/runtime/memory_pool.h"
#include "tarn/utility/log.h"
#include "tarn/utility/metrics.h"
#include "tarn/utility/model_loader.h"
#include "tarn/utility/timer.h"

#ifndef TRN_SOURCE_DIR
#define TRN_SOURCE_DIR "."
#endif

using namespace tarn;

namespace {

// Resident set size in MiB, from /proc/self/statm (pages).
double RssMiB() {
  FILE* f = std::fopen("/proc/self/statm", "r");
  if (!f) return -1;
  unsigned long size = 0, resident = 0;
  const int n = std::fscanf(f, "%lu %lu", &size, &resident);
  std::fclose(f);
  if (n != 2) return -1;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

struct Job {
  std::string path;
  long passes;
};

// Runs one package; returns false when anything failed or the RSS grew after
// the warm-up by more than 1 MiB.
bool Soak(const Job& job, long every, runtime::KernelRegistry& kernels, runtime::InferenceParamRegistry& params) {
  std::shared_ptr<runtime::Context> ctx;
  utility::create_context(ctx, 64);
  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
  if (utility::load_model(job.path, nets, ctx, kernels, params, "cpu_sse", 1, 0) != 0 || nets.empty() ||
      !nets.begin()->second->net) {
    std::fprintf(stderr, "cannot load %s\n", job.path.c_str());
    return false;
  }
  auto& pkg = *nets.begin()->second;
  std::mt19937 rng(1);
  std::uniform_real_distribution<float> uniform(0.0f, 1.0f);
  for (auto& in : pkg.input_tensors) {
    in.second = ctx->cpu->CreateF32CHWMainMemory(3, pkg.extra_info.model_base_h, pkg.extra_info.model_base_w);
    float* v = static_cast<float*>(in.second->Data());
    for (size_t i = 0; i < in.second->shape.ElementCount(); ++i) v[i] = uniform(rng);
  }
  std::printf("\n%s (%s), %ld passes; RSS and pool every %ld passes\n", job.path.c_str(), nets.begin()->first.c_str(),
              job.passes, every);
  std::printf("%10s  %9s  %12s  %12s  %10s  %10s\n", "passes", "RSS MiB", "pool in use", "pool cached", "p50 ms",
              "max ms");
  auto* pool = dynamic_cast<runtime::AlignUpPool*>(ctx->cpu->pool().get());
  std::vector<float> first;
  double rss_after_warmup = -1, rss_max = 0;
  utility::RunningStats interval(static_cast<size_t>(every));
  bool ok = true;
  for (long pass = 1; pass <= job.passes; ++pass) {
    const std::uint64_t t0 = utility::TickCounter::Now();
    auto out = pkg.net->Forward(pkg.input_tensors, pkg.output_indices, ctx);
    interval.Add(utility::TickCounter::ToMs(utility::TickCounter::Now() - t0));
    if (out.empty()) {
      std::fprintf(stderr, "pass %ld failed\n", pass);
      return false;
    }
    const auto& y = out.begin()->second[0];
    const float* v = static_cast<const float*>(y->Data());
    if (first.empty()) {
      first.assign(v, v + y->shape.ElementCount());
    } else if (std::memcmp(first.data(), v, first.size() * sizeof(float)) != 0) {
      std::fprintf(stderr, "pass %ld: the output differs from the first pass\n", pass);
      ok = false;
    }
    if (pass % every == 0 || pass == job.passes) {
      const double rss = RssMiB();
      if (rss_after_warmup < 0) rss_after_warmup = rss;
      rss_max = std::max(rss_max, rss);
      const utility::StatsSummary s = interval.Summary();
      std::printf("%10ld  %9.1f  %12zu  %12zu  %10.3f  %10.3f\n", pass, rss, ctx->cpu->pool()->BytesInUse(),
                  pool ? pool->CachedBytes() : size_t(0), s.p50, s.max);
      std::fflush(stdout);
      interval.Reset();
    }
  }
  const double growth = rss_max - rss_after_warmup;
  std::printf("RSS after the first %ld passes %.1f MiB, largest later %.1f MiB: growth %.2f MiB\n", every,
              rss_after_warmup, rss_max, growth);
  return ok && growth <= 1.0;
}

bool Exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  long every = 1000;
  std::vector<Job> jobs;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--every" && i + 1 < argc) {
      every = std::max(1L, std::atol(argv[++i]));
      continue;
    }
    const size_t colon = a.rfind(':');
    if (colon != std::string::npos && colon + 1 < a.size()) {
      jobs.push_back({a.substr(0, colon), std::max(1L, std::atol(a.c_str() + colon + 1))});
    } else {
      jobs.push_back({a, 100000});
    }
  }
  if (jobs.empty()) {
    jobs.push_back({TRN_SOURCE_DIR "/examples/models/tiny_cnn.json", 100000});
    if (Exists(TRN_SOURCE_DIR "/build/models/resnet18.json")) {
      jobs.push_back({TRN_SOURCE_DIR "/build/models/resnet18.json", 2000});
    }
  }
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  std::printf("tick counter: %s, %.3f GHz\n", utility::TickCounter::UsesTimeStampCounter() ? "time-stamp counter"
                                                                                        : "steady clock",
              utility::TickCounter::TicksPerSecond() * 1e-9);
  bool ok = true;
  for (const Job& job : jobs) ok = Soak(job, every, kernels, params) && ok;
  std::printf("\n%s\n", ok ? "soak passed: no failure, identical outputs, flat RSS after warm-up"
                           : "soak FAILED (see above)");
  return ok ? 0 : 1;
}
