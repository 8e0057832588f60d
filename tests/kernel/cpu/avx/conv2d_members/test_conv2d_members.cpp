// The AVX specialised convolution members end to end: against the double
// reference over every tile width and tail, channel counts with partial
// blocks, with and without bias; against PyTorch on real layer shapes;
// against the general members followed by layout conversions; and the
// records and inputs each must refuse.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "kernel/cpu/conv2d_member_test_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::AvxMembers;
using conv::ConvGeom;
using conv::MemberSpec;
using conv::TensorCPUPtr;
using conv::TensorShape;

std::vector<std::tuple<int, std::pair<unsigned, unsigned>>> GridCases() {
  std::vector<std::tuple<int, std::pair<unsigned, unsigned>>> cases;
  for (int i = 0; i < static_cast<int>(AvxMembers().size()); ++i) {
    for (const auto& pair : conv::MemberChannelPairs(AvxMembers()[i])) cases.emplace_back(i, pair);
  }
  return cases;
}

class AvxMemberGrid : public ::testing::TestWithParam<std::tuple<int, std::pair<unsigned, unsigned>>> {};

TEST_P(AvxMemberGrid, MatchesTheDoubleReferenceAtEveryWidth) {
  const int i = std::get<0>(GetParam());
  conv::ExpectMemberGrid(AvxMembers()[i], std::get<1>(GetParam()), 1000 + 50 * i);
}

INSTANTIATE_TEST_SUITE_P(Members, AvxMemberGrid, ::testing::ValuesIn(GridCases()), [](const auto& info) {
  const auto& pair = std::get<1>(info.param);
  return std::string(AvxMembers()[std::get<0>(info.param)].name) + "_" + std::to_string(pair.first) + "to" +
         std::to_string(pair.second);
});

class AvxMember : public ::testing::TestWithParam<int> {};

TEST_P(AvxMember, MatchesPyTorchOnTheLayersItServes) {
  int ran = 0;
  for (const std::string& fixture : conv::MemberFixtures()) ran += conv::ExpectMemberMatchesTorch(AvxMembers()[GetParam()], fixture);
  EXPECT_GT(ran, 0) << "no fixture layer for " << AvxMembers()[GetParam()].name;
}

TEST_P(AvxMember, RefusesOtherGeometriesChannelsAndLayouts) { conv::ExpectMemberRefusals(AvxMembers()[GetParam()]); }

INSTANTIATE_TEST_SUITE_P(Members, AvxMember, ::testing::Range(0, static_cast<int>(AvxMembers().size())),
                         [](const auto& info) { return std::string(AvxMembers()[info.param].name); });

const MemberSpec& Member(const std::string& name) {
  for (const MemberSpec& m : AvxMembers()) {
    if (name == m.name) return m;
  }
  ADD_FAILURE() << name;
  return AvxMembers()[0];
}

// ---------------------------------------------------------------- against general members and layout conversions

using TransformFn = void (*)(const TensorCPUPtr&, const TensorCPUPtr&);

// The output of registered member `name` (CHW, C4HW4 or C8HW8 by `lanes`)
// on an input in `in_lanes` layout.
TensorCPUPtr Output(const std::string& name, const ConvGeom& g, const std::vector<float>& x,
                    const std::vector<float>& w, const std::vector<float>& b, unsigned in_lanes,
                    const std::shared_ptr<runtime::Context>& ctx) {
  auto input = conv::LayoutTensor(ctx->cpu, x, g.c, g.h, g.w, in_lanes);
  conv::KernelRun run = conv::RunKernel(name, conv::MakeConv2dInfo(g, w, b), ctx, input);
  EXPECT_TRUE(run.forwarded) << name;
  return run.forwarded ? std::static_pointer_cast<runtime::TensorCPU>(run.outputs[0]) : nullptr;
}

// `from` converted by `transform` into a tensor of `dims` in `layout`.
TensorCPUPtr Converted(const TensorCPUPtr& from, TransformFn transform, std::vector<unsigned> dims,
                       TensorShape::Layout layout, const std::shared_ptr<runtime::Context>& ctx) {
  auto to = ctx->cpu->CreateTensor(runtime::MakeShape(dims, TensorShape::FLOAT32, layout));
  transform(from, to);
  return to;
}

// Member `name` equals the general member `general` (in the member's input
// layout) followed by `transform` into the member's output layout; `planes`
// output channels are compared (the transforms move whole blocks).
void ExpectEqualsGeneralPlusTransform(const std::string& name, const std::string& general, unsigned general_lanes,
                                      TransformFn transform, unsigned c, unsigned n, unsigned h, unsigned w) {
  SCOPED_TRACE(name);
  auto ctx = conv::MakeContext();
  const MemberSpec& m = Member(name);
  for (bool bias : {false, true}) {
    ConvGeom g{c, n, h, w, m.ky, m.kx, m.sy, m.sx, 1, 1, 1, 0, 0, 0, 0, bias};
    if (m.takes_padding) g.pl = g.pr = g.pt = g.pb = (m.kx - 1) / 2;
    const std::vector<float> x = conv::Random(std::size_t(c) * h * w, n + h);
    const std::vector<float> wt = conv::Random(g.WeightCount(), n + h + 1);
    const std::vector<float> b = bias ? conv::Random(n, 5) : std::vector<float>();
    auto reference = Output(general, g, x, wt, b, m.in_lanes, ctx);
    auto member = Output(name, g, x, wt, b, m.in_lanes, ctx);
    ASSERT_TRUE(reference && member);
    const unsigned oh = g.OutH(), ow = g.OutW();
    // The general member works in the member's input layout; convert its
    // output (whole blocks, so a CHW target gets every lane as a plane).
    const unsigned blocks = (n + general_lanes - 1) / general_lanes;
    const unsigned out_lanes = m.out_lanes;
    std::vector<unsigned> dims = out_lanes == 1
                                     ? std::vector<unsigned>{blocks * general_lanes, oh, ow}
                                     : std::vector<unsigned>{blocks * general_lanes / out_lanes, oh, ow, out_lanes};
    const TensorShape::Layout layout =
        out_lanes == 1 ? TensorShape::CHW : (out_lanes == 4 ? TensorShape::C4HW4 : TensorShape::C8HW8);
    auto converted = Converted(reference, transform, dims, layout, ctx);
    const float* r = converted->DataAs<float>();
    const float* o = member->DataAs<float>();
    const std::vector<float> want = out_lanes == 1 ? std::vector<float>(r, r + std::size_t(n) * oh * ow)
                                                   : conv::FromBlocked(r, n, oh, ow, out_lanes);
    const std::vector<float> got = out_lanes == 1 ? std::vector<float>(o, o + std::size_t(n) * oh * ow)
                                                  : conv::FromBlocked(o, n, oh, ow, out_lanes);
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
      // Two float sums of the same terms in other orders.
      ASSERT_NEAR(got[i], want[i], 1e-4f * (1.0f + std::fabs(want[i]))) << i << (bias ? " bias" : "");
    }
  }
}

TEST(AvxMemberLayouts, ImageStemEqualsPaddingGeneralMemberAndConversion) {
  // VGG-16's first layer on a small image, and an output count with a
  // partial register group.
  for (unsigned n : {64u, 24u}) {
    ExpectEqualsGeneralPlusTransform("Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1",
                                     "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1", 1,
                                     kernel::functional::LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2, 3, n,
                                     11, 13);
    ExpectEqualsGeneralPlusTransform("Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1",
                                     "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1", 1,
                                     kernel::functional::LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1, 3, n,
                                     11, 13);
  }
}

TEST(AvxMemberLayouts, HeadsEqualGeneralMemberAndConversion) {
  ExpectEqualsGeneralPlusTransform("Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1",
                                   "Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1", 4,
                                   kernel::functional::LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1, 21, 3, 9,
                                   19);
  ExpectEqualsGeneralPlusTransform("Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1",
                                   "Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1", 8,
                                   kernel::functional::LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2, 21, 1, 9,
                                   19);
}

TEST(AvxMemberLayouts, LayoutChangingPointwiseEqualsGeneralMemberAndConversion) {
  ExpectEqualsGeneralPlusTransform("Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_CHW_FLOAT_M1",
                                   "Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1", 8,
                                   kernel::functional::LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2, 21, 24, 5,
                                   11);
  ExpectEqualsGeneralPlusTransform("Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_C4HW4_FLOAT_M1",
                                   "Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1", 8,
                                   kernel::functional::LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1, 21, 24,
                                   5, 11);
  ExpectEqualsGeneralPlusTransform("Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_TO_C8HW8_FLOAT_M1",
                                   "Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1", 4,
                                   kernel::functional::LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1, 21, 24,
                                   5, 11);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
