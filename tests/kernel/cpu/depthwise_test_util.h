// Checks of the depthwise and transposed convolution members: records, the
// double reference of the transposed convolution, running a member end to end
// against it and against the PyTorch fixtures, and the refusals. Each
// family's test file runs these bodies on its own members. Tolerance as in
// conv_test_util.h.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "kernel/cpu/conv2d_test_util.h"
#include "kernel/cpu/conv_test_util.h"

namespace tarn {
namespace testing {
namespace conv {

// Runs registered member `name` (lanes 1 CHW, 4 C4HW4, 8 C8HW8) configured
// with `info` on the CHW map x [c, h, w] and compares its output, brought
// back to CHW, with `want` [n, oh, ow]; also checks GetOutputShapes,
// IsValidOutput and that blocked tail lanes stay zero.
inline ::testing::AssertionResult RunMemberOn(const char* name, unsigned lanes,
                                              const std::shared_ptr<runtime::LayerInfo>& info,
                                              const std::vector<float>& x, unsigned c, unsigned h, unsigned w,
                                              unsigned n, unsigned oh, unsigned ow, const Ref& want) {
  auto ctx = MakeContext();
  auto input = LayoutTensor(ctx->cpu, x, c, h, w, lanes);
  KernelRun run = RunKernel(name, info, ctx, input);
  if (!run.kernel) return ::testing::AssertionFailure() << name << " is not registered";
  if (!run.configured) return ::testing::AssertionFailure() << name << " refused Config";
  if (run.valid != 0) return ::testing::AssertionFailure() << name << " refused the input";
  if (!run.forwarded || run.outputs.size() != 1) return ::testing::AssertionFailure() << name << " Forward failed";
  const auto& out = run.outputs[0];
  const std::vector<unsigned> dims =
      lanes == 1 ? std::vector<unsigned>{n, oh, ow} : std::vector<unsigned>{(n + lanes - 1) / lanes, oh, ow, lanes};
  if (out->shape.dims != dims) return ::testing::AssertionFailure() << name << ": output dims";
  const auto shapes = run.kernel->GetOutputShapes({input->shape});
  if (shapes.size() != 1 || shapes[0].dims != dims || shapes[0].layout != out->shape.layout) {
    return ::testing::AssertionFailure() << name << ": GetOutputShapes disagrees with the output";
  }
  if (run.kernel->IsValidOutput(run.outputs) != 0) return ::testing::AssertionFailure() << "IsValidOutput refused";
  const float* o = static_cast<const float*>(out->Data());
  const std::vector<float> got =
      lanes == 1 ? std::vector<float>(o, o + std::size_t(n) * oh * ow) : FromBlocked(o, n, oh, ow, lanes);
  auto near = Near(got, want);
  if (!near) return near << " (" << name << ")";
  if (lanes != 1 && !TailLanesZero(o, n, oh, ow, lanes)) return ::testing::AssertionFailure() << "tail lanes not zero";
  return ::testing::AssertionSuccess();
}

// ------------------------------------------------------------------ depthwise

struct DepthwiseMember {
  const char* name;
  unsigned lanes, kernel, stride;
  MemberDesc desc() const { return {name, lanes}; }
};

// Channel counts of the depthwise checks: one block, a partial second block
// (the 6-channel trap of rounding-down packers), whole blocks of both widths,
// three C4HW4 blocks, and MobileNetV2's 144.
inline const std::vector<unsigned>& DepthwiseChannels() {
  static const std::vector<unsigned> c = {4, 6, 8, 12, 144};
  return c;
}

// A depthwise geometry of member m with an output of out_h x out_w: "same"
// padding, none, or asymmetric borders; `extra` adds an input row and column
// the stride skips.
inline ConvGeom DepthwiseGeom(const DepthwiseMember& m, unsigned c, unsigned out_h, unsigned out_w, int padding,
                              unsigned extra, bool bias) {
  const unsigned k = m.kernel, s = m.stride, half = k / 2;
  unsigned pl = 0, pr = 0, pt = 0, pb = 0;
  if (padding == 1) pl = pr = pt = pb = half;
  if (padding == 2) pl = k - 1, pr = 0, pt = 1, pb = k - 2;
  const unsigned h = (out_h - 1) * s + k - pt - pb + (s > 1 ? extra : 0);
  const unsigned w = (out_w - 1) * s + k - pl - pr + (s > 1 ? extra : 0);
  return ConvGeom{c, c, h, w, k, k, s, s, 1, 1, c, pl, pr, pt, pb, bias};
}

// Member m on c channels against the double reference: output widths 1..20
// (every tile width and pixel tail of the steps), 1 to 3 rows, three
// paddings, with and without bias.
inline void ExpectDepthwiseGrid(const DepthwiseMember& m, unsigned c, unsigned seed) {
  for (int padding = 0; padding < 3; ++padding) {
    for (unsigned out_w = 1; out_w <= 20; ++out_w) {
      const bool bias = (out_w + padding) % 2 == 0;
      const ConvGeom g = DepthwiseGeom(m, c, 1 + out_w % 3, out_w, padding, out_w % 2, bias);
      ASSERT_EQ(g.OutW(), out_w) << g;
      EXPECT_TRUE(RunConvMember(m.desc(), g, seed + out_w)) << g;
    }
  }
}

// Member m on every depthwise fixture case of its kernel and stride:
// PyTorch's output with the tolerance scale of the double reference.
inline void ExpectDepthwiseMatchesTorch(const DepthwiseMember& m) {
  const auto cases = LoadReference("depthwise_transposed/depthwise");
  ASSERT_FALSE(cases.empty());
  int ran = 0;
  for (const RefCase& c : cases) {
    const FixtureCase f = ReadConv2DCase(c);
    if (f.geom.ky != m.kernel || f.geom.sy != m.stride) continue;
    Ref want = NaiveConv2d(f.geom, f.x, f.weight, f.bias);
    EXPECT_TRUE(Near(f.y, want)) << "double reference, " << c.name;
    want.value.assign(f.y.begin(), f.y.end());
    EXPECT_TRUE(RunConvMemberOn(m.desc(), f.geom, f.x, f.weight, f.bias, want)) << c.name;
    ++ran;
  }
  EXPECT_GT(ran, 0);
}

// Records that are not the member's depthwise layer, blobs of the wrong size,
// inputs that do not fit and huge padding are refused before Forward.
inline void ExpectDepthwiseRefusals(const DepthwiseMember& m) {
  SCOPED_TRACE(m.name);
  auto ctx = MakeContext();
  auto kernel = CreateKernel(m.name);
  ASSERT_NE(kernel, nullptr);
  const unsigned k = m.kernel, s = m.stride;
  const ConvGeom ok{6, 6, 9, 9, k, k, s, s, 1, 1, 6, k / 2, k / 2, k / 2, k / 2, true};
  auto info = [&](const ConvGeom& g) {
    return MakeConv2dInfo(g, Random(g.WeightCount(), 1), Random(g.n, 2));
  };
  ASSERT_TRUE(kernel->Config(info(ok), nullptr, ctx));
  EXPECT_EQ(kernel->IsValidParam(std::make_shared<runtime::ConvTranspose2dInfo>(), nullptr), -1);
  using Mutation = void (*)(ConvGeom&);
  const Mutation broken[] = {
      [](ConvGeom& g) { g.g = 1; },                  // a full convolution
      [](ConvGeom& g) { g.g = 3; },                  // two channels per group
      [](ConvGeom& g) { g.n = 12; },                 // channel multiplier 2
      [](ConvGeom& g) { g.ky = g.kx = g.ky + 2; },   // another kernel
      [](ConvGeom& g) { g.kx = 1; },                 // not square
      [](ConvGeom& g) { g.sy = g.sx = 3 - g.sy; },   // the other stride
      [](ConvGeom& g) { g.sx = 3 - g.sx; },          // strides differ
      [](ConvGeom& g) { g.dy = g.dx = 2; },          // dilated
  };
  for (const Mutation& mutate : broken) {
    ConvGeom g = ok;
    mutate(g);
    auto record = info(g);
    EXPECT_EQ(kernel->IsValidParam(record, nullptr), -1) << g;
    EXPECT_FALSE(kernel->Config(record, nullptr, ctx)) << g;
    EXPECT_FALSE(kernel->IsConfiged());
  }
  auto record = info(ok);
  record->weight = runtime::EncodeWeights(Random(ok.WeightCount() - 1, 1));
  EXPECT_FALSE(kernel->Config(record, nullptr, ctx));
  record->weight = runtime::EncodeWeights(Random(ok.WeightCount(), 1));
  record->bias = runtime::EncodeWeights(Random(ok.n + 1, 2));
  EXPECT_FALSE(kernel->Config(record, nullptr, ctx));
  record->if_bias = false;
  ASSERT_TRUE(kernel->Config(record, nullptr, ctx));

  auto fits = LayoutTensor(ctx->cpu, Random(6 * 9 * 9, 3), 6, 9, 9, m.lanes);
  EXPECT_EQ(kernel->IsValidInput({fits}), 0);
  ExpectInputsRefused(kernel, ctx,
                      {LayoutTensor(ctx->cpu, Random(9 * 9 * 9, 3), 9, 9, 9, m.lanes),  // channels
                       MakeTensor(ctx->cpu, {6, 81}, TensorShape::CHW, Random(6 * 81, 3)),
                       m.lanes == 8 ? LayoutTensor(ctx->cpu, Random(6 * 81, 3), 6, 9, 9, 4)
                                    : LayoutTensor(ctx->cpu, Random(6 * 81, 3), 6, 9, 9, 8),  // layout
                       ctx->cpu->CreateTensor(runtime::MakeShape(
                           m.lanes == 1 ? std::vector<unsigned>{6, 0, 9}
                                        : std::vector<unsigned>{(6 + m.lanes - 1) / m.lanes, 0, 9, m.lanes},
                           TensorShape::FLOAT32, fits->shape.layout)),  // no rows
                       nullptr});
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_FALSE(kernel->Forward({fits}, outputs, nullptr));
  EXPECT_TRUE(kernel->Forward({fits}, outputs, ctx));

  // Huge padding is refused, not allocated.
  ConvGeom huge = ok;
  huge.pl = huge.pr = huge.pt = huge.pb = 65535;
  ASSERT_TRUE(kernel->Config(info(huge), nullptr, ctx));
  auto wide = LayoutTensor(ctx->cpu, Random(6 * 9 * 9, 3), 6, 9, 9, m.lanes);
  EXPECT_EQ(kernel->IsValidInput({wide}), -2);
  EXPECT_TRUE(kernel->GetOutputShapes({wide->shape}).empty());
}

// ------------------------------------------------------------------ transposed

// A transposed convolution case: PyTorch ConvTranspose2d with the record's
// signed paddings (output_padding lowers the end paddings).
struct TransposeGeom {
  unsigned c, n, h, w;  // input channels, output channels, input size
  unsigned ky, kx, sy, sx, dy, dx, g;
  int pl, pr, pt, pb;
  bool bias;
  int FullH() const { return int((h - 1) * sy + dy * (ky - 1) + 1); }
  int FullW() const { return int((w - 1) * sx + dx * (kx - 1) + 1); }
  int OutH() const { return FullH() - pt - pb; }
  int OutW() const { return FullW() - pl - pr; }
  std::size_t WeightCount() const { return std::size_t(c) * (n / g) * ky * kx; }
};

inline std::ostream& operator<<(std::ostream& os, const TransposeGeom& g) {
  return os << g.c << "->" << g.n << " " << g.h << "x" << g.w << " k" << g.ky << "x" << g.kx << " s" << g.sy << "x"
            << g.sx << " d" << g.dy << "x" << g.dx << " g" << g.g << " pad(l" << g.pl << ",r" << g.pr << ",t" << g.pt
            << ",b" << g.pb << ")" << (g.bias ? " bias" : "");
}

inline std::shared_ptr<runtime::ConvTranspose2dInfo> MakeConvTranspose2dInfo(const TransposeGeom& g,
                                                                             const std::vector<float>& weight,
                                                                             const std::vector<float>& bias) {
  auto info = std::make_shared<runtime::ConvTranspose2dInfo>();
  info->in_channels = static_cast<std::uint16_t>(g.c);
  info->out_channels = static_cast<std::uint16_t>(g.n);
  info->kernel_y = static_cast<std::uint16_t>(g.ky);
  info->kernel_x = static_cast<std::uint16_t>(g.kx);
  info->stride_y = static_cast<std::uint16_t>(g.sy);
  info->stride_x = static_cast<std::uint16_t>(g.sx);
  info->dilation_y = static_cast<std::uint16_t>(g.dy);
  info->dilation_x = static_cast<std::uint16_t>(g.dx);
  info->groups = static_cast<std::uint16_t>(g.g);
  info->padding_l = static_cast<std::int16_t>(g.pl);
  info->padding_r = static_cast<std::int16_t>(g.pr);
  info->padding_t = static_cast<std::int16_t>(g.pt);
  info->padding_b = static_cast<std::int16_t>(g.pb);
  info->if_bias = g.bias;
  info->weight = runtime::EncodeWeights(weight);
  if (g.bias) info->bias = runtime::EncodeWeights(bias);
  return info;
}

// The transposed convolution in double, straight from its definition: input
// pixel (iy, ix) times tap (ky, kx) lands on (iy * sy + ky * dy - pt,
// ix * sx + kx * dx - pl); pixels nobody reaches hold the bias.
inline Ref NaiveConvTranspose2d(const TransposeGeom& g, const std::vector<float>& x, const std::vector<float>& weight,
                                const std::vector<float>& bias) {
  const int oh = g.OutH(), ow = g.OutW();
  const unsigned cg = g.c / g.g, ng = g.n / g.g;
  const std::size_t count = std::size_t(g.n) * oh * ow;
  Ref r{std::vector<double>(count, 0.0), std::vector<double>(count, 0.0)};
  for (unsigned o = 0; o < g.n; ++o)
    for (int p = 0; p < oh * ow; ++p) {
      r.value[std::size_t(o) * oh * ow + p] = g.bias ? bias[o] : 0.0;
      r.scale[std::size_t(o) * oh * ow + p] = g.bias ? std::fabs(bias[o]) : 0.0;
    }
  for (unsigned ci = 0; ci < g.c; ++ci) {
    const unsigned grp = ci / cg;
    for (unsigned n = 0; n < ng; ++n) {
      const unsigned o = grp * ng + n;
      for (unsigned iy = 0; iy < g.h; ++iy)
        for (unsigned ix = 0; ix < g.w; ++ix)
          for (unsigned ky = 0; ky < g.ky; ++ky)
            for (unsigned kx = 0; kx < g.kx; ++kx) {
              const int y = int(iy * g.sy + ky * g.dy) - g.pt, xx = int(ix * g.sx + kx * g.dx) - g.pl;
              if (y < 0 || xx < 0 || y >= oh || xx >= ow) continue;
              const double a = weight[((std::size_t(ci) * ng + n) * g.ky + ky) * g.kx + kx];
              const double b = x[(std::size_t(ci) * g.h + iy) * g.w + ix];
              const std::size_t at = (std::size_t(o) * oh + y) * ow + xx;
              r.value[at] += a * b;
              r.scale[at] += std::fabs(a * b);
            }
    }
  }
  return r;
}

inline ::testing::AssertionResult RunTransposeMemberOn(const MemberDesc& m, const TransposeGeom& g,
                                                       const std::vector<float>& x, const std::vector<float>& weight,
                                                       const std::vector<float>& bias, const Ref& want) {
  auto result = RunMemberOn(m.name, m.lanes, MakeConvTranspose2dInfo(g, weight, bias), x, g.c, g.h, g.w, g.n,
                            unsigned(g.OutH()), unsigned(g.OutW()), want);
  return result ? result : result << " at " << g;
}

inline ::testing::AssertionResult RunTransposeMember(const MemberDesc& m, const TransposeGeom& g, unsigned seed) {
  const std::vector<float> x = Random(std::size_t(g.c) * g.h * g.w, seed);
  const std::vector<float> weight = Random(g.WeightCount(), seed + 1);
  const std::vector<float> bias = g.bias ? Random(g.n, seed + 2) : std::vector<float>();
  return RunTransposeMemberOn(m, g, x, weight, bias, NaiveConvTranspose2d(g, x, weight, bias));
}

// The kernel part of a transposed geometry.
struct TransposeKernel {
  unsigned ky, kx, sy, sx, dy, dx;
  int pl, pr, pt, pb;
};

// 3x3, dilation 1, with every stride phase pattern (stride 1, 2, 3, beyond
// the kernel, mixed) and every kind of padding: none (nothing to cut), "same",
// output padding (negative end), asymmetric, negative begin.
inline const std::vector<TransposeKernel>& Transpose3x3Kernels() {
  static const std::vector<TransposeKernel> k = {
      {3, 3, 1, 1, 1, 1, 0, 0, 0, 0},  {3, 3, 1, 1, 1, 1, 1, 1, 1, 1},   {3, 3, 2, 2, 1, 1, 1, 0, 1, 0},
      {3, 3, 2, 2, 1, 1, 0, 0, 0, 0},  {3, 3, 3, 3, 1, 1, 1, -1, 1, -1}, {3, 3, 4, 4, 1, 1, 0, 0, 0, 0},
      {3, 3, 1, 2, 1, 1, 2, 0, 0, 1},  {3, 3, 2, 3, 1, 1, -1, 2, 0, 1},
  };
  return k;
}

// Beyond 3x3: dilations, other kernels, larger negative paddings.
inline const std::vector<TransposeKernel>& TransposeOtherKernels() {
  static const std::vector<TransposeKernel> k = {
      {3, 3, 2, 2, 2, 2, 2, 1, 2, 1},  {2, 3, 2, 1, 1, 2, 0, 1, 1, 0}, {5, 5, 2, 2, 1, 1, 2, 1, 2, 1},
      {1, 1, 2, 2, 1, 1, 0, -1, 0, -1}, {4, 4, 2, 2, 1, 1, 1, 1, 1, 1}, {3, 1, 3, 1, 3, 1, 1, 0, -2, 2},
  };
  return k;
}

inline TransposeGeom MakeTranspose(const TransposeKernel& k, unsigned c, unsigned n, unsigned g, unsigned h, unsigned w,
                                   bool bias) {
  return TransposeGeom{c, n, h, w, k.ky, k.kx, k.sy, k.sx, k.dy, k.dx, g, k.pl, k.pr, k.pt, k.pb, bias};
}

// Member m on kernel k over channel pairs with every tail of the block
// layouts, input widths 1..max_w (every register tile width of the phase
// rows) and 1 to 3 rows. Inputs too small for the paddings are skipped.
inline void ExpectTransposeGrid(const MemberDesc& m, const TransposeKernel& k, unsigned max_w, unsigned seed) {
  for (const auto& ch : ChannelPairs()) {
    for (unsigned w = 1; w <= max_w; ++w) {
      const TransposeGeom g = MakeTranspose(k, ch.first, ch.second, 1, 1 + (w + ch.first) % 3, w, (w + ch.second) % 2 == 0);
      if (g.OutH() < 1 || g.OutW() < 1) continue;
      EXPECT_TRUE(RunTransposeMember(m, g, seed + w));
    }
  }
}

// A transposed fixture case as a geometry and its data.
struct TransposeFixture {
  TransposeGeom geom;
  std::vector<float> x, weight, bias, y;
};

inline TransposeFixture ReadTransposeCase(const RefCase& c) {
  auto p = ParseParams(c);
  TransposeFixture f;
  const auto& x = c.inputs[0];
  f.geom = TransposeGeom{p["in_channels"].GetUint(),  p["out_channels"].GetUint(), x.shape[1],
                         x.shape[2],                   p["kernel"][0].GetUint(),   p["kernel"][1].GetUint(),
                         p["stride"][0].GetUint(),     p["stride"][1].GetUint(),   p["dilation"][0].GetUint(),
                         p["dilation"][1].GetUint(),   p["groups"].GetUint(),      p["padding"][0].GetInt(),
                         p["padding"][1].GetInt(),     p["padding"][2].GetInt(),   p["padding"][3].GetInt(),
                         p["bias"].GetBool()};
  f.x = x.data;
  f.weight = c.inputs[1].data;
  if (f.geom.bias) f.bias = c.inputs[2].data;
  f.y = c.outputs[0].data;
  return f;
}

// Member m on every transposed fixture case it takes (all of them, or the
// 3x3, dilation-1, one-group ones): PyTorch's output, after checking the
// double reference on the case.
inline void ExpectTransposeMatchesTorch(const MemberDesc& m, bool only_3x3) {
  const auto cases = LoadReference("depthwise_transposed/conv_transpose2d");
  ASSERT_FALSE(cases.empty());
  int ran = 0;
  for (const RefCase& c : cases) {
    const TransposeFixture f = ReadTransposeCase(c);
    Ref want = NaiveConvTranspose2d(f.geom, f.x, f.weight, f.bias);
    EXPECT_TRUE(Near(f.y, want)) << "double reference, " << c.name;
    const TransposeGeom& g = f.geom;
    if (only_3x3 && !(g.ky == 3 && g.kx == 3 && g.dy == 1 && g.dx == 1 && g.g == 1)) continue;
    want.value.assign(f.y.begin(), f.y.end());
    EXPECT_TRUE(RunTransposeMemberOn(m, g, f.x, f.weight, f.bias, want)) << c.name;
    ++ran;
  }
  EXPECT_GT(ran, 0);
}

// Broken records, blobs of the wrong size, geometries a specialised member
// does not take, inputs that do not fit and outputs that would be empty or
// huge are refused before Forward.
inline void ExpectTransposeRefusals(const MemberDesc& m, bool only_3x3) {
  SCOPED_TRACE(m.name);
  auto ctx = MakeContext();
  auto kernel = CreateKernel(m.name);
  ASSERT_NE(kernel, nullptr);
  EXPECT_FALSE(kernel->IsConfiged());
  EXPECT_EQ(kernel->IsValidParam(std::make_shared<runtime::Conv2dInfo>(), nullptr), -1);
  EXPECT_EQ(kernel->IsValidParam(nullptr, nullptr), -1);
  const TransposeGeom ok{4, 6, 5, 5, 3, 3, 2, 2, 1, 1, 1, 1, 0, 1, 0, true};
  auto info = [](const TransposeGeom& g) {
    return MakeConvTranspose2dInfo(g, Random(g.WeightCount(), 1), Random(g.n, 2));
  };
  ASSERT_TRUE(kernel->Config(info(ok), nullptr, ctx));
  using Mutation = void (*)(runtime::ConvTranspose2dInfo&);
  std::vector<Mutation> broken = {
      [](runtime::ConvTranspose2dInfo& i) { i.kernel_x = 0; },   [](runtime::ConvTranspose2dInfo& i) { i.stride_y = 0; },
      [](runtime::ConvTranspose2dInfo& i) { i.dilation_x = 0; }, [](runtime::ConvTranspose2dInfo& i) { i.groups = 0; },
      [](runtime::ConvTranspose2dInfo& i) { i.groups = 4; },     [](runtime::ConvTranspose2dInfo& i) { i.in_channels = 0; },
      [](runtime::ConvTranspose2dInfo& i) { i.out_channels = 0; },
  };
  if (only_3x3) {
    broken.push_back([](runtime::ConvTranspose2dInfo& i) { i.kernel_y = 5; });
    broken.push_back([](runtime::ConvTranspose2dInfo& i) { i.dilation_y = 2; });
    broken.push_back([](runtime::ConvTranspose2dInfo& i) { i.groups = 2; });
  }
  for (const Mutation& mutate : broken) {
    auto record = info(ok);
    mutate(*record);
    EXPECT_EQ(kernel->IsValidParam(record, nullptr), -1);
    EXPECT_FALSE(kernel->Config(record, nullptr, ctx));
    EXPECT_FALSE(kernel->IsConfiged());
  }
  auto record = info(ok);
  record->weight = runtime::EncodeWeights(Random(ok.WeightCount() + 1, 1));
  EXPECT_FALSE(kernel->Config(record, nullptr, ctx));
  record->weight = runtime::EncodeWeights(Random(ok.WeightCount(), 1));
  record->bias = "";
  EXPECT_FALSE(kernel->Config(record, nullptr, ctx));
  record->if_bias = false;
  ASSERT_TRUE(kernel->Config(record, nullptr, ctx));
  EXPECT_FALSE(kernel->Config(record, nullptr, nullptr));
  ASSERT_TRUE(kernel->Config(record, nullptr, ctx));

  auto fits = LayoutTensor(ctx->cpu, Random(4 * 5 * 5, 3), 4, 5, 5, m.lanes);
  EXPECT_EQ(kernel->IsValidInput({fits}), 0);
  ExpectInputsRefused(kernel, ctx,
                      {LayoutTensor(ctx->cpu, Random(12 * 5 * 5, 3), 12, 5, 5, m.lanes),  // channels
                       MakeTensor(ctx->cpu, {4, 25}, TensorShape::CHW, Random(100, 3)),  // rank
                       ctx->cpu->CreateTensor(runtime::MakeShape(fits->shape.dims, TensorShape::INT32,
                                                                 fits->shape.layout)),  // type
                       ctx->cpu->CreateTensor(runtime::MakeShape(
                           m.lanes == 1 ? std::vector<unsigned>{4, 0, 5} : std::vector<unsigned>{1, 5, 0, m.lanes},
                           TensorShape::FLOAT32, fits->shape.layout)),  // empty
                       nullptr});
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_FALSE(kernel->Forward({fits}, outputs, nullptr));
  EXPECT_TRUE(kernel->Forward({fits}, outputs, ctx));
  auto fresh = CreateKernel(m.name);
  EXPECT_EQ(fresh->IsValidInput({fits}), -2);

  // Paddings that leave no output, and negative paddings that would grow the
  // output past the int range, are refused; 5 leaves one pixel of the
  // 11-pixel scatter of a 5-pixel input.
  for (int pad : {5, 6, -32768}) {
    TransposeGeom g = ok;
    g.pl = g.pr = g.pt = g.pb = pad;
    ASSERT_TRUE(kernel->Config(info(g), nullptr, ctx)) << pad;
    const bool valid = pad == 5;
    EXPECT_EQ(kernel->IsValidInput({fits}), valid ? 0 : -2) << pad;
    EXPECT_EQ(kernel->GetOutputShapes({fits->shape}).empty(), !valid) << pad;
  }
}

}  // namespace conv
}  // namespace testing
}  // namespace tarn

