// Helpers of the convolution and fully connected tests: a context, random
// data, the blocked layouts built independently of the library, records,
// double-precision references, and the 1-D convolution checks every family
// runs.
//
// Tolerance used throughout: |got - want| <= 1e-5 * (S + 1), S being the sum
// of the absolute values of every term of that output (|w * x| over the taps
// plus |bias| plus |initial value|), computed in double. Float accumulation in
// any order stays far inside it for the sizes tested.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "reference/reference_data.h"
#include "tarn/kernel/conv_layout.h"
#include "tarn/kernel/register.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/kernel.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace testing {
namespace conv {

using runtime::TensorShape;
using TensorCPUPtr = std::shared_ptr<runtime::TensorCPU>;

constexpr double kTolerance = 1e-5;

inline std::shared_ptr<runtime::Context> MakeContext() {
  auto pool = std::make_shared<runtime::AlignUpPool>(64);
  auto device = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), pool, nullptr, pool);
  return runtime::CreateContext(device, nullptr, nullptr, nullptr, nullptr, nullptr);
}

inline std::vector<float> Random(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> d(-1.0f, 1.0f);
  std::vector<float> v(n);
  for (float& f : v) f = d(rng);
  return v;
}

// CHW [c, h, w] to [ceil(c / lanes), h, w, lanes] with zero tail lanes.
inline std::vector<float> ToBlocked(const std::vector<float>& chw, unsigned c, unsigned h, unsigned w,
                                    unsigned lanes) {
  const unsigned blocks = (c + lanes - 1) / lanes;
  std::vector<float> out(std::size_t(blocks) * h * w * lanes, 0.0f);
  for (unsigned ch = 0; ch < c; ++ch)
    for (unsigned y = 0; y < h; ++y)
      for (unsigned x = 0; x < w; ++x)
        out[((std::size_t(ch / lanes) * h + y) * w + x) * lanes + ch % lanes] = chw[(std::size_t(ch) * h + y) * w + x];
  return out;
}

inline std::vector<float> FromBlocked(const float* blocked, unsigned c, unsigned h, unsigned w, unsigned lanes) {
  std::vector<float> out(std::size_t(c) * h * w);
  for (unsigned ch = 0; ch < c; ++ch)
    for (unsigned y = 0; y < h; ++y)
      for (unsigned x = 0; x < w; ++x)
        out[(std::size_t(ch) * h + y) * w + x] = blocked[((std::size_t(ch / lanes) * h + y) * w + x) * lanes + ch % lanes];
  return out;
}

// Channel pairs (in, out) covering every count of the blocked-layout list on
// both sides: 1, 3, 4, 5, 8, 9, 13, 16, 17.
inline std::vector<std::pair<unsigned, unsigned>> ChannelPairs() {
  const unsigned counts[] = {1, 3, 4, 5, 8, 9, 13, 16, 17};
  std::vector<std::pair<unsigned, unsigned>> pairs;
  for (int i = 0; i < 9; ++i) pairs.emplace_back(counts[i], counts[(i + 3) % 9]);
  pairs.emplace_back(16, 16);
  return pairs;
}

// True when every lane beyond channel c of the last block is exactly zero.
inline bool TailLanesZero(const float* blocked, unsigned c, unsigned h, unsigned w, unsigned lanes) {
  const unsigned blocks = (c + lanes - 1) / lanes;
  for (unsigned ch = c; ch < blocks * lanes; ++ch)
    for (unsigned p = 0; p < h * w; ++p)
      if (blocked[(std::size_t(ch / lanes) * h * w + p) * lanes + ch % lanes] != 0.0f) return false;
  return true;
}

inline TensorCPUPtr MakeTensor(const std::shared_ptr<runtime::DeviceCPU>& device, std::vector<unsigned> dims,
                               TensorShape::Layout layout, const std::vector<float>& data) {
  auto t = device->CreateTensor(runtime::MakeShape(std::move(dims), TensorShape::FLOAT32, layout));
  EXPECT_EQ(t->shape.ElementCount(), data.size());
  std::memcpy(t->Data(), data.data(), data.size() * sizeof(float));
  return t;
}

inline std::vector<float> Values(const std::shared_ptr<runtime::Tensor>& t) {
  const float* p = static_cast<const float*>(t->Data());
  return std::vector<float>(p, p + t->shape.ElementCount());
}

// A tensor of `planes` planes (lanes 1, CHW) or blocks of h x w pixels of
// `lanes` floats (C4HW4, C8HW8), holding `stored` as it is.
inline TensorCPUPtr StoredTensor(const std::shared_ptr<runtime::DeviceCPU>& device, unsigned planes, unsigned h,
                                 unsigned w, unsigned lanes, const std::vector<float>& stored) {
  if (lanes == 1) return MakeTensor(device, {planes, h, w}, TensorShape::CHW, stored);
  return MakeTensor(device, {planes, h, w, lanes}, lanes == 4 ? TensorShape::C4HW4 : TensorShape::C8HW8, stored);
}

// A CHW map [c, h, w] in the layout of `lanes` (tail lanes zero).
inline TensorCPUPtr LayoutTensor(const std::shared_ptr<runtime::DeviceCPU>& device, const std::vector<float>& chw,
                                 unsigned c, unsigned h, unsigned w, unsigned lanes) {
  if (lanes == 1) return StoredTensor(device, c, h, w, 1, chw);
  return StoredTensor(device, (c + lanes - 1) / lanes, h, w, lanes, ToBlocked(chw, c, h, w, lanes));
}

// The geometry of a 2-D convolution test case.
struct ConvGeom {
  unsigned c, n, h, w;  // input channels, output channels, input size
  unsigned ky, kx, sy, sx, dy, dx, g;
  unsigned pl, pr, pt, pb;
  bool bias;
  unsigned PaddedH() const { return h + pt + pb; }
  unsigned PaddedW() const { return w + pl + pr; }
  unsigned OutH() const { return (PaddedH() - dy * (ky - 1) - 1) / sy + 1; }
  unsigned OutW() const { return (PaddedW() - dx * (kx - 1) - 1) / sx + 1; }
  std::size_t WeightCount() const { return std::size_t(n) * (c / g) * ky * kx; }
};

inline std::ostream& operator<<(std::ostream& os, const ConvGeom& g) {
  return os << g.c << "->" << g.n << " " << g.h << "x" << g.w << " k" << g.ky << "x" << g.kx << " s" << g.sy << "x"
            << g.sx << " d" << g.dy << "x" << g.dx << " g" << g.g << " pad(l" << g.pl << ",r" << g.pr << ",t" << g.pt
            << ",b" << g.pb << ")" << (g.bias ? " bias" : "");
}

inline std::shared_ptr<runtime::Conv2dInfo> MakeConv2dInfo(const ConvGeom& g, const std::vector<float>& weight,
                                                           const std::vector<float>& bias) {
  auto info = std::make_shared<runtime::Conv2dInfo>();
  info->in_channels = static_cast<std::uint16_t>(g.c);
  info->out_channels = static_cast<std::uint16_t>(g.n);
  info->kernel_y = static_cast<std::uint16_t>(g.ky);
  info->kernel_x = static_cast<std::uint16_t>(g.kx);
  info->stride_y = static_cast<std::uint16_t>(g.sy);
  info->stride_x = static_cast<std::uint16_t>(g.sx);
  info->dilation_y = static_cast<std::uint16_t>(g.dy);
  info->dilation_x = static_cast<std::uint16_t>(g.dx);
  info->groups = static_cast<std::uint16_t>(g.g);
  info->padding_l = static_cast<std::uint16_t>(g.pl);
  info->padding_r = static_cast<std::uint16_t>(g.pr);
  info->padding_t = static_cast<std::uint16_t>(g.pt);
  info->padding_b = static_cast<std::uint16_t>(g.pb);
  info->if_bias = g.bias;
  info->weight = runtime::EncodeWeights(weight);
  if (g.bias) info->bias = runtime::EncodeWeights(bias);
  return info;
}

