// Recurrent members on the shapes of speech and text models, single thread:
// a 2-layer LSTM and GRU (64 inputs, 128 hidden, 32 steps) and a one-layer
// bidirectional LSTM (64 inputs, 256 hidden, 100 steps). Every sequence
// member runs the whole stack per call; every cell member is stepped through
// the same stack (one configured cell per layer and direction, one Forward
// per step). The state is reset before each call, as PyTorch starts from zero.
//
//   bench_rnn [--rnn_data=DIR] [--rnn_peers=FILE] [benchmark flags]
//
// --rnn_data: the weights, input and PyTorch output written by
// bench/rnn_peers.py (else seeded random weights); every member's output is
// then checked against PyTorch's. --rnn_peers: lines "shape torch_best_ms
// torch_median_ms ort_best_ms ort_median_ms"
// for the PyTorch and ONNX Runtime columns (bench/run_rnn_bench.sh makes
// both). The table at the end gives ms per call (best and median), GFLOP/s (the matrix products,
// multiply-adds counted twice), the speed-up over the portable member, the
// fraction of the FMA peak of the member's vector width, and the ratio to
// ONNX Runtime (> 1: slower than ORT).
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "bench_common.h"
#include "tarn/kernel/register.h"
#include "tarn/runtime/layer_info.h"

namespace {

using tarn::runtime::TensorShape;
using TensorPtr = std::shared_ptr<tarn::runtime::Tensor>;
using KernelPtr = std::shared_ptr<tarn::runtime::IKernel>;

enum class Width { kScalar, kSse, kBlas };

struct Shape {
  const char* name;  // as in bench/rnn_peers.py
  bool lstm;         // else GRU
  unsigned in, hidden, layers;
  bool bidirectional;
  unsigned steps;
  unsigned Gates() const { return lstm ? 4 : 3; }
  unsigned Dirs() const { return bidirectional ? 2 : 1; }
  unsigned LayerIn(unsigned l) const { return l == 0 ? in : Dirs() * hidden; }
  double Flops() const {
    double f = 0;
    for (unsigned l = 0; l < layers; ++l) f += 2.0 * steps * Dirs() * Gates() * hidden * (LayerIn(l) + hidden);
    return f;
  }
};

const Shape kShapes[] = {
    {"lstm_i64_h128_l2_s32", true, 64, 128, 2, false, 32},
    {"gru_i64_h128_l2_s32", false, 64, 128, 2, false, 32},
    {"bilstm_i64_h256_l1_s100", true, 64, 256, 1, true, 100},
};

struct Member {
  const char* name;
  Width width;
  bool lstm, cell;
};

const Member kMembers[] = {
    {"LSTM_Fallback_SC_F32_M1", Width::kScalar, true, false},
    {"LSTM_SSE_SC_F32_M1", Width::kSse, true, false},
    {"LSTM_SGEMM_SC_F32_M1", Width::kBlas, true, false},
    {"LSTMCell_Fallback_C_F32_M1", Width::kScalar, true, true},
    {"LSTMCell_SSE_C_F32_M1", Width::kSse, true, true},
    {"LSTMCell_SGEMM_C_F32_M1", Width::kBlas, true, true},
    {"GRU_Fallback_SC_F32_M1", Width::kScalar, false, false},
    {"GRU_SSE_SC_F32_M1", Width::kSse, false, false},
    {"GRU_SGEMM_SC_F32_M1", Width::kBlas, false, false},
    {"GRU_SSE_SGEMM_SC_F32_M2", Width::kBlas, false, false},
    {"GRUCell_Fallback_C_F32_M1", Width::kScalar, false, true},
    {"GRUCell_SSE_C_F32_M1", Width::kSse, false, true},
    {"GRUCell_SGEMM_C_F32_M1", Width::kBlas, false, true},
    {"GRUCell_SSE_SGEMM_C_F32_M2", Width::kBlas, false, true},
};

// One shape's weights (per layer and direction), input and PyTorch output.
struct Data {
  std::vector<float> x;
  std::vector<std::vector<float>> w_ih, w_hh, b_ih, b_hh;
  std::vector<float> torch_y;  // empty without --rnn_data
};

std::string g_data_dir, g_peers_file;
double g_peak_sse = 0, g_peak_avx = 0;

std::vector<float> Random(std::size_t n, unsigned seed, float scale) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> d(-scale, scale);
  std::vector<float> v(n);
  for (float& f : v) f = d(rng);
  return v;
}

