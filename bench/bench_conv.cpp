// Convolution and fully connected members (and their raw cores) on layer
// shapes of real networks, single thread. Per run: GFLOP/s, the speed-up over
// the portable member of the same shape, and the fraction of the FMA peak of
// the member's vector width measured by an FMA loop in the same process; the
// CBLAS members are set against a bare cblas_sgemm of the same size. A table
// of all of it is printed at the end (bench/run_conv_bench.sh adds the
// PyTorch column from bench/torch_conv_peer.py).
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench_common.h"
#include "tarn/kernel/native_conv.h"
#include "tarn/kernel/packing.h"
#include "tarn/kernel/register.h"
#include "tarn/kernel/tensor_helpers_vector.h"
#include "tarn/runtime/layer_info.h"

namespace {

using tarn::runtime::TensorShape;
using TensorPtr = std::shared_ptr<tarn::runtime::Tensor>;
using TensorCPUPtr = std::shared_ptr<tarn::runtime::TensorCPU>;
using namespace tarn::bench;  // NOLINT: the shared helpers of the benchmark programs

double g_peak_sse = 0.0, g_peak_avx = 0.0, g_copy_fc = 0.0;

// ---------------------------------------------------------------- convolution members

struct ConvShape {
  const char* label;
  unsigned c, n, h, w, k, s, p;
  double Flops() const {
    const unsigned oh = (h + 2 * p - k) / s + 1, ow = (w + 2 * p - k) / s + 1;
    return 2.0 * n * c * k * k * oh * ow;
  }
};

const ConvShape kConvShapes[] = {
    {"resnet18 3x3 64->64 56x56", 64, 64, 56, 56, 3, 1, 1},
    {"resnet18 3x3 256->256 14x14", 256, 256, 14, 14, 3, 1, 1},
    {"resnet18 stem 7x7/2 3->64 224x224", 3, 64, 224, 224, 7, 2, 3},
    {"mbv2 1x1 144->24 56x56", 144, 24, 56, 56, 1, 1, 0},
    {"mbv2 1x1 24->144 56x56", 24, 144, 56, 56, 1, 1, 0},
};

struct ConvMember {
  const char* name;
  unsigned lanes;
  Width width;
  bool only_1x1;
  bool bias = true;
};

const ConvMember kConvMembers[] = {
    {"Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", 1, Width::kScalar, false},
    {"Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1", 1, Width::kSse, false},
    {"Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1", 4, Width::kSse, false},
    {"Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1", 8, Width::kSse, false},
    {"Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1", 8, Width::kAvx, false},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1", 1, Width::kBlas, true},
    // Without a bias the member is the product alone: the gap to the row
    // above is the separate bias pass that follows the beta-0 product.
    {"Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1", 1, Width::kBlas, true, false},
};

void BM_Conv(benchmark::State& state, const ConvShape* shape, const ConvMember* member) {
  auto info = tarn::bench::ConvRecord(shape->c, shape->n, shape->k, shape->k, shape->s, shape->s, shape->p, shape->p,
                                       member->bias);
  const std::string name = std::string(member->name) + (member->bias ? "" : " (no bias)");
  MeasureKernel(state, member->name, info, {MapTensor(shape->c, shape->h, shape->w, member->lanes, 3)}, shape->label,
                name, member->width, shape->Flops());
}

// The bare CBLAS product of a 1x1 layer: the yardstick of the SGEMM member.
void BM_BareSgemm(benchmark::State& state, const char* label, int M, int K, int N) {
  openblas_set_num_threads(1);
  const std::vector<float> A = Random(std::size_t(M) * K, 1), B = Random(std::size_t(K) * N, 2);
  std::vector<float> C(std::size_t(M) * N);
  Measure(state, label, "cblas_sgemm (bare)", Width::kBlas, 2.0 * M * K * N, [&] {
    cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, M, N, K, 1.0f, A.data(), K, B.data(), N, 0.0f, C.data(), N);
    benchmark::DoNotOptimize(C.data());
  });
}

// ---------------------------------------------------------------- raw 1x1 and 3x3 cores

