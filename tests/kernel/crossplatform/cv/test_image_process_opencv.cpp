// The operations against OpenCV 4.6 where the definitions meet. The reference
// outputs are committed in tests/data/cv/opencv_reference.bin, made by
// tests/reference/make_cv_reference.py.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "tarn/kernel/image_process.h"
#include "test_util.h"

namespace tarn {
namespace {

using runtime::TensorCPU;
using runtime::TensorShape;
using U8 = std::uint8_t;

struct Array {
  int dtype = 0;  // 0 uint8, 1 float32
  std::vector<unsigned> dims;
  std::vector<U8> bytes;
};

std::map<std::string, Array> LoadReference() {
  std::map<std::string, Array> out;
  const auto data = testing::ReadAll(std::string(TRN_TEST_DATA_DIR) + "/cv/opencv_reference.bin");
  if (data.size() < 8 || std::memcmp(data.data(), "TRNCVREF", 8) != 0) return out;
  std::size_t at = 8;
  auto take = [&](std::size_t n) -> const U8* {
    if (at + n > data.size()) return nullptr;
    const U8* p = data.data() + at;
    at += n;
    return p;
  };
  while (at < data.size()) {
    const U8* len = take(1);
    const U8* name = len ? take(*len) : nullptr;
    const U8* head = name ? take(2) : nullptr;
    if (head == nullptr) return {};
    Array a;
    a.dtype = head[0];
    std::size_t count = 1;
    for (int i = 0; i < head[1]; ++i) {
      const U8* d = take(4);
      if (d == nullptr) return {};
      a.dims.push_back(d[0] | d[1] << 8 | d[2] << 16 | unsigned(d[3]) << 24);
      count *= a.dims.back();
    }
    const std::size_t n = count * (a.dtype == 1 ? 4 : 1);
    const U8* body = take(n);
    if (body == nullptr) return {};
    a.bytes.assign(body, body + n);
    out[std::string(reinterpret_cast<const char*>(name), *len)] = std::move(a);
  }
  return out;
}

class OpenCvTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ref_ = new std::map<std::string, Array>(LoadReference()); }
  static void TearDownTestSuite() {
    delete ref_;
    ref_ = nullptr;
  }
  void SetUp() override { ASSERT_FALSE(ref_->empty()) << "tests/data/cv/opencv_reference.bin is missing or damaged"; }

  const Array& Ref(const std::string& name) {
    auto it = ref_->find(name);
    if (it == ref_->end()) {
      ADD_FAILURE() << "no reference array " << name;
      static const Array empty;
      return empty;
    }
    return it->second;
  }
  // An 8-bit HWC tensor holding a reference array (2-D arrays get one channel).
  std::shared_ptr<TensorCPU> Tensor(const std::string& name) {
    const Array& a = Ref(name);
    const unsigned c = a.dims.size() == 3 ? a.dims[2] : 1;
    return device->CreateUInt8HWCTensor(a.dims[0], a.dims[1], c, const_cast<U8*>(a.bytes.data()));
  }
  std::shared_ptr<TensorCPU> Like(const std::string& name) {
    const Array& a = Ref(name);
    return device->CreateUInt8HWCTensor(a.dims[0], a.dims[1], a.dims.size() == 3 ? a.dims[2] : 1);
  }
  // Largest absolute difference between a tensor and a reference array.
  int MaxDiff(const std::shared_ptr<TensorCPU>& t, const std::string& name) {
    const Array& a = Ref(name);
    EXPECT_EQ(t->shape.Bytes(), a.bytes.size()) << name;
    if (t->shape.Bytes() != a.bytes.size()) return 256;
    int worst = 0;
    for (std::size_t i = 0; i < a.bytes.size(); ++i) worst = std::max(worst, std::abs(t->DataAs<U8>()[i] - a.bytes[i]));
    return worst;
  }

  static std::map<std::string, Array>* ref_;
  std::shared_ptr<runtime::AlignUpPool> pool = std::make_shared<runtime::AlignUpPool>(64);
  std::shared_ptr<runtime::DeviceCPU> device = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), pool, nullptr, pool);
  std::shared_ptr<runtime::Context> context = runtime::CreateContext(device, nullptr, nullptr, nullptr, nullptr, nullptr);
  kernel::ImageProcessFallback proc;
};

std::map<std::string, Array>* OpenCvTest::ref_ = nullptr;

struct SameCase {
  const char* input;
  const char* output;
  int code;
};

class OpenCvExactTest : public OpenCvTest, public ::testing::WithParamInterface<SameCase> {};

