// Element functions of the element-wise kernels: out[i] = a[i] op b[i] over
// `count` elements. The vector forms need the instruction set of their name.
#pragma once

#include <cstdint>
#include <string>

namespace tarn {
namespace kernel {
namespace functional {

// 8 elements per step when dst overlaps neither source within 8 floats and
// count >= 8, then a scalar tail; otherwise a plain loop.
void elementwise_add_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);
void elementwise_sub_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);
void elementwise_mul_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);
void elementwise_div_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);

// 16 elements per step, then 4, then scalar. Max and Min use the packed
// maximum/minimum (b when either is NaN) and, in the tail, b > a ? b : a
// (b < a ? b : a), which keeps a when either is NaN.
void elementwise_add_sse_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);
void elementwise_sub_sse_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);
void elementwise_mul_sse_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);
void elementwise_div_sse_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);
void elementwise_max_sse_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);
void elementwise_min_sse_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);

// 32 elements per step, then 8, then scalar; same rules as the SSE forms.
void elementwise_add_avx_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);
void elementwise_sub_avx_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);
void elementwise_mul_avx_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);
void elementwise_div_avx_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);
void elementwise_max_avx_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);
void elementwise_min_avx_f32_m1(const float* a, const float* b, const std::uint32_t& count, float* dst);

// "Add", "Sub", "Mul" or "Div" for codes 0 to 3. Every other code, 4 (max) and
// 5 (min) included, fails the assertion "Invalid element wise type".
std::string ElementwiseOpName(std::uint16_t op_type);

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
