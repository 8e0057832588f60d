// Weight packing checked bit for bit against a gather over the result's index
// space (the library scatters from the source, so the two are independent).
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "kernel/cpu/conv_test_util.h"
#include "tarn/kernel/packing.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::TensorCPUPtr;
using kernel::DeviceCPUPtr;
using runtime::TensorShape;

// One axis of a packed order: a source dim (0..4 = G, N, C, H, W), whether
// the axis holds the whole dim, its block index or its lane, and the block.
struct Axis {
  int dim;
  enum Role { kWhole, kBlock, kLane } role;
  unsigned block;
};

struct Order {
  const char* name;
  TensorCPUPtr (*pack)(const TensorCPUPtr&, const DeviceCPUPtr&);
  std::vector<Axis> axes;
  bool round_up;  // block counts rounded up (zero lanes) or down (dropped)
};

constexpr int G = 0, N = 1, C = 2, H = 3, W = 4;
Axis Whole(int d) { return {d, Axis::kWhole, 1}; }
Axis Block(int d, unsigned b) { return {d, Axis::kBlock, b}; }
Axis Lane(int d, unsigned b) { return {d, Axis::kLane, b}; }

std::vector<unsigned> ExpectedDims(const Order& o, const std::vector<unsigned>& src) {
  std::vector<unsigned> dims;
  for (const Axis& a : o.axes) {
    if (a.role == Axis::kWhole) dims.push_back(src[a.dim]);
    if (a.role == Axis::kLane) dims.push_back(a.block);
    if (a.role == Axis::kBlock) dims.push_back(o.round_up ? (src[a.dim] + a.block - 1) / a.block : src[a.dim] / a.block);
  }
  return dims;
}

// Walks the result in storage order and fetches each element from the source.
std::vector<float> Gather(const Order& o, const std::vector<unsigned>& src_dims, const std::vector<float>& src) {
  const std::vector<unsigned> dims = ExpectedDims(o, src_dims);
  std::size_t count = 1;
  for (unsigned d : dims) count *= d;
  std::vector<float> out(count, 0.0f);
  std::vector<unsigned> idx(dims.size(), 0);
  for (std::size_t i = 0; i < count; ++i) {
    unsigned s[5] = {0, 0, 0, 0, 0};
    for (std::size_t a = 0; a < dims.size(); ++a) {
      const Axis& ax = o.axes[a];
      s[ax.dim] += ax.role == Axis::kBlock ? idx[a] * ax.block : idx[a];
    }
    bool inside = true;
    for (int d = 0; d < 5; ++d) inside = inside && s[d] < src_dims[d];
    if (inside) {
      out[i] = src[(((std::size_t(s[0]) * src_dims[1] + s[1]) * src_dims[2] + s[2]) * src_dims[3] + s[3]) * src_dims[4] +
                   s[4]];
    }
    for (std::size_t a = dims.size(); a-- > 0;) {
      if (++idx[a] < dims[a]) break;
      idx[a] = 0;
    }
  }
  return out;
}

template <unsigned NB, unsigned CB, bool kCN>
std::vector<Axis> Tiled() {
  std::vector<Axis> axes = {Whole(G), Block(N, NB), Block(C, CB), Whole(H), Whole(W)};
  if (kCN) {
    axes.push_back(Lane(C, CB));
    axes.push_back(Lane(N, NB));
  } else {
    axes.push_back(Lane(N, NB));
    axes.push_back(Lane(C, CB));
  }
  return axes;
}