using CoreFn = void (*)(int, int, int, float*, int, int, int, int, int, int, int, int, int, float*, int, int, int,
                        float*);
using PackFn = TensorCPUPtr (*)(const TensorCPUPtr&, const tarn::kernel::DeviceCPUPtr&);

struct Core {
  const char* name;
  CoreFn fn;
  unsigned in_lanes, out_lanes;
  PackFn pack;
  Width width;
};

namespace native = tarn::kernel::native;
const Core kCores[] = {
    {"core chw_sse_m1", native::conv2d_k1x1_s1x1_d1x1_g1_chw_f32_sse_m1, 1, 1, nullptr, Width::kSse},
    {"core c4hw4_sse_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_sse_m0, 4, 4,
     tarn::kernel::Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback, Width::kSse},
    {"core c8hw8_sse_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_sse_m0, 8, 8,
     tarn::kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback, Width::kSse},
    {"core c4hw4_avx_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_avx_m0, 4, 4,
     tarn::kernel::Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback, Width::kAvx},
    {"core c4hw4_avx_m1", native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_avx_m1, 4, 4,
     tarn::kernel::Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback, Width::kAvx},
    {"core c8hw8_avx_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m0, 8, 8,
     tarn::kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback, Width::kAvx},
    {"core c8hw8_avx_m3", native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m3, 8, 8,
     tarn::kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback, Width::kAvx},
    {"core c4hw4_to_c8hw8_avx_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_to_c8hw8_f32_avx_m0, 4, 8,
     tarn::kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback, Width::kAvx},
    {"core c8hw8_to_c4hw4_avx_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_c4hw4_f32_avx_m0, 8, 4,
     tarn::kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback, Width::kAvx},
    {"core c8hw8_to_c4hw4_avx_m1", native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_c4hw4_f32_avx_m1, 8, 4,
     tarn::kernel::Function_Tensor_GNCHW_To_GN4C8HW8c4n_Fallback, Width::kAvx},
    {"core c8hw8_to_chw_avx_m0", native::conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_chw_f32_avx_m0, 8, 1,
     tarn::kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback, Width::kAvx},
};

unsigned Stored(unsigned channels, unsigned lanes) { return lanes == 1 ? channels : (channels + lanes - 1) / lanes; }

void BM_Core(benchmark::State& state, const ConvShape* shape, const Core* core) {
  auto device = Context()->cpu;
  const unsigned c = shape->c, n = shape->n, h = shape->h, w = shape->w;
  auto weight = device->CreateTensor(tarn::runtime::MakeShape({1, n, c, 1, 1}, TensorShape::FLOAT32, TensorShape::GNCHW),
                                     Random(std::size_t(n) * c, 1).data());
  auto packed = core->pack ? core->pack(weight, device) : weight;
  auto src = MapTensor(c, h, w, core->in_lanes, 3);
  auto dst = MapTensor(n, h, w, core->out_lanes, 4);
  Measure(state, shape->label, core->name, core->width, shape->Flops(), [&] {
    core->fn(c, h, w, src->DataAs<float>(), Stored(c, core->in_lanes), n, 1, 1, 1, 1, 1, 1, 1,
             packed->DataAs<float>(), Stored(n, core->out_lanes), h, w, dst->DataAs<float>());
    benchmark::ClobberMemory();
  });
}

// The direct 3x3 C8HW8 core on the padded input of a 3x3 shape.
void BM_Core3x3(benchmark::State& state, const ConvShape* shape) {
  auto device = Context()->cpu;
  const unsigned c = shape->c, n = shape->n, h = shape->h + 2, w = shape->w + 2;
  auto weight = device->CreateTensor(tarn::runtime::MakeShape({1, n, c, 3, 3}, TensorShape::FLOAT32, TensorShape::GNCHW),
                                     Random(std::size_t(n) * c * 9, 1).data());
  auto packed = tarn::kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback(weight, device);
  auto src = MapTensor(c, h, w, 8, 3);
  auto dst = MapTensor(n, shape->h, shape->w, 8, 4);
  Measure(state, shape->label, "core k3x3 c8hw8_sse_m0 (no im2col)", Width::kSse, shape->Flops(), [&] {
    native::conv2d_k3x3_s1x1_d1x1_g1_c8hw8_f32_sse_m0(c, h, w, src->DataAs<float>(), (c + 7) / 8, n, 3, 3, 1, 1, 1, 1,
                                                      1, packed->DataAs<float>(), (n + 7) / 8, shape->h, shape->w,
                                                      dst->DataAs<float>());
    benchmark::ClobberMemory();
  });
}

