#include "tarn/utility/bmp.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "test_util.h"

namespace tarn {
namespace {

using runtime::TensorCPU;
using runtime::TensorShape;
using utility::BMPChannelOrder;
using U8 = std::uint8_t;
using Bytes = std::vector<U8>;

void Put16(Bytes& b, std::size_t at, std::uint32_t v) {
  b[at] = U8(v);
  b[at + 1] = U8(v >> 8);
}
void Put32(Bytes& b, std::size_t at, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) b[at + i] = U8(v >> (8 * i));
}

// A file laid out by hand, independently of the writer: `pixels` are the
// stored rows in file order, each `stride` bytes.
Bytes MakeFile(std::uint32_t header, std::int32_t width, std::int32_t height, std::uint32_t bits,
               std::uint32_t compression, const Bytes& between, const Bytes& pixels) {
  Bytes b(14 + header);
  b[0] = 'B';
  b[1] = 'M';
  Put32(b, 10, std::uint32_t(14 + header + between.size()));
  Put32(b, 14, header);
  if (header == 12) {
    Put16(b, 18, std::uint32_t(width));
    Put16(b, 20, std::uint32_t(height));
    Put16(b, 22, 1);
    Put16(b, 24, bits);
  } else {
    Put32(b, 18, std::uint32_t(width));
    Put32(b, 22, std::uint32_t(height));
    Put16(b, 26, 1);
    Put16(b, 28, bits);
    Put32(b, 30, compression);
  }
  b.insert(b.end(), between.begin(), between.end());
  b.insert(b.end(), pixels.begin(), pixels.end());
  Put32(b, 2, std::uint32_t(b.size()));
  return b;
}

class BmpTest : public ::testing::Test {
 protected:
  std::shared_ptr<runtime::AlignUpPool> pool = std::make_shared<runtime::AlignUpPool>(64);
  std::shared_ptr<runtime::DeviceCPU> device = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), pool, nullptr, pool);
  std::mt19937 rng{5};

  std::shared_ptr<TensorCPU> Decode(const Bytes& b, BMPChannelOrder order = BMPChannelOrder::RGB,
                                    std::string* error = nullptr) {
    testing::LogCapture quiet(1000);
    return utility::DecodeBMP(b.data(), b.size(), device, order, error);
  }
  std::string Refusal(const Bytes& b) {
    std::string error;
    testing::LogCapture log;
    auto image = utility::DecodeBMP(b.data(), b.size(), device, BMPChannelOrder::RGB, &error);
    EXPECT_EQ(image, nullptr);
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(log.Contains("BMP: " + error, utility::kLogError)) << error;
    return error;
  }
  static Bytes Pixels(const std::shared_ptr<TensorCPU>& t) {
    return Bytes(t->DataAs<U8>(), t->DataAs<U8>() + t->shape.Bytes());
  }
};

class BmpRoundTripTest
    : public BmpTest,
      public ::testing::WithParamInterface<std::tuple<unsigned, unsigned, unsigned, BMPChannelOrder>> {};

TEST_P(BmpRoundTripTest, WriteThenReadGivesTheImageBack) {
  unsigned c, h, w;
  BMPChannelOrder order;
  std::tie(c, h, w, order) = GetParam();
  auto image = device->CreateUInt8HWCTensor(h, w, c);
  for (std::size_t i = 0; i < image->shape.Bytes(); ++i) image->DataAs<U8>()[i] = U8(rng());
  testing::TempDir dir;
  const std::string path = dir.File("image.bmp");
  ASSERT_TRUE(utility::WriteBMP(path, image, order));
  const Bytes file = testing::ReadAll(path);
  const std::size_t stride = (w * c + 3) / 4 * 4;
  ASSERT_EQ(file.size(), 54 + (c == 1 ? 1024 : 0) + stride * h);
  auto back = utility::ReadBMP(path, device, order);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->shape.dims, image->shape.dims);
  EXPECT_EQ(Pixels(back), Pixels(image));
  // The file is bottom-up BGR: its first stored row is the image's last.
  const U8* last = image->DataAs<U8>() + std::size_t(h - 1) * w * c;
  const std::size_t first_pixel = 54 + (c == 1 ? 1024 : 0);
  const bool swap = c >= 3 && order == BMPChannelOrder::RGB;
  EXPECT_EQ(file[first_pixel], swap ? last[2] : last[0]);
}

