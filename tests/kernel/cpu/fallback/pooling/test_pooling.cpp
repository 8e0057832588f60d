// General pooling kernels: against PyTorch (max_pool2d with ceil_mode and
// dilation, avg_pool2d with count_include_pad, adaptive_avg_pool2d), the
// system's own rules where they deliberately differ, and hostile records.
#include <gtest/gtest.h>

#include <cmath>

#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/fallback/pooling/pooling.h"
#include "reference/reference_data.h"
#include "tarn/kernel/pooling.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

constexpr float kLowest = -3.4028235e38f;

struct Pool {
  unsigned ky = 1, kx = 1, sy = 1, sx = 1, pt = 0, pb = 0, pl = 0, pr = 0, dy = 1, dx = 1;
  bool ceil = false, include = true;
};

std::shared_ptr<runtime::MaxPool2dInfo> MaxRec(const Pool& p) {
  auto r = std::make_shared<runtime::MaxPool2dInfo>();
  r->kernel_y = p.ky, r->kernel_x = p.kx, r->stride_y = p.sy, r->stride_x = p.sx;
  r->padding_t = p.pt, r->padding_b = p.pb, r->padding_l = p.pl, r->padding_r = p.pr;
  r->dilation_y = p.dy, r->dilation_x = p.dx, r->ceil_mode = p.ceil;
  return r;
}

std::shared_ptr<runtime::AvgPool2dInfo> AvgRec(const Pool& p) {
  auto r = std::make_shared<runtime::AvgPool2dInfo>();
  r->kernel_y = p.ky, r->kernel_x = p.kx, r->stride_y = p.sy, r->stride_x = p.sx;
  r->padding_t = p.pt, r->padding_b = p.pb, r->padding_l = p.pl, r->padding_r = p.pr;
  r->ceil_mode = p.ceil, r->count_include_pad = p.include;
  return r;
}

Pool FromParams(const RefCase& c) {
  auto j = ParseParams(c);
  auto get = [&](const char* k, unsigned def) { return j.HasMember(k) ? j[k].GetUint() : def; };
  Pool p;
  p.ky = get("kernel_y", 1), p.kx = get("kernel_x", 1), p.sy = get("stride_y", 1), p.sx = get("stride_x", 1);
  p.pt = get("padding_t", 0), p.pb = get("padding_b", 0), p.pl = get("padding_l", 0), p.pr = get("padding_r", 0);
  p.dy = get("dilation_y", 1), p.dx = get("dilation_x", 1), p.ceil = get("ceil_mode", 0) != 0;
  p.include = get("count_include_pad", 1) != 0;
  return p;
}

