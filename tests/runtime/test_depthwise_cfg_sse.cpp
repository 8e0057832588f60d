// CreateCfg names the depthwise and transposed members for the layers they
// serve, and a net configured that way computes what the portable one does.
// The file name marks it as needing SSE (the configured net runs SSE code).
#include <gtest/gtest.h>

#include "kernel/cpu/conv_test_util.h"
#include "tarn/kernel/register.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/net.h"

namespace tarn {
namespace {

using namespace runtime;

std::shared_ptr<Conv2dInfo> Conv(unsigned c, unsigned n, unsigned g, unsigned k, unsigned s, unsigned d) {
  auto conv = std::make_shared<Conv2dInfo>();
  conv->in_channels = c;
  conv->out_channels = n;
  conv->groups = g;
  conv->kernel_x = conv->kernel_y = k;
  conv->stride_x = conv->stride_y = s;
  conv->dilation_x = conv->dilation_y = d;
  conv->padding_l = conv->padding_r = conv->padding_t = conv->padding_b = d * (k / 2);
  return conv;
}

std::shared_ptr<ConvTranspose2dInfo> Transposed(unsigned c, unsigned n, unsigned g, unsigned k, unsigned s,
                                                unsigned d) {
  auto t = std::make_shared<ConvTranspose2dInfo>();
  t->in_channels = c;
  t->out_channels = n;
  t->groups = g;
  t->kernel_x = t->kernel_y = k;
  t->stride_x = t->stride_y = s;
  t->dilation_x = t->dilation_y = d;
  t->padding_l = t->padding_t = 1;  // output padding 1: end paddings 0
  return t;
}

std::string NameFor(const LayerInfoPtr& layer, const std::string& family) {
  auto model = std::make_shared<TRModelInfo>();
  layer->id = "x";
  model->squential_ids = {"x"};
  model->layers["x"] = layer;
  auto cfg = CreateCfg(*model, family);
  const auto* entry = cfg->Find("x");
  return entry && entry->kernel ? entry->kernel->kernel_type : "";
}

TEST(DepthwiseCfg, NamesTheMembersThatServeTheLayer) {
  for (const char* family : {"SSE", "AVX"}) {
    SCOPED_TRACE(family);
    EXPECT_EQ(NameFor(Conv(32, 32, 32, 3, 1, 1), family), "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1");
    EXPECT_EQ(NameFor(Conv(144, 144, 144, 3, 2, 1), family), "Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1");
    // Not served by them: 5x5, dilated, stride 3, channel multiplier, groups
    // of two channels, one group.
    for (auto conv : {Conv(8, 8, 8, 5, 1, 1), Conv(8, 8, 8, 3, 1, 2), Conv(8, 8, 8, 3, 3, 1), Conv(8, 16, 8, 3, 1, 1),
                      Conv(8, 8, 4, 3, 1, 1), Conv(8, 8, 1, 3, 1, 1)}) {
      EXPECT_EQ(NameFor(conv, family), "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1");
    }
    auto mixed = Conv(8, 8, 8, 3, 1, 1);
    mixed->stride_x = 2;
    EXPECT_EQ(NameFor(mixed, family), "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1");
    for (unsigned s : {1u, 2u, 3u}) {
      EXPECT_EQ(NameFor(Transposed(8, 4, 1, 3, s, 1), family), "ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1");
    }
    for (auto t : {Transposed(8, 4, 1, 4, 2, 1), Transposed(8, 4, 1, 3, 2, 2), Transposed(8, 4, 2, 3, 2, 1)}) {
      EXPECT_EQ(NameFor(t, family), "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
    }
  }
  for (const char* family : {"", "SGEMM"}) {
    EXPECT_EQ(NameFor(Transposed(8, 4, 1, 3, 2, 1), family), "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
    EXPECT_EQ(NameFor(Conv(8, 8, 8, 3, 1, 1), family), "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
  }
}

// input -> depthwise 3x3 stride 2 -> transposed 3x3 stride 2 (output padding
// 1) through the SSE configuration and the portable one.
TEST(DepthwiseCfg, ConfiguredNetMatchesThePortableNet) {
  auto model = std::make_shared<TRModelInfo>();
  auto add = [&](LayerInfoPtr layer, const std::string& id, std::vector<std::string> inputs) {
    layer->id = id;
    layer->input_ids = std::move(inputs);
    model->squential_ids.push_back(id);
    model->squential_types.push_back(layer->type);
    model->layers[id] = layer;
  };
  add(std::make_shared<InputInfo>(), "data", {});
  auto dw = Conv(12, 12, 12, 3, 2, 1);
  dw->if_bias = true;
  dw->weight = EncodeWeights(testing::conv::Random(12 * 9, 1));
  dw->bias = EncodeWeights(testing::conv::Random(12, 2));
  add(dw, "dw", {"data"});
  auto up = Transposed(12, 5, 1, 3, 2, 1);
  up->if_bias = true;
  up->weight = EncodeWeights(testing::conv::Random(12 * 5 * 9, 3));
  up->bias = EncodeWeights(testing::conv::Random(5, 4));
  add(up, "up", {"dw"});
  model->squential_output_ids = {"up"};

  KernelRegistry registry;
  kernel::RegisterFallback(registry);
  kernel::RegisterSSE(registry);
  auto ctx = testing::conv::MakeContext();
  const std::vector<float> x = testing::conv::Random(12 * 10 * 9, 5);
  std::vector<std::vector<float>> results;
  for (const char* family : {"", "SSE"}) {
    auto net = CreateNet(model, CreateCfg(*model, family), registry, ctx);
    ASSERT_NE(net, nullptr) << family;
    auto input = ctx->cpu->CreateTensor(MakeShape({12, 10, 9}), x.data());
    auto out = net->Forward({{0, input}}, {2}, ctx);
    ASSERT_EQ(out[2].size(), 1u) << family;
    EXPECT_EQ(out[2][0]->shape.dims, (std::vector<unsigned>{5, 10, 10})) << family;
    results.push_back(testing::conv::Values(out[2][0]));
  }
  ASSERT_EQ(results[0].size(), results[1].size());
  for (std::size_t i = 0; i < results[0].size(); ++i) EXPECT_NEAR(results[0][i], results[1][i], 1e-4) << i;
}

}  // namespace
}  // namespace tarn
