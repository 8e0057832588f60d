// The AVX bias fills and paddings against their portable namesakes and the
// layout formulas, all bit-exact (they only move values), and their checks.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/conv2d_test_util.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace testing {
namespace {

using runtime::TensorShape;
namespace fn = kernel::functional;

TEST(AvxFillBias, WritesBiasIntoEveryPixelAndZeroTails) {
  for (const conv::FillDesc& f : {conv::FillDesc{"AVX_CHW", fn::FillBias_AVX_CHW_Float_M1, 1},
                                  conv::FillDesc{"AVX_C4HW4", fn::FillBias_AVX_C4HW4_Float_M1, 4},
                                  conv::FillDesc{"AVX_C8HW8", fn::FillBias_AVX_C8HW8_Float_M1, 8}}) {
    conv::ExpectFillsBias(f);
  }
}

TEST(AvxFillBiasChecks, WrongCountsAndMissingBias) {
  auto ctx = conv::MakeContext();
  auto t = conv::MakeTensor(ctx->cpu, {6, 2, 3}, TensorShape::CHW, std::vector<float>(36, 0.0f));
  auto short_bias = conv::MakeTensor(ctx->cpu, {5}, TensorShape::CHW, std::vector<float>(5, 1.0f));
  EXPECT_NE(ThrownMessage([&] { fn::FillBias_AVX_CHW_Float_M1(t, short_bias); }), "");
  auto blocked = conv::MakeTensor(ctx->cpu, {2, 1, 1, 4}, TensorShape::C4HW4, std::vector<float>(8, 0.0f));
  auto nine = conv::MakeTensor(ctx->cpu, {9}, TensorShape::CHW, std::vector<float>(9, 1.0f));
  EXPECT_NE(ThrownMessage([&] { fn::FillBias_AVX_C4HW4_Float_M1(blocked, nine); }), "");  // 9 values need 3 blocks
  EXPECT_NE(ThrownMessage([&] { fn::FillBias_AVX_C8HW8_Float_M1(blocked, nullptr); }), "");
}

TEST(AvxPadding, EnlargesByTheBordersAndFillsThem) {
  const conv::PadFn zero_form = [](const conv::TensorCPUPtr& in, unsigned l, unsigned r, unsigned t, unsigned b, float,
                                   const std::shared_ptr<runtime::DeviceCPU>& device) {
    return fn::Padding_HW_MainMemory_AVX_C8HW8_Zero_M1(in, l, r, t, b, device);
  };
  for (const auto& border : conv::Borders()) {
    conv::ExpectPads("AVX_C8HW8", fn::Padding_HW_MainMemory_AVX_C8HW8_Float_M1, 8, border, -2.5f);
    conv::ExpectPads("AVX_C8HW8_Zero", zero_form, 8, border, 0.0f);
  }
}

TEST(AvxPaddingChecks, WrongTensorsThrow) {
  auto ctx = conv::MakeContext();
  auto c4 = conv::MakeTensor(ctx->cpu, {1, 2, 2, 4}, TensorShape::C4HW4, std::vector<float>(16, 1.0f));
  EXPECT_NE(ThrownMessage([&] { fn::Padding_HW_MainMemory_AVX_C8HW8_Zero_M1(c4, 1, 1, 1, 1, ctx->cpu); }), "");
}

}  // namespace
}  // namespace testing
}  // namespace tarn
