// What a service running a model for hours relies on: separate nets of one
// package run on two threads give the serial run's outputs bit for bit, and a
// forward pass that fails on a bad input leaves the net usable.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <random>
#include <thread>

#include "tarn/runtime/net.h"
#include "tarn/utility/model_loader.h"
#include "test_util.h"

#ifdef TRN_DEMO_MODEL_DIR

namespace tarn {
namespace {

using namespace runtime;

class DemoNets : public ::testing::Test {
 protected:
  void SetUp() override {
    utility::init_register_operators(kernels, params);
    utility::create_context(ctx, 64);
    ASSERT_TRUE(package.FromFile((std::string(TRN_DEMO_MODEL_DIR) + "/tiny_cnn.json").c_str(), "json"));
    model = package.model_arr.models.at("tiny_cnn");
  }

  // A net of the package: its own SSE configuration, or the portable kernels
  // where the processor lacks SSE4.1 and FMA.
  std::shared_ptr<Net> Build() {
    if (ctx->cpu->info().CanRunSSEKernels()) {
      return CreateNet(model, package.config_arr.configs.at("tiny_cnn")->cpu_sse, kernels, ctx);
    }
    return CreateNet(model, CreateCfg(*model, "Fallback"), kernels, ctx);
  }

  std::shared_ptr<Tensor> RandomInput(unsigned seed, unsigned c = 3, unsigned h = 32, unsigned w = 32) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    auto t = ctx->cpu->CreateF32CHWMainMemory(c, h, w);
    for (size_t i = 0; i < t->shape.ElementCount(); ++i) t->DataAs<float>()[i] = uniform(rng);
    return t;
  }

  static std::vector<float> Output(const OutputMap& out) {
    if (out.size() != 1 || out.begin()->second.empty()) return {};
    const auto& t = out.begin()->second[0];
    const float* p = static_cast<const float*>(t->Data());
    return std::vector<float>(p, p + t->shape.ElementCount());
  }

  static bool SameBits(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && !a.empty() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
  }

  KernelRegistry kernels;
  InferenceParamRegistry params;
  std::shared_ptr<Context> ctx;
  TRNModel package;
  std::shared_ptr<TRModelInfo> model;
};

TEST_F(DemoNets, TwoThreadsGiveTheSerialOutputsBitForBit) {
  // Two nets of one package sharing one context (as load_model builds them),
  // each driven by its own thread.
  auto a = Build(), b = Build();
  const std::uint32_t output = static_cast<std::uint32_t>(a->IndexOf("fc"));
  const std::uint32_t input = a->inputs().at("image");
  std::vector<std::shared_ptr<Tensor>> inputs;
  std::vector<std::vector<float>> serial;
  for (unsigned k = 0; k < 8; ++k) {
    inputs.push_back(RandomInput(k));
    serial.push_back(Output(a->Forward({{input, inputs.back()}}, {output}, ctx)));
    ASSERT_FALSE(serial.back().empty());
  }
  const std::size_t in_use = ctx->cpu->pool()->BytesInUse();
  std::atomic<int> mismatches{0}, failures{0};
  auto drive = [&](const std::shared_ptr<Net>& net, unsigned offset) {
    for (unsigned pass = 0; pass < 400; ++pass) {
      const unsigned k = (pass + offset) % inputs.size();
      const std::vector<float> y = Output(net->Forward({{input, inputs[k]}}, {output}, ctx));
      if (y.empty()) {
        ++failures;
      } else if (!SameBits(y, serial[k])) {
        ++mismatches;
      }
    }
  };
  std::thread first(drive, a, 0u), second(drive, b, 3u);
  first.join();
  second.join();
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(mismatches.load(), 0);
  EXPECT_EQ(ctx->cpu->pool()->BytesInUse(), in_use) << "the shared pool got every block of both threads back";
}

TEST_F(DemoNets, AFailedPassLeavesTheNetUsable) {
  auto net = Build();
  const std::uint32_t output = static_cast<std::uint32_t>(net->IndexOf("fc"));
  const std::uint32_t input = net->inputs().at("image");
  auto good = RandomInput(7);
  const std::vector<float> expected = Output(net->Forward({{input, good}}, {output}, ctx));
  ASSERT_FALSE(expected.empty());

  testing::LogCapture log;
  const std::vector<std::pair<const char*, TensorMap>> bad = {
      {"four channels where the first convolution takes three", {{input, RandomInput(1, 4)}}},
      {"a 2x2 image: the convolutions run, the 2x2 pooling of a 1x1 plane fails", {{input, RandomInput(2, 3, 2, 2)}}},
      {"an 8-bit image", {{input, ctx->cpu->CreateRGB888Tensor(32, 32)}}},
      {"no input tensor", {}},
  };
  const std::size_t in_use = ctx->cpu->pool()->BytesInUse();  // the inputs, good and bad
  for (const auto& b : bad) {
    EXPECT_TRUE(net->Forward(b.second, {output}, ctx).empty()) << b.first;
    EXPECT_EQ(ctx->cpu->pool()->BytesInUse(), in_use) << b.first << ": every tensor of the failed pass is released";
    EXPECT_TRUE(SameBits(Output(net->Forward({{input, good}}, {output}, ctx)), expected))
        << "after " << b.first;
  }
  EXPECT_TRUE(log.Contains("Invalid input of layer <conv1>", utility::kLogError));
  EXPECT_TRUE(log.Contains("No tensor was given for input layer <image>.", utility::kLogError));
}

}  // namespace
}  // namespace tarn

#endif
