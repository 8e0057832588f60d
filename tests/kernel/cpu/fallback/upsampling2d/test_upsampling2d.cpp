// Upsampling: the portable kernel against PyTorch's F.interpolate (nearest,
// bilinear with and without align_corners, integral and fractional scales),
// the source tables on their own, and the scales and inputs it refuses.
#include <gtest/gtest.h>

#include "kernel/cpu/resampling_test_util.h"

namespace tarn {
namespace testing {
namespace {

using kernel::functional::UpsampleExtent;

TEST(UpsampleReference, PortableKernelMatchesPyTorch) {
  const auto cases = ResamplingReference("upsample");
  ASSERT_EQ(cases.size(), 21u) << "run tests/reference/make_resampling_reference.py";
  for (const auto& c : cases) {
    const auto p = ParseParams(c);
    const bool bilinear = p["bilinear"].GetBool();
    auto r = UpsampleRecord(p["scale_y"].GetFloat(), p["scale_x"].GetFloat(), bilinear, p["align_corner"].GetBool());
    const auto& s = c.inputs[0].shape;
    std::vector<unsigned> dims;
    const std::vector<float> y =
        RunChw<kernel::Upsampling2D_Fallback_CHW_Float_M1>(r, c.inputs[0].data, s[0], s[1], s[2], 1, &dims);
    EXPECT_EQ(dims, c.outputs[0].shape) << c.name;
    if (bilinear) {
      // PyTorch's build may fuse its multiply-adds.
      EXPECT_TRUE(Near(y, c.outputs[0].data, 2e-6f)) << c.name;
    } else {
      EXPECT_TRUE(SameBits(y, c.outputs[0].data)) << c.name;
    }
  }
}

TEST(UpsampleTables, ExtentsAndSourcePositions) {
  EXPECT_EQ(UpsampleExtent(7, 2.0f), 14u);
  EXPECT_EQ(UpsampleExtent(9, 0.6f), 5u);   // floor(5.4)
  EXPECT_EQ(UpsampleExtent(3, 1.3f), 3u);   // floor(3.9)
  EXPECT_EQ(UpsampleExtent(5, 0.1f), 0u);   // below 1
  EXPECT_EQ(UpsampleExtent(5, 0.0f), 0u);
  EXPECT_EQ(UpsampleExtent(5, -2.0f), 0u);
  EXPECT_EQ(UpsampleExtent(5, NAN), 0u);
  EXPECT_EQ(UpsampleExtent(5, INFINITY), 0u);
  EXPECT_EQ(UpsampleExtent(5, 1e9f), 0u);   // above 2^31 - 1
  std::vector<std::int32_t> i0, i1;
  std::vector<float> w0, w1;
  // Nearest reads floor(d / scale) from the scale, even where the size is unchanged.
  kernel::functional::UpsampleAxis(3, 3, 1.3f, false, false, &i0, &i1, &w0, &w1);
  EXPECT_EQ(i0, (std::vector<std::int32_t>{0, 0, 1}));
  // Bilinear copies an axis whose size is unchanged.
  kernel::functional::UpsampleAxis(3, 3, 1.3f, true, false, &i0, &i1, &w0, &w1);
  EXPECT_EQ(i0, (std::vector<std::int32_t>{0, 1, 2}));
  EXPECT_EQ(w1, (std::vector<float>{0, 0, 0}));
  // Half-pixel centres, 2x: -0.25 clamps to 0, then 0.25, 0.75, 1.25; the edge repeats.
  kernel::functional::UpsampleAxis(2, 4, 2.0f, true, false, &i0, &i1, &w0, &w1);
  EXPECT_EQ(i0, (std::vector<std::int32_t>{0, 0, 0, 1}));
  EXPECT_EQ(i1, (std::vector<std::int32_t>{1, 1, 1, 1}));
  EXPECT_EQ(w1, (std::vector<float>{0.0f, 0.25f, 0.75f, 0.25f}));  // the edge blends a pixel with itself
  // Corner-aligned, 2 -> 4: positions 0, 1/3, 2/3, 1.
  kernel::functional::UpsampleAxis(2, 4, 2.0f, true, true, &i0, &i1, &w0, &w1);
  EXPECT_EQ(i0, (std::vector<std::int32_t>{0, 0, 0, 1}));
  EXPECT_FLOAT_EQ(w1[1], 1.0f / 3.0f);
  EXPECT_EQ(w0[3], 1.0f);
  kernel::functional::Upsample2DPlan plan;
  ASSERT_TRUE(kernel::functional::MakeUpsample2DPlan(3, 5, 2.0f, 2.0f, false, false, &plan));
  EXPECT_TRUE(plan.doubles_columns);
  ASSERT_TRUE(kernel::functional::MakeUpsample2DPlan(3, 5, 2.0f, 2.2f, false, false, &plan));
  EXPECT_FALSE(plan.doubles_columns);
  // The 2x half-pixel blend repeats the weights (0.75, 0.25), (0.25, 0.75).
  ASSERT_TRUE(kernel::functional::MakeUpsample2DPlan(3, 5, 2.0f, 2.0f, true, false, &plan));
  EXPECT_TRUE(plan.pairs_columns);
  EXPECT_EQ(std::vector<float>(plan.pair_w, plan.pair_w + 4), (std::vector<float>{0.75f, 0.25f, 0.25f, 0.75f}));
  ASSERT_TRUE(kernel::functional::MakeUpsample2DPlan(3, 5, 2.0f, 2.0f, true, true, &plan));
  EXPECT_FALSE(plan.pairs_columns);
}

TEST(Upsample, RecordsAndInputsThatDoNotFitAreRefused) {
  auto ctx = ElementContext();
  kernel::Upsampling2D_Fallback_CHW_Float_M1 k;
  struct Bad {
    std::shared_ptr<runtime::Upsample2dInfo> record;
    const char* logged;
  };
  auto mode2 = UpsampleRecord(2, 2, true, false);
  mode2->unsample_type = 2;
  const Bad bad[] = {{UpsampleRecord(0.0f, 2.0f, false, false), "not a finite value > 0"},
                     {UpsampleRecord(2.0f, -1.0f, true, false), "not a finite value > 0"},
                     {UpsampleRecord(NAN, 2.0f, false, false), "not a finite value > 0"},
                     {UpsampleRecord(2.0f, INFINITY, true, true), "not a finite value > 0"},
                     {mode2, "\"unsample_type\" is neither 0"}};
  for (const auto& b : bad) {
    EXPECT_EQ(k.IsValidParam(b.record, nullptr), kernel::kInvalidParam);
    const std::string logged = LoggedRefusal([&] { EXPECT_FALSE(k.Config(b.record, nullptr, ctx)); });
    EXPECT_NE(logged.find(b.logged), std::string::npos) << logged;
  }
  EXPECT_EQ(k.IsValidParam(std::make_shared<runtime::SoftmaxInfo>(), nullptr), kernel::kInvalidParam);

  // Valid records whose output does not fit the input.
  auto shrink = Configured<kernel::Upsampling2D_Fallback_CHW_Float_M1>(UpsampleRecord(0.1f, 1, false, false), ctx);
  EXPECT_EQ(shrink->IsValidInput({MakeTensor(ctx, {2, 9, 4}, {})}), kernel::kInvalidTensor);  // floor(0.9) = 0
  EXPECT_EQ(shrink->IsValidInput({MakeTensor(ctx, {2, 10, 4}, {})}), kernel::kValid);
  auto huge = Configured<kernel::Upsampling2D_Fallback_CHW_Float_M1>(UpsampleRecord(30000, 30000, true, false), ctx);
  const std::string logged =
      LoggedRefusal([&] { EXPECT_EQ(huge->IsValidInput({MakeTensor(ctx, {2, 8, 8}, {})}), kernel::kInvalidTensor); });
  EXPECT_NE(logged.find("more than 2^31 - 1 floats"), std::string::npos) << logged;
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_FALSE(huge->Forward({MakeTensor(ctx, {2, 8, 8}, {})}, outputs, ctx));
  EXPECT_TRUE(huge->GetOutputShapes({runtime::MakeShape({2, 8, 8})}).empty());
  auto fine = Configured<kernel::Upsampling2D_Fallback_CHW_Float_M1>(UpsampleRecord(2, 2, false, false), ctx);
  EXPECT_EQ(fine->IsValidInput({MakeTensor(ctx, {2, 8}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(fine->IsValidInput({MakeTensor(ctx, {1, 8, 8, 4}, {}, runtime::TensorShape::C4HW4)}),
            kernel::kInvalidTensor);
  EXPECT_EQ(fine->IsValidInput({MakeTensor(ctx, {1, 8, 8}, {}), MakeTensor(ctx, {1, 8, 8}, {})}),
            kernel::kInvalidTensor);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
