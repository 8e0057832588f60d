// Image pre-processing: a 1920x1080 NV21 camera frame to a 224x224 normalised
// float tensor (the Pipeline benchmarks, compared with OpenCV by
// bench/run_image_bench.sh), and the single operations behind it.
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <type_traits>
#include <vector>

#include "bench_common.h"
#include "tarn/kernel/image_process.h"

namespace {

using tarn::kernel::AffineNormalizeParam;
using tarn::kernel::ImageProcess;
using tarn::runtime::TensorCPU;
using tarn::runtime::TensorShape;

constexpr unsigned kH = 1080, kW = 1920, kOut = 224;

std::shared_ptr<tarn::runtime::Context> Ctx() {
  static auto context = tarn::bench::MakeContext();
  return context;
}

std::shared_ptr<TensorCPU> RandomU8(std::vector<unsigned> dims, TensorShape::Layout layout = TensorShape::HWC) {
  auto t = Ctx()->cpu->CreateTensor(TensorShape(dims, TensorShape::UINT8, layout, TensorShape::MainMemory));
  std::mt19937 rng(3);
  auto* p = t->DataAs<std::uint8_t>();
  for (std::size_t i = 0; i < t->shape.Bytes(); ++i) p[i] = static_cast<std::uint8_t>(rng());
  return t;
}

// A view of part of another tensor's bytes.
std::shared_ptr<TensorCPU> View(const std::shared_ptr<TensorCPU>& t, std::size_t offset, std::vector<unsigned> dims,
                                TensorShape::Layout layout = TensorShape::HWC) {
  return Ctx()->cpu->CreateExternalTensor(TensorShape(dims, TensorShape::UINT8, layout, TensorShape::MainMemory),
                                          t->DataAs<std::uint8_t>() + offset);
}

AffineNormalizeParam ImageNetParam() {
  AffineNormalizeParam p;
  const float mean[3] = {123.675f, 116.28f, 103.53f}, std[3] = {58.395f, 57.12f, 57.375f};
  for (int c = 0; c < 3; ++c) {
    p.mean[c] = mean[c];
    p.scale[c] = 1.0f / std[c];
  }
  return p;
}

const float kIdentity[6] = {1, 0, 0, 0, 1, 0};

// Shrink first, then decode: the Y plane and the interleaved VU plane are
// each resized (C1 and C2 bilinear), the small NV21 frame decoded to planar
// RGB and normalised into the float tensor.
void BM_Pipeline_NV21_224_ResizeFirst(benchmark::State& state) {
  auto proc = tarn::kernel::CreateImageProcess(tarn::runtime::DetectCPUDevice());
  auto frame = RandomU8({kH * 3 / 2, kW, 1});
  auto y_in = View(frame, 0, {kH, kW, 1});
  auto vu_in = View(frame, std::size_t(kH) * kW, {kH / 2, kW / 2, 2});
  auto small = Ctx()->cpu->CreateYUV420Tensor(kOut, kOut);
  auto y_out = View(small, 0, {kOut, kOut, 1});
  auto vu_out = View(small, std::size_t(kOut) * kOut, {kOut / 2, kOut / 2, 2});
  auto rgb = Ctx()->cpu->CreateRGBUInt8CHWTensor(kOut, kOut);
  auto out = Ctx()->cpu->CreateF32CHWMainMemory(3, kOut, kOut);
  const AffineNormalizeParam param = ImageNetParam();
  for (auto _ : state) {
    proc->Resize_Bilinear_C1(y_in, y_out, Ctx());
    proc->Resize_Bilinear_C2(vu_in, vu_out, Ctx());
    proc->ConvertYUV2RGB_NV21(small, rgb, Ctx());
    proc->Affine_Normalize(rgb, out, kIdentity, param, Ctx());
    benchmark::DoNotOptimize(out->Data());
  }
}
BENCHMARK(BM_Pipeline_NV21_224_ResizeFirst)->Unit(benchmark::kMicrosecond);

// The same steps in OpenCV's order: decode the whole frame, resize each RGB
// plane, normalise.
void BM_Pipeline_NV21_224_DecodeFirst(benchmark::State& state) {
  auto proc = tarn::kernel::CreateImageProcess(tarn::runtime::DetectCPUDevice());
  auto frame = RandomU8({kH * 3 / 2, kW, 1});
  auto rgb_full = Ctx()->cpu->CreateRGBUInt8CHWTensor(kH, kW);
  auto rgb = Ctx()->cpu->CreateRGBUInt8CHWTensor(kOut, kOut);
  std::shared_ptr<TensorCPU> planes_in[3], planes_out[3];
  for (int c = 0; c < 3; ++c) {
    planes_in[c] = View(rgb_full, std::size_t(c) * kH * kW, {kH, kW, 1});
    planes_out[c] = View(rgb, std::size_t(c) * kOut * kOut, {kOut, kOut, 1});
  }
  auto out = Ctx()->cpu->CreateF32CHWMainMemory(3, kOut, kOut);
  const AffineNormalizeParam param = ImageNetParam();
  for (auto _ : state) {
    proc->ConvertYUV2RGB_NV21(frame, rgb_full, Ctx());
    for (int c = 0; c < 3; ++c) proc->Resize_Bilinear_C1(planes_in[c], planes_out[c], Ctx());
    proc->Affine_Normalize(rgb, out, kIdentity, param, Ctx());
    benchmark::DoNotOptimize(out->Data());
  }
}
BENCHMARK(BM_Pipeline_NV21_224_DecodeFirst)->Unit(benchmark::kMicrosecond);

// Decode, then one warp that scales and normalises (bilinear in 1024ths).
void BM_Pipeline_NV21_224_DecodeThenWarp(benchmark::State& state) {
  auto proc = tarn::kernel::CreateImageProcess(tarn::runtime::DetectCPUDevice());
  auto frame = RandomU8({kH * 3 / 2, kW, 1});
  auto rgb_full = Ctx()->cpu->CreateRGBUInt8CHWTensor(kH, kW);
  auto out = Ctx()->cpu->CreateF32CHWMainMemory(3, kOut, kOut);
  const AffineNormalizeParam param = ImageNetParam();
  // Source to destination, pixel centres onto pixel centres.
  const float sx = float(kOut) / kW, sy = float(kOut) / kH;
  const float m[6] = {sx, 0, 0.5f * sx - 0.5f, 0, sy, 0.5f * sy - 0.5f};
  for (auto _ : state) {
    proc->ConvertYUV2RGB_NV21(frame, rgb_full, Ctx());
    proc->Affine_Normalize(rgb_full, out, m, param, Ctx());
    benchmark::DoNotOptimize(out->Data());
  }
}
BENCHMARK(BM_Pipeline_NV21_224_DecodeThenWarp)->Unit(benchmark::kMicrosecond);

// ---------------------------------------------------------------- single operations

template <typename Proc>
void BM_DecodeNV21_1080p(benchmark::State& state) {
  Proc proc;
  auto frame = RandomU8({kH * 3 / 2, kW, 1});
  auto rgb = Ctx()->cpu->CreateRGBUInt8CHWTensor(kH, kW);
  for (auto _ : state) proc.ConvertYUV2RGB_NV21(frame, rgb, Ctx());
  state.SetItemsProcessed(state.iterations() * kH * kW);
}
BENCHMARK_TEMPLATE(BM_DecodeNV21_1080p, tarn::kernel::ImageProcessFallback)->Unit(benchmark::kMicrosecond);

void BM_RGB2Gray_1080p(benchmark::State& state) {
  tarn::kernel::ImageProcessFallback proc;
  auto rgb = RandomU8({kH, kW, 3});
  auto gray = Ctx()->cpu->CreateGray8Tensor(kH, kW);
  for (auto _ : state) proc.ConvertRGB2Gray(rgb, gray, Ctx());
  state.SetItemsProcessed(state.iterations() * kH * kW);
}
BENCHMARK(BM_RGB2Gray_1080p)->Unit(benchmark::kMicrosecond);

template <typename Proc>
void BM_Rotate90_1080p(benchmark::State& state) {
  if (std::is_same<Proc, tarn::kernel::ImageProcessSSE>::value &&
      !tarn::runtime::DetectCPUDevice().CanRunSSEKernels()) {
    state.SkipWithError("no SSE4.1/FMA");
    return;
  }
  Proc proc;
  const unsigned c = static_cast<unsigned>(state.range(0));
  auto src = RandomU8({kH, kW, c});
  auto dst = Ctx()->cpu->CreateUInt8HWCTensor(kW, kH, c);
  for (auto _ : state) proc.ClockwiseRotate90(src, dst, Ctx());
  state.SetItemsProcessed(state.iterations() * kH * kW);
}
BENCHMARK_TEMPLATE(BM_Rotate90_1080p, tarn::kernel::ImageProcessFallback)->Arg(1)->Arg(3)->Arg(4)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_Rotate90_1080p, tarn::kernel::ImageProcessSSE)->Arg(1)->Arg(3)->Arg(4)->Unit(benchmark::kMicrosecond);