// The two halves of the C4HW4 member on a strided shape (the stem): padding
// plus im2col, and the core over the column matrix. Both count the layer's
// flops so their GFLOP/s add up like their times.
void BM_SplitC4HW4(benchmark::State& state, const ConvShape* shape, bool core_only) {
  auto device = Context()->cpu;
  const unsigned blocks = (shape->c + 3) / 4, taps = shape->k * shape->k;
  const unsigned ph = shape->h + 2 * shape->p, pw = shape->w + 2 * shape->p;
  const unsigned oh = (ph - shape->k) / shape->s + 1, ow = (pw - shape->k) / shape->s + 1;
  auto input = MapTensor(shape->c, shape->h, shape->w, 4, 3);
  auto column = device->CreateTensor(
      tarn::runtime::MakeShape({blocks * taps, oh, ow, 4}, TensorShape::FLOAT32, TensorShape::C4HW4));
  auto weight = device->CreateTensor(
      tarn::runtime::MakeShape({1, shape->n, shape->c, shape->k, shape->k}, TensorShape::FLOAT32, TensorShape::GNCHW),
      Random(std::size_t(shape->n) * shape->c * taps, 1).data());
  auto packed = tarn::kernel::Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback(weight, device);
  auto dst = MapTensor(shape->n, oh, ow, 4, 4);
  const int cols = static_cast<int>(blocks * taps);
  if (core_only) {
    Measure(state, shape->label, "split: core c4hw4_sse_m0 on the column matrix", Width::kSse, shape->Flops(), [&] {
      native::conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_sse_m0(4 * cols, oh, ow, column->DataAs<float>(), cols, shape->n, 1,
                                                        1, 1, 1, 1, 1, 1, packed->DataAs<float>(), (shape->n + 3) / 4,
                                                        oh, ow, dst->DataAs<float>());
      benchmark::ClobberMemory();
    });
    return;
  }
  Measure(state, shape->label, "split: padding + im2col_c4hw4_f32_sse_m0", Width::kSse, shape->Flops(), [&] {
    auto padded = tarn::kernel::functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1(input, shape->p, shape->p,
                                                                                    shape->p, shape->p, 0.0f, device);
    native::im2col_c4hw4_f32_sse_m0(blocks, ph, pw, cols, oh, ow, shape->k, shape->k, shape->s, shape->s, 1, 1,
                                    padded->DataAs<float>(), column->DataAs<float>());
    benchmark::ClobberMemory();
  });
}

// ---------------------------------------------------------------- 1-D convolution

const char kConv1DLabel[] = "tcn conv1d k3 256->256 L=512";

void BM_Conv1D(benchmark::State& state, const char* name, Width width) {
  const unsigned c = 256, n = 256, length = 512;
  auto info = std::make_shared<tarn::runtime::Conv1dInfo>();
  info->in_channels = c;
  info->out_channels = n;
  info->kernel_size = 3;
  info->padding_f = info->padding_b = 1;
  info->if_bias = true;
  info->weight = tarn::runtime::EncodeWeights(Random(std::size_t(n) * c * 3, 1));
  info->bias = tarn::runtime::EncodeWeights(Random(n, 2));
  const std::vector<float> x = Random(std::size_t(c) * length, 3);
  MeasureKernel(state, name, info, {Context()->cpu->CreateTensor(tarn::runtime::MakeShape({c, length}), x.data())},
                kConv1DLabel, name, width, 2.0 * n * c * 3 * length);
}

// ---------------------------------------------------------------- fully connected