const std::vector<Order>& Orders() {
  static const std::vector<Order> orders = {
      {"GN4CHW4", kernel::Function_Tensor_GNCHW_To_GN4CHW4_Fallback,
       {Whole(G), Block(N, 4), Whole(C), Whole(H), Whole(W), Lane(N, 4)}, false},
      {"GN8CHW8", kernel::Function_Tensor_GNCHW_To_GN8CHW8_Fallback,
       {Whole(G), Block(N, 8), Whole(C), Whole(H), Whole(W), Lane(N, 8)}, false},
      {"GNC8HW8", kernel::Function_Tensor_GNCHW_To_GNC8HW8_Fallback,
       {Whole(G), Whole(N), Block(C, 8), Whole(H), Whole(W), Lane(C, 8)}, false},
      {"GN4C4HW4c4n", kernel::Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback, Tiled<4, 4, true>(), true},
      {"GN4C4HW4n4c", kernel::Function_Tensor_GNCHW_To_GN4C4HW4n4c_Fallback, Tiled<4, 4, false>(), true},
      {"GN4C8HW4n8c", kernel::Function_Tensor_GNCHW_To_GN4C8HW4n8c_Fallback, Tiled<4, 8, false>(), true},
      {"GN8C4HW8n4c", kernel::Function_Tensor_GNCHW_To_GN8C4HW8n4c_Fallback, Tiled<8, 4, false>(), true},
      {"GN4C8HW8c4n", kernel::Function_Tensor_GNCHW_To_GN4C8HW8c4n_Fallback, Tiled<4, 8, true>(), true},
      {"GN8C8HW8c8n", kernel::Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback, Tiled<8, 8, true>(), true},
      {"GN8C8HW8n8c", kernel::Function_Tensor_GNCHW_To_GN8C8HW8n8c_Fallback, Tiled<8, 8, false>(), true},
      {"GN2C2HW2c2n", kernel::Function_Tensor_GNCHW_To_GN2C2HW2c2n_Fallback, Tiled<2, 2, true>(), true},
      {"GN16C16HW16c16n", kernel::Function_Tensor_GNCHW_To_GN16C16HW16c16n_Fallback, Tiled<16, 16, true>(), true},
      {"GHWN4C44c4n", kernel::Function_Tensor_GNCHW_To_GHWN4C44c4n_Fallback,
       {Whole(G), Whole(H), Whole(W), Block(N, 4), Block(C, 4), Lane(C, 4), Lane(N, 4)}, true},
      {"GC4N4HW4c4n", kernel::Function_Tensor_GNCHW_To_GC4N4HW4c4n_Fallback,
       {Whole(G), Block(C, 4), Block(N, 4), Whole(H), Whole(W), Lane(C, 4), Lane(N, 4)}, true},
      {"GCNHW", kernel::Function_Tensor_GNCHW_To_GCNHW_Fallback,
       {Whole(G), Whole(C), Whole(N), Whole(H), Whole(W)}, true},
      {"G4NCHW4", kernel::Function_Tensor_GNCHW_To_G4NCHW4_Fallback,
       {Block(G, 4), Whole(N), Whole(C), Whole(H), Whole(W), Lane(G, 4)}, false},
      {"G8NCHW8", kernel::Function_Tensor_GNCHW_To_G8NCHW8_Fallback,
       {Block(G, 8), Whole(N), Whole(C), Whole(H), Whole(W), Lane(G, 8)}, false},
  };
  return orders;
}

// G, N, C, H, W: whole blocks, tails, single elements, many groups.
const std::vector<std::vector<unsigned>> kShapes = {
    {1, 6, 5, 3, 3}, {2, 8, 8, 1, 1}, {1, 17, 13, 2, 1}, {3, 4, 9, 1, 2},
    {1, 1, 1, 1, 1}, {9, 16, 3, 1, 1}, {8, 2, 17, 3, 2}, {1, 33, 31, 1, 1},
};

TensorCPUPtr Weight(const DeviceCPUPtr& device, const std::vector<unsigned>& dims, unsigned seed) {
  std::size_t count = 1;
  for (unsigned d : dims) count *= d;
  return conv::MakeTensor(device, dims, TensorShape::GNCHW, conv::Random(count, seed));
}

class PackingOrder : public ::testing::TestWithParam<std::tuple<std::size_t, std::size_t>> {};

