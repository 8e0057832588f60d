// The SSE depthwise members (CHW and C4HW4, 3x3, strides 1 and 2) against the
// double reference over every tail and channel count, PyTorch fixtures
// (groups = channels) and hostile records.
#include <gtest/gtest.h>

#include "kernel/cpu/depthwise_test_util.h"

namespace tarn {
namespace testing {
namespace {

const conv::DepthwiseMember kSseDepthwise[] = {
    {"Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1", 1, 3, 1},
    {"Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1", 1, 3, 2},
    {"Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1", 4, 3, 1},
    {"Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1", 4, 3, 2},
};

TRN_DEPTHWISE_MEMBER_TESTS(DepthwiseSse, kSseDepthwise);

// Six channels on C4HW4 take two blocks: the second block's first two lanes
// carry channels 4 and 5 exactly as the CHW member computes them.
TEST(DepthwiseSseC4HW4, SixChannelsKeepTheirSecondBlock) {
  for (int stride = 1; stride <= 2; ++stride) {
    const conv::DepthwiseMember& chw = kSseDepthwise[stride - 1];
    const conv::DepthwiseMember& blocked = kSseDepthwise[stride + 1];
    const conv::ConvGeom g = conv::DepthwiseGeom(chw, 6, 5, 7, 1, 0, true);
    const std::vector<float> x = conv::Random(6 * g.h * g.w, 5), w = conv::Random(g.WeightCount(), 6),
                             b = conv::Random(6, 7);
    auto ctx = conv::MakeContext();
    auto a = conv::RunKernel(chw.name, conv::MakeConv2dInfo(g, w, b), ctx, conv::LayoutTensor(ctx->cpu, x, 6, g.h, g.w, 1));
    auto c = conv::RunKernel(blocked.name, conv::MakeConv2dInfo(g, w, b), ctx,
                             conv::LayoutTensor(ctx->cpu, x, 6, g.h, g.w, 4));
    ASSERT_TRUE(a.forwarded && c.forwarded);
    const std::vector<float> planar = conv::Values(a.outputs[0]);
    const float* blocks = static_cast<const float*>(c.outputs[0]->Data());
    ASSERT_EQ(c.outputs[0]->shape.dims[0], 2u);
    const std::vector<float> back = conv::FromBlocked(blocks, 6, g.OutH(), g.OutW(), 4);
    const std::size_t plane = std::size_t(g.OutH()) * g.OutW();
    for (std::size_t i = 4 * plane; i < 6 * plane; ++i) {
      ASSERT_NEAR(back[i], planar[i], 1e-5f * (1.0f + std::fabs(planar[i]))) << "stride " << stride << " at " << i;
    }
    EXPECT_TRUE(conv::TailLanesZero(blocks, 6, g.OutH(), g.OutW(), 4));
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn
