// Sum and mean reductions: against PyTorch (keepdim), axis handling and the
// record checks.
#include <gtest/gtest.h>

#include <cmath>

#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/fallback/tensor_arithmetic/tensor_arithmetic.h"
#include "reference/reference_data.h"
#include "tarn/kernel/tensor_arithmetic.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

std::shared_ptr<runtime::TensorArithmeticInfo> Rec(std::uint16_t type, std::vector<short> dims) {
  auto r = std::make_shared<runtime::TensorArithmeticInfo>();
  r->arith_type = type;
  r->dim = std::move(dims);
  return r;
}

TEST(TensorArithmeticReference, MatchesPyTorchWithKeptDims) {
  const auto cases = LoadReference("element_arithmetic");
  ASSERT_EQ(cases.size(), 5u) << "run tests/reference/make_reference_data.py";
  auto ctx = ElementContext();
  for (const auto& c : cases) {
    std::vector<short> dims;
    const auto params = ParseParams(c);  // the document must outlive the loop
    for (const auto& d : params["dim"].GetArray()) dims.push_back(static_cast<short>(d.GetInt()));
    auto k = Configured<kernel::TensorArithmetic_Fallback_M1>(Rec(c.op == "sum" ? 0 : 1, dims), ctx);
    auto out = RunKernel(k, {MakeTensor(ctx, c.inputs[0].shape, c.inputs[0].data)}, ctx);
    ASSERT_TRUE(out) << c.name;
    EXPECT_EQ(out->shape.dims, c.outputs[0].shape) << c.name;
    const std::vector<float> got = Values(out);
    ASSERT_EQ(got.size(), c.outputs[0].data.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], c.outputs[0].data[i], 2e-6f) << c.name;
  }
}

TEST(TensorArithmetic, SumIsInSourceOrderAndMeanDividesByTheReducedCount) {
  auto ctx = ElementContext();
  auto in = MakeTensor(ctx, {2, 3}, {1e8f, 1, -1e8f, 2, 3, 4});
  auto sum = Configured<kernel::TensorArithmetic_Fallback_M1>(Rec(0, {1}), ctx);
  auto out = RunKernel(sum, {in}, ctx);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->shape.dims, (std::vector<unsigned>{2, 1}));
  EXPECT_EQ(Values(out)[0], (1e8f + 1.0f) - 1e8f);  // single precision, left to right
  EXPECT_EQ(Values(out)[1], 9.0f);
  auto mean = Configured<kernel::TensorArithmetic_Fallback_M1>(Rec(1, {0}), ctx);
  out = RunKernel(mean, {in}, ctx);
  ASSERT_TRUE(out);
  EXPECT_EQ(Values(out), (std::vector<float>{(1e8f + 2) / 2, 2.0f, (-1e8f + 4) / 2}));
  // An empty axis reduced by the mean is 0 / 0.
  auto empty = MakeTensor(ctx, {0, 2}, {});
  out = RunKernel(mean, {empty}, ctx);
  ASSERT_TRUE(out);
  EXPECT_TRUE(std::isnan(Values(out)[0]));
}

TEST(TensorArithmetic, RecordAndAxisChecks) {
  auto ctx = ElementContext();
  kernel::TensorArithmetic_Fallback_M1 k;
  EXPECT_EQ(ThrownMessage([&] { k.Config(Rec(2, {0}), nullptr, ctx); }), "Invalid arithmetic type");
  EXPECT_EQ(k.IsValidParam(std::make_shared<runtime::ActivationInfo>(), nullptr), kernel::kInvalidParam);
  ASSERT_TRUE(k.Config(Rec(0, {2, -4}), nullptr, ctx));
  EXPECT_EQ(k.IsValidInput({MakeTensor(ctx, {2, 3, 4, 5}, {})}), 0);
  EXPECT_EQ(k.IsValidInput({MakeTensor(ctx, {2, 3}, {})}), kernel::kInvalidTensor);  // axis 2 beyond rank
  EXPECT_TRUE(k.GetOutputShapes({runtime::MakeShape({2, 3})}).empty());
  ASSERT_TRUE(k.Config(Rec(0, {-3}), nullptr, ctx));
  EXPECT_EQ(k.IsValidInput({MakeTensor(ctx, {2, 3}, {})}), kernel::kInvalidTensor);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
