// ImageProcessFallback against scalar renderings of the formulas, over odd and
// even sizes and the tails around the 32-pixel vector step.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "tarn/kernel/image_process.h"
#include "test_util.h"

namespace tarn {
namespace {

using kernel::ImageProcess;
using kernel::ImageProcessFallback;
using runtime::TensorCPU;
using runtime::TensorPtr;
using runtime::TensorShape;
using U8 = std::uint8_t;

class CvTest : public ::testing::Test {
 protected:
  std::shared_ptr<runtime::AlignUpPool> pool = std::make_shared<runtime::AlignUpPool>(64);
  std::shared_ptr<runtime::DeviceCPU> device = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), pool, nullptr, pool);
  std::shared_ptr<runtime::Context> context = runtime::CreateContext(device, nullptr, nullptr, nullptr, nullptr, nullptr);
  ImageProcessFallback proc;
  std::mt19937 rng{12345};

  std::shared_ptr<TensorCPU> Image(unsigned h, unsigned w, unsigned c, TensorShape::DataType type = TensorShape::UINT8,
                                   TensorShape::Layout layout = TensorShape::HWC) {
    std::vector<unsigned> dims = layout == TensorShape::HWC ? std::vector<unsigned>{h, w, c}
                                                            : std::vector<unsigned>{c, h, w};
    auto t = device->CreateTensor(TensorShape(dims, type, layout, TensorShape::MainMemory));
    Fill(t);
    return t;
  }
  void Fill(const std::shared_ptr<TensorCPU>& t) {
    U8* p = t->DataAs<U8>();
    const std::size_t n = t->shape.Bytes();
    if (t->shape.data_type == TensorShape::FLOAT32) {
      std::uniform_real_distribution<float> d(-300.0f, 300.0f);
      for (std::size_t i = 0; i < n / 4; ++i) reinterpret_cast<float*>(p)[i] = d(rng);
    } else {
      for (std::size_t i = 0; i < n; ++i) p[i] = static_cast<U8>(rng());
    }
  }
  static std::vector<U8> BytesOf(const std::shared_ptr<TensorCPU>& t) {
    const U8* p = t->DataAs<U8>();
    return std::vector<U8>(p, p + t->shape.Bytes());
  }
};

// ---------------------------------------------------------------- slots and dispatch

class Bare : public ImageProcess {};

struct CodeCase {
  int table;  // 1: plain, 2: matrix, 3: rectangle
  int code;
};

class CvDispatchTest : public CvTest, public ::testing::WithParamInterface<CodeCase> {};

TEST_P(CvDispatchTest, BaseSlotsFailNotImplemented) {
  Bare bare;
  auto src = Image(4, 4, 3), dst = Image(4, 4, 3);
  const float m[6] = {1, 0, 0, 0, 1, 0};
  const CodeCase c = GetParam();
  const std::string msg = testing::ThrownMessage([&] {
    if (c.table == 1) bare.ConvertPixel(src, dst, c.code, context);
    if (c.table == 2) bare.ConvertPixel(src, dst, m, c.code, context);
    if (c.table == 3) bare.ConvertPixel(src, dst, 0, 0, 4, 4, c.code, context);
  });
  EXPECT_EQ(msg, "Not Implemented.") << "code " << c.code;
}

INSTANTIATE_TEST_SUITE_P(AllCodes, CvDispatchTest,
                         ::testing::Values(CodeCase{1, 1}, CodeCase{1, 3}, CodeCase{1, 4}, CodeCase{1, 6},
                                           CodeCase{1, 7}, CodeCase{1, 11}, CodeCase{1, 22}, CodeCase{1, 24},
                                           CodeCase{1, 32}, CodeCase{1, 50}, CodeCase{1, 51}, CodeCase{1, 52},
                                           CodeCase{1, 53}, CodeCase{1, 54}, CodeCase{1, 60}, CodeCase{1, 61},
                                           CodeCase{1, 65}, CodeCase{1, 77}, CodeCase{1, 81}, CodeCase{1, 82},
                                           CodeCase{1, 83}, CodeCase{1, 84}, CodeCase{2, 55}, CodeCase{2, 56},
                                           CodeCase{2, 57}, CodeCase{2, 58}, CodeCase{3, 85}, CodeCase{3, 86},
                                           CodeCase{3, 87}, CodeCase{3, 88}, CodeCase{3, 100}, CodeCase{3, 101},
                                           CodeCase{3, 102}, CodeCase{3, 103}),
                         TRN_INDEX_NAMES);

