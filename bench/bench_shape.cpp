// Throughput of concatenation, 2-D padding and pixel shuffle on 64 x 56 x 56
// float tensors, each kernel run through its Forward (output from the pool)
// beside memcpy of its output's bytes, measured in the same run.
//
// Traffic counts the bytes read plus the bytes written per pass (memcpy:
// twice the bytes). The summary prints each form's traffic rate, its
// speed-up over the portable form of its group and its share of the copy
// rate of its group; the memory-bound ones are meant to reach 60% of copy.
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench_common.h"
#include "kernel/cpu/avx/concat/concat.h"
#include "kernel/cpu/avx/pad/pad.h"
#include "kernel/cpu/avx/pixel_shuffle/pixel_shuffle.h"
#include "kernel/cpu/fallback/concat/concat.h"
#include "kernel/cpu/fallback/pad/pad.h"
#include "kernel/cpu/fallback/pixel_shuffle/pixel_shuffle.h"
#include "kernel/cpu/sse/concat/concat.h"
#include "kernel/cpu/sse/pad/pad.h"
#include "kernel/cpu/sse/pixel_shuffle/pixel_shuffle.h"
#include "tarn/runtime/layer_info.h"

namespace {

using namespace tarn;
using runtime::TensorShape;
using Tensors = std::vector<std::shared_ptr<runtime::Tensor>>;

constexpr unsigned kC = 64, kH = 56, kW = 56;

std::shared_ptr<runtime::Context> Ctx() {
  static auto ctx = bench::MakeContext();
  return ctx;
}

// A float tensor of `dims` holding a ramp (tail lanes of blocked tensors zero).
std::shared_ptr<runtime::TensorCPU> Filled(std::vector<unsigned> dims, TensorShape::Layout layout,
                                           unsigned channels = 0) {
  auto t = Ctx()->cpu->CreateTensor(runtime::MakeShape(std::move(dims), TensorShape::FLOAT32, layout));
  float* p = t->DataAs<float>();
  const auto& d = t->shape.dims;
  for (size_t i = 0; i < t->shape.ElementCount(); ++i) p[i] = static_cast<float>(i % 1009) * 0.25f;
  if (channels) {  // blocked: clear the lanes beyond the real channels
    const unsigned lanes = d[3];
    const size_t plane = size_t(d[1]) * d[2] * lanes;
    for (size_t i = 0; i < plane; ++i) {
      if ((d[0] - 1) * lanes + i % lanes >= channels) p[(d[0] - 1) * plane + i] = 0.0f;
    }
  }
  return t;
}

// Registers "group/variant"; `traffic` bytes per pass.
void Add(const std::string& group, const std::string& variant, double traffic, std::function<void()> pass) {
  benchmark::RegisterBenchmark((group + "/" + variant).c_str(), [traffic, pass](benchmark::State& state) {
    for (auto _ : state) {
      pass();
      benchmark::ClobberMemory();
    }
    state.counters["GBps"] = benchmark::Counter(traffic, benchmark::Counter::kIsIterationInvariantRate);
  })->Unit(benchmark::kMicrosecond);
}

// memcpy of `bytes`: the yardstick of a group, in the same run.
void AddCopy(const std::string& group, size_t bytes) {
  auto src = std::make_shared<std::vector<char>>(bytes, 1);
  auto dst = std::make_shared<std::vector<char>>(bytes, 0);
  Add(group, "memcpy", 2.0 * bytes, [src, dst] {
    std::memcpy(dst->data(), src->data(), src->size());
    benchmark::DoNotOptimize(dst->data());
  });
}

// One kernel's Forward on fixed inputs; traffic = input bytes + output bytes.
void AddKernel(const std::string& group, const std::string& variant, std::shared_ptr<runtime::IKernel> k,
               std::shared_ptr<runtime::LayerInfo> record, Tensors inputs, std::vector<std::int64_t> channels = {}) {
  if (!k->Config(record, nullptr, Ctx())) {
    std::fprintf(stderr, "%s refused its record\n", k->GetName().c_str());
    return;
  }
  if (auto* receiver = dynamic_cast<runtime::BlockedChannelsReceiver*>(k.get())) receiver->SetInputChannels(channels);
  if (k->IsValidInput(inputs) != 0) {
    std::fprintf(stderr, "%s refused its inputs\n", k->GetName().c_str());
    return;
  }
  double traffic = 0;
  for (const auto& t : inputs) traffic += t->shape.Bytes();
  std::vector<TensorShape> shapes;
  for (const auto& t : inputs) shapes.push_back(t->shape);
  traffic += k->GetOutputShapes(shapes)[0].Bytes();
  Add(group, variant, traffic, [k, inputs] {
    Tensors out;
    k->Forward(inputs, out, Ctx());
    benchmark::DoNotOptimize(out[0]->Data());
  });
}

std::shared_ptr<runtime::ConcatenateInfo> Concat() { return std::make_shared<runtime::ConcatenateInfo>(); }

void RegisterConcat() {
  const size_t bytes = size_t(kC) * kH * kW * 4;
  // CHW: 32 + 32 channels.
  AddCopy("concat_chw", bytes);
  AddKernel("concat_chw", "portable", std::make_shared<kernel::Concatenate_Fallback_Float_M1>(), Concat(),
            {Filled({32, kH, kW}, TensorShape::CHW), Filled({32, kH, kW}, TensorShape::CHW)});
  // Blocked, on a block boundary (32 + 32) and across blocks (30 + 34: every
  // lane of the second input moves to another block).
  for (unsigned first : {32u, 30u}) {
    const unsigned second = kC - first;
    for (unsigned lanes : {4u, 8u}) {
      const auto layout = lanes == 4 ? TensorShape::C4HW4 : TensorShape::C8HW8;
      const std::string group = std::string("concat_c") + std::to_string(lanes) + "_" + std::to_string(first) + "+" +
                                std::to_string(second);
      const Tensors in = {Filled({(first + lanes - 1) / lanes, kH, kW, lanes}, layout, first),
                          Filled({(second + lanes - 1) / lanes, kH, kW, lanes}, layout, second)};
      AddCopy(group, bytes);
      AddKernel(group, "portable", std::make_shared<kernel::Concatenate_Fallback_Float_M1>(), Concat(), in,
                {first, second});
      if (lanes == 4) {
        AddKernel(group, "sse", std::make_shared<kernel::Concatenate_SSE_C4HW4_Float_M1>(), Concat(), in,
                  {first, second});
      } else {
        AddKernel(group, "avx", std::make_shared<kernel::Concatenate_AVX_C8HW8_Float_M1>(), Concat(), in,
                  {first, second});
      }
    }
  }
}

void RegisterPad() {
  auto pad = std::make_shared<runtime::Pad2dInfo>();
  pad->padding_l = pad->padding_r = pad->padding_t = pad->padding_b = 1;
  pad->padding_v = 0.5f;
  const size_t out_bytes = size_t(kC) * (kH + 2) * (kW + 2) * 4;
  AddCopy("pad2d_chw", out_bytes);
  const Tensors chw = {Filled({kC, kH, kW}, TensorShape::CHW)};
  AddKernel("pad2d_chw", "portable", std::make_shared<kernel::Pad2d_Fallback_Float_M1>(), pad, chw);
  AddKernel("pad2d_chw", "sse", std::make_shared<kernel::Pad2d_SSE_CHW_Float_M1>(), pad, chw);
  AddKernel("pad2d_chw", "avx", std::make_shared<kernel::Pad2d_AVX_CHW_Float_M1>(), pad, chw);
  AddCopy("pad2d_c4hw4", out_bytes);
  const Tensors c4 = {Filled({kC / 4, kH, kW, 4}, TensorShape::C4HW4, kC)};
  AddKernel("pad2d_c4hw4", "portable", std::make_shared<kernel::Pad2d_Fallback_Float_M1>(), pad, c4, {kC});
  AddKernel("pad2d_c4hw4", "sse", std::make_shared<kernel::Pad2d_SSE_C4HW4_Float_M1>(), pad, c4, {kC});
  AddCopy("pad2d_c8hw8", out_bytes);
  const Tensors c8 = {Filled({kC / 8, kH, kW, 8}, TensorShape::C8HW8, kC)};
  AddKernel("pad2d_c8hw8", "portable", std::make_shared<kernel::Pad2d_Fallback_Float_M1>(), pad, c8, {kC});
  AddKernel("pad2d_c8hw8", "avx", std::make_shared<kernel::Pad2d_AVX_C8HW8_Float_M1>(), pad, c8, {kC});
}

void RegisterPixelShuffle() {
  for (unsigned r : {2u, 4u}) {
    auto rec = std::make_shared<runtime::PixelShuffleInfo>();
    rec->upscale_factor = static_cast<float>(r);
    const std::string group = "pixel_shuffle_r" + std::to_string(r);
    const Tensors in = {Filled({kC * r * r, kH / r, kW / r}, TensorShape::CHW)};
    AddCopy(group, size_t(kC) * kH * kW * 4);
    AddKernel(group, "portable", std::make_shared<kernel::PixelShuffle_Fallback_CHW_Float_M1>(), rec, in);
    AddKernel(group, "sse", std::make_shared<kernel::PixelShuffle_SSE_CHW_Float_M1>(), rec, in);
    AddKernel(group, "avx", std::make_shared<kernel::PixelShuffle_AVX_CHW_Float_M1>(), rec, in);
  }
}

// Console output plus a summary table at the end.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    // With --benchmark_repetitions the summary takes the medians.
    for (const auto& r : runs) {
      if (r.run_type == Run::RT_Aggregate ? r.aggregate_name != "median" : r.repetitions > 1) continue;
      auto it = r.counters.find("GBps");
      if (it != r.counters.end()) rows_.emplace_back(r.run_name.str(), it->second.value / 1e9);
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    std::map<std::string, double> copy, portable;
    for (const auto& [name, g] : rows_) {
      const std::string group = name.substr(0, name.find('/')), variant = name.substr(name.find('/') + 1);
      if (variant == "memcpy") copy[group] = g;
      if (variant == "portable") portable[group] = g;
    }
    std::printf("\nTensors of 64x56x56 floats; traffic = bytes read + bytes written; memcpy of each group's output\n");
    std::printf("%-36s %10s %12s %10s\n", "kernel", "GB/s", "x portable", "of copy");
    for (const auto& [name, g] : rows_) {
      const std::string group = name.substr(0, name.find('/'));
      const double p = portable.count(group) ? portable[group] : 0, c = copy.count(group) ? copy[group] : 0;
      std::printf("%-36s %10.2f %12.2f %9.0f%%\n", name.c_str(), g, p > 0 ? g / p : 0.0, c > 0 ? 100.0 * g / c : 0.0);
    }
  }

 private:
  std::vector<std::pair<std::string, double>> rows_;
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
  RegisterConcat();
  RegisterPad();
  RegisterPixelShuffle();
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
