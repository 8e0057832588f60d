// Throughput of the element kernels on a 64 x 56 x 56 float tensor: every
// vector form beside its scalar form, with memcpy of the same bytes, measured
// in the same run, as the yardstick.
//
// Traffic counts the bytes read plus the bytes written per pass (memcpy: twice
// the tensor). The summary prints each form's traffic rate, its speed-up over
// the scalar form of its group and its share of the copy rate. ReLU, element-
// wise add and the layout transforms are meant to reach 70% of copy.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "bench_common.h"
#include "kernel/cpu/avx/pooling/pooling.h"
#include "kernel/cpu/fallback/pooling/pooling.h"
#include "kernel/cpu/sse/pooling/pooling.h"
#include "tarn/kernel/activation.h"
#include "tarn/kernel/broadcast.h"
#include "tarn/kernel/elementwise.h"
#include "tarn/kernel/layout_transform.h"
#include "tarn/kernel/pooling.h"

namespace {

using namespace tarn;
namespace fn = kernel::functional;

constexpr unsigned kC = 64, kH = 56, kW = 56;
constexpr size_t kN = size_t(kC) * kH * kW;
constexpr size_t kBytes = kN * sizeof(float);

std::vector<float> Inputs(unsigned seed) {
  std::mt19937 rng(seed);
  std::normal_distribution<float> d(0.0f, 3.0f);
  std::vector<float> v(kN);
  for (float& f : v) f = d(rng);
  return v;
}

const std::vector<float>& A() {
  static const std::vector<float> a = Inputs(1);
  return a;
}
const std::vector<float>& B() {
  static const std::vector<float> b = Inputs(2);
  return b;
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

// The per-channel scale one float at a time on [C / kLanes, H, W, kLanes].
template <unsigned kLanes>
void ScalarChannelMul() {
  static std::vector<float> out(kN);
  const float* s = B().data();
  const float* d = A().data();
  for (unsigned b = 0; b < kC / kLanes; ++b)
    for (unsigned p = 0; p < kH * kW; ++p)
      for (unsigned j = 0; j < kLanes; ++j)
        out[(size_t(b) * kH * kW + p) * kLanes + j] = d[(size_t(b) * kH * kW + p) * kLanes + j] * s[b * kLanes + j];
}

using UnaryFn = void (*)(const float*, const std::uint32_t&, float*);

void AddUnary(const std::string& group, const std::vector<std::pair<std::string, UnaryFn>>& forms) {
  for (const auto& [variant, f] : forms) {
    Add(group, variant, 2.0 * kBytes, [f = f] {
      static std::vector<float> out(kN);
      const std::uint32_t n = kN;
      f(A().data(), n, out.data());
    });
  }
}

void RegisterAll() {
  AddUnary("relu", {{"scalar", fn::relu_f32}, {"sse", fn::relu_sse_f32_m1}, {"avx", fn::relu_avx_f32_m1}});
  AddUnary("relu6", {{"scalar", fn::relu6_f32}, {"sse", fn::relu6_sse_f32_m1}, {"avx", fn::relu6_avx_f32_m1}});
  AddUnary("hsigmoid", {{"scalar", fn::hsigmoid_f32}, {"sse", fn::hsigmoid_sse_f32_m1}});
  AddUnary("hswish", {{"scalar", fn::hswish_f32}, {"sse", fn::hswish_sse_f32_m1}, {"avx", fn::hswish_avx_f32_m1}});
  AddUnary("sigmoid", {{"scalar", fn::sigmoid_f32},
                       {"sse_m1", fn::sigmoid_sse_f32_m1},
                       {"sse_m2", fn::sigmoid_sse_f32_m2},
                       {"sse_m3", fn::sigmoid_sse_f32_m3},
                       {"avx", fn::sigmoid_avx_f32_m1}});
  AddUnary("tanh", {{"scalar", fn::tanh_f32}, {"sse_m1", fn::tanh_sse_f32_m1}, {"sse_m2", fn::tanh_sse_f32_m2}});
  using LeakyFn = void (*)(const float*, const std::uint32_t&, const float&, float*);
  for (const auto& [variant, f] : std::vector<std::pair<std::string, LeakyFn>>{
           {"scalar", fn::leaky_f32}, {"sse", fn::leaky_sse_f32_m1}, {"avx", fn::leaky_avx_f32_m1}}) {
    Add("leaky", variant, 2.0 * kBytes, [f = f] {
      static std::vector<float> out(kN);
      const std::uint32_t n = kN;
      f(A().data(), n, 0.1f, out.data());
    });
  }
  using PReLUFn = void (*)(float*, const std::uint32_t&, const float&);
  for (const auto& [variant, f] : std::vector<std::pair<std::string, PReLUFn>>{
           {"scalar", fn::prelu_f32}, {"sse", fn::prelu_sse_f32_m1}, {"avx", fn::prelu_avx_f32_m1}}) {
    Add("prelu_inplace", variant, 2.0 * kBytes, [f = f] {
      static std::vector<float> buf = A();
      const std::uint32_t n = kN;
      f(buf.data(), n, 1.0f);  // slope 1 keeps the data stable across passes
    });
  }
  using BinaryFn = void (*)(const float*, const float*, const std::uint32_t&, float*);
  const std::vector<std::tuple<std::string, BinaryFn, BinaryFn, BinaryFn>> binaries = {
      {"add", fn::elementwise_add_f32_m1, fn::elementwise_add_sse_f32_m1, fn::elementwise_add_avx_f32_m1},
      {"mul", fn::elementwise_mul_f32_m1, fn::elementwise_mul_sse_f32_m1, fn::elementwise_mul_avx_f32_m1},
      {"div", fn::elementwise_div_f32_m1, fn::elementwise_div_sse_f32_m1, fn::elementwise_div_avx_f32_m1}};
  for (const auto& [group, scalar, sse, avx] : binaries) {
    for (const auto& [variant, f] :
         std::vector<std::pair<std::string, BinaryFn>>{{"scalar", scalar}, {"sse", sse}, {"avx", avx}}) {
      Add("elementwise_" + group, variant, 3.0 * kBytes, [f = f] {
        static std::vector<float> out(kN);
        const std::uint32_t n = kN;
        f(A().data(), B().data(), n, out.data());
      });
    }
  }

  // Per-channel scale on C8HW8 / C4HW4.
  using ChannelMulFn = void (*)(const float*, const float*, std::uint32_t, std::uint32_t, float*);
  const std::vector<std::tuple<unsigned, void (*)(), ChannelMulFn>> channel_muls = {
      {8, ScalarChannelMul<8>, fn::broadcast_mul_c8hw8_avx_f32_m1},
      {4, ScalarChannelMul<4>, fn::broadcast_mul_c4hw4_avx_f32_m1}};
  for (const auto& [lanes, scalar, avx] : channel_muls) {
    const std::string group = "channel_mul_c" + std::to_string(lanes);
    Add(group, "scalar", 2.0 * kBytes, scalar);
    Add(group, "avx", 2.0 * kBytes, [blocks = kC / lanes, f = avx] {
      static std::vector<float> out(kN);
      f(B().data(), A().data(), blocks, kH * kW, out.data());
    });
  }

  // Layout transforms over device tensors; the scalar form is the plain mapping.
  static auto ctx = bench::MakeContext();
  auto tensor = [](std::vector<unsigned> dims, runtime::TensorShape::Layout layout) {
    auto t = ctx->cpu->CreateTensor(runtime::MakeShape(std::move(dims), runtime::TensorShape::FLOAT32, layout));
    std::copy(A().begin(), A().end(), t->DataAs<float>());
    return t;
  };
  static auto chw = tensor({kC, kH, kW}, runtime::TensorShape::CHW);
  static auto c4 = tensor({kC / 4, kH, kW, 4}, runtime::TensorShape::C4HW4);
  static auto c8 = tensor({kC / 8, kH, kW, 8}, runtime::TensorShape::C8HW8);
  using LayoutFn = void (*)(const fn::TensorCPUPtr&, const fn::TensorCPUPtr&);
  auto scalar_block = [](unsigned lanes, bool to_blocked) {
    return [lanes, to_blocked] {
      static std::vector<float> out(kN);
      const float* in = A().data();
      const size_t plane = size_t(kH) * kW;
      for (unsigned c = 0; c < kC; ++c)
        for (size_t p = 0; p < plane; ++p) {
          const size_t blocked = ((c / lanes) * plane + p) * lanes + c % lanes, flat = c * plane + p;
          out[to_blocked ? blocked : flat] = in[to_blocked ? flat : blocked];
        }
    };
  };
  auto layout = [&](const std::string& group, const std::string& variant, LayoutFn f, fn::TensorCPUPtr in,
                    fn::TensorCPUPtr out) { Add(group, variant, 2.0 * kBytes, [f, in, out] { f(in, out); }); };
  auto c4_out = tensor({kC / 4, kH, kW, 4}, runtime::TensorShape::C4HW4);
  auto c8_out = tensor({kC / 8, kH, kW, 8}, runtime::TensorShape::C8HW8);
  auto chw_out = tensor({kC, kH, kW}, runtime::TensorShape::CHW);
  Add("chw_to_c4hw4", "scalar", 2.0 * kBytes, scalar_block(4, true));
  layout("chw_to_c4hw4", "sse_m1", fn::LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1, chw, c4_out);
  layout("chw_to_c4hw4", "sse_m2", fn::LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2, chw, c4_out);
  Add("c4hw4_to_chw", "scalar", 2.0 * kBytes, scalar_block(4, false));
  layout("c4hw4_to_chw", "sse_m1", fn::LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1, c4, chw_out);
  Add("chw_to_c8hw8", "scalar", 2.0 * kBytes, scalar_block(8, true));
  layout("chw_to_c8hw8", "sse_m1", fn::LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1, chw, c8_out);
  layout("chw_to_c8hw8", "avx_m1", fn::LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1, chw, c8_out);
  Add("c8hw8_to_chw", "scalar", 2.0 * kBytes, scalar_block(8, false));
  layout("c8hw8_to_chw", "sse_m1", fn::LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1, c8, chw_out);
  layout("c8hw8_to_chw", "sse_m2", fn::LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2, c8, chw_out);
  layout("c8hw8_to_chw", "avx_m1", fn::LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1, c8, chw_out);
  layout("c8hw8_to_chw", "avx_m2", fn::LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2, c8, chw_out);
  Add("c4hw4_to_c8hw8", "scalar", 2.0 * kBytes, [] {
    static std::vector<float> out(kN);
    const float* in = A().data();
    const size_t plane = size_t(kH) * kW;
    for (unsigned b = 0; b < kC / 8; ++b)
      for (size_t p = 0; p < plane; ++p)
        for (unsigned j = 0; j < 8; ++j) out[(b * plane + p) * 8 + j] = in[((2 * b + j / 4) * plane + p) * 4 + j % 4];
  });
  layout("c4hw4_to_c8hw8", "sse_m1", fn::LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1, c4, c8_out);
  Add("c8hw8_to_c4hw4", "scalar", 2.0 * kBytes, [] {
    static std::vector<float> out(kN);
    const float* in = A().data();
    const size_t plane = size_t(kH) * kW;
    for (unsigned b = 0; b < kC / 4; ++b)
      for (size_t p = 0; p < plane; ++p)
        for (unsigned j = 0; j < 4; ++j) out[(b * plane + p) * 4 + j] = in[((b / 2) * plane + p) * 8 + (b % 2) * 4 + j];
  });
  layout("c8hw8_to_c4hw4", "sse_m1", fn::LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1, c8, c4_out);

  // Pooling: the fixed-size kernels beside the general kernel of the same
  // window (its padding copy included, as in a real run).
  auto pool_general = [](bool is_max, unsigned k, unsigned s) -> std::function<void()> {
    std::shared_ptr<runtime::IKernel> kern;
    if (is_max) {
      auto r = std::make_shared<runtime::MaxPool2dInfo>();
      r->kernel_x = r->kernel_y = k, r->stride_x = r->stride_y = s;
      auto m = std::make_shared<kernel::Pooling2D_Max_Fallback_Float_M1>();
      m->Config(r, nullptr, ctx);
      kern = m;
    } else {
      auto r = std::make_shared<runtime::AvgPool2dInfo>();
      r->kernel_x = r->kernel_y = k, r->stride_x = r->stride_y = s;
      auto a = std::make_shared<kernel::Pooling2D_Avg_Fallback_Float_M1>();
      a->Config(r, nullptr, ctx);
      kern = a;
    }
    return [kern] {
      std::vector<std::shared_ptr<runtime::Tensor>> outputs;
      kern->Forward({chw}, outputs, ctx);
    };
  };
  auto pool_fixed = [](LayoutFn f, fn::TensorCPUPtr in, unsigned k, unsigned s) -> std::function<void()> {
    std::vector<unsigned> dims = in->shape.dims;
    dims[1] = (dims[1] - k) / s + 1;
    dims[2] = (dims[2] - k) / s + 1;
    auto out = ctx->cpu->CreateTensor(runtime::MakeShape(dims, runtime::TensorShape::FLOAT32, in->shape.layout));
    return [f, in, out] { f(in, out); };
  };
  const double pool_bytes = kBytes;  // reads dominate; traffic counted as the input once
  struct PoolCase {
    const char* group;
    bool is_max;
    unsigned k, s;
    const char* variant;
    LayoutFn f;
    fn::TensorCPUPtr in;
  };
  const std::vector<PoolCase> pools = {
      {"pool_max_k2s2", true, 2, 2, "sse_chw", fn::Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1_Pooling2d_Max, chw},
      {"pool_max_k2s2", true, 2, 2, "avx_c8", fn::Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Max, c8},
      {"pool_max_k3s2", true, 3, 2, "sse_chw", fn::Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1_Pooling2d_Max, chw},
      {"pool_max_k3s2", true, 3, 2, "avx_c8", fn::Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Max, c8},
      {"pool_avg_k2s2", false, 2, 2, "sse_chw", fn::Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1_Pooling2d_Avg, chw},
      {"pool_avg_k2s2", false, 2, 2, "avx_c8", fn::Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Avg, c8},
      {"pool_avg_k3s2", false, 3, 2, "sse_chw", fn::Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1_Pooling2d_Avg, chw},
      {"pool_avg_k3s2", false, 3, 2, "avx_c8", fn::Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1_Pooling2d_Avg, c8},
      {"pool_avg_k4s4", false, 4, 4, "sse_chw", fn::Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1_Pooling2d_Avg, chw},
      {"pool_avg_k4s4", false, 4, 4, "sse_c4", fn::Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1_Pooling2D_Avg, c4},
      {"pool_avg_k4s4", false, 4, 4, "avx_c8", fn::Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1_Pooling2d_Avg, c8},
      {"pool_avg_k4s1", false, 4, 1, "avx_c8", fn::Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg, c8},
      {"pool_avg_k7s1", false, 7, 1, "sse_chw", fn::Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1_Pooling2d_Avg, chw},
      {"pool_avg_k7s1", false, 7, 1, "avx_c8", fn::Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg, c8},
      {"pool_avg_k8s1", false, 8, 1, "avx_c8", fn::Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1_Pooling2d_Avg, c8},
  };
  std::string last;
  for (const auto& p : pools) {
    if (p.group != last) Add(p.group, "scalar", pool_bytes, pool_general(p.is_max, p.k, p.s));
    last = p.group;
    Add(p.group, p.variant, pool_bytes, pool_fixed(p.f, p.in, p.k, p.s));
  }
}

// Console output plus a summary table at the end.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  explicit SummaryReporter(double copy_traffic) : copy_(copy_traffic) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& r : runs) {
      auto it = r.counters.find("GBps");
      if (it != r.counters.end()) rows_.emplace_back(r.benchmark_name(), it->second.value / 1e9);
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    std::map<std::string, double> scalar;
    for (const auto& [name, g] : rows_) {
      if (name.size() > 7 && name.compare(name.size() - 7, 7, "/scalar") == 0)
        scalar[name.substr(0, name.size() - 7)] = g;
    }
    std::printf("\nTensor 64x56x56 float (%zu bytes); memcpy traffic %.2f GB/s (read + write)\n", kBytes, copy_);
    std::printf("%-30s %10s %10s %10s\n", "kernel", "GB/s", "x scalar", "of copy");
    for (const auto& [name, g] : rows_) {
      const std::string group = name.substr(0, name.find('/'));
      const double s = scalar.count(group) ? scalar[group] : 0;
      std::printf("%-30s %10.2f %10.2f %9.0f%%\n", name.c_str(), g, s > 0 ? g / s : 0.0, 100.0 * g / copy_);
    }
  }

 private:
  double copy_;
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
  // memcpy of the tensor's bytes: bytes copied per second, twice that in traffic.
  const double copy_traffic = 2.0 * tarn::bench::CopyBandwidthGBs(kBytes);
  benchmark::AddCustomContext("memcpy_traffic_GBps", std::to_string(copy_traffic));
  RegisterAll();
  SummaryReporter reporter(copy_traffic);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