TEST_F(CvTest, CodesOutsideTheTablesDoNothing) {
  auto src = Image(4, 4, 3), dst = Image(4, 4, 3);
  const auto before = BytesOf(dst);
  const float m[6] = {1, 0, 0, 0, 1, 0};
  for (int code : {0, 2, 5, 23, 55, 56, 62, 85, 100, 1000, -1}) EXPECT_FALSE(proc.ConvertPixel(src, dst, code, context));
  for (int code : {1, 4, 54, 59, 85}) EXPECT_FALSE(proc.ConvertPixel(src, dst, m, code, context));
  for (int code : {1, 77, 84, 89, 99, 104}) EXPECT_FALSE(proc.ConvertPixel(src, dst, 0, 0, 4, 4, code, context));
  EXPECT_EQ(BytesOf(dst), before);
  // The rectangle table acts on 8-bit sources only.
  auto fsrc = Image(4, 4, 3, TensorShape::FLOAT32), fdst = Image(4, 4, 3, TensorShape::FLOAT32);
  const auto fbefore = BytesOf(fdst);
  EXPECT_FALSE(proc.ConvertPixel(fsrc, fdst, 0, 0, 4, 4, kernel::IMG_CROP_C3, context));
  EXPECT_EQ(BytesOf(fdst), fbefore);
  EXPECT_TRUE(proc.ConvertPixel(src, dst, 0, 0, 4, 4, kernel::IMG_CROP_C3, context));
  EXPECT_EQ(BytesOf(dst), BytesOf(src));
}

TEST_F(CvTest, FallbackLeavesNormalizeAndBorderWarpUnimplemented) {
  auto src = Image(4, 4, 3), dst = device->CreateF32CHWMainMemory(3, 4, 4);
  const float m[6] = {1, 0, 0, 0, 1, 0};
  EXPECT_EQ(testing::ThrownMessage([&] { proc.ConvertPixel(src, dst, m, kernel::IMG_AFFINE_NORMALIZE, context); }),
            "Not Implemented.");
  EXPECT_EQ(testing::ThrownMessage([&] { proc.Affine_INV_BILINEAR_Float_Border(src, src, m, 0.0f, context); }),
            "Not Implemented.");
}

// ---------------------------------------------------------------- colour

struct GrayCase {
  int code;
  unsigned channels;
  int r, b;  // channel index of R and B
};

class CvGrayTest : public CvTest, public ::testing::WithParamInterface<std::tuple<GrayCase, unsigned, unsigned>> {};