const char kFcLabel[] = "classifier fc 512->1000";

struct FcMember {
  const char* name;
  Width width;
  unsigned lanes;  // 0 flat vector, else a [C, 1, 1] map in this layout
};

const FcMember kFcMembers[] = {
    {"FullConnection_Fallback_C_Float_M1", Width::kScalar, 0}, {"FullConnection_SGEMM_C_Float_M1", Width::kBlas, 0},
    {"FullConnection_SSE_C_Float_M1", Width::kSse, 0},         {"FullConnection_SSE_C44_Float_M1", Width::kSse, 0},
    {"FullConnection_SSE_BC_Float_M1", Width::kSse, 0},        {"FullConnection_SSE_C4HW4_Float_M1", Width::kSse, 4},
    {"FullConnection_AVX_C_Float_M1", Width::kAvx, 0},         {"FullConnection_AVX_C_Float_M2", Width::kAvx, 0},
    {"FullConnection_AVX_C_Float_M3", Width::kAvx, 0},         {"FullConnection_AVX_C88_Float_M1", Width::kAvx, 0},
    {"FullConnection_AVX_C8HW8_Float_M1", Width::kAvx, 8},
};

void BM_Fc(benchmark::State& state, const FcMember* member) {
  const unsigned in = 512, out = 1000;
  auto info = std::make_shared<tarn::runtime::FullConnectionInfo>();
  info->in_features = in;
  info->out_features = out;
  info->if_bias = true;
  info->weight = tarn::runtime::EncodeWeights(Random(std::size_t(in) * out, 1));
  info->bias = tarn::runtime::EncodeWeights(Random(out, 2));
  std::vector<TensorPtr> inputs;
  if (member->lanes == 0) {
    inputs = {Context()->cpu->CreateTensor(tarn::runtime::MakeShape({in}), Random(in, 3).data())};
  } else {
    inputs = {MapTensor(in, 1, 1, member->lanes, 3)};
  }
  MeasureKernel(state, member->name, info, inputs, kFcLabel, member->name, member->width, 2.0 * in * out);
}

// ---------------------------------------------------------------- registration and report

void RegisterAll() {
  for (const ConvShape& shape : kConvShapes) {
    const bool one = shape.k == 1 && shape.s == 1 && shape.p == 0;
    for (const ConvMember& m : kConvMembers) {
      if (m.only_1x1 && !one) continue;
      auto* b = benchmark::RegisterBenchmark(
          (std::string(shape.label) + " | " + m.name + (m.bias ? "" : " (no bias)")).c_str(), BM_Conv, &shape, &m);
      b->Unit(benchmark::kMillisecond);
      // The portable member is slow on these shapes: one timed call is enough.
      if (m.width == Width::kScalar) {
        b->Iterations(1);
      } else {
        b->MinTime(0.5);
      }
    }
    if (one) {
      for (const Core& core : kCores) {
        benchmark::RegisterBenchmark((std::string(shape.label) + " | " + core.name).c_str(), BM_Core, &shape, &core)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(0.3);
      }
      benchmark::RegisterBenchmark((std::string(shape.label) + " | cblas_sgemm").c_str(), BM_BareSgemm, shape.label,
                                   int(shape.n), int(shape.c), int(shape.h * shape.w))
          ->Unit(benchmark::kMillisecond)
          ->MinTime(0.5);
    }
    if (shape.k == 7) {
      for (bool core_only : {false, true}) {
        benchmark::RegisterBenchmark((std::string(shape.label) + (core_only ? " | split core" : " | split im2col")).c_str(),
                                     BM_SplitC4HW4, &shape, core_only)
            ->Unit(benchmark::kMillisecond)
            ->MinTime(0.5);
      }
    }
    if (shape.k == 3 && shape.s == 1) {
      benchmark::RegisterBenchmark((std::string(shape.label) + " | core k3x3").c_str(), BM_Core3x3, &shape)
          ->Unit(benchmark::kMillisecond)
          ->MinTime(0.5);
    }
  }
  benchmark::RegisterBenchmark((std::string(kConv1DLabel) + " | Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1").c_str(),
                               BM_Conv1D, "Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1", Width::kScalar)
      ->Unit(benchmark::kMillisecond)
      ->Iterations(1);
  benchmark::RegisterBenchmark((std::string(kConv1DLabel) + " | Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1").c_str(),
                               BM_Conv1D, "Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1", Width::kAvx)
      ->Unit(benchmark::kMillisecond)
      ->MinTime(0.5);
  for (const FcMember& m : kFcMembers) {
    auto* b = benchmark::RegisterBenchmark((std::string(kFcLabel) + " | " + m.name).c_str(), BM_Fc, &m);
    b->Unit(benchmark::kMicrosecond)->MinTime(0.3);
  }
  benchmark::RegisterBenchmark((std::string(kFcLabel) + " | cblas_sgemm").c_str(), BM_BareSgemm, kFcLabel, 1000, 512,
                               1)
      ->Unit(benchmark::kMicrosecond)
      ->MinTime(0.3);
}

