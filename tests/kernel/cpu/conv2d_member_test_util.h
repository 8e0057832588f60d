// Checks of the specialised convolution members (fixed kernel and stride,
// one group, their own input and output layouts): a member end to end against
// the double reference over every tile width and tail, the PyTorch fixtures
// of the real layer shapes each member serves, agreement with the general
// members plus layout conversions, and the records and inputs a member must
// refuse. Every run hands the member pool memory poisoned with NaN, so an
// output element that is never written (or a missing zero fill without a
// bias) shows.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "kernel/cpu/conv_test_util.h"
#include "tarn/kernel/layout_transform.h"

namespace tarn {
namespace testing {
namespace conv {

struct MemberSpec {
  const char* name;
  unsigned in_lanes, out_lanes;  // 1 CHW, 4 C4HW4, 8 C8HW8
  unsigned ky, kx, sy, sx;
  bool takes_padding;          // false: no padding helper, padded records refused
  unsigned in_channels = 0;    // the one input channel count served (0: any)
  unsigned out_channels = 0;   // the one output channel count served (0: any)
  bool c8_rounds_with_3 = false;  // input counts of 1 .. 4 modulo 8 refused

  bool TakesChannels(unsigned c, unsigned n) const {
    if (in_channels != 0 && c != in_channels) return false;
    if (out_channels != 0 && n != out_channels) return false;
    return !c8_rounds_with_3 || (c + 3) / 8 == (c + 7) / 8;
  }
  bool Takes(const ConvGeom& g) const {
    return g.ky == ky && g.kx == kx && g.sy == sy && g.sx == sx && g.dy == 1 && g.dx == 1 && g.g == 1 &&
           (takes_padding || g.pl + g.pr + g.pt + g.pb == 0) && TakesChannels(g.c, g.n);
  }
};

// The 23 AVX members and the SSE image stem.
inline const std::vector<MemberSpec>& AvxMembers() {
  static const std::vector<MemberSpec> m = {
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1", 1, 1, 1, 1, 1, 1, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1", 4, 4, 1, 1, 1, 1, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1", 8, 8, 1, 1, 1, 1, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2", 8, 8, 1, 1, 1, 1, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M3", 8, 8, 1, 1, 1, 1, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_Strassen_M1", 8, 8, 1, 1, 1, 1, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_CHW_FLOAT_M1", 8, 1, 1, 1, 1, 1, false},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_C4HW4_FLOAT_M1", 8, 4, 1, 1, 1, 1, false, 0, 0, true},
      {"Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_TO_C8HW8_FLOAT_M1", 4, 8, 1, 1, 1, 1, false},
      {"Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1", 8, 8, 1, 1, 2, 2, false},
      {"Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1", 8, 8, 1, 3, 1, 1, true},
      {"Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1", 8, 8, 3, 1, 1, 1, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1", 1, 1, 3, 3, 1, 1, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1", 4, 4, 3, 3, 1, 1, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1", 8, 8, 3, 3, 1, 1, true},
      {"Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1", 1, 4, 3, 3, 1, 1, true, 3},
      {"Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1", 1, 8, 3, 3, 1, 1, true, 3},
      {"Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1", 4, 1, 3, 3, 1, 1, true, 0, 3},
      {"Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1", 8, 1, 3, 3, 1, 1, true, 0, 1},
      {"Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1", 8, 8, 3, 3, 2, 2, true},
      {"Conv2d_K5x5_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1", 8, 8, 5, 5, 1, 1, true},
      {"Conv2d_K5x5_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1", 1, 1, 5, 5, 2, 2, true},
      {"Conv2d_K7x7_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1", 1, 1, 7, 7, 2, 2, true},
  };
  return m;
}
inline const MemberSpec& SseImageStem() {
  static const MemberSpec m{"Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1", 1, 4, 3, 3, 1, 1, true, 3};
  return m;
}

// Releases `count` blocks of `floats` floats full of NaN into the context's
// pool, so the member's next tensors of that size start dirty.
inline void PoisonPool(const std::shared_ptr<runtime::Context>& ctx, std::size_t floats, int count = 3) {
  std::vector<TensorCPUPtr> held;
  for (int i = 0; i < count; ++i) {
    held.push_back(ctx->cpu->CreateTensor(runtime::MakeShape({static_cast<unsigned>(floats)})));
    float* p = held.back()->DataAs<float>();
    for (std::size_t k = 0; k < floats; ++k) p[k] = std::numeric_limits<float>::quiet_NaN();
  }
}

inline unsigned StoredFloats(unsigned channels, unsigned h, unsigned w, unsigned lanes) {
  return (lanes == 1 ? channels : (channels + lanes - 1) / lanes * lanes) * h * w;
}

// The member's output of g for the data, read back as CHW, after checking
// shape, output checks and zero tail lanes; failure text otherwise.
inline ::testing::AssertionResult RunMember(const MemberSpec& m, const ConvGeom& g, const std::vector<float>& x,
                                            const std::vector<float>& weight, const std::vector<float>& bias,
                                            std::vector<float>* got) {
  auto ctx = MakeContext();
  auto input = LayoutTensor(ctx->cpu, x, g.c, g.h, g.w, m.in_lanes);
  PoisonPool(ctx, StoredFloats(g.n, g.OutH(), g.OutW(), m.out_lanes));
  KernelRun run = RunKernel(m.name, MakeConv2dInfo(g, weight, bias), ctx, input);
  if (!run.kernel) return ::testing::AssertionFailure() << m.name << " is not registered";
  if (!run.configured) return ::testing::AssertionFailure() << m.name << " refused Config for " << g;
  if (run.valid != 0) return ::testing::AssertionFailure() << m.name << " refused the input of " << g;
  if (!run.forwarded || run.outputs.size() != 1) return ::testing::AssertionFailure() << m.name << " Forward failed";
  const auto& out = run.outputs[0];
  const auto shapes = run.kernel->GetOutputShapes({input->shape});
  if (shapes.size() != 1 || shapes[0].dims != out->shape.dims || shapes[0].layout != out->shape.layout) {
    return ::testing::AssertionFailure() << "GetOutputShapes disagrees with the output";
  }
  if (run.kernel->IsValidOutput(run.outputs) != 0) return ::testing::AssertionFailure() << "IsValidOutput refused";
  const unsigned oh = g.OutH(), ow = g.OutW();
  const std::vector<unsigned> dims =
      m.out_lanes == 1 ? std::vector<unsigned>{g.n, oh, ow}
                       : std::vector<unsigned>{(g.n + m.out_lanes - 1) / m.out_lanes, oh, ow, m.out_lanes};
  if (out->shape.dims != dims) return ::testing::AssertionFailure() << "output dims (" << m.name << ", " << g << ")";
  const float* o = static_cast<const float*>(out->Data());
  if (m.out_lanes != 1 && !TailLanesZero(o, g.n, oh, ow, m.out_lanes)) {
    return ::testing::AssertionFailure() << "tail lanes not zero (" << m.name << ", " << g << ")";
  }
  *got = m.out_lanes == 1 ? std::vector<float>(o, o + std::size_t(g.n) * oh * ow)
                          : FromBlocked(o, g.n, oh, ow, m.out_lanes);
  return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult RunMemberAgainst(const MemberSpec& m, const ConvGeom& g, const std::vector<float>& x,
                                                   const std::vector<float>& weight, const std::vector<float>& bias,
                                                   const Ref& want) {
  std::vector<float> got;
  auto run = RunMember(m, g, x, weight, bias, &got);
  if (!run) return run;
  auto near = Near(got, want);
  if (!near) return near << " (" << m.name << ", " << g << ")";
  return ::testing::AssertionSuccess();
}

// The geometry of member m with c -> n channels and an output of oh x ow:
// same padding, or (asymmetric) every padding row and column on one side;
// no padding for the members without a padding helper.
inline ConvGeom MemberGeom(const MemberSpec& m, unsigned c, unsigned n, unsigned oh, unsigned ow, bool bias,
                           bool asymmetric) {
  ConvGeom g{c, n, 0, 0, m.ky, m.kx, m.sy, m.sx, 1, 1, 1, 0, 0, 0, 0, bias};
  if (m.takes_padding) {
    if (asymmetric) {
      g.pl = m.kx - 1;
      g.pb = m.ky - 1;
    } else {
      g.pl = (m.kx - 1) / 2;
      g.pr = m.kx / 2;
      g.pt = (m.ky - 1) / 2;
      g.pb = m.ky / 2;
    }
  }
  // The smallest input giving that output (at least one pixel).
  const long h = long(oh - 1) * m.sy + m.ky - g.pt - g.pb, w = long(ow - 1) * m.sx + m.kx - g.pl - g.pr;
  g.h = static_cast<unsigned>(h > 0 ? h : 1);
  g.w = static_cast<unsigned>(w > 0 ? w : 1);
  return g;
}

// Channel pairs of the grid: every count of the blocked-layout list on both
// sides, and output counts that make one, two, three, four and five register
// groups (8 lanes) or an odd number of 4-lane blocks.
inline std::vector<std::pair<unsigned, unsigned>> MemberChannelPairs(const MemberSpec& m) {
  std::vector<std::pair<unsigned, unsigned>> pairs = ChannelPairs();
  pairs.emplace_back(9, 32);
  pairs.emplace_back(5, 33);
  std::vector<std::pair<unsigned, unsigned>> taken;
  for (auto p : pairs) {
    if (m.in_channels != 0) p.first = m.in_channels;
    if (m.out_channels != 0) p.second = m.out_channels;
    bool seen = false;
    for (const auto& t : taken) seen = seen || t == p;
    if (!seen && m.TakesChannels(p.first, p.second)) taken.push_back(p);
  }
  return taken;
}

// Member m on c -> n channels at output widths 1 .. 17 (every tile width and
// tail of the steps) and heights 1 .. 3, with and without bias, same and
// asymmetric padding in turn, against the double reference.
inline void ExpectMemberGrid(const MemberSpec& m, std::pair<unsigned, unsigned> ch, unsigned seed) {
  for (unsigned ow = 1; ow <= 17; ++ow) {
    for (bool bias : {false, true}) {
      const ConvGeom g = MemberGeom(m, ch.first, ch.second, 1 + ow % 3, ow, bias, ow % 2 == 1);
      const unsigned s = seed + 7 * ow + (bias ? 1 : 0);
      const std::vector<float> x = Random(std::size_t(g.c) * g.h * g.w, s);
      const std::vector<float> w = Random(g.WeightCount(), s + 1);
      const std::vector<float> b = bias ? Random(g.n, s + 2) : std::vector<float>();
      EXPECT_TRUE(RunMemberAgainst(m, g, x, w, b, NaiveConv2d(g, x, w, b)));
    }
  }
}

// The fixture files of the real layer shapes.
inline const std::vector<std::string>& MemberFixtures() {
  static const std::vector<std::string> f = {"conv_members_avx/stems", "conv_members_avx/pointwise",
                                             "conv_members_avx/spatial"};
  return f;
}

// Member m on every case of the fixture file it serves, against PyTorch's
// output (tolerance scaled by the double reference on the same data).
inline int ExpectMemberMatchesTorch(const MemberSpec& m, const std::string& fixture) {
  const auto cases = LoadReference(fixture);
  EXPECT_FALSE(cases.empty()) << fixture;
  int ran = 0;
  for (const RefCase& c : cases) {
    auto p = ParseParams(c);
    const auto& x = c.inputs[0];
    const ConvGeom g{p["in_channels"].GetUint(), p["out_channels"].GetUint(), x.shape[1], x.shape[2],
                     p["kernel"][0].GetUint(), p["kernel"][1].GetUint(), p["stride"][0].GetUint(),
                     p["stride"][1].GetUint(), p["dilation"][0].GetUint(), p["dilation"][1].GetUint(),
                     p["groups"].GetUint(), p["padding"][0].GetUint(), p["padding"][1].GetUint(),
                     p["padding"][2].GetUint(), p["padding"][3].GetUint(), p["bias"].GetBool()};
    if (!m.Takes(g)) continue;
    const std::vector<float> bias = g.bias ? c.inputs[2].data : std::vector<float>();
    Ref want = NaiveConv2d(g, x.data, c.inputs[1].data, bias);
    want.value.assign(c.outputs[0].data.begin(), c.outputs[0].data.end());
    EXPECT_TRUE(RunMemberAgainst(m, g, x.data, c.inputs[1].data, bias, want)) << c.name;
    ++ran;
  }
  return ran;
}

// Records member m must refuse beyond the base's checks: other kernels,
// strides, dilation, groups, padding without a padding helper, channel counts
// it does not serve; and inputs in another layout or with other channels.
inline void ExpectMemberRefusals(const MemberSpec& m) {
  SCOPED_TRACE(m.name);
  auto ctx = MakeContext();
  auto kernel = CreateKernel(m.name);
  ASSERT_NE(kernel, nullptr);
  const unsigned c = m.in_channels ? m.in_channels : 16, n = m.out_channels ? m.out_channels : 8;
  const ConvGeom good = MemberGeom(m, c, n, 3, 5, true, false);
  auto info = [&](const ConvGeom& g) {
    return MakeConv2dInfo(g, Random(g.WeightCount(), 1), Random(g.n, 2));
  };
  ASSERT_TRUE(kernel->Config(info(good), nullptr, ctx));
  std::vector<ConvGeom> refused;
  ConvGeom g = good;
  g.kx = m.kx + 2;
  refused.push_back(g);
  g = good;
  g.ky = m.ky == 1 ? 3 : 1;
  refused.push_back(g);
  g = good;
  g.sx = m.sx == 1 ? 2 : 1;
  refused.push_back(g);
  g = good;
  g.dy = g.dx = 2;
  g.h += 4;
  g.w += 4;
  refused.push_back(g);
  g = good;
  g.g = 2;
  g.c = 2 * c;
  g.n = 2 * n;
  refused.push_back(g);
  if (!m.takes_padding) {
    g = good;
    g.pl = 1;
    refused.push_back(g);
  }
  if (m.in_channels != 0) {
    g = good;
    g.c = m.in_channels + 1;
    refused.push_back(g);
  }
  if (m.out_channels != 0) {
    g = good;
    g.n = m.out_channels + 1;
    refused.push_back(g);
  }
  if (m.c8_rounds_with_3) {
    for (unsigned bad : {1u, 4u, 9u, 12u}) {
      g = good;
      g.c = bad;
      refused.push_back(g);
    }
  }
  for (const ConvGeom& r : refused) {
    EXPECT_EQ(kernel->IsValidParam(info(r), nullptr), -1) << r;
    EXPECT_FALSE(kernel->Config(info(r), nullptr, ctx)) << r;
    EXPECT_FALSE(kernel->IsConfiged());
  }
  ASSERT_TRUE(kernel->Config(info(good), nullptr, ctx));
  auto ok = LayoutTensor(ctx->cpu, Random(std::size_t(c) * good.h * good.w, 3), c, good.h, good.w, m.in_lanes);
  EXPECT_EQ(kernel->IsValidInput({ok}), 0);
  const unsigned other_lanes = m.in_lanes == 8 ? 4 : 8;
  std::vector<std::shared_ptr<runtime::Tensor>> bad = {
      LayoutTensor(ctx->cpu, Random(std::size_t(c) * good.h * good.w, 3), c, good.h, good.w, other_lanes),
      LayoutTensor(ctx->cpu, Random(std::size_t(c + 9) * good.h * good.w, 3), c + 9, good.h, good.w, m.in_lanes),
      nullptr,
  };
  // No rows: too few for any kernel, padded or not.
  const std::vector<unsigned> empty_dims = m.in_lanes == 1 ? std::vector<unsigned>{c, 0, good.w}
                                                             : std::vector<unsigned>{ok->shape.dims[0], 0, good.w,
                                                                                     m.in_lanes};
  bad.push_back(ctx->cpu->CreateTensor(runtime::MakeShape(empty_dims, TensorShape::FLOAT32, ok->shape.layout)));
  ExpectInputsRefused(kernel, ctx, bad);
}

}  // namespace conv
}  // namespace testing
}  // namespace tarn
