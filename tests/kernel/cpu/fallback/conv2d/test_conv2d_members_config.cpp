// The specialised convolution members are created, checked and configured by
// baseline code: on any processor (this file also runs on the emulated
// baseline one) each is registered under its name in its family, refuses the
// records it does not compute and packs its weight in Config; only Forward
// needs its instruction set.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kernel/cpu/conv2d_member_test_util.h"
#include "tarn/kernel/native_gemm.h"

namespace tarn {
namespace testing {
namespace {

namespace native = kernel::native;
using conv::MemberSpec;

std::vector<MemberSpec> AllMembers() {
  std::vector<MemberSpec> all = conv::AvxMembers();
  all.push_back(conv::SseImageStem());
  return all;
}

TEST(ConvMemberRegistration, TheAvxFamilyRegistersItsMembersAndTheSseFamilyTheStem) {
  runtime::KernelRegistry avx, sse;
  kernel::RegisterAVX(avx);
  kernel::RegisterSSE(sse);
  for (const MemberSpec& m : conv::AvxMembers()) {
    auto k = avx.Create(m.name);
    ASSERT_NE(k, nullptr) << m.name;
    EXPECT_EQ(k->GetName(), m.name);
    EXPECT_EQ(sse.Create(m.name), nullptr) << m.name;
  }
  ASSERT_NE(sse.Create(conv::SseImageStem().name), nullptr);
  EXPECT_EQ(avx.Create(conv::SseImageStem().name), nullptr);
}

class ConvMemberConfig : public ::testing::TestWithParam<int> {};

TEST_P(ConvMemberConfig, ConfiguresAndShapesOutputsInBaselineCode) {
  const MemberSpec m = AllMembers()[GetParam()];
  auto ctx = conv::MakeContext();
  auto kernel = conv::CreateKernel(m.name);
  ASSERT_NE(kernel, nullptr);
  EXPECT_FALSE(kernel->IsConfiged());
  const unsigned c = m.in_channels ? m.in_channels : 13, n = m.out_channels ? m.out_channels : 21;
  const conv::ConvGeom g = conv::MemberGeom(m, c, n, 4, 6, true, false);
  EXPECT_EQ(kernel->IsValidParam(conv::MakeConv2dInfo(g, conv::Random(g.WeightCount(), 1), conv::Random(n, 2)),
                                 nullptr),
            0);
  ASSERT_TRUE(kernel->Config(conv::MakeConv2dInfo(g, conv::Random(g.WeightCount(), 1), conv::Random(n, 2)), nullptr,
                             ctx));
  EXPECT_TRUE(kernel->IsConfiged());
  auto input = conv::LayoutTensor(ctx->cpu, conv::Random(std::size_t(c) * g.h * g.w, 3), c, g.h, g.w, m.in_lanes);
  EXPECT_EQ(kernel->IsValidInput({input}), 0);
  const auto shapes = kernel->GetOutputShapes({input->shape});
  ASSERT_EQ(shapes.size(), 1u);
  const std::vector<unsigned> want = m.out_lanes == 1
                                         ? std::vector<unsigned>{n, 4, 6}
                                         : std::vector<unsigned>{(n + m.out_lanes - 1) / m.out_lanes, 4, 6, m.out_lanes};
  EXPECT_EQ(shapes[0].dims, want);
  // A weight blob one float short is refused, not packed.
  EXPECT_FALSE(kernel->Config(
      conv::MakeConv2dInfo(g, conv::Random(g.WeightCount() - 1, 1), conv::Random(n, 2)), nullptr, ctx));
}

INSTANTIATE_TEST_SUITE_P(Members, ConvMemberConfig, ::testing::Range(0, static_cast<int>(AllMembers().size())),
                         [](const auto& info) { return std::string(AllMembers()[info.param].name); });

// The column-matrix members' weight order, made by Config.
TEST(ColumnProductTransform, PutsFourOutputChannelsPerColumnRowAndZeroBeyond) {
  // outch 5, inch 2, kernel 2x2: 8 column rows, two blocks of four channels.
  std::vector<float> w(5 * 8);
  for (std::size_t i = 0; i < w.size(); ++i) w[i] = float(i + 1);
  std::vector<float> tm(native::conv_im2col_sgemm_weight_floats(2, 5, 4), -1.0f);
  ASSERT_EQ(tm.size(), 2u * 8 * 4);
  native::conv_im2col_sgemm_transform_kernel_sse(w.data(), tm.data(), 2, 5, 4);
  for (unsigned nb = 0; nb < 2; ++nb)
    for (unsigned k = 0; k < 8; ++k)
      for (unsigned j = 0; j < 4; ++j) {
        const unsigned n = 4 * nb + j;
        EXPECT_EQ(tm[(nb * 8 + k) * 4 + j], n < 5 ? w[n * 8 + k] : 0.0f) << nb << " " << k << " " << j;
      }
}

}  // namespace
}  // namespace testing
}  // namespace tarn
