#include <cmath>
#include <cstring>

#include "kernel/cpu/fallback/fullconnection/fc_output.h"
#include "tarn/kernel/fullconnection.h"

namespace tarn {
namespace kernel {
namespace detail {

void InitFcOutput(const float* bias, float* output, std::size_t count) {
  if (bias != nullptr) {
    std::memcpy(output, bias, count * sizeof(float));
  } else {
    std::memset(output, 0, count * sizeof(float));
  }
}

}  // namespace detail

namespace functional {

void fullconnection_fallback_c_f32_m1(const float* input, const std::uint32_t& inFeatures,
                                      const std::uint32_t& outFeatures, const float* weight, const float* bias,
                                      float* output) {
  detail::InitFcOutput(bias, output, outFeatures);
  for (std::size_t o = 0; o < outFeatures; ++o) {
    const float* w = weight + o * inFeatures;
    float acc = output[o];
    for (std::size_t i = 0; i < inFeatures; ++i) acc = std::fma(w[i], input[i], acc);
    output[o] = acc;
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
