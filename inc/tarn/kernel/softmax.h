// The loops of the softmax and clip kernels.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarn {
namespace kernel {
namespace functional {

// Softmax along the middle axis of a row-major [outer, dim, inner] block:
// for every (o, i), m = the largest of the dim values (x > m; NaN is never
// taken as the maximum, but reaches every output through its own exponential),
// e = exp(x - m), y = e / (the sum of the e in axis order). src may equal dst.
using SoftmaxFn = void (*)(const float* src, std::size_t outer, std::size_t dim, std::size_t inner, float* dst);
// Portable, with std::exp.
void softmax_f32(const float* src, std::size_t outer, std::size_t dim, std::size_t inner, float* dst);
// SSE4.1 and AVX2: a polynomial exponential (relative error below 2e-7,
// exp(x) = 0 below -87.3), sums in register lanes and y = e * (1 / sum),
// within 1e-6 (relative) of the portable form. With inner == 1 the
// registers run along the axis; otherwise across inner, one column per lane,
// the columns left over by the register width one at a time by the same steps.
void softmax_sse_f32(const float* src, std::size_t outer, std::size_t dim, std::size_t inner, float* dst);
void softmax_avx_f32(const float* src, std::size_t outer, std::size_t dim, std::size_t inner, float* dst);

// dst = x < lo ? lo : (x > hi ? hi : x) over count floats: NaN stays NaN, and
// an x equal to a bound (-0.0 against 0.0 included) is kept. src may equal dst.
using ClipFn = void (*)(const float* src, const std::uint32_t& count, float lo, float hi, float* dst);
void clip_f32(const float* src, const std::uint32_t& count, float lo, float hi, float* dst);
// max then min of the packed instructions, bit for bit the portable result;
// 4 registers per step, then single registers, then a scalar tail.
void clip_sse_f32(const float* src, const std::uint32_t& count, float lo, float hi, float* dst);
void clip_avx_f32(const float* src, const std::uint32_t& count, float lo, float hi, float* dst);

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
