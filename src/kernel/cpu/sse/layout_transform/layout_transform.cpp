// SSE layout transforms. Only moves, shuffles and unpacks touch the data, so
// every value, NaN payloads included, arrives bit for bit.
#include "kernel/cpu/fallback/layout_transform/layout_transform.h"

#include <immintrin.h>

namespace tarn {
namespace kernel {
namespace functional {

namespace {

// The four pixel vectors [c0, c1, c2, c3] of pixels p..p+3 from four plane
// vectors: interleave planes 0/1 and 2/3, then join the halves.
inline void Transpose4(__m128& r0, __m128& r1, __m128& r2, __m128& r3) {
  const __m128 t0 = _mm_unpacklo_ps(r0, r1), t1 = _mm_unpacklo_ps(r2, r3);
  const __m128 t2 = _mm_unpackhi_ps(r0, r1), t3 = _mm_unpackhi_ps(r2, r3);
  r0 = _mm_movelh_ps(t0, t1);
  r1 = _mm_movehl_ps(t1, t0);
  r2 = _mm_movelh_ps(t2, t3);
  r3 = _mm_movehl_ps(t3, t2);
}

}  // namespace

void LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  CHWToBlocked(input, output, 4, [](float* const* pl, float* d, std::uint32_t pixels) {
    for (std::uint32_t p = 0; p < pixels; ++p, d += 4) {
      const __m128 v = _mm_unpacklo_ps(_mm_unpacklo_ps(_mm_load_ss(pl[0] + p), _mm_load_ss(pl[2] + p)),
                                       _mm_unpacklo_ps(_mm_load_ss(pl[1] + p), _mm_load_ss(pl[3] + p)));
      _mm_storeu_ps(d, v);
    }
    return pixels;
  });
}

void LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  CHWToBlocked(input, output, 4, [](float* const* pl, float* d, std::uint32_t pixels) {
    std::uint32_t p = 0;
    for (; p + 4 <= pixels; p += 4, d += 16) {
      __m128 r0 = _mm_loadu_ps(pl[0] + p), r1 = _mm_loadu_ps(pl[1] + p);
      __m128 r2 = _mm_loadu_ps(pl[2] + p), r3 = _mm_loadu_ps(pl[3] + p);
      Transpose4(r0, r1, r2, r3);
      _mm_storeu_ps(d, r0);
      _mm_storeu_ps(d + 4, r1);
      _mm_storeu_ps(d + 8, r2);
      _mm_storeu_ps(d + 12, r3);
    }
    return p;
  });
}

void LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  BlockedToCHW(input, output, 4, [](float* const* q, const float* s, std::uint32_t pixels) {
    std::uint32_t p = 0;
    for (; p + 4 <= pixels; p += 4, s += 16) {
      __m128 r0 = _mm_loadu_ps(s), r1 = _mm_loadu_ps(s + 4), r2 = _mm_loadu_ps(s + 8), r3 = _mm_loadu_ps(s + 12);
      _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
      _mm_storeu_ps(q[0] + p, r0);
      _mm_storeu_ps(q[1] + p, r1);
      _mm_storeu_ps(q[2] + p, r2);
      _mm_storeu_ps(q[3] + p, r3);
    }
    return p;
  });
}

void LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  CHWToBlocked(input, output, 8, [](float* const* pl, float* d, std::uint32_t pixels) {
    std::uint32_t p = 0;
    for (; p + 4 <= pixels; p += 4, d += 32) {
      __m128 a0 = _mm_loadu_ps(pl[0] + p), a1 = _mm_loadu_ps(pl[1] + p);
      __m128 a2 = _mm_loadu_ps(pl[2] + p), a3 = _mm_loadu_ps(pl[3] + p);
      __m128 b0 = _mm_loadu_ps(pl[4] + p), b1 = _mm_loadu_ps(pl[5] + p);
      __m128 b2 = _mm_loadu_ps(pl[6] + p), b3 = _mm_loadu_ps(pl[7] + p);
      Transpose4(a0, a1, a2, a3);
      Transpose4(b0, b1, b2, b3);
      _mm_storeu_ps(d, a0);
      _mm_storeu_ps(d + 4, b0);
      _mm_storeu_ps(d + 8, a1);
      _mm_storeu_ps(d + 12, b1);
      _mm_storeu_ps(d + 16, a2);
      _mm_storeu_ps(d + 20, b2);
      _mm_storeu_ps(d + 24, a3);
      _mm_storeu_ps(d + 28, b3);
    }
    return p;
  });
}

void LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  BlockedToCHW(input, output, 8, [](float* const* q, const float* s, std::uint32_t pixels) {
    // Two pixels per step: interleaving their halves pairs up each channel's
    // two values, written to the planes 8 bytes at a time.
    std::uint32_t p = 0;
    for (; p + 2 <= pixels; p += 2, s += 16) {
      const __m128 lo0 = _mm_loadu_ps(s), hi0 = _mm_loadu_ps(s + 4);
      const __m128 lo1 = _mm_loadu_ps(s + 8), hi1 = _mm_loadu_ps(s + 12);
      const __m128 c01 = _mm_unpacklo_ps(lo0, lo1), c23 = _mm_unpackhi_ps(lo0, lo1);
      const __m128 c45 = _mm_unpacklo_ps(hi0, hi1), c67 = _mm_unpackhi_ps(hi0, hi1);
      _mm_storel_pi(reinterpret_cast<__m64*>(q[0] + p), c01);
      _mm_storeh_pi(reinterpret_cast<__m64*>(q[1] + p), c01);
      _mm_storel_pi(reinterpret_cast<__m64*>(q[2] + p), c23);
      _mm_storeh_pi(reinterpret_cast<__m64*>(q[3] + p), c23);
      _mm_storel_pi(reinterpret_cast<__m64*>(q[4] + p), c45);
      _mm_storeh_pi(reinterpret_cast<__m64*>(q[5] + p), c45);
      _mm_storel_pi(reinterpret_cast<__m64*>(q[6] + p), c67);
      _mm_storeh_pi(reinterpret_cast<__m64*>(q[7] + p), c67);
    }
    return p;
  });
}

void LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  BlockedToCHW(input, output, 8, [](float* const* q, const float* s, std::uint32_t pixels) {
    std::uint32_t p = 0;
    for (; p + 4 <= pixels; p += 4, s += 32) {
      // Low halves of four pixels are channels 0-3, high halves 4-7.
      __m128 a0 = _mm_loadu_ps(s), b0 = _mm_loadu_ps(s + 4);
      __m128 a1 = _mm_loadu_ps(s + 8), b1 = _mm_loadu_ps(s + 12);
      __m128 a2 = _mm_loadu_ps(s + 16), b2 = _mm_loadu_ps(s + 20);
      __m128 a3 = _mm_loadu_ps(s + 24), b3 = _mm_loadu_ps(s + 28);
      Transpose4(a0, a1, a2, a3);
      Transpose4(b0, b1, b2, b3);
      _mm_storeu_ps(q[0] + p, a0);
      _mm_storeu_ps(q[1] + p, a1);
      _mm_storeu_ps(q[2] + p, a2);
      _mm_storeu_ps(q[3] + p, a3);
      _mm_storeu_ps(q[4] + p, b0);
      _mm_storeu_ps(q[5] + p, b1);
      _mm_storeu_ps(q[6] + p, b2);
      _mm_storeu_ps(q[7] + p, b3);
    }
    return p;
  });
}

void LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  const LayoutBlocks g = CheckC4C8Blocks(input, output);
  for (std::uint32_t b = 0; b < g.blocks; ++b) {
    const float* s0 = static_cast<const float*>(input->Locate4D(2 * b, 0, 0, 0));
    const float* s1 = static_cast<const float*>(input->Locate4D(2 * b + 1, 0, 0, 0));
    float* d = static_cast<float*>(output->Locate4D(b, 0, 0, 0));
    for (std::uint32_t p = 0; p < g.pixels; ++p, d += 8) {
      _mm_storeu_ps(d, _mm_loadu_ps(s0 + 4 * p));
      _mm_storeu_ps(d + 4, _mm_loadu_ps(s1 + 4 * p));
    }
  }
}

void LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1(const TensorCPUPtr& input, const TensorCPUPtr& output) {
  const LayoutBlocks g = CheckC4C8Blocks(output, input);
  for (std::uint32_t b = 0; b < g.blocks; ++b) {
    const float* s = static_cast<const float*>(input->Locate4D(b, 0, 0, 0));
    float* d0 = static_cast<float*>(output->Locate4D(2 * b, 0, 0, 0));
    float* d1 = static_cast<float*>(output->Locate4D(2 * b + 1, 0, 0, 0));
    for (std::uint32_t p = 0; p < g.pixels; ++p, s += 8) {
      _mm_storeu_ps(d0 + 4 * p, _mm_loadu_ps(s));
      _mm_storeu_ps(d1 + 4 * p, _mm_loadu_ps(s + 4));
    }
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
