#include <gtest/gtest.h>

#include <stdexcept>

#include "runtime/net_fixture.h"
#include "runtime/test_kernels.h"
#include "tarn/utility/model_loader.h"
#include "test_util.h"

namespace tarn {
namespace {

using namespace runtime;
using utility::_NetworkPackage;
using utility::_TRNModelVerInfo;
using testing::FloatTensor;
using testing::NetRecipe;
using testing::Values;

TEST(CoreVersion, IsOnePointZero) {
  unsigned major = 7, minor = 7;
  EXPECT_EQ(TRN_Get_Core_Version(major, minor), 0);
  EXPECT_EQ(major, 1u);
  EXPECT_EQ(minor, 0u);
}

TEST(RegisterOperators, FillsBothRegistries) {
  KernelRegistry kernels;
  InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  EXPECT_NE(kernels.Create("Input_Fallback_M1"), nullptr);
  EXPECT_NE(params.Create("InferenceParamConv2DQuant"), nullptr);
  EXPECT_NE(params.Create("InferenceParamUpsampling2DQuant"), nullptr);
  EXPECT_EQ(kernels.Create("input_Fallback_M1"), nullptr);
  // Every registered name is its kernel's own name.
  for (const std::string& name : kernels.GetKeys()) EXPECT_EQ(kernels.Create(name)->GetName(), name);
  for (const std::string& name : kernels.GetKeys()) EXPECT_FALSE(kernels.Create(name)->IsConfiged()) << name;
}

TEST(CreateContext, MakesTheCpuDeviceOnly) {
  std::shared_ptr<Context> ctx = std::make_shared<Context>();
  auto before = ctx;
  utility::create_context(ctx, 32);
  EXPECT_NE(ctx, before);
  ASSERT_NE(ctx->cpu, nullptr);
  EXPECT_NE(ctx->cpu->pool(), ctx->cpu->dynamic_pool());
  EXPECT_EQ(ctx->profiler, nullptr);
  EXPECT_EQ(ctx->opengl, nullptr);
}

_TRNModelVerInfo Version(const std::string& type, unsigned short cmaj, unsigned short cmin, unsigned short smaj,
                         unsigned short smin) {
  _TRNModelVerInfo v;
  v.sdk_type = type;
  v.core_major_ver = cmaj;
  v.core_minor_ver = cmin;
  v.sdk_major_ver = smaj;
  v.sdk_minor_ver = smin;
  return v;
}

TEST(CheckVersion, EachRule) {
  testing::LogCapture log;
  EXPECT_EQ(utility::check_version("cpu_sse", 3, 2, Version("cpu_sse", 1, 0, 3, 2)), 0);
  EXPECT_EQ(utility::check_version("cpu_sse", 3, 2, Version("cpu_sse", 0, 0, 3, 2)), 0);
  EXPECT_TRUE(log.lines.empty());

  EXPECT_EQ(utility::check_version("cpu_sse", 3, 2, Version("cpu_avx", 1, 0, 3, 2)), -2);
  EXPECT_TRUE(log.Contains("Model type is cpu_avx, can not match sdk type", utility::kLogError));

  for (auto core : {std::make_pair(1, 1), std::make_pair(2, 0), std::make_pair(0, 1)}) {
    log.lines.clear();
    EXPECT_EQ(utility::check_version("cpu_sse", 3, 2, Version("cpu_sse", core.first, core.second, 3, 2)), -2);
    EXPECT_TRUE(log.Contains("trn_core version required by model is larger than actually used!", utility::kLogError));
  }

  log.lines.clear();
  EXPECT_EQ(utility::check_version("cpu_sse", 3, 3, Version("cpu_sse", 1, 0, 3, 2)), -2);
  EXPECT_TRUE(log.Contains("sdk version required by model: 3.2", utility::kLogError));
  EXPECT_TRUE(log.Contains("sdk version used now: 3.3", utility::kLogError));
  EXPECT_EQ(utility::check_version("cpu_sse", 4, 2, Version("cpu_sse", 1, 0, 3, 2)), -2);
}

class LoadModel : public ::testing::Test {
 protected:
  void SetUp() override {
    utility::init_register_operators(kernels, params);
    testing::RegisterTestKernels(kernels);
    utility::create_context(ctx, 64);
  }

