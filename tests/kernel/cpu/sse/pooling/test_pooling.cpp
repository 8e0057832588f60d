// SSE fixed-size pooling: equal, bit for bit, to the general kernels for the
// same window and stride without padding, over sizes that exercise every
// vector step and tail; and their record and input checks.
#include <gtest/gtest.h>

#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/fallback/pooling/pooling.h"
#include "kernel/cpu/sse/pooling/pooling.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

// The general kernel's result for a window/stride without padding.
std::vector<float> General(bool is_max, unsigned k, unsigned s, unsigned c, unsigned h, unsigned w,
                           const std::vector<float>& x) {
  auto ctx = ElementContext();
  std::shared_ptr<runtime::IKernel> kern;
  if (is_max) {
    auto r = std::make_shared<runtime::MaxPool2dInfo>();
    r->kernel_x = r->kernel_y = k, r->stride_x = r->stride_y = s;
    kern = Configured<kernel::Pooling2D_Max_Fallback_Float_M1>(r, ctx);
  } else {
    auto r = std::make_shared<runtime::AvgPool2dInfo>();
    r->kernel_x = r->kernel_y = k, r->stride_x = r->stride_y = s;
    kern = Configured<kernel::Pooling2D_Avg_Fallback_Float_M1>(r, ctx);
  }
  auto out = RunKernel(kern, {MakeTensor(ctx, {c, h, w}, x)}, ctx);
  return out ? Values(out) : std::vector<float>();
}

template <typename K>
void ExpectEqualsGeneral(bool is_max, unsigned k, unsigned s, unsigned lanes) {
  auto ctx = ElementContext();
  std::shared_ptr<runtime::LayerInfo> rec;
  if (is_max) {
    auto r = std::make_shared<runtime::MaxPool2dInfo>();
    r->kernel_x = r->kernel_y = k, r->stride_x = r->stride_y = s;
    rec = r;
  } else {
    auto r = std::make_shared<runtime::AvgPool2dInfo>();
    r->kernel_x = r->kernel_y = k, r->stride_x = r->stride_y = s;
    r->padding_l = 3;  // padding is not read by the fixed kernels
    rec = r;
  }
  auto kern = Configured<K>(rec, ctx);
  const unsigned c = lanes == 1 ? 3 : 2 * lanes;
  for (unsigned h = k; h < k + 3; ++h) {
    for (unsigned w = k; w < k + 4 * s + 9; ++w) {
      const std::vector<float> x = TestValues(size_t(c) * h * w, -5.0f, 5.0f, h * 131 + w, 13);
      const std::vector<float> want = General(is_max, k, s, c, h, w, x);
      std::shared_ptr<runtime::Tensor> out;
      if (lanes == 1) {
        out = RunKernel(kern, {MakeTensor(ctx, {c, h, w}, x)}, ctx);
      } else {
        const auto layout = lanes == 4 ? runtime::TensorShape::C4HW4 : runtime::TensorShape::C8HW8;
        out = RunKernel(kern, {MakeTensor(ctx, {c / lanes, h, w, lanes}, ToBlocked(x, c, h, w, lanes), layout)}, ctx);
      }
      ASSERT_TRUE(out);
      const unsigned oh = (h - k) / s + 1, ow = (w - k) / s + 1;
      ASSERT_EQ(out->shape.dims[1], oh);
      ASSERT_EQ(out->shape.dims[2], ow);
      const std::vector<float> got = lanes == 1 ? Values(out) : FromBlocked(Values(out), c, oh, ow, lanes);
      ASSERT_EQ(got.size(), want.size());
      EXPECT_TRUE(SameBits(got.data(), want.data(), got.size())) << kern->GetName() << " " << h << "x" << w;
    }
  }
}

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

TEST(SseFixedPooling, RecordsAreMatchedByKernelAndStride) {
  kernel::Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1 k;
  auto r = std::make_shared<runtime::MaxPool2dInfo>();
  r->kernel_x = r->kernel_y = 3, r->stride_x = r->stride_y = 2;
  r->padding_t = 1, r->dilation_x = 2, r->ceil_mode = true;  // not examined
  EXPECT_EQ(k.IsValidParam(r, nullptr), 0);
  r->stride_x = 1;
  EXPECT_EQ(k.IsValidParam(r, nullptr), kernel::kInvalidParam);
  auto avg = std::make_shared<runtime::AvgPool2dInfo>();
  avg->kernel_x = avg->kernel_y = 3, avg->stride_x = avg->stride_y = 2;
  EXPECT_EQ(k.IsValidParam(avg, nullptr), kernel::kInvalidParam);  // an Avg record for a Max kernel
  EXPECT_FALSE(k.Config(avg, nullptr, ElementContext()));
}

TEST(SseFixedPooling, InputsSmallerThanTheWindowOrInAnotherLayoutAreRefused) {
  auto ctx = ElementContext();
  auto r = std::make_shared<runtime::AvgPool2dInfo>();
  r->kernel_x = r->kernel_y = 7;
  auto k = Configured<kernel::Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1>(r, ctx);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {2, 7, 7}, {})}), 0);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {2, 6, 7}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {2, 7, 7, 4}, {}, runtime::TensorShape::C4HW4)}), kernel::kInvalidTensor);
  r->kernel_x = r->kernel_y = 4, r->stride_x = r->stride_y = 4;
  auto c4 = Configured<kernel::Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1>(r, ctx);
  EXPECT_EQ(c4->IsValidInput({MakeTensor(ctx, {2, 4, 4, 4}, {}, runtime::TensorShape::C4HW4)}), 0);
  EXPECT_EQ(c4->IsValidInput({MakeTensor(ctx, {2, 4, 4, 8}, {}, runtime::TensorShape::C4HW4)}), kernel::kInvalidTensor);
  EXPECT_EQ(c4->IsValidInput({MakeTensor(ctx, {2, 4, 4}, {}, runtime::TensorShape::C4HW4)}), kernel::kInvalidTensor);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
