// Runs a model package on one input and reports the time of each forward
// pass; the library's side of bench/run_networks.sh.
//
//   trn_net_runner PACKAGE DIMS INPUT.bin RUNS [WARMUP] [OUTPUT.bin]
//
// DIMS are the runtime dims of the input (no batch axis), comma-separated, e.g.
// 3,224,224 or 32,64. INPUT.bin holds raw little-endian float32. Prints one
// JSON line {"median_ms": ..., "min_ms": ..., "runs": N, "times_ms": [...],
// "cpu": ..., "openblas_core": ...} and writes the first output's floats to
// OUTPUT.bin when given.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tarn/runtime/device_cpu.h"
#include "tarn/utility/log.h"
#include "tarn/utility/model_loader.h"

extern "C" char* openblas_get_corename(void);

using namespace tarn;

int main(int argc, char** argv) {
  if (argc < 5) {
    std::cerr << "usage: trn_net_runner PACKAGE DIMS INPUT.bin RUNS [WARMUP] [OUTPUT.bin]\n";
    return 2;
  }
  const std::string path = argv[1];
  std::vector<unsigned> dims;
  {
    std::stringstream s(argv[2]);
    std::string d;
    while (std::getline(s, d, ',')) dims.push_back(static_cast<unsigned>(std::stoul(d)));
  }
  std::ifstream in(argv[3], std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::vector<float> input(bytes.size() / sizeof(float));
  std::copy(bytes.data(), bytes.data() + input.size() * sizeof(float), reinterpret_cast<char*>(input.data()));
  const int runs = std::max(1, std::atoi(argv[4]));
  const int warmup = argc > 5 ? std::atoi(argv[5]) : 3;

  utility::SetLogLevel(16);
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  std::shared_ptr<runtime::Context> ctx;
  utility::create_context(ctx, 64);
  runtime::TRNModel header;
  const bool json = path.size() > 5 && path.compare(path.size() - 5, 5, ".json") == 0;
  if (!header.FromFile(path.c_str(), json ? "json" : "bin")) return 1;
  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
  if (utility::load_model(path, nets, ctx, kernels, params, header.sdk_type, 1, 0) != 0 || nets.empty() ||
      !nets.begin()->second->net) {
    std::cerr << "cannot load " << path << "\n";
    return 1;
  }
  auto& pkg = *nets.begin()->second;
  auto tensor = ctx->cpu->CreateTensor(runtime::MakeShape(dims), input.data());
  if (tensor->shape.ElementCount() != input.size()) {
    std::cerr << "the input holds " << input.size() << " floats, the dims need " << tensor->shape.ElementCount() << "\n";
    return 1;
  }
  for (auto& t : pkg.input_tensors) t.second = tensor;
  std::vector<double> times;
  runtime::OutputMap out;
  for (int r = 0; r < warmup + runs; ++r) {
    // Each pass is an independent sequence, as in PyTorch and ONNX Runtime:
    // recurrent kernels keep their state between calls until it is reset.
    for (const auto& layer : pkg.net->layers()) {
      if (layer->kernel) layer->kernel->ResetRNNState();
    }
    const auto start = std::chrono::steady_clock::now();
    out = pkg.net->Forward(pkg.input_tensors, pkg.output_indices, ctx);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    if (out.empty()) {
      std::cerr << "the forward pass failed\n";
      return 1;
    }
    if (r >= warmup) times.push_back(ms);
  }
  if (argc > 6) {
    const auto& t = out.at(pkg.output_indices.at(0)).at(0);
    std::ofstream o(argv[6], std::ios::binary);
    o.write(static_cast<const char*>(t->Data()), static_cast<std::streamsize>(t->shape.ElementCount() * sizeof(float)));
  }
  std::vector<double> sorted = times;
  std::sort(sorted.begin(), sorted.end());
  const std::size_t n = sorted.size();
  const double median = n % 2 ? sorted[n / 2] : 0.5 * (sorted[n / 2 - 1] + sorted[n / 2]);
  std::printf("{\"median_ms\": %.6f, \"min_ms\": %.6f, \"runs\": %zu, \"times_ms\": [", median, sorted[0], n);
  for (std::size_t k = 0; k < times.size(); ++k) std::printf("%s%.6f", k ? ", " : "", times[k]);
  std::printf("], \"cpu\": \"%s\", \"openblas_core\": \"%s\"}\n", runtime::DetectCPUDevice().ToString().c_str(),
              openblas_get_corename());
  return 0;
}
