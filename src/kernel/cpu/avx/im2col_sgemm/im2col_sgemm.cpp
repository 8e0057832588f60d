#include "kernel/cpu/avx/im2col_sgemm/im2col_sgemm.h"

#include <cstring>
#include <vector>

#include "kernel/cpu/avx/conv_core/avx_registers.h"
#include "tarn/kernel/native_gemm.h"
#include "tarn/kernel/tensor_helpers.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace native {
namespace {

using std::ptrdiff_t;
using V = AvxRegisters;

// Output pixels per panel of the column matrix: eight tiles of 24 pixels; a
// panel of a 7x7 stem's 147 rows is 113 KB, inside the second-level cache.
// Layers with so many input channels that a panel would pass kPanelBytes
// take narrower panels (a whole number of registers, one at the least), so
// the scratch stays a few times the input whatever the record claims.
constexpr int kPanel = 192;
constexpr long kPanelBytes = 4l << 20;

int PanelPixels(int depth) {
  const long fit = kPanelBytes / (long(depth) * long(sizeof(float))) / 8 * 8;
  return fit >= kPanel ? kPanel : (fit >= 8 ? static_cast<int>(fit) : 8);
}
constexpr int kRows = 4;  // output channels per tile (the weight's block)

// `n` values src[0], src[stride], ... into dst. Stride 2 gathers the even
// floats of two registers while the 16 floats stay inside the row (`room`
// floats readable from src).
void GatherRow(const float* src, float* dst, int n, int stride, int room) {
  int i = 0;
  if (stride == 1) {
    std::memcpy(dst, src, sizeof(float) * n);
    return;
  }
  if (stride == 2) {
    for (; i + 8 <= n && 2 * i + 16 <= room; i += 8) {
      const __m256 a = _mm256_loadu_ps(src + 2 * i), b = _mm256_loadu_ps(src + 2 * i + 8);
      // [a0 a2 b0 b2 | a4 a6 b4 b6], then the 64-bit pairs put in order.
      const __m256 even = _mm256_shuffle_ps(a, b, 0x88);
      _mm256_storeu_ps(dst + i, _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(even), 0xD8)));
    }
  }
  for (; i < n; ++i) dst[i] = src[ptrdiff_t(i) * stride];
}

// The column-matrix panel of output pixels [p0, p0 + count): row
// (c * KY + ky) * KX + kx holds the input under that tap for every pixel,
// `width` floats per row (count rounded up to whole registers, the rest zero).
void BuildPanel(const float* in, int inC, int inH, int inW, int outW, int kernelY, int kernelX, int strideY,
                int strideX, int p0, int count, int width, float* col) {
  for (int c = 0; c < inC; ++c) {
    for (int ky = 0; ky < kernelY; ++ky) {
      for (int kx = 0; kx < kernelX; ++kx) {
        float* row = col + ptrdiff_t((c * kernelY + ky) * kernelX + kx) * width;
        for (int p = p0; p < p0 + count;) {
          const int oy = p / outW, ox = p % outW;
          const int n = outW - ox < p0 + count - p ? outW - ox : p0 + count - p;
          const int x = ox * strideX + kx;
          GatherRow(in + (ptrdiff_t(c) * inH + oy * strideY + ky) * inW + x, row + (p - p0), n, strideX, inW - x);
          p += n;
        }
        std::memset(row + count, 0, sizeof(float) * (width - count));
      }
    }
  }
}

// Four output channels x NV registers of pixels: the accumulators start from
// the bias, every column-matrix row is folded in, and `rows` channels with
// `valid` pixels are stored.
template <int NV>
void PanelTile(const float* col, ptrdiff_t colRow, int depth, const float* w, const float* bias, int rows,
               float* out, ptrdiff_t outPlane, int valid) {
  __m256 acc[kRows][NV];
#pragma GCC unroll 4
  for (int r = 0; r < kRows; ++r) {
    const __m256 start = bias && r < rows ? _mm256_set1_ps(bias[r]) : V::Zero();
#pragma GCC unroll 3
    for (int v = 0; v < NV; ++v) acc[r][v] = start;
  }
  for (int k = 0; k < depth; ++k, col += colRow, w += kRows) {
    __m256 x[NV];
#pragma GCC unroll 3
    for (int v = 0; v < NV; ++v) x[v] = V::Load(col + 8 * v);
#pragma GCC unroll 4
    for (int r = 0; r < kRows; ++r) {
      const __m256 b = V::Broadcast(w + r);
#pragma GCC unroll 3
      for (int v = 0; v < NV; ++v) acc[r][v] = V::Fma(b, x[v], acc[r][v]);
    }
  }
  for (int r = 0; r < rows; ++r) {
    float* o = out + r * outPlane;
#pragma GCC unroll 3
    for (int v = 0; v < NV; ++v) {
      const int left = valid - 8 * v;
      if (left >= 8) {
        V::Store(o + 8 * v, acc[r][v]);
      } else if (left > 0) {
        V::StoreFirst(o + 8 * v, acc[r][v], left);
      }
    }
  }
}

}  // namespace

void conv_im2col_sgemm_avx(int inC, int inH, int inW, const float* in, int outC, int outH, int outW, float* out,
                           const float* kernel_tm, const float* bias, int kernelY, int kernelX, int strideY,
                           int strideX) {
  TARN_NATIVE_ASSERT(kernelY > 0 && kernelX > 0 && strideY > 0 && strideX > 0);
  TARN_NATIVE_ASSERT((inH - (kernelY - 1) - 1) / strideY + 1 == outH);
  TARN_NATIVE_ASSERT((inW - (kernelX - 1) - 1) / strideX + 1 == outW);
  if (inC <= 0 || outC <= 0 || outH <= 0 || outW <= 0) return;
  const int depth = inC * kernelY * kernelX;
  const int pixels = outH * outW;
  const ptrdiff_t plane = pixels;
  const int panel = PanelPixels(depth);
  // A failed allocation throws std::bad_alloc, as the tensor pools do.
  std::vector<float> scratch(std::size_t(depth) * panel);
  float* col = scratch.data();
  for (int p0 = 0; p0 < pixels; p0 += panel) {
    const int count = pixels - p0 < panel ? pixels - p0 : panel;
    const int width = (count + 7) / 8 * 8;
    BuildPanel(in, inC, inH, inW, outW, kernelY, kernelX, strideY, strideX, p0, count, width, col);
    // 24 pixels at a time across every channel block: the slice of the
    // panel they read stays in the first-level cache meanwhile.
    for (int v0 = 0; v0 < width; v0 += 24) {
      const int nv = width - v0 >= 24 ? 3 : (width - v0) / 8;
      const int valid = count - v0 < 24 ? count - v0 : 24;
      for (int n0 = 0; n0 < outC; n0 += kRows) {
        const int rows = outC - n0 < kRows ? outC - n0 : kRows;
        const float* w = kernel_tm + ptrdiff_t(n0) * depth;
        const float* b = bias ? bias + n0 : nullptr;
        float* o = out + n0 * plane + p0 + v0;
        if (nv == 3) {
          PanelTile<3>(col + v0, width, depth, w, b, rows, o, plane, valid);
        } else if (nv == 2) {
          PanelTile<2>(col + v0, width, depth, w, b, rows, o, plane, valid);
        } else {
          PanelTile<1>(col + v0, width, depth, w, b, rows, o, plane, valid);
        }
      }
    }
  }
}

}  // namespace native

namespace {

// The column-matrix step of a KY x KX, stride S member: padded CHW input,
// uninitialised CHW output, weight re-ordered by the transform.
template <int KY, int KX, int SY, int SX>
void ColumnStep(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight,
                const TensorCPUPtr& bias, const std::shared_ptr<runtime::Context>&) {
  const auto& di = input->shape.dims;
  const auto& d = output->shape.dims;
  native::conv_im2col_sgemm_avx(static_cast<int>(di[0]), static_cast<int>(di[1]), static_cast<int>(di[2]),
                                input->DataAs<float>(), static_cast<int>(d[0]), static_cast<int>(d[1]),
                                static_cast<int>(d[2]), output->DataAs<float>(), weight->DataAs<float>(),
                                bias ? bias->DataAs<float>() : nullptr, KY, KX, SY, SX);
}

}  // namespace

TRN_CONV2D_WRITING_FORWARD(Conv2d_K5x5_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                           (ColumnStep<5, 5, 2, 2>))
TRN_CONV2D_WRITING_FORWARD(Conv2d_K7x7_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                           (ColumnStep<7, 7, 2, 2>))

}  // namespace kernel
}  // namespace tarn