TEST_P(PackingOrder, MatchesGatherBitForBit) {
  const Order& order = Orders()[std::get<0>(GetParam())];
  const std::vector<unsigned>& dims = kShapes[std::get<1>(GetParam())];
  SCOPED_TRACE(order.name);
  auto ctx = conv::MakeContext();
  auto weight = Weight(ctx->cpu, dims, 7);
  const std::vector<unsigned> want_dims = ExpectedDims(order, dims);
  std::size_t want_count = 1;
  for (unsigned d : want_dims) want_count *= d;
  auto packed = order.pack(weight, ctx->cpu);
  if (want_count == 0) {
    EXPECT_EQ(packed, nullptr);  // nothing left after rounding down
    return;
  }
  ASSERT_NE(packed, nullptr);
  EXPECT_EQ(packed->shape.dims, want_dims);
  EXPECT_EQ(packed->shape.data_type, TensorShape::FLOAT32);
  const std::vector<float> want = Gather(order, dims, conv::Values(weight));
  ASSERT_EQ(packed->shape.ElementCount(), want.size());
  EXPECT_EQ(0, std::memcmp(packed->Data(), want.data(), want.size() * sizeof(float)));
}

INSTANTIATE_TEST_SUITE_P(AllOrders, PackingOrder,
                         ::testing::Combine(::testing::Range<std::size_t>(0, 17),
                                            ::testing::Range<std::size_t>(0, 8)),
                         [](const auto& info) {
                           return std::string(Orders()[std::get<0>(info.param)].name) + "_shape" +
                                  std::to_string(std::get<1>(info.param));
                         });

TEST(Packing, EveryOrderRefusesTensorsThatAreNotFloatGNCHW) {
  auto ctx = conv::MakeContext();
  const std::vector<float> data = conv::Random(24, 1);
  auto chw = conv::MakeTensor(ctx->cpu, {1, 2, 3, 4, 1}, TensorShape::CHW, data);
  auto rank4 = conv::MakeTensor(ctx->cpu, {2, 3, 4, 1}, TensorShape::GNCHW, data);
  auto ints = ctx->cpu->CreateTensor(runtime::MakeShape({1, 2, 3, 4, 1}, TensorShape::INT32, TensorShape::GNCHW));
  for (const Order& order : Orders()) {
    SCOPED_TRACE(order.name);
    EXPECT_EQ(order.pack(chw, ctx->cpu), nullptr);
    EXPECT_EQ(order.pack(rank4, ctx->cpu), nullptr);
    EXPECT_EQ(order.pack(ints, ctx->cpu), nullptr);
    EXPECT_EQ(order.pack(nullptr, ctx->cpu), nullptr);
  }
}

TEST(Packing, ConcatValueThenGN4CHW4KeepsEveryOutputChannel) {
  auto ctx = conv::MakeContext();
  auto weight = Weight(ctx->cpu, {2, 6, 3, 1, 2}, 5);
  auto padded = kernel::Function_Tensor_GNCHW_Concat_Value(weight, 2, 0.0f, ctx->cpu);
  ASSERT_NE(padded, nullptr);
  EXPECT_EQ(padded->shape.dims, (std::vector<unsigned>{2, 8, 3, 1, 2}));
  EXPECT_EQ(padded->shape.layout, TensorShape::GNCHW);
  const float* w = weight->DataAs<float>();
  const float* p = padded->DataAs<float>();
  for (unsigned g = 0; g < 2; ++g) {
    for (unsigned n = 0; n < 8; ++n) {
      for (unsigned i = 0; i < 6; ++i) {
        const float want = n < 6 ? w[(g * 6 + n) * 6 + i] : 0.0f;
        EXPECT_EQ(p[(g * 8 + n) * 6 + i], want) << g << " " << n << " " << i;
      }
    }
  }
  auto packed = kernel::Function_Tensor_GNCHW_To_GN4CHW4_Fallback(padded, ctx->cpu);
  ASSERT_NE(packed, nullptr);
  EXPECT_EQ(packed->shape.dims[1], 2u);
  auto filled = kernel::Function_Tensor_GNCHW_Concat_Value(weight, 1, 2.5f, ctx->cpu);
  EXPECT_EQ(filled->DataAs<float>()[6 * 6], 2.5f);
}

