// SSE clip: packed max then min.
#include "kernel/cpu/fallback/softmax/softmax_steps.h"
#include "kernel/cpu/sse/vec_sse.h"
#include "tarn/kernel/softmax.h"

namespace tarn {
namespace kernel {
namespace functional {

void clip_sse_f32(const float* src, const std::uint32_t& count, float lo, float hi, float* dst) {
  Clip<Sse>(src, count, lo, hi, dst);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
