// The loops of the normalisation kernels (batch and instance normalisation):
// a per-channel affine map and the statistics of one channel.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarn {
namespace kernel {
namespace functional {

// dst = fma(src, a[k], b[k]) (one fused multiply-add, as PyTorch's vector
// kernel computes batch normalisation), k the channel
// of the element. `src` holds `blocks` planes of `plane` floats (lanes 1: CHW,
// a C x L signal or a C vector with plane 1) or `blocks` planes of `plane`
// pixel vectors of `lanes` floats (4: C4HW4, 8: C8HW8); a and b hold
// blocks * lanes factors (zero beyond the last real channel, which keeps the
// padding lanes zero). src may equal dst.
using ChannelAffineFn = void (*)(const float* src, std::uint32_t blocks, std::size_t plane, std::uint32_t lanes,
                                 const float* a, const float* b, float* dst);
// Portable, any lanes.
void channel_affine_f32(const float* src, std::uint32_t blocks, std::size_t plane, std::uint32_t lanes,
                        const float* a, const float* b, float* dst);
// SSE4.1: lanes 1 (16 floats per step, then 4, then a scalar tail) and lanes 4.
void channel_affine_sse_f32(const float* src, std::uint32_t blocks, std::size_t plane, std::uint32_t lanes,
                            const float* a, const float* b, float* dst);
void channel_affine_c4hw4_sse_f32(const float* src, std::uint32_t blocks, std::size_t plane, std::uint32_t lanes,
                                  const float* a, const float* b, float* dst);
// AVX2: lanes 1 (32 floats per step, then 8, then a scalar tail) and lanes 8.
void channel_affine_avx_f32(const float* src, std::uint32_t blocks, std::size_t plane, std::uint32_t lanes,
                            const float* a, const float* b, float* dst);
void channel_affine_c8hw8_avx_f32(const float* src, std::uint32_t blocks, std::size_t plane, std::uint32_t lanes,
                                  const float* a, const float* b, float* dst);

// The mean of n floats (a double sum divided by n, rounded to float) and their
// biased variance (the double sum of the float squares (x - mean)^2, rounded
// to float, divided by n in float), as PyTorch's CPU kernel collects them.
using MeanVarFn = void (*)(const float* x, std::size_t n, float* mean, float* variance);
// Portable: both sums in element order.
void mean_var_f32(const float* x, std::size_t n, float* mean, float* variance);
// Vector forms: the sums run in register lanes, so they may differ from the
// portable form in the last bits of the double sums.
void mean_var_sse_f32(const float* x, std::size_t n, float* mean, float* variance);
void mean_var_avx_f32(const float* x, std::size_t n, float* mean, float* variance);

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
