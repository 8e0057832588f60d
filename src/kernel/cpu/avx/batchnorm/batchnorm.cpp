// AVX per-channel affine maps: the step of batch normalisation (and of
// instance normalisation, which computes its factors per pass).
#include "kernel/cpu/fallback/batchnorm/normalization_steps.h"
#include "kernel/cpu/avx/vec_avx.h"
#include "tarn/kernel/normalization.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace functional {

void channel_affine_avx_f32(const float* src, std::uint32_t blocks, std::size_t plane, std::uint32_t lanes,
                            const float* a, const float* b, float* dst) {
  TARN_NATIVE_ASSERT(lanes == 1);
  ChannelAffinePlanes<Avx>(src, blocks, plane, a, b, dst);
}

void channel_affine_c8hw8_avx_f32(const float* src, std::uint32_t blocks, std::size_t plane, std::uint32_t lanes,
                                  const float* a, const float* b, float* dst) {
  TARN_NATIVE_ASSERT(lanes == 8);
  ChannelAffineBlocked<Avx>(src, blocks, plane, a, b, dst);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