// A matrix [N, C] is the weight of a one-group 1x1 convolution: its tiles
// follow the GNCHW gather with G, H and W of one.
TEST(Packing, NCToN8C88c8nHoldsTileRowsOfEightOutputs) {
  auto ctx = conv::MakeContext();
  const unsigned n = 11, c = 19;
  const std::vector<float> data = conv::Random(n * c, 9);
  auto packed = kernel::Function_Tensor_NC_To_N8C88c8n_Fallback(conv::MakeTensor(ctx->cpu, {n, c}, TensorShape::CHW, data),
                                                                ctx->cpu);
  ASSERT_NE(packed, nullptr);
  EXPECT_EQ(packed->shape.dims, (std::vector<unsigned>{2, 3, 8, 8}));
  const Order nc = {"N8C88c8n", nullptr, {Block(N, 8), Block(C, 8), Lane(C, 8), Lane(N, 8)}, true};
  EXPECT_EQ(conv::Values(packed), Gather(nc, {1, n, c, 1, 1}, data));
  auto rank3 = conv::MakeTensor(ctx->cpu, {1, n, c}, TensorShape::CHW, data);
  EXPECT_EQ(kernel::Function_Tensor_NC_To_N8C88c8n_Fallback(rank3, ctx->cpu), nullptr);
}

class PackingArrays : public ::testing::TestWithParam<std::size_t> {};

TEST_P(PackingArrays, FloatAndHalfArraysMatchTheTensorForms) {
  const std::vector<unsigned>& d = kShapes[GetParam()];
  auto ctx = conv::MakeContext();
  auto weight = Weight(ctx->cpu, d, 11);
  const float* w = weight->DataAs<float>();
  const auto same = [](const TensorCPUPtr& a, const TensorCPUPtr& b) {
    if (!a || !b) return a == b;
    return a->shape.dims == b->shape.dims &&
           std::memcmp(a->Data(), b->Data(), a->shape.ElementCount() * sizeof(float)) == 0;
  };
  EXPECT_TRUE(same(kernel::Function_FloatArray_GNCHW_To_GN4C4HW4c4n_Fallback(w, d[0], d[1], d[2], d[3], d[4], ctx->cpu),
                   kernel::Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback(weight, ctx->cpu)));
  EXPECT_TRUE(same(kernel::Function_FloatArray_GNCHW_To_GC4N4HW4c4n_Fallback(w, d[0], d[1], d[2], d[3], d[4], ctx->cpu),
                   kernel::Function_Tensor_GNCHW_To_GC4N4HW4c4n_Fallback(weight, ctx->cpu)));
  EXPECT_TRUE(same(kernel::Function_FloatArray_GNCHW_To_GHWN4C44c4n_Fallback(w, d[0], d[1], d[2], d[3], d[4], ctx->cpu),
                   kernel::Function_Tensor_GNCHW_To_GHWN4C44c4n_Fallback(weight, ctx->cpu)));
  EXPECT_TRUE(same(kernel::Function_FloatArray_GNCHW_To_G4NCHW4_Fallback(w, d[0], d[1], d[2], d[3], d[4], ctx->cpu),
                   kernel::Function_Tensor_GNCHW_To_G4NCHW4_Fallback(weight, ctx->cpu)));

  // Half inputs: the same result as packing their exact float values.
  const std::vector<half_float::half> halves = kernel::FloatArray_To_HalfArray_Fallback(w, weight->shape.ElementCount());
  const std::vector<float> widened = kernel::HalfArray_To_FloatArray_Fallback(halves.data(), halves.size());
  auto as_float = conv::MakeTensor(ctx->cpu, d, TensorShape::GNCHW, widened);
  EXPECT_TRUE(same(kernel::Function_HalfArray_GNCHW_To_GN4C4HW4c4n_Fallback(halves.data(), d[0], d[1], d[2], d[3], d[4],
                                                                             ctx->cpu),
                   kernel::Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback(as_float, ctx->cpu)));
  EXPECT_TRUE(same(kernel::Function_HalfArray_GNCHW_To_G4NCHW4_Fallback(halves.data(), d[0], d[1], d[2], d[3], d[4],
                                                                         ctx->cpu),
                   kernel::Function_Tensor_GNCHW_To_G4NCHW4_Fallback(as_float, ctx->cpu)));
}

