// The SSE fixed-geometry convolutions and quantisation converters are
// registered under their class names and can be created, asked about records,
// configured and asked for output shapes on any x86-64: all of that is
// baseline code (this file runs under the emulated baseline processor too).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tarn/kernel/register.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace testing {
namespace {

using runtime::TensorShape;

struct Expected {
  const char* name;
  unsigned ky, kx, s, lanes;
  bool int16;
};

const Expected kExpected[] = {
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 1, 1, 1, false},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 1, 1, 1, 4, false},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2", 1, 1, 1, 4, false},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 1, 1, 1, 8, false},
    {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1", 1, 1, 1, 8, true},
    {"Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 1, 2, 1, false},
    {"Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1", 1, 1, 2, 4, false},
    {"Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1", 1, 1, 2, 8, false},
    {"Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 1, 3, 1, 1, false},
    {"Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 1, 3, 1, 4, false},
    {"Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 1, 3, 1, 8, false},
    {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 3, 1, 1, 1, false},
    {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2", 3, 1, 1, 1, false},
    {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 3, 1, 1, 4, false},
    {"Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 3, 1, 1, 8, false},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", 3, 3, 1, 1, false},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1", 3, 3, 1, 1, false},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2", 3, 3, 1, 1, false},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1", 3, 3, 1, 4, false},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2", 3, 3, 1, 4, false},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3", 3, 3, 1, 4, false},
    {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1", 3, 3, 1, 8, false},
    {"Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1", 3, 3, 2, 1, false},
    {"Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1", 3, 3, 2, 4, false},
    {"Conv2d_K3x3_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1", 3, 3, 2, 8, false},
};

std::shared_ptr<runtime::Context> Context() {
  auto pool = std::make_shared<runtime::AlignUpPool>(64);
  return runtime::CreateContext(runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), pool, nullptr, pool), nullptr,
                                nullptr, nullptr, nullptr, nullptr);
}

TEST(SpecialisedConvBaseline, EveryMemberConfiguresAndShapesItsOutputOnAnyProcessor) {
  runtime::KernelRegistry registry;
  kernel::RegisterSSE(registry);
  auto ctx = Context();
  for (const Expected& e : kExpected) {
    SCOPED_TRACE(e.name);
    auto kernel = registry.Create(e.name);
    ASSERT_NE(kernel, nullptr);
    EXPECT_EQ(kernel->GetName(), e.name);
    EXPECT_FALSE(kernel->IsConfiged());
    auto info = std::make_shared<runtime::Conv2dInfo>();
    info->in_channels = 5;
    info->out_channels = 9;
    info->kernel_y = static_cast<std::uint16_t>(e.ky);
    info->kernel_x = static_cast<std::uint16_t>(e.kx);
    info->stride_y = info->stride_x = static_cast<std::uint16_t>(e.s);
    info->weight = runtime::EncodeWeights(std::vector<float>(9 * 5 * e.ky * e.kx, 0.5f));
    std::shared_ptr<runtime::InferenceParam> param;
    if (e.int16) {
      auto quant = std::make_shared<runtime::InferenceParamConv2DQuant>();
      quant->weight_step_size = -12;
      quant->output_step_size = -10;
      param = quant;
    }
    EXPECT_EQ(kernel->IsValidParam(info, param), 0);
    ASSERT_TRUE(kernel->Config(info, param, ctx));
    const unsigned blocks = e.lanes == 1 ? 5 : (5 + e.lanes - 1) / e.lanes;
    TensorShape input = e.lanes == 1 ? runtime::MakeShape({5, 11, 13})
                                     : runtime::MakeShape({blocks, 11, 13, e.lanes}, TensorShape::FLOAT32,
                                                          e.lanes == 4 ? TensorShape::C4HW4 : TensorShape::C8HW8);
    if (e.int16) {
      input.data_type = TensorShape::INT16;
      input.extra.step_size = -8;
    }
    const auto shapes = kernel->GetOutputShapes({input});
    ASSERT_EQ(shapes.size(), 1u);
    EXPECT_EQ(shapes[0].dims[1], (11 - e.ky) / e.s + 1);
    EXPECT_EQ(shapes[0].dims[2], (13 - e.kx) / e.s + 1);
    EXPECT_EQ(shapes[0].dims[0], e.lanes == 1 ? 9u : (9 + e.lanes - 1) / e.lanes);
    if (e.int16) {
      EXPECT_EQ(shapes[0].extra.step_size, -10);
    }
  }
}

TEST(SpecialisedConvBaseline, TheQuantisationConvertersConfigureOnAnyProcessor) {
  runtime::KernelRegistry registry;
  kernel::RegisterSSE(registry);
  auto quantize = registry.Create("Quantize_SSE_C8HW8_Float_To_Int16_M1");
  auto dequantize = registry.Create("DeQuantize_SSE_C8HW8_Int16_To_Float_M1");
  ASSERT_NE(quantize, nullptr);
  ASSERT_NE(dequantize, nullptr);
  auto step = std::make_shared<runtime::InferenceParamActQuant>();
  step->output_step_size = -9;
  ASSERT_TRUE(quantize->Config(std::make_shared<runtime::Conv2dInfo>(), step, Context()));
  ASSERT_TRUE(dequantize->Config(std::make_shared<runtime::Conv2dInfo>(), nullptr, Context()));
  TensorShape floats = runtime::MakeShape({2, 3, 4, 8}, TensorShape::FLOAT32, TensorShape::C8HW8);
  const auto q = quantize->GetOutputShapes({floats});
  ASSERT_EQ(q.size(), 1u);
  EXPECT_EQ(q[0].data_type, TensorShape::INT16);
  EXPECT_EQ(q[0].extra.step_size, -9);
  const auto f = dequantize->GetOutputShapes(q);
  ASSERT_EQ(f.size(), 1u);
  EXPECT_EQ(f[0].data_type, TensorShape::FLOAT32);
  EXPECT_EQ(f[0].dims, floats.dims);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