const Data& DataOf(const Shape& s) {
  static std::map<std::string, Data> cache;
  auto it = cache.find(s.name);
  if (it != cache.end()) return it->second;
  Data d;
  const std::size_t rows = std::size_t(s.Gates()) * s.hidden;
  std::ifstream file;
  if (!g_data_dir.empty()) {
    file.open(g_data_dir + "/" + s.name + ".bin", std::ios::binary);
    if (!file) std::fprintf(stderr, "no %s/%s.bin: random weights\n", g_data_dir.c_str(), s.name);
  }
  unsigned seed = 1;
  auto next = [&](std::size_t n) {
    if (!file.is_open()) return Random(n, seed++, 1.0f / std::sqrt(float(s.hidden)));
    std::vector<float> v(n);
    file.read(reinterpret_cast<char*>(v.data()), std::streamsize(n * sizeof(float)));
    if (!file) v.clear();
    return v;
  };
  d.x = next(std::size_t(s.steps) * s.in);
  for (unsigned l = 0; l < s.layers; ++l) {
    for (unsigned dir = 0; dir < s.Dirs(); ++dir) {
      d.w_ih.push_back(next(rows * s.LayerIn(l)));
      d.w_hh.push_back(next(rows * s.hidden));
      d.b_ih.push_back(next(rows));
      d.b_hh.push_back(next(rows));
    }
  }
  if (file.is_open()) d.torch_y = next(std::size_t(s.steps) * s.Dirs() * s.hidden);
  return cache[s.name] = d;
}

std::shared_ptr<tarn::runtime::LayerInfo> StackRecord(const Shape& s, const Data& d) {
  using tarn::runtime::EncodeWeights;
  auto fill = [&](tarn::runtime::RecurrentStack& r) {
    r.in_size = static_cast<std::uint16_t>(s.in);
    r.hidden_size = static_cast<std::uint16_t>(s.hidden);
    r.if_bias = true;
    r.num_layers = static_cast<std::uint16_t>(s.layers);
    r.bidirectional = s.bidirectional;
    for (std::size_t i = 0; i < d.w_ih.size(); ++i) {
      const bool rev = i % s.Dirs() == 1;
      (rev ? r.weight_ih_reverse : r.weight_ih_forward).push_back(EncodeWeights(d.w_ih[i]));
      (rev ? r.weight_hh_reverse : r.weight_hh_forward).push_back(EncodeWeights(d.w_hh[i]));
      (rev ? r.bias_ih_reverse : r.bias_ih_forward).push_back(EncodeWeights(d.b_ih[i]));
      (rev ? r.bias_hh_reverse : r.bias_hh_forward).push_back(EncodeWeights(d.b_hh[i]));
    }
  };
  if (s.lstm) {
    auto r = std::make_shared<tarn::runtime::LSTMInfo>();
    fill(*r);
    return r;
  }
  auto r = std::make_shared<tarn::runtime::GRUInfo>();
  fill(*r);
  return r;
}

std::shared_ptr<tarn::runtime::LayerInfo> CellRecord(const Shape& s, const Data& d, std::size_t i) {
  using tarn::runtime::EncodeWeights;
  auto fill = [&](tarn::runtime::RecurrentCell& r) {
    r.in_size = static_cast<std::uint16_t>(s.LayerIn(static_cast<unsigned>(i / s.Dirs())));
    r.hidden_size = static_cast<std::uint16_t>(s.hidden);
    r.if_bias = true;
    r.weight_ih = EncodeWeights(d.w_ih[i]);
    r.weight_hh = EncodeWeights(d.w_hh[i]);
    r.bias_ih = EncodeWeights(d.b_ih[i]);
    r.bias_hh = EncodeWeights(d.b_hh[i]);
  };
  if (s.lstm) {
    auto r = std::make_shared<tarn::runtime::LSTMCellInfo>();
    fill(*r);
    return r;
  }
  auto r = std::make_shared<tarn::runtime::GRUCellInfo>();
  fill(*r);
  return r;
}

const tarn::runtime::KernelRegistry& Registry() {
  static const tarn::runtime::KernelRegistry* r = [] {
    auto* reg = new tarn::runtime::KernelRegistry();
    tarn::kernel::RegisterFallback(*reg);
    tarn::kernel::RegisterSSE(*reg);
    tarn::kernel::RegisterSGEMM(*reg);
    return reg;
  }();
  return *r;
}

std::shared_ptr<tarn::runtime::Context> Context() {
  static auto ctx = tarn::bench::MakeContext();
  return ctx;
}

struct Result {
  std::string shape, member;
  Width width;
  double seconds, median, flops;  // seconds: the best call
  double diff;                    // max |y - PyTorch's y|, < 0 unknown
};

std::vector<Result>& Results() {
  static std::vector<Result> r;
  return r;
}

