// Running a raw 1x1 convolution core against a double reference: random
// input and initial output in the core's layouts (zero tail lanes), weights
// packed in the core's order, dst = dst0 + W x checked within the shared
// tolerance, and tail lanes checked to stay zero. Also the width sweep and
// the argument checks every family's cores are put through.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
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

  const Ref ref = AddInitial(NaiveConv2d(ConvGeom{c, n, h, w, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, false}, x, weight, {}),
                             dst0);
  const std::vector<float> got = core.out_lanes == 1 ? dst : FromBlocked(dst.data(), n, h, w, core.out_lanes);
  auto near = Near(got, ref);
  if (!near) return near;
  if (core.out_lanes != 1 && !TailLanesZero(dst.data(), n, h, w, core.out_lanes)) {
    return ::testing::AssertionFailure() << "tail lanes changed";
  }
  return ::testing::AssertionSuccess();
}

// Widths 1..17 hit the eight-pixel bodies and every tail length; heights 1
// and 3 cover one row and several.
inline void ExpectCoreWidths(const CoreDesc& core, std::pair<unsigned, unsigned> channels) {
  for (unsigned h : {1u, 3u}) {
    for (unsigned w = 1; w <= 17; ++w) {
      EXPECT_TRUE(CheckCore(core, channels.first, channels.second, h, w, 10 * w + h))
          << core.name << " h " << h << " w " << w;
    }
  }
}

// Test names of (core index, channel pair) parameters.
template <const CoreDesc* kCores>
std::string CoreCaseName(const ::testing::TestParamInfo<std::tuple<int, std::pair<unsigned, unsigned>>>& info) {
  const auto& pair = std::get<1>(info.param);
  return std::string(kCores[std::get<0>(info.param)].name) + "_" + std::to_string(pair.first) + "to" +
         std::to_string(pair.second);
}

// A core call that must end the process with the named assertion: the
// integer arguments in order (inChannels, srcH, srcW, srcC, outChannels,
// kernelY, kernelX, strideY, strideX, dilateY, dilateX, groups, dstC, dstH,
// dstW); every pointer is a zeroed scratch buffer.
struct CoreDeath {
  CoreFn fn;
  int a[15];
  const char* text;
};

inline void ExpectCoreDeaths(std::initializer_list<CoreDeath> cases) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::vector<float> buf(8192, 0.0f);
  float* b = buf.data();
  for (const CoreDeath& c : cases) {
    const int* a = c.a;
    EXPECT_DEATH(c.fn(a[0], a[1], a[2], b, a[3], a[4], a[5], a[6], a[7], a[8], a[9], a[10], a[11], b, a[12], a[13],
                      a[14], b),
                 Quoted(c.text));
  }
}

}  // namespace conv
}  // namespace testing
}  // namespace tarn
