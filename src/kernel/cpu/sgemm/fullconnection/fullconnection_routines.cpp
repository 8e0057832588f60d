#include "kernel/cpu/fallback/fullconnection/fc_output.h"
#include "tarn/kernel/fullconnection.h"
#include "tarn/kernel/sgemm.h"

namespace tarn {
namespace kernel {
namespace functional {

void fullconnection_sgemm_c_f32_m1(const float* input, const std::uint32_t& inFeatures,
                                   const std::uint32_t& outFeatures, const float* weight, const float* bias,
                                   float* output) {
  detail::InitFcOutput(bias, output, outFeatures);
  // beta 1: the product lands on the bias already in the output.
  Sgemm(static_cast<int>(outFeatures), static_cast<int>(inFeatures), 1, 1.0f, weight, input, 1.0f, output);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