// Channel swizzles, rotations and flips are pure permutations in both.
TEST_P(OpenCvExactTest, Identical) {
  const SameCase c = GetParam();
  auto src = Tensor(c.input), dst = Like(c.output);
  ASSERT_TRUE(proc.ConvertPixel(src, dst, c.code, context));
  EXPECT_EQ(MaxDiff(dst, c.output), 0);
}

INSTANTIATE_TEST_SUITE_P(Permutations, OpenCvExactTest,
                         ::testing::Values(SameCase{"rgba", "rgba2rgb", kernel::IMG_RGBA2RGB},
                                           SameCase{"rgba", "rgba2bgr", kernel::IMG_RGBA2BGR},
                                           SameCase{"rgb", "rgb2bgr", kernel::IMG_RGB2BGR},
                                           SameCase{"rgb", "rot90", kernel::IMG_ROTATE_90},
                                           SameCase{"rgb", "rot180", kernel::IMG_ROTATE_180},
                                           SameCase{"rgb", "rot270", kernel::IMG_ROTATE_270},
                                           SameCase{"rgb", "flip_h", kernel::IMG_FLIP_HORIZONTAL},
                                           SameCase{"rgb", "flip_v", kernel::IMG_FLIP_VERTICAL}),
                         TRN_INDEX_NAMES);

// OpenCV rounds its 14-bit weights (4899, 9617, 1868); these are 8-bit
// weights without a rounding term, so results sit at most 1 lower, never higher.
TEST_F(OpenCvTest, GrayDiffersByTruncationAtMostOne) {
  const struct {
    const char* in;
    const char* out;
    int code;
  } cases[] = {{"rgb", "gray_rgb", kernel::IMG_RGB2GRAY},
               {"rgb", "gray_bgr", kernel::IMG_BGR2GRAY},
               {"rgba", "gray_rgba", kernel::IMG_RGBA2GRAY}};
  for (const auto& c : cases) {
    auto src = Tensor(c.in), dst = Like(c.out);
    proc.ConvertPixel(src, dst, c.code, context);
    EXPECT_LE(MaxDiff(dst, c.out), 1) << c.out;
    const Array& a = Ref(c.out);
    int higher = 0;
    for (std::size_t i = 0; i < a.bytes.size(); ++i) higher += dst->DataAs<U8>()[i] > a.bytes[i];
    EXPECT_EQ(higher, 0) << c.out;
  }
}

// OpenCV's 4:2:0 decoders use the limited-range BT.601 matrix (Y from 16);
// ours is the full-range one, which OpenCV has as YCrCb -> RGB. With the
// chroma replicated 2x2 the two agree within 2: the weights are 6-bit
// (90/64 = 1.406 against 1.403, 113/64 = 1.766 against 1.773) and ours
// truncate. Channels OpenCV clamps are skipped: ours wrap there by design.
TEST_F(OpenCvTest, YUV420AgreesWithFullRangeYCrCbWithinTwo) {
  const Array& want = Ref("yuv_ref");
  const unsigned h = want.dims[0], w = want.dims[1];
  for (const auto& [name, code] : std::vector<std::pair<std::string, int>>{
           {"nv12", kernel::IMG_YUV2RGB_NV12}, {"nv21", kernel::IMG_YUV2RGB_NV21}, {"iyuv", kernel::IMG_YUV2RGB_IYUV}}) {
    auto frame = Tensor(name);
    auto dst = device->CreateRGBUInt8CHWTensor(h, w);
    proc.ConvertPixel(frame, dst, code, context);
    int worst = 0, compared = 0;
    for (unsigned c = 0; c < 3; ++c) {
      for (unsigned i = 0; i < h * w; ++i) {
        const int r = want.bytes[i * 3 + c];
        if (r < 3 || r > 252) continue;
        worst = std::max(worst, std::abs(dst->DataAs<U8>()[c * h * w + i] - r));
        ++compared;
      }
    }
    EXPECT_LE(worst, 2) << name;
    EXPECT_GT(compared, int(h * w * 2)) << name;
  }
}

TEST_F(OpenCvTest, CropIsTheSameRectangle) {
  auto src = Tensor("rgb"), dst = Like("crop");
  ASSERT_TRUE(proc.ConvertPixel(src, dst, 2, 3, 9, 7, kernel::IMG_CROP_C3, context));
  EXPECT_EQ(MaxDiff(dst, "crop"), 0);
}

