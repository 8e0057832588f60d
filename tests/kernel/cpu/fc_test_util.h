// Helpers of the fully connected tests: records, the double reference, and
// the member and routine checks every family's test file runs on its own.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "kernel/cpu/conv_test_util.h"

namespace tarn {
namespace testing {
namespace conv {

inline std::shared_ptr<runtime::FullConnectionInfo> MakeFcInfo(unsigned in, unsigned out, const std::vector<float>& w,
                                                               const std::vector<float>* bias) {
  auto info = std::make_shared<runtime::FullConnectionInfo>();
  info->in_features = static_cast<std::uint16_t>(in);
  info->out_features = static_cast<std::uint16_t>(out);
  info->weight = runtime::EncodeWeights(w);
  info->if_bias = bias != nullptr;
  if (bias) info->bias = runtime::EncodeWeights(*bias);
  return info;
}

// out = W x + b in double: a 1x1 convolution of a 1x1 map.
inline Ref NaiveFc(unsigned in, unsigned out, const std::vector<float>& x, const std::vector<float>& w,
                   const float* bias) {
  const ConvGeom g{in, out, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, bias != nullptr};
  return NaiveConv2d(g, x, w, bias ? std::vector<float>(bias, bias + out) : std::vector<float>());
}

// Feature counts around every vector width and unroll: 1..17 plus larger.
inline std::vector<unsigned> FeatureCounts() {
  std::vector<unsigned> v;
  for (unsigned i = 1; i <= 17; ++i) v.push_back(i);
  for (unsigned i : {24u, 31u, 32u, 40u, 64u, 100u}) v.push_back(i);
  return v;
}

// Row-major [out][in] as b x b tiles: tile (o / b, i / b) holds at
// (i % b) * b + o % b the weight from input i to output o; counts rounded up
// to whole tiles, the extra lanes zero.
inline std::vector<float> Tiles(const std::vector<float>& w, unsigned in, unsigned out, unsigned b) {
  const unsigned ib = (in + b - 1) / b, ob = (out + b - 1) / b;
  std::vector<float> t(std::size_t(ib) * ob * b * b, 0.0f);
  for (unsigned o = 0; o < out; ++o)
    for (unsigned i = 0; i < in; ++i) t[((o / b) * ib + i / b) * b * b + (i % b) * b + o % b] = w[std::size_t(o) * in + i];
  return t;
}

// ------------------------------------------------------------------ routines

// A routine under test: y = W x (+ bias) from the row-major weight w (a
// routine that reads another order packs w itself).
using FcRoutine = std::function<void(std::vector<float>& x, const std::vector<float>& w, unsigned in, unsigned out,
                                     float* bias, float* y)>;

// Every input count of `ins` against every output count of `outs` (those
// that are multiples of `multiple`), with the bias and without; y holds junk
// before each call.
inline void ExpectRoutineMatches(const char* name, const FcRoutine& routine, const std::vector<unsigned>& ins,
                                 const std::vector<unsigned>& outs, unsigned multiple = 1) {
  for (unsigned in : ins) {
    for (unsigned out : outs) {
      if (in % multiple || out % multiple) continue;
      auto x = Random(in, in), w = Random(std::size_t(in) * out, out), b = Random(out, 7);
      for (float* bias : {b.data(), static_cast<float*>(nullptr)}) {
        std::vector<float> y(out, 99.0f);
        routine(x, w, in, out, bias, y.data());
        EXPECT_TRUE(Near(y, NaiveFc(in, out, x, w, bias)))
            << name << " " << in << " -> " << out << (bias ? " with bias" : "");
      }
    }
  }
}

// ------------------------------------------------------------------ members

enum class Form { kVector, kBatch, kC4HW4, kC8HW8 };

struct FcMember {
  const char* name;
  Form form;
  unsigned multiple;  // both feature counts must be multiples of this
};

inline unsigned FormLanes(Form f) { return f == Form::kC4HW4 ? 4 : (f == Form::kC8HW8 ? 8 : 0); }

// The input of member m for a CHW map [c, h, w] (a vector is [in, 1, 1]).
inline TensorCPUPtr FcInput(const FcMember& m, const std::shared_ptr<runtime::DeviceCPU>& device,
                            const std::vector<float>& x, unsigned c, unsigned h, unsigned w) {
  switch (m.form) {
    case Form::kVector: return MakeTensor(device, {c * h * w}, TensorShape::CHW, x);
    case Form::kBatch: return MakeTensor(device, {1, c * h * w}, TensorShape::FLEXIABLE, x);
    default: return LayoutTensor(device, x, c, h, w, FormLanes(m.form));
  }
}

inline ::testing::AssertionResult RunFc(const FcMember& m, unsigned c, unsigned h, unsigned w, unsigned out,
                                        const std::vector<float>& x, const std::vector<float>& weight,
                                        const float* bias, const Ref& want) {
  auto ctx = MakeContext();
  const unsigned in = c * h * w;
  std::vector<float> b;
  if (bias) b.assign(bias, bias + out);
  auto input = FcInput(m, ctx->cpu, x, c, h, w);
  KernelRun run = RunKernel(m.name, MakeFcInfo(in, out, weight, bias ? &b : nullptr), ctx, input);
  if (!run.kernel) return ::testing::AssertionFailure() << m.name << " is not registered";
  if (!run.configured || run.valid != 0 || !run.forwarded) {
    return ::testing::AssertionFailure() << m.name << " refused or failed for " << in << " -> " << out;
  }
  const auto& t = run.outputs[0];
  const auto shapes = run.kernel->GetOutputShapes({input->shape});
  if (shapes.size() != 1 || shapes[0].dims != t->shape.dims) return ::testing::AssertionFailure() << "shapes";
  std::vector<float> got = Values(t);
  if (m.form == Form::kC8HW8) {
    if (t->shape.dims != std::vector<unsigned>{(out + 7) / 8, 1, 1, 8}) return ::testing::AssertionFailure() << "dims";
    if (!TailLanesZero(got.data(), out, 1, 1, 8)) return ::testing::AssertionFailure() << "tail lanes";
    got.resize(out);
  } else if (m.form == Form::kC4HW4) {
    if (t->shape.dims != std::vector<unsigned>{out, 1, 1}) return ::testing::AssertionFailure() << "dims";
  }
  return Near(got, want) << " (" << m.name << ", " << in << " -> " << out << ")";
}

// Member m on every fc fixture case it takes, against PyTorch's output.
inline void ExpectFcMatchesTorch(const FcMember& m) {
  int ran = 0;
  for (const RefCase& c : LoadReference("fc")) {
    auto p = ParseParams(c);
    const unsigned in = p["in_features"].GetUint(), out = p["out_features"].GetUint();
    if (in % m.multiple || out % m.multiple) continue;
    unsigned ch = in, h = 1, w = 1;
    if (!p["map"].IsNull()) {
      ch = p["map"][0].GetUint();
      h = p["map"][1].GetUint();
      w = p["map"][2].GetUint();
    }
    const float* bias = p["bias"].GetBool() ? c.inputs[2].data.data() : nullptr;
    Ref want = NaiveFc(in, out, c.inputs[0].data, c.inputs[1].data, bias);
    want.value.assign(c.outputs[0].data.begin(), c.outputs[0].data.end());
    EXPECT_TRUE(RunFc(m, ch, h, w, out, c.inputs[0].data, c.inputs[1].data, bias, want)) << c.name;
    ++ran;
  }
  EXPECT_GT(ran, 0);
}

// Input counts 1..17 and beyond against output counts 1..17 and beyond, with
// and without bias; the blocked members see the input as a map with tails
// (1x1 with `in` channels, and where it divides, 2x2 and 3x1).
inline void ExpectFcGridMatches(const FcMember& m) {
  for (unsigned out : {1u, 3u, 4u, 5u, 7u, 8u, 9u, 12u, 16u, 17u, 24u, 33u}) {
    if (out % m.multiple) continue;
    for (unsigned in : FeatureCounts()) {
      if (in % m.multiple) continue;
      std::vector<std::array<unsigned, 3>> maps = {{in, 1, 1}};
      if (FormLanes(m.form) != 0) {
        if (in % 4 == 0) maps.push_back({in / 4, 2, 2});
        if (in % 3 == 0) maps.push_back({in / 3, 3, 1});
      }
      for (const auto& map : maps) {
        const auto x = Random(in, in + out), w = Random(std::size_t(in) * out, in * out);
        const auto b = Random(out, out);
        const float* bias = (in + out) % 2 ? b.data() : nullptr;
        EXPECT_TRUE(RunFc(m, map[0], map[1], map[2], out, x, w, bias, NaiveFc(in, out, x, w, bias)))
            << "map " << map[0] << "x" << map[1] << "x" << map[2];
      }
    }
  }
}

// Broken records, wrong blob counts and inputs of the wrong size or layout
// are refused by member m, and Forward on them fails.
inline void ExpectFcRefusals(const FcMember& m) {
  auto ctx = MakeContext();
  auto kernel = CreateKernel(m.name);
  ASSERT_NE(kernel, nullptr);
  EXPECT_EQ(kernel->GetName(), m.name);
  EXPECT_EQ(kernel->IsValidParam(std::make_shared<runtime::Conv2dInfo>(), nullptr), -1);
  EXPECT_EQ(kernel->IsValidParam(MakeFcInfo(0, 8, {}, nullptr), nullptr), -1);
  EXPECT_EQ(kernel->IsValidParam(MakeFcInfo(8, 0, {}, nullptr), nullptr), -1);
  const unsigned in = 16, out = 8;
  const auto w = Random(in * out, 1), b = Random(out, 2);
  const auto short_w = Random(in * out - 1, 1), short_b = Random(out - 1, 2);
  EXPECT_FALSE(kernel->Config(MakeFcInfo(in, out, short_w, &b), nullptr, ctx));
  EXPECT_FALSE(kernel->Config(MakeFcInfo(in, out, w, &short_b), nullptr, ctx));
  EXPECT_FALSE(kernel->IsConfiged());
  EXPECT_FALSE(kernel->Config(MakeFcInfo(in, out, w, &b), nullptr, nullptr));
  ASSERT_TRUE(kernel->Config(MakeFcInfo(in, out, w, &b), nullptr, ctx));
  EXPECT_TRUE(kernel->IsConfiged());

  std::vector<std::shared_ptr<runtime::Tensor>> bad = {
      MakeTensor(ctx->cpu, {15}, TensorShape::CHW, Random(15, 1)),
      MakeTensor(ctx->cpu, {17}, TensorShape::CHW, Random(17, 1)),
      ctx->cpu->CreateTensor(runtime::MakeShape({16}, TensorShape::INT32)),
      nullptr,
  };
  if (const unsigned lanes = FormLanes(m.form)) {
    // 16 features: 16 channels of 1x1, 4 of 2x2; 5 channels of 3x1 is 15.
    const unsigned blocks = (5 + lanes - 1) / lanes;
    bad.push_back(StoredTensor(ctx->cpu, blocks, 3, 1, lanes, std::vector<float>(std::size_t(blocks) * 3 * lanes)));
    bad.push_back(StoredTensor(ctx->cpu, 9, 1, 1, lanes, std::vector<float>(9 * lanes)));
    bad.push_back(MakeTensor(ctx->cpu, {1, 4, 4, lanes}, lanes == 4 ? TensorShape::C8HW8 : TensorShape::C4HW4,
                             std::vector<float>(16 * lanes)));  // the other layout's tag
  }
  ExpectInputsRefused(kernel, ctx, bad);
  EXPECT_EQ(kernel->IsValidInput({}), -2);
}

}  // namespace conv
}  // namespace testing
}  // namespace tarn

// The fixture, grid and refusal checks of every member in `members` (an
// array of conv::FcMember), as tests of the file that expands this: its path
// names the members' instruction-set family.
#define TRN_FC_MEMBER_TESTS(Suite, members)                                                                   \
  class Suite : public ::testing::TestWithParam<int> {};                                                     \
  TEST_P(Suite, MatchesPyTorch) { ::tarn::testing::conv::ExpectFcMatchesTorch(members[GetParam()]); }         \
  TEST_P(Suite, MatchesTheDoubleReference) { ::tarn::testing::conv::ExpectFcGridMatches(members[GetParam()]); } \
  TEST_P(Suite, RefusesBrokenRecordsAndInputs) { ::tarn::testing::conv::ExpectFcRefusals(members[GetParam()]); } \
  INSTANTIATE_TEST_SUITE_P(Members, Suite, ::testing::Range(0, static_cast<int>(std::size(members))),         \
                           [](const auto& info) { return std::string(members[info.param].name); })
