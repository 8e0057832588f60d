// The portable convolution against PyTorch fixtures and the double reference,
// every convolution member against the same fixtures, and the checks that
// protect Forward from hostile records and inputs.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/conv2d_test_util.h"
#include "reference/reference_data.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::ConvGeom;
using conv::MemberDesc;
using runtime::TensorShape;

const char kFallback[] = "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1";

const MemberDesc kMembers[] = {
    {kFallback, 1, false, false},
    {"Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1", 1, false, true},
    {"Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1", 4, false, true},
    {"Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1", 8, false, true},
    {"Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1", 8, true, true},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1", 1, false, false},
};

// A fixture case as a geometry and its data.
struct FixtureCase {
  ConvGeom geom;
  std::vector<float> x, weight, bias, y;
};

FixtureCase ReadCase(const RefCase& c) {
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

bool MemberTakes(const MemberDesc& m, const ConvGeom& g) {
  const std::string name = m.name;
  if (name.find("_G1_") != std::string::npos && g.g != 1) return false;
  if (name.find("K1x1") != std::string::npos) {
    return g.ky == 1 && g.kx == 1 && g.sy == 1 && g.sx == 1 && g.dy == 1 && g.dx == 1 && g.g == 1;
  }
  return true;
}

TEST(Conv2DReference, FixturesArePresent) { EXPECT_GE(LoadReference("conv2d").size(), 10u); }

class Conv2DAgainstTorch : public ::testing::TestWithParam<int> {};

// The fixture output is PyTorch's; the tolerance scale comes from the same data.
TEST_P(Conv2DAgainstTorch, EveryMemberMatchesPyTorch) {
  const auto cases = LoadReference("conv2d");
  ASSERT_FALSE(cases.empty());
  const MemberDesc& m = kMembers[GetParam()];
  if (!conv::CanRun(m)) GTEST_SKIP();
  int ran = 0;
  for (const RefCase& c : cases) {
    const FixtureCase f = ReadCase(c);
    if (!MemberTakes(m, f.geom)) continue;
    conv::Ref want = conv::NaiveConv2d(f.geom, f.x, f.weight, f.bias);
    want.value.assign(f.y.begin(), f.y.end());
    EXPECT_TRUE(conv::RunConvMemberOn(m, f.geom, f.x, f.weight, f.bias, want)) << c.name;
    ++ran;
  }
  EXPECT_GT(ran, 0);
}

INSTANTIATE_TEST_SUITE_P(Members, Conv2DAgainstTorch, ::testing::Range(0, 6),
                         [](const auto& info) { return std::string(kMembers[info.param].name); });

// The double reference itself against PyTorch, so that the grids below,
// which use it, rest on the fixtures too.
TEST(Conv2DReference, DoubleReferenceMatchesPyTorch) {
  for (const RefCase& c : LoadReference("conv2d")) {
    const FixtureCase f = ReadCase(c);
    const conv::Ref ref = conv::NaiveConv2d(f.geom, f.x, f.weight, f.bias);
    EXPECT_TRUE(conv::Near(f.y, ref)) << c.name;
  }
}

class Conv2DFallbackGrid : public ::testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(Conv2DFallbackGrid, MatchesTheDoubleReference) {
  const conv::Geometry& k = conv::Geometries()[std::get<0>(GetParam())];
  // (c, n, groups): one group, grouped, depthwise.
  const unsigned cng[][3] = {{3, 5, 1}, {6, 9, 3}, {5, 5, 5}, {8, 4, 2}, {13, 9, 1}};
  const auto* t = cng[std::get<1>(GetParam())];
  const unsigned h0 = conv::MinExtent(k.ky, k.dy, k.pt, k.pb), w0 = conv::MinExtent(k.kx, k.dx, k.pl, k.pr);
  for (unsigned extra = 0; extra < 6; ++extra) {
    const ConvGeom g = conv::Make(k, t[0], t[1], t[2], h0 + extra, w0 + 2 * extra, extra % 2 == 0);
    EXPECT_TRUE(conv::RunConvMember(kMembers[0], g, 31 + extra));
  }
}

INSTANTIATE_TEST_SUITE_P(Geometries, Conv2DFallbackGrid,
                         ::testing::Combine(::testing::Range(0, 8), ::testing::Range(0, 5)), TRN_INDEX_NAMES);

// ------------------------------------------------------------------ hostile records and inputs

ConvGeom Valid() { return ConvGeom{4, 6, 5, 5, 3, 3, 1, 1, 1, 1, 2, 1, 1, 1, 1, true}; }

std::shared_ptr<runtime::Conv2dInfo> ValidInfo() {
  const ConvGeom g = Valid();
  return conv::MakeConv2dInfo(g, conv::Random(g.WeightCount(), 1), conv::Random(g.n, 2));
}

class Conv2DRefusals : public ::testing::TestWithParam<int> {};

TEST_P(Conv2DRefusals, BrokenRecordsAreRefusedBeforeTheyCanHurt) {
  const MemberDesc& m = kMembers[GetParam()];
  if (!conv::CanRun(m)) GTEST_SKIP();
  auto ctx = conv::MakeContext();
  auto kernel = conv::CreateKernel(m.name);
  ASSERT_NE(kernel, nullptr);
  EXPECT_FALSE(kernel->IsConfiged());
  EXPECT_EQ(kernel->IsValidParam(std::make_shared<runtime::FullConnectionInfo>(), nullptr), -1);
  EXPECT_EQ(kernel->IsValidParam(nullptr, nullptr), -1);
  EXPECT_FALSE(kernel->Config(std::make_shared<runtime::Conv1dInfo>(), nullptr, ctx));

  using Mutation = void (*)(runtime::Conv2dInfo&);
  const Mutation broken[] = {
      [](runtime::Conv2dInfo& i) { i.kernel_x = 0; },   [](runtime::Conv2dInfo& i) { i.stride_y = 0; },
      [](runtime::Conv2dInfo& i) { i.dilation_x = 0; }, [](runtime::Conv2dInfo& i) { i.groups = 0; },
      [](runtime::Conv2dInfo& i) { i.in_channels = 0; }, [](runtime::Conv2dInfo& i) { i.out_channels = 0; },
      [](runtime::Conv2dInfo& i) { i.groups = 3; },     [](runtime::Conv2dInfo& i) { i.groups = 4; },
  };
  for (const Mutation& mutate : broken) {
    auto info = ValidInfo();
    info->kernel_x = info->kernel_y = 1;  // a geometry every member takes ...
    info->groups = 1;                     // ... once broken by the mutation
    info->weight = runtime::EncodeWeights(conv::Random(6 * 4, 3));
    mutate(*info);
    EXPECT_EQ(kernel->IsValidParam(info, nullptr), -1);
    EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
    EXPECT_FALSE(kernel->IsConfiged());
  }
}

TEST_P(Conv2DRefusals, WeightAndBiasCountsMustMatchTheGeometry) {
  const MemberDesc& m = kMembers[GetParam()];
  if (!conv::CanRun(m)) GTEST_SKIP();
  auto ctx = conv::MakeContext();
  auto kernel = conv::CreateKernel(m.name);
  ConvGeom g{4, 6, 5, 5, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, true};
  auto info = conv::MakeConv2dInfo(g, conv::Random(g.WeightCount(), 1), conv::Random(g.n, 2));
  ASSERT_TRUE(kernel->Config(info, nullptr, ctx));
  info->weight = runtime::EncodeWeights(conv::Random(g.WeightCount() - 1, 1));
  EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
  EXPECT_FALSE(kernel->IsConfiged());
  info->weight = runtime::EncodeWeights(conv::Random(g.WeightCount() + 1, 1));
  EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
  info->weight = runtime::EncodeWeights(conv::Random(g.WeightCount(), 1));
  info->bias = runtime::EncodeWeights(conv::Random(g.n - 1, 2));
  EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
  info->bias = "";
  EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
  info->if_bias = false;  // without the flag the blob is not read
  EXPECT_TRUE(kernel->Config(info, nullptr, ctx));
  EXPECT_FALSE(kernel->Config(info, nullptr, nullptr));
}

TEST_P(Conv2DRefusals, InputsThatDoNotFitAreRefusedAndForwardFails) {
  const MemberDesc& m = kMembers[GetParam()];
  if (!conv::CanRun(m)) GTEST_SKIP();
  auto ctx = conv::MakeContext();
  auto kernel = conv::CreateKernel(m.name);
  const bool one_by_one = std::string(m.name).find("K1x1") != std::string::npos;
  // 3x3 with dilation 2 and one row/column of padding: the padded input must
  // be at least 5 x 5.
  ConvGeom g = one_by_one ? ConvGeom{4, 6, 5, 5, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, true}
                          : ConvGeom{4, 6, 5, 5, 3, 3, 1, 1, 2, 2, 1, 1, 0, 1, 0, true};
  ASSERT_TRUE(kernel->Config(conv::MakeConv2dInfo(g, conv::Random(g.WeightCount(), 1), conv::Random(6, 2)), nullptr,
                             ctx));
  auto ok = conv::LayoutTensor(ctx->cpu, conv::Random(4 * 5 * 5, 3), 4, 5, 5, m.lanes);
  EXPECT_EQ(kernel->IsValidInput({ok}), 0);
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;

  std::vector<std::shared_ptr<runtime::Tensor>> bad = {
      conv::LayoutTensor(ctx->cpu, conv::Random(9 * 5 * 5, 3), 9, 5, 5, m.lanes),    // channels
      conv::LayoutTensor(ctx->cpu, conv::Random(12 * 5 * 5, 3), 12, 5, 5, m.lanes),  // channels
      conv::MakeTensor(ctx->cpu, {4, 25}, TensorShape::CHW, conv::Random(100, 3)),   // rank
      conv::MakeTensor(ctx->cpu, {1, 5, 5, 4}, m.lanes == 4 ? TensorShape::C8HW8 : TensorShape::C4HW4,
                       conv::Random(100, 3)),                                          // layout
      ctx->cpu->CreateTensor(runtime::MakeShape(ok->shape.dims, TensorShape::INT32, ok->shape.layout)),  // type
      nullptr,
  };
  if (!one_by_one) {
    bad.push_back(conv::LayoutTensor(ctx->cpu, conv::Random(4 * 3 * 5, 3), 4, 3, 5, m.lanes));  // 4 rows padded
    bad.push_back(conv::LayoutTensor(ctx->cpu, conv::Random(4 * 5 * 3, 3), 4, 5, 3, m.lanes));  // 4 columns padded
  }
  for (std::size_t i = 0; i < bad.size(); ++i) {
    EXPECT_EQ(kernel->IsValidInput({bad[i]}), -2) << i;
    EXPECT_FALSE(kernel->Forward({bad[i]}, outputs, ctx)) << i;
    if (bad[i]) {
      EXPECT_TRUE(kernel->GetOutputShapes({bad[i]->shape}).empty()) << i;
    }
  }
  EXPECT_EQ(kernel->IsValidInput({ok, ok}), -2);
  EXPECT_EQ(kernel->IsValidInput({}), -2);
  EXPECT_FALSE(kernel->Forward({ok}, outputs, nullptr));
  EXPECT_TRUE(kernel->Forward({ok}, outputs, ctx));

  auto fresh = conv::CreateKernel(m.name);
  EXPECT_EQ(fresh->IsValidInput({ok}), -2);  // never configured
  EXPECT_FALSE(fresh->Forward({ok}, outputs, ctx));
}

TEST_P(Conv2DRefusals, HugePaddingIsRefusedNotAllocated) {
  const MemberDesc& m = kMembers[GetParam()];
  if (!conv::CanRun(m)) GTEST_SKIP();
  auto ctx = conv::MakeContext();
  auto kernel = conv::CreateKernel(m.name);
  ConvGeom g{4, 6, 5, 5, 1, 1, 1, 1, 1, 1, 1, 65535, 65535, 65535, 65535, false};
  ASSERT_TRUE(kernel->Config(conv::MakeConv2dInfo(g, conv::Random(g.WeightCount(), 1), {}), nullptr, ctx));
  auto in = conv::LayoutTensor(ctx->cpu, conv::Random(100, 3), 4, 5, 5, m.lanes);
  EXPECT_EQ(kernel->IsValidInput({in}), -2);
}

INSTANTIATE_TEST_SUITE_P(Members, Conv2DRefusals, ::testing::Range(0, 6),
                         [](const auto& info) { return std::string(kMembers[info.param].name); });

TEST(Conv2DNames, GeometryPromisedByTheNameIsEnforced) {
  ConvGeom grouped = Valid();  // 2 groups, 3x3
  auto info = conv::MakeConv2dInfo(grouped, conv::Random(grouped.WeightCount(), 1), conv::Random(6, 2));
  EXPECT_EQ(conv::CreateKernel(kFallback)->IsValidParam(info, nullptr), 0);
  EXPECT_EQ(conv::CreateKernel("Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1")->IsValidParam(info, nullptr), 0);
  EXPECT_EQ(conv::CreateKernel("Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1")->IsValidParam(info, nullptr), -1);
  EXPECT_EQ(conv::CreateKernel("Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1")->IsValidParam(info, nullptr), -1);
  EXPECT_EQ(conv::CreateKernel("Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1")->IsValidParam(info, nullptr), -1);
  info->groups = 1;
  EXPECT_EQ(conv::CreateKernel("Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1")->IsValidParam(info, nullptr), -1);
  info->kernel_x = info->kernel_y = 1;
  EXPECT_EQ(conv::CreateKernel("Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1")->IsValidParam(info, nullptr), 0);
  info->dilation_x = 2;
  EXPECT_EQ(conv::CreateKernel("Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1")->IsValidParam(info, nullptr), -1);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
