#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

#include "kernel/cpu/conv_test_util.h"
#include "tarn/kernel/transform.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using kernel::functional::Transform_MainMemory_Permute_Fallback;
using kernel::functional::Transform_MainMemory_Reshape_Fallback;
using runtime::TensorShape;

TEST(TransformReshape, SharesStorageAndInfersOneExtent) {
  auto ctx = conv::MakeContext();
  auto t = conv::MakeTensor(ctx->cpu, {2, 3, 4}, TensorShape::CHW, conv::Random(24, 1));
  auto r = Transform_MainMemory_Reshape_Fallback(t, {4, -1}, ctx->cpu);
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(r->shape.dims, (std::vector<unsigned>{4, 6}));
  EXPECT_EQ(r->Data(), t->Data());
  EXPECT_EQ(r->shape.layout, TensorShape::CHW);
  t.reset();  // the view keeps the storage alive
  EXPECT_EQ(r->shape.ElementCount(), 24u);
}

TEST(TransformReshape, RefusesDimsThatChangeTheCount) {
  auto ctx = conv::MakeContext();
  auto t = conv::MakeTensor(ctx->cpu, {2, 3, 4}, TensorShape::CHW, conv::Random(24, 1));
  EXPECT_EQ(Transform_MainMemory_Reshape_Fallback(t, {5, 5}, ctx->cpu), nullptr);
  EXPECT_EQ(Transform_MainMemory_Reshape_Fallback(t, {-1, -1}, ctx->cpu), nullptr);
  EXPECT_EQ(Transform_MainMemory_Reshape_Fallback(t, {-2, -12}, ctx->cpu), nullptr);
  EXPECT_EQ(Transform_MainMemory_Reshape_Fallback(t, {5, -1}, ctx->cpu), nullptr);
  EXPECT_EQ(Transform_MainMemory_Reshape_Fallback(t, {0, -1}, ctx->cpu), nullptr);
  EXPECT_EQ(Transform_MainMemory_Reshape_Fallback(nullptr, {24}, ctx->cpu), nullptr);
  const int big = std::numeric_limits<int>::max();
  EXPECT_EQ(Transform_MainMemory_Reshape_Fallback(t, {big, big, big, big}, ctx->cpu), nullptr);
}

// Dims, axes: the result must equal a direct index computation.
class TransformPermute
    : public ::testing::TestWithParam<std::pair<std::vector<unsigned>, std::vector<unsigned>>> {};

TEST_P(TransformPermute, MovesEveryElementBitForBit) {
  const auto& dims = GetParam().first;
  const auto& axes = GetParam().second;
  auto ctx = conv::MakeContext();
  std::size_t count = 1;
  for (unsigned d : dims) count *= d;
  std::vector<float> data = conv::Random(count, 3);
  data[0] = std::numeric_limits<float>::quiet_NaN();
  auto in = conv::MakeTensor(ctx->cpu, dims, TensorShape::FLEXIABLE, data);
  auto out = Transform_MainMemory_Permute_Fallback(in, axes, ctx->cpu);
  ASSERT_NE(out, nullptr);
  std::vector<unsigned> want_dims;
  for (unsigned a : axes) want_dims.push_back(dims[a]);
  ASSERT_EQ(out->shape.dims, want_dims);
  const float* o = out->DataAs<float>();
  std::vector<unsigned> idx(dims.size(), 0);
  for (std::size_t i = 0; i < count; ++i) {
    // idx walks the output; the source element has index idx[j] on dim axes[j].
    std::vector<unsigned> src(dims.size());
    for (std::size_t j = 0; j < axes.size(); ++j) src[axes[j]] = idx[j];
    std::size_t s = 0;
    for (std::size_t d = 0; d < dims.size(); ++d) s = s * dims[d] + src[d];
    ASSERT_EQ(0, std::memcmp(o + i, data.data() + s, sizeof(float))) << i;
    for (std::size_t a = dims.size(); a-- > 0;) {
      if (++idx[a] < want_dims[a]) break;
      idx[a] = 0;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TransformPermute,
    ::testing::Values(std::make_pair(std::vector<unsigned>{3, 5}, std::vector<unsigned>{1, 0}),
                      std::make_pair(std::vector<unsigned>{2, 4, 3, 4}, std::vector<unsigned>{0, 2, 3, 1}),
                      std::make_pair(std::vector<unsigned>{2, 8, 3, 8}, std::vector<unsigned>{0, 2, 3, 1}),
                      std::make_pair(std::vector<unsigned>{4, 1, 3}, std::vector<unsigned>{2, 1, 0}),
                      std::make_pair(std::vector<unsigned>{7}, std::vector<unsigned>{0})),
    TRN_INDEX_NAMES);

TEST(TransformPermuteRefusals, AxesMustBeAPermutationOfTheDims) {
  auto ctx = conv::MakeContext();
  auto t = conv::MakeTensor(ctx->cpu, {2, 3, 4}, TensorShape::CHW, conv::Random(24, 1));
  EXPECT_EQ(Transform_MainMemory_Permute_Fallback(t, {0, 1}, ctx->cpu), nullptr);
  EXPECT_EQ(Transform_MainMemory_Permute_Fallback(t, {0, 1, 1}, ctx->cpu), nullptr);
  EXPECT_EQ(Transform_MainMemory_Permute_Fallback(t, {0, 1, 3}, ctx->cpu), nullptr);
  EXPECT_EQ(Transform_MainMemory_Permute_Fallback(nullptr, {0}, ctx->cpu), nullptr);
  EXPECT_EQ(Transform_MainMemory_Permute_Fallback(t, {0, 1, 2}, nullptr), nullptr);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
