// The SSE bias fills and paddings against their portable namesakes and the
// layout formulas, all bit-exact (they only move values), and their checks.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kernel/cpu/conv2d_test_util.h"
#include "tarn/kernel/tensor_helpers_vector.h"

namespace tarn {
namespace testing {
namespace {

using runtime::TensorShape;
namespace fn = kernel::functional;

TEST(SseFillBias, WritesBiasIntoEveryPixelAndZeroTails) {
  for (const conv::FillDesc& f : {conv::FillDesc{"SSE_CHW", fn::FillBias_SSE_CHW_Float_M1, 1},
                                  conv::FillDesc{"SSE_C4HW4", fn::FillBias_SSE_C4HW4_Float_M1, 4},
                                  conv::FillDesc{"SSE_C8HW8", fn::FillBias_SSE_C8HW8_Float_M1, 8}}) {
    conv::ExpectFillsBias(f);
  }
}

TEST(SseFillBiasChecks, TwoDimensionalBiasAndWrongCounts) {
  auto ctx = conv::MakeContext();
  auto t = conv::MakeTensor(ctx->cpu, {6, 2, 3}, TensorShape::CHW, std::vector<float>(36, 0.0f));
  auto bias2d = conv::MakeTensor(ctx->cpu, {2, 3}, TensorShape::CHW, {1, 2, 3, 4, 5, 6});
  fn::FillBias_SSE_CHW_Float_M1(t, bias2d);
  EXPECT_EQ(t->DataAs<float>()[35], 6.0f);
  auto short_bias = conv::MakeTensor(ctx->cpu, {5}, TensorShape::CHW, std::vector<float>(5, 1.0f));
  auto blocked = conv::MakeTensor(ctx->cpu, {2, 1, 1, 4}, TensorShape::C4HW4, std::vector<float>(8, 0.0f));
  EXPECT_EQ(ThrownMessage([&] { fn::FillBias_SSE_C4HW4_Float_M1(blocked, short_bias); }), "");  // 5 values, 2 blocks
  EXPECT_NE(ThrownMessage([&] { fn::FillBias_SSE_C8HW8_Float_M1(blocked, bias2d); }), "");      // 4 lanes, not 8
}

TEST(SseFillBiasInt16, EightLanesPerPixelWithZeroTails) {
  auto ctx = conv::MakeContext();
  auto t = ctx->cpu->CreateTensor(runtime::MakeShape({2, 1, 3, 8}, TensorShape::INT16, TensorShape::C8HW8));
  std::memset(t->Data(), 0x7F, t->shape.Bytes());
  auto bias = ctx->cpu->CreateTensor(runtime::MakeShape({11}, TensorShape::INT16));
  for (int i = 0; i < 11; ++i) bias->DataAs<std::int16_t>()[i] = static_cast<std::int16_t>(100 * i - 300);
  fn::FillBias_SSE_C8HW8_Int16_M1(t, bias);
  const std::int16_t* d = t->DataAs<std::int16_t>();
  for (int c = 0; c < 16; ++c)
    for (int p = 0; p < 3; ++p) EXPECT_EQ(d[((c / 8) * 3 + p) * 8 + c % 8], c < 11 ? 100 * c - 300 : 0) << c;
  auto floats = conv::MakeTensor(ctx->cpu, {11}, TensorShape::CHW, std::vector<float>(11, 1.0f));
  EXPECT_NE(ThrownMessage([&] { fn::FillBias_SSE_C8HW8_Int16_M1(t, floats); }), "");
}

TEST(SsePadding, EnlargesByTheBordersAndFillsThem) {
  for (const auto& border : conv::Borders()) {
    conv::ExpectPads("SSE_CHW", fn::Padding_HW_MainMemory_SSE_CHW_Float_M1, 1, border, -2.5f);
    conv::ExpectPads("SSE_C4HW4", fn::Padding_HW_MainMemory_SSE_C4HW4_Float_M1, 4, border, -2.5f);
    conv::ExpectPads("SSE_C8HW8", fn::Padding_HW_MainMemory_SSE_C8HW8_Float_M1, 8, border, -2.5f);
  }
}

TEST(SsePaddingChecks, WrongTensorsThrow) {
  auto ctx = conv::MakeContext();
  auto c4 = conv::MakeTensor(ctx->cpu, {1, 2, 2, 4}, TensorShape::C4HW4, std::vector<float>(16, 1.0f));
  EXPECT_NE(ThrownMessage([&] { fn::Padding_HW_MainMemory_SSE_C8HW8_Float_M1(c4, 1, 1, 1, 1, 0.0f, ctx->cpu); }), "");
  EXPECT_NE(ThrownMessage([&] { fn::Padding_HW_MainMemory_SSE_CHW_Float_M1(c4, 1, 1, 1, 1, 0.0f, ctx->cpu); }), "");
  EXPECT_NE(ThrownMessage([&] { fn::Padding_HW_MainMemory_SSE_C4HW4_Float_M1(c4, 1, 1, 1, 1, 0.0f, nullptr); }), "");
}

}  // namespace
}  // namespace testing
}  // namespace tarn
