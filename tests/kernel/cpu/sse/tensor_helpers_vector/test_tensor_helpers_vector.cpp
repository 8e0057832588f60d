// The SSE and AVX bias fills and paddings, against their portable namesakes
// and the layout formulas; all bit-exact (they only move values).
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kernel/cpu/conv_test_util.h"
#include "tarn/kernel/tensor_helpers_vector.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::TensorCPUPtr;
using runtime::TensorShape;
namespace fn = kernel::functional;

bool Available(bool avx) { return avx ? conv::CanRunAVX() : conv::CanRunSSE(); }

struct BiasFill {
  const char* name;
  void (*fill)(const TensorCPUPtr&, const TensorCPUPtr&);
  unsigned lanes;
  bool avx;
};

const BiasFill kFills[] = {
    {"SSE_CHW", fn::FillBias_SSE_CHW_Float_M1, 1, false},     {"AVX_CHW", fn::FillBias_AVX_CHW_Float_M1, 1, true},
    {"SSE_C4HW4", fn::FillBias_SSE_C4HW4_Float_M1, 4, false}, {"AVX_C4HW4", fn::FillBias_AVX_C4HW4_Float_M1, 4, true},
    {"SSE_C8HW8", fn::FillBias_SSE_C8HW8_Float_M1, 8, false}, {"AVX_C8HW8", fn::FillBias_AVX_C8HW8_Float_M1, 8, true},
};

class VectorFillBias : public ::testing::TestWithParam<std::tuple<int, unsigned>> {};

TEST_P(VectorFillBias, WritesBiasIntoEveryPixelAndZeroTails) {
  const BiasFill& f = kFills[std::get<0>(GetParam())];
  const unsigned channels = std::get<1>(GetParam());
  if (!Available(f.avx)) GTEST_SKIP();
  auto ctx = conv::MakeContext();
  const std::vector<float> bias = conv::Random(channels, channels);
  auto b = conv::MakeTensor(ctx->cpu, {channels}, TensorShape::CHW, bias);
  for (unsigned plane : {1u, 2u, 3u, 5u, 8u, 9u, 17u}) {
    const unsigned h = plane % 2 ? 1 : 2, w = plane / h;
    const unsigned stored = f.lanes == 1 ? channels : kernel::ChannelBlocks(channels, f.lanes) * f.lanes;
    std::vector<float> junk(std::size_t(stored) * h * w, 7.0f);
    auto t = f.lanes == 1 ? conv::MakeTensor(ctx->cpu, {channels, h, w}, TensorShape::CHW, junk)
                          : conv::MakeTensor(ctx->cpu, {kernel::ChannelBlocks(channels, f.lanes), h, w, f.lanes},
                                             f.lanes == 4 ? TensorShape::C4HW4 : TensorShape::C8HW8, junk);
    f.fill(t, b);
    std::vector<float> planar(std::size_t(channels) * h * w);
    for (unsigned c = 0; c < channels; ++c)
      for (unsigned p = 0; p < h * w; ++p) planar[std::size_t(c) * h * w + p] = bias[c];
    const std::vector<float> want = f.lanes == 1 ? planar : conv::ToBlocked(planar, channels, h, w, f.lanes);
    EXPECT_EQ(conv::Values(t), want) << f.name << " plane " << plane;
  }
}

INSTANTIATE_TEST_SUITE_P(Fills, VectorFillBias,
                         ::testing::Combine(::testing::Range(0, 6),
                                            ::testing::Values(1u, 3u, 4u, 5u, 8u, 9u, 13u, 16u, 17u)),
                         [](const auto& info) {
                           return std::string(kFills[std::get<0>(info.param)].name) + "_c" +
                                  std::to_string(std::get<1>(info.param));
                         });

TEST(VectorFillBiasChecks, TwoDimensionalBiasAndWrongCounts) {
  if (!conv::CanRunAVX()) GTEST_SKIP();
  auto ctx = conv::MakeContext();
  auto t = conv::MakeTensor(ctx->cpu, {6, 2, 3}, TensorShape::CHW, std::vector<float>(36, 0.0f));
  auto bias2d = conv::MakeTensor(ctx->cpu, {2, 3}, TensorShape::CHW, {1, 2, 3, 4, 5, 6});
  fn::FillBias_SSE_CHW_Float_M1(t, bias2d);
  EXPECT_EQ(t->DataAs<float>()[35], 6.0f);
  auto short_bias = conv::MakeTensor(ctx->cpu, {5}, TensorShape::CHW, std::vector<float>(5, 1.0f));
  EXPECT_NE(ThrownMessage([&] { fn::FillBias_AVX_CHW_Float_M1(t, short_bias); }), "");
  auto blocked = conv::MakeTensor(ctx->cpu, {2, 1, 1, 4}, TensorShape::C4HW4, std::vector<float>(8, 0.0f));
  EXPECT_EQ(ThrownMessage([&] { fn::FillBias_SSE_C4HW4_Float_M1(blocked, short_bias); }), "");  // 5 values, 2 blocks
  auto nine = conv::MakeTensor(ctx->cpu, {9}, TensorShape::CHW, std::vector<float>(9, 1.0f));
  EXPECT_NE(ThrownMessage([&] { fn::FillBias_AVX_C4HW4_Float_M1(blocked, nine); }), "");  // 9 values need 3 blocks
  EXPECT_NE(ThrownMessage([&] { fn::FillBias_SSE_C8HW8_Float_M1(blocked, bias2d); }), "");      // 4 lanes, not 8
  EXPECT_NE(ThrownMessage([&] { fn::FillBias_AVX_C8HW8_Float_M1(blocked, nullptr); }), "");
}

