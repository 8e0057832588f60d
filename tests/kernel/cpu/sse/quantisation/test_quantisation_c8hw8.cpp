// The C8HW8 quantisation converters against a scalar reference, bit for bit,
// over every pixel tail, rounding ties, saturation, NaN and infinities; their
// refusals; and a whole net in which they wrap the 16-bit convolution:
// float CHW -> C8HW8 -> 16-bit -> 1x1 convolution -> float -> CHW, against the
// float convolution, from a configuration written to JSON and read back.
//
// Tolerance of the net: the 16-bit result differs from the float one by the
// quantisation of the input (half a step 2^s_in per value), of the weight
// (half a step 2^s_w) and of the output and bias (half a step 2^s_out each):
//   sum_c (|w_c| 2^(s_in - 1) + |x_c| 2^(s_w - 1) + 2^(s_in + s_w - 2)) + 2^s_out
// plus the float member's own rounding (1e-5 of the sum of |w x|).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "kernel/cpu/conv2d_test_util.h"
#include "runtime/net_fixture.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/model_info.h"
#include "tarn/runtime/net.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using runtime::TensorShape;

const char kQuantize[] = "Quantize_SSE_C8HW8_Float_To_Int16_M1";
const char kDequantize[] = "DeQuantize_SSE_C8HW8_Int16_To_Float_M1";

// The converters' rules, one value at a time.
std::int16_t QuantizeRef(float x, int step) {
  float y = x * std::ldexp(1.0f, -step);
  if (std::isnan(y)) y = 0.0f;
  if (y < -32768.0f) y = -32768.0f;
  if (y > 32767.0f) y = 32767.0f;
  return static_cast<std::int16_t>(std::nearbyint(y));
}
float DequantizeRef(std::int16_t q, int step) { return float(q) * std::ldexp(1.0f, step); }

std::shared_ptr<runtime::InferenceParamActQuant> ActStep(std::int16_t step) {
  auto p = std::make_shared<runtime::InferenceParamActQuant>();
  p->output_step_size = step;
  return p;
}

std::shared_ptr<runtime::IKernel> Configured(const char* name, std::int16_t step) {
  auto kernel = conv::CreateKernel(name);
  EXPECT_TRUE(kernel->Config(std::make_shared<runtime::Conv2dInfo>(), ActStep(step), conv::MakeContext()));
  return kernel;
}

// Values that hit every rule: ties (x.5 steps), both ends and beyond, NaN,
// infinities, signed zeros, tiny and random values.
std::vector<float> Specials(std::size_t n, int step) {
  const float q = std::ldexp(1.0f, step);
  const float fixed[] = {0.5f * q,    1.5f * q,    2.5f * q,   -0.5f * q,   -1.5f * q,   32767.0f * q, 32767.4f * q,
                         32767.6f * q, -32768.0f * q, -32768.6f * q, 1e30f,     -1e30f,      std::numeric_limits<float>::infinity(),
                         -std::numeric_limits<float>::infinity(),  std::numeric_limits<float>::quiet_NaN(), -0.0f, 0.0f,
                         1e-30f,      0.25f * q,   0.75f * q};
  std::vector<float> v = conv::Random(n, n);
  for (std::size_t i = 0; i < n; ++i) v[i] = i % 3 == 0 ? fixed[(i / 3) % (sizeof fixed / sizeof fixed[0])] : v[i] * 40000.0f * q;
  return v;
}

class QuantiseRoundTrip : public ::testing::TestWithParam<int> {};

// Pixel counts 1..9 (both tails of the two-pixel loop), two blocks.
TEST_P(QuantiseRoundTrip, BothConvertersMatchTheScalarReferenceBitForBit) {
  const int step = GetParam();
  auto ctx = conv::MakeContext();
  auto quantize = Configured(kQuantize, static_cast<std::int16_t>(step));
  auto dequantize = Configured(kDequantize, 0);
  for (unsigned pixels = 1; pixels <= 9; ++pixels) {
    const std::vector<float> x = Specials(std::size_t(2) * pixels * 8, step);
    auto in = conv::MakeTensor(ctx->cpu, {2, 1, pixels, 8}, TensorShape::C8HW8, x);
    std::vector<std::shared_ptr<runtime::Tensor>> q, back;
    ASSERT_EQ(quantize->IsValidInput({in}), 0);
    ASSERT_TRUE(quantize->Forward({in}, q, ctx));
    ASSERT_EQ(q[0]->shape.data_type, TensorShape::INT16);
    ASSERT_EQ(q[0]->shape.extra.step_size, step);
    ASSERT_EQ(q[0]->shape.dims, in->shape.dims);
    EXPECT_EQ(quantize->GetOutputShapes({in->shape})[0].extra.step_size, step);
    EXPECT_EQ(quantize->IsValidOutput(q), 0);
    const std::int16_t* qv = static_cast<const std::int16_t*>(q[0]->Data());
    for (std::size_t i = 0; i < x.size(); ++i) ASSERT_EQ(qv[i], QuantizeRef(x[i], step)) << "value " << x[i] << " step " << step;
    ASSERT_TRUE(dequantize->Forward(q, back, ctx));
    ASSERT_EQ(back[0]->shape.data_type, TensorShape::FLOAT32);
    EXPECT_EQ(dequantize->IsValidOutput(back), 0);
    const float* bv = static_cast<const float*>(back[0]->Data());
    for (std::size_t i = 0; i < x.size(); ++i) ASSERT_EQ(bv[i], DequantizeRef(qv[i], step)) << "q " << qv[i];
  }
}