// A member made ready to run one shape: one Forward of the whole stack per
// call (sequence members) or every cell stepped through it.
class Runner {
 public:
  Runner(const Shape& s, const Member& m) : s_(s), m_(m), d_(DataOf(s)) {
    auto ctx = Context();
    if (!m.cell) {
      auto k = Registry().Create(m.name);
      if (!k || !k->Config(StackRecord(s, d_), nullptr, ctx)) return;
      kernels_.push_back(k);
      inputs_ = {ctx->cpu->CreateTensor(
          tarn::runtime::MakeShape({s.steps, s.in}, TensorShape::FLOAT32, TensorShape::FLEXIABLE), d_.x.data())};
    } else {
      for (std::size_t i = 0; i < d_.w_ih.size(); ++i) {
        auto k = Registry().Create(m.name);
        if (!k || !k->Config(CellRecord(s, d_, i), nullptr, ctx)) return;
        kernels_.push_back(k);
      }
      layer_out_[0].resize(std::size_t(s.steps) * s.Dirs() * s.hidden);
      layer_out_[1].resize(layer_out_[0].size());
    }
    ready_ = true;
  }
  bool ready() const { return ready_; }

  // The last layer's outputs [S, D * H].
  const float* Run() {
    auto ctx = Context();
    for (const auto& k : kernels_) k->ResetRNNState();
    if (!m_.cell) {
      outputs_.clear();
      kernels_[0]->Forward(inputs_, outputs_, ctx);
      return static_cast<const float*>(outputs_[0]->Data());
    }
    const float* x = d_.x.data();
    unsigned in = s_.in;
    const unsigned width = s_.Dirs() * s_.hidden;
    std::vector<TensorPtr> step_in(1), step_out;
    for (unsigned l = 0; l < s_.layers; ++l) {
      float* out = layer_out_[l % 2].data();
      for (unsigned d = 0; d < s_.Dirs(); ++d) {
        const auto& k = kernels_[l * s_.Dirs() + d];
        for (unsigned i = 0; i < s_.steps; ++i) {
          const unsigned t = d == 0 ? i : s_.steps - 1 - i;
          step_in[0] = ctx->cpu->CreateExternalTensor(tarn::runtime::MakeShape({in}), const_cast<float*>(x + t * in));
          step_out.clear();
          k->Forward(step_in, step_out, ctx);
          std::memcpy(out + t * width + d * s_.hidden, step_out[0]->Data(), s_.hidden * sizeof(float));
        }
      }
      x = out;
      in = width;
    }
    return x;
  }

 private:
  const Shape& s_;
  const Member& m_;
  const Data& d_;
  bool ready_ = false;
  std::vector<KernelPtr> kernels_;
  std::vector<TensorPtr> inputs_, outputs_;
  std::vector<float> layer_out_[2];
};

void BM_Recurrent(benchmark::State& state, const Shape* s, const Member* m) {
  Runner runner(*s, *m);
  if (!runner.ready()) {
    state.SkipWithError("Config failed");
    return;
  }
  const float* y = runner.Run();  // warm caches and the tensor pool
  const Data& d = DataOf(*s);
  double diff = -1;
  if (!d.torch_y.empty()) {
    diff = 0;
    for (std::size_t i = 0; i < d.torch_y.size(); ++i) diff = std::max(diff, double(std::fabs(y[i] - d.torch_y[i])));
  }
  // Each call timed on its own: the best and the median of the run.
  std::vector<double> times;
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    benchmark::DoNotOptimize(runner.Run());
    times.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  std::sort(times.begin(), times.end());
  const double seconds = times.front(), median = times[times.size() / 2];
  state.counters["GFLOPs"] = s->Flops() / seconds * 1e-9;
  state.counters["best_ms"] = seconds * 1e3;
  // The library calls a benchmark several times while it sizes the run; the
  // last call is the one it reports.
  auto& results = Results();
  results.erase(std::remove_if(results.begin(), results.end(),
                               [&](const Result& r) { return r.shape == s->name && r.member == m->name; }),
                results.end());
  results.push_back({s->name, m->name, m->width, seconds, median, s->Flops(), diff});
}

// Best and median ms of PyTorch and ONNX Runtime per shape.
struct Peers {
  double torch_best = -1, torch_median = -1, ort_best = -1, ort_median = -1;
};

std::map<std::string, Peers> ReadPeers() {
  std::map<std::string, Peers> peers;
  std::ifstream in(g_peers_file);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string shape;
    Peers p;
    if (fields >> shape >> p.torch_best >> p.torch_median >> p.ort_best >> p.ort_median) peers[shape] = p;
  }
  return peers;
}

