// Kernel planning: the constraints of the kernel families, layouts and their
// converters, the families of each target, and how a newly registered kernel
// widens what converts.
#include <algorithm>

#include "convert/convert_test_util.h"
#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace testing {
namespace {

using convert::Layout;
using convert::Target;

const convert::PlannedLayer* LayerOf(const convert::Plan& plan, const std::string& op) {
  for (const auto& l : plan.layers) {
    if (l.op == op) return &l;
  }
  return nullptr;
}

// conv (C -> C channels, 3x3, pad 1) -> pooling node -> output.
std::string ConvThenPool(std::int64_t channels, const std::string& pool, std::int64_t k, std::int64_t s,
                         std::int64_t pad) {
  OnnxBuilder b;
  const std::int64_t out = (12 + 2 * pad - k) / s + 1;
  b.Input("x", {1, channels, 12, 12}).Weight("w", {channels, channels, 3, 3}).Output("y", {1, channels, out, out});
  auto* conv = b.Node("Conv", {"x", "w"}, {"c"});
  OnnxBuilder::Attr(conv, "pads", std::vector<std::int64_t>{1, 1, 1, 1});
  auto* p = b.Node(pool, {"c"}, {"y"});
  OnnxBuilder::Attr(p, "kernel_shape", std::vector<std::int64_t>{k, k});
  OnnxBuilder::Attr(p, "strides", std::vector<std::int64_t>{s, s});
  OnnxBuilder::Attr(p, "pads", std::vector<std::int64_t>{pad, pad, pad, pad});
  return b.Bytes();
}

struct PoolCase {
  const char* op;
  int k, s, pad;
  Target target;
  const char* kernel;  // the kernel the pooling layer must get
};

class PoolPlanning : public ::testing::TestWithParam<PoolCase> {};

// Fixed-size pooling kernels read the unpadded input: a padded window always
// falls back to the general kernel, an unpadded one gets the fixed member of
// the chain's layout.
TEST_P(PoolPlanning, FixedSizeKernelsOnlyWithoutPadding) {
  const PoolCase& c = GetParam();
  convert::ConvertResult r;
  convert::ConvertOptions options = OptionsFor(c.target);
  options.verify = CanRun(c.target);
  ASSERT_TRUE(Convert(ConvThenPool(16, c.op, c.k, c.s, c.pad), options, &r)) << convert::FormatProblems(r.problems);
  const convert::PlannedLayer* pool = LayerOf(r.plan, c.op);
  ASSERT_NE(pool, nullptr);
  EXPECT_EQ(pool->kernel, c.kernel) << convert::PlanTable(r.plan);
}

INSTANTIATE_TEST_SUITE_P(
    Pools, PoolPlanning,
    ::testing::Values(PoolCase{"MaxPool", 3, 2, 1, Target::kAVX, "Pooling2D_Max_Fallback_Float_M1"},
                      PoolCase{"MaxPool", 3, 2, 1, Target::kSSE, "Pooling2D_Max_Fallback_Float_M1"},
                      PoolCase{"MaxPool", 3, 2, 0, Target::kAVX, "Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1"},
                      PoolCase{"MaxPool", 3, 2, 0, Target::kSSE, "Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1"},
                      PoolCase{"MaxPool", 2, 2, 0, Target::kFallback, "Pooling2D_Max_Fallback_Float_M1"},
                      PoolCase{"AveragePool", 2, 2, 1, Target::kAVX, "Pooling2D_Avg_Fallback_Float_M1"},
                      PoolCase{"AveragePool", 2, 2, 0, Target::kAVX, "Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1"},
                      PoolCase{"AveragePool", 4, 4, 0, Target::kSSE, "Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1"}));

bool HasFamily(const std::string& kernel, const char* family) {
  return kernel.find(std::string("_") + family + "_") != std::string::npos;
}

class TargetFamilies : public ::testing::TestWithParam<std::tuple<std::string, Target>> {};

// A plan only names kernels (and converters) of the target's families.
TEST_P(TargetFamilies, PlanStaysWithinTheTarget) {
  OnnxFixture f;
  ASSERT_TRUE(LoadFixture(std::get<0>(GetParam()), &f));
  const Target target = std::get<1>(GetParam());
  convert::ConvertOptions options = OptionsFor(target);
  options.verify = false;
  convert::ConvertResult r;
  ASSERT_TRUE(Convert(f.onnx, options, &r)) << convert::FormatProblems(r.problems);
  for (const auto& l : r.plan.layers) {
    std::vector<std::string> names = l.input_converters;
    names.insert(names.end(), l.output_converters.begin(), l.output_converters.end());
    names.push_back(l.kernel);
    for (const std::string& k : names) {
      if (target == Target::kFallback) {
        EXPECT_FALSE(HasFamily(k, "SSE") || HasFamily(k, "AVX")) << k;
      }
      if (target == Target::kSSE) {
        EXPECT_FALSE(HasFamily(k, "AVX")) << k;
      }
    }
  }
  if (target == Target::kFallback) {
    EXPECT_EQ(r.plan.blocked, Layout::kPlanar);
  }
  EXPECT_EQ(r.package->sdk_type, target == Target::kAVX ? "cpu_avx" : "cpu_sse");
}

INSTANTIATE_TEST_SUITE_P(Architectures, TargetFamilies,
                         ::testing::Combine(::testing::Values("arch_resnet", "arch_mobilenetv2"),
                                            ::testing::Values(Target::kFallback, Target::kSSE, Target::kAVX)));

// conv (3 -> C) -> relu -> conv (C -> C) -> output.
std::string TwoConvs(std::int64_t channels, std::int64_t in_channels = 3) {
  OnnxBuilder b;
  b.Input("x", {1, in_channels, 10, 10}).Weight("w1", {channels, in_channels, 3, 3}).Weight("w2", {channels, channels, 3, 3});
  b.Output("y", {1, channels, 6, 6});
  b.Node("Conv", {"x", "w1"}, {"a"});
  b.Node("Relu", {"a"}, {"b"});
  b.Node("Conv", {"b", "w2"}, {"y"});
  return b.Bytes();
}

// Blocked chains need whole channel blocks at every tensor: 16 channels run
// blocked on AVX (with converters where the chain meets planar tensors), 12
// channels stay planar, and a 3-channel image input is never blocked.
TEST(LayoutPlanning, BlockedOnlyWithWholeChannelBlocks) {
  convert::ConvertOptions options = OptionsFor(Target::kAVX);
  options.verify = CanRun(Target::kAVX);
  convert::ConvertResult r16, r12, in16;
  ASSERT_TRUE(Convert(TwoConvs(16), options, &r16)) << convert::FormatProblems(r16.problems);
  ASSERT_TRUE(Convert(TwoConvs(12), options, &r12)) << convert::FormatProblems(r12.problems);
  ASSERT_TRUE(Convert(TwoConvs(16, 16), options, &in16)) << convert::FormatProblems(in16.problems);

  EXPECT_EQ(r16.plan.layers[0].out, Layout::kPlanar) << "a 3-channel input is not blocked";
  EXPECT_EQ(r16.plan.layers.back().out, Layout::kC8HW8);
  ASSERT_EQ(r16.plan.layers.back().output_converters.size(), 1u) << "a blocked output is delivered planar";
  EXPECT_NE(r16.plan.layers.back().output_converters[0].find("C8HW8_Float_To_CHW"), std::string::npos);

  for (const auto& l : r12.plan.layers) {
    EXPECT_EQ(l.in, Layout::kPlanar) << l.id;
    EXPECT_EQ(l.out, Layout::kPlanar) << l.id;
    EXPECT_TRUE(l.input_converters.empty() && l.output_converters.empty()) << l.id;
  }

  // A 16-channel input joins the chain through a converter on the input layer.
  ASSERT_EQ(in16.plan.layers[0].input_converters.size(), 1u);
  EXPECT_NE(in16.plan.layers[0].input_converters[0].find("CHW_Float_To_C8HW8"), std::string::npos);
  EXPECT_EQ(in16.plan.layers[1].in, Layout::kC8HW8);
}

// A fire module: squeeze 1x1 (16 -> 8) -> relu, expanded by a 1x1 (8 -> 8)
// and a 3x3 (8 -> 16) branch, concatenated (24 channels) and read by a 3x3.
std::string FireModule() {
  OnnxBuilder b;
  b.Input("x", {1, 16, 10, 10}).Weight("ws", {8, 16, 1, 1}, -0.05f).Weight("w1", {8, 8, 1, 1}, -0.03f);
  b.Weight("w3", {16, 8, 3, 3}, -0.04f).Weight("wo", {16, 24, 3, 3}, -0.03f).Output("y", {1, 16, 10, 10});
  b.Node("Conv", {"x", "ws"}, {"s"});
  b.Node("Relu", {"s"}, {"sr"});
  b.Node("Conv", {"sr", "w1"}, {"e1"});
  auto* e3 = b.Node("Conv", {"sr", "w3"}, {"e3"});
  OnnxBuilder::Attr(e3, "pads", std::vector<std::int64_t>{1, 1, 1, 1});
  auto* cat = b.Node("Concat", {"e1", "e3"}, {"c"});
  OnnxBuilder::Attr(cat, "axis", std::int64_t(1));
  auto* out = b.Node("Conv", {"c", "wo"}, {"y"});
  OnnxBuilder::Attr(out, "pads", std::vector<std::int64_t>{1, 1, 1, 1});
  return b.Bytes();
}

// A concatenation of blocked branches stays in the chain's layout (the
// planner hands the blocked kernel the branches' channel counts, as the net
// builder does), with no converter inside the chain, and gives the planar
// plan's numbers.
TEST(LayoutPlanning, ConcatenationKeepsTheChainBlocked) {
  if (!CanRun(Target::kAVX)) GTEST_SKIP() << "needs AVX to run the AVX plan";
  convert::ConvertOptions options = OptionsFor(Target::kAVX);
  convert::ConvertResult blocked, planar;
  ASSERT_TRUE(Convert(FireModule(), options, &blocked)) << convert::FormatProblems(blocked.problems);
  options.plan.blocked = Layout::kPlanar;
  ASSERT_TRUE(Convert(FireModule(), options, &planar)) << convert::FormatProblems(planar.problems);

  const convert::PlannedLayer* cat = LayerOf(blocked.plan, "Concat");
  ASSERT_NE(cat, nullptr);
  EXPECT_EQ(cat->in, Layout::kC8HW8) << convert::PlanTable(blocked.plan);
  EXPECT_EQ(cat->kernel, "Concatenate_AVX_C8HW8_Float_M1");
  for (std::size_t k = 1; k < blocked.plan.layers.size(); ++k) {
    EXPECT_TRUE(blocked.plan.layers[k].input_converters.empty()) << blocked.plan.layers[k].id;
  }

  FixtureTensor x{"x", {16, 10, 10}, {}};
  for (int k = 0; k < 1600; ++k) x.data.push_back(static_cast<float>((k * 37) % 101) / 50.0f - 1.0f);
  LoadedPackage a, b;
  ASSERT_TRUE(a.Load(*blocked.package));
  ASSERT_TRUE(b.Load(*planar.package));
  const auto ya = a.Run({x}, blocked.model);
  const auto yb = b.Run({x}, planar.model);
  ASSERT_FALSE(ya.empty());
  ASSERT_FALSE(yb.empty());
  const float* ref = static_cast<const float*>(yb[0]->Data());
  FixtureTensor expected{"y", {16, 10, 10}, std::vector<float>(ref, ref + yb[0]->shape.ElementCount())};
  EXPECT_TRUE(CloseToReference(*ya[0], expected, 1e-5f));
}

// Takes every kernel whose name starts with `prefix` out of a planner's own
// registry, so that a test sees the converter before such kernels exist.
void Unregister(convert::Planner& planner, const std::string& prefix) {
  for (const std::string& name : planner.registry().GetKeys()) {
    if (name.compare(0, prefix.size(), prefix) == 0) planner.registry().Unregister(name);
  }
}

// The general blocked convolutions take one group: a depthwise layer runs
// planar until a depthwise kernel is registered, and its chain with it.
TEST(LayoutPlanning, DepthwiseRunsPlanarWithoutDepthwiseKernels) {
  OnnxBuilder b;
  b.Input("x", {1, 16, 8, 8}).Weight("w", {16, 1, 3, 3}).Output("y", {1, 16, 6, 6});
  auto* conv = b.Node("Conv", {"x", "w"}, {"y"});
  OnnxBuilder::Attr(conv, "group", std::int64_t(16));
  convert::ConvertOptions options = OptionsFor(Target::kAVX);
  options.verify = false;
  convert::Planner planner;
  Unregister(planner, "Depthwise_");
  convert::ConvertResult r;
  const std::string bytes = b.Bytes();
  ASSERT_TRUE(convert::ConvertOnnx(bytes.data(), bytes.size(), options, planner, &r))
      << convert::FormatProblems(r.problems);
  const auto* layer = LayerOf(r.plan, "Conv");
  ASSERT_NE(layer, nullptr);
  EXPECT_EQ(layer->in, Layout::kPlanar);
  EXPECT_NE(layer->kernel.find("_Gn_"), std::string::npos) << layer->kernel;
}

// The SSE sigmoid and tanh use a fast exponential a few percent off: they are
// only planned when approximation is allowed.
TEST(KernelChoice, ApproximateKernelsOnlyWhenAllowed) {
  OnnxFixture f;
  ASSERT_TRUE(LoadFixture("act_sigmoid", &f));
  convert::ConvertOptions options = OptionsFor(Target::kSSE);
  options.verify = false;
  convert::ConvertResult exact, fast;
  ASSERT_TRUE(Convert(f.onnx, options, &exact));
  options.plan.allow_approximate = true;
  ASSERT_TRUE(Convert(f.onnx, options, &fast));
  EXPECT_EQ(LayerOf(exact.plan, "Sigmoid")->kernel, "Sigmoid_Fallback_Float_M1");
  EXPECT_EQ(LayerOf(fast.plan, "Sigmoid")->kernel, "Sigmoid_SSE_Float_M1");
}

// The in-place ReLU only overwrites a fresh tensor that nothing else reads.
TEST(KernelChoice, InPlaceOnlyOnUnsharedFreshTensors) {
  OnnxBuilder single, shared;
  for (OnnxBuilder* b : {&single, &shared}) {
    b->Input("x", {1, 4, 6, 6}).Weight("w", {4, 4, 1, 1}).Output("y", {1, 4, 6, 6});
    b->Node("Conv", {"x", "w"}, {"c"});
  }
  single.Node("Relu", {"c"}, {"y"});
  shared.Node("Relu", {"c"}, {"r"});
  shared.Node("Add", {"r", "c"}, {"y"});
  convert::ConvertOptions options = OptionsFor(Target::kSSE);
  options.verify = CanRun(Target::kSSE);
  convert::ConvertResult a, b;
  ASSERT_TRUE(Convert(single.Bytes(), options, &a)) << convert::FormatProblems(a.problems);
  ASSERT_TRUE(Convert(shared.Bytes(), options, &b)) << convert::FormatProblems(b.problems);
  EXPECT_EQ(LayerOf(a.plan, "Relu")->kernel, "ReLU_Inplace_SSE_Float_M1");
  EXPECT_NE(LayerOf(b.plan, "Relu")->kernel, "ReLU_Inplace_SSE_Float_M1");
}

// A layer without a registered kernel names the kernels it waits for.
TEST(KernelChoice, MissingKernelIsNamed) {
  OnnxFixture f;
  ASSERT_TRUE(LoadFixture("batchnorm", &f));
  convert::Planner planner;
  Unregister(planner, "BatchNorm2D_");
  convert::ConvertResult r;
  ASSERT_FALSE(convert::ConvertOnnx(f.onnx.data(), f.onnx.size(), OptionsFor(Target::kFallback), planner, &r));
  ASSERT_EQ(r.problems.size(), 1u);
  EXPECT_EQ(r.problems[0].op, "BatchNormalization");
  EXPECT_NE(r.problems[0].message.find("BatchNorm2dInfo"), std::string::npos) << r.problems[0].message;
  EXPECT_NE(r.problems[0].message.find("waits for BatchNorm2d_*"), std::string::npos) << r.problems[0].message;
}

// A reshape kernel registered under the operation word is found and used: the
// planner widens with the registry, without a change to the converter.
class TestReshapeKernel : public kernel::KernelBase {
 public:
  TRN_KERNEL_NAME(TensorReshape_Fallback_Float_M1)
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam>) const override {
    return std::dynamic_pointer_cast<runtime::TensorReshapeInfo>(layer) ? 0 : -1;
  }
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context>) override {
    if (IsValidParam(layer, param) != 0) return false;
    shape_ = std::static_pointer_cast<runtime::TensorReshapeInfo>(layer)->new_shape;
    return configured_ = true;
  }
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override {
    if (inputs.size() != 1) return {};
    std::vector<unsigned> dims(shape_.begin(), shape_.end());
    runtime::TensorShape out = inputs[0];
    out.dims = dims;
    return out.ElementCount() == inputs[0].ElementCount() ? std::vector<runtime::TensorShape>{out}
                                                           : std::vector<runtime::TensorShape>{};
  }
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs, std::shared_ptr<runtime::Context> ctx) const override {
    auto out = ctx->cpu->CreateTensor(GetOutputShapes({inputs[0]->shape})[0], inputs[0]->Data());
    outputs.assign(1, out);
    return true;
  }

 private:
  std::vector<short> shape_;
};