// A reference value with the scale its tolerance is measured against.
struct Ref {
  std::vector<double> value;
  std::vector<double> scale;
};

// Direct convolution in double over a CHW input, zero padding.
inline Ref NaiveConv2d(const ConvGeom& g, const std::vector<float>& x, const std::vector<float>& weight,
                       const std::vector<float>& bias) {
  const unsigned oh = g.OutH(), ow = g.OutW(), cg = g.c / g.g, ng = g.n / g.g;
  Ref r{std::vector<double>(std::size_t(g.n) * oh * ow, 0.0), std::vector<double>(std::size_t(g.n) * oh * ow, 0.0)};
  for (unsigned o = 0; o < g.n; ++o) {
    const unsigned grp = o / ng;
    for (unsigned oy = 0; oy < oh; ++oy)
      for (unsigned ox = 0; ox < ow; ++ox) {
        double v = g.bias ? bias[o] : 0.0, s = g.bias ? std::fabs(bias[o]) : 0.0;
        for (unsigned c = 0; c < cg; ++c)
          for (unsigned ky = 0; ky < g.ky; ++ky)
            for (unsigned kx = 0; kx < g.kx; ++kx) {
              const long y = long(oy * g.sy + ky * g.dy) - long(g.pt);
              const long xx = long(ox * g.sx + kx * g.dx) - long(g.pl);
              if (y < 0 || xx < 0 || y >= long(g.h) || xx >= long(g.w)) continue;
              const double a = weight[((std::size_t(o) * cg + c) * g.ky + ky) * g.kx + kx];
              const double b = x[(std::size_t(grp * cg + c) * g.h + y) * g.w + xx];
              v += a * b;
              s += std::fabs(a * b);
            }
        r.value[(std::size_t(o) * oh + oy) * ow + ox] = v;
        r.scale[(std::size_t(o) * oh + oy) * ow + ox] = s;
      }
  }
  return r;
}

// The reference of a routine that accumulates onto `initial`.
inline Ref AddInitial(Ref r, const std::vector<float>& initial) {
  for (std::size_t i = 0; i < initial.size(); ++i) {
    r.value[i] += initial[i];
    r.scale[i] += std::fabs(initial[i]);
  }
  return r;
}

inline ::testing::AssertionResult Near(const std::vector<float>& got, const Ref& want) {
  if (got.size() != want.value.size()) {
    return ::testing::AssertionFailure() << "size " << got.size() << " != " << want.value.size();
  }
  for (std::size_t i = 0; i < got.size(); ++i) {
    const double err = std::fabs(double(got[i]) - want.value[i]);
    if (!(err <= kTolerance * (want.scale[i] + 1.0))) {
      return ::testing::AssertionFailure() << "element " << i << ": got " << got[i] << ", want " << want.value[i]
                                           << " (scale " << want.scale[i] << ")";
    }
  }
  return ::testing::AssertionSuccess();
}

// Runs a registered kernel by name: Config, IsValidInput, Forward.
struct KernelRun {
  std::shared_ptr<runtime::IKernel> kernel;
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  bool configured = false;
  std::int32_t valid = -100;
  bool forwarded = false;
};

// A kernel by class name from a registry holding every family.
inline std::shared_ptr<runtime::IKernel> CreateKernel(const std::string& name) {
  static const runtime::KernelRegistry* registry = [] {
    auto* r = new runtime::KernelRegistry();
    kernel::RegisterFallback(*r);
    kernel::RegisterSSE(*r);
    kernel::RegisterAVX(*r);
    kernel::RegisterSGEMM(*r);
    return r;
  }();
  return registry->Create(name);
}

