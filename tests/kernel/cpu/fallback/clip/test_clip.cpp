// Clip: the portable kernel against torch.clamp, its NaN and bound rules,
// and the bounds and blocked inputs it refuses.
#include <gtest/gtest.h>

#include <cstdlib>

#include "kernel/cpu/resampling_test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(ClipReference, PortableKernelMatchesPyTorch) {
  const auto cases = ResamplingReference("clip");
  ASSERT_EQ(cases.size(), 4u) << "run tests/reference/make_resampling_reference.py";
  auto ctx = ElementContext();
  for (const auto& c : cases) {
    const auto p = ParseParams(c);
    auto k = Configured<kernel::Clip_Fallback_Float_M1>(
        ClipRecord(std::strtof(p["min"].GetString(), nullptr), std::strtof(p["max"].GetString(), nullptr)), ctx);
    const std::vector<float> y = Output(k, {MakeTensor(ctx, c.inputs[0].shape, c.inputs[0].data)}, ctx);
    EXPECT_TRUE(SameBits(y, c.outputs[0].data)) << c.name;  // clamp only selects
  }
}

TEST(Clip, NaNPassesAndBoundsAreKept) {
  auto ctx = ElementContext();
  auto k = Configured<kernel::Clip_Fallback_Float_M1>(ClipRecord(0.0f, 6.0f), ctx);
  const std::vector<float> y = Output(k, {MakeTensor(ctx, {5}, {NAN, -0.0f, 7.0f, -3.0f, 2.5f})}, ctx);
  ASSERT_EQ(y.size(), 5u);
  EXPECT_TRUE(std::isnan(y[0]));
  EXPECT_EQ(Bits(y[1]), Bits(-0.0f));  // equal to the bound: kept, as torch.clamp keeps it
  EXPECT_EQ(y[2], 6.0f);
  EXPECT_EQ(y[3], 0.0f);
  EXPECT_EQ(y[4], 2.5f);
}

TEST(Clip, BoundsAndBlockedInputsThatDoNotFitAreRefused) {
  auto ctx = ElementContext();
  kernel::Clip_Fallback_Float_M1 k;
  for (const auto& [lo, hi, why] : {std::make_tuple(2.0f, 1.0f, "the minimum is above the maximum"),
                                    std::make_tuple(NAN, 1.0f, "a bound is NaN"),
                                    std::make_tuple(0.0f, NAN, "a bound is NaN")}) {
    EXPECT_EQ(k.IsValidParam(ClipRecord(lo, hi), nullptr), kernel::kInvalidParam);
    const std::string logged = LoggedRefusal([&] { EXPECT_FALSE(k.Config(ClipRecord(lo, hi), nullptr, ctx)); });
    EXPECT_NE(logged.find(why), std::string::npos) << logged;
  }
  EXPECT_EQ(k.IsValidParam(std::make_shared<runtime::SoftmaxInfo>(), nullptr), kernel::kInvalidParam);
  // Blocked tensors: only ranges holding 0 keep the padding lanes zero.
  const auto C4 = runtime::TensorShape::C4HW4;
  auto relu6 = Configured<kernel::Clip_Fallback_Float_M1>(ClipRecord(0.0f, 6.0f), ctx);
  EXPECT_EQ(relu6->IsValidInput({MakeTensor(ctx, {1, 2, 2, 4}, {}, C4)}), kernel::kValid);
  auto positive = Configured<kernel::Clip_Fallback_Float_M1>(ClipRecord(1.0f, 6.0f), ctx);
  EXPECT_EQ(positive->IsValidInput({MakeTensor(ctx, {1, 2, 2, 4}, {}, C4)}), kernel::kInvalidTensor);
  EXPECT_EQ(positive->IsValidInput({MakeTensor(ctx, {4, 2, 2}, {})}), kernel::kValid);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
