#include <gtest/gtest.h>

#include "kernel/cpu/fallback/input/input.h"
#include "runtime/net_fixture.h"
#include "runtime/test_kernels.h"
#include "tarn/kernel/register.h"
#include "tarn/runtime/net.h"
#include "tarn/runtime/profiler.h"
#include "test_util.h"

namespace tarn {
namespace {

using namespace runtime;
using testing::FloatTensor;
using testing::NetRecipe;
using testing::Values;

class NetTest : public ::testing::Test {
 protected:
  void SetUp() override {
    kernel::RegisterFallback(registry);
    testing::RegisterTestKernels(registry);
  }
  KernelRegistry registry;
  std::shared_ptr<Context> ctx = testing::MakeTestContext();
};

TEST_F(NetTest, BranchAndJoin) {
  NetRecipe recipe;
  recipe.Input("x").Scale("a", "x", 2).Scale("b", "x", 3).Sum("j", {"a", "b", "x"}).Outputs({"j"});
  auto net = CreateNet(recipe.model, recipe.cfg, registry, ctx);
  EXPECT_EQ(net->inputs().at("x"), 0u);
  EXPECT_EQ(net->type_names(), (std::vector<std::string>{"Input", "Activation", "Activation", "ElementWiseOperator"}));
  auto out = net->Forward({{0, FloatTensor(ctx, {1, -2})}}, {3, 1}, ctx);
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(Values(out[3][0]), (std::vector<float>{6, -12}));
  EXPECT_EQ(Values(out[1][0]), (std::vector<float>{2, -4})) << "an intermediate asked for is kept";
}

TEST_F(NetTest, LayersRunInSequenceOrderNotRecordOrder) {
  NetRecipe recipe;
  recipe.Input("x").Scale("late", "x", 2).Scale("early", "late", 5);
  // The sequence decides the index of every layer.
  auto net = CreateNet(recipe.model, recipe.cfg, registry, ctx);
  EXPECT_EQ(net->IndexOf("late"), 1);
  EXPECT_EQ(net->IndexOf("early"), 2);
  auto out = net->Forward({{0, FloatTensor(ctx, {1})}}, {2}, ctx);
  EXPECT_EQ(Values(out[2][0]), (std::vector<float>{10}));
}

TEST_F(NetTest, ConvertersChainAroundTheKernelInIdOrder) {
  NetRecipe recipe;
  recipe.Input("x").Scale("s", "x", 2);
  recipe.Converter("s", "in", "2", "Test_Offset_M1").Converter("s", "in", "1", "Test_Offset_M1");
  recipe.Converter("s", "out", "5", "Test_Offset_M1");
  auto net = CreateNet(recipe.model, recipe.cfg, registry, ctx);
  EXPECT_EQ(net->layers()[1]->input_converters.size(), 2u);
  std::vector<float> conv_times;
  auto out = net->Forward({{0, FloatTensor(ctx, {1})}}, {1}, ctx, nullptr, &conv_times);
  EXPECT_EQ(Values(out[1][0]), (std::vector<float>{(1 + 200) * 2 + 100.0f}));
  EXPECT_EQ(conv_times.size(), 1u) << "one entry per layer with converters";
}

TEST_F(NetTest, KernelIdsAreParsedInBase10) {
  NetRecipe recipe;
  recipe.Input("x").Scale("s", "x", 1);
  recipe.Converter("s", "in", "007", "Test_Offset_M1").Converter("s", "in", "7", "Test_Offset_M1");
  auto net = CreateNet(recipe.model, recipe.cfg, registry, ctx);
  ASSERT_EQ(net->layers()[1]->input_converters.size(), 1u) << "\"007\" and \"7\" are one slot";
  EXPECT_EQ(net->layers()[1]->input_converters.begin()->first, 7u);
  EXPECT_EQ(ParseKernelId("12a"), 12u);
  EXPECT_EQ(ParseKernelId("abc"), 0u);
  EXPECT_EQ(ParseKernelId("0010"), 10u);
}

TEST_F(NetTest, UnregisteredKernelIsLoggedThenFatal) {
  testing::LogCapture log;
  NetRecipe recipe;
  recipe.Input("x").Scale("s", "x", 1, "Nope_Fallback_M1");
  EXPECT_EQ(testing::ThrownMessage([&] { CreateNet(recipe.model, recipe.cfg, registry, ctx); }), "Assertion failed.");
  EXPECT_TRUE(log.Contains("Create Kernel >> Input_Fallback_M1 >> ok", utility::kLogVerbose));
  EXPECT_TRUE(log.Contains("Create Kernel >> Nope_Fallback_M1 >> nullptr", utility::kLogVerbose));
  EXPECT_TRUE(log.Contains("layer 1 <s> (Activation): compute kernel 0: kernel <Nope_Fallback_M1> is not registered",
                           utility::kLogError));
}

TEST_F(NetTest, BrokenConfigurationIsReportedWhole) {
  // Four broken layers: every one is named with its kernel and reason before the check fails.
  testing::LogCapture log;
  NetRecipe recipe;
  recipe.Input("x").Scale("a", "x", 1, "Nope_M1").Scale("b", "a", 1, "Test_Refuse_M1");
  recipe.Scale("c", "b", 1, "Input_Fallback_M1").Scale("d", "c", 1).Scale("e", "d", 1, "");
  recipe.Converter("d", "out", "3", "Missing_Converter_M1");
  EXPECT_EQ(testing::ThrownMessage([&] { CreateNet(recipe.model, recipe.cfg, registry, ctx); }), "Assertion failed.");
  for (const char* line :
       {"layer 1 <a> (Activation): compute kernel 0: kernel <Nope_M1> is not registered",
        "layer 2 <b> (Activation): compute kernel 0: kernel <Test_Refuse_M1> refused the layer in Config",
        "layer 3 <c> (Activation): compute kernel 0: kernel <Input_Fallback_M1> does not compute this layer record",
        "layer 4 <d> (Activation): output converter 3: kernel <Missing_Converter_M1> is not registered",
        "layer 5 <e> (Activation): its configuration names no compute kernel",
        "The net cannot be built: 5 problem(s) in 6 layers."}) {
    EXPECT_TRUE(log.Contains(line, utility::kLogError)) << line;
  }

  // The stand-alone configuration reports the same way.
  InferenceConfig cfg = *FromTRModelCfg(*recipe.cfg);
  log.lines.clear();
  EXPECT_EQ(testing::ThrownMessage([&] { CreateNet(recipe.model, std::make_shared<InferenceConfig>(cfg), registry, ctx); }),
            "Assertion failed.");
  EXPECT_TRUE(log.Contains("layer 1 <a> (Activation): compute kernel: kernel <Nope_M1> is not registered"));
  EXPECT_TRUE(log.Contains("layer 4 <d> (Activation): output converter 3: kernel <Missing_Converter_M1>"));
  EXPECT_TRUE(log.Contains("The net cannot be built: 5 problem(s) in 6 layers."));
}

TEST_F(NetTest, RefusedConfigIsLoggedAndTheLayerAsserts) {
  testing::LogCapture log;
  NetRecipe recipe;
  recipe.Input("x").Scale("s", "x", 1, "Test_Refuse_M1");
  EXPECT_EQ(testing::ThrownMessage([&] { CreateNet(recipe.model, recipe.cfg, registry, ctx); }), "Assertion failed.");
  EXPECT_TRUE(log.Contains("Config Kernel <Test_Refuse_M1> failed.", utility::kLogVerbose));
  // A kernel of the wrong kind for its record refuses too.
  NetRecipe wrong;
  wrong.Input("x").Scale("s", "x", 1, "Input_Fallback_M1");
  EXPECT_NE(testing::ThrownMessage([&] { CreateNet(wrong.model, wrong.cfg, registry, ctx); }), "");
  EXPECT_TRUE(log.Contains("Config Kernel <Input_Fallback_M1> failed."));
}

TEST_F(NetTest, EveryLayerNeedsAKernel) {
  NetRecipe recipe;
  recipe.Input("x", "");  // even input layers
  EXPECT_EQ(testing::ThrownMessage([&] { CreateNet(recipe.model, recipe.cfg, registry, ctx); }), "Assertion failed.");
  NetRecipe other;
  other.Input("x");
  EXPECT_NE(testing::ThrownMessage([&] { CreateNet(other.model, std::shared_ptr<TRModelCfg>(), registry, ctx); }), "")
      << "a null configuration gives no kernels";
}

TEST_F(NetTest, ForwardFailuresGiveAnEmptyResult) {
  testing::LogCapture log;
  NetRecipe recipe;
  recipe.Input("x").Scale("s", "x", 2);
  auto net = CreateNet(recipe.model, recipe.cfg, registry, ctx);
  EXPECT_TRUE(net->Forward({}, {1}, ctx).empty());
  EXPECT_TRUE(log.Contains("No tensor was given for input layer <x>."));
  auto bytes = ctx->cpu->CreateGray8Tensor(2, 2);
  EXPECT_TRUE(net->Forward({{0, bytes}}, {1}, ctx).empty()) << "an 8-bit tensor is not a valid float input";
  EXPECT_TRUE(log.Contains("Invalid input of layer <s> for kernel <Test_Scale_M1> (code -2)."));

  NetRecipe broken;
  broken.Input("x").Scale("s", "x", 1, "Test_Broken_M1");
  EXPECT_TRUE(CreateNet(broken.model, broken.cfg, registry, ctx)->Forward({{0, FloatTensor(ctx, {1})}}, {1}, ctx).empty());
  EXPECT_TRUE(log.Contains("Forward of layer <s> with kernel <Test_Broken_M1> failed."));
}

TEST_F(NetTest, CyclesAndUnknownIdsCannotRun) {
  testing::LogCapture log;
  NetRecipe cycle;
  cycle.Input("x").Sum("a", {"x", "b"}).Sum("b", {"a"});
  auto net = CreateNet(cycle.model, cycle.cfg, registry, ctx);
  EXPECT_TRUE(net->Forward({{0, FloatTensor(ctx, {1})}}, {2}, ctx).empty());
  EXPECT_TRUE(log.Contains("Layer <a> reads a layer that has not run before it."));
  NetRecipe self;
  self.Input("x").Sum("a", {"a"});
  EXPECT_TRUE(CreateNet(self.model, self.cfg, registry, ctx)->Forward({{0, FloatTensor(ctx, {1})}}, {1}, ctx).empty());
  NetRecipe unknown;
  unknown.Input("x").Sum("a", {"nowhere"});
  EXPECT_TRUE(
      CreateNet(unknown.model, unknown.cfg, registry, ctx)->Forward({{0, FloatTensor(ctx, {1})}}, {1}, ctx).empty());
}

TEST_F(NetTest, IntermediatesAreReleasedAfterTheirLastReader) {
  // A deep chain on a 1 MiB tensor: only a few tensors may be alive at once.
  NetRecipe recipe;
  recipe.Input("x");
  std::string prev = "x";
  for (int i = 0; i < 30; ++i) {
    const std::string id = "s" + std::to_string(i);
    recipe.Scale(id, prev, 1.0f);
    prev = id;
  }
  auto net = CreateNet(recipe.model, recipe.cfg, registry, ctx);
  auto input = ctx->cpu->CreateZeroF32CMainMem(1 << 18);
  const size_t bytes = input->shape.Bytes();
  ctx->cpu->pool()->ResetPeak();
  auto out = net->Forward({{0, input}}, {30}, ctx);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_LE(ctx->cpu->pool()->PeakBytesInUse(), 3 * bytes);
  EXPECT_EQ(ctx->cpu->pool()->BytesInUse(), 2 * bytes) << "the input and the requested output remain";
}

TEST_F(NetTest, APoolLimitFailsTheForwardPassNotTheProcess) {
  testing::LogCapture log;
  NetRecipe recipe;
  recipe.Input("x").Scale("a", "x", 2).Scale("b", "a", 3);
  auto net = CreateNet(recipe.model, recipe.cfg, registry, ctx);
  auto input = FloatTensor(ctx, {1, 2, 3, 4});
  auto* pool = dynamic_cast<AlignedPool*>(ctx->cpu->pool().get());
  ASSERT_NE(pool, nullptr);
  pool->SetByteLimit(pool->BytesInUse() + 64);  // room for one intermediate, not two
  EXPECT_TRUE(net->Forward({{0, input}}, {2}, ctx).empty());
  EXPECT_TRUE(log.Contains("memory pool limit of", utility::kLogError));
  pool->SetByteLimit(SIZE_MAX);
  auto out = net->Forward({{0, input}}, {2}, ctx);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(Values(out.at(2)[0]), (std::vector<float>{6, 12, 18, 24}));
}

TEST_F(NetTest, TimingVectorsAndProfiler) {
  testing::LogCapture log(0);
  NetRecipe recipe;
  recipe.Input("x").Scale("s", "x", 2).Scale("t", "s", 2);
  recipe.Converter("t", "out", "1", "Test_Offset_M1");
  auto profiler = std::make_shared<Profiler>();
  auto profiled = CreateContext(ctx->cpu, nullptr, nullptr, nullptr, nullptr, profiler);
  auto net = CreateNet(recipe.model, recipe.cfg, registry, profiled);
  std::vector<float> layer_times = {-1.0f}, converter_times;
  auto out = net->Forward({{0, FloatTensor(ctx, {1})}}, {2}, profiled, &layer_times, &converter_times);
  EXPECT_EQ(Values(out[2][0]), (std::vector<float>{104}));
  ASSERT_EQ(layer_times.size(), 4u) << "appended after what the vector held";
  for (size_t i = 1; i < 4; ++i) EXPECT_GE(layer_times[i], 0.0f);
  EXPECT_EQ(converter_times.size(), 1u);
  EXPECT_TRUE(log.Contains("Input Layer without any converter do not need to profile gpu time."));
  ASSERT_EQ(profiler->Layers().size(), 3u);
  EXPECT_EQ(profiler->Layers()[1].id, "s");

  // Without timing vectors and profiler nothing is measured.
  testing::LogCapture quiet(0);
  net->Forward({{0, FloatTensor(ctx, {1})}}, {2}, ctx);
  EXPECT_FALSE(quiet.Contains("do not need to profile"));
}

TEST_F(NetTest, StandAloneConfiguration) {
  NetRecipe recipe;
  recipe.Input("x").Scale("s", "x", 4);
  InferenceConfig cfg;
  auto kernel = [](const std::string& name) {
    auto k = std::make_shared<KernelInferenceConfig>();
    k->kernel_type = name;
    return k;
  };
  cfg.config["x"].kernel = kernel("Input_Fallback_M1");
  cfg.config["s"].kernel = kernel("Test_Scale_M1");
  cfg.config["s"].output_converters["3"] = kernel("Test_Offset_M1");
  auto net = CreateNet(recipe.model, std::make_shared<InferenceConfig>(cfg), registry, ctx);
  auto out = net->Forward({{0, FloatTensor(ctx, {1})}}, {1}, ctx);
  EXPECT_EQ(Values(out[1][0]), (std::vector<float>{104}));

  EXPECT_EQ(ConfigKernel(kernel("Nope_M1"), recipe.model->layers["s"], registry, ctx), nullptr);
  EXPECT_EQ(ConfigKernel(kernel("Test_Refuse_M1"), recipe.model->layers["s"], registry, ctx), nullptr);
  EXPECT_NE(ConfigKernel(kernel("Test_Scale_M1"), recipe.model->layers["s"], registry, ctx), nullptr);
  cfg.config["s"].kernel = kernel("Nope_M1");
  EXPECT_NE(testing::ThrownMessage([&] { CreateNet(recipe.model, std::make_shared<InferenceConfig>(cfg), registry, ctx); }),
            "");
}

TEST(KernelBase, DefaultsOfTheInterface) {
  kernel::Input_Fallback_M1 k;
  EXPECT_FALSE(k.IsConfiged());
  EXPECT_EQ(k.ResetRNNState(), -4);
  std::vector<std::shared_ptr<Tensor>> outs;
  EXPECT_FALSE(k.SetOutputs(nullptr, {}, false, outs));
  EXPECT_EQ(k.GetName(), "Input_Fallback_M1");
  EXPECT_EQ(k.IsValidParam(std::make_shared<Conv2dInfo>(), nullptr), -1);
  EXPECT_TRUE(k.Config(std::make_shared<InputInfo>(), nullptr, nullptr));
  EXPECT_TRUE(k.IsConfiged());
}

}  // namespace
}  // namespace tarn
