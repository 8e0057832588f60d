// The shipped demo package (it names SSE kernels) through the loading entry,
// in JSON and converted to the binary package format.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>

#include "tarn/runtime/json_binding.h"
#include "tarn/utility/model_loader.h"
#include "test_util.h"

#ifdef TRN_DEMO_MODEL_DIR

namespace tarn {
namespace {

using namespace runtime;

struct Reference {
  std::vector<unsigned> shape;
  std::vector<float> input, output;
};

Reference ReadReference() {
  std::ifstream in(std::string(TRN_DEMO_MODEL_DIR) + "/tiny_cnn_reference.json");
  std::stringstream text;
  text << in.rdbuf();
  JSONDocument doc;
  doc.Parse(text.str().c_str());
  Reference r;
  for (const auto& d : doc["input_shape"].GetArray()) r.shape.push_back(d.GetUint());
  r.input = DecodeWeights(doc["input"].GetString());
  for (const auto& v : doc["output"].GetArray()) r.output.push_back(static_cast<float>(v.GetDouble()));
  return r;
}

class DemoPackage : public ::testing::Test {
 protected:
  void SetUp() override {
    utility::init_register_operators(kernels, params);
    utility::create_context(ctx, 64);
  }

  std::vector<float> Run(const std::string& path) {
    std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
    EXPECT_EQ(utility::load_model(path, nets, ctx, kernels, params, "cpu_sse", 1, 0), 0);
    auto& pkg = nets.at("tiny_cnn");
    EXPECT_NE(pkg->net, nullptr);
    if (!pkg->net) return {};
    const Reference ref = ReadReference();
    for (auto& in : pkg->input_tensors) in.second = ctx->cpu->CreateTensor(MakeShape(ref.shape), ref.input.data());
    auto out = pkg->net->Forward(pkg->input_tensors, pkg->output_indices, ctx);
    EXPECT_EQ(out.size(), 1u);
    if (out.empty()) return {};
    const float* y = static_cast<const float*>(out.begin()->second[0]->Data());
    return std::vector<float>(y, y + out.begin()->second[0]->shape.ElementCount());
  }

  KernelRegistry kernels;
  InferenceParamRegistry params;
  std::shared_ptr<Context> ctx;
};

TEST_F(DemoPackage, GivesPyTorchsOutputsFromJson) {
  const Reference ref = ReadReference();
  const auto y = Run(std::string(TRN_DEMO_MODEL_DIR) + "/tiny_cnn.json");
  ASSERT_EQ(y.size(), ref.output.size());
  for (size_t i = 0; i < y.size(); ++i) EXPECT_NEAR(y[i], ref.output[i], 1e-4f) << i;
}

TEST_F(DemoPackage, BinaryPackageHoldsHalfWeights) {
  TRNModel pkg;
  ASSERT_TRUE(pkg.FromFile((std::string(TRN_DEMO_MODEL_DIR) + "/tiny_cnn.json").c_str(), "json"));
  testing::TempDir dir;
  const std::string bin = dir.File("tiny_cnn.trnmodel");
  ASSERT_TRUE(pkg.ToFile(bin.c_str(), "bin"));
  const Reference ref = ReadReference();
  const auto y = Run(bin);
  ASSERT_EQ(y.size(), ref.output.size());
  // Truncated half weights move the logits a little; the ranking stays.
  for (size_t i = 0; i < y.size(); ++i) EXPECT_NEAR(y[i], ref.output[i], 0.05f * (1.0f + std::fabs(ref.output[i])));
  EXPECT_EQ(std::max_element(y.begin(), y.end()) - y.begin(),
            std::max_element(ref.output.begin(), ref.output.end()) - ref.output.begin());
}

}  // namespace
}  // namespace tarn

#endif
