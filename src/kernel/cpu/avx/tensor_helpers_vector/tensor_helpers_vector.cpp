// AVX forms of the bias fill and padding helpers: the stores of the walks in
// vector_helper_base.
#include <immintrin.h>

#include "kernel/cpu/fallback/tensor_helpers_vector/vector_helper_base.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {
namespace functional {
namespace {

void FillFloats(float* d, std::size_t n, float value) {
  const __m256 v = _mm256_set1_ps(value);
  std::size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    _mm256_storeu_ps(d + i, v);
    _mm256_storeu_ps(d + i + 8, v);
    _mm256_storeu_ps(d + i + 16, v);
    _mm256_storeu_ps(d + i + 24, v);
  }
  for (; i + 8 <= n; i += 8) _mm256_storeu_ps(d + i, v);
  for (; i < n; ++i) d[i] = value;
}

void CopyFloats(float* d, const float* s, std::size_t n) {
  std::size_t i = 0;
  for (; i + 32 <= n; i += 32) {
    const __m256 a = _mm256_loadu_ps(s + i), b = _mm256_loadu_ps(s + i + 8);
    const __m256 c = _mm256_loadu_ps(s + i + 16), e = _mm256_loadu_ps(s + i + 24);
    _mm256_storeu_ps(d + i, a);
    _mm256_storeu_ps(d + i + 8, b);
    _mm256_storeu_ps(d + i + 16, c);
    _mm256_storeu_ps(d + i + 24, e);
  }
  for (; i + 8 <= n; i += 8) _mm256_storeu_ps(d + i, _mm256_loadu_ps(s + i));
  for (; i < n; ++i) d[i] = s[i];
}

// Two pixels per store: the 4-lane vector in both halves.
void FillPixels4(float* d, std::size_t pixels, const float* values) {
  const __m128 q = _mm_loadu_ps(values);
  const __m256 v = _mm256_set_m128(q, q);
  std::size_t p = 0;
  for (; p + 2 <= pixels; p += 2, d += 8) _mm256_storeu_ps(d, v);
  if (p < pixels) _mm_storeu_ps(d, q);
}

void FillPixels8(float* d, std::size_t pixels, const float* values) {
  const __m256 v = _mm256_loadu_ps(values);
  for (std::size_t p = 0; p < pixels; ++p, d += 8) _mm256_storeu_ps(d, v);
}

}  // namespace

void FillBias_AVX_CHW_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  detail::FillBiasBlocks(inout, bias, 3, 1, "FillBias_AVX_CHW_Float_M1", detail::FillPlaneWith<FillFloats>);
}

void FillBias_AVX_C4HW4_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  detail::FillBiasBlocks(inout, bias, 4, 4, "FillBias_AVX_C4HW4_Float_M1", FillPixels4);
}

void FillBias_AVX_C8HW8_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  detail::FillBiasBlocks(inout, bias, 4, 8, "FillBias_AVX_C8HW8_Float_M1", FillPixels8);
}

TensorCPUPtr Padding_HW_MainMemory_AVX_C8HW8_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                      std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                      float value, const DeviceCPUPtr& device) {
  return detail::PadRows(input, left, right, top, bottom, value, device, 4, 8,
                         "Padding_HW_MainMemory_AVX_C8HW8_Float_M1", detail::PadRowWith<FillFloats, CopyFloats>);
}

TensorCPUPtr Padding_HW_MainMemory_AVX_C8HW8_Zero_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                     std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                     const DeviceCPUPtr& device) {
  return detail::PadRows(input, left, right, top, bottom, 0.0f, device, 4, 8,
                         "Padding_HW_MainMemory_AVX_C8HW8_Zero_M1", detail::PadRowWith<FillFloats, CopyFloats>);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
