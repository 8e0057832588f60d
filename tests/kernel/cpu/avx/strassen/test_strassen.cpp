// The blocked matrix product and its Strassen recursion: results against a
// double reference (quadrants addressed inside larger buffers included), and
// the shape of the recursion seen through the number of direct products.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/conv_test_util.h"
#include "kernel/cpu/core_test_util.h"
#include "tarn/kernel/native_gemm.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

namespace native = kernel::native;

// Blocked operands: A rows x k tiles (64 floats), B k x cols vectors (8
// floats), C rows x cols vectors, each inside a buffer `pad` elements wider.
struct Product {
  unsigned rows, k, cols, pad;
  std::vector<float> a, b, c;
  Product(unsigned r, unsigned kk, unsigned cc, unsigned p, unsigned seed)
      : rows(r), k(kk), cols(cc), pad(p), a(conv::Random(std::size_t(r) * (kk + p) * 64, seed)),
        b(conv::Random(std::size_t(kk) * (cc + p) * 8, seed + 1)),
        c(std::size_t(r) * (cc + p) * 8, std::numeric_limits<float>::quiet_NaN()) {}

  // C = A B in double; the scale of each element for the shared tolerance.
  conv::Ref Reference() const {
    conv::Ref r{std::vector<double>(std::size_t(rows) * cols * 8), std::vector<double>(std::size_t(rows) * cols * 8)};
    for (unsigned i = 0; i < rows; ++i)
      for (unsigned j = 0; j < cols; ++j)
        for (unsigned lane = 0; lane < 8; ++lane) {
          double v = 0, s = 0;
          for (unsigned kk = 0; kk < k; ++kk)
            for (unsigned in = 0; in < 8; ++in) {
              const double t = double(a[((std::size_t(i) * (k + pad) + kk) * 8 + in) * 8 + lane]) *
                               b[(std::size_t(kk) * (cols + pad) + j) * 8 + in];
              v += t;
              s += std::fabs(t);
            }
          r.value[(std::size_t(i) * cols + j) * 8 + lane] = v;
          // Strassen's sums of operands widen the error: a few times the
          // plain product's per level.
          r.scale[(std::size_t(i) * cols + j) * 8 + lane] = 16 * s;
        }
    return r;
  }
  std::vector<float> Result() const {
    std::vector<float> out;
    for (unsigned i = 0; i < rows; ++i) {
      const float* row = c.data() + std::size_t(i) * (cols + pad) * 8;
      out.insert(out.end(), row, row + std::size_t(cols) * 8);
    }
    return out;
  }
  unsigned Strassen(const std::shared_ptr<runtime::Context>& ctx) {
    return native::Strassen_M1(a.data(), rows, k, rows, k + pad, b.data(), k, cols, k, cols + pad, c.data(), rows,
                               cols, rows, cols + pad, 0, ctx);
  }
  void Gemm() {
    native::GEMM(a.data(), rows, k, rows, k + pad, b.data(), k, cols, k, cols + pad, c.data(), rows, cols, rows,
                 cols + pad);
  }
};

struct Sizes {
  unsigned rows, k, cols, gemm_calls;
};

class StrassenRecursion : public ::testing::TestWithParam<Sizes> {};

TEST_P(StrassenRecursion, MakesTheExpectedDirectProductsAndTheRightResult) {
  const Sizes s = GetParam();
  auto ctx = conv::MakeContext();
  for (unsigned pad : {0u, 3u}) {
    Product p(s.rows, s.k, s.cols, pad, s.rows + s.k + s.cols + pad);
    EXPECT_EQ(p.Strassen(ctx), s.gemm_calls);
    EXPECT_TRUE(conv::Near(p.Result(), p.Reference())) << "pad " << pad;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, StrassenRecursion,
    ::testing::Values(Sizes{3, 2, 5, 1},      // odd at the top: one direct product
                      Sizes{2, 3, 4, 1},      // odd inner size
                      Sizes{4, 2, 7, 1},      // odd columns of B
                      Sizes{2, 2, 6, 7},      // one split, then 1 x 1 x 3
                      Sizes{6, 2, 10, 7},     // one split, then odd 3 x 1 x 5
                      Sizes{4, 4, 8, 49},     // divisible by 4: two levels
                      Sizes{8, 8, 392, 49},   // ResNet 64 -> 64 channels at 14 x 28 pixels
                      Sizes{16, 4, 12, 49}),  // no third level even where one would fit
    TRN_INDEX_NAMES);

TEST(BlockedGemm, MatchesTheReferenceForEveryTileShape) {
  // Rows 1..7 make every register-group split (3, 2, 1 and 2 + 2); columns
  // 1..17 every tile width and tail.
  for (unsigned rows = 1; rows <= 7; ++rows) {
    for (unsigned cols = 1; cols <= 17; ++cols) {
      Product p(rows, 1 + (rows + cols) % 4, cols, cols % 2 ? 2 : 0, 10 * rows + cols);
      p.Gemm();
      EXPECT_TRUE(conv::Near(p.Result(), p.Reference())) << rows << " x " << cols;
    }
  }
}

TEST(BlockedGemmDeathTest, ChecksTheSizes) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::vector<float> buf(4096, 0.0f);
  float* f = buf.data();
  EXPECT_DEATH(native::GEMM(f, 2, 3, 2, 3, f, 4, 5, 4, 5, f, 2, 5, 2, 5), "aCols == bRows");
  EXPECT_DEATH(native::GEMM(f, 2, 3, 2, 3, f, 3, 5, 3, 5, f, 3, 5, 3, 5), "aRows == cRows");
  EXPECT_DEATH(native::GEMM(f, 2, 3, 2, 2, f, 3, 5, 3, 5, f, 2, 5, 2, 5), "aCols <= aBufCols");
}

}  // namespace
}  // namespace testing
}  // namespace tarn
