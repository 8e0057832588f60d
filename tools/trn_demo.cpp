// The demo: loads the shipped model package through the public entry points,
// runs it on the input stored beside it and prints the outputs, PyTorch's
// outputs for the same input, and the time per layer.
//
//   trn_demo [package.json|package.trnmodel] [reference.json] [runs]
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tarn/runtime/binary_stream.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"
#include "tarn/utility/model_loader.h"

#ifndef TRN_DEMO_MODEL_DIR
#define TRN_DEMO_MODEL_DIR "examples/models"
#endif

using namespace tarn;

namespace {

struct Reference {
  std::vector<unsigned> input_shape;
  std::vector<float> input;
  std::string output_layer;
  std::vector<float> output;
};

bool ReadReference(const std::string& path, Reference* ref) {
  std::ifstream in(path);
  if (!in) return false;
  std::stringstream text;
  text << in.rdbuf();
  runtime::JSONDocument doc;
  doc.Parse(text.str().c_str());
  if (!doc.IsObject()) return false;
  for (const auto& d : doc["input_shape"].GetArray()) ref->input_shape.push_back(d.GetUint());
  ref->input = runtime::DecodeWeights(doc["input"].GetString());
  ref->output_layer = doc["output_layer"].GetString();
  for (const auto& v : doc["output"].GetArray()) ref->output.push_back(static_cast<float>(v.GetDouble()));
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string package = argc > 1 ? argv[1] : TRN_DEMO_MODEL_DIR "/tiny_cnn.json";
  const std::string reference_path = argc > 2 ? argv[2] : TRN_DEMO_MODEL_DIR "/tiny_cnn_reference.json";
  const int runs = argc > 3 ? std::max(1, std::atoi(argv[3])) : 20;

  unsigned major = 0, minor = 0;
  TRN_Get_Core_Version(major, minor);
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  std::shared_ptr<runtime::Context> ctx;
  utility::create_context(ctx, 64);
  std::cout << "trn_core " << major << "." << minor << ", " << kernels.Size() << " kernels registered\n";
  std::cout << "CPU: " << ctx->cpu->info().ToString() << "\n";
  if (!ctx->cpu->info().CanRunSSEKernels()) {
    std::cerr << "This package names SSE kernels (SSE4.1 + FMA), which this processor lacks.\n";
    return 77;  // "skipped" for CTest
  }

  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
  if (utility::load_model(package, nets, ctx, kernels, params, "cpu_sse", 1, 0) != 0) {
    std::cerr << "cannot load " << package << "\n";
    return 1;
  }
  Reference ref;
  if (!ReadReference(reference_path, &ref)) {
    std::cerr << "cannot read " << reference_path << "\n";
    return 1;
  }

  int status = 0;
  for (auto& entry : nets) {
    auto& pkg = entry.second;
    if (!pkg->net) {
      std::cerr << entry.first << ": the net could not be built\n";
      return 1;
    }
    auto input = ctx->cpu->CreateTensor(runtime::MakeShape(ref.input_shape), ref.input.data());
    for (auto& in : pkg->input_tensors) in.second = input;

    std::vector<float> total(pkg->net->layers().size(), 0.0f);
    runtime::OutputMap out;
    for (int r = 0; r < runs; ++r) {
      std::vector<float> times;
      out = pkg->net->Forward(pkg->input_tensors, pkg->output_indices, ctx, &times);
      for (size_t i = 0; i < times.size() && i < total.size(); ++i) total[i] += times[i];
    }
    if (out.empty()) {
      std::cerr << entry.first << ": forward failed\n";
      return 1;
    }
    std::cout << "\nnetwork " << entry.first << " (" << pkg->net->layers().size() << " layers), mean of " << runs
              << " runs:\n";
    float sum = 0;
    for (size_t i = 0; i < total.size(); ++i) {
      const auto& layer = pkg->net->layers()[i];
      std::printf("  %2zu %-10s %-20s %-45s %8.4f ms\n", i, layer->id.c_str(), pkg->net->type_names()[i].c_str(),
                  layer->kernel->GetName().c_str(), total[i] / runs);
      sum += total[i] / runs;
    }
    std::printf("  total %.4f ms\n", sum);

    const std::int64_t index = pkg->net->IndexOf(ref.output_layer);
    auto it = out.find(static_cast<std::uint32_t>(index));
    if (index < 0 || it == out.end()) {
      std::cerr << "no output of layer " << ref.output_layer << "\n";
      return 1;
    }
    const float* y = static_cast<const float*>(it->second[0]->Data());
    float worst = 0;
    std::cout << "\noutput of " << ref.output_layer << " (trn_core | PyTorch):\n";
    for (size_t i = 0; i < ref.output.size(); ++i) {
      std::printf("  [%zu] %12.6f | %12.6f\n", i, y[i], ref.output[i]);
      worst = std::max(worst, std::fabs(y[i] - ref.output[i]));
    }
    std::printf("largest difference to PyTorch: %.3g\n", worst);
    if (!(worst < 1e-4f)) status = 1;
  }
  return status;
}
