// Portable pixel shuffle and space-to-depth: every PyTorch fixture case bit
// for bit, and the records and inputs they refuse.
#include <gtest/gtest.h>

#include <cmath>

#include "kernel/cpu/fallback/pixel_shuffle/pixel_shuffle.h"
#include "kernel/cpu/fallback/space_to_depth/space_to_depth.h"
#include "kernel/cpu/shape_test_util.h"

namespace tarn {
namespace testing {
namespace {

std::shared_ptr<runtime::SpaceToDepthInfo> Space(float b) {
  auto rec = std::make_shared<runtime::SpaceToDepthInfo>();
  rec->scale_factor = b;
  return rec;
}

class PixelReference : public ::testing::TestWithParam<RefCase> {};

TEST_P(PixelReference, MatchesPyTorch) {
  const RefCase& c = GetParam();
  auto ctx = ElementContext();
  std::shared_ptr<runtime::IKernel> k;
  if (c.op == "pixel_shuffle") {
    k = Configured<kernel::PixelShuffle_Fallback_CHW_Float_M1>(
        Shuffle(static_cast<float>(ParseParams(c)["upscale_factor"].GetDouble())), ctx);
  } else {
    k = Configured<kernel::SpaceToDepth_Fallback_CHW_Float_M1>(
        Space(static_cast<float>(ParseParams(c)["scale_factor"].GetDouble())), ctx);
  }
  auto in = RefInput(ctx, c.inputs[0]);
  auto out = RunAsNet(k, {in}, ctx);
  EXPECT_TRUE(SameTensor(out, c.outputs[0]));
  EXPECT_EQ(k->GetOutputShapes({in->shape})[0].dims, c.outputs[0].shape);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, PixelReference, ::testing::ValuesIn(LoadReference("shape/pixel")),
                         [](const auto& info) { return info.param.name; });

// Factors that are not whole numbers >= 1 are refused by the record check.
TEST(PixelRecords, FactorsMustBeWholeAndPositive) {
  auto ctx = ElementContext();
  for (float f : {0.0f, -2.0f, 1.5f, NAN, INFINITY, 70000.0f}) {
    kernel::PixelShuffle_Fallback_CHW_Float_M1 shuffle;
    kernel::SpaceToDepth_Fallback_CHW_Float_M1 space;
    EXPECT_EQ(shuffle.IsValidParam(Shuffle(f), nullptr), kernel::kInvalidParam) << f;
    EXPECT_FALSE(shuffle.Config(Shuffle(f), nullptr, ctx)) << f;
    EXPECT_EQ(space.IsValidParam(Space(f), nullptr), kernel::kInvalidParam) << f;
    EXPECT_FALSE(space.Config(Space(f), nullptr, ctx)) << f;
  }
  EXPECT_EQ(kernel::WholeFactor(3.0f), 3u);
}

TEST(PixelInputs, ChannelsAndSizesMustDivide) {
  auto ctx = ElementContext();
  auto shuffle = Configured<kernel::PixelShuffle_Fallback_CHW_Float_M1>(Shuffle(2), ctx);
  auto space = Configured<kernel::SpaceToDepth_Fallback_CHW_Float_M1>(Space(2), ctx);
  LogCapture log;
  EXPECT_EQ(shuffle->IsValidInput({MakeTensor(ctx, {6, 2, 2}, {})}), kernel::kInvalidTensor);
  EXPECT_TRUE(log.Contains("6 channels are not a multiple of 4"));
  EXPECT_EQ(shuffle->IsValidInput({MakeTensor(ctx, {4, 2}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(shuffle->IsValidInput({MakeTensor(ctx, {1, 2, 2, 4}, {}, runtime::TensorShape::C4HW4)}),
            kernel::kInvalidTensor);
  EXPECT_EQ(space->IsValidInput({MakeTensor(ctx, {3, 4, 5}, {})}), kernel::kInvalidTensor);
  EXPECT_TRUE(log.Contains("does not divide"));
  // Inputs past the 32-bit element count are refused from the shape alone.
  EXPECT_TRUE(shuffle->GetOutputShapes({runtime::MakeShape({70000, 70000, 4})}).empty());
  EXPECT_TRUE(space->GetOutputShapes({runtime::MakeShape({70000, 70000, 4})}).empty());
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_FALSE(shuffle->Forward({MakeTensor(ctx, {6, 2, 2}, {})}, outputs, ctx));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
