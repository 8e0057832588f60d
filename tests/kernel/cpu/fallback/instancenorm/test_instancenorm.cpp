// Instance normalisation: the portable kernel against PyTorch's
// F.instance_norm (input statistics, affine or not), the constant-channel and
// large-offset cases, and the records and inputs it refuses.
#include <gtest/gtest.h>

#include "kernel/cpu/resampling_test_util.h"

namespace tarn {
namespace testing {
namespace {

TEST(InstanceNormReference, PortableKernelMatchesPyTorch) {
  const auto cases = ResamplingReference("instance_norm");
  ASSERT_EQ(cases.size(), 4u) << "run tests/reference/make_resampling_reference.py";
  for (const auto& c : cases) {
    const auto p = ParseParams(c);
    const bool affine = p["affine"].GetBool();
    const auto& in = c.inputs;
    auto r = InstanceNormRecord(static_cast<std::uint16_t>(in[0].shape[0]), affine ? in[1].data : std::vector<float>(),
                                affine ? in[2].data : std::vector<float>(), p["eps"].GetFloat());
    const std::vector<float> y = RunChw<kernel::InstanceNorm2D_Fallback_CHW_Float_M1>(
        r, in[0].data, in[0].shape[0], in[0].shape[1], in[0].shape[2], 1);
    EXPECT_TRUE(Near(y, c.outputs[0].data, 2e-6f)) << c.name;
  }
}

TEST(InstanceNorm, ChannelCountIsFreeWithoutAffineParameters) {
  auto ctx = ElementContext();
  // Like PyTorch: num_features binds the input only when scale and shift are applied.
  auto plain = Configured<kernel::InstanceNorm2D_Fallback_CHW_Float_M1>(InstanceNormRecord(3, {}, {}, 1e-5f), ctx);
  EXPECT_EQ(plain->IsValidInput({MakeTensor(ctx, {5, 2, 2}, {})}), kernel::kValid);
  auto affine =
      Configured<kernel::InstanceNorm2D_Fallback_CHW_Float_M1>(InstanceNormRecord(2, {1, 1}, {0, 0}, 1e-5f), ctx);
  EXPECT_EQ(affine->IsValidInput({MakeTensor(ctx, {2, 2, 2}, {})}), kernel::kValid);
  EXPECT_EQ(affine->IsValidInput({MakeTensor(ctx, {3, 2, 2}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(affine->IsValidInput({MakeTensor(ctx, {2, 4}, {})}), kernel::kInvalidTensor);
  EXPECT_EQ(affine->IsValidInput({MakeTensor(ctx, {1, 2, 2, 4}, {}, runtime::TensorShape::C4HW4)}),
            kernel::kInvalidTensor);
  // A constant plane with eps 0 has no spread at all: PyTorch then uses
  // invstd 0, so the output is the shift.
  auto no_eps =
      Configured<kernel::InstanceNorm2D_Fallback_CHW_Float_M1>(InstanceNormRecord(1, {2}, {0.5f}, 0.0f), ctx);
  EXPECT_EQ(Output(no_eps, {MakeTensor(ctx, {1, 1, 3}, {4, 4, 4})}, ctx), (std::vector<float>{0.5f, 0.5f, 0.5f}));
}

TEST(InstanceNorm, RecordsThatDoNotFitAreRefused) {
  auto ctx = ElementContext();
  kernel::InstanceNorm2D_Fallback_CHW_Float_M1 k;
  EXPECT_EQ(k.IsValidParam(std::make_shared<runtime::BatchNorm2dInfo>(), nullptr), kernel::kInvalidParam);
  struct Bad {
    std::shared_ptr<runtime::InstanceNorm2dInfo> record;
    const char* logged;
  };
  const Bad bad[] = {{InstanceNormRecord(2, {1, 1}, {0}, 1e-5f), "\"shift\" holds 1 floats, 2 needed"},
                     {InstanceNormRecord(0, {}, {}, 1e-5f), nullptr},
                     {InstanceNormRecord(2, {}, {}, -1e-5f), "eps -1e-05 is not a finite value >= 0"},
                     {InstanceNormRecord(2, {}, {}, NAN), "not a finite value"}};
  for (const auto& b : bad) {
    if (!b.logged) {  // num_features 0 without affine is fine
      EXPECT_TRUE(k.Config(b.record, nullptr, ctx));
      continue;
    }
    const std::string logged = LoggedRefusal([&] { EXPECT_FALSE(k.Config(b.record, nullptr, ctx)); });
    EXPECT_NE(logged.find(b.logged), std::string::npos) << logged;
  }
  auto affine_without_features = InstanceNormRecord(0, {}, {}, 1e-5f);
  affine_without_features->if_affine = true;
  EXPECT_FALSE(k.Config(affine_without_features, nullptr, ctx));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
