// SSE fixed-size pooling. On CHW the four lanes are four neighbouring outputs
// of a row; on C4HW4 they are the four channels of a pixel.
#include <immintrin.h>

#include "kernel/cpu/fallback/pooling/pooling_steps.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

struct Sse {
  using Reg = __m128;
  static constexpr std::uint32_t kLanes = 4;
  static Reg Load(const float* p) { return _mm_loadu_ps(p); }
  static void Store(float* p, Reg v) { _mm_storeu_ps(p, v); }
  static Reg Set1(float f) { return _mm_set1_ps(f); }
  static Reg Zero() { return _mm_setzero_ps(); }
  static Reg Add(Reg a, Reg b) { return _mm_add_ps(a, b); }
  static Reg Max(Reg a, Reg b) { return _mm_max_ps(a, b); }
  static Reg Mul(Reg a, Reg b) { return _mm_mul_ps(a, b); }
  static Reg Div(Reg a, Reg b) { return _mm_div_ps(a, b); }
};

// One float with the rules of the vector instructions, for the row tails.
struct Scalar {
  using Reg = float;
  static Reg Set1(float f) { return f; }
  static Reg Zero() { return 0.0f; }
  static Reg Add(Reg a, Reg b) { return a + b; }
  static Reg Max(Reg a, Reg b) { return a > b ? a : b; }
  static Reg Mul(Reg a, Reg b) { return a * b; }
  static Reg Div(Reg a, Reg b) { return a / b; }
};

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

// CHW: the four lanes are four neighbouring outputs of a row.
template <int K, int S, bool kMax>
void PoolCHW(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  const FixedPoolingGeometry g = CheckFixedPooling(input, output, 1, K, S);
  const float* in = input->DataAs<float>();
  float* out = output->DataAs<float>();
  for (std::uint32_t c = 0; c < g.planes; ++c) {
    const float* plane = in + static_cast<size_t>(c) * g.in_plane;
    float* oplane = out + static_cast<size_t>(c) * g.out_plane;
    for (std::uint32_t oy = 0; oy < g.oh; ++oy) {
      const float* rows[K];
      for (int ky = 0; ky < K; ++ky) rows[ky] = plane + static_cast<size_t>(oy * S + ky) * g.w;
      float* orow = oplane + static_cast<size_t>(oy) * g.ow;
      std::uint32_t ox = 0;
      for (; ox + 4 <= g.ow && ReadEnd<K, S>(ox) <= g.w; ox += 4) {
        __m128 acc = kMax ? Sse::Set1(kMaxPoolingFill) : Sse::Zero();
        for (int ky = 0; ky < K; ++ky) {
          __m128 taps[K];
          LoadTaps<K, S>(rows[ky], ox, taps);
          for (int kx = 0; kx < K; ++kx) acc = FoldTap<Sse, kMax>(acc, taps[kx]);
        }
        _mm_storeu_ps(orow + ox, FinishWindow<Sse, K, kMax>(acc));
      }
      for (; ox < g.ow; ++ox) {
        float acc = kMax ? kMaxPoolingFill : 0.0f;
        for (int ky = 0; ky < K; ++ky) {
          for (int kx = 0; kx < K; ++kx) acc = FoldTap<Scalar, kMax>(acc, rows[ky][ox * S + kx]);
        }
        orow[ox] = FinishWindow<Scalar, K, kMax>(acc);
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
  PoolBlocked<Sse, 4, 4, false>(input, output);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
