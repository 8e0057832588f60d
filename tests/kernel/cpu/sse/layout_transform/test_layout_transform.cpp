// Layout transforms (SSE and AVX members): every member against the layout
// mapping bit for bit (NaN payloads and signed zeros included) over pixel
// counts that exercise each step and tail, round trips, and the input checks.
#include <gtest/gtest.h>

#include <functional>

#include "kernel/cpu/avx/layout_transform/layout_transform.h"
#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/sse/layout_transform/layout_transform.h"

namespace tarn {
namespace testing {
namespace {

using runtime::TensorShape;

// Bit patterns no arithmetic would keep: signalling and payload NaNs, -0.0, denormals.
std::vector<float> Patterns(size_t n, unsigned seed) {
  std::vector<float> v = TestValues(n, -100.0f, 100.0f, seed, 5);
  const std::uint32_t odd[] = {0x7f800001u, 0xff812345u, 0x7fbfffffu, 0x80000000u, 0x00000001u, 0x807fffffu};
  for (size_t i = 2; i < n; i += 7) v[i] = FromBits(odd[(i / 7) % 6]);
  return v;
}

struct Member {
  std::function<std::shared_ptr<runtime::IKernel>()> make;
  unsigned from_lanes, to_lanes;  // 1 for CHW
  bool avx;
};

TensorShape::Layout LayoutOf(unsigned lanes) {
  return lanes == 1 ? TensorShape::CHW : lanes == 4 ? TensorShape::C4HW4 : TensorShape::C8HW8;
}

template <typename K>
Member M(unsigned from, unsigned to, bool avx) {
  return {[] { return std::make_shared<K>(); }, from, to, avx};
}

std::vector<Member> Members() {
  using namespace kernel;
  return {M<LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1>(1, 4, false),
          M<LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2>(1, 4, false),
          M<LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1>(4, 1, false),
          M<LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1>(1, 8, false),
          M<LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1>(8, 1, false),
          M<LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2>(8, 1, false),
          M<LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1>(4, 8, false),
          M<LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1>(8, 4, false),
          M<LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1>(1, 8, true),
          M<LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1>(8, 1, true),
          M<LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2>(8, 1, true)};
}

std::vector<unsigned> DimsOf(unsigned lanes, unsigned c, unsigned h, unsigned w) {
  if (lanes == 1) return {c, h, w};
  return {c / lanes, h, w, lanes};
}

// Pixel counts 0..19 as 1 x P planes and a few 2-D planes.
class LayoutPixels : public ::testing::TestWithParam<int> {};

TEST_P(LayoutPixels, EveryMemberMovesEveryBit) {
  const unsigned pixels = static_cast<unsigned>(GetParam());
  const std::pair<unsigned, unsigned> hw[] = {{1, pixels}, {pixels, 1}, {3, pixels}};
  const bool sse = HaveSSE(), avx = HaveAVX();
  if (!sse) GTEST_SKIP() << "no SSE4.1 + FMA";
  auto ctx = ElementContext();
  for (const Member& m : Members()) {
    if (m.avx && !avx) continue;
    auto k = m.make();
    for (const auto& [h, w] : hw) {
      const unsigned c = 16;  // two 8-blocks, four 4-blocks
      const std::vector<float> chw = Patterns(size_t(c) * h * w, 1000 + pixels * 3 + h);
      const std::vector<float> in = m.from_lanes == 1 ? chw : ToBlocked(chw, c, h, w, m.from_lanes);
      const std::vector<float> want = m.to_lanes == 1 ? chw : ToBlocked(chw, c, h, w, m.to_lanes);
      auto t = MakeTensor(ctx, DimsOf(m.from_lanes, c, h, w), in, LayoutOf(m.from_lanes));
      ASSERT_EQ(k->GetOutputShapes({t->shape})[0].dims, DimsOf(m.to_lanes, c, h, w)) << k->GetName();
      auto out = RunKernel(k, {t}, ctx);
      ASSERT_TRUE(out) << k->GetName();
      EXPECT_EQ(out->shape.layout, LayoutOf(m.to_lanes));
      EXPECT_TRUE(SameBits(Values(out), want)) << k->GetName() << " " << h << "x" << w;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Pixels, LayoutPixels, ::testing::Range(0, 20), TRN_INDEX_NAMES);

TEST(LayoutTransform, RoundTripsAreBitExact) {
  TRN_REQUIRE_SSE();
  auto ctx = ElementContext();
  const std::vector<float> x = Patterns(8 * 7 * 9, 5);
  auto chw = MakeTensor(ctx, {8, 7, 9}, x);
  using namespace kernel;
  auto c4 = RunKernel(std::make_shared<LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2>(), {chw}, ctx);
  ASSERT_TRUE(c4);
  auto back = RunKernel(std::make_shared<LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1>(), {c4}, ctx);
  auto c8 = RunKernel(std::make_shared<LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1>(), {c4}, ctx);
  ASSERT_TRUE(back && c8);
  EXPECT_TRUE(SameBits(Values(back), x));
  auto c4again = RunKernel(std::make_shared<LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1>(), {c8}, ctx);
  auto chw2 = RunKernel(std::make_shared<LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2>(), {c8}, ctx);
  ASSERT_TRUE(c4again && chw2);
  EXPECT_TRUE(SameBits(Values(c4again), Values(c4)));
  EXPECT_TRUE(SameBits(Values(chw2), x));
}

TEST(LayoutTransform, InputChecks) {
  auto ctx = ElementContext();
  using namespace kernel;
  LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1 to4;
  EXPECT_EQ(to4.IsValidInput({MakeTensor(ctx, {4, 1, 5}, {})}), 0);
  EXPECT_EQ(to4.IsValidInput({MakeTensor(ctx, {6, 2, 2}, {})}), kInvalidTensor);  // 6 mod 4
  EXPECT_EQ(to4.IsValidInput({MakeTensor(ctx, {4, 2}, {})}), kInvalidTensor);
  EXPECT_EQ(to4.IsValidInput({MakeTensor(ctx, {1, 2, 2, 4}, {}, TensorShape::C4HW4)}), kInvalidTensor);
  EXPECT_EQ(to4.IsValidInput({ctx->cpu->CreateTensor(runtime::MakeShape({4, 1, 1}, TensorShape::INT32))}),
            kInvalidTensor);
  LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1 to8;
  EXPECT_EQ(to8.IsValidInput({MakeTensor(ctx, {12, 2, 2}, {})}), kInvalidTensor);
  EXPECT_EQ(to8.IsValidInput({MakeTensor(ctx, {16, 2, 2}, {})}), 0);
  LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1 c4to8;
  EXPECT_EQ(c4to8.IsValidInput({MakeTensor(ctx, {3, 2, 2, 4}, {}, TensorShape::C4HW4)}), kInvalidTensor);  // odd
  EXPECT_EQ(c4to8.IsValidInput({MakeTensor(ctx, {2, 2, 2, 4}, {}, TensorShape::C4HW4)}), 0);
  EXPECT_EQ(c4to8.IsValidInput({MakeTensor(ctx, {2, 2, 2, 8}, {}, TensorShape::C4HW4)}), kInvalidTensor);
  LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1 from8;
  EXPECT_EQ(from8.IsValidInput({MakeTensor(ctx, {3, 2, 2, 8}, {}, TensorShape::C8HW8)}), 0);
  EXPECT_EQ(from8.IsValidInput({MakeTensor(ctx, {3, 2, 2, 8}, {}, TensorShape::C4HW4)}), kInvalidTensor);
  EXPECT_EQ(from8.IsValidOutput({MakeTensor(ctx, {24, 2, 2}, {})}), 0);
  EXPECT_EQ(from8.IsValidOutput({MakeTensor(ctx, {3, 2, 2, 8}, {}, TensorShape::C8HW8)}), kInvalidTensor);
  EXPECT_EQ(from8.GetOutputShapes({runtime::MakeShape({3, 2, 5, 8}, TensorShape::FLOAT32, TensorShape::C8HW8)})[0].dims,
            (std::vector<unsigned>{24, 2, 5}));
}

TEST(LayoutTransform, NonFloatPlaneSizeFailsTheTypeAssertion) {
  TRN_REQUIRE_SSE();
  auto ctx = ElementContext();
  auto bad = ctx->cpu->CreateTensor(runtime::MakeShape({4, 1, 1}, TensorShape::UINT8));
  auto out = MakeTensor(ctx, {1, 1, 1, 4}, {}, TensorShape::C4HW4);
  EXPECT_NE(ThrownMessage([&] {
              kernel::functional::LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1(bad, out);
            }).find("false && \"Invalid type\""),
            std::string::npos);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
