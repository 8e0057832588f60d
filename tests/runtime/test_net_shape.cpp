// Shape kernels inside nets: views handed on by the executor, in-place
// kernels that must not write over storage someone still reads (the caller's
// input, a later reader, a view of either), the channel counts derived from
// the records, and their hand-over to a blocked concatenation.
#include <gtest/gtest.h>

#include <cmath>

#include "kernel/cpu/fallback/activation/activation.h"
#include "runtime/net_fixture.h"
#include "tarn/kernel/register.h"
#include "tarn/runtime/net.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using runtime::TensorShape;

// CHW values [c, h, w] blocked by 4 lanes, the tail lanes zero.
std::vector<float> Blocked4(const std::vector<float>& chw, unsigned c, unsigned h, unsigned w) {
  std::vector<float> out(size_t((c + 3) / 4) * h * w * 4, 0.0f);
  for (unsigned i = 0; i < c * h * w; ++i) out[((i / (h * w)) / 4 * h * w + i % (h * w)) * 4 + (i / (h * w)) % 4] = chw[i];
  return out;
}

std::shared_ptr<runtime::TensorCPU> Tensor(const std::shared_ptr<runtime::Context>& ctx, std::vector<unsigned> dims,
                                           const std::vector<float>& values,
                                           TensorShape::Layout layout = TensorShape::CHW) {
  auto t = ctx->cpu->CreateTensor(runtime::MakeShape(std::move(dims), TensorShape::FLOAT32, layout));
  for (size_t i = 0; i < t->shape.ElementCount(); ++i) t->DataAs<float>()[i] = i < values.size() ? values[i] : 0.0f;
  return t;
}

// Conv2dInfo layers in these nets only fix channel counts: this kernel hands
// on the first out_channels channels of a CHW input, blocked by 4 with zero
// tail lanes, as a blocked convolution would.
class Test_BlockedFirstChannels_M1 : public kernel::KernelBase {
 public:
  TRN_KERNEL_NAME(Test_BlockedFirstChannels_M1)
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam>) const override {
    return std::dynamic_pointer_cast<runtime::Conv2dInfo>(layer) ? 0 : -1;
  }
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context>) override {
    if (IsValidParam(layer, param) != 0) return false;
    channels_ = std::static_pointer_cast<runtime::Conv2dInfo>(layer)->out_channels;
    return configured_ = true;
  }
  std::vector<TensorShape> GetOutputShapes(const std::vector<TensorShape>&) const override { return {}; }
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> ctx) const override {
    const auto& d = inputs[0]->shape.dims;
    const std::vector<float> all = Values(inputs[0]);
    const std::vector<float> first(all.begin(), all.begin() + size_t(channels_) * d[1] * d[2]);
    outputs = {Tensor(ctx, {(channels_ + 3u) / 4u, d[1], d[2], 4}, Blocked4(first, channels_, d[1], d[2]),
                      TensorShape::C4HW4)};
    return true;
  }

 private:
  unsigned channels_ = 0;
};

runtime::KernelRegistry ShapeRegistry() {
  runtime::KernelRegistry registry;
  kernel::Register_CrossPlatform_Fallback(registry);
  kernel::RegisterFallback(registry);
  TRN_REGISTER_KERNEL(registry, Test_BlockedFirstChannels_M1);
  return registry;
}

// Adds a layer record with one kernel to a recipe.
void AddLayer(NetRecipe& net, runtime::LayerInfoPtr layer, const std::string& id, std::vector<std::string> inputs,
              const std::string& kernel) {
  layer->id = id;
  layer->input_ids = std::move(inputs);
  net.model->squential_ids.push_back(id);
  net.model->squential_types.push_back(layer->type);
  net.model->layers[id] = layer;
  auto lc = std::make_shared<runtime::LayerCfg>();
  lc->kernel.kernel_ids = {"0"};
  lc->kernel.kernels["0"] = NetRecipe::MakeKernelCfg(kernel);
  net.cfg->squential_ids.push_back(id);
  net.cfg->layers[id] = lc;
}

runtime::LayerInfoPtr Reshape(std::vector<short> dims) {
  auto r = std::make_shared<runtime::TensorReshapeInfo>();
  r->new_shape = std::move(dims);
  return r;
}

runtime::LayerInfoPtr Activation(std::uint16_t type, std::string weight = "") {
  auto a = std::make_shared<runtime::ActivationInfo>();
  a->activation_type = type;
  a->activation_alpha = half_float::half(1.0f);
  a->activation_beta = half_float::half(0.0f);
  a->weight = std::move(weight);
  return a;
}

