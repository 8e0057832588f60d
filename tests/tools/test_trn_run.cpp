// trn_run end to end on the demo package: outputs, comparison with PyTorch's
// output, the profile, JSON and trace files, images, and the bad paths.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/utility/bmp.h"
#include "tarn/utility/npy.h"
#include "test_util.h"

#if defined(TRN_RUN_TOOL) && defined(TRN_DEMO_MODEL_DIR)

namespace tarn {
namespace {

struct Result {
  int status;
  std::string out, err;
};

std::string Text(const std::string& path) {
  const auto bytes = testing::ReadAll(path);
  return std::string(bytes.begin(), bytes.end());
}

class TrnRun : public ::testing::Test {
 protected:
  Result Run(const std::string& args) {
    const std::string out = dir.File("stdout.txt"), err = dir.File("stderr.txt");
    const int raw = std::system((std::string(TRN_RUN_TOOL) + " " + args + " > " + out + " 2> " + err).c_str());
    return Result{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Text(out), Text(err)};
  }
  // The demo package's input with a processor-independent configuration.
  std::string Demo() const { return std::string(TRN_DEMO_MODEL_DIR) + "/tiny_cnn.json"; }
  std::string DemoFile(const char* name) const { return std::string(TRN_DEMO_MODEL_DIR) + "/" + name; }
  // The demo package with its layers on the portable kernels, which every processor runs.
  std::string Portable() {
    runtime::TRNModel pkg;
    EXPECT_TRUE(pkg.FromFile(Demo().c_str(), "json"));
    auto model = pkg.model_arr.models.at("tiny_cnn");
    pkg.config_arr.configs.at("tiny_cnn")->cpu_sse = runtime::ToTRModelCfg(*runtime::CreateCfg(*model), *model);
    const std::string path = dir.File("portable.json");
    EXPECT_TRUE(pkg.ToFile(path.c_str(), "json"));
    return path;
  }
  testing::TempDir dir;
};

TEST_F(TrnRun, DemoAgainstPyTorchWithProfileJsonAndTrace) {
  const std::string json = dir.File("run.json"), trace = dir.File("trace.json"), saved = dir.File("saved.npy");
  const Result r = Run(Portable() + " --input " + DemoFile("tiny_cnn_input.npy") + " --compare " +
                       DemoFile("tiny_cnn_output.npy") + " --tolerance 1e-5 --runs 3 --warmup 1 --profile --json " +
                       json + " --trace " + trace + " --save " + saved + " --top-k 3");
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  for (const char* text : {"network tiny_cnn, 11 layers, 1 inputs, 1 outputs", "output fc (layer 10): 10",
                           "top-3:  4 (0.94214)  8 (0.60922)  0 (-0.04055", "latency over 3 passes (after 1 warm-up)",
                           "compare fc with", "per-layer profile of the 3 timed passes", "conv1",
                           "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", "3 complete passes"}) {
    EXPECT_NE(r.out.find(text), std::string::npos) << text << "\n" << r.out;
  }

  runtime::JSONDocument doc;
  doc.Parse(Text(json).c_str());
  ASSERT_TRUE(doc.IsObject()) << Text(json);
  EXPECT_EQ(std::string(doc["net"].GetString()), "tiny_cnn");
  EXPECT_EQ(doc["latency_ms"]["count"].GetUint(), 3u);
  EXPECT_EQ(doc["outputs"][0]["top_k"][0]["index"].GetUint(), 4u);
  EXPECT_LT(doc["compare"]["relative"].GetDouble(), 1e-5);
  EXPECT_EQ(doc["profile"]["layers"].Size(), 11u);
  EXPECT_EQ(doc["profile"]["layers"][10]["calls"].GetUint(), 3u);

  runtime::JSONDocument events;
  events.Parse(Text(trace).c_str());
  ASSERT_TRUE(events.IsObject());
  ASSERT_EQ(events["traceEvents"].Size(), 11u) << "one event per layer";
  EXPECT_EQ(std::string(events["traceEvents"][1]["name"].GetString()), "conv1");

  utility::NpyArray out, ref;
  ASSERT_TRUE(utility::ReadNPY(saved, &out));
  ASSERT_TRUE(utility::ReadNPY(DemoFile("tiny_cnn_output.npy"), &ref));
  ASSERT_EQ(out.values.size(), ref.values.size());
  for (size_t i = 0; i < ref.values.size(); ++i) EXPECT_NEAR(out.values[i], ref.values[i], 1e-5f);
}

TEST_F(TrnRun, BinaryPackageAndRandomInput) {
  runtime::TRNModel pkg;
  ASSERT_TRUE(pkg.FromFile(Portable().c_str(), "json"));
  const std::string bin = dir.File("demo.trnmodel");
  ASSERT_TRUE(pkg.ToFile(bin.c_str(), "bin"));
  // Half-precision weights: near PyTorch, not equal to it.
  Result r = Run(bin + " --input " + DemoFile("tiny_cnn_input.npy") + " --compare " + DemoFile("tiny_cnn_output.npy") +
                 " --tolerance 0.05 --runs 1");
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  r = Run(bin + " --input random --seed 3 --runs 2 --top-k 0");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("input image (layer 0): random, 3x32x32"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("top-"), std::string::npos);
}

TEST_F(TrnRun, ImagesGoThroughThePreprocessing) {
  // A 32x32 picture: no resize, so its float tensor is known exactly.
  const unsigned h = 32, w = 32;
  auto ctx_pool = std::make_shared<runtime::AlignUpPool>(64);
  auto device = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), ctx_pool, nullptr, ctx_pool);
  auto image = device->CreateRGB888Tensor(h, w);
  auto* px = static_cast<std::uint8_t*>(image->Data());
  for (unsigned i = 0; i < h * w * 3; ++i) px[i] = static_cast<std::uint8_t>((i * 37 + i / 96) % 256);
  const std::string bmp = dir.File("picture.bmp");
  ASSERT_TRUE(utility::WriteBMP(bmp, image));
  const float mean[3] = {0.5f, 0.4f, 0.3f}, stddev[3] = {0.25f, 0.5f, 2.0f};
  std::vector<float> chw(3 * h * w);
  for (unsigned c = 0; c < 3; ++c) {
    for (unsigned p = 0; p < h * w; ++p) chw[c * h * w + p] = (px[p * 3 + c] / 255.0f - mean[c]) * (1.0f / stddev[c]);
  }
  const std::string npy = dir.File("picture.npy"), from_npy = dir.File("from_npy.npy");
  ASSERT_TRUE(utility::WriteNPY(npy, chw.data(), {3, h, w}));
  const std::string portable = Portable();
  ASSERT_EQ(Run(portable + " --runs 1 --input " + npy + " --save " + from_npy).status, 0);
  const std::string norm = " --mean 0.5,0.4,0.3 --std 0.25,0.5,2 --runs 1 --compare " + from_npy;
  Result r = Run(portable + " --input " + bmp + norm + " --tolerance 0");
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("input image (layer 0): " + bmp + ", 3x32x32"), std::string::npos) << r.out;
  r = Run(portable + " --input " + bmp + norm + " --tolerance 0 --bgr");
  EXPECT_EQ(r.status, 1) << "the channels swapped give another output";
  r = Run(portable + " --input " + bmp + " --size 64x48 --runs 1");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("3x64x48"), std::string::npos) << "resized to the size asked for";
}