// Every input of `bad` is refused by the configured kernel, and Forward on
// it fails.
inline void ExpectInputsRefused(const std::shared_ptr<runtime::IKernel>& kernel,
                                const std::shared_ptr<runtime::Context>& ctx,
                                const std::vector<std::shared_ptr<runtime::Tensor>>& bad) {
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  for (std::size_t i = 0; i < bad.size(); ++i) {
    EXPECT_EQ(kernel->IsValidInput({bad[i]}), -2) << "bad input " << i;
    EXPECT_FALSE(kernel->Forward({bad[i]}, outputs, ctx)) << "bad input " << i;
  }
}

inline KernelRun RunKernel(const std::string& name, const std::shared_ptr<runtime::LayerInfo>& info,
                           const std::shared_ptr<runtime::Context>& ctx, const TensorCPUPtr& input) {
  KernelRun run;
  run.kernel = CreateKernel(name);
  if (!run.kernel) return run;
  run.configured = run.kernel->Config(info, nullptr, ctx);
  if (!run.configured) return run;
  run.valid = run.kernel->IsValidInput({input});
  if (run.valid != 0) return run;
  run.forwarded = run.kernel->Forward({input}, run.outputs, ctx);
  return run;
}

// ------------------------------------------------------------------ 1-D convolution

struct Conv1DGeom {
  unsigned c, n, length, k, s, d, g, pf, pb;
  bool bias;
  unsigned OutLength() const { return (length + pf + pb - d * (k - 1) - 1) / s + 1; }
};

inline std::shared_ptr<runtime::Conv1dInfo> MakeConv1dInfo(const Conv1DGeom& g, const std::vector<float>& w,
                                                           const std::vector<float>& b) {
  auto info = std::make_shared<runtime::Conv1dInfo>();
  info->in_channels = static_cast<std::uint16_t>(g.c);
  info->out_channels = static_cast<std::uint16_t>(g.n);
  info->kernel_size = static_cast<std::uint16_t>(g.k);
  info->stride = static_cast<std::uint16_t>(g.s);
  info->dilation = static_cast<std::uint16_t>(g.d);
  info->groups = static_cast<std::uint16_t>(g.g);
  info->padding_f = static_cast<std::uint16_t>(g.pf);
  info->padding_b = static_cast<std::uint16_t>(g.pb);
  info->if_bias = g.bias;
  info->weight = runtime::EncodeWeights(w);
  if (g.bias) info->bias = runtime::EncodeWeights(b);
  return info;
}

// Direct 1-D convolution in double: the 2-D one over a single row.
inline Ref NaiveConv1d(const Conv1DGeom& g, const std::vector<float>& x, const std::vector<float>& w,
                       const std::vector<float>& b) {
  return NaiveConv2d(ConvGeom{g.c, g.n, 1, g.length, 1, g.k, 1, g.s, 1, g.d, g.g, g.pf, g.pb, 0, 0, g.bias}, x, w, b);
}

// Runs 1-D member `name` on a [c, length] input of `layout` against `want`.
inline ::testing::AssertionResult RunConv1D(const char* name, const Conv1DGeom& g, const std::vector<float>& x,
                                            const std::vector<float>& w, const std::vector<float>& b,
                                            const Ref& want, TensorShape::Layout layout = TensorShape::FLEXIABLE) {
  auto ctx = MakeContext();
  auto input = MakeTensor(ctx->cpu, {g.c, g.length}, layout, x);
  KernelRun run = RunKernel(name, MakeConv1dInfo(g, w, b), ctx, input);
  if (!run.configured || run.valid != 0 || !run.forwarded) {
    return ::testing::AssertionFailure() << name << " refused or failed";
  }
  const auto& out = run.outputs[0];
  if (out->shape.dims != std::vector<unsigned>{g.n, g.OutLength()} || out->shape.layout != layout) {
    return ::testing::AssertionFailure() << "output shape";
  }
  const auto shapes = run.kernel->GetOutputShapes({input->shape});
  if (shapes.size() != 1 || shapes[0].dims != out->shape.dims) return ::testing::AssertionFailure() << "shapes";
  return Near(Values(out), want);
}

