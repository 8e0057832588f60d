// Recurrent layers inside a net: a layer that reads a stack receives all of
// its outputs (y, h_n, c_n), so a second stack of matching size starts from
// the first one's final states; and the kernels keep their state from one
// net Forward to the next.
#include <gtest/gtest.h>

#include "kernel/cpu/recurrent_test_util.h"
#include "tarn/runtime/net.h"

namespace tarn {
namespace testing {
namespace {

using rnn::Kind;

TEST(RecurrentNet, StacksChainThroughTheExecutorAndKeepTheirState) {
  auto ctx = conv::MakeContext();
  runtime::KernelRegistry registry;
  kernel::RegisterFallback(registry);
  kernel::RegisterSGEMM(registry);

  const rnn::Shape first{8, 6, 2, true}, second{12, 6, 2, true};
  auto lstm = rnn::MakeRecord(Kind::kLSTM, false, first, rnn::RandomCells(Kind::kLSTM, false, first, 1));
  auto lstm2 = rnn::MakeRecord(Kind::kLSTM, false, second, rnn::RandomCells(Kind::kLSTM, false, second, 50));
  auto model = std::make_shared<runtime::TRModelInfo>();
  auto add = [&](std::shared_ptr<runtime::LayerInfo> layer, const std::string& id, std::vector<std::string> inputs) {
    layer->id = id;
    layer->input_ids = std::move(inputs);
    model->squential_ids.push_back(id);
    model->layers[id] = layer;
  };
  add(std::make_shared<runtime::InputInfo>(), "x", {});
  add(lstm, "lstm", {"x"});
  add(lstm2, "lstm2", {"lstm"});
  model->squential_output_ids = {"lstm", "lstm2"};

  for (const char* family : {"Fallback", "SGEMM"}) {
    auto net = runtime::CreateNet(model, runtime::CreateCfg(*model, family), registry, ctx);
    ASSERT_NE(net, nullptr) << family;
    const std::string suffix = std::string("_") + family + "_SC_F32_M1";
    auto k1 = rnn::Configured("LSTM" + suffix, lstm, ctx), k2 = rnn::Configured("LSTM" + suffix, lstm2, ctx);
    ASSERT_TRUE(k1 && k2);
    const auto x = conv::Random(5 * first.in, 7);
    for (int call = 0; call < 2; ++call) {
      auto out = net->Forward({{0, rnn::Vec(ctx, {5, first.in}, x)}}, {1, 2}, ctx);
      ASSERT_EQ(out.size(), 2u) << family;
      ASSERT_EQ(out[1].size(), 3u) << "y, h_n and c_n";
      ASSERT_EQ(out[2].size(), 3u);
      rnn::Tensors outputs;
      ASSERT_TRUE(k1->Forward({rnn::Vec(ctx, {5, first.in}, x)}, outputs, ctx));
      rnn::Values want1, want2, got1, got2;
      for (const auto& t : outputs) want1.push_back(conv::Values(t));
      rnn::Tensors outputs2;
      ASSERT_TRUE(k2->Forward(outputs, outputs2, ctx));
      for (const auto& t : outputs2) want2.push_back(conv::Values(t));
      for (const auto& t : out[1]) got1.push_back(conv::Values(t));
      for (const auto& t : out[2]) got2.push_back(conv::Values(t));
      EXPECT_TRUE(rnn::Same(got1, want1)) << family << " call " << call;
      EXPECT_TRUE(rnn::Same(got2, want2)) << family << " call " << call;
    }
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn
