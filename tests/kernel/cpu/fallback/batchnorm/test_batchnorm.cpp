// Batch normalisation: the portable kernels against PyTorch (BatchNorm2d and
// BatchNorm1d in eval mode), and the records and inputs they refuse.
#include <gtest/gtest.h>

#include "kernel/cpu/resampling_test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(BatchNormReference, PortableKernelsMatchPyTorch) {
  const auto cases = ResamplingReference("batch_norm");
  ASSERT_EQ(cases.size(), 6u) << "run tests/reference/make_resampling_reference.py";
  auto ctx = ElementContext();
  for (const auto& c : cases) {
    const auto p = ParseParams(c);
    const bool affine = p["affine"].GetBool();
    const float eps = p["eps"].GetFloat();
    const auto& in = c.inputs;
    const std::vector<float> scale = affine ? in[3].data : std::vector<float>();
    const std::vector<float> shift = affine ? in[4].data : std::vector<float>();
    std::shared_ptr<runtime::IKernel> k;
    if (in[0].shape.size() == 3) {
      k = Configured<kernel::BatchNorm2D_Fallback_CHW_Float_M1>(
          BatchNormRecord<runtime::BatchNorm2dInfo>(in[1].data, in[2].data, scale, shift, eps), ctx);
    } else {
      k = Configured<kernel::BatchNorm1D_Fallback_CL_Float_M1>(
          BatchNormRecord<runtime::BatchNorm1dInfo>(in[1].data, in[2].data, scale, shift, eps), ctx);
    }
    std::vector<unsigned> dims;
    const std::vector<float> y = Output(k, {MakeTensor(ctx, in[0].shape, in[0].data)}, ctx, &dims);
    EXPECT_EQ(dims, c.outputs[0].shape) << c.name;
    // PyTorch may fuse the final multiply-add.
    EXPECT_TRUE(Near(y, c.outputs[0].data, 1e-6f)) << c.name;
  }
}

// One bad field per case; every one is refused by Config with a log line
// that says which.
struct BadRecord {
  const char* name;
  void (*spoil)(runtime::BatchNorm2dInfo&);
  const char* logged;
};

class BatchNormRefusal : public ::testing::TestWithParam<BadRecord> {};

TEST_P(BatchNormRefusal, ConfigRefusesWithAReason) {
  auto r = BatchNormRecord<runtime::BatchNorm2dInfo>({0, 1, 2}, {1, 1, 1}, {1, 2, 3}, {0, 0, 0}, 1e-5f);
  GetParam().spoil(*r);
  kernel::BatchNorm2D_Fallback_CHW_Float_M1 k;
  const std::string logged = LoggedRefusal([&] { EXPECT_FALSE(k.Config(r, nullptr, ElementContext())); });
  EXPECT_NE(logged.find(GetParam().logged), std::string::npos) << logged;
  EXPECT_FALSE(k.IsConfiged());
}

INSTANTIATE_TEST_SUITE_P(
    Records, BatchNormRefusal,
    ::testing::Values(
        BadRecord{"no_features", [](runtime::BatchNorm2dInfo& r) { r.num_features = 0; }, "num_features > 0"},
        BadRecord{"short_mean", [](runtime::BatchNorm2dInfo& r) { r.mean = runtime::EncodeWeights({1.0f, 2.0f}); },
                  "\"mean\" holds 2 floats, 3 needed"},
        BadRecord{"no_statistics", [](runtime::BatchNorm2dInfo& r) { r.variance.clear(); },
                  "\"variance\" holds 0 floats"},
        BadRecord{"long_shift", [](runtime::BatchNorm2dInfo& r) { r.shift = runtime::EncodeWeights({0, 0, 0, 0}); },
                  "\"shift\" holds 4 floats"},
        BadRecord{"negative_variance",
                  [](runtime::BatchNorm2dInfo& r) { r.variance = runtime::EncodeWeights({1.0f, -0.5f, 1.0f}); },
                  "channel 1 has variance -0.5"},
        BadRecord{"nan_variance",
                  [](runtime::BatchNorm2dInfo& r) { r.variance = runtime::EncodeWeights({NAN, 1.0f, 1.0f}); },
                  "variance + eps must be > 0"},
        BadRecord{"zero_variance_no_eps",
                  [](runtime::BatchNorm2dInfo& r) {
                    r.variance = runtime::EncodeWeights({1.0f, 1.0f, 0.0f});
                    r.eps = 0.0f;
                  },
                  "channel 2"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(BatchNorm, AffineFlagDecidesWhetherScaleAndShiftAreRead) {
  auto ctx = ElementContext();
  // Without if_affine, scale and shift are not read even when present and wrong.
  auto r = BatchNormRecord<runtime::BatchNorm2dInfo>({1, -1}, {4, 0.25f}, {}, {}, 0.0f);
  r->scale = runtime::EncodeWeights({9.0f});
  auto k = Configured<kernel::BatchNorm2D_Fallback_CHW_Float_M1>(r, ctx);
  EXPECT_EQ(Output(k, {MakeTensor(ctx, {2, 1, 2}, {3, 5, 0, 1})}, ctx), (std::vector<float>{1, 2, 2, 4}));
  EXPECT_EQ(k->a(), (std::vector<float>{0.5f, 2.0f}));
  EXPECT_EQ(k->b(), (std::vector<float>{-0.5f, 2.0f}));
}

TEST(BatchNorm, InputsThatDoNotFitAreRefused) {
  auto ctx = ElementContext();
  auto r2 = BatchNormRecord<runtime::BatchNorm2dInfo>({0, 0, 0}, {1, 1, 1}, {}, {}, 1e-5f);
  auto r1 = BatchNormRecord<runtime::BatchNorm1dInfo>({0, 0, 0}, {1, 1, 1}, {}, {}, 1e-5f);
  auto k2 = Configured<kernel::BatchNorm2D_Fallback_CHW_Float_M1>(r2, ctx);
  auto k1 = Configured<kernel::BatchNorm1D_Fallback_CL_Float_M1>(r1, ctx);
  // Each record type belongs to its kernel.
  EXPECT_EQ(k2->IsValidParam(r1, nullptr), kernel::kInvalidParam);
  EXPECT_EQ(k1->IsValidParam(r2, nullptr), kernel::kInvalidParam);
  EXPECT_EQ(k1->IsValidInput({MakeTensor(ctx, {3}, {})}), kernel::kValid);
  EXPECT_EQ(k1->IsValidInput({MakeTensor(ctx, {3, 5}, {})}), kernel::kValid);
  EXPECT_EQ(k2->IsValidInput({MakeTensor(ctx, {3, 2, 2}, {})}), kernel::kValid);
  const std::vector<std::pair<std::shared_ptr<runtime::IKernel>, std::shared_ptr<runtime::Tensor>>> refused = {
      {k2, MakeTensor(ctx, {4, 2, 2}, {})},                              // channels
      {k2, MakeTensor(ctx, {3, 2}, {})},                                 // rank
      {k2, MakeTensor(ctx, {1, 2, 2, 4}, {}, runtime::TensorShape::C4HW4)},  // blocked
      {k2, MakeTensor(ctx, {3, 0, 2}, {})},                              // empty
      {k1, MakeTensor(ctx, {3, 2, 2}, {})},                              // rank
      {k1, MakeTensor(ctx, {2, 5}, {})},                                 // channels
  };
  for (const auto& [k, t] : refused) {
    const std::string logged = LoggedRefusal([&] { EXPECT_EQ(k->IsValidInput({t}), kernel::kInvalidTensor); });
    EXPECT_EQ(logged.rfind(k->GetName() + ": ", 0), 0u) << logged;
    std::vector<std::shared_ptr<runtime::Tensor>> outputs;
    EXPECT_FALSE(k->Forward({t}, outputs, ctx));
    EXPECT_TRUE(k->GetOutputShapes({t->shape}).empty());
  }
  auto half = ctx->cpu->CreateTensor(runtime::MakeShape({3, 2, 2}, runtime::TensorShape::FLOAT16));
  EXPECT_EQ(k2->IsValidInput({half}), kernel::kInvalidTensor);
  EXPECT_EQ(k2->IsValidInput({}), kernel::kInvalidTensor);
  kernel::BatchNorm2D_Fallback_CHW_Float_M1 unconfigured;
  EXPECT_EQ(unconfigured.IsValidInput({MakeTensor(ctx, {3, 2, 2}, {})}), kernel::kInvalidTensor);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
