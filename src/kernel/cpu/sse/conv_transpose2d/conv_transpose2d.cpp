#include "kernel/cpu/sse/conv_transpose2d/conv_transpose2d.h"

#include "kernel/cpu/fallback/conv_transpose2d/transposed_tiles.h"
#include "kernel/cpu/sse/conv_core/lane_vectors.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {
namespace {

constexpr int kTaps = 3;

// CHW: T registers of Tr::kPixels consecutive pixels of one phase row, for
// NB output channels from n on, starting at phase column jx, gather every
// input channel through the broadcast weights of their taps; each input
// register serves all NB channels. With stride 1 in x the phase pixels are
// adjacent and the registers start from the bias-filled output; otherwise
// they start from zero and are added to every stride-th pixel.
template <class Tr, int T, int NB>
inline void ChwTile(const ConvTranspose2DStepArgs& a, const ConvTranspose2DStepGeometry& g,
                    const transposed::PhaseRow& r, int n, int jx, float* out_plane0) {
  constexpr int P = Tr::kPixels, K = kTaps;
  const std::ptrdiff_t in_plane = std::ptrdiff_t(a.in_w) * a.in_h;
  const std::ptrdiff_t out_plane = std::ptrdiff_t(a.out_w) * a.out_h;
  const std::ptrdiff_t w_channel = std::ptrdiff_t(a.out_planes) * K * K;  // one input channel's weights
  const bool adjacent = g.stride_x == 1;
  float* out[NB];
  typename Tr::V acc[NB][T];
#pragma GCC unroll 4
  for (int b = 0; b < NB; ++b) {
    out[b] = out_plane0 + (n + b) * out_plane + r.out + std::ptrdiff_t(jx) * g.stride_x;
#pragma GCC unroll 16
    for (int t = 0; t < T; ++t) acc[b][t] = adjacent ? Tr::Load(out[b] + t * P) : Tr::Zero();
  }
  // Taps outer, input channels inner: the long loop runs over channels.
  for (int mx = 0; mx < r.taps_x; ++mx) {
    for (int my = 0; my < r.taps_y; ++my) {
      const int tap = (r.ry + int(g.stride_y) * my) * K + r.rx + int(g.stride_x) * mx;
      const float* src = a.input + std::ptrdiff_t(r.in_row - my) * a.in_w + jx + a.border_x - mx;
      const float* w = a.weight + std::ptrdiff_t(n) * K * K + tap;
      for (int c = 0; c < a.in_planes; ++c, src += in_plane, w += w_channel) {
        typename Tr::V taps[NB];
#pragma GCC unroll 4
        for (int b = 0; b < NB; ++b) taps[b] = Tr::Tap(w + b * K * K);
#pragma GCC unroll 16
        for (int t = 0; t < T; ++t) {
          const typename Tr::V x = Tr::template LoadIn<1>(src + t * P);
#pragma GCC unroll 4
          for (int b = 0; b < NB; ++b) acc[b][t] = Tr::Fma(taps[b], x, acc[b][t]);
        }
      }
    }
  }
#pragma GCC unroll 4
  for (int b = 0; b < NB; ++b) {
    if (adjacent) {
#pragma GCC unroll 16
      for (int t = 0; t < T; ++t) Tr::Store(out[b] + t * P, acc[b][t]);
    } else {
      float sums[T * P];
#pragma GCC unroll 16
      for (int t = 0; t < T; ++t) Tr::Store(sums + t * P, acc[b][t]);
      for (int i = 0; i < T * P; ++i) out[b][std::ptrdiff_t(i) * g.stride_x] += sums[i];
    }
  }
}

// One phase row of NB output channels from n on.
template <int NB>
inline void ChwPhaseRow(const ConvTranspose2DStepArgs& a, const ConvTranspose2DStepGeometry& g,
                        const transposed::PhaseRow& r, int n, float* output) {
  constexpr int P = PixelChwx4::kPixels, T = PixelChwx4::kTile;
  const int units = r.count / P;
  int u = 0;
  for (; u + T <= units; u += T) ChwTile<PixelChwx4, T, NB>(a, g, r, n, u * P, output);
  if (u < units) {
    DispatchTile<T>(units - u, [&](auto k) { ChwTile<PixelChwx4, decltype(k)::value, NB>(a, g, r, n, u * P, output); });
  }
  for (int jx = units * P; jx < r.count; ++jx) ChwTile<PixelChwx1, 1, NB>(a, g, r, n, jx, output);
}

}  // namespace

void ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                              const TensorCPUPtr& weight,
                                                              const ConvTranspose2DStepGeometry& g) {
  const ConvTranspose2DStepArgs a = CheckConvTranspose2DStep(input, output, weight, g, kTaps, 1, __func__);
  // Output channels in pairs: one input load feeds both.
  transposed::ForEachPhaseRow(a, g, kTaps, [&](const transposed::PhaseRow& r) {
    int n = 0;
    for (; n + 2 <= a.out_planes; n += 2) ChwPhaseRow<2>(a, g, r, n, a.output);
    if (n < a.out_planes) ChwPhaseRow<1>(a, g, r, n, a.output);
  });
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
