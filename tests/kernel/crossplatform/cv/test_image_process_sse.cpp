// ImageProcessSSE against the portable code, bit for bit.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <tuple>
#include <vector>

#include "tarn/kernel/image_process.h"
#include "test_util.h"

namespace tarn {
namespace {

using kernel::AffineNormalizeParam;
using runtime::TensorCPU;
using runtime::TensorShape;
using U8 = std::uint8_t;

class SseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!runtime::DetectCPUDevice().CanRunSSEKernels()) GTEST_SKIP() << "the processor cannot run the SSE code";
  }
  std::shared_ptr<runtime::AlignUpPool> pool = std::make_shared<runtime::AlignUpPool>(64);
  std::shared_ptr<runtime::DeviceCPU> device = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), pool, nullptr, pool);
  std::shared_ptr<runtime::Context> context = runtime::CreateContext(device, nullptr, nullptr, nullptr, nullptr, nullptr);
  kernel::ImageProcessFallback fallback;
  kernel::ImageProcessSSE sse;
  std::mt19937 rng{99};

  std::shared_ptr<TensorCPU> Random(std::vector<unsigned> dims, TensorShape::DataType type, TensorShape::Layout layout) {
    auto t = device->CreateTensor(TensorShape(dims, type, layout, TensorShape::MainMemory));
    U8* p = t->DataAs<U8>();
    for (std::size_t i = 0; i < t->shape.Bytes(); ++i) p[i] = static_cast<U8>(rng());
    return t;
  }
  static bool SameBytes(const std::shared_ptr<TensorCPU>& a, const std::shared_ptr<TensorCPU>& b) {
    return a->shape.Bytes() == b->shape.Bytes() && std::memcmp(a->Data(), b->Data(), a->shape.Bytes()) == 0;
  }
};

TEST_F(SseTest, FactoryPicksTheSSEClass) {
  auto proc = kernel::CreateImageProcess(runtime::DetectCPUDevice());
  EXPECT_NE(dynamic_cast<kernel::ImageProcessSSE*>(proc.get()), nullptr);
  runtime::CPUDeviceInfo old;
  EXPECT_EQ(dynamic_cast<kernel::ImageProcessSSE*>(kernel::CreateImageProcess(old).get()), nullptr);
}

struct Kind {
  unsigned channels;
  TensorShape::DataType type;
  TensorShape::Layout layout;
};

class SseRotateTest : public SseTest,
                      public ::testing::WithParamInterface<std::tuple<int, Kind, unsigned, unsigned>> {};

// Heights and widths around every block size (16, 8, 4, 2 pixels) so both the
// vector blocks and the ragged strips run.
TEST_P(SseRotateTest, QuarterTurnsEqualFallback) {
  const int code = std::get<0>(GetParam());
  const Kind k = std::get<1>(GetParam());
  const unsigned h = std::get<2>(GetParam()), w = std::get<3>(GetParam());
  auto dims = [&](unsigned a, unsigned b) {
    return k.layout == TensorShape::HWC ? std::vector<unsigned>{a, b, k.channels} : std::vector<unsigned>{k.channels, a, b};
  };
  auto src = Random(dims(h, w), k.type, k.layout);
  auto a = Random(dims(w, h), k.type, k.layout);
  auto b = Random(dims(w, h), k.type, k.layout);
  ASSERT_TRUE(fallback.ConvertPixel(src, a, code, context));
  ASSERT_TRUE(sse.ConvertPixel(src, b, code, context));
  EXPECT_TRUE(SameBytes(a, b));
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, SseRotateTest,
    ::testing::Combine(::testing::Values(kernel::IMG_ROTATE_90, kernel::IMG_ROTATE_270),
                       ::testing::Values(Kind{1, TensorShape::UINT8, TensorShape::HWC},
                                         Kind{2, TensorShape::UINT8, TensorShape::HWC},
                                         Kind{3, TensorShape::UINT8, TensorShape::HWC},
                                         Kind{4, TensorShape::UINT8, TensorShape::HWC},
                                         Kind{2, TensorShape::FLOAT32, TensorShape::HWC},
                                         Kind{3, TensorShape::FLOAT32, TensorShape::HWC},
                                         Kind{3, TensorShape::UINT8, TensorShape::CHW}),
                       ::testing::Values(1u, 3u, 16u, 33u), ::testing::Values(1u, 2u, 5u, 8u, 17u, 32u, 70u)),
    TRN_INDEX_NAMES);

