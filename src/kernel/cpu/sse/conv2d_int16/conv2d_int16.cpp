#include "kernel/cpu/sse/conv2d_int16/conv2d_int16.h"

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "tarn/kernel/tensor_helpers_vector.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

namespace {

using std::ptrdiff_t;

// The exact sum of one half (four outputs) of a pixel, kept as a wrapping sum
// `low` of the partial sums and the sum `high` of their upper halves.
struct ExactSum {
  __m128i low = _mm_setzero_si128(), high = _mm_setzero_si128();
  inline void Add(__m128i v) {
    low = _mm_add_epi32(low, v);
    high = _mm_add_epi32(high, _mm_srai_epi32(v, 16));
  }
  // round(sum / 2^kShift) as int32. sum = high * 2^16 + rest, rest (the sum
  // of the lower halves, below 2^32) recovered from the wrapping sum; a sum of
  // 2^30 or more in magnitude is clamped there, which still saturates any
  // 16-bit result the same way.
  template <int kShift>
  inline __m128i Rounded() const {
    const __m128i rest = _mm_sub_epi32(low, _mm_slli_epi32(high, 16));
    __m128i h = _mm_add_epi32(high, _mm_srli_epi32(rest, 16));
    h = _mm_min_epi32(_mm_max_epi32(h, _mm_set1_epi32(-(1 << 14))), _mm_set1_epi32(1 << 14));
    const __m128i sum = _mm_add_epi32(_mm_slli_epi32(h, 16), _mm_and_si128(rest, _mm_set1_epi32(0xffff)));
    return _mm_srai_epi32(_mm_add_epi32(sum, _mm_set1_epi32(1 << (kShift - 1))), kShift);
  }
};

// PX pixels of one output block: every input block, then the rounded sums
// added to the output with 16-bit saturation.
template <int kShift, int PX>
inline void Pixels(const std::int16_t* src, ptrdiff_t srcPlane, int srcBlocks, const std::int16_t* tiles,
                   std::int16_t* dst) {
  ExactSum sum[PX][2];
  for (int ib = 0; ib < srcBlocks; ++ib) {
    const __m128i* w = reinterpret_cast<const __m128i*>(tiles + ib * 64);
    __m128i x[PX];
    for (int p = 0; p < PX; ++p) x[p] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + ib * srcPlane + 8 * p));
#define TRN_INT16_PAIR(k)                                                   \
  for (int p = 0; p < PX; ++p) {                                            \
    const __m128i pair = _mm_shuffle_epi32(x[p], (k) * 0x55);               \
    sum[p][0].Add(_mm_madd_epi16(pair, _mm_loadu_si128(w + 2 * (k))));     \
    sum[p][1].Add(_mm_madd_epi16(pair, _mm_loadu_si128(w + 2 * (k) + 1))); \
  }
    TRN_INT16_PAIR(0) TRN_INT16_PAIR(1) TRN_INT16_PAIR(2) TRN_INT16_PAIR(3)
#undef TRN_INT16_PAIR
  }
  for (int p = 0; p < PX; ++p) {
    __m128i* d = reinterpret_cast<__m128i*>(dst + 8 * p);
    const __m128i filled = _mm_loadu_si128(d);
    const __m128i lo = _mm_add_epi32(_mm_cvtepi16_epi32(filled), sum[p][0].template Rounded<kShift>());
    const __m128i hi = _mm_add_epi32(_mm_cvtepi16_epi32(_mm_srli_si128(filled, 8)), sum[p][1].template Rounded<kShift>());
    _mm_storeu_si128(d, _mm_packs_epi32(lo, hi));
  }
}

}  // namespace

template <int kShift>
void Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight) {
  static_assert(kShift >= Int16Conv2DBase::kMinShift && kShift <= Int16Conv2DBase::kMaxShift, "shift 8 to 12");
  const int srcBlocks = static_cast<int>(input->shape.dims[0]);
  const int dstBlocks = static_cast<int>(output->shape.dims[0]);
  const ptrdiff_t pixels = ptrdiff_t(output->shape.dims[1]) * output->shape.dims[2];
  const ptrdiff_t plane = pixels * 8;
  const std::int16_t* src = input->DataAs<std::int16_t>();
  const std::int16_t* w = weight->DataAs<std::int16_t>();
  std::int16_t* dst = output->DataAs<std::int16_t>();
  for (int ob = 0; ob < dstBlocks; ++ob) {
    const std::int16_t* tiles = w + ptrdiff_t(ob) * srcBlocks * 64;
    std::int16_t* d = dst + ob * plane;
    ptrdiff_t p = 0;
    for (; p + 2 <= pixels; p += 2) Pixels<kShift, 2>(src + 8 * p, plane, srcBlocks, tiles, d + 8 * p);
    if (p < pixels) Pixels<kShift, 1>(src + 8 * p, plane, srcBlocks, tiles, d + 8 * p);
  }
}

template void Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1_Convolution<8>(const TensorCPUPtr&, const TensorCPUPtr&,
                                                                         const TensorCPUPtr&);
template void Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1_Convolution<9>(const TensorCPUPtr&, const TensorCPUPtr&,
                                                                         const TensorCPUPtr&);
template void Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1_Convolution<10>(const TensorCPUPtr&, const TensorCPUPtr&,
                                                                          const TensorCPUPtr&);
template void Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1_Convolution<11>(const TensorCPUPtr&, const TensorCPUPtr&,
                                                                          const TensorCPUPtr&);
template void Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1_Convolution<12>(const TensorCPUPtr&, const TensorCPUPtr&,
                                                                          const TensorCPUPtr&);

bool Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                          std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                          std::shared_ptr<runtime::Context> context) const {
  if (IsValidInput(inputs) != kValid) {
    utility::Log(utility::kLogError, "%s: Forward on an input the kernel refuses (a wrong tensor, or a step size "
                 "that leaves the sums 8 to 12 fraction bits beyond the output's).", GetName().c_str());
    return false;
  }
  StepFn step = nullptr;
  switch (ShiftFor(inputs[0]->shape.extra.step_size)) {
    case 8: step = Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1_Convolution<8>; break;
    case 9: step = Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1_Convolution<9>; break;
    case 10: step = Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1_Convolution<10>; break;
    case 11: step = Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1_Convolution<11>; break;
    default: step = Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1_Convolution<12>; break;
  }
  if (!ForwardDirect(inputs, outputs, context, {nullptr, functional::FillBias_SSE_C8HW8_Int16_M1, step})) return false;
  outputs[0]->shape.extra.step_size = output_step();
  return true;
}

}  // namespace kernel
}  // namespace tarn
