// AVX upsampling: on planes, gathered horizontal blends shared by the output
// rows that need them; on C8HW8, one pixel vector per step.
#include "kernel/cpu/fallback/upsampling2d/upsampling_steps.h"
#include "kernel/cpu/avx/vec_avx.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace functional {

void upsample2d_avx_f32(const float* src, std::uint32_t planes, std::uint32_t lanes, const Upsample2DPlan& plan,
                        float* dst) {
  TARN_NATIVE_ASSERT(lanes == 1);
  UpsamplePlanes<Avx>(src, planes, plan, dst);
}

void upsample2d_c8hw8_avx_f32(const float* src, std::uint32_t planes, std::uint32_t lanes,
                              const Upsample2DPlan& plan, float* dst) {
  TARN_NATIVE_ASSERT(lanes == 8);
  UpsampleBlocked<Avx>(src, planes, plan, dst);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