  // A package with one network "net": y = 2x + 3x, plus a second input.
  TRNModel Package(const std::string& name = "net", const std::string& scale_kernel = "Test_Scale_M1") {
    NetRecipe recipe;
    recipe.Input("x").Scale("a", "x", 2, scale_kernel).Scale("b", "x", 3).Input("z").Sum("y", {"a", "b", "z"});
    recipe.Outputs({"y", "a"});
    TRNModel pkg;
    pkg.sdk_type = "cpu_sse";
    pkg.sdk_major_ver = 2;
    pkg.sdk_minor_ver = 1;
    pkg.model_arr.squential_ids = {name};
    pkg.model_arr.models[name] = recipe.model;
    auto cfgs = std::make_shared<TRModelMultiBackendCfgs>();
    cfgs->cpu_sse = recipe.cfg;
    pkg.config_arr.squential_ids = {name};
    pkg.config_arr.configs[name] = cfgs;
    return pkg;
  }

  int Load(const std::string& path) {
    return utility::load_model(path, nets, ctx, kernels, params, "cpu_sse", 2, 1);
  }

  KernelRegistry kernels;
  InferenceParamRegistry params;
  std::shared_ptr<Context> ctx;
  std::map<std::string, std::shared_ptr<_NetworkPackage>> nets;
  testing::TempDir dir;
};

TEST_F(LoadModel, EndToEndInBothFormats) {
  for (const char* file : {"pkg.json", "pkg.trnmodel"}) {
    nets.clear();
    const std::string path = dir.File(file);
    ASSERT_TRUE(Package().ToFile(path.c_str(), std::string(file).find(".json") != std::string::npos ? "json" : "bin"));
    ASSERT_EQ(Load(path), 0) << file;
    ASSERT_EQ(nets.size(), 1u);
    auto pkg = nets.at("net");
    ASSERT_NE(pkg->net, nullptr);
    EXPECT_EQ(&pkg->kernel_registry, &kernels);
    EXPECT_EQ(pkg->context, ctx);
    EXPECT_EQ(pkg->output_indices, (std::vector<std::uint32_t>{4, 1}));
    ASSERT_EQ(pkg->input_tensors.size(), 2u);
    EXPECT_TRUE(pkg->input_tensors.count(0) && pkg->input_tensors.count(3));
    EXPECT_EQ(pkg->input_tensors.at(0), nullptr);
    pkg->input_tensors[0] = FloatTensor(ctx, {1, 2});
    pkg->input_tensors[3] = FloatTensor(ctx, {10, 20});
    auto out = pkg->net->Forward(pkg->input_tensors, pkg->output_indices, ctx);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(Values(out[4][0]), (std::vector<float>{15, 30}));
    EXPECT_EQ(Values(out[1][0]), (std::vector<float>{2, 4}));
  }
}

TEST_F(LoadModel, VersionRefusalLeavesNetsUnchanged) {
  TRNModel pkg = Package();
  pkg.sdk_type = "cpu_avx";
  const std::string path = dir.File("avx.json");
  ASSERT_TRUE(pkg.ToFile(path.c_str(), "json"));
  testing::LogCapture log;
  EXPECT_EQ(Load(path), -2);
  EXPECT_TRUE(nets.empty());
  EXPECT_TRUE(log.Contains("Model type is cpu_avx, can not match sdk type"));
}

TEST_F(LoadModel, UnknownEndingsAndShortPaths) {
  testing::LogCapture log;
  const std::string upper = dir.File("pkg.JSON");
  ASSERT_TRUE(Package().ToFile(upper.c_str(), "json"));
  EXPECT_EQ(Load(upper), -2);
  EXPECT_TRUE(log.Contains("Unknow file type, file path: " + upper + ".", utility::kLogError));
  EXPECT_THROW(Load("a.b"), std::out_of_range) << "shorter than the ending it is compared with";
}

TEST_F(LoadModel, UnreadableAndCorruptPackagesGiveMinusTwo) {
  EXPECT_EQ(Load(dir.File("missing.trnmodel")), -2);
  EXPECT_EQ(Load(dir.File("missing.json")), -2);
  const std::string json = dir.File("bad.json");
  testing::WriteAll(json, {'{', '"', 's'});
  EXPECT_EQ(Load(json), -2);
  const std::string bin = dir.File("pkg.trnmodel");
  ASSERT_TRUE(Package().ToFile(bin.c_str(), "bin"));
  const auto bytes = testing::ReadAll(bin);
  for (size_t cut : {size_t(0), size_t(3), size_t(40), bytes.size() / 2, bytes.size() - 1}) {
    testing::WriteAll(bin, std::vector<unsigned char>(bytes.begin(), bytes.begin() + cut));
    EXPECT_EQ(Load(bin), -2) << cut;
  }
  auto corrupt = bytes;
  corrupt[11] = 0xFF;  // the top byte of the length of "sdk_type": a huge count
  testing::WriteAll(bin, corrupt);
  EXPECT_EQ(Load(bin), -2);
  EXPECT_TRUE(nets.empty());
}

TEST_F(LoadModel, EmptyPackageAndSameNameTwice) {
  TRNModel empty;
  empty.sdk_type = "cpu_sse";
  empty.sdk_major_ver = 2;
  empty.sdk_minor_ver = 1;
  const std::string e = dir.File("empty.json");
  ASSERT_TRUE(empty.ToFile(e.c_str(), "json"));
  EXPECT_EQ(Load(e), 0);
  EXPECT_TRUE(nets.empty());

  const std::string first = dir.File("first.json"), second = dir.File("second.json");
  ASSERT_TRUE(Package().ToFile(first.c_str(), "json"));
  ASSERT_TRUE(Package("net", "Test_Offset_M1").ToFile(second.c_str(), "json"));
  ASSERT_EQ(Load(first), 0);
  auto kept = nets.at("net");
  ASSERT_EQ(Load(second), 0);
  EXPECT_EQ(nets.at("net"), kept) << "the network loaded first stays";
  ASSERT_TRUE(Package("other").ToFile(second.c_str(), "json"));
  ASSERT_EQ(Load(second), 0);
  EXPECT_EQ(nets.size(), 2u);
}

TEST_F(LoadModel, ANetThatCannotBeBuiltIsStillInserted) {
  const std::string path = dir.File("nope.json");
  ASSERT_TRUE(Package("net", "Nope_Fallback_M1").ToFile(path.c_str(), "json"));
  testing::LogCapture log;
  EXPECT_EQ(Load(path), 0);
  ASSERT_EQ(nets.count("net"), 1u);
  EXPECT_EQ(nets.at("net")->net, nullptr);
  EXPECT_TRUE(log.Contains("Create Kernel >> Nope_Fallback_M1 >> nullptr"));
}

TEST_F(LoadModel, SingleNetChoosesTheConfigurationByPlatform) {
  TRNModel pkg = Package();
  auto model = pkg.model_arr.models["net"];
  auto cfgs = pkg.config_arr.configs["net"];
  for (const char* platform : {"arm", "metal", "gpu"}) {
    auto p = std::make_shared<_NetworkPackage>(kernels, params, ctx);
    utility::Load_Single_Net(p, model, cfgs, platform);
    EXPECT_EQ(p->net, nullptr) << platform << ": no configuration, so no kernels";
  }
  cfgs->gpu_metal = cfgs->cpu_sse;
  cfgs->gpu_metal->summary = "metal";
  auto p = std::make_shared<_NetworkPackage>(kernels, params, ctx);
  utility::Load_Single_Net(p, model, cfgs, "metal");
  EXPECT_NE(p->net, nullptr);
  model->extra_info.model_id = 42;
  utility::Load_Single_Net(p, model, cfgs, "x86");
  EXPECT_EQ(p->extra_info.model_id, 42u);
}

}  // namespace
}  // namespace tarn
