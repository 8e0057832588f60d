// AVX layout transforms between CHW and C8HW8. A 256-bit register holds either
// one pixel's 8 channels or, as two 128-bit halves, 4 pixels of channels j and
// j + 4; a 4x4 transpose inside each half converts one into the other.
#include "kernel/cpu/fallback/layout_transform/layout_transform.h"

#include <immintrin.h>

namespace tarn {
namespace kernel {
namespace functional {

namespace {

// 4x4 transpose within each 128-bit half.
inline void Transpose4x4Halves(__m256& r0, __m256& r1, __m256& r2, __m256& r3) {
  const __m256 t0 = _mm256_unpacklo_ps(r0, r1), t1 = _mm256_unpackhi_ps(r0, r1);
  const __m256 t2 = _mm256_unpacklo_ps(r2, r3), t3 = _mm256_unpackhi_ps(r2, r3);
  r0 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(1, 0, 1, 0));
  r1 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(3, 2, 3, 2));
  r2 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(1, 0, 1, 0));
  r3 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(3, 2, 3, 2));
}

}  // namespace

void LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  CHWToBlocked(input, output, 8, [](float* const* pl, float* d, std::uint32_t pixels) {
    std::uint32_t p = 0;
    for (; p + 4 <= pixels; p += 4, d += 32) {
      // Half-pairs (channel j | channel j + 4) of 4 pixels become pixel vectors.
      __m256 r0 = _mm256_set_m128(_mm_loadu_ps(pl[4] + p), _mm_loadu_ps(pl[0] + p));
      __m256 r1 = _mm256_set_m128(_mm_loadu_ps(pl[5] + p), _mm_loadu_ps(pl[1] + p));
      __m256 r2 = _mm256_set_m128(_mm_loadu_ps(pl[6] + p), _mm_loadu_ps(pl[2] + p));
      __m256 r3 = _mm256_set_m128(_mm_loadu_ps(pl[7] + p), _mm_loadu_ps(pl[3] + p));
      Transpose4x4Halves(r0, r1, r2, r3);
      _mm256_storeu_ps(d, r0);
      _mm256_storeu_ps(d + 8, r1);
      _mm256_storeu_ps(d + 16, r2);
      _mm256_storeu_ps(d + 24, r3);
    }
    return p;
  });
}

void LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  BlockedToCHW(input, output, 8, [](float* const* q, const float* s, std::uint32_t pixels) {
    std::uint32_t p = 0;
    for (; p + 4 <= pixels; p += 4, s += 32) {
      __m256 r0 = _mm256_loadu_ps(s), r1 = _mm256_loadu_ps(s + 8);
      __m256 r2 = _mm256_loadu_ps(s + 16), r3 = _mm256_loadu_ps(s + 24);
      Transpose4x4Halves(r0, r1, r2, r3);
      _mm_storeu_ps(q[0] + p, _mm256_castps256_ps128(r0));
      _mm_storeu_ps(q[4] + p, _mm256_extractf128_ps(r0, 1));
      _mm_storeu_ps(q[1] + p, _mm256_castps256_ps128(r1));
      _mm_storeu_ps(q[5] + p, _mm256_extractf128_ps(r1, 1));
      _mm_storeu_ps(q[2] + p, _mm256_castps256_ps128(r2));
      _mm_storeu_ps(q[6] + p, _mm256_extractf128_ps(r2, 1));
      _mm_storeu_ps(q[3] + p, _mm256_castps256_ps128(r3));
      _mm_storeu_ps(q[7] + p, _mm256_extractf128_ps(r3, 1));
    }
    return p;
  });
}

void LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  BlockedToCHW(input, output, 8, [](float* const* q, const float* s, std::uint32_t pixels) {
    std::uint32_t p = 0;
    for (; p + 8 <= pixels; p += 8, s += 64) {
      // Pixels 0-3 and 4-7 each give (channel j | j + 4) halves; pairing the
      // low (high) halves of both yields channel j (j + 4) over 8 pixels.
      __m256 a0 = _mm256_loadu_ps(s), a1 = _mm256_loadu_ps(s + 8);
      __m256 a2 = _mm256_loadu_ps(s + 16), a3 = _mm256_loadu_ps(s + 24);
      __m256 b0 = _mm256_loadu_ps(s + 32), b1 = _mm256_loadu_ps(s + 40);
      __m256 b2 = _mm256_loadu_ps(s + 48), b3 = _mm256_loadu_ps(s + 56);
      Transpose4x4Halves(a0, a1, a2, a3);
      Transpose4x4Halves(b0, b1, b2, b3);
      _mm256_storeu_ps(q[0] + p, _mm256_permute2f128_ps(a0, b0, 0x20));
      _mm256_storeu_ps(q[4] + p, _mm256_permute2f128_ps(a0, b0, 0x31));
      _mm256_storeu_ps(q[1] + p, _mm256_permute2f128_ps(a1, b1, 0x20));
      _mm256_storeu_ps(q[5] + p, _mm256_permute2f128_ps(a1, b1, 0x31));
      _mm256_storeu_ps(q[2] + p, _mm256_permute2f128_ps(a2, b2, 0x20));
      _mm256_storeu_ps(q[6] + p, _mm256_permute2f128_ps(a2, b2, 0x31));
      _mm256_storeu_ps(q[3] + p, _mm256_permute2f128_ps(a3, b3, 0x20));
      _mm256_storeu_ps(q[7] + p, _mm256_permute2f128_ps(a3, b3, 0x31));
    }
    return p;
  });
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
