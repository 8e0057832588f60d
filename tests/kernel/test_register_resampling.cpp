// The normalisation, upsampling, softmax, clip, grid-sampling, adaptive max
// pooling and quantisation-trained convolution kernels: each family's
// function registers them under their class names, the configuration factory
// names one for every such record in every family, a net of them runs and
// every family gives the portable family's numbers, and a record that does not
// fit its input fails the forward pass with the layer and the reason logged.
#include <gtest/gtest.h>

#include <utility>
#include <string>
#include <vector>

#include "kernel/cpu/resampling_test_util.h"
#include "tarn/kernel/register.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/model_info.h"
#include "tarn/runtime/net.h"
#include "tarn/utility/model_loader.h"

namespace tarn {
namespace testing {
namespace {

TEST(ResamplingRegistration, EachFamilyRegistersItsMembers) {
  struct Family {
    void (*reg)(runtime::KernelRegistry&);
    std::vector<std::string> names;
  };
  const Family families[] = {
      {kernel::RegisterFallback,
       {"BatchNorm2D_Fallback_CHW_Float_M1", "BatchNorm1D_Fallback_CL_Float_M1", "InstanceNorm2D_Fallback_CHW_Float_M1",
        "Upsampling2D_Fallback_CHW_Float_M1", "Softmax_Fallback_Float_M1", "Clip_Fallback_Float_M1",
        "GridSample_Fallback_CHW_Float_M1", "AdaptivePooling2D_Max_Fallback_CHW_Float_M1",
        "SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
        "SQFCConv2DFoldedBN_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"}},
      {kernel::RegisterSSE,
       {"BatchNorm2D_SSE_CHW_Float_M1", "BatchNorm2D_SSE_C4HW4_Float_M1", "InstanceNorm2D_SSE_CHW_Float_M1",
        "Upsampling2D_SSE_CHW_Float_M1", "Upsampling2D_SSE_C4HW4_Float_M1", "Softmax_SSE_Float_M1",
        "Clip_SSE_Float_M1"}},
      {kernel::RegisterAVX,
       {"BatchNorm2D_AVX_CHW_Float_M1", "BatchNorm2D_AVX_C8HW8_Float_M1", "InstanceNorm2D_AVX_CHW_Float_M1",
        "Upsampling2D_AVX_CHW_Float_M1", "Upsampling2D_AVX_C8HW8_Float_M1", "Softmax_AVX_Float_M1",
        "Clip_AVX_Float_M1", "GridSample_AVX_C8HW8_Float_M1"}},
  };
  for (const auto& family : families) {
    runtime::KernelRegistry registry;
    family.reg(registry);
    for (const auto& name : family.names) {
      auto k = registry.Create(name);
      ASSERT_NE(k, nullptr) << name;
      // Names, record checks and configuration run in baseline code: this
      // holds on any processor, whatever the family.
      EXPECT_EQ(k->GetName(), name);
      EXPECT_FALSE(k->IsConfiged()) << name;
      EXPECT_EQ(k->IsValidParam(std::make_shared<runtime::InputInfo>(), nullptr), kernel::kInvalidParam) << name;
    }
  }
}

// A model with one layer of each record type, fed by an image [3, 6, 5], a
// grid [4, 3, 2] and a signal [2, 7].
class ResamplingNet {
 public:
  ResamplingNet() : model(std::make_shared<runtime::TRModelInfo>()) {
    Add(std::make_shared<runtime::InputInfo>(), "image", {});
    Add(std::make_shared<runtime::InputInfo>(), "grid", {});
    Add(std::make_shared<runtime::InputInfo>(), "signal", {});
    Add(BatchNormRecord<runtime::BatchNorm2dInfo>({0.1f, -0.2f, 0.3f}, {1, 2, 0.5f}, {1.5f, 1, -1}, {0, 0.5f, 1}, 1e-5f),
        "bn", {"image"});
    Add(InstanceNormRecord(3, {1, 2, 3}, {-1, 0, 1}, 1e-5f), "in", {"bn"});
    Add(UpsampleRecord(2.0f, 1.5f, true, false), "up", {"in"});
    Add(ClipRecord(-1.0f, 1.5f), "clip", {"up"});
    auto pool = std::make_shared<runtime::AdaptiveMaxPool2dInfo>();
    pool->output_size = {4, 3};
    Add(pool, "pool", {"clip"});
    Add(SoftmaxRecord(0), "softmax", {"pool"});
    Add(GridSampleRecord(0, 2, false), "sample", {"image", "grid"});
    auto sqfc = std::make_shared<runtime::SQFCConv2dInfo>();
    Pointwise(*sqfc);
    Add(sqfc, "sqfc", {"image"});
    auto folded = std::make_shared<runtime::SQFCConv2dFoldedBNInfo>();
    Pointwise(*folded);
    folded->mean = runtime::EncodeWeights({0.5f, -0.5f});
    folded->variance = runtime::EncodeWeights({2, 0.5f});
    folded->if_affine = false;
    Add(folded, "sqfc_bn", {"image"});
    auto bn1 = BatchNormRecord<runtime::BatchNorm1dInfo>({0, 1}, {1, 4}, {}, {}, 0.0f);
    Add(bn1, "bn1d", {"signal"});
  }

  // A 1x1 convolution of 3 to 2 channels on 8-bit grids.
  static void Pointwise(runtime::SQFCConv2dInfo& r) {
    r.in_channels = 3, r.out_channels = 2, r.kernel_x = r.kernel_y = 1;
    r.weight = runtime::EncodeWeights({0.5f, -0.25f, 1, 0.75f, 0.125f, -1});
    r.w_clip = 1, r.w_qbit = 8, r.a_clip = 4, r.a_qbit = 8;
  }

  void Add(runtime::LayerInfoPtr layer, const std::string& id, std::vector<std::string> inputs) {
    layer->id = id;
    layer->input_ids = std::move(inputs);
    model->squential_ids.push_back(id);
    model->squential_types.push_back(layer->type);
    model->layers[id] = layer;
  }

  std::shared_ptr<runtime::TRModelInfo> model;
};

TEST(ResamplingConfig, EveryFamilyNamesAKernelAndAgreesWithThePortableFamily) {
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  auto ctx = ElementContext();
  const runtime::CPUDeviceInfo cpu = runtime::DetectCPUDevice();
  ResamplingNet recipe;
  auto image = MakeTensor(ctx, {3, 6, 5}, TestValues(90, -2.0f, 2.0f, 1));
  auto grid = MakeTensor(ctx, {4, 3, 2}, TestValues(24, -1.2f, 1.2f, 2));
  auto signal = MakeTensor(ctx, {2, 7}, TestValues(14, -2.0f, 2.0f, 3));
  std::vector<std::uint32_t> outputs;
  for (std::uint32_t i = 3; i < recipe.model->squential_ids.size(); ++i) outputs.push_back(i);
  // The kernel each family's configuration names, by layer; the portable family first.
  const std::vector<std::pair<std::string, std::vector<std::string>>> expected = {
      {"Fallback",
       {"BatchNorm2D_Fallback_CHW_Float_M1", "InstanceNorm2D_Fallback_CHW_Float_M1",
        "Upsampling2D_Fallback_CHW_Float_M1", "Clip_Fallback_Float_M1", "AdaptivePooling2D_Max_Fallback_CHW_Float_M1",
        "Softmax_Fallback_Float_M1", "GridSample_Fallback_CHW_Float_M1",
        "SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
        "SQFCConv2DFoldedBN_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", "BatchNorm1D_Fallback_CL_Float_M1"}},
      {"SSE",
       {"BatchNorm2D_SSE_CHW_Float_M1", "InstanceNorm2D_SSE_CHW_Float_M1", "Upsampling2D_SSE_CHW_Float_M1",
        "Clip_SSE_Float_M1", "AdaptivePooling2D_Max_Fallback_CHW_Float_M1", "Softmax_SSE_Float_M1",
        "GridSample_Fallback_CHW_Float_M1", "SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
        "SQFCConv2DFoldedBN_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", "BatchNorm1D_Fallback_CL_Float_M1"}},
      {"AVX",
       {"BatchNorm2D_AVX_CHW_Float_M1", "InstanceNorm2D_AVX_CHW_Float_M1", "Upsampling2D_AVX_CHW_Float_M1",
        "Clip_AVX_Float_M1", "AdaptivePooling2D_Max_Fallback_CHW_Float_M1", "Softmax_AVX_Float_M1",
        "GridSample_Fallback_CHW_Float_M1", "SQFCConv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
        "SQFCConv2DFoldedBN_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", "BatchNorm1D_Fallback_CL_Float_M1"}},
  };
  runtime::OutputMap portable;
  for (const auto& [family, names] : expected) {
    auto cfg = runtime::CreateCfg(*recipe.model, family);
    ASSERT_TRUE(cfg);
    for (size_t i = 0; i < names.size(); ++i) {
      const std::string& id = recipe.model->squential_ids[i + 3];
      ASSERT_TRUE(cfg->config[id].kernel) << family << " " << id;
      EXPECT_EQ(cfg->config[id].kernel->kernel_type, names[i]) << family << " " << id;
    }
    if ((family == "SSE" && !cpu.CanRunSSEKernels()) || (family == "AVX" && !cpu.CanRunAVXKernels())) continue;
    auto net = runtime::CreateNet(recipe.model, cfg, kernels, ctx);
    ASSERT_TRUE(net) << family;
    auto out = net->Forward({{0, image}, {1, grid}, {2, signal}}, outputs, ctx);
    ASSERT_EQ(out.size(), outputs.size()) << family;
    if (family == "Fallback") {
      portable = out;
      EXPECT_EQ(out[8][0]->shape.dims, (std::vector<unsigned>{3, 4, 3}));  // softmax of the pooled map
      EXPECT_EQ(out[9][0]->shape.dims, (std::vector<unsigned>{3, 4, 3}));  // grid sample
      EXPECT_EQ(out[11][0]->shape.dims, (std::vector<unsigned>{2, 6, 5}));  // folded SQFC
      EXPECT_EQ(out[12][0]->shape.dims, (std::vector<unsigned>{2, 7}));
      continue;
    }
    for (std::uint32_t i : outputs) {
      // Statistics and exponentials may differ in the last bits.
      EXPECT_TRUE(Near(Values(out[i][0]), Values(portable[i][0]), 4e-6f)) << family << " layer " << i;
    }
  }
}

TEST(ResamplingConfig, ARecordThatDoesNotFitFailsTheForwardPassWithTheLayerAndTheReason) {
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(kernels, params);
  auto ctx = ElementContext();
  ResamplingNet recipe;
  std::static_pointer_cast<runtime::SoftmaxInfo>(recipe.model->layers["softmax"])->dim = 5;
  auto net = runtime::CreateNet(recipe.model, runtime::CreateCfg(*recipe.model, "Fallback"), kernels, ctx);
  ASSERT_TRUE(net);
  auto signal = MakeTensor(ctx, {2, 7}, {});
  LogCapture log(utility::kLogError);
  auto out = net->Forward({{0, MakeTensor(ctx, {3, 6, 5}, {})}, {1, MakeTensor(ctx, {4, 3, 2}, {})}, {2, signal}}, {8}, ctx);
  EXPECT_TRUE(out.empty());
  EXPECT_TRUE(log.Contains("Softmax_Fallback_Float_M1: \"dim\" is not below the input's rank (dim 5, rank 3)"));
  EXPECT_TRUE(log.Contains("Invalid input of layer <softmax>"));
  // A grid of the wrong shape: the layer and the reason again.
  std::static_pointer_cast<runtime::SoftmaxInfo>(recipe.model->layers["softmax"])->dim = 0;
  net = runtime::CreateNet(recipe.model, runtime::CreateCfg(*recipe.model, "Fallback"), kernels, ctx);
  LogCapture log2(utility::kLogError);
  out = net->Forward({{0, MakeTensor(ctx, {3, 6, 5}, {})}, {1, MakeTensor(ctx, {4, 3, 3}, {})}, {2, signal}}, {9}, ctx);
  EXPECT_TRUE(out.empty());
  EXPECT_TRUE(log2.Contains("the grid is not a plain tensor [H_out, W_out, 2]"));
  EXPECT_TRUE(log2.Contains("Invalid input of layer <sample>"));
  // A record refused at configuration leaves no net.
  std::static_pointer_cast<runtime::Upsample2dInfo>(recipe.model->layers["up"])->scale_factor_x = NAN;
  LogCapture log3(utility::kLogError);
  EXPECT_NE(ThrownMessage([&] { runtime::CreateNet(recipe.model, runtime::CreateCfg(*recipe.model, "SSE"), kernels, ctx); }),
            "");
  EXPECT_TRUE(log3.Contains("a scale factor is not a finite value > 0"));
}

}  // namespace
}  // namespace testing
}  // namespace tarn
