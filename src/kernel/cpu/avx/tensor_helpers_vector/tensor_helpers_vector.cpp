// AVX forms of the bias fill and padding helpers.
#include <immintrin.h>

#include "kernel/cpu/fallback/tensor_helpers_vector/vector_helper_checks.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace kernel {
namespace functional {
namespace {

using runtime::TensorShape;

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

TensorCPUPtr PadC8HW8(const TensorCPUPtr& in, std::uint32_t left, std::uint32_t right, std::uint32_t top,
                      std::uint32_t bottom, float value, const DeviceCPUPtr& device, const char* what) {
  detail::CheckLaneTensor(in, TensorShape::FLOAT32, 4, 8, what);
  TensorCPUPtr out = detail::CreatePadded(in, left, right, top, bottom, device, what);
  const std::size_t planes = in->shape.dims[0], h = in->shape.dims[1], w = in->shape.dims[2];
  const std::size_t oh = out->shape.dims[1], row = std::size_t(out->shape.dims[2]) * 8;
  const float* s = in->DataAs<float>();
  float* d = out->DataAs<float>();
  for (std::size_t p = 0; p < planes; ++p) {
    for (std::size_t y = 0; y < oh; ++y, d += row) {
      if (y < top || y >= top + h) {
        FillFloats(d, row, value);
        continue;
      }
      FillFloats(d, std::size_t(left) * 8, value);
      CopyFloats(d + std::size_t(left) * 8, s, w * 8);
      FillFloats(d + (left + w) * 8, std::size_t(right) * 8, value);
      s += w * 8;
    }
  }
  return out;
}

// The bias lanes of channels first .. first + lanes - 1 (zero beyond `count`).
__m256 BiasLanes(const float* bias, std::size_t count, std::size_t first, std::size_t lanes) {
  float v[8] = {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
  for (std::size_t k = 0; k < lanes && first + k < count; ++k) v[k] = bias[first + k];
  return _mm256_loadu_ps(v);
}

}  // namespace

void FillBias_AVX_CHW_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  detail::CheckLaneTensor(inout, TensorShape::FLOAT32, 3, 1, "FillBias_AVX_CHW_Float_M1");
  const std::size_t count = detail::CheckedBiasCount(bias, TensorShape::FLOAT32);
  detail::CheckBiasBlocks(inout, count, 1);
  const std::size_t plane = std::size_t(inout->shape.dims[1]) * inout->shape.dims[2];
  const float* b = bias->DataAs<float>();
  float* d = inout->DataAs<float>();
  for (std::size_t c = 0; c < count; ++c) FillFloats(d + c * plane, plane, b[c]);
}

void FillBias_AVX_C4HW4_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  detail::CheckLaneTensor(inout, TensorShape::FLOAT32, 4, 4, "FillBias_AVX_C4HW4_Float_M1");
  const std::size_t count = detail::CheckedBiasCount(bias, TensorShape::FLOAT32);
  detail::CheckBiasBlocks(inout, count, 4);
  const std::size_t plane = std::size_t(inout->shape.dims[1]) * inout->shape.dims[2];
  float* d = inout->DataAs<float>();
  for (std::size_t cb = 0; cb < inout->shape.dims[0]; ++cb) {
    // Two pixels per store: the 4-lane vector in both halves.
    const __m128 q = _mm256_castps256_ps128(BiasLanes(bias->DataAs<float>(), count, cb * 4, 4));
    const __m256 v = _mm256_set_m128(q, q);
    std::size_t p = 0;
    for (; p + 2 <= plane; p += 2, d += 8) _mm256_storeu_ps(d, v);
    if (p < plane) {
      _mm_storeu_ps(d, q);
      d += 4;
    }
  }
}

void FillBias_AVX_C8HW8_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  detail::CheckLaneTensor(inout, TensorShape::FLOAT32, 4, 8, "FillBias_AVX_C8HW8_Float_M1");
  const std::size_t count = detail::CheckedBiasCount(bias, TensorShape::FLOAT32);
  detail::CheckBiasBlocks(inout, count, 8);
  const std::size_t plane = std::size_t(inout->shape.dims[1]) * inout->shape.dims[2];
  float* d = inout->DataAs<float>();
  for (std::size_t cb = 0; cb < inout->shape.dims[0]; ++cb) {
    const __m256 v = BiasLanes(bias->DataAs<float>(), count, cb * 8, 8);
    for (std::size_t p = 0; p < plane; ++p, d += 8) _mm256_storeu_ps(d, v);
  }
}

TensorCPUPtr Padding_HW_MainMemory_AVX_C8HW8_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                      std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                      float value, const DeviceCPUPtr& device) {
  return PadC8HW8(input, left, right, top, bottom, value, device, "Padding_HW_MainMemory_AVX_C8HW8_Float_M1");
}

TensorCPUPtr Padding_HW_MainMemory_AVX_C8HW8_Zero_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                     std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                     const DeviceCPUPtr& device) {
  return PadC8HW8(input, left, right, top, bottom, 0.0f, device, "Padding_HW_MainMemory_AVX_C8HW8_Zero_M1");
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
