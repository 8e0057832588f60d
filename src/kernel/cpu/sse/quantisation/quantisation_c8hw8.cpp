#include "kernel/cpu/sse/quantisation/quantisation_c8hw8.h"

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "kernel/cpu/fallback/conv2d/conv2d_fixed_base.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/device_cpu.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

namespace {

// Eight floats to eight saturated 16-bit values.
inline __m128i Quantize8(const float* x, __m128 scale) {
  const __m128 lo = _mm_set1_ps(-32768.0f), hi = _mm_set1_ps(32767.0f);
  __m128 a = _mm_mul_ps(_mm_loadu_ps(x), scale), b = _mm_mul_ps(_mm_loadu_ps(x + 4), scale);
  // NaN to 0 first: the clamps would otherwise keep one of their bounds.
  a = _mm_and_ps(a, _mm_cmpord_ps(a, a));
  b = _mm_and_ps(b, _mm_cmpord_ps(b, b));
  a = _mm_min_ps(_mm_max_ps(a, lo), hi);
  b = _mm_min_ps(_mm_max_ps(b, lo), hi);
  return _mm_packs_epi32(_mm_cvtps_epi32(a), _mm_cvtps_epi32(b));
}

inline void Dequantize8(const std::int16_t* q, float* x, __m128 scale) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q));
  _mm_storeu_ps(x, _mm_mul_ps(_mm_cvtepi32_ps(_mm_cvtepi16_epi32(v)), scale));
  _mm_storeu_ps(x + 4, _mm_mul_ps(_mm_cvtepi32_ps(_mm_cvtepi16_epi32(_mm_srli_si128(v, 8))), scale));
}

// The checked input, and the output of its shape made by the device.
bool Prepare(const QuantisationC8HW8Base& k, const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
             const std::shared_ptr<runtime::Context>& context, TensorCPUPtr* input, TensorCPUPtr* output) {
  if (!context || !context->cpu || k.IsValidInput(inputs) != kValid) {
    utility::Log(utility::kLogError, "%s: Forward on an input the kernel refuses.", k.GetName().c_str());
    return false;
  }
  *input = std::static_pointer_cast<runtime::TensorCPU>(inputs[0]);
  *output = context->cpu->CreateTensor(k.GetOutputShapes({inputs[0]->shape})[0]);
  return true;
}

}  // namespace

bool Quantize_SSE_C8HW8_Float_To_Int16_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                   std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                   std::shared_ptr<runtime::Context> context) const {
  TensorCPUPtr input, output;
  if (!Prepare(*this, inputs, context, &input, &output)) return false;
  const std::size_t count = input->shape.ElementCount();
  const float* x = input->DataAs<float>();
  std::int16_t* q = output->DataAs<std::int16_t>();
  const __m128 scale = _mm_set1_ps(StepScale(-step_));
  std::size_t i = 0;
  for (; i + 16 <= count; i += 16) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(q + i), Quantize8(x + i, scale));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(q + i + 8), Quantize8(x + i + 8, scale));
  }
  if (i < count) _mm_storeu_si128(reinterpret_cast<__m128i*>(q + i), Quantize8(x + i, scale));
  outputs.assign(1, output);
  return true;
}

bool DeQuantize_SSE_C8HW8_Int16_To_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                     std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                     std::shared_ptr<runtime::Context> context) const {
  TensorCPUPtr input, output;
  if (!Prepare(*this, inputs, context, &input, &output)) return false;
  const std::size_t count = input->shape.ElementCount();
  const std::int16_t* q = input->DataAs<std::int16_t>();
  float* x = output->DataAs<float>();
  const __m128 scale = _mm_set1_ps(StepScale(input->shape.extra.step_size));
  std::size_t i = 0;
  for (; i + 16 <= count; i += 16) {
    Dequantize8(q + i, x + i, scale);
    Dequantize8(q + i + 8, x + i + 8, scale);
  }
  if (i < count) Dequantize8(q + i, x + i, scale);
  outputs.assign(1, output);
  return true;
}

}  // namespace kernel
}  // namespace tarn