TEST(PoolingReference, GeneralKernelsMatchPyTorch) {
  const auto cases = LoadReference("element_pooling");
  ASSERT_EQ(cases.size(), 18u) << "run tests/reference/make_reference_data.py";
  auto ctx = ElementContext();
  for (const auto& c : cases) {
    std::shared_ptr<runtime::IKernel> k;
    float tolerance = 0;  // max pooling only selects values
    if (c.op == "max_pool2d") {
      k = Configured<kernel::Pooling2D_Max_Fallback_Float_M1>(MaxRec(FromParams(c)), ctx);
    } else if (c.op == "avg_pool2d") {
      k = Configured<kernel::Pooling2D_Avg_Fallback_Float_M1>(AvgRec(FromParams(c)), ctx);
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

std::vector<float> RunMax(const Pool& p, std::vector<unsigned> dims, const std::vector<float>& x,
                          std::vector<unsigned>* out_dims = nullptr) {
  auto ctx = ElementContext();
  auto k = Configured<kernel::Pooling2D_Max_Fallback_Float_M1>(MaxRec(p), ctx);
  auto out = RunKernel(k, {MakeTensor(ctx, std::move(dims), x)}, ctx);
  if (!out) return {};
  if (out_dims) *out_dims = out->shape.dims;
  return Values(out);
}

TEST(MaxPooling, CeilModeSizesAndEdgeClamp) {
  std::vector<float> x(36);
  for (int i = 0; i < 36; ++i) x[i] = static_cast<float>(i);
  Pool p;
  p.ky = p.kx = 3, p.sy = p.sx = 2, p.ceil = true;
  std::vector<unsigned> dims;
  std::vector<float> y = RunMax(p, {1, 6, 6}, x, &dims);
  EXPECT_EQ(dims, (std::vector<unsigned>{1, 3, 3}));  // R(3 / 2 -> 2) + 1
  EXPECT_EQ(y[8], 35.0f);                             // the last window's third row and column are clamped to the edge
  p.ceil = false;
  RunMax(p, {1, 6, 6}, x, &dims);
  EXPECT_EQ(dims, (std::vector<unsigned>{1, 2, 2}));
}

TEST(MaxPooling, CeilWindowPastTheEdgeIsKeptUnlikePyTorch) {
  // H = 5, kernel 1, stride 3, ceil: R(4 / 3) = 2 gives 3 rows. PyTorch drops
  // the third (its window would start past the input); here it reads the
  // last row, clamped.
  Pool p;
  p.sy = 3, p.ceil = true;
  std::vector<unsigned> dims;
  std::vector<float> y = RunMax(p, {1, 5, 1}, {1, 2, 3, 4, 5}, &dims);
  EXPECT_EQ(dims, (std::vector<unsigned>{1, 3, 1}));
  EXPECT_EQ(y, (std::vector<float>{1, 4, 5}));
}

TEST(MaxPooling, WindowOfPaddingOnlyYieldsLowestFiniteFloat) {
  Pool p;
  p.pt = p.pb = p.pl = p.pr = 1;  // kernel 1 with padding 1: corners see padding alone
  std::vector<unsigned> dims;
  std::vector<float> y = RunMax(p, {1, 2, 2}, {1, 2, 3, 4}, &dims);
  EXPECT_EQ(dims, (std::vector<unsigned>{1, 4, 4}));
  EXPECT_EQ(Bits(y[0]), 0xff7fffffu);  // -3.4028235e38, not -infinity
  EXPECT_EQ(y[5], 1.0f);
}

TEST(MaxPooling, NaNIsSkippedUnlikePyTorch) {
  Pool p;
  p.ky = p.kx = 2, p.sy = p.sx = 2;
  std::vector<float> y = RunMax(p, {1, 2, 4}, {NAN, 1, NAN, NAN, 3, -2, NAN, NAN});
  EXPECT_EQ(y[0], 3.0f);
  EXPECT_EQ(y[1], kLowest);  // all NaN: the starting value survives
}

TEST(AvgPooling, DivisorRuleAndIgnoredCeilMode) {
  auto ctx = ElementContext();
  std::vector<float> ones(16, 1.0f);
  Pool p;
  p.ky = p.kx = 3, p.sy = p.sx = 2, p.pt = p.pb = p.pl = p.pr = 1, p.include = false;
  auto k = Configured<kernel::Pooling2D_Avg_Fallback_Float_M1>(AvgRec(p), ctx);
  auto in = MakeTensor(ctx, {1, 4, 4}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
  auto out = RunKernel(k, {in}, ctx);
  ASSERT_TRUE(out);
  EXPECT_EQ(Values(out)[0], (1 + 2 + 5 + 6) / 4.0f);  // 5 of 9 positions are padding
  p.include = true;
  k = Configured<kernel::Pooling2D_Avg_Fallback_Float_M1>(AvgRec(p), ctx);
  out = RunKernel(k, {in}, ctx);
  ASSERT_TRUE(out);
  EXPECT_EQ(Values(out)[0], (1 + 2 + 5 + 6) / 9.0f);
  // ceil_mode set still gives the floor size: (6 - 3) / 2 + 1 = 2, not 3.
  Pool c;
  c.ky = c.kx = 3, c.sy = c.sx = 2, c.ceil = true;
  k = Configured<kernel::Pooling2D_Avg_Fallback_Float_M1>(AvgRec(c), ctx);
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
    Pool p;
    p.ky = p.kx = 2;
    auto r = MaxRec(p);
    spoil(*r);
    kernel::Pooling2D_Max_Fallback_Float_M1 k;
    return k.IsValidParam(r, nullptr) == kernel::kInvalidParam && !k.Config(r, nullptr, ctx);
  };
  EXPECT_TRUE(bad_max([](runtime::MaxPool2dInfo& r) { r.kernel_x = 0; }));
  EXPECT_TRUE(bad_max([](runtime::MaxPool2dInfo& r) { r.stride_y = 0; }));
  EXPECT_TRUE(bad_max([](runtime::MaxPool2dInfo& r) { r.dilation_x = 0; }));
  EXPECT_TRUE(bad_max([](runtime::MaxPool2dInfo& r) { r.padding_t = -1; }));
  EXPECT_TRUE(bad_max([](runtime::MaxPool2dInfo& r) { r.padding_r = -32768; }));
  Pool p;
  auto avg = AvgRec(p);
  avg->stride_x = 0;
  kernel::Pooling2D_Avg_Fallback_Float_M1 a;
  EXPECT_FALSE(a.Config(avg, nullptr, ctx));
  avg = AvgRec(p);
  avg->padding_l = -2;
  EXPECT_FALSE(a.Config(avg, nullptr, ctx));
  EXPECT_FALSE(a.Config(MaxRec(p), nullptr, ctx));
  kernel::AdaptivePooling2D_Avg_Fallback_CHW_Float_M1 ad;
  auto r = std::make_shared<runtime::AdaptiveAvgPool2dInfo>();
  for (auto sizes : {std::vector<unsigned short>{}, {3}, {3, 0}, {0, 3}, {2, 2, 2}}) {
    r->output_size = sizes;
    EXPECT_FALSE(ad.Config(r, nullptr, ctx)) << sizes.size();
  }
}

TEST(Pooling, InputsTheWindowDoesNotFitAreRefused) {
  auto ctx = ElementContext();
  Pool p;
  p.ky = p.kx = 3, p.dy = p.dx = 2;  // extent 5
  auto k = Configured<kernel::Pooling2D_Max_Fallback_Float_M1>(MaxRec(p), ctx);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 5, 5}, {})}), 0);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 4, 5}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {5, 5}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {1, 5, 5}, {}, runtime::TensorShape::C4HW4)}), kernel::kInvalidTensor);
  Pool q;
  q.ky = q.kx = 4, q.pt = 1;
  auto a = Configured<kernel::Pooling2D_Avg_Fallback_Float_M1>(AvgRec(q), ctx);
  EXPECT_EQ(a->IsValidInput({MakeTensor(ctx, {2, 3, 4}, {})}), 0);  // 3 + 1 padded rows fit
  EXPECT_EQ(a->IsValidInput({MakeTensor(ctx, {2, 2, 4}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(a->IsValidInput({MakeTensor(ctx, {2, 3, 3}, {})}), kernel::kInvalidTensor);
  // Padding that would need a padded tensor beyond 32-bit counts.
  Pool big;
  big.pt = big.pb = big.pl = big.pr = 32767;
  auto m = Configured<kernel::Pooling2D_Max_Fallback_Float_M1>(MaxRec(big), ctx);
  EXPECT_EQ(m->IsValidInput({MakeTensor(ctx, {4, 1, 1}, {})}), kernel::kInvalidTensor);
}

TEST(Pooling, NonFloatPlaneSizeFailsTheTypeAssertion) {
  runtime::TensorShape s = runtime::MakeShape({1, 2, 2}, runtime::TensorShape::INT16);
  EXPECT_NE(ThrownMessage([&] { kernel::PoolingPlaneFloats(s); }).find("false && \"Invalid type\""), std::string::npos);
  EXPECT_EQ(kernel::PoolingPlaneFloats(runtime::MakeShape({3, 2, 5})), 10u);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