// One row per run: GFLOP/s, speed-up over the portable member of the shape,
// fraction of the peak of the member's width (BLAS against the AVX peak), and
// for the CBLAS members the ratio to the bare cblas_sgemm.
void PrintTable() {
  std::map<std::string, double> reference, bare;
  for (const Result& r : Results()) {
    if (r.width == Width::kScalar) reference[r.shape] = r.seconds;
    if (r.member == "cblas_sgemm (bare)") bare[r.shape] = r.seconds;
  }
  std::printf("\nFMA peak, one thread: SSE %.1f GFLOP/s, AVX %.1f GFLOP/s\n", g_peak_sse, g_peak_avx);
  // memcpy reads and writes each byte; a matrix-vector product reads each
  // 4-byte weight once for 2 flops: at the same traffic it does `copied` GFLOP/s.
  std::printf("memcpy of the FC weight size (2 MB): %.1f GB/s copied (%.1f GB/s of traffic): a matrix-vector "
              "product streaming its weight at that traffic runs at about %.1f GFLOP/s\n\n",
              g_copy_fc, 2.0 * g_copy_fc, g_copy_fc);
  std::printf("| shape | member | width | ms/call | GFLOP/s | x portable | %% of width peak | vs bare cblas |\n");
  std::printf("|---|---|---|---:|---:|---:|---:|---:|\n");
  for (const Result& r : Results()) {
    const double gflops = r.flops / r.seconds * 1e-9;
    const double peak = r.width == Width::kSse ? g_peak_sse : (r.width == Width::kScalar ? 0.0 : g_peak_avx);
    char speedup[32] = "", peak_text[32] = "", blas[32] = "";
    if (reference.count(r.shape)) std::snprintf(speedup, sizeof speedup, "%.1f", reference[r.shape] / r.seconds);
    if (peak > 0) std::snprintf(peak_text, sizeof peak_text, "%.0f%%", 100.0 * gflops / peak);
    if (r.width == Width::kBlas && bare.count(r.shape) && r.member != "cblas_sgemm (bare)") {
      std::snprintf(blas, sizeof blas, "%.2f", bare[r.shape] / r.seconds);
    }
    std::printf("| %s | %s | %s | %.3f | %.2f | %s | %s | %s |\n", r.shape.c_str(), r.member.c_str(), WidthName(r.width),
                r.seconds * 1e3, gflops, speedup, peak_text, blas);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  tarn::bench::AddRunContext();
  openblas_set_num_threads(1);
  g_peak_sse = tarn::bench::FmaPeakGflopsSse();
  g_peak_avx = tarn::bench::FmaPeakGflopsAvx();
  g_copy_fc = tarn::bench::CopyBandwidthGBs(std::size_t(512) * 1000 * sizeof(float));
  benchmark::AddCustomContext("fma_peak_sse_gflops", std::to_string(g_peak_sse));
  benchmark::AddCustomContext("fma_peak_avx_gflops", std::to_string(g_peak_avx));
  RegisterAll();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  PrintTable();
  return 0;
}