// The depthwise checks of every member in `members` (an array of
// conv::DepthwiseMember), as tests of the file that expands this: its path
// names the members' instruction-set family.
#define TRN_DEPTHWISE_MEMBER_TESTS(Suite, members)                                                              \
  class Suite##Grid : public ::testing::TestWithParam<std::tuple<int, int>> {};                                 \
  TEST_P(Suite##Grid, MatchesTheDoubleReferenceOverEveryTail) {                                                 \
    ::tarn::testing::conv::ExpectDepthwiseGrid(members[std::get<0>(GetParam())],                                \
                                               ::tarn::testing::conv::DepthwiseChannels()[std::get<1>(GetParam())], \
                                               31);                                                             \
  }                                                                                                             \
  INSTANTIATE_TEST_SUITE_P(                                                                                     \
      Members, Suite##Grid,                                                                                     \
      ::testing::Combine(::testing::Range(0, static_cast<int>(std::size(members))),                             \
                         ::testing::Range(0, static_cast<int>(::tarn::testing::conv::DepthwiseChannels().size()))), \
      [](const auto& info) {                                                                                    \
        return std::string(members[std::get<0>(info.param)].name) + "_" +                                      \
               std::to_string(::tarn::testing::conv::DepthwiseChannels()[std::get<1>(info.param)]) + "ch";    \
      });                                                                                                       \
  class Suite : public ::testing::TestWithParam<int> {};                                                        \
  TEST_P(Suite, MatchesPyTorch) { ::tarn::testing::conv::ExpectDepthwiseMatchesTorch(members[GetParam()]); }   \
  TEST_P(Suite, RefusesHostileRecordsAndInputs) {                                                               \
    ::tarn::testing::conv::ExpectDepthwiseRefusals(members[GetParam()]);                                        \
  }                                                                                                             \
  INSTANTIATE_TEST_SUITE_P(Members, Suite, ::testing::Range(0, static_cast<int>(std::size(members))),           \
                           [](const auto& info) { return std::string(members[info.param].name); })

