// The 16-bit fixed-point 1x1 member against an exact scalar reference (int64
// sums, bit for bit) for each of its five shifts over plane sizes that reach
// both pixel tails, channel tails on both sides, with and without bias;
// saturation at both ends, sums that would wrap a 32-bit accumulator, and the
// refusals of records, parameters and steps it cannot take.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>

#include "kernel/cpu/conv2d_test_util.h"
#include "tarn/runtime/inference_config.h"

namespace tarn {
namespace testing {
namespace {

using conv::ConvGeom;
using runtime::TensorShape;

const char kName[] = "Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1";

// The member's rules written out plainly: weights to their step, symmetric;
// bias to the output step; exact sums; round half up after the shift;
// saturation.
std::int16_t Quantize(double v, int step, int lo, int hi) {
  double y = static_cast<float>(static_cast<float>(v) * std::ldexp(1.0f, -step));
  if (std::isnan(y)) y = 0.0;
  y = std::min(std::max(y, double(lo)), double(hi));
  return static_cast<std::int16_t>(std::nearbyint(y));
}

std::int16_t Saturate(std::int64_t v) { return static_cast<std::int16_t>(std::min<std::int64_t>(32767, std::max<std::int64_t>(-32768, v))); }

struct Int16Case {
  unsigned c, n, h, w;
  std::int16_t in_step, weight_step, out_step;
  std::vector<std::int16_t> x;  // CHW
  std::vector<float> weight, bias;
};

std::vector<std::int16_t> Reference(const Int16Case& k) {
  const int shift = k.out_step - k.in_step - k.weight_step;
  const std::size_t plane = std::size_t(k.h) * k.w;
  std::vector<std::int16_t> y(std::size_t(k.n) * plane);
  for (unsigned o = 0; o < k.n; ++o) {
    const std::int64_t b = k.bias.empty() ? 0 : Quantize(k.bias[o], k.out_step, -32768, 32767);
    for (std::size_t p = 0; p < plane; ++p) {
      std::int64_t sum = 0;
      for (unsigned i = 0; i < k.c; ++i) {
        sum += std::int64_t(k.x[i * plane + p]) * Quantize(k.weight[std::size_t(o) * k.c + i], k.weight_step, -32767, 32767);
      }
      // floor((sum + 2^(shift-1)) / 2^shift) with an arithmetic shift.
      y[o * plane + p] = Saturate(b + ((sum + (std::int64_t(1) << (shift - 1))) >> shift));
    }
  }
  return y;
}

conv::TensorCPUPtr Int16Tensor(const std::shared_ptr<runtime::DeviceCPU>& device, const std::vector<std::int16_t>& chw,
                         unsigned c, unsigned h, unsigned w, std::int16_t step) {
  const unsigned blocks = (c + 7) / 8;
  auto t = device->CreateTensor(runtime::MakeShape({blocks, h, w, 8}, TensorShape::INT16, TensorShape::C8HW8));
  t->shape.extra.step_size = step;
  std::int16_t* d = t->DataAs<std::int16_t>();
  std::fill(d, d + std::size_t(blocks) * h * w * 8, std::int16_t(0));
  for (unsigned ch = 0; ch < c; ++ch)
    for (std::size_t p = 0; p < std::size_t(h) * w; ++p) d[(ch / 8 * std::size_t(h) * w + p) * 8 + ch % 8] = chw[ch * std::size_t(h) * w + p];
  return t;
}

std::shared_ptr<runtime::InferenceParamConv2DQuant> Steps(std::int16_t weight, std::int16_t output) {
  auto p = std::make_shared<runtime::InferenceParamConv2DQuant>();
  p->weight_step_size = weight;
  p->output_step_size = output;
  return p;
}

ConvGeom Geom(const Int16Case& k) { return ConvGeom{k.c, k.n, k.h, k.w, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, !k.bias.empty()}; }

// Runs the member; the result in CHW, checking the output shape and step.
::testing::AssertionResult RunsBitExact(const Int16Case& k) {
  auto ctx = conv::MakeContext();
  auto kernel = conv::CreateKernel(kName);
  if (!kernel->Config(conv::MakeConv2dInfo(Geom(k), k.weight, k.bias), Steps(k.weight_step, k.out_step), ctx)) {
    return ::testing::AssertionFailure() << "Config refused";
  }
  auto input = Int16Tensor(ctx->cpu, k.x, k.c, k.h, k.w, k.in_step);
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  if (kernel->IsValidInput({input}) != 0 || !kernel->Forward({input}, outputs, ctx)) {
    return ::testing::AssertionFailure() << "Forward failed";
  }
  const auto& out = outputs[0]->shape;
  const auto shapes = kernel->GetOutputShapes({input->shape});
  if (out.data_type != TensorShape::INT16 || out.layout != TensorShape::C8HW8 || out.extra.step_size != k.out_step ||
      shapes.size() != 1 || shapes[0].dims != out.dims || shapes[0].extra.step_size != k.out_step) {
    return ::testing::AssertionFailure() << "output shape or step";
  }
  const std::vector<std::int16_t> want = Reference(k);
  const std::int16_t* y = static_cast<const std::int16_t*>(outputs[0]->Data());
  const std::size_t plane = std::size_t(k.h) * k.w;
  for (unsigned ch = 0; ch < (k.n + 7) / 8 * 8; ++ch) {
    for (std::size_t p = 0; p < plane; ++p) {
      const std::int16_t got = y[(ch / 8 * plane + p) * 8 + ch % 8];
      const std::int16_t expected = ch < k.n ? want[ch * plane + p] : 0;
      if (got != expected) {
        return ::testing::AssertionFailure() << "channel " << ch << " pixel " << p << ": got " << got << ", want "
                                             << expected << " (" << k.c << "->" << k.n << ", " << k.h << "x" << k.w << ")";
      }
    }
  }
  return ::testing::AssertionSuccess();
}

std::vector<std::int16_t> RandomInt16(std::size_t n, int magnitude, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<int> d(-magnitude, magnitude);
  std::vector<std::int16_t> v(n);
  for (auto& q : v) q = static_cast<std::int16_t>(d(rng));
  return v;
}

class Int16Shift : public ::testing::TestWithParam<std::tuple<int, std::pair<unsigned, unsigned>>> {};

// Input step -10 (values of magnitude up to 8 as ten fraction bits), weight
// step -12, output step chosen so the shift is 8..12; plane sizes 1..9 and
// 17 (both pixel tails), bias on every other.
TEST_P(Int16Shift, MatchesTheExactReferenceBitForBit) {
  const int shift = std::get<0>(GetParam());
  const auto ch = std::get<1>(GetParam());
  for (unsigned plane : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 9u, 17u}) {
    Int16Case k{ch.first, ch.second, plane % 2 ? 1u : 2u, 0, -10, -12, static_cast<std::int16_t>(-22 + shift), {}, {}, {}};
    k.w = plane / k.h;
    k.x = RandomInt16(std::size_t(k.c) * k.h * k.w, 8 << 10, plane);
    k.weight = conv::Random(std::size_t(k.n) * k.c, plane + 1);
    if (plane % 2) k.bias = conv::Random(k.n, plane + 2);
    EXPECT_TRUE(RunsBitExact(k)) << "shift " << shift;
  }
}

INSTANTIATE_TEST_SUITE_P(Shifts, Int16Shift,
                         ::testing::Combine(::testing::Range(8, 13), ::testing::ValuesIn(conv::ChannelPairs())),
                         TRN_INDEX_NAMES);

// Full-scale inputs and weights of one sign: sums of up to 2^36 that a 32-bit
// accumulator would wrap end at the top or the bottom of the range.
TEST(Int16Member, SaturatesAtBothEnds) {
  for (unsigned c : {1u, 8u, 17u, 64u}) {
    for (int sign : {1, -1}) {
      Int16Case k{c, 9, 3, 5, -10, -12, -12, std::vector<std::int16_t>(c * 15, 32767),
                  std::vector<float>(9 * c, sign * 7.9f), std::vector<float>(9, sign * 1.0f)};
      const std::vector<std::int16_t> want = Reference(k);
      for (std::int16_t v : want) ASSERT_EQ(v, sign > 0 ? 32767 : -32768);
      EXPECT_TRUE(RunsBitExact(k)) << c << " channels, sign " << sign;
      // The most negative input against the most negative weight.
      k.x.assign(c * 15, -32768);
      EXPECT_TRUE(RunsBitExact(k)) << c << " channels, sign " << sign << ", input -32768";
    }
  }
}

// Partial sums far beyond 32 bits that cancel: the result is exact, not
// saturated and not wrapped.
TEST(Int16Member, LargePartialSumsThatCancelStayExact) {
  const unsigned c = 64;
  Int16Case k{c, 8, 2, 3, -10, -12, -12, std::vector<std::int16_t>(c * 6, 32767), std::vector<float>(8 * c), {}};
  for (unsigned o = 0; o < 8; ++o)
    for (unsigned i = 0; i < c; ++i) k.weight[o * c + i] = (i < c / 2 ? 7.99f : -7.99f) + (i == 0 ? 0.001f * o : 0.0f);
  const std::vector<std::int16_t> want = Reference(k);
  EXPECT_NE(want[0], 32767);
  EXPECT_TRUE(RunsBitExact(k));
}

// PyTorch's integer arithmetic on real channel counts (one case saturates).
TEST(Int16Member, MatchesPyTorchIntegerArithmetic) {
  const auto cases = LoadReference("conv_members/int16");
  ASSERT_FALSE(cases.empty()) << "tests/data/reference/conv_members/int16.json is missing";
  for (const RefCase& c : cases) {
    auto p = ParseParams(c);
    const auto& x = c.inputs[0];
    Int16Case k{p["in_channels"].GetUint(), p["out_channels"].GetUint(), x.shape[1], x.shape[2],
                static_cast<std::int16_t>(p["input_step"].GetInt()), static_cast<std::int16_t>(p["weight_step"].GetInt()),
                static_cast<std::int16_t>(p["output_step"].GetInt()), {}, c.inputs[1].data, c.inputs[2].data};
    for (float v : x.data) k.x.push_back(static_cast<std::int16_t>(v));
    const std::vector<std::int16_t> want = Reference(k);
    for (std::size_t i = 0; i < want.size(); ++i) {
      ASSERT_EQ(want[i], static_cast<std::int16_t>(c.outputs[0].data[i])) << "the scalar reference, " << c.name;
    }
    EXPECT_TRUE(RunsBitExact(k)) << c.name;
  }
}

TEST(Int16Member, RefusesRecordsParametersAndStepsItCannotTake) {
  auto ctx = conv::MakeContext();
  auto kernel = conv::CreateKernel(kName);
  const ConvGeom g{8, 8, 2, 2, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, true};
  auto info = conv::MakeConv2dInfo(g, conv::Random(64, 1), conv::Random(8, 2));
  EXPECT_EQ(kernel->IsValidParam(info, nullptr), -1);
  EXPECT_FALSE(kernel->Config(info, nullptr, ctx));
  EXPECT_FALSE(kernel->Config(info, std::make_shared<runtime::InferenceParamActQuant>(), ctx));
  ConvGeom padded = g;
  padded.pl = 1;
  EXPECT_EQ(kernel->IsValidParam(conv::MakeConv2dInfo(padded, conv::Random(64, 1), conv::Random(8, 2)), Steps(-12, -10)),
            -1);
  ASSERT_TRUE(kernel->Config(info, Steps(-12, -12), ctx));
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  // Shift = -12 - step + 12: steps -8..-12 run, -7 and -13 do not.
  for (int step = -14; step <= -6; ++step) {
    auto x = Int16Tensor(ctx->cpu, RandomInt16(32, 100, 1), 8, 2, 2, static_cast<std::int16_t>(step));
    const bool runs = step >= -12 && step <= -8;
    EXPECT_EQ(kernel->IsValidInput({x}), runs ? 0 : -2) << "input step " << step;
    EXPECT_EQ(kernel->Forward({x}, outputs, ctx), runs) << "input step " << step;
  }
  // A float input is not a 16-bit one.
  auto f = conv::LayoutTensor(ctx->cpu, conv::Random(32, 1), 8, 2, 2, 8);
  f->shape.extra.step_size = -10;
  EXPECT_EQ(kernel->IsValidInput({f}), -2);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
