// SSE channel statistics of instance normalisation.
#include "kernel/cpu/fallback/batchnorm/normalization_steps.h"
#include "kernel/cpu/sse/vec_sse.h"
#include "tarn/kernel/normalization.h"

namespace tarn {
namespace kernel {
namespace functional {

void mean_var_sse_f32(const float* x, std::size_t n, float* mean, float* variance) {
  MeanVar<Sse>(x, n, mean, variance);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