TEST_F(TrnRun, BadPathsNameTheFileTheLayerAndTheReason) {
  const std::string portable = Portable();
  struct Case {
    std::string args;
    int status;
    std::string message;
  };
  const std::string wrong_shape = dir.File("four_channels.npy");
  const std::vector<float> four(4 * 32 * 32, 0.5f);
  ASSERT_TRUE(utility::WriteNPY(wrong_shape, four.data(), {4, 32, 32}));
  const std::string legacy = dir.File("old.trnmodel");
  testing::WriteAll(legacy, {0x1b, 0x27, 0, 0, 1, 2, 3, 4});  // file version 10011
  const std::vector<Case> cases = {
      {dir.File("missing.json"), 1, "missing.json: cannot load the package"},
      {dir.File("model.onnx"), 1, "model.onnx: a package ends in .json or .trnmodel"},
      {legacy, 1, "is a version-1 model file (file version 10011)"},
      {portable + " --input " + std::string(TRN_TEST_DATA_DIR) + "/npy/f64_2x3.npy", 1,
       "input layer image: " + std::string(TRN_TEST_DATA_DIR) + "/npy/f64_2x3.npy: element type '<f8'"},
      {portable + " --input " + wrong_shape, 1, "Invalid input of layer <conv1>"},
      {portable + " --input picture.png", 1, "input layer image: picture.png is neither a .bmp nor a .npy file"},
      {portable + " --input random --input random", 1, "2 inputs given, network tiny_cnn has 1"},
      {portable + " --runs 1 --compare " + std::string(TRN_TEST_DATA_DIR) + "/npy/f32_2x3.npy", 1,
       "holds 6 values, output fc has 10"},
      {portable + " --runs 1 --compare " + DemoFile("tiny_cnn_output.npy") + " --input random --tolerance 1e-3", 1,
       "exceeds the tolerance"},
      {portable + " --net other", 1, "no network named other"},
      {portable + " --output conv1", 1, "conv1 is not an output layer"},
      {portable + " --runs 0", 2, "--runs takes a count of at least 1"},
      {portable + " --frobnicate", 2, "unknown option --frobnicate"},
      {"", 2, "no package given"},
  };
  for (const Case& c : cases) {
    const Result r = Run(c.args);
    EXPECT_EQ(r.status, c.status) << c.args << "\n" << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << c.args << "\n" << r.err;
  }
}

}  // namespace
}  // namespace tarn

#endif