std::vector<float> Sigmoid(const std::vector<float>& x) {
  std::vector<float> y;
  for (float v : x) y.push_back(1.0f / (1.0f + std::exp(-v)));
  return y;
}

// in -> copy -> reshape (a view of copy) -> PReLU (in place) while a later
// sigmoid still reads copy, and a later reshape of the caller's input. The
// in-place kernel must get a separate output: neither the caller's tensor
// nor the tensor the sigmoid reads may change.
TEST(NetShape, InPlaceKernelsNeverWriteOverStorageStillRead) {
  auto ctx = MakeTestContext();
  auto registry = ShapeRegistry();
  NetRecipe net;
  net.Input("in");
  AddLayer(net, Activation(runtime::ACTIVATION_LINEAR), "copy", {"in"}, "Linear_Fallback_Float_M1");
  AddLayer(net, Reshape({2, -1}), "view", {"copy"}, "TensorReshape_Fallback_M1");
  AddLayer(net, Activation(runtime::ACTIVATION_PRELU, runtime::EncodeWeights({0.5f})), "prelu", {"view"},
           "PReLU_Fallback_Float_M1");
  AddLayer(net, Activation(runtime::ACTIVATION_SIGMOID), "sigmoid", {"copy"}, "Sigmoid_Fallback_Float_M1");
  AddLayer(net, Activation(runtime::ACTIVATION_PRELU, runtime::EncodeWeights({0.25f})), "prelu_in", {"in"},
           "PReLU_Fallback_Float_M1");
  AddLayer(net, Reshape({-1}), "in_again", {"in"}, "TensorReshape_Fallback_M1");
  net.Outputs({"prelu", "sigmoid", "prelu_in", "in_again"});
  auto built = runtime::CreateNet(net.model, net.cfg, registry, ctx);
  const std::vector<float> x = {-4, -2, -1, 0, 1, 2, 3, -3};
  auto input = FloatTensor(ctx, x);
  auto out = built->Forward({{0, input}}, {3, 4, 5, 6}, ctx);
  ASSERT_EQ(out.size(), 4u);
  auto prelu = [](const std::vector<float>& v, float s) {
    std::vector<float> y;
    for (float f : v) y.push_back(f < 0 ? f * s : f);
    return y;
  };
  EXPECT_EQ(out[3][0]->shape.dims, (std::vector<unsigned>{2, 4}));
  EXPECT_EQ(Values(out[3][0]), prelu(x, 0.5f));
  EXPECT_EQ(Values(out[4][0]), Sigmoid(x));
  EXPECT_EQ(Values(out[5][0]), prelu(x, 0.25f));
  EXPECT_EQ(Values(out[6][0]), x);
  EXPECT_EQ(Values(input), x);
  // The reshape of the caller's input is a view of it.
  EXPECT_EQ(out[6][0]->Data(), input->Data());
}

// An in-place kernel is told whether it may overwrite: with reuse its input
// comes back written; without, a fresh output is filled and the input kept.
TEST(NetShape, InPlaceKernelsFollowTheReuseFlag) {
  auto ctx = MakeTestContext();
  auto k = std::make_shared<kernel::PReLU_Fallback_Float_M1>();
  ASSERT_TRUE(k->Config(Activation(runtime::ACTIVATION_PRELU, runtime::EncodeWeights({0.5f})), nullptr, ctx));
  for (bool reuse : {true, false}) {
    auto in = FloatTensor(ctx, {-2, 4});
    std::vector<std::shared_ptr<runtime::Tensor>> outputs;
    ASSERT_TRUE(k->SetOutputs(ctx, {in}, reuse, outputs));
    ASSERT_TRUE(k->Forward({in}, outputs, ctx));
    EXPECT_EQ(outputs[0] == in, reuse);
    EXPECT_EQ(Values(outputs[0]), (std::vector<float>{-1, 4}));
    EXPECT_EQ(Values(in), reuse ? (std::vector<float>{-1, 4}) : (std::vector<float>{-2, 4}));
  }
  auto relu = std::make_shared<kernel::ReLU_Fallback_Float_M1>();
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_FALSE(relu->SetOutputs(ctx, {FloatTensor(ctx, {1})}, false, outputs));  // not in place: nothing to hand out
}

runtime::LayerInfoPtr Conv(std::uint16_t out_channels) {
  auto c = std::make_shared<runtime::Conv2dInfo>();
  c->out_channels = out_channels;
  return c;
}

