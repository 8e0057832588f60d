// SSE fixed-size pooling. On CHW the four lanes are four neighbouring outputs
// of a row; on C4HW4 they are the four channels of a pixel. Taps are folded in
// the general kernels' order (window row outer, column inner) with the same
// operations, so the results equal theirs bit for bit.
#include "kernel/cpu/sse/pooling/pooling.h"

#include <immintrin.h>

#include "tarn/kernel/pooling.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

constexpr float kLowest = -3.4028235e38f;

// Loads tap kx of the window row for outputs ox..ox+3.
template <int K, int S>
inline void LoadTaps(const float* row, std::uint32_t ox, __m128* taps) {
  if constexpr (S == 1) {
    for (int kx = 0; kx < K; ++kx) taps[kx] = _mm_loadu_ps(row + ox + kx);
  } else if constexpr (S == 2) {
    for (int kx = 0; kx < K; ++kx) {
      const __m128 a = _mm_loadu_ps(row + 2 * ox + kx), b = _mm_loadu_ps(row + 2 * ox + kx + 4);
      taps[kx] = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));  // every second float
    }
  } else {
    static_assert(S == 4 && K == 4, "stride 4 serves the 4x4 window");
    __m128 r0 = _mm_loadu_ps(row + 4 * ox), r1 = _mm_loadu_ps(row + 4 * ox + 4);
    __m128 r2 = _mm_loadu_ps(row + 4 * ox + 8), r3 = _mm_loadu_ps(row + 4 * ox + 12);
    _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
    taps[0] = r0;
    taps[1] = r1;
    taps[2] = r2;
    taps[3] = r3;
  }
}

// One past the last float LoadTaps reads for outputs ox..ox+3.
template <int K, int S>
inline std::uint64_t ReadEnd(std::uint32_t ox) {
  if constexpr (S == 1) return std::uint64_t(ox) + K + 3;
  if constexpr (S == 2) return 2 * std::uint64_t(ox) + K + 7;
  return 4 * std::uint64_t(ox) + 16;
}

template <int K, bool kMax>
inline float Finish(float acc) {
  if constexpr (kMax) return acc;
  if constexpr (K == 2) return acc * 0.25f;
  return acc / static_cast<float>(K * K);
}

template <int K, bool kMax>
inline __m128 Finish4(__m128 acc) {
  if constexpr (kMax) return acc;
  if constexpr (K == 2) return _mm_mul_ps(acc, _mm_set1_ps(0.25f));
  return _mm_div_ps(acc, _mm_set1_ps(static_cast<float>(K * K)));
}

template <int K, int S, bool kMax>
void PoolCHW(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  const std::uint32_t in_plane = PoolingPlaneFloats(input->shape);
  const std::uint32_t out_plane = PoolingPlaneFloats(output->shape);
  const auto& id = input->shape.dims;
  const auto& od = output->shape.dims;
  TARN_NATIVE_ASSERT(id.size() == 3 && od.size() == 3 && id[0] == od[0]);
  TARN_NATIVE_ASSERT(id[1] >= K && id[2] >= K && (id[1] - K) / S + 1 == od[1] && (id[2] - K) / S + 1 == od[2]);
  const std::uint32_t channels = id[0], w = id[2], oh = od[1], ow = od[2];
  const float* in = input->DataAs<float>();
  float* out = output->DataAs<float>();
  for (std::uint32_t c = 0; c < channels; ++c) {
    const float* plane = in + static_cast<size_t>(c) * in_plane;
    float* oplane = out + static_cast<size_t>(c) * out_plane;
    for (std::uint32_t oy = 0; oy < oh; ++oy) {
      const float* rows[K];
      for (int ky = 0; ky < K; ++ky) rows[ky] = plane + static_cast<size_t>(oy * S + ky) * w;
      float* orow = oplane + static_cast<size_t>(oy) * ow;
      std::uint32_t ox = 0;
      for (; ox + 4 <= ow && ReadEnd<K, S>(ox) <= w; ox += 4) {
        __m128 acc = kMax ? _mm_set1_ps(kLowest) : _mm_setzero_ps();
        for (int ky = 0; ky < K; ++ky) {
          __m128 taps[K];
          LoadTaps<K, S>(rows[ky], ox, taps);
          for (int kx = 0; kx < K; ++kx) acc = kMax ? _mm_max_ps(taps[kx], acc) : _mm_add_ps(acc, taps[kx]);
        }
        _mm_storeu_ps(orow + ox, Finish4<K, kMax>(acc));
      }
      for (; ox < ow; ++ox) {
        float acc = kMax ? kLowest : 0.0f;
        for (int ky = 0; ky < K; ++ky) {
          for (int kx = 0; kx < K; ++kx) {
            const float v = rows[ky][ox * S + kx];
            acc = kMax ? (v > acc ? v : acc) : acc + v;
          }
        }
        orow[ox] = Finish<K, kMax>(acc);
      }
    }
  }
}

