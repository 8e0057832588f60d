// Element functions of the activation kernels, reusable by any kernel (the
// recurrent cells call sigmoid_f32, tanh_f32 and relu_f32 directly).
//
// Every element function takes (source, count, destination) and may be called
// with source == destination. The vector forms need the instruction set of
// their name (sse: SSE4.1 + FMA, avx: AVX2 + FMA).
#pragma once

#include <cstdint>
#include <memory>

#include "tarn/runtime/tensor.h"

namespace tarn {
namespace kernel {
namespace functional {

// x <= 0 ? +0.0 : x. NaN passes, and -0.0 becomes +0.0 in every form.
void relu_f32(const float* src, const std::uint32_t& count, float* dst);
void relu_sse_f32_m1(const float* src, const std::uint32_t& count, float* dst);
void relu_avx_f32_m1(const float* src, const std::uint32_t& count, float* dst);

// x < 0 ? 0.0 : (x > 6 ? 6.0 : x); NaN passes.
void relu6_f32(const float* src, const std::uint32_t& count, float* dst);
void relu6_sse_f32_m1(const float* src, const std::uint32_t& count, float* dst);
void relu6_avx_f32_m1(const float* src, const std::uint32_t& count, float* dst);

// 1 / (expf(0 - x) + 1) and tanhf(x), exact library forms.
void sigmoid_f32(const float* src, const std::uint32_t& count, float* dst);
void tanh_f32(const float* src, const std::uint32_t& count, float* dst);

// t = x + 3; t > 0 ? (6 > t ? t * 0.16666667 : 1.0) : 0.0. NaN gives 0.
void hsigmoid_f32(const float* src, const std::uint32_t& count, float* dst);
void hsigmoid_sse_f32_m1(const float* src, const std::uint32_t& count, float* dst);

// t = x + 3; !(t > 0) ? x * 0.0 : (6 > t ? x * (t * 0.16666667) : x).
// Negative x below -3 gives -0.0 on purpose.
void hswish_f32(const float* src, const std::uint32_t& count, float* dst);
void hswish_sse_f32_m1(const float* src, const std::uint32_t& count, float* dst);
void hswish_avx_f32_m1(const float* src, const std::uint32_t& count, float* dst);

// 0 > x ? x * alpha : x.
void leaky_f32(const float* src, const std::uint32_t& count, const float& alpha, float* dst);
void leaky_sse_f32_m1(const float* src, const std::uint32_t& count, const float& alpha, float* dst);
void leaky_avx_f32_m1(const float* src, const std::uint32_t& count, const float& alpha, float* dst);

// fmaf(x, alpha, beta).
void linear_f32(const float* src, const std::uint32_t& count, const float& alpha, const float& beta, float* dst);

// Fast sigmoid and tanh. These trade accuracy for speed and are only sane on a
// bounded input range (see the functions); the scalar tails use the library.
// m1: rounding-trick exponential (quadratic 2^f), valid for |x| < 87.
void sigmoid_sse_f32_m1(const float* src, const std::uint32_t& count, float* dst);
void tanh_sse_f32_m1(const float* src, const std::uint32_t& count, float* dst);
// m2: bit-pattern exponential (Schraudolph), valid for |x| < 709.
void sigmoid_sse_f32_m2(const float* src, const std::uint32_t& count, float* dst);
void tanh_sse_f32_m2(const float* src, const std::uint32_t& count, float* dst);
// Polynomial exponential with the argument clamped to +-88.37626: any input.
void sigmoid_avx_f32_m1(const float* src, const std::uint32_t& count, float* dst);
// The same polynomial exponential four lanes wide.
void sigmoid_sse_f32_m3(const float* src, const std::uint32_t& count, float* dst);

// Tensor-level helpers: in place on the tensor's own buffer over the product of
// its dims (a tensor without dims is one element; nothing happens below one).
void Sigmoid_F32_M2(const std::shared_ptr<runtime::Tensor>& tensor);
void Sigmoid_SSE_F32_M3(const std::shared_ptr<runtime::Tensor>& tensor);
// Only negative elements change: x <- x * slope when 0 > x.
void PReLU_F32(const std::shared_ptr<runtime::Tensor>& tensor, float slope);
void PReLU_SSE_Float_M1(const std::shared_ptr<runtime::Tensor>& tensor, float slope);
void PReLU_AVX_F32_M1(const std::shared_ptr<runtime::Tensor>& tensor, float slope);
// Raw forms of the PReLU helpers.
void prelu_f32(float* data, const std::uint32_t& count, const float& slope);
void prelu_sse_f32_m1(float* data, const std::uint32_t& count, const float& slope);
void prelu_avx_f32_m1(float* data, const std::uint32_t& count, const float& slope);

// Element count of an activation: product of the dims in 32-bit arithmetic,
// one for a shape without dims.
std::uint32_t ActivationElementCount(const runtime::TensorShape& shape);

// Maps a legacy (version-1) activation code to the present one; an unknown
// code fails the assertion "Not Implemented.".
std::uint16_t TransActivationTypeFrom1To2(std::uint16_t legacy_type);

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
