// AVX fixed-size pooling on C8HW8: equal, bit for bit, to the general kernels for the
// same window and stride without padding, over sizes that exercise every
// vector step and tail; and their record and input checks.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/pooling/pooling.h"
#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/fallback/pooling/pooling.h"
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

TEST(AvxFixedPooling, EqualsTheGeneralKernels) {
  TRN_REQUIRE_AVX();
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1>(false, 2, 2, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1>(false, 3, 2, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1>(false, 4, 4, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1>(false, 4, 1, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1>(false, 7, 1, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1>(false, 8, 1, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1>(true, 2, 2, 8);
  ExpectEqualsGeneral<kernel::Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1>(true, 3, 2, 8);
}

TEST(AvxFixedPooling, C8InputChecks) {
  auto ctx = ElementContext();
  auto r = std::make_shared<runtime::AvgPool2dInfo>();
  r->kernel_x = r->kernel_y = 8;
  auto k = Configured<kernel::Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1>(r, ctx);
  const auto C8 = runtime::TensorShape::C8HW8;
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 8, 9, 8}, {}, C8)}), 0);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 8, 7, 8}, {}, C8)}), kernel::kInvalidTensor);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 8, 9, 4}, {}, C8)}), kernel::kInvalidTensor);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 8, 9, 8}, {}, runtime::TensorShape::C4HW4)}), kernel::kInvalidTensor);
  r->stride_x = 2;
  EXPECT_FALSE(k->Config(r, nullptr, ctx));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
