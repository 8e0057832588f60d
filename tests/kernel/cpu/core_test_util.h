// Running a raw 1x1 convolution core against a double reference: random
// input and initial output in the core's layouts (zero tail lanes), weights
// packed in the core's order, dst = dst0 + W x checked within the shared
// tolerance, and tail lanes checked to stay zero.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kernel/cpu/conv_test_util.h"
#include "tarn/kernel/native_conv.h"
#include "tarn/kernel/packing.h"

namespace tarn {
namespace testing {
namespace conv {

using CoreFn = void (*)(int, int, int, float*, int, int, int, int, int, int, int, int, int, float*, int, int, int,
                        float*);
using PackFn = TensorCPUPtr (*)(const TensorCPUPtr&, const kernel::DeviceCPUPtr&);

struct CoreDesc {
  const char* name;
  CoreFn fn;
  unsigned in_lanes;   // 1 (CHW), 4 or 8
  unsigned out_lanes;  // 1 (CHW), 4 or 8
  PackFn pack;         // null: the plain [out][in] matrix
};

// Regex-quotes an assertion text for EXPECT_DEATH.
inline std::string Quoted(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) out += '\\';
    out += c;
  }
  return out;
}

inline unsigned Stored(unsigned channels, unsigned lanes) {
  return lanes == 1 ? channels : (channels + lanes - 1) / lanes;
}

// Runs `core` on c input and n output channels over an h x w plane.
inline ::testing::AssertionResult CheckCore(const CoreDesc& core, unsigned c, unsigned n, unsigned h, unsigned w,
                                            unsigned seed) {
  auto ctx = MakeContext();
  const std::vector<float> x = Random(std::size_t(c) * h * w, seed);
  const std::vector<float> dst0 = Random(std::size_t(n) * h * w, seed + 1);
  const std::vector<float> weight = Random(std::size_t(n) * c, seed + 2);

  std::vector<float> src = core.in_lanes == 1 ? x : ToBlocked(x, c, h, w, core.in_lanes);
  std::vector<float> dst = core.out_lanes == 1 ? dst0 : ToBlocked(dst0, n, h, w, core.out_lanes);
  std::vector<float> packed = weight;
  if (core.pack) {
    auto gnchw = MakeTensor(ctx->cpu, {1, n, c, 1, 1}, TensorShape::GNCHW, weight);
    auto p = core.pack(gnchw, ctx->cpu);
    if (!p) return ::testing::AssertionFailure() << "packing failed";
    packed = Values(p);
  }
  core.fn(static_cast<int>(c), static_cast<int>(h), static_cast<int>(w), src.data(),
          static_cast<int>(Stored(c, core.in_lanes)), static_cast<int>(n), 1, 1, 1, 1, 1, 1, 1, packed.data(),
          static_cast<int>(Stored(n, core.out_lanes)), static_cast<int>(h), static_cast<int>(w), dst.data());

  Ref ref{std::vector<double>(dst0.size()), std::vector<double>(dst0.size())};
  for (unsigned o = 0; o < n; ++o)
    for (unsigned p = 0; p < h * w; ++p) {
      double v = dst0[std::size_t(o) * h * w + p], s = std::fabs(v);
      for (unsigned i = 0; i < c; ++i) {
        const double t = double(weight[std::size_t(o) * c + i]) * x[std::size_t(i) * h * w + p];
        v += t;
        s += std::fabs(t);
      }
      ref.value[std::size_t(o) * h * w + p] = v;
      ref.scale[std::size_t(o) * h * w + p] = s;
    }
  const std::vector<float> got = core.out_lanes == 1 ? dst : FromBlocked(dst.data(), n, h, w, core.out_lanes);
  auto near = Near(got, ref);
  if (!near) return near;
  if (core.out_lanes != 1 && !TailLanesZero(dst.data(), n, h, w, core.out_lanes)) {
    return ::testing::AssertionFailure() << "tail lanes changed";
  }
  return ::testing::AssertionSuccess();
}

}  // namespace conv
}  // namespace testing
}  // namespace tarn