INSTANTIATE_TEST_SUITE_P(Steps, QuantiseRoundTrip, ::testing::Values(-12, -10, -8, -1, 0, 3), TRN_INDEX_NAMES);

TEST(QuantisationConverters, RefuseWhatTheyCannotConvert) {
  auto ctx = conv::MakeContext();
  auto quantize = conv::CreateKernel(kQuantize);
  EXPECT_EQ(quantize->IsValidParam(nullptr, nullptr), -1);
  EXPECT_FALSE(quantize->Config(nullptr, std::make_shared<runtime::InferenceParamConv2DQuant>(), ctx));
  EXPECT_FALSE(quantize->IsConfiged());
  EXPECT_EQ(quantize->IsValidParam(nullptr, ActStep(-8)), 0);
  auto dequantize = conv::CreateKernel(kDequantize);
  EXPECT_EQ(dequantize->IsValidParam(nullptr, nullptr), 0);
  ASSERT_TRUE(quantize->Config(nullptr, ActStep(-8), ctx));
  ASSERT_TRUE(dequantize->Config(nullptr, nullptr, ctx));
  auto floats = conv::MakeTensor(ctx->cpu, {1, 2, 2, 8}, TensorShape::C8HW8, conv::Random(32, 1));
  auto ints = ctx->cpu->CreateTensor(runtime::MakeShape({1, 2, 2, 8}, TensorShape::INT16, TensorShape::C8HW8));
  std::vector<std::shared_ptr<runtime::Tensor>> out;
  const std::vector<std::shared_ptr<runtime::Tensor>> not_floats = {
      ints, conv::MakeTensor(ctx->cpu, {1, 2, 2, 4}, TensorShape::C4HW4, conv::Random(16, 1)),
      conv::MakeTensor(ctx->cpu, {8, 2, 2}, TensorShape::CHW, conv::Random(32, 1)), nullptr};
  conv::ExpectInputsRefused(quantize, ctx, not_floats);
  conv::ExpectInputsRefused(dequantize, ctx, {floats, nullptr});
  EXPECT_EQ(quantize->IsValidInput({floats, floats}), -2);
  EXPECT_FALSE(conv::CreateKernel(kQuantize)->Forward({floats}, out, ctx));  // never configured
}

// ------------------------------------------------------------------ a float net around the 16-bit convolution

struct NetCase {
  unsigned c, n, h, w;
  std::int16_t in_step, weight_step, out_step;
};

std::shared_ptr<runtime::KernelCfg> KernelWith(const std::string& name, std::shared_ptr<runtime::InferenceParam> p) {
  auto k = NetRecipe::MakeKernelCfg(name);
  k->infer_param = std::move(p);
  if (k->infer_param) k->infer_param_type = k->infer_param->GetName();
  return k;
}