// The FMA peak of 4 (SSE) or 8 (AVX2) lanes as the best of many short bursts,
// like the members' best calls: on a loaded machine one long loop measures
// the share of the processor the process got, not the processor.
#define TRN_BEST_BURST_PEAK(fn, target_isa, V, lanes, fma, set1)                                        \
  __attribute__((target(target_isa))) double fn() {                                                     \
    V acc[10];                                                                                          \
    for (int i = 0; i < 10; ++i) acc[i] = set1(0.001f * static_cast<float>(i));                         \
    const V a = set1(0.999999f), b = set1(1e-7f);                                                       \
    const long iterations = 20000;                                                                      \
    double best = 0;                                                                                    \
    for (int burst = 0; burst < 400; ++burst) {                                                         \
      const auto start = std::chrono::steady_clock::now();                                              \
      for (long it = 0; it < iterations; ++it) {                                                        \
        for (int i = 0; i < 10; ++i) acc[i] = fma(acc[i], a, b);                                        \
      }                                                                                                 \
      const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); \
      best = std::max(best, 2.0 * lanes * 10 * static_cast<double>(iterations) / s * 1e-9);             \
    }                                                                                                   \
    float sink[lanes];                                                                                  \
    std::memcpy(sink, &acc[0], sizeof sink);                                                            \
    benchmark::DoNotOptimize(sink);                                                                     \
    return best;                                                                                        \
  }
TRN_BEST_BURST_PEAK(BestBurstGflopsSse, "sse4.1,fma", __m128, 4, _mm_fmadd_ps, _mm_set1_ps)
TRN_BEST_BURST_PEAK(BestBurstGflopsAvx, "avx2,fma", __m256, 8, _mm256_fmadd_ps, _mm256_set1_ps)

// A value in `format`, or "-" when it is negative (unknown).
std::string Format(const char* format, double value) {
  if (value < 0) return "-";
  char text[32];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

void PrintTable() {
  const auto peers = ReadPeers();
  std::printf("\nFMA peak (best burst, this run): SSE %.1f GFLOP/s, AVX2 %.1f GFLOP/s; OpenBLAS core %s\n", g_peak_sse,
              g_peak_avx, openblas_get_corename());
  std::printf("\nms: best call (median of the run in brackets); ratios from the best calls.\n");
  std::printf(
      "\n| shape | member | ms | GFLOP/s | x fallback | %% FMA peak | max abs diff to PyTorch | PyTorch ms | "
      "ORT ms | ratio to ORT |\n|---|---|---|---|---|---|---|---|---|---|\n");
  for (const Shape& s : kShapes) {
    double fallback = 0;
    for (const Result& r : Results()) {
      if (r.shape == s.name && r.width == Width::kScalar && r.member.find("Cell") == std::string::npos) {
        fallback = r.seconds;
      }
    }
    const auto found = peers.find(s.name);
    const Peers peer = found != peers.end() ? found->second : Peers();
    for (const Result& r : Results()) {
      if (r.shape != s.name) continue;
      const double gflops = r.flops / r.seconds * 1e-9;
      const double peak = r.width == Width::kSse ? g_peak_sse : (r.width == Width::kBlas ? g_peak_avx : 0);
      std::printf("| %s | %s | %.3f (%.3f) | %.1f | %.1f | %s | %s | %s | %s | %s |\n", r.shape.c_str(),
                  r.member.c_str(), r.seconds * 1e3, r.median * 1e3, gflops, fallback > 0 ? fallback / r.seconds : 0.0,
                  Format("%.0f%%", peak > 0 ? 100 * gflops / peak : -1).c_str(), Format("%.1e", r.diff).c_str(),
                  (Format("%.3f", peer.torch_best) + " (" + Format("%.3f", peer.torch_median) + ")").c_str(),
                  (Format("%.3f", peer.ort_best) + " (" + Format("%.3f", peer.ort_median) + ")").c_str(),
                  Format("%.2f", peer.ort_best > 0 ? r.seconds * 1e3 / peer.ort_best : -1).c_str());
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  // Our own flags first; the rest goes to the benchmark library.
  std::vector<char*> args;
  for (int i = 0; i < argc; ++i) {
    const std::string a = argv[i];
    if (a.rfind("--rnn_data=", 0) == 0) {
      g_data_dir = a.substr(11);
    } else if (a.rfind("--rnn_peers=", 0) == 0) {
      g_peers_file = a.substr(12);
    } else {
      args.push_back(argv[i]);
    }
  }
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
  tarn::bench::AddRunContext();
  const tarn::runtime::CPUDeviceInfo cpu = tarn::runtime::DetectCPUDevice();
  if (cpu.CanRunSSEKernels()) g_peak_sse = BestBurstGflopsSse();
  if (cpu.CanRunAVXKernels()) g_peak_avx = BestBurstGflopsAvx();
  for (const Shape& s : kShapes) {
    for (const Member& m : kMembers) {
      if (m.lstm != s.lstm) continue;
      if (m.width == Width::kSse && !cpu.CanRunSSEKernels()) continue;
      if (std::string(m.name).find("SSE") != std::string::npos && !cpu.CanRunSSEKernels()) continue;
      benchmark::RegisterBenchmark((std::string(s.name) + "/" + m.name).c_str(), BM_Recurrent, &s, &m)
          ->Unit(benchmark::kMillisecond);
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  PrintTable();
  return 0;
}