// Halving: floor((i + 0.5) * 2 - 0.5) = 2i, OpenCV's floor(2i): identical.
// Doubling: ours takes floor((i + 0.5) / 2 - 0.5), OpenCV floor(i / 2), so
// ours is OpenCV's image moved one output pixel right and down (row and
// column 0 repeated).
TEST_F(OpenCvTest, NearestResize) {
  auto src = Tensor("gray16x20");
  auto down = Like("nearest_down");
  ASSERT_TRUE(proc.ConvertPixel(src, down, kernel::IMG_RESIZE_NEAREST_C1, context));
  EXPECT_EQ(MaxDiff(down, "nearest_down"), 0);
  auto up = Like("nearest_up");
  ASSERT_TRUE(proc.ConvertPixel(src, up, kernel::IMG_RESIZE_NEAREST_C1, context));
  const Array& cv = Ref("nearest_up");
  const unsigned h = cv.dims[0], w = cv.dims[1];
  for (unsigned i = 0; i < h; ++i) {
    for (unsigned j = 0; j < w; ++j) {
      ASSERT_EQ(up->DataAs<U8>()[i * w + j], cv.bytes[(i ? i - 1 : 0) * w + (j ? j - 1 : 0)]) << i << "," << j;
    }
  }
}

// OpenCV's 8-bit INTER_LINEAR is the same 2048ths scheme, with two known
// departures:
//  - Upscaling, its first and last output rows keep the fractional row
//    weights on the clamped source row (here (2048, 0)), so two >> 16 floors
//    instead of one: those rows may be 1 lower than ours, never higher.
//  - Halving, it averages 2x2 blocks, which these weights (1024 each) equal,
//    except in its 2-channel path, which differs from its own 1-, 3- and
//    4-channel results by up to 1.
class OpenCvBilinearTest : public OpenCvTest, public ::testing::WithParamInterface<int> {};

TEST_P(OpenCvBilinearTest, UpTwoAndDownHalf) {
  const int c = GetParam();
  auto rgba = Tensor("rgba"), even = Tensor("even4");
  // The first c channels of each source.
  auto slice = [&](const std::shared_ptr<TensorCPU>& t) {
    const unsigned h = t->shape.dims[0], w = t->shape.dims[1];
    auto s = device->CreateUInt8HWCTensor(h, w, c);
    for (unsigned i = 0; i < h * w; ++i) {
      for (int k = 0; k < c; ++k) s->DataAs<U8>()[i * c + k] = t->DataAs<U8>()[i * 4 + k];
    }
    return s;
  };
  const std::string up_name = "bilinear_up_c" + std::to_string(c), down_name = "bilinear_down_c" + std::to_string(c);
  auto up = Like(up_name), down = Like(down_name);
  ASSERT_TRUE(proc.ConvertPixel(slice(rgba), up, kernel::IMG_RESIZE_BILINEAR_C1 + c - 1, context));
  ASSERT_TRUE(proc.ConvertPixel(slice(even), down, kernel::IMG_RESIZE_BILINEAR_C1 + c - 1, context));
  const Array& cv = Ref(up_name);
  const std::size_t row = std::size_t(cv.dims[1]) * c, rows = cv.dims[0];
  for (std::size_t i = 0; i < cv.bytes.size(); ++i) {
    const int d = up->DataAs<U8>()[i] - cv.bytes[i];
    const bool edge_row = i / row == 0 || i / row == rows - 1;
    ASSERT_TRUE(d == 0 || (edge_row && d == 1)) << "element " << i << " differs by " << d;
  }
  EXPECT_LE(MaxDiff(down, down_name), c == 2 ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Channels, OpenCvBilinearTest, ::testing::Values(1, 2, 3, 4));

// OpenCV's warpAffine quantises the source point to 1/32 pixel and its
// weights to 1/2^15; ours to 1/1024 pixel. On a smooth image (steps of at
// most 10 levels) that is within 1 where all four neighbours are inside; at
// the edges the jump to the border value (about 100 levels) turns the coarser
// points into differences of up to 2.
TEST_F(OpenCvTest, BorderWarpAgreesWithWarpAffine) {
  auto src = Tensor("warp_src"), dst = Like("warp_border");
  const Array& m = Ref("warp_m");
  float matrix[6];
  std::memcpy(matrix, m.bytes.data(), sizeof(matrix));
  kernel::functional::F_Affine_INV_BILINEAR_Float_Border_Fallback(src, dst, matrix, 37.0f);
  const Array& want = Ref("warp_border");
  const Array& inner = Ref("warp_inner");
  int worst_inner = 0, worst_edge = 0;
  for (std::size_t i = 0; i < want.bytes.size(); ++i) {
    const int d = std::abs(dst->DataAs<U8>()[i] - want.bytes[i]);
    int& worst = inner.bytes[i / 3] ? worst_inner : worst_edge;
    worst = std::max(worst, d);
  }
  EXPECT_LE(worst_inner, 1);
  EXPECT_LE(worst_edge, 2);
}

}  // namespace
}  // namespace tarn
