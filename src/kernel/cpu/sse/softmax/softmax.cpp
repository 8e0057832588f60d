// SSE softmax with the polynomial exponential.
#include "kernel/cpu/fallback/softmax/softmax_steps.h"
#include "kernel/cpu/sse/vec_sse.h"
#include "tarn/kernel/softmax.h"

namespace tarn {
namespace kernel {
namespace functional {

void softmax_sse_f32(const float* src, std::size_t outer, std::size_t dim, std::size_t inner, float* dst) {
  Softmax<Sse>(src, outer, dim, inner, dst);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
