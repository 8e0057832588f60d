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
constexpr int kBatchCols = 18;  // input columns under a batch of one tile row: 2 * 8 + 2
constexpr int kChunk = 64;      // tiles per block of the matrix products

// Sizes of one pass. Tiles are numbered row by row over the whole map, so a
// batch may span tile rows (small maps fill every lane).
struct Plan {
  const float* in;
  int channels, ph, pw;  // padded input
  float* out;
  int outChannels, oh, ow;
  int tilesW, tiles, batches;
  const float* u;  // transformed filter [16, ceil(N/4), C, 4]
  int outBlocks;   // ceil(N / 4)
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
  p.tilesW = (p.ow + 1) / 2;
  p.tiles = (p.oh + 1) / 2 * p.tilesW;
  p.batches = (p.tiles + kBatch - 1) / kBatch;
  p.u = weight->DataAs<float>();
  p.outBlocks = static_cast<int>(weight->shape.dims[1]);
  return p;
}

// Whether the eight tiles of batch k lie in one tile row, with every input
// value they read (`inputs`) or every output value they write inside the map.
bool RowBatch(const Plan& p, int k, bool inputs) {
  const int t0 = k * kBatch, tx = t0 % p.tilesW, y0 = 2 * (t0 / p.tilesW);
  if (tx + kBatch > p.tilesW) return false;
  return inputs ? y0 + 4 <= p.ph && 2 * tx + kBatchCols <= p.pw : y0 + 2 <= p.oh && 2 * tx + 2 * kBatch <= p.ow;
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

// B^T d B of four tiles (one per lane of d[row][column]) into v[xi * xiStride].
inline void TransformLanes(__m128 d[4][4], float* v, ptrdiff_t xiStride) {
  __m128 t[4][4];
  for (int j = 0; j < 4; ++j) {
    __m128 y[4];
    InputTransform4(d[0][j], d[1][j], d[2][j], d[3][j], y);
    for (int i = 0; i < 4; ++i) t[i][j] = y[i];
  }
  for (int i = 0; i < 4; ++i) {
    __m128 y[4];
    InputTransform4(t[i][0], t[i][1], t[i][2], t[i][3], y);
    for (int j = 0; j < 4; ++j) _mm_storeu_ps(v + (i * 4 + j) * xiStride, y[j]);
  }
}

// V of the eight tiles of batch k for every input channel:
// v[xi * xiStride + c * cStride + lane].
void TransformBatch(const Plan& p, int k, float* v, ptrdiff_t xiStride, ptrdiff_t cStride) {
  const ptrdiff_t plane = ptrdiff_t(p.ph) * p.pw;
  const int t0 = k * kBatch;
  if (RowBatch(p, k, true)) {
    // One tile row inside the map: read in place, adjacent tiles share columns.
    const float* base = p.in + ptrdiff_t(2 * (t0 / p.tilesW)) * p.pw + 2 * (t0 % p.tilesW);
    for (int c = 0; c < p.channels; ++c) {
      for (int half = 0; half < 2; ++half) {
        __m128 d[4][4];
        for (int r = 0; r < 4; ++r) TileColumns(base + c * plane + r * p.pw + 8 * half, d[r]);
        TransformLanes(d, v + c * cStride + 4 * half, xiStride);
      }
    }
    return;
  }
  // Tiles from several rows, or reaching past the map (zeros there; lanes
  // beyond the last tile are all zero): each lane's window gathered.
  for (int c = 0; c < p.channels; ++c) {
    alignas(16) float w[4][4][kBatch] = {};
    for (int lane = 0; lane < kBatch && t0 + lane < p.tiles; ++lane) {
      const int y0 = 2 * ((t0 + lane) / p.tilesW), x0 = 2 * ((t0 + lane) % p.tilesW);
      for (int r = 0; r < 4 && y0 + r < p.ph; ++r) {
        const float* row = p.in + c * plane + ptrdiff_t(y0 + r) * p.pw;
        for (int j = 0; j < 4 && x0 + j < p.pw; ++j) w[r][j][lane] = row[x0 + j];
      }
    }
    for (int half = 0; half < 2; ++half) {
      __m128 d[4][4];
      for (int r = 0; r < 4; ++r)
        for (int j = 0; j < 4; ++j) d[r][j] = _mm_load_ps(&w[r][j][4 * half]);
      TransformLanes(d, v + c * cStride + 4 * half, xiStride);
    }
  }
}

// m[xi * mXi + o * mO + t] = sum over c of U[xi][o][c] v[xi * vXi + c * vC + t]
// for every output channel (blocks of four) and tiles t0 .. t1 - 1 (whole
// batches). Blocked for the caches: per chunk of 64 tiles (their V, at most
// 256 C bytes, in L2) every block of four outputs (its U, 16 C bytes, in L1)
// runs over the chunk eight tiles at a time, four outputs by eight tiles in
// registers.
void Product(const Plan& p, const float* v, ptrdiff_t vXi, ptrdiff_t vC, float* m, ptrdiff_t mXi, ptrdiff_t mO,
             int xi, ptrdiff_t t0, ptrdiff_t t1) {
  const float* vx = v + xi * vXi;
  for (ptrdiff_t chunk = t0; chunk < t1; chunk += kChunk) {
    const ptrdiff_t end = chunk + kChunk < t1 ? chunk + kChunk : t1;
    for (int ob = 0; ob < p.outBlocks; ++ob) {
      const float* u0 = p.u + (ptrdiff_t(xi) * p.outBlocks + ob) * p.channels * 4;
      for (ptrdiff_t t = chunk; t < end; t += kBatch) {
        const float* u = u0;
        const float* vt = vx + t;
        __m128 acc[4][2];
        for (int o = 0; o < 4; ++o) acc[o][0] = acc[o][1] = _mm_setzero_ps();
        for (int c = 0; c < p.channels; ++c, u += 4, vt += vC) {
          const __m128 x0 = _mm_loadu_ps(vt), x1 = _mm_loadu_ps(vt + 4);
          for (int o = 0; o < 4; ++o) {
            const __m128 w = _mm_set1_ps(u[o]);
            acc[o][0] = _mm_fmadd_ps(w, x0, acc[o][0]);
            acc[o][1] = _mm_fmadd_ps(w, x1, acc[o][1]);
          }
        }
        float* mo = m + xi * mXi + ptrdiff_t(ob) * 4 * mO + t;
        for (int o = 0; o < 4; ++o) {
          _mm_storeu_ps(mo + o * mO, acc[o][0]);
          _mm_storeu_ps(mo + o * mO + 4, acc[o][1]);
        }
      }
    }
  }
}

// A^T x over four vectors: x0 + x1 + x2, x1 - x2 - x3.
inline void OutputTransform4(__m128 x0, __m128 x1, __m128 x2, __m128 x3, __m128* y0, __m128* y1) {
  *y0 = _mm_add_ps(_mm_add_ps(x0, x1), x2);
  *y1 = _mm_sub_ps(_mm_sub_ps(x1, x2), x3);
}

// Adds A^T M A of batch k to the output: m[xi * mXi + o * mO + lane].
void InverseBatch(const Plan& p, int k, const float* m, ptrdiff_t mXi, ptrdiff_t mO) {
  const int t0 = k * kBatch;
  const bool row = RowBatch(p, k, false);
  const ptrdiff_t plane = ptrdiff_t(p.oh) * p.ow;
  for (int o = 0; o < p.outChannels; ++o) {
    // y[i][j][lane]: output (2 ty + i, 2 tx + j) of the lane's tile.
    alignas(16) float y[2][2][kBatch];
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
        _mm_store_ps(&y[i][0][4 * half], a);
        _mm_store_ps(&y[i][1][4 * half], c);
      }
    }
    float* dst = p.out + o * plane;
    if (row) {
      // Tile t gives columns 2t and 2t + 1 of both rows: interleave.
      float* d = dst + ptrdiff_t(2 * (t0 / p.tilesW)) * p.ow + 2 * (t0 % p.tilesW);
      for (int i = 0; i < 2; ++i, d += p.ow) {
        for (int half = 0; half < 2; ++half) {
          const __m128 a = _mm_load_ps(&y[i][0][4 * half]), c = _mm_load_ps(&y[i][1][4 * half]);
          float* q = d + 8 * half;
          _mm_storeu_ps(q, _mm_add_ps(_mm_loadu_ps(q), _mm_unpacklo_ps(a, c)));
          _mm_storeu_ps(q + 4, _mm_add_ps(_mm_loadu_ps(q + 4), _mm_unpackhi_ps(a, c)));
        }
      }
      continue;
    }
    for (int lane = 0; lane < kBatch && t0 + lane < p.tiles; ++lane) {
      const int y0 = 2 * ((t0 + lane) / p.tilesW), x0 = 2 * ((t0 + lane) % p.tilesW);
      for (int i = 0; i < 2 && y0 + i < p.oh; ++i)
        for (int j = 0; j < 2 && x0 + j < p.ow; ++j) dst[ptrdiff_t(y0 + i) * p.ow + x0 + j] += y[i][j][lane];
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
  for (int k = 0; k < p.batches; ++k) {
    TransformBatch(p, k, v, vXi, kBatch);
    for (int xi = 0; xi < 16; ++xi) Product(p, v, vXi, kBatch, m, mXi, kBatch, xi, 0, kBatch);
    InverseBatch(p, k, m, mXi, kBatch);
  }
}

void Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd23_M2_Convolution(const TensorCPUPtr& input,
                                                                      const TensorCPUPtr& output,
                                                                      const TensorCPUPtr& weight) {
  const Plan p = MakePlan(input, output, weight);
  // Every batch: v [16][C][T], m [16][4 ceil(N/4)][T], batch k in columns
  // 8 k .. 8 k + 7.
  const ptrdiff_t tiles = ptrdiff_t(p.batches) * kBatch;
  const ptrdiff_t vXi = p.channels * tiles, mXi = ptrdiff_t(p.outBlocks) * 4 * tiles;
  auto scratch = Scratch(output, std::size_t(16) * (vXi + mXi));
  float* v = scratch->DataAs<float>();
  float* m = v + 16 * vXi;
  for (int k = 0; k < p.batches; ++k) TransformBatch(p, k, v + k * kBatch, vXi, tiles);
  for (int xi = 0; xi < 16; ++xi) Product(p, v, vXi, tiles, m, mXi, tiles, xi, 0, tiles);
  for (int k = 0; k < p.batches; ++k) InverseBatch(p, k, m + k * kBatch, mXi, tiles);
}

TRN_DIRECT_CONV_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                        FillBias_MainMemory_CHW_Float_Fallback_M1,
                        Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd23_M1_Convolution)
TRN_DIRECT_CONV_FORWARD(Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2, Padding_HW_MainMemory_CHW_Float_Fallback_M1,
                        FillBias_MainMemory_CHW_Float_Fallback_M1,
                        Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd23_M2_Convolution)

}  // namespace kernel
}  // namespace tarn
