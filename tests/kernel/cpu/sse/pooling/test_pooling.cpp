// SSE fixed-size pooling: equal, bit for bit, to the general kernels for the
// same window and stride without padding, over sizes that exercise every
// vector step and tail; and their record and input checks.
#include <gtest/gtest.h>

#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/sse/pooling/pooling.h"

namespace tarn {
namespace testing {
namespace {

TEST(SseFixedPooling, EqualsTheGeneralKernels) {
  TRN_REQUIRE_SSE();
  ExpectEqualsGeneral<kernel::Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1>(true, 2, 2, 1);
  ExpectEqualsGeneral<kernel::Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1>(true, 3, 2, 1);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1>(false, 2, 2, 1);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1>(false, 3, 2, 1);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1>(false, 7, 1, 1);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1>(false, 4, 4, 1);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1>(false, 4, 4, 4);
}

TEST(SseFixedPooling, RecordAndInputChecks) {
  auto ctx = ElementContext();
  // Records are matched by kernel and stride; padding, dilation and ceil_mode are not examined.
  kernel::Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1 k;
  auto r = MaxPool(3, 2);
  r->padding_t = 1, r->dilation_x = 2, r->ceil_mode = true;
  EXPECT_EQ(k.IsValidParam(r, nullptr), 0);
  r->stride_x = 1;
  EXPECT_EQ(k.IsValidParam(r, nullptr), kernel::kInvalidParam);
  EXPECT_EQ(k.IsValidParam(AvgPool( 3, 2), nullptr), kernel::kInvalidParam);  // Avg record, Max kernel
  EXPECT_FALSE(k.Config(AvgPool( 3, 2), nullptr, ctx));
  // Inputs smaller than the window or in another layout are refused.
  auto k7 = Configured<kernel::Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1>(AvgPool( 7, 1), ctx);
  const auto C4 = runtime::TensorShape::C4HW4;
  EXPECT_EQ(k7->IsValidInput({MakeTensor(ctx, {2, 7, 7}, {})}), 0);
  EXPECT_EQ(k7->IsValidInput({MakeTensor(ctx, {2, 6, 7}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(k7->IsValidInput({MakeTensor(ctx, {2, 7, 7, 4}, {}, C4)}), kernel::kInvalidTensor);
  auto c4 = Configured<kernel::Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1>(AvgPool( 4, 4), ctx);
  EXPECT_EQ(c4->IsValidInput({MakeTensor(ctx, {2, 4, 4, 4}, {}, C4)}), 0);
  EXPECT_EQ(c4->IsValidInput({MakeTensor(ctx, {2, 4, 4, 8}, {}, C4)}), kernel::kInvalidTensor);
  EXPECT_EQ(c4->IsValidInput({MakeTensor(ctx, {2, 4, 4}, {}, C4)}), kernel::kInvalidTensor);
}

TEST(SseFixedPooling, SettingsItIgnoresAreWarnedAboutInConfig) {
  // Config runs in baseline code: this test runs on any processor.
  auto ctx = ElementContext();
  LogCapture log;
  kernel::Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1 max;
  EXPECT_TRUE(max.Config(MaxPool(3, 2), nullptr, ctx));
  EXPECT_TRUE(log.lines.empty()) << "an unpadded layer is what the kernel computes";
  auto padded = MaxPool(3, 2);
  padded->id = "pool1";
  padded->padding_l = padded->padding_t = padded->padding_r = padded->padding_b = 1;
  EXPECT_TRUE(max.Config(padded, nullptr, ctx)) << "still accepted: records match by window and stride";
  EXPECT_TRUE(log.Contains("Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1: layer <pool1> sets padding (l 1, t 1, r 1, b 1), "
                           "which this fixed-size kernel ignores",
                           utility::kLogWarning));
  log.lines.clear();
  auto dilated = MaxPool(3, 2);
  dilated->dilation_y = 2;
  dilated->ceil_mode = true;
  EXPECT_TRUE(max.Config(dilated, nullptr, ctx));
  EXPECT_TRUE(log.Contains("sets ceil_mode, dilation 1x2", utility::kLogWarning));
  log.lines.clear();
  kernel::Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1 avg;
  auto avg_record = AvgPool(2, 2);
  avg_record->count_include_pad = false;  // without padding it changes nothing
  EXPECT_TRUE(avg.Config(avg_record, nullptr, ctx));
  EXPECT_TRUE(log.lines.empty());
  avg_record->padding_r = 1;
  EXPECT_TRUE(avg.Config(avg_record, nullptr, ctx));
  EXPECT_TRUE(log.Contains("sets padding (l 0, t 0, r 1, b 0)", utility::kLogWarning));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
