// Running the fixed-geometry SSE convolution members over the cases that
// reach every register tile and tail: output widths 1 to 17 (every tail of
// the eight-pixel tiles, and of the plane-long rows of the 1x1 stride-1
// members through the plane size), one to three output rows (odd remainders
// of the two-row tiles), the blocked-layout channel list on both sides, with
// and without bias, with and without padding where the member pads.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "kernel/cpu/conv2d_test_util.h"

namespace tarn {
namespace testing {
namespace conv {

// A fixed-geometry member: its kernel, stride and whether it pads.
struct FixedMember {
  const char* name;
  unsigned lanes;
  unsigned ky, kx, s;
  bool pads;
  MemberDesc desc() const { return MemberDesc{name, lanes}; }
};

inline std::ostream& operator<<(std::ostream& os, const FixedMember& m) { return os << m.name; }

// The paddings a member is run with: none, and for members that pad the
// "same" border of its kernel and an asymmetric one.
inline std::vector<std::vector<unsigned>> PaddingsOf(const FixedMember& m) {
  std::vector<std::vector<unsigned>> p = {{0, 0, 0, 0}};
  if (m.pads) {
    p.push_back({m.kx / 2, m.kx / 2, m.ky / 2, m.ky / 2});
    p.push_back({m.kx > 1 ? 2u : 1u, 0, 0, m.ky > 1 ? 2u : 1u});
  }
  return p;
}

// The geometry of member m with output size oh x ow under padding `pad`
// (left, right, top, bottom).
inline ConvGeom FixedGeom(const FixedMember& m, unsigned c, unsigned n, unsigned oh, unsigned ow,
                          const std::vector<unsigned>& pad, bool bias) {
  const unsigned ph = (oh - 1) * m.s + m.ky, pw = (ow - 1) * m.s + m.kx;
  // Padding beyond what the kernel needs is taken off the input only as far
  // as the input keeps one row and column.
  const unsigned h = ph > pad[2] + pad[3] ? ph - pad[2] - pad[3] : 1;
  const unsigned w = pw > pad[0] + pad[1] ? pw - pad[0] - pad[1] : 1;
  return ConvGeom{c, n, h, w, m.ky, m.kx, m.s, m.s, 1, 1, 1, pad[0], pad[1], pad[2], pad[3], bias};
}

// Member m against the double reference on c -> n channels over output widths
// 1..17, heights 1..3 and every padding of the member, bias on every other.
inline void ExpectFixedMemberMatches(const FixedMember& m, unsigned c, unsigned n, unsigned seed) {
  const auto pads = PaddingsOf(m);
  for (unsigned ow = 1; ow <= 17; ++ow) {
    const ConvGeom g = FixedGeom(m, c, n, 1 + ow % 3, ow, pads[ow % pads.size()], ow % 2 == 0);
    EXPECT_TRUE(RunConvMember(m.desc(), g, seed + ow)) << g;
  }
}

// Without bias the output starts from zero even when the device hands out a
// block that held other data: the pool is first given back a block of the
// output's size full of NaN.
inline ::testing::AssertionResult StartsFromZero(const FixedMember& m) {
  const ConvGeom g = FixedGeom(m, 5, 9, 3, 6, PaddingsOf(m).back(), false);
  auto ctx = MakeContext();
  {
    const unsigned blocks = m.lanes == 1 ? g.n : (g.n + m.lanes - 1) / m.lanes;
    auto junk = StoredTensor(ctx->cpu, blocks, g.OutH(), g.OutW(), m.lanes,
                             std::vector<float>(std::size_t(blocks) * g.OutH() * g.OutW() * m.lanes,
                                                std::numeric_limits<float>::quiet_NaN()));
  }
  const std::vector<float> x = Random(std::size_t(g.c) * g.h * g.w, 11);
  const std::vector<float> w = Random(g.WeightCount(), 12);
  auto input = LayoutTensor(ctx->cpu, x, g.c, g.h, g.w, m.lanes);
  KernelRun run = RunKernel(m.name, MakeConv2dInfo(g, w, {}), ctx, input);
  if (!run.forwarded) return ::testing::AssertionFailure() << m.name << " failed";
  const float* o = static_cast<const float*>(run.outputs[0]->Data());
  const std::vector<float> got =
      m.lanes == 1 ? Values(run.outputs[0]) : FromBlocked(o, g.n, g.OutH(), g.OutW(), m.lanes);
  return Near(got, NaiveConv2d(g, x, w, {}));
}

// Records member m must refuse: another kernel size or stride, dilation 2,
// two groups, and (members without a padding helper) any padding; and the
// inputs of the wrong layout, rank or channel count.
inline void ExpectFixedRefusals(const FixedMember& m) {
  SCOPED_TRACE(m.name);
  auto ctx = MakeContext();
  auto kernel = CreateKernel(m.name);
  ASSERT_NE(kernel, nullptr);
  EXPECT_EQ(kernel->GetName(), m.name);
  const ConvGeom ok = FixedGeom(m, 8, 8, 3, 5, {0, 0, 0, 0}, true);
  using Mutation = void (*)(ConvGeom&);
  std::vector<Mutation> broken = {
      [](ConvGeom& g) { g.kx += 2; }, [](ConvGeom& g) { g.ky += 1; }, [](ConvGeom& g) { g.sx = 3 - g.sx; },
      [](ConvGeom& g) { g.sy = 3; },  [](ConvGeom& g) { g.dx = 2; },  [](ConvGeom& g) { g.g = 2; },
  };
  if (!m.pads) broken.push_back([](ConvGeom& g) { g.pt = 1; });
  for (Mutation mutate : broken) {
    ConvGeom g = ok;
    mutate(g);
    auto info = MakeConv2dInfo(g, Random(g.WeightCount(), 1), Random(g.n, 2));
    EXPECT_EQ(kernel->IsValidParam(info, nullptr), -1) << g;
    EXPECT_FALSE(kernel->Config(info, nullptr, ctx)) << g;
    EXPECT_FALSE(kernel->IsConfiged());
  }
  EXPECT_EQ(kernel->IsValidParam(std::make_shared<runtime::Conv1dInfo>(), nullptr), -1);
  EXPECT_EQ(kernel->IsValidParam(nullptr, nullptr), -1);

  ASSERT_TRUE(kernel->Config(MakeConv2dInfo(ok, Random(ok.WeightCount(), 1), Random(ok.n, 2)), nullptr, ctx));
  auto good = LayoutTensor(ctx->cpu, Random(8 * ok.h * ok.w, 3), 8, ok.h, ok.w, m.lanes);
  EXPECT_EQ(kernel->IsValidInput({good}), 0);
  const TensorShape::Layout other = m.lanes == 4 ? TensorShape::C8HW8 : TensorShape::C4HW4;
  std::vector<std::shared_ptr<runtime::Tensor>> bad = {
      LayoutTensor(ctx->cpu, Random(16 * ok.h * ok.w, 3), 16, ok.h, ok.w, m.lanes),  // channels
      MakeTensor(ctx->cpu, {8, ok.h * ok.w}, TensorShape::CHW, Random(8 * ok.h * ok.w, 3)),  // rank
      MakeTensor(ctx->cpu, {2, ok.h, ok.w, 4}, other, Random(8 * ok.h * ok.w, 3)),         // layout
      nullptr,
  };
  if (m.ky > 1) bad.push_back(LayoutTensor(ctx->cpu, Random(8 * (m.ky - 1) * ok.w, 3), 8, m.ky - 1, ok.w, m.lanes));  // too low
  ExpectInputsRefused(kernel, ctx, bad);
}

}  // namespace conv
}  // namespace testing
}  // namespace tarn