INSTANTIATE_TEST_SUITE_P(Kinds, BmpRoundTripTest,
                         ::testing::Combine(::testing::Values(1u, 3u, 4u), ::testing::Values(1u, 4u),
                                            ::testing::Values(1u, 2u, 3u, 5u),
                                            ::testing::Values(BMPChannelOrder::RGB, BMPChannelOrder::BGR)),
                         TRN_INDEX_NAMES);

TEST_F(BmpTest, ReadsTopDownAndBottomUpRowsWithPadding) {
  // 3x2 24-bit: rows of 9 bytes padded to 12.
  const Bytes row_a = {1, 2, 3, 4, 5, 6, 7, 8, 9, 0xEE, 0xEE, 0xEE};
  const Bytes row_b = {10, 11, 12, 13, 14, 15, 16, 17, 18, 0xEE, 0xEE, 0xEE};
  Bytes stored = row_a;
  stored.insert(stored.end(), row_b.begin(), row_b.end());
  auto bottom_up = Decode(MakeFile(40, 3, 2, 24, 0, {}, stored), BMPChannelOrder::BGR);
  auto top_down = Decode(MakeFile(40, 3, -2, 24, 0, {}, stored), BMPChannelOrder::BGR);
  ASSERT_NE(bottom_up, nullptr);
  ASSERT_NE(top_down, nullptr);
  EXPECT_EQ(Pixels(top_down), Bytes({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18}));
  EXPECT_EQ(Pixels(bottom_up), Bytes({10, 11, 12, 13, 14, 15, 16, 17, 18, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  auto rgb = Decode(MakeFile(40, 3, -2, 24, 0, {}, stored));
  EXPECT_EQ(Pixels(rgb)[0], 3);
  EXPECT_EQ(Pixels(rgb)[2], 1);
}

TEST_F(BmpTest, PalettesAreReadAsGrey) {
  // Three entries (B, G, R, 0): grey 40, pure red, white.
  const Bytes palette = {40, 40, 40, 0, 0, 0, 255, 0, 255, 255, 255, 0};
  Bytes file = MakeFile(40, 3, 1, 8, 0, palette, {0, 1, 2, 0});
  Put32(file, 46, 3);  // colours used
  auto image = Decode(file);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->shape.dims, (std::vector<unsigned>{1, 3, 1}));
  EXPECT_EQ(Pixels(image), Bytes({40, (77 * 255) >> 8, 255}));
  // An index beyond the palette is refused.
  Bytes bad = file;
  bad[bad.size() - 2] = 3;
  EXPECT_NE(Refusal(bad).find("outside the 3-entry palette"), std::string::npos);
}

TEST_F(BmpTest, CoreHeaderAndBitFieldsAreRead) {
  // 12-byte header with 3-byte palette entries: a 256-entry grey ramp.
  Bytes palette;
  for (int i = 0; i < 256; ++i) palette.insert(palette.end(), {U8(i), U8(i), U8(i)});
  auto core = Decode(MakeFile(12, 2, 1, 8, 0, palette, {7, 200, 0, 0}));
  ASSERT_NE(core, nullptr);
  EXPECT_EQ(Pixels(core), Bytes({7, 200}));
  // 32-bit BI_BITFIELDS with the standard masks after a 40-byte header.
  const Bytes masks = {0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0xFF, 0, 0, 0};
  auto fields = Decode(MakeFile(40, 1, 1, 32, 3, masks, {1, 2, 3, 4}), BMPChannelOrder::BGR);
  ASSERT_NE(fields, nullptr);
  EXPECT_EQ(Pixels(fields), Bytes({1, 2, 3, 4}));
  const Bytes odd_masks = {0, 0xFF, 0, 0, 0, 0, 0xFF, 0, 0, 0, 0, 0xFF};
  EXPECT_NE(Refusal(MakeFile(40, 1, 1, 32, 3, odd_masks, {1, 2, 3, 4})).find("bit-field masks"), std::string::npos);
}

struct Broken {
  const char* what;
  std::function<void(Bytes&)> damage;
  const char* message;
};

class BmpRefusalTest : public BmpTest, public ::testing::WithParamInterface<int> {};

const Broken kBroken[] = {
    {"signature", [](Bytes& b) { b[0] = 'X'; }, "no \"BM\" signature"},
    {"header size", [](Bytes& b) { Put32(b, 14, 41); }, "unsupported header size 41"},
    {"depth", [](Bytes& b) { Put16(b, 28, 16); }, "unsupported bit depth 16"},
    {"rle", [](Bytes& b) { Put32(b, 30, 1); }, "compression 1"},
    {"width", [](Bytes& b) { Put32(b, 18, 0); }, "invalid width 0"},
    {"negative width", [](Bytes& b) { Put32(b, 18, 0xFFFFFFF0u); }, "invalid width -16"},
    {"height", [](Bytes& b) { Put32(b, 22, 0); }, "invalid height 0"},
    {"min height", [](Bytes& b) { Put32(b, 22, 0x80000000u); }, "invalid height"},
    {"huge", [](Bytes& b) { Put32(b, 18, 0x7FFFFFFF); Put32(b, 22, 0x7FFFFFFF); }, "do not fit"},
    {"truncated pixels", [](Bytes& b) { b.resize(b.size() - 1); }, "do not fit"},
    {"offset past end", [](Bytes& b) { Put32(b, 10, 1u << 31); }, "do not fit"},
    {"offset in header", [](Bytes& b) { Put32(b, 10, 20); }, "inside the headers"},
    {"truncated header", [](Bytes& b) { b.resize(30); }, "the 40-byte header"},
    {"tiny", [](Bytes& b) { b.resize(10); }, "truncated file"},
    {"empty", [](Bytes& b) { b.clear(); }, "truncated file"},
};

TEST_P(BmpRefusalTest, MalformedFilesAreRefusedClearly) {
  const Broken& k = kBroken[GetParam()];
  Bytes file = MakeFile(40, 3, 2, 24, 0, {}, Bytes(24, 9));
  ASSERT_NE(Decode(file), nullptr) << "the undamaged file reads";
  k.damage(file);
  const std::string error = Refusal(file);
  EXPECT_NE(error.find(k.message), std::string::npos) << k.what << ": " << error;
}

INSTANTIATE_TEST_SUITE_P(Damage, BmpRefusalTest, ::testing::Range(0, int(sizeof(kBroken) / sizeof(kBroken[0]))),
                         TRN_INDEX_NAMES);

TEST_F(BmpTest, EveryTruncationOfAValidFileIsRefused) {
  Bytes palette(1024, 0);
  for (int i = 0; i < 256; ++i) palette[i * 4] = palette[i * 4 + 1] = palette[i * 4 + 2] = U8(i);
  const Bytes file = MakeFile(40, 5, 3, 8, 0, palette, Bytes(24, 1));
  ASSERT_NE(Decode(file), nullptr);
  for (std::size_t n = 0; n < file.size(); ++n) {
    Bytes cut(file.begin(), file.begin() + n);
    EXPECT_EQ(Decode(cut), nullptr) << n << " bytes";
  }
}

TEST_F(BmpTest, WritesPlanarImagesAndRefusesWhatItCannotWrite) {
  auto planar = device->CreateRGBUInt8CHWTensor(2, 3);
  for (int i = 0; i < 18; ++i) planar->DataAs<U8>()[i] = U8(i * 10);
  Bytes file;
  ASSERT_TRUE(utility::EncodeBMP(planar, &file));
  auto back = Decode(file);
  ASSERT_NE(back, nullptr);
  // Pixel (0, 1) is R 10, G 70, B 130.
  EXPECT_EQ(Pixels(back)[3], 10);
  EXPECT_EQ(Pixels(back)[4], 70);
  EXPECT_EQ(Pixels(back)[5], 130);

  testing::LogCapture log;
  std::string error;
  auto two = device->CreateUInt8HWCTensor(2, 2, 2);
  EXPECT_FALSE(utility::EncodeBMP(two, &file, BMPChannelOrder::RGB, &error));
  EXPECT_NE(error.find("2 channels"), std::string::npos);
  auto floats = device->CreateF32CHWMainMemory(3, 2, 2);
  EXPECT_FALSE(utility::EncodeBMP(floats, &file, BMPChannelOrder::RGB, &error));
  EXPECT_FALSE(utility::WriteBMP("/nonexistent-dir/x.bmp", planar, BMPChannelOrder::RGB, &error));
  EXPECT_NE(error.find("cannot open"), std::string::npos);
  EXPECT_EQ(utility::ReadBMP("/nonexistent-dir/x.bmp", device, BMPChannelOrder::RGB, &error), nullptr);
  EXPECT_EQ(utility::ReadBMP("/tmp", device, BMPChannelOrder::RGB, &error), nullptr);
  EXPECT_TRUE(log.Contains("BMP: ", utility::kLogError));
}

}  // namespace
}  // namespace tarn