INSTANTIATE_TEST_SUITE_P(Shapes, PackingArrays, ::testing::Range<std::size_t>(0, 8), TRN_INDEX_NAMES);

TEST(Packing, ArrayFormsRefuseEmptyOrMissingData) {
  auto ctx = conv::MakeContext();
  const float one = 1.0f;
  EXPECT_EQ(kernel::Function_FloatArray_GNCHW_To_GN4C4HW4c4n_Fallback(&one, 1, 0, 1, 1, 1, ctx->cpu), nullptr);
  EXPECT_EQ(kernel::Function_FloatArray_GNCHW_To_GN4C4HW4c4n_Fallback(nullptr, 1, 1, 1, 1, 1, ctx->cpu), nullptr);
  const unsigned big = std::numeric_limits<unsigned>::max();
  EXPECT_EQ(kernel::Function_FloatArray_GNCHW_To_GC4N4HW4c4n_Fallback(&one, big, big, big, big, 1, ctx->cpu), nullptr);
}

TEST(PackingConverters, ByteArraysRoundTripBitForBit) {
  const std::vector<float> values = {1.0f, -0.0f, std::numeric_limits<float>::quiet_NaN(), 3.5e-41f, -7.25f};
  const std::string bytes = kernel::FloatArrayToByteArrayFallback(values.data(), values.size());
  ASSERT_EQ(bytes.size(), values.size() * 4);
  std::vector<float> back;
  ASSERT_TRUE(kernel::ByteArray_To_FloatArray_Fallback(bytes, back));
  ASSERT_EQ(back.size(), values.size());
  EXPECT_EQ(0, std::memcmp(back.data(), values.data(), bytes.size()));
  EXPECT_FALSE(kernel::ByteArray_To_FloatArray_Fallback(bytes + "x", back));
  EXPECT_TRUE(back.empty());
}

TEST(PackingConverters, HalfConversionsTruncateAndWidenExactly) {
  // 1 + 2^-10 + 2^-12 lies between two halves: truncation keeps 1 + 2^-10.
  const float values[] = {1.0f + 1.0f / 1024 + 1.0f / 4096, -2.0f, 65504.0f};
  const auto halves = kernel::FloatArray_To_HalfArray_Fallback(values, 3);
  ASSERT_EQ(halves.size(), 3u);
  EXPECT_EQ(halves[0].bits(), 0x3C01);
  EXPECT_EQ(halves[1].bits(), 0xC000);
  EXPECT_EQ(halves[2].bits(), 0x7BFF);
  const auto floats = kernel::HalfArray_To_FloatArray_Fallback(halves.data(), halves.size());
  EXPECT_EQ(floats[0], 1.0f + 1.0f / 1024);
  EXPECT_EQ(floats[1], -2.0f);
  EXPECT_EQ(floats[2], 65504.0f);

  const std::string bytes("\x01\x3C\x00\xC0", 4);  // little-endian halves
  std::vector<half_float::half> parsed;
  ASSERT_TRUE(kernel::ByteArray_To_HalfArray_Fallback(bytes, parsed));
  ASSERT_EQ(parsed.size(), 2u);
  EXPECT_EQ(parsed[0].bits(), 0x3C01);
  EXPECT_EQ(parsed[1].bits(), 0xC000);
  EXPECT_FALSE(kernel::ByteArray_To_HalfArray_Fallback(std::string("\x01\x3C\x00", 3), parsed));
  EXPECT_TRUE(parsed.empty());
}

}  // namespace
}  // namespace testing
}  // namespace tarn