TEST(KernelChoice, NewlyRegisteredFamilyWidensTheConverter) {
  OnnxFixture f;
  ASSERT_TRUE(LoadFixture("reshape", &f));
  convert::Planner planner;  // a registry of its own, without the reshape kernels
  Unregister(planner, "TensorReshape_");
  convert::ConvertResult before, after;
  ASSERT_FALSE(convert::ConvertOnnx(f.onnx.data(), f.onnx.size(), OptionsFor(Target::kFallback), planner, &before));
  planner.registry().Register("TensorReshape_Fallback_Float_M1", [] { return std::make_shared<TestReshapeKernel>(); },
                              false);
  ASSERT_TRUE(convert::ConvertOnnx(f.onnx.data(), f.onnx.size(), OptionsFor(Target::kFallback), planner, &after))
      << convert::FormatProblems(after.problems);
  EXPECT_TRUE(after.verified);
  const auto* layer = LayerOf(after.plan, "Reshape");
  ASSERT_NE(layer, nullptr);
  EXPECT_EQ(layer->kernel, "TensorReshape_Fallback_Float_M1");
}

// Tuning times the candidates here and says so.
TEST(KernelChoice, TuningMeasuresCandidates) {
  if (!CanRun(Target::kAVX)) GTEST_SKIP() << "needs AVX to tune the AVX target";
  convert::ConvertOptions options = OptionsFor(Target::kAVX);
  options.plan.tune = true;
  options.plan.tune_runs = 2;
  options.plan.tune_ms = 0.5;
  convert::ConvertResult r;
  ASSERT_TRUE(Convert(TwoConvs(16), options, &r)) << convert::FormatProblems(r.problems);
  EXPECT_GT(r.plan.net_ms, 0.0);
  const auto* conv = LayerOf(r.plan, "Conv");
  ASSERT_NE(conv, nullptr);
  EXPECT_GE(conv->ms, 0.0);
  EXPECT_NE(conv->why.find("fastest of"), std::string::npos) << conv->why;
  const std::string table = convert::PlanTable(r.plan);
  EXPECT_NE(table.find("layout "), std::string::npos) << table;  // the whole-net variants
}

// The kernel table knows the members that have not landed yet, with their
// constraints: the image-stem members take exactly three input channels.
TEST(KernelTable, KnowsTheStemMembersAndTheirChannels) {
  int stems = 0;
  runtime::Conv2dInfo three, four;
  three.in_channels = 3;
  four.in_channels = 4;
  for (auto* info : {&three, &four}) {
    info->out_channels = 8;
    info->kernel_x = info->kernel_y = 3;
  }
  for (const convert::KernelRule* r : convert::RulesFor(runtime::LAYER_CONV2D)) {
    if (r->name.find("_3In_") == std::string::npos) continue;
    ++stems;
    convert::LayerQuery q;
    q.record = &three;
    EXPECT_EQ(r->constraint(q), "") << r->name;
    q.record = &four;
    EXPECT_NE(r->constraint(q), "") << r->name;
    EXPECT_EQ(r->in, Layout::kPlanar);
    EXPECT_NE(r->out, Layout::kPlanar);
  }
  EXPECT_EQ(stems, 3);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
