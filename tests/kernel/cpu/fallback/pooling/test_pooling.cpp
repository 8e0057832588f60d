// General pooling kernels: against PyTorch (max_pool2d with ceil_mode and
// dilation, avg_pool2d with count_include_pad, adaptive_avg_pool2d), the
// system's own rules where they deliberately differ, and hostile records.
#include <gtest/gtest.h>

#include <cmath>
#include <type_traits>

#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/fallback/pooling/pooling.h"
#include "reference/reference_data.h"
#include "tarn/kernel/pooling.h"

namespace tarn {
namespace testing {
namespace {

constexpr float kLowest = -3.4028235e38f;

// A pooling record from a reference case's parameters, PyTorch's defaults
// for the missing ones.
template <typename Record>
std::shared_ptr<Record> FromParams(const RefCase& c) {
  auto j = ParseParams(c);
  auto get = [&](const char* k, unsigned def) { return j.HasMember(k) ? j[k].GetUint() : def; };
  auto r = std::make_shared<Record>();
  r->kernel_y = get("kernel_y", 1), r->kernel_x = get("kernel_x", 1);
  r->stride_y = get("stride_y", 1), r->stride_x = get("stride_x", 1);
  r->padding_t = get("padding_t", 0), r->padding_b = get("padding_b", 0);
  r->padding_l = get("padding_l", 0), r->padding_r = get("padding_r", 0);
  r->ceil_mode = get("ceil_mode", 0) != 0;
  if constexpr (std::is_same_v<Record, runtime::MaxPool2dInfo>) {
    r->dilation_y = get("dilation_y", 1), r->dilation_x = get("dilation_x", 1);
  } else {
    r->count_include_pad = get("count_include_pad", 1) != 0;
  }
  return r;
}

TEST(PoolingReference, GeneralKernelsMatchPyTorch) {
  const auto cases = LoadReference("element_pooling");
  ASSERT_EQ(cases.size(), 18u) << "run tests/reference/make_reference_data.py";
  auto ctx = ElementContext();
  for (const auto& c : cases) {
    std::shared_ptr<runtime::IKernel> k;
    float tolerance = 0;  // max pooling only selects values
    if (c.op == "max_pool2d") {
      k = Configured<kernel::Pooling2D_Max_Fallback_Float_M1>(FromParams<runtime::MaxPool2dInfo>(c), ctx);
    } else if (c.op == "avg_pool2d") {
      k = Configured<kernel::Pooling2D_Avg_Fallback_Float_M1>(FromParams<runtime::AvgPool2dInfo>(c), ctx);
      tolerance = 1e-6f;
    } else {
      auto r = std::make_shared<runtime::AdaptiveAvgPool2dInfo>();
      const auto params = ParseParams(c);
      for (const auto& v : params["output_size"].GetArray()) r->output_size.push_back(v.GetUint());
      k = Configured<kernel::AdaptivePooling2D_Avg_Fallback_CHW_Float_M1>(r, ctx);
      tolerance = 1e-6f;  // two divisions against one
    }
    auto in = MakeTensor(ctx, c.inputs[0].shape, c.inputs[0].data);
    ASSERT_EQ(k->GetOutputShapes({in->shape})[0].dims, c.outputs[0].shape) << c.name;
    auto out = RunKernel(k, {in}, ctx);
    ASSERT_TRUE(out) << c.name;
    const std::vector<float> got = Values(out);
    for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], c.outputs[0].data[i], tolerance) << c.name << " " << i;
  }
}

std::vector<float> RunMax(const std::shared_ptr<runtime::MaxPool2dInfo>& r, std::vector<unsigned> dims,
                          const std::vector<float>& x, std::vector<unsigned>* out_dims = nullptr) {
  auto ctx = ElementContext();
  auto out = RunKernel(Configured<kernel::Pooling2D_Max_Fallback_Float_M1>(r, ctx), {MakeTensor(ctx, dims, x)}, ctx);
  if (!out) return {};
  if (out_dims) *out_dims = out->shape.dims;
  return Values(out);
}

TEST(MaxPooling, CeilModeSizesAndEdgeClamp) {
  std::vector<float> x(36);
  for (int i = 0; i < 36; ++i) x[i] = static_cast<float>(i);
  auto r = MaxPool(3, 2);
  r->ceil_mode = true;
  std::vector<unsigned> dims;
  std::vector<float> y = RunMax(r, {1, 6, 6}, x, &dims);
  EXPECT_EQ(dims, (std::vector<unsigned>{1, 3, 3}));  // R(3 / 2 -> 2) + 1
  EXPECT_EQ(y[8], 35.0f);                             // the last window's third row and column are clamped to the edge
  r->ceil_mode = false;
  RunMax(r, {1, 6, 6}, x, &dims);
  EXPECT_EQ(dims, (std::vector<unsigned>{1, 2, 2}));
  // H = 5, kernel 1, stride 3, ceil: R(4 / 3) = 2 gives 3 rows. PyTorch drops
  // the third (its window would start past the input); here it reads the
  // last row, clamped.
  r = MaxPool(1, 1);
  r->stride_y = 3, r->ceil_mode = true;
  y = RunMax(r, {1, 5, 1}, {1, 2, 3, 4, 5}, &dims);
  EXPECT_EQ(dims, (std::vector<unsigned>{1, 3, 1}));
  EXPECT_EQ(y, (std::vector<float>{1, 4, 5}));
}

TEST(MaxPooling, PaddingOnlyWindowsAndNaNInputsLeaveTheLowestFiniteFloat) {
  auto r = MaxPool(1, 1);
  r->padding_t = r->padding_b = r->padding_l = r->padding_r = 1;  // kernel 1 with padding 1: corners see padding alone
  std::vector<unsigned> dims;
  std::vector<float> y = RunMax(r, {1, 2, 2}, {1, 2, 3, 4}, &dims);
  EXPECT_EQ(dims, (std::vector<unsigned>{1, 4, 4}));
  EXPECT_EQ(Bits(y[0]), 0xff7fffffu);  // -3.4028235e38, not -infinity
  EXPECT_EQ(y[5], 1.0f);
  // NaN is skipped, unlike PyTorch; a window of NaN alone keeps the starting value.
  y = RunMax(MaxPool(2, 2), {1, 2, 4}, {NAN, 1, NAN, NAN, 3, -2, NAN, NAN});
  EXPECT_EQ(y[0], 3.0f);
  EXPECT_EQ(y[1], kLowest);
}

TEST(AvgPooling, DivisorRuleAndIgnoredCeilMode) {
  auto ctx = ElementContext();
  auto r = AvgPool(3, 2);
  r->padding_t = r->padding_b = r->padding_l = r->padding_r = 1, r->count_include_pad = false;
  auto in = MakeTensor(ctx, {1, 4, 4}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
  auto out = RunKernel(Configured<kernel::Pooling2D_Avg_Fallback_Float_M1>(r, ctx), {in}, ctx);
  ASSERT_TRUE(out);
  EXPECT_EQ(Values(out)[0], (1 + 2 + 5 + 6) / 4.0f);  // 5 of 9 positions are padding
  r->count_include_pad = true;
  out = RunKernel(Configured<kernel::Pooling2D_Avg_Fallback_Float_M1>(r, ctx), {in}, ctx);
  ASSERT_TRUE(out);
  EXPECT_EQ(Values(out)[0], (1 + 2 + 5 + 6) / 9.0f);
  // ceil_mode set still gives the floor size: (6 - 3) / 2 + 1 = 2, not 3.
  r = AvgPool(3, 2);
  r->ceil_mode = true;
  auto k = Configured<kernel::Pooling2D_Avg_Fallback_Float_M1>(r, ctx);
  EXPECT_EQ(k->GetOutputShapes({runtime::MakeShape({1, 6, 6})})[0].dims, (std::vector<unsigned>{1, 2, 2}));
}

TEST(AdaptivePooling, MiddleRowBelongsToBothWindows) {
  auto ctx = ElementContext();
  auto r = std::make_shared<runtime::AdaptiveAvgPool2dInfo>();
  r->output_size = {2, 2};
  auto k = Configured<kernel::AdaptivePooling2D_Avg_Fallback_CHW_Float_M1>(r, ctx);
  std::vector<float> x(25, 0.0f);
  for (int c = 0; c < 5; ++c) x[2 * 5 + c] = 9.0f;  // only the middle row is non-zero
  auto out = RunKernel(k, {MakeTensor(ctx, {1, 5, 5}, x)}, ctx);
  ASSERT_TRUE(out);
  // Rows 0..2 and 2..4, columns likewise: each window holds 3 nines of 9 values.
  for (float v : Values(out)) EXPECT_EQ(v, (27.0f / 3.0f) / 3.0f);
}

TEST(Pooling, HostileRecordsAreRefused) {
  auto ctx = ElementContext();
  auto bad_max = [&](std::function<void(runtime::MaxPool2dInfo&)> spoil) {
    auto r = MaxPool(2, 1);
    spoil(*r);
    kernel::Pooling2D_Max_Fallback_Float_M1 k;
    return k.IsValidParam(r, nullptr) == kernel::kInvalidParam && !k.Config(r, nullptr, ctx);
  };
  EXPECT_TRUE(bad_max([](runtime::MaxPool2dInfo& r) { r.kernel_x = 0; }));
  EXPECT_TRUE(bad_max([](runtime::MaxPool2dInfo& r) { r.stride_y = 0; }));
  EXPECT_TRUE(bad_max([](runtime::MaxPool2dInfo& r) { r.dilation_x = 0; }));
  EXPECT_TRUE(bad_max([](runtime::MaxPool2dInfo& r) { r.padding_t = -1; }));
  EXPECT_TRUE(bad_max([](runtime::MaxPool2dInfo& r) { r.padding_r = -32768; }));
  kernel::Pooling2D_Avg_Fallback_Float_M1 a;
  auto avg = AvgPool(1, 1);
  avg->stride_x = 0;
  EXPECT_FALSE(a.Config(avg, nullptr, ctx));
  avg = AvgPool(1, 1);
  avg->padding_l = -2;
  EXPECT_FALSE(a.Config(avg, nullptr, ctx));
  EXPECT_FALSE(a.Config(MaxPool(1, 1), nullptr, ctx));
  kernel::AdaptivePooling2D_Avg_Fallback_CHW_Float_M1 ad;
  auto r = std::make_shared<runtime::AdaptiveAvgPool2dInfo>();
  for (auto sizes : {std::vector<unsigned short>{}, {3}, {3, 0}, {0, 3}, {2, 2, 2}}) {
    r->output_size = sizes;
    EXPECT_FALSE(ad.Config(r, nullptr, ctx)) << sizes.size();
  }
}

TEST(Pooling, InputsTheWindowDoesNotFitAreRefused) {
  auto ctx = ElementContext();
  auto r = MaxPool(3, 1);
  r->dilation_y = r->dilation_x = 2;  // extent 5
  auto k = Configured<kernel::Pooling2D_Max_Fallback_Float_M1>(r, ctx);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 5, 5}, {})}), 0);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 4, 5}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {5, 5}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 5, 5}, {}, runtime::TensorShape::C4HW4)}), kernel::kInvalidTensor);
  auto q = AvgPool(4, 1);
  q->padding_t = 1;
  auto a = Configured<kernel::Pooling2D_Avg_Fallback_Float_M1>(q, ctx);
  EXPECT_EQ(a->IsValidInput({MakeTensor(ctx, {2, 3, 4}, {})}), 0);  // 3 + 1 padded rows fit
  EXPECT_EQ(a->IsValidInput({MakeTensor(ctx, {2, 2, 4}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(a->IsValidInput({MakeTensor(ctx, {2, 3, 3}, {})}), kernel::kInvalidTensor);
  // Padding that would need a padded tensor beyond 32-bit counts.
  auto big = MaxPool(1, 1);
  big->padding_t = big->padding_b = big->padding_l = big->padding_r = 32767;
  auto m = Configured<kernel::Pooling2D_Max_Fallback_Float_M1>(big, ctx);
  EXPECT_EQ(m->IsValidInput({MakeTensor(ctx, {4, 1, 1}, {})}), kernel::kInvalidTensor);
  // The plane size of a tensor that does not hold floats fails the type assertion.
  EXPECT_NE(ThrownMessage([&] {
              kernel::PoolingPlaneFloats(runtime::MakeShape({1, 2, 2}, runtime::TensorShape::INT16));
            }).find("false && \"Invalid type\""),
            std::string::npos);
  EXPECT_EQ(kernel::PoolingPlaneFloats(runtime::MakeShape({3, 2, 5})), 10u);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