TEST_P(CvGrayTest, MatchesIntegerFormula) {
  const GrayCase g = std::get<0>(GetParam());
  const unsigned h = std::get<1>(GetParam()), w = std::get<2>(GetParam());
  auto src = Image(h, w, g.channels), dst = Image(h, w, 1);
  ASSERT_TRUE(proc.ConvertPixel(src, dst, g.code, context));
  const U8* p = src->DataAs<U8>();
  const U8* q = dst->DataAs<U8>();
  for (unsigned i = 0; i < h * w; ++i) {
    const U8* px = p + i * g.channels;
    ASSERT_EQ(q[i], (77 * px[g.r] + 150 * px[1] + 29 * px[g.b]) >> 8) << "pixel " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(SizesAroundTheVectorStep, CvGrayTest,
                         ::testing::Combine(::testing::Values(GrayCase{kernel::IMG_RGB2GRAY, 3, 0, 2},
                                                              GrayCase{kernel::IMG_BGR2GRAY, 3, 2, 0},
                                                              GrayCase{kernel::IMG_RGBA2GRAY, 4, 0, 2}),
                                            ::testing::Values(1u, 3u),
                                            ::testing::Values(1u, 2u, 31u, 32u, 33u, 63u, 64u, 65u, 100u)),
                         TRN_INDEX_NAMES);

TEST_F(CvTest, WhiteIsGray255AndChannelOrderMatters) {
  U8 px[6] = {255, 255, 255, 200, 10, 0};
  auto src = device->CreateRGB888Tensor(1, 2, px), dst = device->CreateGray8Tensor(1, 2);
  proc.ConvertRGB2Gray(src, dst, context);
  EXPECT_EQ(dst->DataAs<U8>()[0], 255);
  EXPECT_EQ(dst->DataAs<U8>()[1], (77 * 200 + 150 * 10) >> 8);
  proc.ConvertBGR2Gray(src, dst, context);
  EXPECT_EQ(dst->DataAs<U8>()[1], (29 * 200 + 150 * 10) >> 8);
}

TEST_F(CvTest, ChannelSwizzles) {
  auto rgba = Image(3, 37, 4), rgb = Image(3, 37, 3), out = Image(3, 37, 3);
  proc.ConvertPixel(rgba, out, kernel::IMG_RGBA2RGB, context);
  for (unsigned i = 0; i < 3 * 37; ++i) {
    for (int c = 0; c < 3; ++c) ASSERT_EQ(out->DataAs<U8>()[i * 3 + c], rgba->DataAs<U8>()[i * 4 + c]);
  }
  proc.ConvertPixel(rgba, out, kernel::IMG_RGBA2BGR, context);
  for (unsigned i = 0; i < 3 * 37; ++i) {
    for (int c = 0; c < 3; ++c) ASSERT_EQ(out->DataAs<U8>()[i * 3 + c], rgba->DataAs<U8>()[i * 4 + 2 - c]);
  }
  const auto original = BytesOf(rgb);
  proc.ConvertPixel(rgb, out, kernel::IMG_RGB2BGR, context);
  for (unsigned i = 0; i < 3 * 37; ++i) {
    for (int c = 0; c < 3; ++c) ASSERT_EQ(out->DataAs<U8>()[i * 3 + c], original[i * 3 + 2 - c]);
  }
  // In place, twice, gives the image back.
  proc.ConvertRGBtoBGR(rgb, rgb, context);
  EXPECT_EQ(BytesOf(rgb), BytesOf(out));
  proc.ConvertRGBtoBGR(rgb, rgb, context);
  EXPECT_EQ(BytesOf(rgb), original);
}

// ---------------------------------------------------------------- YUV 4:2:0

// The formulas, pixel by pixel.
void RenderYUV(const U8* frame, unsigned h, unsigned w, int code, U8* out) {
  const U8* chroma = frame + h * w;
  for (unsigned y = 0; y < h; ++y) {
    for (unsigned x = 0; x < w; ++x) {
      int U, V;
      const unsigned cy = y / 2, cx = x / 2;
      if (code == kernel::IMG_YUV2RGB_IYUV) {
        U = chroma[cy * (w / 2) + cx];
        V = chroma[h * w / 4 + cy * (w / 2) + cx];
      } else {
        const U8* pair = chroma + cy * w + 2 * cx;
        U = code == kernel::IMG_YUV2RGB_NV12 ? pair[0] : pair[1];
        V = code == kernel::IMG_YUV2RGB_NV12 ? pair[1] : pair[0];
      }
      const int u = U - 128, v = V - 128, y64 = 64 * frame[y * w + x];
      out[y * w + x] = static_cast<U8>(((y64 + 90 * v) >> 6) & 0xFF);
      out[h * w + y * w + x] = static_cast<U8>(((y64 - 46 * v - 22 * u) >> 6) & 0xFF);
      out[2 * h * w + y * w + x] = static_cast<U8>(((y64 + 113 * u) >> 6) & 0xFF);
    }
  }
}

class CvYUVTest : public CvTest, public ::testing::WithParamInterface<std::tuple<int, unsigned, unsigned>> {};

TEST_P(CvYUVTest, MatchesFormulasWithLow8Bits) {
  const int code = std::get<0>(GetParam());
  const unsigned h = std::get<1>(GetParam()), w = std::get<2>(GetParam());
  auto frame = device->CreateYUV420Tensor(h, w);
  Fill(frame);
  auto dst = device->CreateRGBUInt8CHWTensor(h, w);
  Fill(dst);
  const auto before = BytesOf(dst);
  ASSERT_TRUE(proc.ConvertPixel(frame, dst, code, context));
  if (h % 2 || w % 2) {
    EXPECT_EQ(BytesOf(dst), before) << "odd sizes write nothing";
    return;
  }
  std::vector<U8> want(3 * h * w);
  RenderYUV(frame->DataAs<U8>(), h, w, code, want.data());
  EXPECT_EQ(BytesOf(dst), want);
}

INSTANTIATE_TEST_SUITE_P(Sizes, CvYUVTest,
                         ::testing::Combine(::testing::Values(kernel::IMG_YUV2RGB_NV12, kernel::IMG_YUV2RGB_NV21,
                                                              kernel::IMG_YUV2RGB_IYUV),
                                            ::testing::Values(2u, 6u, 3u),
                                            ::testing::Values(2u, 14u, 16u, 18u, 30u, 32u, 34u, 64u, 5u)),
                         TRN_INDEX_NAMES);

TEST_F(CvTest, YUVKnownValuesAndWrapAround) {
  // 2x2 NV12 frame: Y plane then one U, V pair.
  U8 grey[6] = {128, 128, 128, 128, 128, 128};
  auto frame = device->CreateYUV420Tensor(2, 2, grey);
  auto dst = device->CreateRGBUInt8CHWTensor(2, 2);
  proc.ConvertYUV2RGB_NV12(frame, dst, context);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(dst->DataAs<U8>()[i], 128);
  U8 red[6] = {255, 255, 255, 255, 128, 255};
  frame = device->CreateYUV420Tensor(2, 2, red);
  proc.ConvertYUV2RGB_NV12(frame, dst, context);
  EXPECT_EQ(dst->DataAs<U8>()[0], 177) << "(16320 + 11430) >> 6 = 433, stored as 433 mod 256";
  // NV21 reads the pair the other way round: V = 128, U = 255.
  proc.ConvertYUV2RGB_NV21(frame, dst, context);
  EXPECT_EQ(dst->DataAs<U8>()[0], 255);
  EXPECT_EQ(dst->DataAs<U8>()[8], static_cast<U8>((16320 + 113 * 127) >> 6));
}

// ---------------------------------------------------------------- bilinear resize

// Scalar rendering of the fixed-point bilinear formulas for one axis.
void Taps(unsigned src, unsigned dst, unsigned d, int* i0, int* i1, int* w0, int* w1) {
  const double fx = std::fma(d + 0.5, double(src) / dst, -0.5);
  const double sx = std::floor(fx);
  if (sx < 0) {
    *i0 = 0, *i1 = src > 1 ? 1 : 0, *w0 = 2048, *w1 = 0;
  } else if (sx >= src - 1.0) {
    *i0 = src > 1 ? src - 2 : 0, *i1 = src - 1, *w0 = src > 1 ? 0 : 2048, *w1 = src > 1 ? 2048 : 0;
  } else {
    *i0 = int(sx), *i1 = int(sx) + 1;
    *w0 = int(std::round((1 - (fx - sx)) * 2048));
    *w1 = int(std::round((fx - sx) * 2048));
  }
}

std::vector<U8> RenderBilinear(const U8* p, unsigned sh, unsigned sw, unsigned c, unsigned dh, unsigned dw) {
  std::vector<U8> out(dh * dw * c);
  for (unsigned dy = 0; dy < dh; ++dy) {
    int y0, y1, wy0, wy1;
    Taps(sh, dh, dy, &y0, &y1, &wy0, &wy1);
    for (unsigned dx = 0; dx < dw; ++dx) {
      int x0, x1, wx0, wx1;
      Taps(sw, dw, dx, &x0, &x1, &wx0, &wx1);
      for (unsigned k = 0; k < c; ++k) {
        const int ha = (p[(y0 * sw + x0) * c + k] * wx0 + p[(y0 * sw + x1) * c + k] * wx1) >> 4;
        const int hb = (p[(y1 * sw + x0) * c + k] * wx0 + p[(y1 * sw + x1) * c + k] * wx1) >> 4;
        out[(dy * dw + dx) * c + k] = U8((((ha * wy0) >> 16) + ((hb * wy1) >> 16) + 2) >> 2);
      }
    }
  }
  return out;
}

using SizePair = std::tuple<unsigned, unsigned, unsigned, unsigned>;  // src h, w, dst h, w

class CvBilinearTest : public CvTest, public ::testing::WithParamInterface<std::tuple<unsigned, SizePair>> {};

TEST_P(CvBilinearTest, MatchesFixedPointFormulas) {
  const unsigned c = std::get<0>(GetParam());
  unsigned sh, sw, dh, dw;
  std::tie(sh, sw, dh, dw) = std::get<1>(GetParam());
  auto src = Image(sh, sw, c), dst = Image(dh, dw, c);
  ASSERT_TRUE(proc.ConvertPixel(src, dst, kernel::IMG_RESIZE_BILINEAR_C1 + int(c) - 1, context));
  EXPECT_EQ(BytesOf(dst), RenderBilinear(src->DataAs<U8>(), sh, sw, c, dh, dw));
  if (sh == dh && sw == dw) {
    EXPECT_EQ(BytesOf(dst), BytesOf(src)) << "equal sizes reproduce the image";
  }
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, CvBilinearTest,
    ::testing::Combine(::testing::Values(1u, 2u, 3u, 4u),
                       ::testing::Values(SizePair{1, 1, 1, 1}, SizePair{1, 1, 3, 5}, SizePair{1, 9, 1, 33},
                                         SizePair{9, 1, 4, 1}, SizePair{7, 5, 7, 5}, SizePair{33, 17, 16, 8},
                                         SizePair{16, 8, 33, 17}, SizePair{31, 31, 64, 64}, SizePair{64, 48, 32, 24},
                                         SizePair{100, 3, 31, 2}, SizePair{5, 40, 3, 31}, SizePair{12, 70, 12, 35},
                                         SizePair{2, 2, 1, 1})),
    TRN_INDEX_NAMES);

TEST_F(CvTest, OnePixelWideDownscaleWeighsTheOnlyColumnFully) {
  // A 1-wide column halved in height: every output is a pair average of the
  // column, with no second column ever weighted in.
  U8 col[8] = {0, 255, 10, 20, 30, 40, 250, 250};
  auto src = device->CreateGray8Tensor(8, 1, col), dst = device->CreateGray8Tensor(4, 1);
  proc.Resize_Bilinear_C1(src, dst, context);
  const U8 want[4] = {128, 15, 35, 250};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(dst->DataAs<U8>()[i], want[i]) << i;
}

// ---------------------------------------------------------------- crops and nearest

struct Rect {
  float x, y, w, h;
};

class CvCropTest : public CvTest, public ::testing::WithParamInterface<std::tuple<unsigned, Rect>> {};

TEST_P(CvCropTest, CopiesTheInsidePartOnly) {
  const unsigned c = std::get<0>(GetParam());
  const Rect r = std::get<1>(GetParam());
  const int x = int(r.x), y = int(r.y), w = int(r.w), h = int(r.h);
  auto src = Image(11, 13, c), dst = Image(h, w, c);
  const auto before = BytesOf(dst);
  ASSERT_TRUE(proc.ConvertPixel(src, dst, r.x, r.y, r.w, r.h, kernel::IMG_CROP_C1 + int(c) - 1, context));
  for (int i = 0; i < h; ++i) {
    for (int j = 0; j < w; ++j) {
      const bool inside = y + i >= 0 && y + i < 11 && x + j >= 0 && x + j < 13;
      for (unsigned k = 0; k < c; ++k) {
        const std::size_t at = (i * w + j) * c + k;
        const U8 want = inside ? src->DataAs<U8>()[((y + i) * 13 + x + j) * c + k] : before[at];
        ASSERT_EQ(dst->DataAs<U8>()[at], want) << i << "," << j;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Rects, CvCropTest,
                         ::testing::Combine(::testing::Values(1u, 2u, 3u, 4u),
                                            ::testing::Values(Rect{0, 0, 13, 11}, Rect{2, 3, 5, 4},
                                                              Rect{2.9f, 3.7f, 5.2f, 4.99f}, Rect{-3, -2, 8, 6},
                                                              Rect{10, 9, 6, 5}, Rect{-4, 4, 30, 1},
                                                              Rect{20, 0, 3, 3})),
                         TRN_INDEX_NAMES);

std::vector<unsigned> NearestIndex(unsigned dst, int rect, int offset, unsigned src) {
  std::vector<unsigned> v(dst);
  for (unsigned i = 0; i < dst; ++i) {
    const long s = long(std::floor((i + 0.5) * (double(rect) / dst) - 0.5)) + offset;
    v[i] = unsigned(std::min<long>(std::max<long>(s, 0), long(src) - 1));
  }
  return v;
}

class CvCropResizeTest
    : public CvTest,
      public ::testing::WithParamInterface<std::tuple<unsigned, Rect, std::tuple<unsigned, unsigned>>> {};

TEST_P(CvCropResizeTest, MatchesNearestMapsWithClamping) {
  const unsigned c = std::get<0>(GetParam());
  const Rect r = std::get<1>(GetParam());
  const unsigned dh = std::get<0>(std::get<2>(GetParam())), dw = std::get<1>(std::get<2>(GetParam()));
  auto src = Image(19, 23, c), dst = Image(dh, dw, c);
  ASSERT_TRUE(
      proc.ConvertPixel(src, dst, r.x, r.y, r.w, r.h, kernel::IMG_CROP_RESIZE_NEAREST_C1 + int(c) - 1, context));
  const auto xs = NearestIndex(dw, int(r.w), int(r.x), 23), ys = NearestIndex(dh, int(r.h), int(r.y), 19);
  for (unsigned i = 0; i < dh; ++i) {
    for (unsigned j = 0; j < dw; ++j) {
      for (unsigned k = 0; k < c; ++k) {
        ASSERT_EQ(dst->DataAs<U8>()[(i * dw + j) * c + k], src->DataAs<U8>()[(ys[i] * 23 + xs[j]) * c + k]);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rects, CvCropResizeTest,
    ::testing::Combine(::testing::Values(1u, 3u, 4u),
                       ::testing::Values(Rect{0, 0, 23, 19}, Rect{3, 2, 10, 7}, Rect{-5, -5, 40, 30},
                                         Rect{20, 15, 9, 9}),
                       ::testing::Values(std::make_tuple(1u, 1u), std::make_tuple(7u, 33u),
                                         std::make_tuple(40u, 3u))),
    TRN_INDEX_NAMES);

TEST_F(CvTest, CropResizeNearestServesAnyChannelCountAndNeedsHWC) {
  // All four slots run the one implementation: C1's slot on a 3-channel image.
  auto src = Image(6, 8, 3), a = Image(3, 4, 3), b = Image(3, 4, 3);
  proc.Crop_Resize_Nearest_C1(src, a, 0, 0, 8, 6, context);
  proc.Crop_Resize_Nearest_C3(src, b, 0, 0, 8, 6, context);
  EXPECT_EQ(BytesOf(a), BytesOf(b));
  auto planar = Image(6, 8, 3, TensorShape::UINT8, TensorShape::CHW);
  EXPECT_NE(testing::ThrownMessage([&] { proc.Crop_Resize_Nearest_C3(planar, a, 0, 0, 8, 6, context); })
                .find("layout HWC"),
            std::string::npos);
}

TEST_F(CvTest, ResizeNearestC1UsesTheWholeImage) {
  auto src = Image(9, 14, 1), dst = Image(4, 29, 1), ref = Image(4, 29, 1);
  ASSERT_TRUE(proc.ConvertPixel(src, dst, kernel::IMG_RESIZE_NEAREST_C1, context));
  proc.Crop_Resize_Nearest_C1(src, ref, 0, 0, 14, 9, context);
  EXPECT_EQ(BytesOf(dst), BytesOf(ref));
  auto rgb = Image(9, 14, 3), rgb_out = Image(4, 29, 3);
  EXPECT_THROW(proc.Resize_Nearest_C1(rgb, rgb_out, context), std::runtime_error);
}

// ---------------------------------------------------------------- rotations and flips

// Source (row, col) of destination (i, j) for each operation.
using PixelMap = std::function<std::pair<unsigned, unsigned>(unsigned i, unsigned j, unsigned h, unsigned w)>;

struct GeometryOp {
  int code;
  bool quarter;
  PixelMap from;
};

const GeometryOp kGeometryOps[] = {
    {kernel::IMG_ROTATE_90, true, [](unsigned i, unsigned j, unsigned h, unsigned) { return std::make_pair(h - 1 - j, i); }},
    {kernel::IMG_ROTATE_180, false,
     [](unsigned i, unsigned j, unsigned h, unsigned w) { return std::make_pair(h - 1 - i, w - 1 - j); }},
    {kernel::IMG_ROTATE_270, true, [](unsigned i, unsigned j, unsigned, unsigned w) { return std::make_pair(j, w - 1 - i); }},
    {kernel::IMG_FLIP_HORIZONTAL, false,
     [](unsigned i, unsigned j, unsigned, unsigned w) { return std::make_pair(i, w - 1 - j); }},
    {kernel::IMG_FLIP_VERTICAL, false,
     [](unsigned i, unsigned j, unsigned h, unsigned) { return std::make_pair(h - 1 - i, j); }},
};

struct PixelKind {
  unsigned channels;
  TensorShape::DataType type;
  TensorShape::Layout layout;
};

class CvGeometryTest
    : public CvTest,
      public ::testing::WithParamInterface<std::tuple<int, PixelKind, std::tuple<unsigned, unsigned>>> {};

TEST_P(CvGeometryTest, PermutesPixelsAsDefined) {
  const GeometryOp& op = kGeometryOps[std::get<0>(GetParam())];
  const PixelKind k = std::get<1>(GetParam());
  const unsigned h = std::get<0>(std::get<2>(GetParam())), w = std::get<1>(std::get<2>(GetParam()));
  auto src = Image(h, w, k.channels, k.type, k.layout);
  const unsigned dh = op.quarter ? w : h, dw = op.quarter ? h : w;
  auto dst = Image(dh, dw, k.channels, k.type, k.layout);
  ASSERT_TRUE(proc.ConvertPixel(src, dst, op.code, context));
  const unsigned es = src->shape.ElementSize();
  const bool planar = k.layout == TensorShape::CHW;
  const unsigned planes = planar ? k.channels : 1, pb = planar ? es : es * k.channels;
  for (unsigned p = 0; p < planes; ++p) {
    for (unsigned i = 0; i < dh; ++i) {
      for (unsigned j = 0; j < dw; ++j) {
        const auto s = op.from(i, j, h, w);
        const U8* a = dst->DataAs<U8>() + (std::size_t(p) * dh * dw + i * dw + j) * pb;
        const U8* b = src->DataAs<U8>() + (std::size_t(p) * h * w + s.first * w + s.second) * pb;
        ASSERT_EQ(std::memcmp(a, b, pb), 0) << "plane " << p << " pixel " << i << "," << j;
      }
    }
  }
  if (!op.quarter) {
    // In place gives the same result.
    proc.ConvertPixel(src, src, op.code, context);
    EXPECT_EQ(BytesOf(src), BytesOf(dst));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, CvGeometryTest,
    ::testing::Combine(::testing::Range(0, 5),
                       ::testing::Values(PixelKind{1, TensorShape::UINT8, TensorShape::HWC},
                                         PixelKind{3, TensorShape::UINT8, TensorShape::HWC},
                                         PixelKind{4, TensorShape::UINT8, TensorShape::HWC},
                                         PixelKind{3, TensorShape::FLOAT32, TensorShape::HWC},
                                         PixelKind{2, TensorShape::UINT8, TensorShape::CHW}),
                       ::testing::Values(std::make_tuple(1u, 1u), std::make_tuple(1u, 17u), std::make_tuple(17u, 1u),
                                         std::make_tuple(15u, 16u), std::make_tuple(33u, 31u))),
    TRN_INDEX_NAMES);

TEST_F(CvTest, QuarterTurnNeedsSwappedSizesAndDistinctTensors) {
  auto src = Image(4, 6, 3), same = Image(4, 6, 3), square = Image(5, 5, 1);
  EXPECT_NE(testing::ThrownMessage([&] { proc.ClockwiseRotate90(src, same, context); }).find("turns into"),
            std::string::npos);
  EXPECT_NE(testing::ThrownMessage([&] { proc.ClockwiseRotate270(square, square, context); }).find("overlap"),
            std::string::npos);
}

// ---------------------------------------------------------------- layouts and float

class CvReorderTest : public CvTest,
                      public ::testing::WithParamInterface<std::tuple<TensorShape::DataType, unsigned, unsigned>> {};

TEST_P(CvReorderTest, HWCAndCHWAreInversePermutations) {
  const auto type = std::get<0>(GetParam());
  const unsigned c = std::get<1>(GetParam()), w = std::get<2>(GetParam()), h = 3;
  auto hwc = Image(h, w, c, type), chw = Image(h, w, c, type, TensorShape::CHW), back = Image(h, w, c, type);
  ASSERT_TRUE(proc.ConvertPixel(hwc, chw, kernel::IMG_HWC2CHW, context));
  const unsigned es = hwc->shape.ElementSize();
  for (unsigned k = 0; k < c; ++k) {
    for (unsigned i = 0; i < h * w; ++i) {
      ASSERT_EQ(std::memcmp(chw->DataAs<U8>() + (k * h * w + i) * es, hwc->DataAs<U8>() + (i * c + k) * es, es), 0);
    }
  }
  ASSERT_TRUE(proc.ConvertPixel(chw, back, kernel::IMG_CHW2HWC, context));
  EXPECT_EQ(BytesOf(back), BytesOf(hwc));
}

INSTANTIATE_TEST_SUITE_P(Kinds, CvReorderTest,
                         ::testing::Combine(::testing::Values(TensorShape::UINT8, TensorShape::FLOAT32),
                                            ::testing::Values(1u, 3u, 4u), ::testing::Values(1u, 33u)),
                         TRN_INDEX_NAMES);

TEST_F(CvTest, Convert8UTo32FKeepsValuesAndChecksTheType) {
  auto src = Image(3, 35, 3);
  auto dst = device->CreateF32FlexiableMainMemory({3 * 35 * 3});
  ASSERT_TRUE(proc.ConvertPixel(src, dst, kernel::IMG_CONVERT_8U_TO_32F, context));
  for (unsigned i = 0; i < 3 * 35 * 3; ++i) ASSERT_EQ(dst->DataAs<float>()[i], float(src->DataAs<U8>()[i]));
  auto fsrc = Image(3, 35, 3, TensorShape::FLOAT32);
  const std::string msg = testing::ThrownMessage([&] { proc.Convert8U_To_32F(fsrc, dst, context); });
  EXPECT_NE(msg.find("src->shape.data_type == runtime::TensorShape::UINT8"), std::string::npos) << msg;
  auto small = device->CreateF32FlexiableMainMemory({10});
  EXPECT_THROW(proc.Convert8U_To_32F(src, small, context), std::runtime_error);
}

// ---------------------------------------------------------------- affine warps

struct Matrix {
  float m[6];
};

const Matrix kMatrices[] = {
    {{1, 0, 0, 0, 1, 0}},                   // identity
    {{1, 0, 3, 0, 1, -2}},                  // whole-pixel shift
    {{1, 0, -0.7f, 0, 1, 0.5f}},            // int() truncates -0.2 to 0
    {{0.6f, 0.3f, 1.5f, -0.3f, 0.6f, 7}},   // turn and shrink
    {{2.3f, 0, -4, 0, 1.7f, -1}},           // scale up the sampling
    {{-1, 0, 12.4f, 0, 1, 0}},              // mirror
};

class CvAffineTest : public CvTest, public ::testing::WithParamInterface<std::tuple<int, PixelKind>> {};

TEST_P(CvAffineTest, InverseNearestCopiesPixelsInsideOnly) {
  const Matrix& mat = kMatrices[std::get<0>(GetParam())];
  const PixelKind k = std::get<1>(GetParam());
  auto src = Image(9, 13, k.channels, k.type, k.layout), dst = Image(11, 15, k.channels, k.type, k.layout);
  const auto before = BytesOf(dst);
  ASSERT_TRUE(proc.ConvertPixel(src, dst, mat.m, kernel::IMG_AFFINE_INV_FLOAT, context));
  const bool planar = k.layout == TensorShape::CHW;
  const unsigned es = src->shape.ElementSize(), planes = planar ? k.channels : 1;
  const unsigned pb = planar ? es : es * k.channels;
  const float* m = mat.m;
  for (unsigned p = 0; p < planes; ++p) {
    for (unsigned y = 0; y < 11; ++y) {
      for (unsigned x = 0; x < 15; ++x) {
        const int sx = int(m[0] * float(x) + m[1] * float(y) + m[2] + 0.5f);
        const int sy = int(m[3] * float(x) + m[4] * float(y) + m[5] + 0.5f);
        const std::size_t at = (std::size_t(p) * 11 * 15 + y * 15 + x) * pb;
        const U8* want = (sx >= 0 && sx <= 12 && sy >= 0 && sy <= 8)
                             ? src->DataAs<U8>() + (std::size_t(p) * 9 * 13 + sy * 13 + sx) * pb
                             : before.data() + at;
        ASSERT_EQ(std::memcmp(dst->DataAs<U8>() + at, want, pb), 0) << x << "," << y;
      }
    }
  }
  // The forward form is the inverse form of the inverted matrix.
  float inv[6];
  if (!kernel::InvertAffineMatrix(m, inv)) return;
  auto a = Image(11, 15, k.channels, k.type, k.layout);
  auto b = device->CreateTensor(a->shape, a->Data());
  proc.ConvertPixel(src, a, m, kernel::IMG_AFFINE_FLOAT, context);
  proc.ConvertPixel(src, b, inv, kernel::IMG_AFFINE_INV_FLOAT, context);
  EXPECT_EQ(BytesOf(a), BytesOf(b));
}

INSTANTIATE_TEST_SUITE_P(Matrices, CvAffineTest,
                         ::testing::Combine(::testing::Range(0, 6),
                                            ::testing::Values(PixelKind{1, TensorShape::UINT8, TensorShape::HWC},
                                                              PixelKind{3, TensorShape::UINT8, TensorShape::HWC},
                                                              PixelKind{2, TensorShape::FLOAT32, TensorShape::CHW})),
                         TRN_INDEX_NAMES);

TEST_F(CvTest, SingularMatrixIsRefused) {
  auto src = Image(4, 4, 1), dst = Image(4, 4, 1);
  const float flat[6] = {1, 2, 0, 2, 4, 0};
  float inv[6];
  EXPECT_FALSE(kernel::InvertAffineMatrix(flat, inv));
  EXPECT_THROW(proc.Affine_Float(src, dst, flat, context), std::runtime_error);
  const float nan[6] = {NAN, 0, 0, 0, 1, 0};
  EXPECT_FALSE(kernel::InvertAffineMatrix(nan, inv));
}

// Bilinear sampling in double precision: the value the fixed-point warp
// approximates (source points to 1/1024 pixel, weights to 1/1024).
double BilinearAt(const std::function<double(long, long)>& px, double sx, double sy) {
  const double x0 = std::floor(sx), y0 = std::floor(sy), fx = sx - x0, fy = sy - y0;
  const long x = long(x0), y = long(y0);
  return (px(x, y) * (1 - fx) + px(x + 1, y) * fx) * (1 - fy) + (px(x, y + 1) * (1 - fx) + px(x + 1, y + 1) * fx) * fy;
}

class CvBilinearWarpTest : public CvTest, public ::testing::WithParamInterface<std::tuple<int, bool, bool>> {};

TEST_P(CvBilinearWarpTest, FollowsDoublePrecisionBilinear) {
  const Matrix& mat = kMatrices[std::get<0>(GetParam())];
  const bool border = std::get<1>(GetParam()), is_float = std::get<2>(GetParam());
  const auto type = is_float ? TensorShape::FLOAT32 : TensorShape::UINT8;
  auto src = Image(9, 13, 2, type), dst = Image(11, 15, 2, type);
  const auto before = BytesOf(dst);
  const float border_value = 77.0f;
  if (border) {
    kernel::functional::F_Affine_INV_BILINEAR_Float_Border_Fallback(src, dst, mat.m, border_value);
  } else {
    ASSERT_TRUE(proc.ConvertPixel(src, dst, mat.m, kernel::IMG_AFFINE_INV_BILINEAR_FLOAT, context));
  }
  const float* m = mat.m;
  for (unsigned y = 0; y < 11; ++y) {
    for (unsigned x = 0; x < 15; ++x) {
      const double sx = double(m[0]) * x + double(m[1]) * y + m[2];
      const double sy = double(m[3]) * x + double(m[4]) * y + m[5];
      // Points closer than the fixed-point step to the edge may go either way.
      const double eps = 2.0 / 1024;
      const bool clearly_in = sx >= eps && sx <= 12 - eps && sy >= eps && sy <= 8 - eps;
      const bool clearly_out = sx < -eps || sx > 12 + eps || sy < -eps || sy > 8 + eps;
      for (unsigned c = 0; c < 2; ++c) {
        auto px = [&](long i, long j) -> double {
          if (i < 0 || i > 12 || j < 0 || j > 8) return border_value;
          return is_float ? src->DataAs<float>()[(j * 13 + i) * 2 + c] : src->DataAs<U8>()[(j * 13 + i) * 2 + c];
        };
        const std::size_t at = (y * 15 + x) * 2 + c;
        const double got = is_float ? dst->DataAs<float>()[at] : dst->DataAs<U8>()[at];
        if (!border && clearly_out) {
          const double old = is_float ? reinterpret_cast<const float*>(before.data())[at] : before[at];
          ASSERT_EQ(got, old) << "outside points leave the destination alone";
        } else if (border || clearly_in) {
          const double want = BilinearAt(px, sx, sy);
          // u8: rounding to an integer plus the 1/1024 quantisation; float: the
          // quantisation of the point on values up to 300.
          ASSERT_NEAR(got, want, is_float ? 0.75 : 0.75) << x << "," << y;
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Matrices, CvBilinearWarpTest,
                         ::testing::Combine(::testing::Range(0, 6), ::testing::Bool(), ::testing::Bool()),
                         TRN_INDEX_NAMES);

TEST_F(CvTest, BilinearWarpByIdentityCopiesExactly) {
  auto src = Image(7, 35, 3), dst = Image(7, 35, 3);
  const float id[6] = {1, 0, 0, 0, 1, 0};
  proc.Affine_INV_BILINEAR_Float(src, dst, id, context);
  EXPECT_EQ(BytesOf(dst), BytesOf(src));
}

// ---------------------------------------------------------------- refusals

TEST_F(CvTest, BadArgumentsAreRefusedWithAMessage) {
  auto rgb = Image(4, 4, 3), gray = Image(4, 4, 1), big = Image(5, 4, 1);
  auto contains = [](const std::function<void()>& fn, const std::string& text) {
    const std::string msg = testing::ThrownMessage(fn);
    return msg.find(text) != std::string::npos ? ::testing::AssertionSuccess()
                                               : ::testing::AssertionFailure() << "message: " << msg;
  };
  EXPECT_TRUE(contains([&] { proc.ConvertRGB2Gray(gray, gray, context); }, "UINT8 HWC image of 3 channels"));
  EXPECT_TRUE(contains([&] { proc.ConvertRGB2Gray(rgb, big, context); }, "source is 4x4 but destination 4x5"));
  EXPECT_TRUE(contains([&] { proc.ConvertRGB2Gray(nullptr, gray, context); }, "source tensor is null"));
  EXPECT_TRUE(contains([&] { proc.Crop_C1(gray, gray, 0, 0, 4, 4, context); }, "overlap"));
  EXPECT_TRUE(contains([&] { proc.Crop_C1(gray, big, NAN, 0, 4, 5, context); }, "out of range"));
  EXPECT_TRUE(contains([&] { proc.Crop_C1(gray, big, 0, 0, 3, 3, context); }, "destination must be {3, 3, 1}"));
  EXPECT_TRUE(contains([&] { proc.Resize_Bilinear_C3(gray, gray, context); }, "3 channels"));
  auto frame = device->CreateYUV420Tensor(2, 4), planes = device->CreateRGBUInt8CHWTensor(4, 4);
  EXPECT_TRUE(contains([&] { proc.ConvertYUV2RGB_NV21(frame, planes, context); }, "needs 24 bytes"));
  EXPECT_TRUE(contains([&] { proc.ConvertYUV2RGB_NV21(frame, rgb, context); }, "planar {3, height, width}"));
}

}  // namespace
}  // namespace tarn