TEST(VectorFillBiasInt16, EightLanesPerPixelWithZeroTails) {
  if (!conv::CanRunSSE()) GTEST_SKIP();
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

struct Pad {
  const char* name;
  unsigned lanes;
  bool avx;
  bool zero_form;
};

const Pad kPads[] = {
    {"SSE_CHW", 1, false, false}, {"SSE_C4HW4", 4, false, false}, {"SSE_C8HW8", 8, false, false},
    {"AVX_C8HW8", 8, true, false}, {"AVX_C8HW8_Zero", 8, true, true},
};

TensorCPUPtr RunPad(int which, const TensorCPUPtr& in, unsigned l, unsigned r, unsigned t, unsigned b, float v,
                    const kernel::DeviceCPUPtr& device) {
  switch (which) {
    case 0: return fn::Padding_HW_MainMemory_SSE_CHW_Float_M1(in, l, r, t, b, v, device);
    case 1: return fn::Padding_HW_MainMemory_SSE_C4HW4_Float_M1(in, l, r, t, b, v, device);
    case 2: return fn::Padding_HW_MainMemory_SSE_C8HW8_Float_M1(in, l, r, t, b, v, device);
    case 3: return fn::Padding_HW_MainMemory_AVX_C8HW8_Float_M1(in, l, r, t, b, v, device);
    default: return fn::Padding_HW_MainMemory_AVX_C8HW8_Zero_M1(in, l, r, t, b, device);
  }
}

class VectorPadding : public ::testing::TestWithParam<std::tuple<int, std::vector<unsigned>>> {};

// Borders given left, right, top, bottom; widths 1..17 pass every copy tail.
TEST_P(VectorPadding, EnlargesByTheBordersAndFillsThem) {
  const int which = std::get<0>(GetParam());
  const Pad& pad = kPads[which];
  const auto& border = std::get<1>(GetParam());
  if (!Available(pad.avx)) GTEST_SKIP();
  auto ctx = conv::MakeContext();
  const float value = pad.zero_form ? 0.0f : -2.5f;
  for (unsigned w = 1; w <= 17; ++w) {
    const unsigned planes = 2, h = 3, lanes = pad.lanes;
    const std::vector<float> data = conv::Random(std::size_t(planes) * h * w * lanes, w);
    auto in = lanes == 1 ? conv::MakeTensor(ctx->cpu, {planes, h, w}, TensorShape::CHW, data)
                         : conv::MakeTensor(ctx->cpu, {planes, h, w, lanes},
                                            lanes == 4 ? TensorShape::C4HW4 : TensorShape::C8HW8, data);
    auto out = RunPad(which, in, border[0], border[1], border[2], border[3], value, ctx->cpu);
    const unsigned oh = h + border[2] + border[3], ow = w + border[0] + border[1];
    ASSERT_EQ(out->shape.dims[1], oh);
    ASSERT_EQ(out->shape.dims[2], ow);
    ASSERT_EQ(out->shape.layout, in->shape.layout);
    const float* o = out->DataAs<float>();
    for (unsigned p = 0; p < planes; ++p)
      for (unsigned y = 0; y < oh; ++y)
        for (unsigned x = 0; x < ow; ++x)
          for (unsigned l = 0; l < lanes; ++l) {
            const bool inside = y >= border[2] && y < border[2] + h && x >= border[0] && x < border[0] + w;
            const float want =
                inside ? data[((std::size_t(p) * h + y - border[2]) * w + x - border[0]) * lanes + l] : value;
            ASSERT_EQ(o[((std::size_t(p) * oh + y) * ow + x) * lanes + l], want)
                << pad.name << " w " << w << " at " << p << "," << y << "," << x << "," << l;
          }
    if (lanes == 1) {
      auto reference = kernel::Padding_HW_MainMemory_CHW_Float_Fallback_M1(in, border[0], border[1], border[2],
                                                                           border[3], value, ctx->cpu);
      EXPECT_EQ(conv::Values(out), conv::Values(reference));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Borders, VectorPadding,
                         ::testing::Combine(::testing::Range(0, 5),
                                            ::testing::Values(std::vector<unsigned>{0, 0, 0, 0},
                                                              std::vector<unsigned>{1, 1, 1, 1},
                                                              std::vector<unsigned>{2, 0, 1, 3},
                                                              std::vector<unsigned>{0, 5, 0, 1})),
                         [](const auto& info) {
                           return std::string(kPads[std::get<0>(info.param)].name) + "_" + std::to_string(info.index);
                         });

TEST(VectorPaddingChecks, WrongTensorsThrow) {
  if (!conv::CanRunAVX()) GTEST_SKIP();
  auto ctx = conv::MakeContext();
  auto c4 = conv::MakeTensor(ctx->cpu, {1, 2, 2, 4}, TensorShape::C4HW4, std::vector<float>(16, 1.0f));
  EXPECT_NE(ThrownMessage([&] { fn::Padding_HW_MainMemory_SSE_C8HW8_Float_M1(c4, 1, 1, 1, 1, 0.0f, ctx->cpu); }), "");
  EXPECT_NE(ThrownMessage([&] { fn::Padding_HW_MainMemory_AVX_C8HW8_Zero_M1(c4, 1, 1, 1, 1, ctx->cpu); }), "");
  EXPECT_NE(ThrownMessage([&] { fn::Padding_HW_MainMemory_SSE_CHW_Float_M1(c4, 1, 1, 1, 1, 0.0f, ctx->cpu); }), "");
  EXPECT_NE(ThrownMessage([&] { fn::Padding_HW_MainMemory_SSE_C4HW4_Float_M1(c4, 1, 1, 1, 1, 0.0f, nullptr); }), "");
}

}  // namespace
}  // namespace testing
}  // namespace tarn
