#include "kernel/cpu/sse/conv_transpose2d/conv_transpose2d.h"

#include "kernel/cpu/fallback/conv_transpose2d/transposed_tiles.h"
#include "kernel/cpu/sse/conv_core/lane_vectors.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {
namespace {

constexpr int kTaps = 3;

// CHW: T registers of Tr::kPixels consecutive pixels of one phase row of
// output channel n, starting at phase column jx, gather every input channel
// through the broadcast weights of their taps. With stride 1 in x the phase
// pixels are adjacent and the registers start from the bias-filled output;
// otherwise they start from zero and are added to every stride-th pixel.
template <class Tr, int T>
inline void ChwTile(const ConvTranspose2DStepArgs& a, const ConvTranspose2DStepGeometry& g,
                    const transposed::PhaseRow& r, int n, int jx, float* out_plane) {
  constexpr int P = Tr::kPixels, K = kTaps;
  const std::ptrdiff_t in_plane = std::ptrdiff_t(a.in_w) * a.in_h;
  const bool adjacent = g.stride_x == 1;
  float* out = out_plane + r.out + std::ptrdiff_t(jx) * g.stride_x;
  typename Tr::V acc[T];
#pragma GCC unroll 16
  for (int t = 0; t < T; ++t) acc[t] = adjacent ? Tr::Load(out + t * P) : Tr::Zero();
  for (int c = 0; c < a.in_planes; ++c) {
    const float* row0 = a.input + c * in_plane + std::ptrdiff_t(r.in_row) * a.in_w + jx + a.border_x;
    const float* w = a.weight + (std::ptrdiff_t(c) * a.out_planes + n) * K * K;
    for (int my = 0; my < r.taps_y; ++my) {
      const int ky = r.ry + int(g.stride_y) * my;
      for (int mx = 0; mx < r.taps_x; ++mx) {
        const typename Tr::V tap = Tr::Tap(w + ky * K + r.rx + int(g.stride_x) * mx);
        const float* src = row0 - std::ptrdiff_t(my) * a.in_w - mx;
#pragma GCC unroll 16
        for (int t = 0; t < T; ++t) acc[t] = Tr::Fma(tap, Tr::template LoadIn<1>(src + t * P), acc[t]);
      }
    }
  }
  if (adjacent) {
#pragma GCC unroll 16
    for (int t = 0; t < T; ++t) Tr::Store(out + t * P, acc[t]);
  } else {
    float sums[T * P];
#pragma GCC unroll 16
    for (int t = 0; t < T; ++t) Tr::Store(sums + t * P, acc[t]);
    for (int i = 0; i < T * P; ++i) out[std::ptrdiff_t(i) * g.stride_x] += sums[i];
  }
}

}  // namespace

void ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                              const TensorCPUPtr& weight,
                                                              const ConvTranspose2DStepGeometry& g) {
  const ConvTranspose2DStepArgs a = CheckConvTranspose2DStep(input, output, weight, g, kTaps, 1, __func__);
  constexpr int P = PixelChwx4::kPixels, T = PixelChwx4::kTile;
  const std::ptrdiff_t out_plane = std::ptrdiff_t(a.out_h) * a.out_w;
  for (int n = 0; n < a.out_planes; ++n) {
    float* plane = a.output + n * out_plane;
    transposed::ForEachPhaseRow(a, g, kTaps, [&](const transposed::PhaseRow& r) {
      const int units = r.count / P;
      int u = 0;
      for (; u + T <= units; u += T) ChwTile<PixelChwx4, T>(a, g, r, n, u * P, plane);
      if (u < units) {
        DispatchTile<T>(units - u, [&](auto k) { ChwTile<PixelChwx4, decltype(k)::value>(a, g, r, n, u * P, plane); });
      }
      for (int jx = units * P; jx < r.count; ++jx) ChwTile<PixelChwx1, 1>(a, g, r, n, jx, plane);
    });
  }
}

void ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                                const TensorCPUPtr& weight,
                                                                const ConvTranspose2DStepGeometry& geometry) {
  transposed::BlockedStep<PixelC4x1, kTaps>(input, output, weight, geometry, __func__);
}

TRN_CONV_TRANSPOSE_FORWARD(ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                           FillBias_MainMemory_CHW_Float_Fallback_M1, Cutting_HW_MainMemory_Fallback_CHW_Float_M1)
TRN_CONV_TRANSPOSE_FORWARD(ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1,
                           functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1, functional::FillBias_SSE_C4HW4_Float_M1,
                           Cutting_HW_MainMemory_Fallback_C4HW4_Float_M1)

}  // namespace kernel
}  // namespace tarn
