// Adaptive max pooling against PyTorch's F.adaptive_max_pool2d (shrinking,
// growing and square outputs), its NaN rule, and the sizes it refuses.
#include <gtest/gtest.h>

#include "kernel/cpu/fallback/adaptive_max_pooling/adaptive_max_pooling.h"
#include "kernel/cpu/resampling_test_util.h"

namespace tarn {
namespace testing {
namespace {

using kernel::AdaptivePooling2D_Max_Fallback_CHW_Float_M1;

std::shared_ptr<runtime::AdaptiveMaxPool2dInfo> AdaptiveMax(std::vector<unsigned short> size) {
  auto r = std::make_shared<runtime::AdaptiveMaxPool2dInfo>();
  r->output_size = std::move(size);
  return r;
}

TEST(AdaptiveMaxPoolReference, MatchesPyTorch) {
  const auto cases = ResamplingReference("adaptive_max_pool");
  ASSERT_EQ(cases.size(), 5u) << "run tests/reference/make_resampling_reference.py";
  for (const auto& c : cases) {
    const auto params = ParseParams(c);
    std::vector<unsigned short> size;
    for (const auto& v : params["output_size"].GetArray()) size.push_back(static_cast<unsigned short>(v.GetUint()));
    const auto& s = c.inputs[0].shape;
    std::vector<unsigned> dims;
    const std::vector<float> y =
        RunChw<AdaptivePooling2D_Max_Fallback_CHW_Float_M1>(AdaptiveMax(size), c.inputs[0].data, s[0], s[1], s[2], 1, &dims);
    EXPECT_EQ(dims, c.outputs[0].shape) << c.name;
    EXPECT_TRUE(SameBits(y, c.outputs[0].data)) << c.name;  // a maximum only selects
  }
}

TEST(AdaptiveMaxPool, OverlappingWindowsAndNaN) {
  // 5 -> 2: rows 0..2 and 2..4 share row 2.
  std::vector<float> x(25, 0.0f);
  x[2 * 5 + 2] = 9.0f;
  std::vector<float> y = RunChw<AdaptivePooling2D_Max_Fallback_CHW_Float_M1>(AdaptiveMax({2, 2}), x, 1, 5, 5, 1);
  EXPECT_EQ(y, (std::vector<float>{9, 9, 9, 9}));
  // A NaN wins its window, as in PyTorch; -inf alone stays -inf.
  y = RunChw<AdaptivePooling2D_Max_Fallback_CHW_Float_M1>(AdaptiveMax({1, 2}), {1, NAN, 3, -INFINITY}, 1, 1, 4, 1);
  ASSERT_EQ(y.size(), 2u);
  EXPECT_TRUE(std::isnan(y[0]));
  EXPECT_EQ(y[1], 3.0f);
}

TEST(AdaptiveMaxPool, SizesAndInputsThatDoNotFitAreRefused) {
  auto ctx = ElementContext();
  AdaptivePooling2D_Max_Fallback_CHW_Float_M1 k;
  for (const auto& size : {std::vector<unsigned short>{}, {0, 3}, {3, 0}, {0}, {2, 2, 2}}) {
    EXPECT_EQ(k.IsValidParam(AdaptiveMax(size), nullptr), kernel::kInvalidParam);
    EXPECT_NE(LoggedRefusal([&] { EXPECT_FALSE(k.Config(AdaptiveMax(size), nullptr, ctx)); }), "");
  }
  EXPECT_EQ(k.IsValidParam(std::make_shared<runtime::AdaptiveAvgPool2dInfo>(), nullptr), kernel::kInvalidParam);
  auto ok = Configured<AdaptivePooling2D_Max_Fallback_CHW_Float_M1>(AdaptiveMax({3}), ctx);
  EXPECT_EQ(ok->output_h(), 3u);
  EXPECT_EQ(ok->output_w(), 3u);
  EXPECT_EQ(ok->IsValidInput({MakeTensor(ctx, {2, 1, 1}, {})}), kernel::kValid);  // windows may repeat a pixel
  EXPECT_EQ(ok->IsValidInput({MakeTensor(ctx, {2, 4}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(ok->IsValidInput({MakeTensor(ctx, {1, 2, 2, 4}, {}, runtime::TensorShape::C4HW4)}), kernel::kInvalidTensor);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
