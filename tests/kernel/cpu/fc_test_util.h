// Helpers of the fully connected tests: records and the double reference.
#pragma once

#include <cmath>
#include <vector>

#include "kernel/cpu/conv_test_util.h"

namespace tarn {
namespace testing {
namespace conv {

inline std::shared_ptr<runtime::FullConnectionInfo> MakeFcInfo(unsigned in, unsigned out, const std::vector<float>& w,
                                                               const std::vector<float>* bias) {
  auto info = std::make_shared<runtime::FullConnectionInfo>();
  info->in_features = static_cast<std::uint16_t>(in);
  info->out_features = static_cast<std::uint16_t>(out);
  info->weight = runtime::EncodeWeights(w);
  info->if_bias = bias != nullptr;
  if (bias) info->bias = runtime::EncodeWeights(*bias);
  return info;
}

// out = W x + b in double, with the tolerance scale of every output.
inline Ref NaiveFc(unsigned in, unsigned out, const std::vector<float>& x, const std::vector<float>& w,
                   const float* bias) {
  Ref r{std::vector<double>(out), std::vector<double>(out)};
  for (unsigned o = 0; o < out; ++o) {
    double v = bias ? bias[o] : 0.0, s = std::fabs(v);
    for (unsigned i = 0; i < in; ++i) {
      const double t = double(w[std::size_t(o) * in + i]) * x[i];
      v += t;
      s += std::fabs(t);
    }
    r.value[o] = v;
    r.scale[o] = s;
  }
  return r;
}

// Feature counts around every vector width and unroll: 1..17 plus larger.
inline std::vector<unsigned> FeatureCounts() {
  std::vector<unsigned> v;
  for (unsigned i = 1; i <= 17; ++i) v.push_back(i);
  for (unsigned i : {24u, 31u, 32u, 40u, 64u, 100u}) v.push_back(i);
  return v;
}

}  // namespace conv
}  // namespace testing
}  // namespace tarn