// input -> conv (layout CHW to C8HW8, quantise | 16-bit conv | de-quantise,
// C8HW8 to CHW), from a configuration that went through a JSON file.
std::vector<float> RunNet(const NetCase& k, const std::vector<float>& x, const std::vector<float>& w,
                          const std::vector<float>& b) {
  NetRecipe recipe;
  recipe.Input("in");
  const conv::ConvGeom g{k.c, k.n, k.h, k.w, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, true};
  auto conv_layer = conv::MakeConv2dInfo(g, w, b);
  conv_layer->id = "conv";
  conv_layer->input_ids = {"in"};
  recipe.model->squential_ids.push_back("conv");
  recipe.model->squential_types.push_back(conv_layer->type);
  recipe.model->layers["conv"] = conv_layer;
  auto lc = std::make_shared<runtime::LayerCfg>();
  auto quant = std::make_shared<runtime::InferenceParamConv2DQuant>();
  quant->weight_step_size = k.weight_step;
  quant->output_step_size = k.out_step;
  lc->kernel.kernel_ids = {"3"};
  lc->kernel.kernels["3"] = KernelWith("Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1", quant);
  recipe.cfg->squential_ids.push_back("conv");
  recipe.cfg->layers["conv"] = lc;
  recipe.Converter("conv", "in", "1", "LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1");
  lc->input_converters.kernel_ids.push_back("2");
  lc->input_converters.kernels["2"] = KernelWith(kQuantize, ActStep(k.in_step));
  recipe.Converter("conv", "out", "4", kDequantize);
  recipe.Converter("conv", "out", "5", "LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1");
  recipe.Outputs({"conv"});

  TempDir dir;
  EXPECT_TRUE(recipe.cfg->ToFile(dir.File("cfg.json").c_str(), "json"));
  auto cfg = std::make_shared<runtime::TRModelCfg>();
  EXPECT_TRUE(cfg->FromFile(dir.File("cfg.json").c_str()));
  auto read = std::dynamic_pointer_cast<runtime::InferenceParamActQuant>(
      cfg->layers["conv"]->input_converters.kernels["2"]->infer_param);
  EXPECT_TRUE(read && read->output_step_size == k.in_step) << "the quantiser's step did not survive the file";

  runtime::KernelRegistry registry;
  kernel::RegisterFallback(registry);
  kernel::RegisterSSE(registry);
  auto ctx = MakeTestContext();
  auto net = runtime::CreateNet(recipe.model, cfg, registry, ctx);
  auto out = net->Forward({{0, ctx->cpu->CreateTensor(runtime::MakeShape({k.c, k.h, k.w}), x.data())}}, {1}, ctx);
  if (out.count(1) == 0 || out[1].size() != 1) return {};
  const auto& t = out[1][0];
  EXPECT_EQ(t->shape.data_type, TensorShape::FLOAT32);
  EXPECT_EQ(t->shape.layout, TensorShape::CHW);
  const std::vector<float> all = Values(t);
  return std::vector<float>(all.begin(), all.begin() + std::size_t(k.n) * k.h * k.w);
}

class Int16Net : public ::testing::TestWithParam<NetCase> {};

TEST_P(Int16Net, MatchesTheFloatConvolutionWithinTheQuantisationError) {
  const NetCase k = GetParam();
  const conv::ConvGeom g{k.c, k.n, k.h, k.w, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, true};
  const std::vector<float> x = conv::Random(std::size_t(k.c) * k.h * k.w, 5);
  const std::vector<float> w = conv::Random(g.WeightCount(), 6);
  const std::vector<float> b = conv::Random(k.n, 7);
  const std::vector<float> got = RunNet(k, x, w, b);
  ASSERT_EQ(got.size(), std::size_t(k.n) * k.h * k.w);
  // The float member on the same layer.
  auto ctx = conv::MakeContext();
  conv::KernelRun run = conv::RunKernel("Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", conv::MakeConv2dInfo(g, w, b), ctx,
                                        conv::LayoutTensor(ctx->cpu, x, k.c, k.h, k.w, 8));
  ASSERT_TRUE(run.forwarded);
  const std::vector<float> want = conv::FromBlocked(static_cast<const float*>(run.outputs[0]->Data()), k.n, k.h, k.w, 8);
  const conv::Ref scale = conv::NaiveConv2d(g, x, w, b);
  const std::size_t plane = std::size_t(k.h) * k.w;
  for (unsigned o = 0; o < k.n; ++o) {
    for (std::size_t p = 0; p < plane; ++p) {
      double bound = std::ldexp(1.0, k.out_step) + conv::kTolerance * (scale.scale[o * plane + p] + 1.0);
      for (unsigned i = 0; i < k.c; ++i) {
        bound += std::fabs(w[o * k.c + i]) * std::ldexp(1.0, k.in_step - 1) +
                 std::fabs(x[i * plane + p]) * std::ldexp(1.0, k.weight_step - 1) +
                 std::ldexp(1.0, k.in_step + k.weight_step - 2);
      }
      const std::size_t e = o * plane + p;
      ASSERT_LE(std::fabs(double(got[e]) - want[e]), bound) << "output " << o << " pixel " << p;
    }
  }
}

// Real channel counts (a MobileNetV2 projection, a SqueezeNet squeeze and
// expansion), shifts 8, 11 and 12, output steps wide enough that nothing
// saturates.
INSTANTIATE_TEST_SUITE_P(Layers, Int16Net,
                         ::testing::Values(NetCase{24, 16, 5, 7, -9, -11, -12}, NetCase{64, 16, 3, 3, -11, -11, -11},
                                           NetCase{16, 24, 4, 5, -9, -11, -8}),
                         TRN_INDEX_NAMES);

}  // namespace
}  // namespace testing
}  // namespace tarn
