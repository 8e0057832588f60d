// The 1-D convolution members against PyTorch fixtures and a double
// reference, and their refusals of bad records and inputs.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "kernel/cpu/conv_test_util.h"
#include "reference/reference_data.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using runtime::TensorShape;

const char kFallback1D[] = "Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1";
const char kAvx1D[] = "Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1";

struct Conv1DGeom {
  unsigned c, n, length, k, s, d, g, pf, pb;
  bool bias;
  unsigned OutLength() const { return (length + pf + pb - d * (k - 1) - 1) / s + 1; }
};

std::shared_ptr<runtime::Conv1dInfo> MakeInfo(const Conv1DGeom& g, const std::vector<float>& w,
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

conv::Ref Naive(const Conv1DGeom& g, const std::vector<float>& x, const std::vector<float>& w,
                const std::vector<float>& b) {
  const unsigned ol = g.OutLength(), cg = g.c / g.g, ng = g.n / g.g;
  conv::Ref r{std::vector<double>(std::size_t(g.n) * ol), std::vector<double>(std::size_t(g.n) * ol)};
  for (unsigned o = 0; o < g.n; ++o)
    for (unsigned l = 0; l < ol; ++l) {
      double v = g.bias ? b[o] : 0.0, s = std::fabs(v);
      for (unsigned c = 0; c < cg; ++c)
        for (unsigned k = 0; k < g.k; ++k) {
          const long at = long(l * g.s + k * g.d) - long(g.pf);
          if (at < 0 || at >= long(g.length)) continue;
          const double t = double(w[(std::size_t(o) * cg + c) * g.k + k]) * x[std::size_t(o / ng * cg + c) * g.length + at];
          v += t;
          s += std::fabs(t);
        }
      r.value[std::size_t(o) * ol + l] = v;
      r.scale[std::size_t(o) * ol + l] = s;
    }
  return r;
}

::testing::AssertionResult RunConv1D(const char* name, const Conv1DGeom& g, const std::vector<float>& x,
                               const std::vector<float>& w, const std::vector<float>& b, const conv::Ref& want,
                               TensorShape::Layout layout = TensorShape::FLEXIABLE) {
  auto ctx = conv::MakeContext();
  auto input = conv::MakeTensor(ctx->cpu, {g.c, g.length}, layout, x);
  conv::KernelRun run = conv::RunKernel(name, MakeInfo(g, w, b), ctx, input);
  if (!run.configured || run.valid != 0 || !run.forwarded) {
    return ::testing::AssertionFailure() << name << " refused or failed";
  }
  const auto& out = run.outputs[0];
  if (out->shape.dims != std::vector<unsigned>{g.n, g.OutLength()} || out->shape.layout != layout) {
    return ::testing::AssertionFailure() << "output shape";
  }
  const auto shapes = run.kernel->GetOutputShapes({input->shape});
  if (shapes.size() != 1 || shapes[0].dims != out->shape.dims) return ::testing::AssertionFailure() << "shapes";
  return conv::Near(conv::Values(out), want);
}

TEST(Conv1DReference, FallbackAndAvxMatchPyTorch) {
  const auto cases = LoadReference("conv1d");
  ASSERT_GE(cases.size(), 5u);
  int avx_cases = 0;
  for (const RefCase& c : cases) {
    auto p = ParseParams(c);
    const Conv1DGeom g{p["in_channels"].GetUint(), p["out_channels"].GetUint(), c.inputs[0].shape[1],
                       p["kernel"].GetUint(),      p["stride"].GetUint(),       p["dilation"].GetUint(),
                       p["groups"].GetUint(),      p["padding"][0].GetUint(),   p["padding"][1].GetUint(),
                       p["bias"].GetBool()};
    const std::vector<float> bias = g.bias ? c.inputs[2].data : std::vector<float>();
    conv::Ref want = Naive(g, c.inputs[0].data, c.inputs[1].data, bias);
    EXPECT_TRUE(conv::Near(c.outputs[0].data, want)) << "double reference, " << c.name;
    want.value.assign(c.outputs[0].data.begin(), c.outputs[0].data.end());
    EXPECT_TRUE(RunConv1D(kFallback1D, g, c.inputs[0].data, c.inputs[1].data, bias, want)) << c.name;
    if (g.k == 3 && g.s == 1 && g.d == 1 && g.g == 1 && conv::CanRunAVX()) {
      EXPECT_TRUE(RunConv1D(kAvx1D, g, c.inputs[0].data, c.inputs[1].data, bias, want)) << c.name;
      ++avx_cases;
    }
  }
  if (conv::CanRunAVX()) {
    EXPECT_GE(avx_cases, 2);
  }
}

class Conv1DFallbackGrid : public ::testing::TestWithParam<int> {};

TEST_P(Conv1DFallbackGrid, MatchesTheDoubleReference) {
  const Conv1DGeom shapes[] = {
      {3, 5, 9, 3, 1, 1, 1, 1, 1, true},  {4, 6, 17, 5, 2, 2, 2, 2, 3, false}, {6, 6, 11, 3, 3, 1, 6, 0, 2, true},
      {2, 4, 5, 1, 1, 1, 1, 0, 0, true},  {8, 4, 20, 4, 1, 3, 4, 3, 0, false}, {1, 1, 1, 1, 1, 1, 1, 0, 0, false},
  };
  const Conv1DGeom& g = shapes[GetParam()];
  const auto x = conv::Random(std::size_t(g.c) * g.length, 1), w = conv::Random(std::size_t(g.n) * (g.c / g.g) * g.k, 2);
  const auto b = conv::Random(g.n, 3);
  EXPECT_TRUE(RunConv1D(kFallback1D, g, x, w, b, Naive(g, x, w, b)));
  EXPECT_TRUE(RunConv1D(kFallback1D, g, x, w, b, Naive(g, x, w, b), TensorShape::CHW));
}

INSTANTIATE_TEST_SUITE_P(Shapes, Conv1DFallbackGrid, ::testing::Range(0, 6), TRN_INDEX_NAMES);

class Conv1DAvxLengths : public ::testing::TestWithParam<std::pair<unsigned, unsigned>> {};

// Output lengths 1..17 (eight positions per step, 1..7 in the tail), with
// symmetric, asymmetric and no padding.
TEST_P(Conv1DAvxLengths, MatchesTheDoubleReference) {
  if (!conv::CanRunAVX()) GTEST_SKIP();
  const auto ch = GetParam();
  const unsigned pads[][2] = {{1, 1}, {0, 2}, {0, 0}};
  for (const auto& p : pads) {
    for (unsigned out = 1; out <= 17; ++out) {
      const Conv1DGeom g{ch.first, ch.second, out + 2 - p[0] - p[1], 3, 1, 1, 1, p[0], p[1], out % 3 != 0};
      const auto x = conv::Random(std::size_t(g.c) * g.length, out), w = conv::Random(std::size_t(g.n) * g.c * 3, 9);
      const auto b = conv::Random(g.n, 4);
      EXPECT_TRUE(RunConv1D(kAvx1D, g, x, w, b, Naive(g, x, w, b))) << "length " << out;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Channels, Conv1DAvxLengths, ::testing::ValuesIn(std::vector<std::pair<unsigned, unsigned>>{
                                                         {1, 1}, {3, 5}, {8, 4}, {13, 9}, {17, 16}}),
                         TRN_INDEX_NAMES);

TEST(Conv1DRefusals, RecordsAndInputs) {
  auto ctx = conv::MakeContext();
  for (const char* name : {kFallback1D, kAvx1D}) {
    SCOPED_TRACE(name);
    if (std::string(name) == kAvx1D && !conv::CanRunAVX()) continue;
    auto kernel = conv::CreateKernel(name);
    ASSERT_NE(kernel, nullptr);
    Conv1DGeom g{4, 2, 8, 3, 1, 1, 1, 1, 1, true};
    auto info = MakeInfo(g, conv::Random(24, 1), conv::Random(2, 2));
    EXPECT_EQ(kernel->IsValidParam(std::make_shared<runtime::Conv2dInfo>(), nullptr), -1);
    for (auto mutate : {+[](runtime::Conv1dInfo& i) { i.kernel_size = 0; }, +[](runtime::Conv1dInfo& i) { i.stride = 0; },
                        +[](runtime::Conv1dInfo& i) { i.dilation = 0; }, +[](runtime::Conv1dInfo& i) { i.groups = 0; },
                        +[](runtime::Conv1dInfo& i) { i.groups = 3; }, +[](runtime::Conv1dInfo& i) { i.in_channels = 0; }}) {
      auto broken = MakeInfo(g, conv::Random(24, 1), conv::Random(2, 2));
      mutate(*broken);
      EXPECT_EQ(kernel->IsValidParam(broken, nullptr), -1);
      EXPECT_FALSE(kernel->Config(broken, nullptr, ctx));
    }
    info->weight = runtime::EncodeWeights(conv::Random(23, 1));
    EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
    info->weight = runtime::EncodeWeights(conv::Random(24, 1));
    info->bias = runtime::EncodeWeights(conv::Random(3, 1));
    EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
    info->bias = runtime::EncodeWeights(conv::Random(2, 1));
    ASSERT_TRUE(kernel->Config(info, nullptr, ctx));
    std::vector<std::shared_ptr<runtime::Tensor>> outputs;
    for (const auto& bad : {conv::MakeTensor(ctx->cpu, {3, 8}, TensorShape::FLEXIABLE, conv::Random(24, 1)),
                            conv::MakeTensor(ctx->cpu, {4, 8, 1}, TensorShape::FLEXIABLE, conv::Random(32, 1)),
                            conv::MakeTensor(ctx->cpu, {1, 4, 8, 4}, TensorShape::C4HW4, conv::Random(128, 1))}) {
      EXPECT_EQ(kernel->IsValidInput({bad}), -2);
      EXPECT_FALSE(kernel->Forward({bad}, outputs, ctx));
    }
    // Length 0 padded by one on each side is shorter than the kernel.
    auto empty = ctx->cpu->CreateTensor(runtime::MakeShape({4, 0}, TensorShape::FLOAT32, TensorShape::FLEXIABLE));
    EXPECT_EQ(kernel->IsValidInput({empty}), -2);
  }
  auto avx = conv::CreateKernel(kAvx1D);
  Conv1DGeom wide{4, 2, 8, 5, 1, 1, 1, 1, 1, false};
  EXPECT_EQ(avx->IsValidParam(MakeInfo(wide, conv::Random(40, 1), {}), nullptr), -1);
  Conv1DGeom strided{4, 2, 8, 3, 2, 1, 1, 1, 1, false};
  EXPECT_EQ(avx->IsValidParam(MakeInfo(strided, conv::Random(24, 1), {}), nullptr), -1);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