// C4HW4: one 4-channel vector per pixel.
template <int K, int S, bool kMax>
void PoolC4HW4(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  const std::uint32_t in_plane = PoolingPlaneFloats(input->shape);
  const std::uint32_t out_plane = PoolingPlaneFloats(output->shape);
  const auto& id = input->shape.dims;
  const auto& od = output->shape.dims;
  TARN_NATIVE_ASSERT(id.size() == 4 && od.size() == 4 && id[0] == od[0] && id[3] == 4 && od[3] == 4);
  TARN_NATIVE_ASSERT(id[1] >= K && id[2] >= K && (id[1] - K) / S + 1 == od[1] && (id[2] - K) / S + 1 == od[2]);
  const std::uint32_t blocks = id[0], w = id[2], oh = od[1], ow = od[2];
  for (std::uint32_t b = 0; b < blocks; ++b) {
    const float* plane = input->DataAs<float>() + static_cast<size_t>(b) * in_plane;
    float* o = output->DataAs<float>() + static_cast<size_t>(b) * out_plane;
    for (std::uint32_t oy = 0; oy < oh; ++oy) {
      for (std::uint32_t ox = 0; ox < ow; ++ox) {
        __m128 acc = kMax ? _mm_set1_ps(kLowest) : _mm_setzero_ps();
        for (int ky = 0; ky < K; ++ky) {
          const float* row = plane + (static_cast<size_t>(oy * S + ky) * w + ox * S) * 4;
          for (int kx = 0; kx < K; ++kx) {
            const __m128 v = _mm_loadu_ps(row + 4 * kx);
            acc = kMax ? _mm_max_ps(v, acc) : _mm_add_ps(acc, v);
          }
        }
        _mm_storeu_ps(o, Finish4<K, kMax>(acc));
        o += 4;
      }
    }
  }
}

}  // namespace

void Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1_Pooling2d_Max(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolCHW<2, 2, true>(input, output);
}
void Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1_Pooling2d_Max(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolCHW<3, 2, true>(input, output);
}
void Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolCHW<2, 2, false>(input, output);
}
void Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolCHW<3, 2, false>(input, output);
}
void Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolCHW<7, 1, false>(input, output);
}
void Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1_Pooling2d_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolCHW<4, 4, false>(input, output);
}
void Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1_Pooling2D_Avg(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  PoolC4HW4<4, 4, false>(input, output);
}

}  // namespace functional

#define TRN_FIXED_POOLING_FORWARD(cls, fn)                                                                             \
  bool cls::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,                                       \
                    std::vector<std::shared_ptr<runtime::Tensor>>& outputs, std::shared_ptr<runtime::Context> context) \
      const {                                                                                                          \
    return ForwardPool(functional::fn, inputs, outputs, context);                                                      \
  }

TRN_FIXED_POOLING_FORWARD(Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1,
                          Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1_Pooling2d_Max)
TRN_FIXED_POOLING_FORWARD(Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1,
                          Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1_Pooling2d_Max)
TRN_FIXED_POOLING_FORWARD(Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1,
                          Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_FORWARD(Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1,
                          Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_FORWARD(Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1,
                          Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_FORWARD(Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1,
                          Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1_Pooling2d_Avg)
TRN_FIXED_POOLING_FORWARD(Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1,
                          Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1_Pooling2D_Avg)

}  // namespace kernel
}  // namespace tarn
