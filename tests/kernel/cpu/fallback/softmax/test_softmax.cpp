// Softmax: the portable kernel against PyTorch over dims and ranks (values up
// to a spread of 60, where a softmax without the maximum would overflow), the
// infinity and NaN rules, and the dims and inputs it refuses.
#include <gtest/gtest.h>

#include "kernel/cpu/resampling_test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(SoftmaxReference, PortableKernelMatchesPyTorch) {
  const auto cases = ResamplingReference("softmax");
  ASSERT_EQ(cases.size(), 10u) << "run tests/reference/make_resampling_reference.py";
  auto ctx = ElementContext();
  for (const auto& c : cases) {
    auto k = Configured<kernel::Softmax_Fallback_Float_M1>(
        SoftmaxRecord(static_cast<std::uint16_t>(ParseParams(c)["dim"].GetUint())), ctx);
    const std::vector<float> y = Output(k, {MakeTensor(ctx, c.inputs[0].shape, c.inputs[0].data)}, ctx);
    ASSERT_EQ(y.size(), c.outputs[0].data.size()) << c.name;
    for (size_t i = 0; i < y.size(); ++i) {
      EXPECT_NEAR(y[i], c.outputs[0].data[i], 1e-6f * c.outputs[0].data[i] + 1e-30f) << c.name << " " << i;
    }
  }
}

TEST(Softmax, InfinitiesAndNaN) {
  auto ctx = ElementContext();
  auto k = Configured<kernel::Softmax_Fallback_Float_M1>(SoftmaxRecord(1), ctx);
  const float inf = std::numeric_limits<float>::infinity();
  // Row 0: -inf weighs nothing. Row 1: +inf makes inf - inf, NaN, as in
  // PyTorch. Row 2: NaN reaches every output of its row. Row 3: all -inf, NaN.
  const std::vector<float> y = Output(k, {MakeTensor(ctx, {4, 3}, {-inf, 0, 0, inf, 1, 2, 1, NAN, 2, -inf, -inf, -inf})}, ctx);
  ASSERT_EQ(y.size(), 12u);
  EXPECT_EQ(y[0], 0.0f);
  EXPECT_EQ(y[1], 0.5f);
  EXPECT_EQ(y[2], 0.5f);
  for (size_t i = 3; i < 12; ++i) EXPECT_TRUE(std::isnan(y[i])) << i;
}

TEST(Softmax, DimsAndInputsThatDoNotFitAreRefused) {
  auto ctx = ElementContext();
  kernel::Softmax_Fallback_Float_M1 k;
  EXPECT_EQ(k.IsValidParam(std::make_shared<runtime::ClipInfo>(), nullptr), kernel::kInvalidParam);
  EXPECT_FALSE(k.Config(std::make_shared<runtime::ClipInfo>(), nullptr, ctx));
  auto k2 = Configured<kernel::Softmax_Fallback_Float_M1>(SoftmaxRecord(2), ctx);
  EXPECT_EQ(k2->IsValidInput({MakeTensor(ctx, {2, 3, 4}, {})}), kernel::kValid);
  const std::string logged =
      LoggedRefusal([&] { EXPECT_EQ(k2->IsValidInput({MakeTensor(ctx, {2, 3}, {})}), kernel::kInvalidTensor); });
  EXPECT_NE(logged.find("\"dim\" is not below the input's rank (dim 2, rank 2)"), std::string::npos) << logged;
  EXPECT_EQ(k2->IsValidInput({MakeTensor(ctx, {1, 3, 3, 4}, {}, runtime::TensorShape::C4HW4)}), kernel::kInvalidTensor);
  EXPECT_TRUE(k2->GetOutputShapes({runtime::MakeShape({7})}).empty());
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_FALSE(k2->Forward({MakeTensor(ctx, {2, 3}, {})}, outputs, ctx));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
