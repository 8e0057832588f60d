// SSE forms of the bias fill and padding helpers: the stores of the walks in
// vector_helper_base.
#include <immintrin.h>

#include "kernel/cpu/fallback/tensor_helpers_vector/vector_helper_base.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {
namespace functional {
namespace {

using runtime::TensorShape;

void FillFloats(float* d, std::size_t n, float value) {
  const __m128 v = _mm_set1_ps(value);
  std::size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    _mm_storeu_ps(d + i, v);
    _mm_storeu_ps(d + i + 4, v);
    _mm_storeu_ps(d + i + 8, v);
    _mm_storeu_ps(d + i + 12, v);
  }
  for (; i + 4 <= n; i += 4) _mm_storeu_ps(d + i, v);
  for (; i < n; ++i) d[i] = value;
}

void CopyFloats(float* d, const float* s, std::size_t n) {
  std::size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128 a = _mm_loadu_ps(s + i), b = _mm_loadu_ps(s + i + 4);
    const __m128 c = _mm_loadu_ps(s + i + 8), e = _mm_loadu_ps(s + i + 12);
    _mm_storeu_ps(d + i, a);
    _mm_storeu_ps(d + i + 4, b);
    _mm_storeu_ps(d + i + 8, c);
    _mm_storeu_ps(d + i + 12, e);
  }
  for (; i + 4 <= n; i += 4) _mm_storeu_ps(d + i, _mm_loadu_ps(s + i));
  for (; i < n; ++i) d[i] = s[i];
}

void FillPixels4(float* d, std::size_t pixels, const float* values) {
  const __m128 v = _mm_loadu_ps(values);
  for (std::size_t p = 0; p < pixels; ++p, d += 4) _mm_storeu_ps(d, v);
}

void FillPixels8(float* d, std::size_t pixels, const float* values) {
  const __m128 lo = _mm_loadu_ps(values), hi = _mm_loadu_ps(values + 4);
  for (std::size_t p = 0; p < pixels; ++p, d += 8) {
    _mm_storeu_ps(d, lo);
    _mm_storeu_ps(d + 4, hi);
  }
}

}  // namespace

void FillBias_SSE_CHW_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  detail::FillBiasBlocks(inout, bias, 3, 1, "FillBias_SSE_CHW_Float_M1", detail::FillPlaneWith<FillFloats>);
}

void FillBias_SSE_C4HW4_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  detail::FillBiasBlocks(inout, bias, 4, 4, "FillBias_SSE_C4HW4_Float_M1", FillPixels4);
}

void FillBias_SSE_C8HW8_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  detail::FillBiasBlocks(inout, bias, 4, 8, "FillBias_SSE_C8HW8_Float_M1", FillPixels8);
}

void FillBias_SSE_C8HW8_Int16_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  detail::CheckLaneTensor(inout, TensorShape::INT16, 4, 8, "FillBias_SSE_C8HW8_Int16_M1");
  const std::size_t count = detail::CheckedBiasCount(bias, TensorShape::INT16);
  detail::CheckBiasBlocks(inout, count, 8);
  const std::size_t plane = std::size_t(inout->shape.dims[1]) * inout->shape.dims[2];
  const std::int16_t* b = bias->DataAs<std::int16_t>();
  std::int16_t* d = inout->DataAs<std::int16_t>();
  for (std::size_t cb = 0; cb < inout->shape.dims[0]; ++cb) {
    std::int16_t v[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    for (std::size_t k = 0; k < 8 && cb * 8 + k < count; ++k) v[k] = b[cb * 8 + k];
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(v));
    for (std::size_t p = 0; p < plane; ++p, d += 8) _mm_storeu_si128(reinterpret_cast<__m128i*>(d), x);
  }
}

TensorCPUPtr Padding_HW_MainMemory_SSE_CHW_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                    std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                    float value, const DeviceCPUPtr& device) {
  return detail::PadRows(input, left, right, top, bottom, value, device, 3, 1,
                         "Padding_HW_MainMemory_SSE_CHW_Float_M1", detail::PadRowWith<FillFloats, CopyFloats>);
}

TensorCPUPtr Padding_HW_MainMemory_SSE_C4HW4_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                      std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                      float value, const DeviceCPUPtr& device) {
  return detail::PadRows(input, left, right, top, bottom, value, device, 4, 4,
                         "Padding_HW_MainMemory_SSE_C4HW4_Float_M1", detail::PadRowWith<FillFloats, CopyFloats>);
}

TensorCPUPtr Padding_HW_MainMemory_SSE_C8HW8_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                      std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                      float value, const DeviceCPUPtr& device) {
  return detail::PadRows(input, left, right, top, bottom, value, device, 4, 8,
                         "Padding_HW_MainMemory_SSE_C8HW8_Float_M1", detail::PadRowWith<FillFloats, CopyFloats>);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
