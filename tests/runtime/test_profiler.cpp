#include <gtest/gtest.h>

#include <numeric>

#include "runtime/net_fixture.h"
#include "runtime/test_kernels.h"
#include "tarn/kernel/register.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/runtime/net.h"
#include "tarn/runtime/profiler.h"
#include "test_util.h"

namespace tarn {
namespace {

using namespace runtime;
using testing::FloatTensor;
using testing::NetRecipe;

class ProfilerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    kernel::RegisterFallback(registry);
    testing::RegisterTestKernels(registry);
    profiled = CreateContext(ctx->cpu, nullptr, nullptr, nullptr, nullptr, profiler);
  }

  // x -> conv (2 -> 3 channels, 3x3, padding 1) -> s (x2) -> t (x2)
  std::shared_ptr<Net> ConvNet() {
    NetRecipe recipe;
    recipe.Input("x");
    auto conv = std::make_shared<Conv2dInfo>();
    conv->id = "conv";
    conv->input_ids = {"x"};
    conv->in_channels = 2;
    conv->out_channels = 3;
    conv->kernel_x = conv->kernel_y = 3;
    conv->padding_l = conv->padding_t = conv->padding_r = conv->padding_b = 1;
    conv->weight = EncodeWeights(std::vector<float>(3 * 2 * 9, 0.5f));
    recipe.model->squential_ids.push_back("conv");
    recipe.model->squential_types.push_back(LAYER_CONV2D);
    recipe.model->layers["conv"] = conv;
    auto lc = std::make_shared<LayerCfg>();
    lc->kernel.kernel_ids = {"0"};
    lc->kernel.kernels["0"] = NetRecipe::MakeKernelCfg("Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
    recipe.cfg->squential_ids.push_back("conv");
    recipe.cfg->layers["conv"] = lc;
    recipe.Scale("s", "conv", 2).Scale("t", "s", 2).Outputs({"t"});
    return CreateNet(recipe.model, recipe.cfg, registry, ctx);
  }

  std::shared_ptr<TensorCPU> Input() { return ctx->cpu->CreateZeroF32CHWMainMem(2, 5, 4); }

  KernelRegistry registry;
  std::shared_ptr<Context> ctx = testing::MakeTestContext();
  std::shared_ptr<Profiler> profiler = std::make_shared<Profiler>();
  std::shared_ptr<Context> profiled;
};

TEST_F(ProfilerTest, TotalsAreTheSumOfTheLayerTimes) {
  auto net = ConvNet();
  std::vector<float> layer_times;
  for (int pass = 0; pass < 3; ++pass) {
    ASSERT_FALSE(net->Forward({{0, Input()}}, {3}, profiled, &layer_times).empty());
  }
  ASSERT_EQ(layer_times.size(), 12u);
  const double sum = std::accumulate(layer_times.begin(), layer_times.end(), 0.0);
  // The vector holds floats of the same measurements the profiler sums as doubles.
  EXPECT_NEAR(profiler->TotalMs(), sum, 1e-6 * sum + 1e-9);
  const auto layers = profiler->Layers();
  ASSERT_EQ(layers.size(), 4u);
  double shares = 0;
  for (size_t i = 0; i < layers.size(); ++i) {
    EXPECT_EQ(layers[i].index, i);
    EXPECT_EQ(layers[i].calls, 3u);
    // Three float roundings of a few milliseconds (slow under valgrind): relative, not absolute.
    const double layer_sum = double(layer_times[i]) + layer_times[4 + i] + layer_times[8 + i];
    EXPECT_NEAR(layers[i].total_ms, layer_sum, 1e-6 * layer_sum + 1e-9);
    EXPECT_LE(layers[i].min_ms, layers[i].mean_ms());
    EXPECT_GE(layers[i].max_ms, layers[i].mean_ms());
    shares += layers[i].total_ms / profiler->TotalMs();
  }
  EXPECT_NEAR(shares, 1.0, 1e-12);
  EXPECT_EQ(layers[1].kernel, "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
  EXPECT_EQ(layers[2].type, "Activation");
  const utility::StatsSummary passes = profiler->Passes();
  EXPECT_EQ(passes.count, 3u);
  // A pass's wall time holds its layers and the executor between them.
  EXPECT_GE(passes.mean * 3 + 1e-9, sum - 1e-3);
  const std::string table = profiler->Table();
  for (const char* text : {"conv", "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", "share", "3 complete passes"}) {
    EXPECT_NE(table.find(text), std::string::npos) << text << "\n" << table;
  }
}

TEST_F(ProfilerTest, ConvolutionRateFromItsGeometry) {
  auto net = ConvNet();
  ASSERT_FALSE(net->Forward({{0, Input()}}, {3}, profiled).empty());
  const auto layers = profiler->Layers();
  // 3 outputs x 5 x 4 positions x 2 inputs x 9 taps, two operations each.
  EXPECT_EQ(layers[1].flops, 2.0 * 3 * 5 * 4 * 2 * 9);
  EXPECT_GT(layers[1].gflops_per_second(), 0.0);
  EXPECT_EQ(layers[2].flops, 0.0) << "activations are not counted";
  EXPECT_EQ(layers[2].gflops_per_second(), 0.0);
}

TEST(LayerFlops, EachCountedKind) {
  ConvTranspose2dInfo up;
  up.in_channels = 4;
  up.out_channels = 6;
  up.groups = 2;
  up.kernel_x = up.kernel_y = 2;
  // Every input value reaches out/groups channels through the 2x2 window.
  EXPECT_EQ(LayerFlops(up, {MakeShape({4, 3, 3})}, {MakeShape({6, 6, 6})}), 2.0 * 4 * 9 * 3 * 4);
  Conv2dInfo blocked;
  blocked.in_channels = 5;
  blocked.out_channels = 6;
  blocked.kernel_x = blocked.kernel_y = 1;
  // A blocked output [2, H, W, 4] still counts the record's 6 channels, not 8.
  EXPECT_EQ(LayerFlops(blocked, {}, {MakeShape({2, 7, 3, 4}, TensorShape::FLOAT32, TensorShape::C4HW4)}),
            2.0 * 6 * 21 * 5);
  Conv1dInfo line;
  line.in_channels = 2;
  line.out_channels = 3;
  line.kernel_size = 5;
  EXPECT_EQ(LayerFlops(line, {}, {MakeShape({3, 10})}), 2.0 * 3 * 10 * 2 * 5);
  FullConnectionInfo fc;
  fc.in_features = 512;
  fc.out_features = 10;
  EXPECT_EQ(LayerFlops(fc, {MakeShape({512, 1, 1})}, {MakeShape({10})}), 2.0 * 512 * 10);
  EXPECT_EQ(LayerFlops(fc, {MakeShape({4, 512})}, {MakeShape({4, 10})}), 4 * 2.0 * 512 * 10) << "batch rows";
  EXPECT_EQ(LayerFlops(ActivationInfo(), {MakeShape({4})}, {MakeShape({4})}), 0.0);
}

TEST_F(ProfilerTest, TraceHoldsOneEventPerLayerOfTheLastCompletePass) {
  auto net = ConvNet();
  ASSERT_FALSE(net->Forward({{0, Input()}}, {3}, profiled).empty());
  ASSERT_FALSE(net->Forward({{0, Input()}}, {3}, profiled).empty());
  testing::LogCapture quiet;
  // A failing pass (no input) stays out of the timeline and the pass count.
  ASSERT_TRUE(net->Forward({}, {3}, profiled).empty());
  EXPECT_EQ(profiler->Passes().count, 2u);

  JSONDocument doc;
  const std::string text = profiler->ToTraceJSON();
  doc.Parse(text.c_str());
  ASSERT_TRUE(doc.IsObject()) << text;
  const JSONValue& events = doc["traceEvents"];
  ASSERT_TRUE(events.IsArray());
  ASSERT_EQ(events.Size(), net->layers().size());
  double end = 0;
  for (rapidjson::SizeType i = 0; i < events.Size(); ++i) {
    const JSONValue& e = events[i];
    EXPECT_EQ(std::string(e["name"].GetString()), net->layers()[i]->id);
    EXPECT_EQ(std::string(e["ph"].GetString()), "X");
    EXPECT_GE(e["ts"].GetDouble(), end - 1e-6) << "layers follow each other";
    EXPECT_GE(e["dur"].GetDouble(), 0.0);
    end = e["ts"].GetDouble() + e["dur"].GetDouble();
  }
  EXPECT_LE(end, profiler->Passes().max * 1e3 + 1e-6) << "the timeline lies within the pass";
  EXPECT_EQ(std::string(events[1]["args"]["kernel"].GetString()), "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");

  JSONDocument report;
  report.Parse(profiler->ToJSON().c_str());
  ASSERT_TRUE(report.IsObject());
  EXPECT_EQ(report["layers"].Size(), 4u);
  EXPECT_TRUE(report["layers"][1]["gflops_per_second"].IsNumber());
  EXPECT_TRUE(report["layers"][2]["gflops_per_second"].IsNull());
  EXPECT_EQ(report["pass_ms"]["count"].GetUint(), 2u);

  profiler->Reset();
  EXPECT_TRUE(profiler->Layers().empty());
  doc.Parse(profiler->ToTraceJSON().c_str());
  EXPECT_EQ(doc["traceEvents"].Size(), 0u);
}

}  // namespace
}  // namespace tarn