// Every other operation is the fallback's.
TEST_F(SseTest, OtherOperationsEqualFallback) {
  auto rgb = Random({10, 34, 3}, TensorShape::UINT8, TensorShape::HWC);
  auto rgba = Random({10, 34, 4}, TensorShape::UINT8, TensorShape::HWC);
  auto frame = Random({15, 34, 1}, TensorShape::UINT8, TensorShape::HWC);
  struct Case {
    int code;
    std::shared_ptr<TensorCPU> src;
    std::vector<unsigned> dst;
    TensorShape::DataType type;
    TensorShape::Layout layout;
  };
  const Case cases[] = {
      {1, rgba, {10, 34, 3}, TensorShape::UINT8, TensorShape::HWC},
      {3, rgba, {10, 34, 3}, TensorShape::UINT8, TensorShape::HWC},
      {4, rgb, {10, 34, 3}, TensorShape::UINT8, TensorShape::HWC},
      {6, rgb, {10, 34, 1}, TensorShape::UINT8, TensorShape::HWC},
      {7, rgb, {10, 34, 1}, TensorShape::UINT8, TensorShape::HWC},
      {11, rgba, {10, 34, 1}, TensorShape::UINT8, TensorShape::HWC},
      {22, frame, {3, 10, 34}, TensorShape::UINT8, TensorShape::CHW},
      {24, frame, {3, 10, 34}, TensorShape::UINT8, TensorShape::CHW},
      {32, frame, {3, 10, 34}, TensorShape::UINT8, TensorShape::CHW},
      {51, rgb, {10, 34, 3}, TensorShape::UINT8, TensorShape::HWC},
      {53, rgb, {10, 34, 3}, TensorShape::UINT8, TensorShape::HWC},
      {54, rgb, {10, 34, 3}, TensorShape::UINT8, TensorShape::HWC},
      {60, rgb, {3, 10, 34}, TensorShape::UINT8, TensorShape::CHW},
      {65, rgb, {10, 34, 3}, TensorShape::FLOAT32, TensorShape::HWC},
      {83, rgb, {21, 13, 3}, TensorShape::UINT8, TensorShape::HWC},
      {84, rgba, {5, 70, 4}, TensorShape::UINT8, TensorShape::HWC},
  };
  for (const Case& c : cases) {
    auto a = Random(c.dst, c.type, c.layout);
    auto b = device->CreateTensor(a->shape, a->Data());
    ASSERT_TRUE(fallback.ConvertPixel(c.src, a, c.code, context));
    ASSERT_TRUE(sse.ConvertPixel(c.src, b, c.code, context));
    EXPECT_TRUE(SameBytes(a, b)) << "code " << c.code;
  }
  const float m[6] = {0.7f, 0.2f, 1.3f, -0.2f, 0.9f, 2.1f};
  for (int code : {56, 57, 58}) {
    auto a = Random({12, 9, 3}, TensorShape::UINT8, TensorShape::HWC);
    auto b = device->CreateTensor(a->shape, a->Data());
    ASSERT_TRUE(fallback.ConvertPixel(rgb, a, m, code, context));
    ASSERT_TRUE(sse.ConvertPixel(rgb, b, m, code, context));
    EXPECT_TRUE(SameBytes(a, b)) << "code " << code;
  }
  for (int code : {85, 88, 100, 103}) {
    auto src = code == 85 || code == 100 ? Random({10, 34, 1}, TensorShape::UINT8, TensorShape::HWC)
                                         : rgba;
    const unsigned c = src->shape.dims[2];
    auto a = Random({6, 7, c}, TensorShape::UINT8, TensorShape::HWC);
    auto b = device->CreateTensor(a->shape, a->Data());
    ASSERT_TRUE(fallback.ConvertPixel(src, a, -2.0f, 3.0f, 7.0f, 6.0f, code, context));
    ASSERT_TRUE(sse.ConvertPixel(src, b, -2.0f, 3.0f, 7.0f, 6.0f, code, context));
    EXPECT_TRUE(SameBytes(a, b)) << "code " << code;
  }
  EXPECT_EQ(testing::ThrownMessage([&] { sse.Affine_INV_BILINEAR_Float_Border(rgb, rgb, m, 0.0f, context); }),
            "Not Implemented.");
}

// ---------------------------------------------------------------- Affine_Normalize

// Source-to-destination matrices.
struct Warp {
  const char* name;
  float m[6];
};

const Warp kWarps[] = {
    {"identity", {1, 0, 0, 0, 1, 0}},
    {"shift_in", {1, 0, -3, 0, 1, -2}},
    {"shift_out", {1, 0, 5, 0, 1, -4}},
    {"fraction", {1, 0, 0.5f, 0, 1, 0.25f}},
    {"down", {0.117f, 0, 0, 0, 0.21f, 0}},
    {"up", {2.5f, 0, -1, 0, 1.75f, 0.5f}},
    {"turn", {0.866f, -0.5f, 6, 0.5f, 0.866f, -3}},
    {"mirror", {-1, 0, 20, 0, 1, 0}},
    {"shear", {1, 0.4f, 0, 0, 1, 0}},
};

class SseNormalizeTest : public SseTest,
                         public ::testing::WithParamInterface<std::tuple<int, unsigned, TensorShape::Layout, unsigned>> {
};

TEST_P(SseNormalizeTest, EqualsScalarForm) {
  const Warp& warp = kWarps[std::get<0>(GetParam())];
  const unsigned c = std::get<1>(GetParam());
  const auto layout = std::get<2>(GetParam());
  const unsigned out_w = std::get<3>(GetParam());
  auto src = layout == TensorShape::HWC ? Random({23, 19, c}, TensorShape::UINT8, layout)
                                        : Random({c, 23, 19}, TensorShape::UINT8, layout);
  auto a = device->CreateF32CHWMainMemory(c, 13, out_w);
  auto b = device->CreateF32CHWMainMemory(c, 13, out_w);
  AffineNormalizeParam param;
  const float mean[4] = {123.675f, 116.28f, 103.53f, 0.5f}, scale[4] = {1 / 58.395f, 1 / 57.12f, 1 / 57.375f, 2.0f};
  for (int i = 0; i < 4; ++i) param.mean[i] = mean[i], param.scale[i] = scale[i];
  param.border = 17.4f;
  kernel::functional::F_Affine_Normalize_Fallback(src, a, warp.m, param);
  sse.Affine_Normalize(src, b, warp.m, param, context);
  EXPECT_TRUE(SameBytes(a, b)) << warp.name;
}

INSTANTIATE_TEST_SUITE_P(Warps, SseNormalizeTest,
                         ::testing::Combine(::testing::Range(0, 9), ::testing::Values(1u, 2u, 3u, 4u),
                                            ::testing::Values(TensorShape::HWC, TensorShape::CHW),
                                            ::testing::Values(1u, 7u, 16u, 21u)),
                         TRN_INDEX_NAMES);

TEST_F(SseTest, NormalizeByIdentityIsPerChannelMeanAndScale) {
  auto src = Random({5, 37, 3}, TensorShape::UINT8, TensorShape::HWC);
  auto dst = device->CreateF32CHWMainMemory(3, 5, 37);
  AffineNormalizeParam p;
  p.mean[0] = 10, p.mean[1] = 20, p.mean[2] = 30;
  p.scale[0] = 0.5f, p.scale[1] = 0.25f, p.scale[2] = 2;
  const float id[6] = {1, 0, 0, 0, 1, 0};
  sse.Affine_Normalize(src, dst, id, p, context);
  for (unsigned k = 0; k < 3; ++k) {
    for (unsigned i = 0; i < 5 * 37; ++i) {
      ASSERT_EQ(dst->DataAs<float>()[k * 5 * 37 + i], (float(src->DataAs<U8>()[i * 3 + k]) - p.mean[k]) * p.scale[k]);
    }
  }
  // Code 55: mean 0, scale 1, border 0; a shift brings the border in.
  const float shift[6] = {1, 0, 2, 0, 1, 0};
  ASSERT_TRUE(sse.ConvertPixel(src, dst, shift, kernel::IMG_AFFINE_NORMALIZE, context));
  for (unsigned y = 0; y < 5; ++y) {
    for (unsigned x = 0; x < 37; ++x) {
      const float want = x < 2 ? 0.0f : float(src->DataAs<U8>()[(y * 37 + x - 2) * 3 + 1]);
      ASSERT_EQ(dst->DataAs<float>()[5 * 37 + y * 37 + x], want) << x << "," << y;
    }
  }
}

TEST_F(SseTest, NormalizeChecksItsTensors) {
  auto src = Random({5, 6, 3}, TensorShape::UINT8, TensorShape::HWC);
  const float id[6] = {1, 0, 0, 0, 1, 0};
  AffineNormalizeParam p;
  auto hwc_float = Random({5, 6, 3}, TensorShape::FLOAT32, TensorShape::HWC);
  EXPECT_NE(testing::ThrownMessage([&] { sse.Affine_Normalize(src, hwc_float, id, p, context); }).find("FLOAT32 CHW"),
            std::string::npos);
  auto two_planes = device->CreateF32CHWMainMemory(2, 5, 6);
  EXPECT_THROW(sse.Affine_Normalize(src, two_planes, id, p, context), std::runtime_error);
  auto five = Random({5, 6, 5}, TensorShape::UINT8, TensorShape::HWC);
  EXPECT_THROW(sse.Affine_Normalize(five, device->CreateF32CHWMainMemory(5, 5, 6), id, p, context),
               std::runtime_error);
  const float flat[6] = {0, 0, 1, 0, 0, 1};
  EXPECT_THROW(sse.Affine_Normalize(src, device->CreateF32CHWMainMemory(3, 5, 6), flat, p, context),
               std::runtime_error);
}

}  // namespace
}  // namespace tarn
