// The AVX2 + FMA register operations the direct convolution steps are written
// in (kernel/cpu/fallback/conv2d/conv2d_direct_steps.h). Included only by AVX
// files; the unnamed namespace gives each of them its own copy, so nothing
// compiled with AVX flags is ever shared with a baseline or SSE file.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace tarn {
namespace kernel {
namespace {

// Lane masks for the first n lanes: kFirstLanes + 8 - n.
alignas(32) constexpr std::int32_t kFirstLanes[16] = {-1, -1, -1, -1, -1, -1, -1, -1, 0, 0, 0, 0, 0, 0, 0, 0};

struct AvxRegisters {
  using Reg = __m256;
  static constexpr int kLanes = 8;
  static Reg Load(const float* p) { return _mm256_loadu_ps(p); }
  static void Store(float* p, Reg v) { _mm256_storeu_ps(p, v); }
  static Reg Broadcast(const float* p) { return _mm256_broadcast_ss(p); }
  static Reg Fma(Reg a, Reg b, Reg c) { return _mm256_fmadd_ps(a, b, c); }
  static Reg Zero() { return _mm256_setzero_ps(); }
  // Two 4-float blocks (lo in lanes 0..3, hi in lanes 4..7).
  static Reg LoadHalves(const float* lo, const float* hi) { return _mm256_loadu2_m128(hi, lo); }
  static void StoreHalves(float* lo, float* hi, Reg v) { _mm256_storeu2_m128(hi, lo, v); }
  static Reg LoadLow(const float* lo) { return _mm256_zextps128_ps256(_mm_loadu_ps(lo)); }
  static void StoreLow(float* lo, Reg v) { _mm_storeu_ps(lo, _mm256_castps256_ps128(v)); }
  // The first n floats (1 .. 8); nothing beyond them is read or written.
  static __m256i FirstMask(int n) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(kFirstLanes + 8 - n)); }
  static Reg LoadFirst(const float* p, int n) { return _mm256_maskload_ps(p, FirstMask(n)); }
  static void StoreFirst(float* p, Reg v, int n) { _mm256_maskstore_ps(p, FirstMask(n), v); }
};

}  // namespace
}  // namespace kernel
}  // namespace tarn