void BM_ResizeBilinearC3_1080p_To_224(benchmark::State& state) {
  tarn::kernel::ImageProcessFallback proc;
  auto src = RandomU8({kH, kW, 3});
  auto dst = Ctx()->cpu->CreateRGB888Tensor(kOut, kOut);
  for (auto _ : state) proc.Resize_Bilinear_C3(src, dst, Ctx());
}
BENCHMARK(BM_ResizeBilinearC3_1080p_To_224)->Unit(benchmark::kMicrosecond);

void BM_ResizeBilinearC3_224_Up2(benchmark::State& state) {
  tarn::kernel::ImageProcessFallback proc;
  auto src = RandomU8({kOut, kOut, 3});
  auto dst = Ctx()->cpu->CreateRGB888Tensor(2 * kOut, 2 * kOut);
  for (auto _ : state) proc.Resize_Bilinear_C3(src, dst, Ctx());
}
BENCHMARK(BM_ResizeBilinearC3_224_Up2)->Unit(benchmark::kMicrosecond);

// Arg 0: whole-pixel identity (the shift path); 1: a turn (the gather path).
void BM_AffineNormalize_224(benchmark::State& state) {
  if (!tarn::runtime::DetectCPUDevice().CanRunSSEKernels()) {
    state.SkipWithError("no SSE4.1/FMA");
    return;
  }
  tarn::kernel::ImageProcessSSE proc;
  auto src = RandomU8({kOut, kOut, 3});
  auto out = Ctx()->cpu->CreateF32CHWMainMemory(3, kOut, kOut);
  const float turn[6] = {0.866f, -0.5f, 60, 0.5f, 0.866f, -50};
  const float* m = state.range(0) == 0 ? kIdentity : turn;
  const AffineNormalizeParam param = ImageNetParam();
  for (auto _ : state) proc.Affine_Normalize(src, out, m, param, Ctx());
  state.SetItemsProcessed(state.iterations() * kOut * kOut);
}
BENCHMARK(BM_AffineNormalize_224)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

void BM_AffineNormalize_224_Scalar(benchmark::State& state) {
  auto src = RandomU8({kOut, kOut, 3});
  auto out = Ctx()->cpu->CreateF32CHWMainMemory(3, kOut, kOut);
  const float turn[6] = {0.866f, -0.5f, 60, 0.5f, 0.866f, -50};
  const float* m = state.range(0) == 0 ? kIdentity : turn;
  const AffineNormalizeParam param = ImageNetParam();
  for (auto _ : state) tarn::kernel::functional::F_Affine_Normalize_Fallback(src, out, m, param);
  state.SetItemsProcessed(state.iterations() * kOut * kOut);
}
BENCHMARK(BM_AffineNormalize_224_Scalar)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace

TRN_BENCHMARK_MAIN();
