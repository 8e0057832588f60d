// Grid sampling: the portable kernel against PyTorch's F.grid_sample over
// both modes, the three padding modes and both corner conventions (grid
// values past [-1, 1] included, and a one-row input whose reflection span is
// empty), NaN and huge grid values (PyTorch's results for them by hand), and
// the records and inputs it refuses.
#include <gtest/gtest.h>

#include "kernel/cpu/resampling_test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(GridSampleReference, PortableKernelMatchesPyTorch) {
  const auto cases = ResamplingReference("grid_sample");
  ASSERT_EQ(cases.size(), 24u) << "run tests/reference/make_resampling_reference.py";
  auto ctx = ElementContext();
  for (const auto& c : cases) {
    const auto p = ParseParams(c);
    auto k = Configured<kernel::GridSample_Fallback_CHW_Float_M1>(
        GridSampleRecord(static_cast<std::uint16_t>(p["mode"].GetUint()),
                         static_cast<std::uint16_t>(p["padding_mode"].GetUint()), p["align_corners"].GetBool()),
        ctx);
    std::vector<unsigned> dims;
    const std::vector<float> y =
        Output(k, {MakeTensor(ctx, c.inputs[0].shape, c.inputs[0].data), MakeTensor(ctx, c.inputs[1].shape, c.inputs[1].data)},
               ctx, &dims);
    EXPECT_EQ(dims, c.outputs[0].shape) << c.name;
    EXPECT_TRUE(Near(y, c.outputs[0].data, 1e-6f)) << c.name;
  }
}

TEST(GridSample, NaNAndHugeGridValuesStayInsideTheInput) {
  auto ctx = ElementContext();
  const std::vector<float> x = {1, 2, 3, 4, 5, 6};  // one channel, 2 x 3
  const std::vector<float> grid = {NAN, 0.0f, 1e30f, -1e30f, -INFINITY, INFINITY, 0.0f, NAN};
  auto run = [&](std::uint16_t mode, std::uint16_t padding) {
    auto k = Configured<kernel::GridSample_Fallback_CHW_Float_M1>(GridSampleRecord(mode, padding, false), ctx);
    return Output(k, {MakeTensor(ctx, {1, 2, 3}, x), MakeTensor(ctx, {1, 4, 2}, grid)}, ctx);
  };
  // Zeros padding: NaN, infinite and far positions read nothing and give 0
  // (PyTorch gives NaN for the first three: the one deliberate difference).
  EXPECT_EQ(run(0, 0), (std::vector<float>{0, 0, 0, 0}));
  EXPECT_EQ(run(1, 0), (std::vector<float>{0, 0, 0, 0}));
  // Border and reflection: NaN clips to the first row or column, far
  // positions to the edges (reflection folds infinities to NaN, then 0); the
  // values are PyTorch's.
  EXPECT_EQ(run(0, 1), (std::vector<float>{2.5f, 3.0f, 4.0f, 2.0f}));
  EXPECT_EQ(run(1, 1), (std::vector<float>{1.0f, 3.0f, 4.0f, 2.0f}));
  EXPECT_EQ(run(0, 2), (std::vector<float>{2.5f, 1.0f, 1.0f, 2.0f}));
  EXPECT_EQ(run(1, 2), (std::vector<float>{1.0f, 1.0f, 1.0f, 2.0f}));
}

TEST(GridSample, RecordsAndInputsThatDoNotFitAreRefused) {
  auto ctx = ElementContext();
  kernel::GridSample_Fallback_CHW_Float_M1 k;
  EXPECT_EQ(k.IsValidParam(GridSampleRecord(2, 0, false), nullptr), kernel::kInvalidParam);  // bicubic
  EXPECT_EQ(k.IsValidParam(GridSampleRecord(0, 3, false), nullptr), kernel::kInvalidParam);
  const std::string logged = LoggedRefusal([&] { EXPECT_FALSE(k.Config(GridSampleRecord(0, 7, true), nullptr, ctx)); });
  EXPECT_NE(logged.find("\"padding_mode\" is not 0 (zeros), 1 (border) or 2 (reflection)"), std::string::npos);
  auto ok = Configured<kernel::GridSample_Fallback_CHW_Float_M1>(GridSampleRecord(1, 2, true), ctx);
  auto input = MakeTensor(ctx, {2, 4, 4}, {});
  EXPECT_EQ(ok->IsValidInput({input, MakeTensor(ctx, {3, 5, 2}, {})}), kernel::kValid);
  const std::vector<std::shared_ptr<runtime::Tensor>> bad_grids = {
      MakeTensor(ctx, {3, 5, 3}, {}), MakeTensor(ctx, {15, 2}, {}), MakeTensor(ctx, {1, 3, 5, 2}, {}),
      MakeTensor(ctx, {1, 3, 5, 4}, {}, runtime::TensorShape::C4HW4)};
  for (const auto& grid : bad_grids) {
    const std::string why = LoggedRefusal([&] { EXPECT_EQ(ok->IsValidInput({input, grid}), kernel::kInvalidTensor); });
    EXPECT_NE(why.find("the grid is not a plain tensor [H_out, W_out, 2]"), std::string::npos) << why;
  }
  EXPECT_EQ(ok->IsValidInput({input}), kernel::kInvalidTensor);
  EXPECT_EQ(ok->IsValidInput({MakeTensor(ctx, {4, 4}, {}), MakeTensor(ctx, {3, 5, 2}, {})}), kernel::kInvalidTensor);
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_FALSE(ok->Forward({input, bad_grids[0]}, outputs, ctx));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
