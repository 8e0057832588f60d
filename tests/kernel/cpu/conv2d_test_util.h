// Running a convolution member end to end (record, Config, IsValidInput,
// Forward) against the double reference and the PyTorch fixtures, the
// refusals every member must make, and the checks of the vector tensor
// helpers the members pad and fill with. Each family's test file runs these
// bodies on its own members and helpers.
#pragma once

#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "kernel/cpu/conv_test_util.h"
#include "tarn/kernel/tensor_helpers.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace conv {

struct MemberDesc {
  const char* name;
  unsigned lanes;  // 1 CHW, 4 C4HW4, 8 C8HW8
};

// Runs member `m` on `g` with the given data and compares with `want`.
inline ::testing::AssertionResult RunConvMemberOn(const MemberDesc& m, const ConvGeom& g, const std::vector<float>& x,
                                                  const std::vector<float>& weight, const std::vector<float>& bias,
                                                  const Ref& want) {
  auto ctx = MakeContext();
  auto input = LayoutTensor(ctx->cpu, x, g.c, g.h, g.w, m.lanes);
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
  const float* o = static_cast<const float*>(out->Data());
  const unsigned oh = g.OutH(), ow = g.OutW();
  const std::vector<float> got =
      m.lanes == 1 ? std::vector<float>(o, o + std::size_t(g.n) * oh * ow) : FromBlocked(o, g.n, oh, ow, m.lanes);
  auto near = Near(got, want);
  if (!near) return near << " (" << m.name << ", " << g << ")";
  if (m.lanes != 1 && !TailLanesZero(o, g.n, oh, ow, m.lanes)) {
    return ::testing::AssertionFailure() << "tail lanes not zero (" << m.name << ", " << g << ")";
  }
  return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult RunConvMember(const MemberDesc& m, const ConvGeom& g, unsigned seed) {
  const std::vector<float> x = Random(std::size_t(g.c) * g.h * g.w, seed);
  const std::vector<float> weight = Random(g.WeightCount(), seed + 1);
  const std::vector<float> bias = g.bias ? Random(g.n, seed + 2) : std::vector<float>();
  return RunConvMemberOn(m, g, x, weight, bias, NaiveConv2d(g, x, weight, bias));
}

// The kernel part of a geometry (channels and input size filled in per case).
struct Geometry {
  unsigned ky, kx, sy, sx, dy, dx, pl, pr, pt, pb;
};

inline ConvGeom Make(const Geometry& k, unsigned c, unsigned n, unsigned g, unsigned h, unsigned w, bool bias) {
  return ConvGeom{c, n, h, w, k.ky, k.kx, k.sy, k.sx, k.dy, k.dx, g, k.pl, k.pr, k.pt, k.pb, bias};
}

// Smallest input extent the kernel fits after padding.
inline unsigned MinExtent(unsigned kernel, unsigned dilation, unsigned pad_a, unsigned pad_b) {
  const unsigned need = dilation * (kernel - 1) + 1;
  return need > pad_a + pad_b ? need - pad_a - pad_b : 1;
}

// Strides, dilations, asymmetric padding, non-square kernels.
inline const std::vector<Geometry>& Geometries() {
  static const std::vector<Geometry> g = {
      {3, 3, 1, 1, 1, 1, 1, 1, 1, 1},  // 3x3 same
      {3, 3, 2, 2, 1, 1, 1, 0, 2, 1},  // stride 2, asymmetric padding
      {3, 3, 1, 1, 2, 2, 2, 2, 2, 2},  // dilation 2 keeps the size
      {1, 1, 1, 1, 1, 1, 0, 0, 0, 0},  // 1x1
      {2, 3, 2, 1, 1, 2, 0, 1, 1, 0},  // mixed
      {5, 5, 1, 1, 1, 1, 2, 2, 2, 2},  // 5x5
      {7, 7, 2, 2, 1, 1, 3, 3, 3, 3},  // stem-like
      {1, 1, 2, 2, 1, 1, 0, 0, 0, 0},  // strided 1x1
  };
  return g;
}

// One group of ch.first -> ch.second channels on geometry k, 17 input widths
// (every tail length of the cores) and three heights, bias on every other.
inline void ExpectGridMatches(const MemberDesc& m, const Geometry& k, std::pair<unsigned, unsigned> ch, unsigned seed) {
  const unsigned h0 = MinExtent(k.ky, k.dy, k.pt, k.pb), w0 = MinExtent(k.kx, k.dx, k.pl, k.pr);
  for (unsigned extra = 0; extra < 17; ++extra) {
    const ConvGeom g = Make(k, ch.first, ch.second, 1, h0 + extra % 3, w0 + extra, extra % 2 == 0);
    EXPECT_TRUE(RunConvMember(m, g, seed + extra));
  }
}

// ------------------------------------------------------------------ PyTorch fixtures

// A conv2d fixture case as a geometry and its data.
struct FixtureCase {
  ConvGeom geom;
  std::vector<float> x, weight, bias, y;
};

inline FixtureCase ReadConv2DCase(const RefCase& c) {
  auto p = ParseParams(c);
  FixtureCase f;
  const auto& x = c.inputs[0];
  f.geom = ConvGeom{p["in_channels"].GetUint(), p["out_channels"].GetUint(), x.shape[1], x.shape[2],
                    p["kernel"][0].GetUint(), p["kernel"][1].GetUint(), p["stride"][0].GetUint(),
                    p["stride"][1].GetUint(), p["dilation"][0].GetUint(), p["dilation"][1].GetUint(),
                    p["groups"].GetUint(), p["padding"][0].GetUint(), p["padding"][1].GetUint(),
                    p["padding"][2].GetUint(), p["padding"][3].GetUint(), p["bias"].GetBool()};
  f.x = x.data;
  f.weight = c.inputs[1].data;
  if (f.geom.bias) f.bias = c.inputs[2].data;
  f.y = c.outputs[0].data;
  return f;
}

// Whether the member's name promises to take geometry g.
inline bool MemberTakes(const MemberDesc& m, const ConvGeom& g) {
  const std::string name = m.name;
  if (name.find("_G1_") != std::string::npos && g.g != 1) return false;
  if (name.find("K1x1") != std::string::npos) {
    return g.ky == 1 && g.kx == 1 && g.sy == 1 && g.sx == 1 && g.dy == 1 && g.dx == 1 && g.g == 1;
  }
  return true;
}

// Member m on every fixture case it takes: PyTorch's output, with the
// tolerance scale of the double reference on the same data.
inline void ExpectMatchesTorch(const MemberDesc& m) {
  const auto cases = LoadReference("conv2d");
  ASSERT_FALSE(cases.empty());
  int ran = 0;
  for (const RefCase& c : cases) {
    const FixtureCase f = ReadConv2DCase(c);
    if (!MemberTakes(m, f.geom)) continue;
    Ref want = NaiveConv2d(f.geom, f.x, f.weight, f.bias);
    want.value.assign(f.y.begin(), f.y.end());
    EXPECT_TRUE(RunConvMemberOn(m, f.geom, f.x, f.weight, f.bias, want)) << c.name;
    ++ran;
  }
  EXPECT_GT(ran, 0);
}

// ------------------------------------------------------------------ hostile records and inputs

// Broken records, blobs of the wrong size, inputs that do not fit and huge
// padding are refused by member m before Forward can run on them.
inline void ExpectRefusals(const MemberDesc& m) {
  auto ctx = MakeContext();
  auto kernel = CreateKernel(m.name);
  ASSERT_NE(kernel, nullptr);
  EXPECT_FALSE(kernel->IsConfiged());
  EXPECT_EQ(kernel->IsValidParam(std::make_shared<runtime::FullConnectionInfo>(), nullptr), -1);
  EXPECT_EQ(kernel->IsValidParam(nullptr, nullptr), -1);
  EXPECT_FALSE(kernel->Config(std::make_shared<runtime::Conv1dInfo>(), nullptr, ctx));

  // A padded 1x1 record every member takes, then broken by each mutation.
  const ConvGeom padded_one{4, 6, 5, 5, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, true};
  using Mutation = void (*)(runtime::Conv2dInfo&);
  const Mutation broken[] = {
      [](runtime::Conv2dInfo& i) { i.kernel_x = 0; },   [](runtime::Conv2dInfo& i) { i.stride_y = 0; },
      [](runtime::Conv2dInfo& i) { i.dilation_x = 0; }, [](runtime::Conv2dInfo& i) { i.groups = 0; },
      [](runtime::Conv2dInfo& i) { i.in_channels = 0; }, [](runtime::Conv2dInfo& i) { i.out_channels = 0; },
      [](runtime::Conv2dInfo& i) { i.groups = 3; },     [](runtime::Conv2dInfo& i) { i.groups = 4; },
  };
  for (const Mutation& mutate : broken) {
    auto info = MakeConv2dInfo(padded_one, Random(padded_one.WeightCount(), 3), Random(6, 2));
    mutate(*info);
    EXPECT_EQ(kernel->IsValidParam(info, nullptr), -1);
    EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
    EXPECT_FALSE(kernel->IsConfiged());
  }

  // Weight and bias counts must match the geometry.
  const ConvGeom one{4, 6, 5, 5, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, true};
  auto info = MakeConv2dInfo(one, Random(one.WeightCount(), 1), Random(one.n, 2));
  ASSERT_TRUE(kernel->Config(info, nullptr, ctx));
  info->weight = runtime::EncodeWeights(Random(one.WeightCount() - 1, 1));
  EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
  EXPECT_FALSE(kernel->IsConfiged());
  info->weight = runtime::EncodeWeights(Random(one.WeightCount() + 1, 1));
  EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
  info->weight = runtime::EncodeWeights(Random(one.WeightCount(), 1));
  info->bias = runtime::EncodeWeights(Random(one.n - 1, 2));
  EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
  info->bias = "";
  EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
  info->if_bias = false;  // without the flag the blob is not read
  EXPECT_TRUE(kernel->Config(info, nullptr, ctx));
  EXPECT_FALSE(kernel->Config(info, nullptr, nullptr));

  // Inputs that do not fit. Beyond 1x1: 3x3 with dilation 2 and one row and
  // column of padding, so the padded input must be at least 5 x 5.
  const bool one_by_one = std::string(m.name).find("K1x1") != std::string::npos;
  const ConvGeom g = one_by_one ? one : ConvGeom{4, 6, 5, 5, 3, 3, 1, 1, 2, 2, 1, 1, 0, 1, 0, true};
  ASSERT_TRUE(kernel->Config(MakeConv2dInfo(g, Random(g.WeightCount(), 1), Random(6, 2)), nullptr, ctx));
  auto ok = LayoutTensor(ctx->cpu, Random(4 * 5 * 5, 3), 4, 5, 5, m.lanes);
  EXPECT_EQ(kernel->IsValidInput({ok}), 0);
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  std::vector<std::shared_ptr<runtime::Tensor>> bad = {
      LayoutTensor(ctx->cpu, Random(9 * 5 * 5, 3), 9, 5, 5, m.lanes),    // channels
      LayoutTensor(ctx->cpu, Random(12 * 5 * 5, 3), 12, 5, 5, m.lanes),  // channels
      MakeTensor(ctx->cpu, {4, 25}, TensorShape::CHW, Random(100, 3)),   // rank
      MakeTensor(ctx->cpu, {1, 5, 5, 4}, m.lanes == 4 ? TensorShape::C8HW8 : TensorShape::C4HW4,
                 Random(100, 3)),                                                                  // layout
      ctx->cpu->CreateTensor(runtime::MakeShape(ok->shape.dims, TensorShape::INT32, ok->shape.layout)),  // type
      nullptr,
  };
  if (!one_by_one) {
    bad.push_back(LayoutTensor(ctx->cpu, Random(4 * 3 * 5, 3), 4, 3, 5, m.lanes));  // 4 rows padded
    bad.push_back(LayoutTensor(ctx->cpu, Random(4 * 5 * 3, 3), 4, 5, 3, m.lanes));  // 4 columns padded
  }
  ExpectInputsRefused(kernel, ctx, bad);
  for (const auto& t : bad) {
    if (t) {
      EXPECT_TRUE(kernel->GetOutputShapes({t->shape}).empty()) << t->shape.dims.size() << "-d input";
    }
  }
  EXPECT_EQ(kernel->IsValidInput({ok, ok}), -2);
  EXPECT_EQ(kernel->IsValidInput({}), -2);
  EXPECT_FALSE(kernel->Forward({ok}, outputs, nullptr));
  EXPECT_TRUE(kernel->Forward({ok}, outputs, ctx));
  auto fresh = CreateKernel(m.name);
  EXPECT_EQ(fresh->IsValidInput({ok}), -2);  // never configured
  EXPECT_FALSE(fresh->Forward({ok}, outputs, ctx));

  // Huge padding is refused, not allocated.
  ConvGeom huge = one;
  huge.pl = huge.pr = huge.pt = huge.pb = 65535;
  huge.bias = false;
  ASSERT_TRUE(kernel->Config(MakeConv2dInfo(huge, Random(huge.WeightCount(), 1), {}), nullptr, ctx));
  EXPECT_EQ(kernel->IsValidInput({LayoutTensor(ctx->cpu, Random(100, 3), 4, 5, 5, m.lanes)}), -2);
}

// ------------------------------------------------------------------ vector tensor helpers

using FillFn = void (*)(const TensorCPUPtr&, const TensorCPUPtr&);
using PadFn = TensorCPUPtr (*)(const TensorCPUPtr&, unsigned, unsigned, unsigned, unsigned, float,
                               const std::shared_ptr<runtime::DeviceCPU>&);

struct FillDesc {
  const char* name;
  FillFn fill;
  unsigned lanes;
};

// f.fill writes bias[c] into every pixel of channel c of a tensor of junk,
// and zero into the tail lanes, for every channel count of the blocked-layout
// list and planes of several sizes.
inline void ExpectFillsBias(const FillDesc& f) {
  auto ctx = MakeContext();
  for (unsigned channels : {1u, 3u, 4u, 5u, 8u, 9u, 13u, 16u, 17u}) {
    const std::vector<float> bias = Random(channels, channels);
    auto b = MakeTensor(ctx->cpu, {channels}, TensorShape::CHW, bias);
    for (unsigned plane : {1u, 2u, 3u, 5u, 8u, 9u, 17u}) {
      const unsigned h = plane % 2 ? 1 : 2, w = plane / h;
      const unsigned blocks = f.lanes == 1 ? channels : kernel::ChannelBlocks(channels, f.lanes);
      auto t = StoredTensor(ctx->cpu, blocks, h, w, f.lanes,
                            std::vector<float>(std::size_t(blocks) * h * w * f.lanes, 7.0f));
      f.fill(t, b);
      std::vector<float> planar(std::size_t(channels) * h * w);
      for (unsigned c = 0; c < channels; ++c)
        for (unsigned p = 0; p < h * w; ++p) planar[std::size_t(c) * h * w + p] = bias[c];
      const std::vector<float> want = f.lanes == 1 ? planar : ToBlocked(planar, channels, h, w, f.lanes);
      EXPECT_EQ(Values(t), want) << f.name << ", " << channels << " channels, plane " << plane;
    }
  }
}

// `pad` enlarges two planes of 3 rows and widths 1..17 (every copy tail) by
// `border` (left, right, top, bottom), the border holding `value`; CHW also
// bit for bit as the portable padding does it.
inline void ExpectPads(const char* name, PadFn pad, unsigned lanes, const std::vector<unsigned>& border, float value) {
  auto ctx = MakeContext();
  for (unsigned w = 1; w <= 17; ++w) {
    const unsigned planes = 2, h = 3;
    const std::vector<float> data = Random(std::size_t(planes) * h * w * lanes, w);
    auto in = StoredTensor(ctx->cpu, planes, h, w, lanes, data);
    auto out = pad(in, border[0], border[1], border[2], border[3], value, ctx->cpu);
    const unsigned oh = h + border[2] + border[3], ow = w + border[0] + border[1];
    ASSERT_EQ(out->shape.dims[1], oh);
    ASSERT_EQ(out->shape.dims[2], ow);
    ASSERT_EQ(out->shape.layout, in->shape.layout);
    const float* o = out->DataAs<float>();
    for (unsigned p = 0; p < planes; ++p)
      for (unsigned y = 0; y < oh; ++y)
        for (unsigned x = 0; x < ow; ++x)
          for (unsigned l = 0; l < lanes; ++l) {
            const bool inside = y >= border[2] && y < border[2] + h && x >= border[0] && x < border[0] + w;
            const float want =
                inside ? data[((std::size_t(p) * h + y - border[2]) * w + x - border[0]) * lanes + l] : value;
            ASSERT_EQ(o[((std::size_t(p) * oh + y) * ow + x) * lanes + l], want)
                << name << " w " << w << " at " << p << "," << y << "," << x << "," << l;
          }
    if (lanes == 1) {
      auto reference = kernel::Padding_HW_MainMemory_CHW_Float_Fallback_M1(in, border[0], border[1], border[2],
                                                                           border[3], value, ctx->cpu);
      EXPECT_EQ(Values(out), Values(reference));
    }
  }
}

// The borders the padding helpers are checked with.
inline std::vector<std::vector<unsigned>> Borders() { return {{0, 0, 0, 0}, {1, 1, 1, 1}, {2, 0, 1, 3}, {0, 5, 0, 1}}; }

}  // namespace conv
}  // namespace testing
}  // namespace tarn

// The fixture and refusal checks of every member in `members` (an array of
// conv::MemberDesc), as tests of the file that expands this: its path names
// the members' instruction-set family.
#define TRN_CONV2D_MEMBER_TESTS(Suite, members)                                                                  \
  class Suite : public ::testing::TestWithParam<int> {};                                                        \
  TEST_P(Suite, MatchesPyTorch) { ::tarn::testing::conv::ExpectMatchesTorch(members[GetParam()]); }              \
  TEST_P(Suite, RefusesHostileRecordsAndInputs) { ::tarn::testing::conv::ExpectRefusals(members[GetParam()]); } \
  INSTANTIATE_TEST_SUITE_P(Members, Suite, ::testing::Range(0, static_cast<int>(std::size(members))),            \
                           [](const auto& info) { return std::string(members[info.param].name); })
