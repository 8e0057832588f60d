#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "runtime/record_filler.h"
#include "tarn/runtime/binary_stream.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/json_binding.h"
#include "test_util.h"

namespace tarn {
namespace {

using namespace runtime;

TEST(InferenceParam, EveryNameCreatesItsClass) {
  EXPECT_EQ(InferenceParamNames().size(), 26u);
  for (const std::string& name : InferenceParamNames()) {
    auto p = CreateInferenceParamPtr(name);
    ASSERT_NE(p, nullptr) << name;
    EXPECT_EQ(p->GetName(), name);
    EXPECT_EQ(p->GetClassTypeName(), name);
    // No "serializable_type" member in a parameter record.
    EXPECT_EQ(testing::CompactJson(*p).find("serializable_type"), std::string::npos) << name;
  }
  EXPECT_EQ(CreateInferenceParamPtr("none"), nullptr);
  EXPECT_EQ(CreateInferenceParamPtr("InferenceParamconv2dQuant"), nullptr);
}

TEST(InferenceParam, AttributesInTheirOrder) {
  InferenceParamConv2DVulkan v;
  EXPECT_EQ(testing::CompactJson(v),
            "{\"serialization_protocol_version\":20015,\"local_x\":1,\"local_y\":1,\"local_z\":1,\"activation\":\"\"}");
  InferenceParamConv2DOpenGLCompute g;
  const std::string gj = testing::CompactJson(g);
  EXPECT_LT(gj.find("local_z"), gj.find("\"activation\""));
  EXPECT_LT(gj.find("activation_beta"), gj.find("num_parameters"));
  EXPECT_LT(gj.find("num_parameters"), gj.find("weight"));
  InferenceParamConv2DQuant q;
  EXPECT_EQ(testing::CompactJson(q),
            "{\"serialization_protocol_version\":20015,\"weight_step_size\":0,\"output_step_size\":0}");
}

TEST(KernelCfg, ParameterRecordFollowsItsTypeName) {
  KernelCfg k;
  k.kernel_type = "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1";
  auto q = std::make_shared<InferenceParamConv2DQuant>();
  q->weight_step_size = 7;
  q->output_step_size = -3;
  k.infer_param = q;
  const std::string json = testing::CompactJson(k);
  EXPECT_NE(json.find("\"infer_param_type\":\"InferenceParamConv2DQuant\""), std::string::npos);
  KernelCfg back;
  ASSERT_TRUE(back.FromJsonString(json.c_str()));
  auto read = std::dynamic_pointer_cast<InferenceParamConv2DQuant>(back.infer_param);
  ASSERT_NE(read, nullptr);
  EXPECT_EQ(read->weight_step_size, 7);
  EXPECT_EQ(read->output_step_size, -3);

  KernelCfg none;
  none.kernel_type = "Input_Fallback_M1";
  EXPECT_EQ(testing::CompactJson(none),
            "{\"serialization_protocol_version\":20015,\"kernel_type\":\"Input_Fallback_M1\",\"infer_param_type\":"
            "\"none\",\"infer_param\":{}}");
  EXPECT_EQ(testing::ThrownMessage([] {
              KernelCfg bad;
              bad.FromJsonString("{\"kernel_type\":\"x\",\"infer_param_type\":\"Nope\",\"infer_param\":{}}");
            }),
            "Unsupported inference param type [Nope].");
}

std::shared_ptr<TRModelInfo> SmallModel() {
  auto model = std::make_shared<TRModelInfo>();
  auto add = [&](LayerInfoPtr layer, const std::string& id, std::vector<std::string> inputs) {
    layer->id = id;
    layer->input_ids = std::move(inputs);
    model->squential_ids.push_back(id);
    model->squential_types.push_back(layer->type);
    model->layers[id] = layer;
  };
  add(std::make_shared<InputInfo>(), "data", {});
  auto conv = std::make_shared<Conv2dInfo>();
  conv->kernel_x = conv->kernel_y = 1;
  add(conv, "conv", {"data"});
  auto act = std::make_shared<ActivationInfo>();
  act->activation_type = ACTIVATION_HSIGMOID;
  add(act, "act", {"conv"});
  auto sum = std::make_shared<ElementWiseOperatorInfo>();
  sum->op_type = ELEMENTWISE_MUL;
  add(sum, "mul", {"act", "conv"});
  add(std::make_shared<FullConnectionInfo>(), "fc", {"mul"});
  add(std::make_shared<SoftmaxInfo>(), "softmax", {"fc"});
  add(std::make_shared<LayerPlaceholderInfo>(), "placeholder", {"softmax"});
  model->squential_output_ids = {"softmax"};
  return model;
}

std::string KernelOf(const InferenceConfig& cfg, const std::string& id) {
  const auto* layer = cfg.Find(id);
  return layer && layer->kernel ? layer->kernel->kernel_type : "";
}

TEST(CreateCfg, NamesAKernelPerLayerForEachFamily) {
  auto model = SmallModel();
  auto fallback = CreateCfg(*model);
  EXPECT_EQ(KernelOf(*fallback, "data"), "Input_Fallback_M1");
  EXPECT_EQ(KernelOf(*fallback, "conv"), "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
  EXPECT_EQ(KernelOf(*fallback, "act"), "HSigmoid_Fallback_Float_M1");
  EXPECT_EQ(KernelOf(*fallback, "mul"), "Elementwise_Fallback_Float_M1");
  EXPECT_EQ(KernelOf(*fallback, "fc"), "FullConnection_Fallback_C_Float_M1");
  EXPECT_EQ(KernelOf(*fallback, "softmax"), "Softmax_Fallback_Float_M1");
  EXPECT_EQ(KernelOf(*fallback, "placeholder"), "") << "no kernel of this library computes it";
  auto avx = CreateCfg(*model, "AVX");
  EXPECT_EQ(KernelOf(*avx, "act"), "HSigmoid_SSE_Float_M1") << "no AVX HSigmoid: the SSE one runs on AVX machines";
  EXPECT_EQ(KernelOf(*avx, "mul"), "Elementwise_Mul_AVX_Float_M1");
  EXPECT_EQ(KernelOf(*avx, "fc"), "FullConnection_AVX_C_Float_M1");
  EXPECT_EQ(KernelOf(*avx, "softmax"), "Softmax_AVX_Float_M1");
  auto sgemm = CreateCfg(*model, "SGEMM");
  EXPECT_EQ(KernelOf(*sgemm, "conv"), "Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1");
  EXPECT_EQ(KernelOf(*sgemm, "fc"), "FullConnection_SGEMM_C_Float_M1");

  auto gl = CreateOpenGLCfg(*model);
  EXPECT_EQ(gl->allocator_, "OpenGLSSBO");
  EXPECT_EQ(gl->Find("conv")->kernel->infer_param_type, "InferenceParamConv2DOpenGLCompute");
  EXPECT_EQ(CreateMetalCfg(*model)->Find("mul")->kernel->infer_param_type, "InferenceParamElementwiseMetalCompute");
  EXPECT_EQ(CreateMetalCfgImgC8HW8F16(*model)->allocator_, "MetalImage");
}

TEST(InferenceConfig, JsonRoundTripThroughTheRegistry) {
  auto model = SmallModel();
  auto cfg = CreateOpenGLCfg(*model);
  cfg->config["conv"].input_converters["7"] = std::make_shared<KernelInferenceConfig>();
  cfg->config["conv"].input_converters["7"]->kernel_type = "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1";
  const std::string json = cfg->ToJSON();
  EXPECT_NE(json.find("\"allocator_\""), std::string::npos);
  EXPECT_NE(json.find("\"config\""), std::string::npos);

  InferenceParamRegistry registry;
  for (const std::string& name : InferenceParamNames()) {
    registry.Register(name, [name] { return CreateInferenceParamPtr(name); }, false);
  }
  auto back = CreateConfigFromJSON(json, registry);
  EXPECT_EQ(back->ToJSON(), json);
  EXPECT_EQ(back->Find("conv")->input_converters.at("7")->kernel_type,
            "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1");

  InferenceParamRegistry empty;
  EXPECT_NE(testing::ThrownMessage([&] { CreateConfigFromJSON(json, empty); }).find("Unsupported inference param type"),
            std::string::npos);
  for (const char* bad : {"[]", "{}", "{\"allocator_\":\"x\"}", "{\"allocator_\":\"x\",\"config\":{\"a\":3}}",
                          "{\"allocator_\":\"x\",\"config\":{\"a\":{\"input_converters\":{},\"kernel\":5,"
                          "\"output_converters\":{}}}}"}) {
    EXPECT_NE(testing::ThrownMessage([&] { CreateConfigFromJSON(bad, registry); }), "") << bad;
  }
}

TEST(InferenceConfig, PackageFormAndBack) {
  auto model = SmallModel();
  auto cfg = CreateCfg(*model, "SSE");
  cfg->config["conv"].output_converters["007"] = std::make_shared<KernelInferenceConfig>();
  cfg->config["conv"].output_converters["007"]->kernel_type = "X";
  auto packaged = ToTRModelCfg(*cfg, *model);
  EXPECT_EQ(packaged->squential_ids, model->squential_ids);
  EXPECT_EQ(packaged->layers["conv"]->kernel.kernel_ids, (std::vector<std::string>{"0"}));
  EXPECT_EQ(packaged->layers["conv"]->output_converters.kernel_ids, (std::vector<std::string>{"007"}));
  EXPECT_TRUE(packaged->layers["placeholder"]->kernel.kernel_ids.empty());
  auto back = FromTRModelCfg(*packaged);
  EXPECT_EQ(KernelOf(*back, "conv"), KernelOf(*cfg, "conv"));
  EXPECT_EQ(back->Find("conv")->output_converters.at("007")->kernel_type, "X");
}

class PackageFiles : public ::testing::Test {
 protected:
  testing::TempDir dir;

  TRNModel MakePackage() {
    TRNModel pkg;
    pkg.sdk_type = "cpu_sse";
    pkg.core_major_ver = 1;
    pkg.sdk_major_ver = 3;
    pkg.sdk_minor_ver = 2;
    auto model = SmallModel();
    pkg.model_arr.squential_ids = {"net"};
    pkg.model_arr.models["net"] = model;
    auto cfgs = std::make_shared<TRModelMultiBackendCfgs>();
    cfgs->cpu_sse = ToTRModelCfg(*CreateCfg(*model, "SSE"), *model);
    cfgs->cpu_avx = ToTRModelCfg(*CreateCfg(*model, "AVX"), *model);
    pkg.config_arr.squential_ids = {"net"};
    pkg.config_arr.configs["net"] = cfgs;
    return pkg;
  }
};

TEST_F(PackageFiles, PackageRoundTripsInBothFormats) {
  TRNModel pkg = MakePackage();
  const std::string expected = testing::CompactJson(pkg);
  EXPECT_EQ(expected.rfind("{\"serialization_protocol_version\":20015,\"sdk_type\":\"cpu_sse\",\"core_major_ver\":1", 0),
            0u) << "container records write no serializable_type";
  for (const char* name : {"p.json", "p.trnmodel"}) {
    const std::string path = dir.File(name);
    const bool json = std::strstr(name, ".json") != nullptr;
    ASSERT_TRUE(pkg.ToFile(path.c_str(), json ? "json" : "bin"));
    TRNModel back;
    ASSERT_TRUE(back.FromFile(path.c_str(), json ? "json" : "bin"));
    EXPECT_EQ(testing::CompactJson(back), expected) << name;
  }
  // ".trnmodel" is not among the extensions of the generic loader.
  TRNModel back;
  EXPECT_NE(testing::ThrownMessage([&] { back.FromFile(dir.File("p.trnmodel").c_str()); }), "");
}

TEST_F(PackageFiles, ConfigurationFilesByExtension) {
  TRNModel pkg = MakePackage();
  const std::string cfg_path = dir.File("net.trcfg");
  ASSERT_TRUE(pkg.config_arr.configs["net"]->cpu_sse->ToFile(cfg_path.c_str(), "bin"));
  TRModelCfg cfg;
  ASSERT_TRUE(cfg.FromFile(cfg_path.c_str()));
  EXPECT_EQ(testing::CompactJson(cfg), testing::CompactJson(*pkg.config_arr.configs["net"]->cpu_sse));
  const std::string cfgs_path = dir.File("all.trcfgs");
  ASSERT_TRUE(pkg.config_arr.ToFile(cfgs_path.c_str(), "bin"));
  TRModelMultiBackendCfgsArr arr;
  ASSERT_TRUE(arr.FromFile(cfgs_path.c_str()));
  EXPECT_EQ(testing::CompactJson(arr), testing::CompactJson(pkg.config_arr));
  EXPECT_EQ(arr.configs["net"]->Get("cpu_avx")->layers["mul"]->kernel.kernels["0"]->kernel_type,
            "Elementwise_Mul_AVX_Float_M1");
  EXPECT_EQ(arr.configs["net"]->Get("gpu_vulkan"), nullptr);
}

TEST_F(PackageFiles, EveryTruncationOfAPackageThrows) {
  TRNModel pkg = MakePackage();
  const std::string path = dir.File("p.trnmodel");
  ASSERT_TRUE(pkg.ToFile(path.c_str(), "bin"));
  const auto bytes = testing::ReadAll(path);
  for (size_t cut = 0; cut < bytes.size(); cut += 7) {
    testing::WriteAll(path, std::vector<unsigned char>(bytes.begin(), bytes.begin() + cut));
    TRNModel back;
    EXPECT_NE(testing::ThrownMessage([&] { back.FromFile(path.c_str(), "bin"); }), "") << cut;
  }
}

#ifdef TRN_MODEL_TOOL
TEST_F(PackageFiles, ToolConvertsAndSummarises) {
  TRNModel pkg = MakePackage();
  const std::string json = dir.File("p.json"), bin = dir.File("p.trnmodel"), back = dir.File("back.json");
  ASSERT_TRUE(pkg.ToFile(json.c_str(), "json"));
  const std::string tool = TRN_MODEL_TOOL;
  ASSERT_EQ(std::system((tool + " convert " + json + " " + bin + " > /dev/null").c_str()), 0);
  ASSERT_EQ(std::system((tool + " convert " + bin + " " + back + " > /dev/null").c_str()), 0);
  TRNModel read;
  ASSERT_TRUE(read.FromFile(back.c_str()));
  EXPECT_EQ(testing::CompactJson(read), testing::CompactJson(pkg));
  const std::string summary = dir.File("summary.txt");
  ASSERT_EQ(std::system((tool + " summary " + bin + " > " + summary).c_str()), 0);
  const auto bytes = testing::ReadAll(summary);
  const std::string text(bytes.begin(), bytes.end());
  EXPECT_NE(text.find("package for cpu_sse, core 1.0, sdk 3.2, 1 networks"), std::string::npos) << text;
  EXPECT_NE(text.find("[1] conv  Conv2dInfo (type 2 Conv2d)  inputs: data"), std::string::npos) << text;
  EXPECT_NE(text.find("net / cpu_avx"), std::string::npos) << text;
  EXPECT_NE(std::system((tool + " summary " + dir.File("missing.trmod") + " 2> /dev/null").c_str()), 0);
  EXPECT_NE(std::system((tool + " convert " + json + " " + dir.File("x.trmod") + " 2> /dev/null").c_str()), 0)
      << "a package is not a model";
}
#endif

}  // namespace
}  // namespace tarn
