#include "kernel/cpu/sse/conv2d_winograd/conv2d_winograd.h"

#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

namespace {

using std::ptrdiff_t;
using runtime::TensorShape;

constexpr int kBatch = 8;       // tiles per batch: two vectors of four
constexpr int kBatchCols = 18;  // input columns under a batch: 2 * 8 + 2

// Sizes of one pass.
struct Plan {
  const float* in;
  int channels, ph, pw;  // padded input
  float* out;
  int outChannels, oh, ow;
  int tileRows, batches;  // tile rows, batches per tile row
  const float* u;         // transformed filter [16, ceil(N/4), C, 4]
  int outBlocks;          // ceil(N / 4)
};

Plan MakePlan(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight) {
  Plan p;
  p.in = input->DataAs<float>();
  p.channels = static_cast<int>(input->shape.dims[0]);
  p.ph = static_cast<int>(input->shape.dims[1]);
  p.pw = static_cast<int>(input->shape.dims[2]);
  p.out = output->DataAs<float>();
  p.outChannels = static_cast<int>(output->shape.dims[0]);
  p.oh = static_cast<int>(output->shape.dims[1]);
  p.ow = static_cast<int>(output->shape.dims[2]);
  p.tileRows = (p.oh + 1) / 2;
  p.batches = ((p.ow + 1) / 2 + kBatch - 1) / kBatch;
  p.u = weight->DataAs<float>();
  p.outBlocks = static_cast<int>(weight->shape.dims[1]);
  return p;
}

// Columns 0, 2, 4, 6 (j = 0), 1, 3, 5, 7 (j = 1), 2 .. 8 (j = 2), 3 .. 9
// (j = 3) of a row from r: element j of four adjacent tiles.
inline void TileColumns(const float* r, __m128 d[4]) {
  const __m128 a = _mm_loadu_ps(r), b = _mm_loadu_ps(r + 4);
  const __m128 c = _mm_loadu_ps(r + 2), e = _mm_loadu_ps(r + 6);
  d[0] = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
  d[1] = _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
  d[2] = _mm_shuffle_ps(c, e, _MM_SHUFFLE(2, 0, 2, 0));
  d[3] = _mm_shuffle_ps(c, e, _MM_SHUFFLE(3, 1, 3, 1));
}

// B^T x over four vectors: x0 - x2, x1 + x2, x2 - x1, x1 - x3.
inline void InputTransform4(__m128 x0, __m128 x1, __m128 x2, __m128 x3, __m128 y[4]) {
  y[0] = _mm_sub_ps(x0, x2);
  y[1] = _mm_add_ps(x1, x2);
  y[2] = _mm_sub_ps(x2, x1);
  y[3] = _mm_sub_ps(x1, x3);
}

// V of the eight tiles of batch (ty, b) for every input channel:
// v[xi * xiStride + c * cStride + t], t = 0..7 the tile of the batch.
void TransformBatch(const Plan& p, int ty, int b, float* v, ptrdiff_t xiStride, ptrdiff_t cStride) {
  const int y0 = 2 * ty, x0 = 2 * kBatch * b;
  // A batch wholly inside the input is read in place; one that reaches past
  // its bottom or right edge is first copied into a zero-padded patch.
  const bool inside = y0 + 4 <= p.ph && x0 + kBatchCols <= p.pw;
  const int rows = std::min(4, p.ph - y0), cols = std::min(kBatchCols, p.pw - x0);
  float patch[4][kBatchCols + 2];
  const ptrdiff_t plane = ptrdiff_t(p.ph) * p.pw;
  for (int c = 0; c < p.channels; ++c) {
    const float* src = p.in + c * plane + ptrdiff_t(y0) * p.pw + x0;
    ptrdiff_t row = p.pw;
    if (!inside) {
      std::memset(patch, 0, sizeof patch);
      for (int r = 0; r < rows; ++r) std::memcpy(patch[r], src + r * p.pw, sizeof(float) * cols);
      src = patch[0];
      row = kBatchCols + 2;
    }
    for (int half = 0; half < 2; ++half) {
      __m128 d[4][4], t[4][4];
      for (int r = 0; r < 4; ++r) TileColumns(src + r * row + 8 * half, d[r]);
      // B^T d (down the rows), then (B^T d) B (along each row).
      for (int j = 0; j < 4; ++j) {
        __m128 y[4];
        InputTransform4(d[0][j], d[1][j], d[2][j], d[3][j], y);
        for (int i = 0; i < 4; ++i) t[i][j] = y[i];
      }
      for (int i = 0; i < 4; ++i) {
        __m128 y[4];
        InputTransform4(t[i][0], t[i][1], t[i][2], t[i][3], y);
        for (int j = 0; j < 4; ++j) _mm_storeu_ps(v + (i * 4 + j) * xiStride + c * cStride + 4 * half, y[j]);
      }
    }
  }
}

// m[xi * xiStride + o * oStride + t] = sum over c of U[xi][o][c] v[xi][c][t]
// for every xi, every output channel (in blocks of four) and the eight tiles
// from column t0.
void ProductBatch(const Plan& p, const float* v, ptrdiff_t vXi, ptrdiff_t vC, float* m, ptrdiff_t mXi, ptrdiff_t mO,
                  int xi, ptrdiff_t t0) {
  const float* vx = v + xi * vXi + t0;
  for (int ob = 0; ob < p.outBlocks; ++ob) {
    const float* u = p.u + (ptrdiff_t(xi) * p.outBlocks + ob) * p.channels * 4;
    __m128 acc[4][2];
    for (int o = 0; o < 4; ++o) acc[o][0] = acc[o][1] = _mm_setzero_ps();
    for (int c = 0; c < p.channels; ++c, u += 4) {
      const __m128 x0 = _mm_loadu_ps(vx + c * vC), x1 = _mm_loadu_ps(vx + c * vC + 4);
      for (int o = 0; o < 4; ++o) {
        const __m128 w = _mm_set1_ps(u[o]);
        acc[o][0] = _mm_fmadd_ps(w, x0, acc[o][0]);
        acc[o][1] = _mm_fmadd_ps(w, x1, acc[o][1]);
      }
    }
    float* mo = m + xi * mXi + ptrdiff_t(ob) * 4 * mO + t0;
    for (int o = 0; o < 4; ++o) {
      _mm_storeu_ps(mo + o * mO, acc[o][0]);
      _mm_storeu_ps(mo + o * mO + 4, acc[o][1]);
    }
  }
}

// A^T x over four vectors: x0 + x1 + x2, x1 - x2 - x3.
inline void OutputTransform4(__m128 x0, __m128 x1, __m128 x2, __m128 x3, __m128* y0, __m128* y1) {
  *y0 = _mm_add_ps(_mm_add_ps(x0, x1), x2);
  *y1 = _mm_sub_ps(_mm_sub_ps(x1, x2), x3);
}

// Adds A^T M A of batch (ty, b) to the output: m[xi * mXi + o * mO + t].
void InverseBatch(const Plan& p, int ty, int b, const float* m, ptrdiff_t mXi, ptrdiff_t mO) {
  const int y0 = 2 * ty, x0 = 2 * kBatch * b;
  const int rows = std::min(2, p.oh - y0), cols = std::min(2 * kBatch, p.ow - x0);
  const ptrdiff_t plane = ptrdiff_t(p.oh) * p.ow;
  for (int o = 0; o < p.outChannels; ++o) {
    float* dst = p.out + o * plane + ptrdiff_t(y0) * p.ow + x0;
    alignas(16) float y[2][2 * kBatch];
    for (int half = 0; half < 2; ++half) {
      __m128 s[2][4];
      for (int j = 0; j < 4; ++j) {
        const float* mj = m + j * mXi + o * mO + 4 * half;
        OutputTransform4(_mm_loadu_ps(mj), _mm_loadu_ps(mj + 4 * mXi), _mm_loadu_ps(mj + 8 * mXi),
                         _mm_loadu_ps(mj + 12 * mXi), &s[0][j], &s[1][j]);
      }
      for (int i = 0; i < 2; ++i) {
        __m128 a, c;
        OutputTransform4(s[i][0], s[i][1], s[i][2], s[i][3], &a, &c);
        // Tile t gives output columns 2t (a) and 2t + 1 (c).
        _mm_store_ps(y[i] + 8 * half, _mm_unpacklo_ps(a, c));
        _mm_store_ps(y[i] + 8 * half + 4, _mm_unpackhi_ps(a, c));
      }
    }
    for (int i = 0; i < rows; ++i) {
      float* d = dst + i * p.ow;
      int x = 0;
      for (; x + 4 <= cols; x += 4) _mm_storeu_ps(d + x, _mm_add_ps(_mm_loadu_ps(d + x), _mm_load_ps(y[i] + x)));
      for (; x < cols; ++x) d[x] += y[i][x];
    }
  }
}

// A float scratch tensor of `count` elements from the device of `like`.
TensorCPUPtr Scratch(const TensorCPUPtr& like, std::size_t count) {
  auto device = std::dynamic_pointer_cast<runtime::DeviceCPU>(like->device);
  utility::Assert(device != nullptr, "the output of a Winograd step must come from a CPU device");
  utility::Assert(count <= 0xffffffffu, "the Winograd scratch of %zu floats is too large", count);
  return device->CreateTensor(
      runtime::MakeShape({static_cast<unsigned>(count)}, TensorShape::FLOAT32, TensorShape::FLEXIABLE));
}

}  // namespace

void Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd23_M1_Convolution(const TensorCPUPtr& input,
                                                                      const TensorCPUPtr& output,
                                                                      const TensorCPUPtr& weight) {
  const Plan p = MakePlan(input, output, weight);
  // One batch: v [16][C][8], m [16][4 ceil(N/4)][8].
  const ptrdiff_t vXi = ptrdiff_t(p.channels) * kBatch, mXi = ptrdiff_t(p.outBlocks) * 4 * kBatch;
  auto scratch = Scratch(output, std::size_t(16) * (vXi + mXi));
  float* v = scratch->DataAs<float>();
  float* m = v + 16 * vXi;
  for (int ty = 0; ty < p.tileRows; ++ty) {
    for (int b = 0; b < p.batches; ++b) {
      TransformBatch(p, ty, b, v, vXi, kBatch);
      for (int xi = 0; xi < 16; ++xi) ProductBatch(p, v, vXi, kBatch, m, mXi, kBatch, xi, 0);
      InverseBatch(p, ty, b, m, mXi, kBatch);
    }
  }
}

void Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd23_M2_Convolution(const TensorCPUPtr& input,
                                                                      const TensorCPUPtr& output,
                                                                      const TensorCPUPtr& weight) {
  const Plan p = MakePlan(input, output, weight);
  // Every batch: v [16][C][T], m [16][4 ceil(N/4)][T], batch (ty, b) in
  // columns (ty * batches + b) * 8 .. + 7.
  const ptrdiff_t tiles = ptrdiff_t(p.tileRows) * p.batches * kBatch;
  const ptrdiff_t vXi = p.channels * tiles, mXi = ptrdiff_t(p.outBlocks) * 4 * tiles;
  auto scratch = Scratch(output, std::size_t(16) * (vXi + mXi));
  float* v = scratch->DataAs<float>();
  float* m = v + 16 * vXi;
  for (int ty = 0; ty < p.tileRows; ++ty) {
    for (int b = 0; b < p.batches; ++b) TransformBatch(p, ty, b, v + (ty * p.batches + b) * kBatch, vXi, tiles);
  }
  for (int xi = 0; xi < 16; ++xi) {
    for (ptrdiff_t t = 0; t < tiles; t += kBatch) ProductBatch(p, v, vXi, tiles, m, mXi, tiles, xi, t);
  }
  for (int ty = 0; ty < p.tileRows; ++ty) {
    for (int b = 0; b < p.batches; ++b) InverseBatch(p, ty, b, m + (ty * p.batches + b) * kBatch, mXi, tiles);
  }
}

TRN_DIRECT_CONV_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                        FillBias_MainMemory_CHW_Float_Fallback_M1,
                        Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd23_M1_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                        FillBias_MainMemory_CHW_Float_Fallback_M1,
                        Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd23_M2_Convolution)

}  // namespace kernel
}  // namespace tarn