// Runs 1-D member `name` on every conv1d fixture case it takes (every one, or
// the three-tap ones) against PyTorch's output, after checking the double
// reference on each case; returns how many cases ran.
inline int RunConv1DFixtures(const char* name, bool three_taps_only) {
  int ran = 0;
  for (const RefCase& c : LoadReference("conv1d")) {
    auto p = ParseParams(c);
    const Conv1DGeom g{p["in_channels"].GetUint(), p["out_channels"].GetUint(), c.inputs[0].shape[1],
                       p["kernel"].GetUint(),      p["stride"].GetUint(),       p["dilation"].GetUint(),
                       p["groups"].GetUint(),      p["padding"][0].GetUint(),   p["padding"][1].GetUint(),
                       p["bias"].GetBool()};
    const std::vector<float> bias = g.bias ? c.inputs[2].data : std::vector<float>();
    Ref want = NaiveConv1d(g, c.inputs[0].data, c.inputs[1].data, bias);
    EXPECT_TRUE(Near(c.outputs[0].data, want)) << "double reference, " << c.name;
    if (three_taps_only && !(g.k == 3 && g.s == 1 && g.d == 1 && g.g == 1)) continue;
    want.value.assign(c.outputs[0].data.begin(), c.outputs[0].data.end());
    EXPECT_TRUE(RunConv1D(name, g, c.inputs[0].data, c.inputs[1].data, bias, want)) << c.name;
    ++ran;
  }
  return ran;
}

// Broken records, wrong blob counts and inputs of the wrong shape are
// refused by 1-D member `name`, and Forward on them fails.
inline void ExpectConv1DRefusals(const char* name) {
  SCOPED_TRACE(name);
  auto ctx = MakeContext();
  auto kernel = CreateKernel(name);
  ASSERT_NE(kernel, nullptr);
  Conv1DGeom g{4, 2, 8, 3, 1, 1, 1, 1, 1, true};
  auto info = MakeConv1dInfo(g, Random(24, 1), Random(2, 2));
  EXPECT_EQ(kernel->IsValidParam(std::make_shared<runtime::Conv2dInfo>(), nullptr), -1);
  for (auto mutate : {+[](runtime::Conv1dInfo& i) { i.kernel_size = 0; }, +[](runtime::Conv1dInfo& i) { i.stride = 0; },
                      +[](runtime::Conv1dInfo& i) { i.dilation = 0; }, +[](runtime::Conv1dInfo& i) { i.groups = 0; },
                      +[](runtime::Conv1dInfo& i) { i.groups = 3; }, +[](runtime::Conv1dInfo& i) { i.in_channels = 0; }}) {
    auto broken = MakeConv1dInfo(g, Random(24, 1), Random(2, 2));
    mutate(*broken);
    EXPECT_EQ(kernel->IsValidParam(broken, nullptr), -1);
    EXPECT_FALSE(kernel->Config(broken, nullptr, ctx));
  }
  info->weight = runtime::EncodeWeights(Random(23, 1));
  EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
  info->weight = runtime::EncodeWeights(Random(24, 1));
  info->bias = runtime::EncodeWeights(Random(3, 1));
  EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
  info->bias = runtime::EncodeWeights(Random(2, 1));
  ASSERT_TRUE(kernel->Config(info, nullptr, ctx));
  ExpectInputsRefused(kernel, ctx,
                      {MakeTensor(ctx->cpu, {3, 8}, TensorShape::FLEXIABLE, Random(24, 1)),
                       MakeTensor(ctx->cpu, {4, 8, 1}, TensorShape::FLEXIABLE, Random(32, 1)),
                       MakeTensor(ctx->cpu, {1, 4, 8, 4}, TensorShape::C4HW4, Random(128, 1))});
  // Length 0 padded by one on each side is shorter than the kernel.
  auto empty = ctx->cpu->CreateTensor(runtime::MakeShape({4, 0}, TensorShape::FLOAT32, TensorShape::FLEXIABLE));
  EXPECT_EQ(kernel->IsValidInput({empty}), -2);
}

}  // namespace conv
}  // namespace testing
}  // namespace tarn
