// The digits demo: a converted classifier runs on handwritten digits read
// from BMP files through the library's image pre-processing (grey
// conversion, bilinear resize to the network's input, 8-bit to float). It
// prints each prediction with its confidence, the accuracy over the images,
// the time per layer and the largest difference to PyTorch's outputs, which
// the training script stored beside the images.
//
//   trn_digits PACKAGE.json|PACKAGE.trnmodel DIGITS_DIR [runs]
//
// DIGITS_DIR holds labels.csv ("file,label"), images/ and reference.json.
// Exit status: 0 when every output is within 1e-4 x max |PyTorch| of
// PyTorch's, 1 otherwise or on an error, 77 when this processor cannot run
// the package's kernels.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tarn/kernel/image_process.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/utility/bmp.h"
#include "tarn/utility/log.h"
#include "tarn/utility/model_loader.h"

using namespace tarn;

namespace {

struct Digit {
  std::string file;
  int label = -1;
  std::vector<float> reference;  // PyTorch's logits
};

bool EndsWith(const std::string& s, const std::string& end) {
  return s.size() >= end.size() && s.compare(s.size() - end.size(), end.size(), end) == 0;
}

std::string ReadText(const std::string& path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

bool ReadDigits(const std::string& dir, std::vector<Digit>* digits, int* input_size) {
  std::ifstream labels(dir + "/labels.csv");
  std::string line;
  if (!std::getline(labels, line)) return false;  // header
  while (std::getline(labels, line)) {
    const std::size_t comma = line.find(',');
    if (comma == std::string::npos) continue;
    Digit d;
    d.file = line.substr(0, comma);
    d.label = std::atoi(line.c_str() + comma + 1);
    digits->push_back(d);
  }
  runtime::JSONDocument doc;
  doc.Parse(ReadText(dir + "/reference.json").c_str());
  if (!doc.IsObject() || !doc.HasMember("images") || !doc.HasMember("input_size")) return false;
  *input_size = doc["input_size"].GetInt();
  std::map<std::string, std::vector<float>> logits;
  for (const auto& e : doc["images"].GetArray()) {
    std::vector<float>& v = logits[e["file"].GetString()];
    for (const auto& x : e["logits"].GetArray()) v.push_back(static_cast<float>(x.GetDouble()));
  }
  for (Digit& d : *digits) d.reference = logits[d.file];
  return !digits->empty();
}

// BMP -> grey -> bilinear resize to size x size -> float pixels [1, size, size].
std::shared_ptr<runtime::TensorCPU> Preprocess(const std::string& path, int size, kernel::ImageProcess& proc,
                                               const std::shared_ptr<runtime::Context>& ctx, std::string* error) {
  auto& device = *ctx->cpu;
  auto image = utility::ReadBMP(path, ctx->cpu, utility::BMPChannelOrder::RGB, error);
  if (!image) return nullptr;
  const unsigned h = image->shape.dims[0], w = image->shape.dims[1], c = image->shape.dims[2];
  std::shared_ptr<runtime::TensorCPU> grey = image;
  if (c != 1) {
    grey = device.CreateGray8Tensor(h, w);
    const int code = c == 3 ? kernel::IMG_RGB2GRAY : kernel::IMG_RGBA2GRAY;
    if (!proc.ConvertPixel(image, grey, code, ctx)) return nullptr;
  }
  auto resized = device.CreateGray8Tensor(static_cast<unsigned>(size), static_cast<unsigned>(size));
  if (!proc.ConvertPixel(grey, resized, kernel::IMG_RESIZE_BILINEAR_C1, ctx)) return nullptr;
  auto input = device.CreateF32CHWMainMemory(1, static_cast<unsigned>(size), static_cast<unsigned>(size));
  if (!proc.ConvertPixel(resized, input, kernel::IMG_CONVERT_8U_TO_32F, ctx)) return nullptr;
  return input;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: trn_digits PACKAGE.json|PACKAGE.trnmodel DIGITS_DIR [runs]\n";
    return 1;
  }
  const std::string package_path = argv[1];
  const std::string dir = argv[2];
  const int runs = argc > 3 ? std::max(1, std::atoi(argv[3])) : 10;

  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  std::shared_ptr<runtime::Context> ctx;
  utility::create_context(ctx, 64);
  const runtime::CPUDeviceInfo& cpu = ctx->cpu->info();
  std::cout << "CPU: " << cpu.ToString() << "\n";

  // The package says which kernels it was planned for.
  runtime::TRNModel header;
  if (!header.FromFile(package_path.c_str(), EndsWith(package_path, ".json") ? "json" : "bin")) {
    std::cerr << "cannot read " << package_path << "\n";
    return 1;
  }
  if (header.sdk_type == "cpu_avx" && !cpu.CanRunAVXKernels()) {
    std::cerr << "the package was planned for AVX kernels, which this processor cannot run\n";
    return 77;
  }
  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
  if (utility::load_model(package_path, nets, ctx, kernels, params, header.sdk_type, 1, 0) != 0 || nets.empty() ||
      !nets.begin()->second->net) {
    std::cerr << "cannot load " << package_path << "\n";
    return 1;
  }
  auto& pkg = *nets.begin()->second;
  runtime::Net& net = *pkg.net;

  std::vector<Digit> digits;
  int size = 0;
  if (!ReadDigits(dir, &digits, &size)) {
    std::cerr << "cannot read " << dir << "/labels.csv and reference.json\n";
    return 1;
  }
  auto proc = kernel::CreateImageProcess(cpu);

  std::printf("\n%-14s %5s %10s %11s %14s\n", "image", "label", "predicted", "confidence", "|diff| PyTorch");
  int correct = 0;
  float worst = 0.0f, scale = 0.0f;
  std::vector<double> layer_ms(net.layers().size(), 0.0);
  int forwards = 0;
  for (const Digit& d : digits) {
    std::string error;
    auto input = Preprocess(dir + "/images/" + d.file, size, *proc, ctx, &error);
    if (!input) {
      std::cerr << d.file << ": " << error << "\n";
      return 1;
    }
    for (auto& in : pkg.input_tensors) in.second = input;
    runtime::OutputMap out;
    for (int r = 0; r < runs; ++r) {
      std::vector<float> times;
      out = net.Forward(pkg.input_tensors, pkg.output_indices, ctx, &times);
      for (std::size_t i = 0; i < times.size() && i < layer_ms.size(); ++i) layer_ms[i] += times[i];
      ++forwards;
    }
    auto it = out.find(pkg.output_indices.at(0));
    if (it == out.end() || it->second.empty() || it->second[0]->shape.ElementCount() != 10) {
      std::cerr << d.file << ": the forward pass failed\n";
      return 1;
    }
    const float* logits = static_cast<const float*>(it->second[0]->Data());
    // Softmax for the confidence; the network outputs logits.
    const int predicted = static_cast<int>(std::max_element(logits, logits + 10) - logits);
    double sum = 0.0;
    for (int k = 0; k < 10; ++k) sum += std::exp(double(logits[k]) - logits[predicted]);
    const double confidence = 1.0 / sum;
    float diff = 0.0f;
    for (std::size_t k = 0; k < 10 && k < d.reference.size(); ++k) {
      diff = std::max(diff, std::fabs(logits[k] - d.reference[k]));
      scale = std::max(scale, std::fabs(d.reference[k]));
    }
    if (d.reference.size() != 10) diff = INFINITY;
    worst = std::max(worst, diff);
    correct += predicted == d.label;
    std::printf("%-14s %5d %10d %10.1f%% %14.2g%s\n", d.file.c_str(), d.label, predicted, 100.0 * confidence, diff,
                predicted == d.label ? "" : "   <- wrong");
  }
  std::printf("\naccuracy: %d of %d (%.1f%%)\n", correct, static_cast<int>(digits.size()),
              100.0 * correct / digits.size());

  std::printf("\ntime per layer, mean of %d forward passes:\n", forwards);
  double total = 0.0;
  for (std::size_t i = 0; i < layer_ms.size(); ++i) {
    const auto& layer = net.layers()[i];
    const double ms = layer_ms[i] / forwards;
    total += ms;
    std::printf("  %2zu %-28s %-20s %-48s %8.4f ms\n", i, layer->id.substr(0, 28).c_str(),
                net.type_names()[i].c_str(), layer->kernel ? layer->kernel->GetName().c_str() : "-", ms);
  }
  std::printf("  total %.4f ms\n", total);

  const bool close = worst <= 1e-4f * scale;
  std::printf("\nlargest difference to PyTorch's logits: %.3g (%.3g of the largest logit) %s\n", worst,
              scale > 0 ? worst / scale : 0.0, close ? "" : "-- more than 1e-4");
  return close ? 0 : 1;
}
