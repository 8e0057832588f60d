#include "kernel/cpu/avx/conv2d_image/conv2d_image.h"

#include "kernel/cpu/avx/conv_core/avx_registers.h"
#include "kernel/cpu/fallback/conv2d/conv2d_direct_steps.h"
#include "tarn/kernel/tensor_helpers.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {
namespace {

using direct::OutMode;
using std::ptrdiff_t;
using V = AvxRegisters;

// The zero-padding helpers in the form of the padding step (the value is
// zero by construction).
TensorCPUPtr ZeroPadCHW(const TensorCPUPtr& input, std::uint32_t left, std::uint32_t right, std::uint32_t top,
                        std::uint32_t bottom, float, const DeviceCPUPtr& device) {
  return Padding_HW_MainMemory_CHW_Zero_Fallback_M1(input, left, right, top, bottom, device);
}
TensorCPUPtr ZeroPadC8HW8(const TensorCPUPtr& input, std::uint32_t left, std::uint32_t right, std::uint32_t top,
                          std::uint32_t bottom, float, const DeviceCPUPtr& device) {
  return functional::Padding_HW_MainMemory_AVX_C8HW8_Zero_M1(input, left, right, top, bottom, device);
}

// ---------------------------------------------------------------- heads: lane sums

// The lane sums of eight pixels, one per lane, from the accumulators of a
// tile: IL = 8, one pixel per register (r[0..8)); IL = 4, two pixels per
// register (r[0..4), pixel 2j in the low half of r[j], 2j + 1 in the high).
template <int IL>
inline __m256 PixelSums(const __m256* r) {
  if constexpr (IL == 8) {
    const __m256 u0 = _mm256_hadd_ps(_mm256_hadd_ps(r[0], r[1]), _mm256_hadd_ps(r[2], r[3]));
    const __m256 u1 = _mm256_hadd_ps(_mm256_hadd_ps(r[4], r[5]), _mm256_hadd_ps(r[6], r[7]));
    // Low halves hold the sums of lanes 0..3 of pixels 0..3 (u0) and 4..7
    // (u1), high halves those of lanes 4..7.
    return _mm256_add_ps(_mm256_permute2f128_ps(u0, u1, 0x20), _mm256_permute2f128_ps(u0, u1, 0x31));
  } else {
    // Pixels 0, 2, 4, 6 in the low half, 1, 3, 5, 7 in the high half.
    const __m256 u = _mm256_hadd_ps(_mm256_hadd_ps(r[0], r[1]), _mm256_hadd_ps(r[2], r[3]));
    return _mm256_permutevar8x32_ps(u, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
  }
}

// NOUT output channels at PX (1 .. 8) pixels of one row, added to the output.
// `src` is input block 0 at the tile's first output pixel, `dst` output
// channel 0 there; `w` the weight rows of output channel 0.
template <int IL, int NOUT, int PX>
void HeadTile(const float* src, ptrdiff_t srcBlock, ptrdiff_t srcRow, int inBlocks, const float* w,
              ptrdiff_t wChannel, float* dst, ptrdiff_t dstPlane) {
  constexpr int kPerRegister = 8 / IL;
  constexpr int R = (PX + kPerRegister - 1) / kPerRegister;  // registers per output channel
  constexpr int kLast = PX * IL - (R - 1) * 8;                // floats read into the last register
  __m256 acc[NOUT][8 / kPerRegister];
#pragma GCC unroll 4
  for (int n = 0; n < NOUT; ++n) {
#pragma GCC unroll 8
    for (int r = 0; r < 8 / kPerRegister; ++r) acc[n][r] = V::Zero();
  }
  for (int ib = 0; ib < inBlocks; ++ib) {
    for (int ky = 0; ky < 3; ++ky) {
      const float* s = src + ib * srcBlock + ky * srcRow;
      const float* wt = w + (ib * 3 + ky) * 3 * 8;
#pragma GCC unroll 3
      for (int kx = 0; kx < 3; ++kx) {
        __m256 wv[NOUT];
#pragma GCC unroll 4
        for (int n = 0; n < NOUT; ++n) wv[n] = V::Load(wt + n * wChannel + kx * 8);
#pragma GCC unroll 8
        for (int r = 0; r < R; ++r) {
          const float* p = s + kx * IL + r * 8;
          const __m256 x = r == R - 1 && kLast < 8 ? V::LoadFirst(p, kLast) : V::Load(p);
#pragma GCC unroll 4
          for (int n = 0; n < NOUT; ++n) acc[n][r] = V::Fma(wv[n], x, acc[n][r]);
        }
      }
    }
  }
#pragma GCC unroll 4
  for (int n = 0; n < NOUT; ++n) {
    float* d = dst + n * dstPlane;
    const __m256 sums = PixelSums<IL>(acc[n]);
    if constexpr (PX == 8) {
      V::Store(d, _mm256_add_ps(V::Load(d), sums));
    } else {
      V::StoreFirst(d, _mm256_add_ps(V::LoadFirst(d, PX), sums), PX);
    }
  }
}

template <int IL, int NOUT, int PX = 1>
inline void HeadTileOf(int px, const float* src, ptrdiff_t srcBlock, ptrdiff_t srcRow, int inBlocks, const float* w,
                       ptrdiff_t wChannel, float* dst, ptrdiff_t dstPlane) {
  if constexpr (PX <= 8) {
    if (px == PX) return HeadTile<IL, NOUT, PX>(src, srcBlock, srcRow, inBlocks, w, wChannel, dst, dstPlane);
    HeadTileOf<IL, NOUT, PX + 1>(px, src, srcBlock, srcRow, inBlocks, w, wChannel, dst, dstPlane);
  }
}

// The head step: padded blocked input [blocks, H + 2, W + 2, IL], CHW output
// [NOUT, H, W] holding the bias (or zero).
template <int IL, int NOUT>
void HeadStep(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight) {
  const auto& di = input->shape.dims;
  const auto& d = output->shape.dims;
  const ptrdiff_t srcRow = ptrdiff_t(di[2]) * IL, srcBlock = srcRow * di[1];
  const int inBlocks = static_cast<int>(di[0]);
  const int oh = static_cast<int>(d[1]), ow = static_cast<int>(d[2]);
  const ptrdiff_t dstPlane = ptrdiff_t(oh) * ow;
  const ptrdiff_t wChannel = ptrdiff_t(inBlocks) * 9 * 8;
  const float* src = input->DataAs<float>();
  const float* w = weight->DataAs<float>();
  float* dst = output->DataAs<float>();
  for (int oy = 0; oy < oh; ++oy) {
    for (int ox = 0; ox < ow; ox += 8) {
      HeadTileOf<IL, NOUT>(ow - ox < 8 ? ow - ox : 8, src + oy * srcRow + ox * IL, srcBlock, srcRow, inBlocks, w,
                           wChannel, dst + ptrdiff_t(oy) * ow + ox, dstPlane);
    }
  }
}

}  // namespace

void Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1_Convolution(
    const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight, const TensorCPUPtr& bias,
    const std::shared_ptr<runtime::Context>&) {
  direct::BlockedWritingStep<V, 1, 3, 3, 1, 1, OutMode::kHalves>(input, output, weight, bias);
}

void Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M3_Convolution(
    const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight, const TensorCPUPtr& bias,
    const std::shared_ptr<runtime::Context>&) {
  direct::BlockedWritingStep<V, 1, 3, 3, 1, 1, OutMode::kWhole>(input, output, weight, bias);
}

void Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                        const TensorCPUPtr& output,
                                                                        const TensorCPUPtr& weight) {
  HeadStep<4, 3>(input, output, weight);
}

void Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1_Convolution(const TensorCPUPtr& input,
                                                                        const TensorCPUPtr& output,
                                                                        const TensorCPUPtr& weight) {
  HeadStep<8, 1>(input, output, weight);
}

TRN_CONV2D_WRITING_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1, ZeroPadCHW,
                           Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1_Convolution)
TRN_CONV2D_WRITING_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1, ZeroPadCHW,
                           Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M3_Convolution)
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1,
                          functional::Padding_HW_MainMemory_SSE_C4HW4_Float_M1, functional::FillBias_AVX_CHW_Float_M1,
                          Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1_Convolution)
TRN_CONV2D_DIRECT_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1, ZeroPadC8HW8,
                          functional::FillBias_AVX_CHW_Float_M1,
                          Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1_Convolution)

}  // namespace kernel
}  // namespace tarn
