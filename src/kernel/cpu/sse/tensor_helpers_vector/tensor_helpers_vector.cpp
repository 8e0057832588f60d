// SSE forms of the bias fill and padding helpers.
#include <immintrin.h>

#include "kernel/cpu/fallback/tensor_helpers_vector/vector_helper_checks.h"
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

// Rows of a padded tensor are border, then interior; a pixel of a blocked
// tensor is `lanes` consecutive floats, so one loop serves every layout.
TensorCPUPtr Pad(const TensorCPUPtr& in, std::uint32_t left, std::uint32_t right, std::uint32_t top,
                 std::uint32_t bottom, float value, const DeviceCPUPtr& device, std::size_t rank, std::uint32_t lanes,
                 const char* what) {
  detail::CheckLaneTensor(in, TensorShape::FLOAT32, rank, lanes, what);
  TensorCPUPtr out = detail::CreatePadded(in, left, right, top, bottom, device, what);
  const std::size_t planes = in->shape.dims[0], h = in->shape.dims[1], w = in->shape.dims[2];
  const std::size_t oh = out->shape.dims[1], row = std::size_t(out->shape.dims[2]) * lanes;
  const float* s = in->DataAs<float>();
  float* d = out->DataAs<float>();
  for (std::size_t p = 0; p < planes; ++p) {
    for (std::size_t y = 0; y < oh; ++y, d += row) {
      if (y < top || y >= top + h) {
        FillFloats(d, row, value);
        continue;
      }
      FillFloats(d, std::size_t(left) * lanes, value);
      CopyFloats(d + std::size_t(left) * lanes, s, w * lanes);
      FillFloats(d + (left + w) * lanes, std::size_t(right) * lanes, value);
      s += w * lanes;
    }
  }
  return out;
}

// The 4-float bias vector of channel block `block` (zero beyond `count`).
__m128 BiasQuad(const float* bias, std::size_t count, std::size_t first) {
  float v[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  for (std::size_t k = 0; k < 4 && first + k < count; ++k) v[k] = bias[first + k];
  return _mm_loadu_ps(v);
}

}  // namespace

void FillBias_SSE_CHW_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  detail::CheckLaneTensor(inout, TensorShape::FLOAT32, 3, 1, "FillBias_SSE_CHW_Float_M1");
  const std::size_t count = detail::CheckedBiasCount(bias, TensorShape::FLOAT32);
  detail::CheckBiasBlocks(inout, count, 1);
  const std::size_t plane = std::size_t(inout->shape.dims[1]) * inout->shape.dims[2];
  const float* b = bias->DataAs<float>();
  float* d = inout->DataAs<float>();
  for (std::size_t c = 0; c < count; ++c) FillFloats(d + c * plane, plane, b[c]);
}

void FillBias_SSE_C4HW4_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  detail::CheckLaneTensor(inout, TensorShape::FLOAT32, 4, 4, "FillBias_SSE_C4HW4_Float_M1");
  const std::size_t count = detail::CheckedBiasCount(bias, TensorShape::FLOAT32);
  detail::CheckBiasBlocks(inout, count, 4);
  const std::size_t plane = std::size_t(inout->shape.dims[1]) * inout->shape.dims[2];
  float* d = inout->DataAs<float>();
  for (std::size_t cb = 0; cb < inout->shape.dims[0]; ++cb) {
    const __m128 v = BiasQuad(bias->DataAs<float>(), count, cb * 4);
    for (std::size_t p = 0; p < plane; ++p, d += 4) _mm_storeu_ps(d, v);
  }
}

void FillBias_SSE_C8HW8_Float_M1(const TensorCPUPtr& inout, const TensorCPUPtr& bias) {
  detail::CheckLaneTensor(inout, TensorShape::FLOAT32, 4, 8, "FillBias_SSE_C8HW8_Float_M1");
  const std::size_t count = detail::CheckedBiasCount(bias, TensorShape::FLOAT32);
  detail::CheckBiasBlocks(inout, count, 8);
  const std::size_t plane = std::size_t(inout->shape.dims[1]) * inout->shape.dims[2];
  float* d = inout->DataAs<float>();
  for (std::size_t cb = 0; cb < inout->shape.dims[0]; ++cb) {
    const __m128 lo = BiasQuad(bias->DataAs<float>(), count, cb * 8);
    const __m128 hi = BiasQuad(bias->DataAs<float>(), count, cb * 8 + 4);
    for (std::size_t p = 0; p < plane; ++p, d += 8) {
      _mm_storeu_ps(d, lo);
      _mm_storeu_ps(d + 4, hi);
    }
  }
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
  return Pad(input, left, right, top, bottom, value, device, 3, 1, "Padding_HW_MainMemory_SSE_CHW_Float_M1");
}

TensorCPUPtr Padding_HW_MainMemory_SSE_C4HW4_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                      std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                      float value, const DeviceCPUPtr& device) {
  return Pad(input, left, right, top, bottom, value, device, 4, 4, "Padding_HW_MainMemory_SSE_C4HW4_Float_M1");
}

TensorCPUPtr Padding_HW_MainMemory_SSE_C8HW8_Float_M1(const TensorCPUPtr& input, std::uint32_t left,
                                                      std::uint32_t right, std::uint32_t top, std::uint32_t bottom,
                                                      float value, const DeviceCPUPtr& device) {
  return Pad(input, left, right, top, bottom, value, device, 4, 8, "Padding_HW_MainMemory_SSE_C8HW8_Float_M1");
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