// The transposed checks of every specialised member in `members` (an array of
// conv::MemberDesc): every 3x3 geometry over channel tails and input widths
// 1..18, the fixtures it takes and the refusals.
#define TRN_TRANSPOSE_MEMBER_TESTS(Suite, members)                                                              \
  class Suite##Grid : public ::testing::TestWithParam<std::tuple<int, int>> {};                                 \
  TEST_P(Suite##Grid, MatchesTheDoubleReferenceOverEveryTail) {                                                 \
    ::tarn::testing::conv::ExpectTransposeGrid(                                                                 \
        members[std::get<0>(GetParam())],                                                                       \
        ::tarn::testing::conv::Transpose3x3Kernels()[std::get<1>(GetParam())], 18, 41);                         \
  }                                                                                                             \
  INSTANTIATE_TEST_SUITE_P(                                                                                     \
      Members, Suite##Grid,                                                                                     \
      ::testing::Combine(::testing::Range(0, static_cast<int>(std::size(members))),                             \
                         ::testing::Range(0, static_cast<int>(::tarn::testing::conv::Transpose3x3Kernels().size()))), \
      [](const auto& info) {                                                                                    \
        return std::string(members[std::get<0>(info.param)].name) + "_" + std::to_string(std::get<1>(info.param)); \
      });                                                                                                       \
  class Suite : public ::testing::TestWithParam<int> {};                                                        \
  TEST_P(Suite, MatchesPyTorch) { ::tarn::testing::conv::ExpectTransposeMatchesTorch(members[GetParam()], true); } \
  TEST_P(Suite, RefusesHostileRecordsAndInputs) {                                                               \
    ::tarn::testing::conv::ExpectTransposeRefusals(members[GetParam()], true);                                  \
  }                                                                                                             \
  INSTANTIATE_TEST_SUITE_P(Members, Suite, ::testing::Range(0, static_cast<int>(std::size(members))),           \
                           [](const auto& info) { return std::string(members[info.param].name); })