runtime::LayerInfoPtr Concat(std::uint16_t dim) {
  auto c = std::make_shared<runtime::ConcatenateInfo>();
  c->dim = dim;
  return c;
}

TEST(NetShape, ChannelCountsFollowTheRecords) {
  NetRecipe net;
  net.Input("in");
  AddLayer(net, Conv(6), "c6", {"in"}, "");
  AddLayer(net, Activation(runtime::ACTIVATION_RELU), "relu", {"c6"}, "");
  AddLayer(net, Conv(5), "c5", {"in"}, "");
  AddLayer(net, Concat(0), "cat", {"relu", "c5"}, "");
  auto shuffle = std::make_shared<runtime::PixelShuffleInfo>();
  shuffle->upscale_factor = 2;
  AddLayer(net, shuffle, "shuffle_odd", {"cat"}, "");
  AddLayer(net, Concat(0), "cat12", {"relu", "relu"}, "");
  auto shuffle12 = std::make_shared<runtime::PixelShuffleInfo>();
  shuffle12->upscale_factor = 2;
  AddLayer(net, shuffle12, "shuffle", {"cat12"}, "");
  auto space = std::make_shared<runtime::SpaceToDepthInfo>();
  space->scale_factor = 2;
  AddLayer(net, space, "space", {"c5"}, "");
  AddLayer(net, Reshape({-1}), "flat", {"c5"}, "");
  AddLayer(net, Concat(1), "cat_h_same", {"relu", "relu"}, "");
  AddLayer(net, Concat(2), "cat_w_mixed", {"relu", "c5"}, "");
  AddLayer(net, Concat(0), "cat_unknown", {"flat", "c5"}, "");
  AddLayer(net, Concat(0), "cat_missing", {"nowhere", "c5"}, "");
  EXPECT_EQ(runtime::InferChannelCounts(*net.model),
            (std::vector<std::int64_t>{-1, 6, 6, 5, 11, -1, 12, 3, 20, -1, 6, -1, -1, -1}));
}

// A net that concatenates blocked tensors of 6 and 3 real channels: the
// builder hands the counts from the Conv2d records to the concatenation,
// whose output holds the 9 channels in 3 blocks, tail lanes zero.
TEST(NetShape, BlockedConcatenationGetsItsCountsFromTheBuilder) {
  auto ctx = MakeTestContext();
  auto registry = ShapeRegistry();
  NetRecipe net;
  net.Input("in");
  AddLayer(net, Conv(6), "a", {"in"}, "Test_BlockedFirstChannels_M1");
  AddLayer(net, Conv(3), "b", {"in"}, "Test_BlockedFirstChannels_M1");
  AddLayer(net, Concat(0), "cat", {"a", "b"}, "Concatenate_Fallback_Float_M1");
  net.Outputs({"cat"});
  auto built = runtime::CreateNet(net.model, net.cfg, registry, ctx);
  const unsigned h = 2, w = 3;
  std::vector<float> x;
  for (unsigned i = 0; i < 8 * h * w; ++i) x.push_back(static_cast<float>(i) * 0.5f - 7.0f);
  auto out = built->Forward({{0, Tensor(ctx, {8, h, w}, x)}}, {3}, ctx);
  ASSERT_EQ(out.size(), 1u);
  std::vector<float> want(x.begin(), x.begin() + 6 * h * w);
  want.insert(want.end(), x.begin(), x.begin() + 3 * h * w);
  EXPECT_EQ(out[3][0]->shape.dims, (std::vector<unsigned>{3, h, w, 4}));
  EXPECT_EQ(Values(out[3][0]), Blocked4(want, 9, h, w));

  // Without a record that fixes the first input's count the layer is refused
  // and the pass returns nothing.
  NetRecipe unknown;
  unknown.Input("in");
  AddLayer(unknown, Concat(0), "cat", {"in", "in"}, "Concatenate_Fallback_Float_M1");
  auto refused = runtime::CreateNet(unknown.model, unknown.cfg, registry, ctx);
  LogCapture log;
  EXPECT_TRUE(refused->Forward({{0, Tensor(ctx, {2, h, w, 4}, {}, TensorShape::C4HW4)}}, {1}, ctx).empty());
  EXPECT_TRUE(log.Contains("Invalid input of layer <cat>"));
  EXPECT_TRUE(log.Contains("real channel count of blocked input 0 is not known"));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
