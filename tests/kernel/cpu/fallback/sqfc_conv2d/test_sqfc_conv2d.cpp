// Quantisation-trained convolutions: against a PyTorch rendering of their
// meaning (torch.fake_quantize_per_tensor_affine on the weight, the bias and
// the output, the batch norm folded first in float32), the grid on its own,
// and the records they refuse.
#include <gtest/gtest.h>

#include "kernel/cpu/fallback/sqfc_conv2d/sqfc_conv2d.h"
#include "kernel/cpu/resampling_test_util.h"

namespace tarn {
namespace testing {
namespace {

using kernel::SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1;
using kernel::SQFCConv2DFoldedBN_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1;

template <typename Record>
void Geometry(Record& r, unsigned c, unsigned n, unsigned k, unsigned stride, unsigned pad, unsigned groups) {
  r.in_channels = static_cast<std::uint16_t>(c);
  r.out_channels = static_cast<std::uint16_t>(n);
  r.kernel_x = r.kernel_y = static_cast<std::uint16_t>(k);
  r.stride_x = r.stride_y = static_cast<std::uint16_t>(stride);
  r.padding_l = r.padding_t = r.padding_r = r.padding_b = static_cast<std::int16_t>(pad);
  r.groups = static_cast<std::uint16_t>(groups);
}

std::shared_ptr<runtime::SQFCConv2dInfo> FromCase(const RefCase& c) {
  const auto p = ParseParams(c);
  const bool folded = p["folded"].GetBool();
  std::shared_ptr<runtime::SQFCConv2dInfo> r;
  if (folded) {
    auto bn = std::make_shared<runtime::SQFCConv2dFoldedBNInfo>();
    bn->eps = p["eps"].GetFloat();
    bn->if_affine = true;
    bn->mean = runtime::EncodeWeights(c.inputs[3].data);
    bn->variance = runtime::EncodeWeights(c.inputs[4].data);
    bn->scale = runtime::EncodeWeights(c.inputs[5].data);
    bn->shift = runtime::EncodeWeights(c.inputs[6].data);
    r = bn;
  } else {
    r = std::make_shared<runtime::SQFCConv2dInfo>();
  }
  Geometry(*r, p["in_channels"].GetUint(), p["out_channels"].GetUint(), p["kernel"].GetUint(), p["stride"].GetUint(),
           p["padding"].GetUint(), p["groups"].GetUint());
  r->if_bias = p["if_bias"].GetBool();
  r->w_clip = static_cast<std::uint16_t>(p["w_clip"].GetUint());
  r->w_qbit = static_cast<std::uint16_t>(p["w_qbit"].GetUint());
  r->b_clip = static_cast<std::uint16_t>(p["b_clip"].GetUint());
  r->b_qbit = static_cast<std::uint16_t>(p["b_qbit"].GetUint());
  r->a_clip = static_cast<std::uint16_t>(p["a_clip"].GetUint());
  r->a_qbit = static_cast<std::uint16_t>(p["a_qbit"].GetUint());
  r->weight = runtime::EncodeWeights(c.inputs[1].data);
  if (r->if_bias) r->bias = runtime::EncodeWeights(c.inputs[2].data);
  return r;
}

TEST(SQFCReference, MatchesThePyTorchRenderingOfTheGrids) {
  const auto cases = ResamplingReference("sqfc_conv2d");
  ASSERT_EQ(cases.size(), 6u) << "run tests/reference/make_resampling_reference.py";
  auto ctx = ElementContext();
  for (const auto& c : cases) {
    auto r = FromCase(c);
    const bool folded = ParseParams(c)["folded"].GetBool();
    std::shared_ptr<kernel::SQFCConv2DKernelBase> k;
    if (folded) {
      k = Configured<SQFCConv2DFoldedBN_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1>(r, ctx);
    } else {
      k = Configured<SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1>(r, ctx);
    }
    ASSERT_TRUE(k->IsConfiged()) << c.name;
    std::vector<unsigned> dims;
    const std::vector<float> y = Output(k, {MakeTensor(ctx, c.inputs[0].shape, c.inputs[0].data)}, ctx, &dims);
    EXPECT_EQ(dims, c.outputs[0].shape) << c.name;
    const auto p = ParseParams(c);
    const unsigned a_bits = p["a_qbit"].GetUint();
    // With an output grid the values are grid points: a float sum in another
    // order may at most land on the neighbouring point. Without one, float sums.
    const float step = a_bits ? static_cast<float>(p["a_clip"].GetUint()) / float(1u << (a_bits - 1)) : 0.0f;
    size_t off_grid = 0;
    for (size_t i = 0; i < y.size(); ++i) {
      const float d = std::fabs(y[i] - c.outputs[0].data[i]);
      if (a_bits) {
        EXPECT_LE(d, step * 1.0001f) << c.name << " " << i;
        off_grid += d != 0.0f;
      } else {
        EXPECT_NEAR(y[i], c.outputs[0].data[i], 1e-5f) << c.name << " " << i;
      }
    }
    EXPECT_LE(off_grid, y.size() / 50) << c.name;  // ties of the rounding are rare
  }
}

TEST(SQFCGrid, RoundsToEvenAndSaturates) {
  kernel::functional::FixedPointGrid g;
  ASSERT_TRUE(kernel::functional::MakeFixedPointGrid(2, 4, &g));  // step 0.25, indices -8..7
  EXPECT_EQ(g.step, 0.25f);
  std::vector<float> v = {0.125f, 0.375f, -0.125f, 1.9f, 5.0f, -5.0f, -2.0f, NAN};
  kernel::functional::fake_quantize_f32(g, v.data(), v.size());
  EXPECT_EQ(v[0], 0.0f);    // tie to even: index 0
  EXPECT_EQ(v[1], 0.5f);    // tie to even: index 2
  EXPECT_EQ(v[2], -0.0f);
  EXPECT_EQ(v[3], 1.75f);   // the top index 7
  EXPECT_EQ(v[4], 1.75f);
  EXPECT_EQ(v[5], -2.0f);   // the bottom index -8
  EXPECT_EQ(v[6], -2.0f);
  EXPECT_TRUE(std::isnan(v[7]));
  ASSERT_TRUE(kernel::functional::MakeFixedPointGrid(0, 0, &g));  // no grid: unchanged
  std::vector<float> same = {0.3f};
  kernel::functional::fake_quantize_f32(g, same.data(), 1);
  EXPECT_EQ(same[0], 0.3f);
  EXPECT_FALSE(kernel::functional::MakeFixedPointGrid(0, 8, &g));
  EXPECT_FALSE(kernel::functional::MakeFixedPointGrid(4, 25, &g));
  EXPECT_TRUE(kernel::functional::MakeFixedPointGrid(4, 24, &g));
}

TEST(SQFC, RecordsThatDoNotFitAreRefused) {
  auto ctx = ElementContext();
  auto good = [] {
    auto r = std::make_shared<runtime::SQFCConv2dInfo>();
    Geometry(*r, 2, 2, 1, 1, 0, 1);
    r->weight = runtime::EncodeWeights({1, 2, 3, 4});
    r->w_clip = 4, r->w_qbit = 8;
    return r;
  };
  SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1 k;
  EXPECT_TRUE(k.Config(good(), nullptr, ctx));
  struct Bad {
    void (*spoil)(runtime::SQFCConv2dInfo&);
    const char* logged;
  };
  const Bad bad[] = {
      {[](runtime::SQFCConv2dInfo& r) { r.padding_t = -1; }, "a padding is negative"},
      {[](runtime::SQFCConv2dInfo& r) { r.groups = 0; }, "the geometry is not a convolution's"},
      {[](runtime::SQFCConv2dInfo& r) { r.in_channels = 3, r.groups = 2; }, "the geometry is not a convolution's"},
      {[](runtime::SQFCConv2dInfo& r) { r.w_clip = 0; }, "a quantisation grid"},
      {[](runtime::SQFCConv2dInfo& r) { r.a_clip = 1, r.a_qbit = 30; }, "more than 24 bits"},
      {[](runtime::SQFCConv2dInfo& r) { r.weight = runtime::EncodeWeights({1, 2, 3}); }, "\"weight\" holds 3 floats, 4 needed"},
      {[](runtime::SQFCConv2dInfo& r) { r.if_bias = true; }, "\"bias\" holds 0 floats, 2 needed"},
  };
  for (const auto& b : bad) {
    auto r = good();
    b.spoil(*r);
    const std::string logged = LoggedRefusal([&] { EXPECT_FALSE(k.Config(r, nullptr, ctx)); });
    EXPECT_NE(logged.find(b.logged), std::string::npos) << logged;
    EXPECT_FALSE(k.IsConfiged());
  }
  // The plain kernel does not drop a batch norm it was given; the folded one needs it.
  auto folded = std::make_shared<runtime::SQFCConv2dFoldedBNInfo>();
  Geometry(*folded, 2, 2, 1, 1, 0, 1);
  folded->weight = runtime::EncodeWeights({1, 2, 3, 4});
  folded->mean = runtime::EncodeWeights({0, 0});
  folded->variance = runtime::EncodeWeights({1, -2});
  folded->if_affine = false;
  EXPECT_EQ(k.IsValidParam(folded, nullptr), kernel::kInvalidParam);
  SQFCConv2DFoldedBN_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1 kb;
  EXPECT_EQ(kb.IsValidParam(good(), nullptr), kernel::kInvalidParam);
  const std::string logged = LoggedRefusal([&] { EXPECT_FALSE(kb.Config(folded, nullptr, ctx)); });
  EXPECT_NE(logged.find("variance + eps must be > 0"), std::string::npos) << logged;
  folded->variance = runtime::EncodeWeights({1, 4});
  folded->eps = 0.0f;
  ASSERT_TRUE(kb.Config(folded, nullptr, ctx));
  // The fold without if_affine: w' = w / sqrt(var), b' = -mean / sqrt(var).
  EXPECT_EQ(runtime::DecodeWeights(kb.quantised()->weight), (std::vector<float>{1, 2, 1.5f, 2}));
  EXPECT_EQ(runtime::DecodeWeights(kb.quantised()->bias), (std::vector<float>{0, 0}));
  // Inputs are the convolution's: CHW with in_channels.
  EXPECT_EQ(kb.IsValidInput({MakeTensor(ctx, {2, 3, 3}, {})}), kernel::kValid);
  EXPECT_EQ(kb.IsValidInput({MakeTensor(ctx, {3, 3, 3}, {})}), kernel::kInvalidTensor);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
