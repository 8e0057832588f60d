// Every fully connected member against PyTorch fixtures and the double
// reference, and the refusals that protect Forward.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "kernel/cpu/fc_test_util.h"
#include "reference/reference_data.h"
#include "tarn/kernel/fullconnection.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace {

using conv::TensorCPUPtr;
using runtime::TensorShape;

enum class Form { kVector, kBatch, kC4HW4, kC8HW8 };

struct FcMember {
  const char* name;
  Form form;
  unsigned multiple;  // both feature counts must be multiples of this
  bool vector;
  bool avx;
};

const FcMember kMembers[] = {
    {"FullConnection_Fallback_C_Float_M1", Form::kVector, 1, false, false},
    {"FullConnection_SGEMM_C_Float_M1", Form::kVector, 1, false, false},
    {"FullConnection_SSE_C_Float_M1", Form::kVector, 1, true, false},
    {"FullConnection_SSE_C44_Float_M1", Form::kVector, 4, true, false},
    {"FullConnection_SSE_BC_Float_M1", Form::kBatch, 1, true, false},
    {"FullConnection_SSE_C4HW4_Float_M1", Form::kC4HW4, 1, true, false},
    {"FullConnection_AVX_C_Float_M1", Form::kVector, 1, true, true},
    {"FullConnection_AVX_C_Float_M2", Form::kVector, 1, true, true},
    {"FullConnection_AVX_C_Float_M3", Form::kVector, 1, true, true},
    {"FullConnection_AVX_C88_Float_M1", Form::kVector, 8, true, true},
    {"FullConnection_AVX_C8HW8_Float_M1", Form::kC8HW8, 1, true, true},
};
constexpr int kMemberCount = 11;

bool CanRun(const FcMember& m) { return !m.vector || (m.avx ? conv::CanRunAVX() : conv::CanRunSSE()); }

// The input of member m for a CHW map [c, h, w] (a vector is [in, 1, 1]).
TensorCPUPtr InputFor(const FcMember& m, const std::shared_ptr<runtime::DeviceCPU>& device, const std::vector<float>& x,
                      unsigned c, unsigned h, unsigned w) {
  switch (m.form) {
    case Form::kVector: return conv::MakeTensor(device, {c * h * w}, TensorShape::CHW, x);
    case Form::kBatch: return conv::MakeTensor(device, {1, c * h * w}, TensorShape::FLEXIABLE, x);
    case Form::kC4HW4:
      return conv::MakeTensor(device, {(c + 3) / 4, h, w, 4}, TensorShape::C4HW4, conv::ToBlocked(x, c, h, w, 4));
    case Form::kC8HW8:
      return conv::MakeTensor(device, {(c + 7) / 8, h, w, 8}, TensorShape::C8HW8, conv::ToBlocked(x, c, h, w, 8));
  }
  return nullptr;
}

::testing::AssertionResult RunFc(const FcMember& m, unsigned c, unsigned h, unsigned w, unsigned out,
                                 const std::vector<float>& x, const std::vector<float>& weight, const float* bias,
                                 const conv::Ref& want) {
  auto ctx = conv::MakeContext();
  const unsigned in = c * h * w;
  std::vector<float> b;
  if (bias) b.assign(bias, bias + out);
  auto input = InputFor(m, ctx->cpu, x, c, h, w);
  conv::KernelRun run = conv::RunKernel(m.name, conv::MakeFcInfo(in, out, weight, bias ? &b : nullptr), ctx, input);
  if (!run.kernel) return ::testing::AssertionFailure() << m.name << " is not registered";
  if (!run.configured || run.valid != 0 || !run.forwarded) {
    return ::testing::AssertionFailure() << m.name << " refused or failed for " << in << " -> " << out;
  }
  const auto& t = run.outputs[0];
  const auto shapes = run.kernel->GetOutputShapes({input->shape});
  if (shapes.size() != 1 || shapes[0].dims != t->shape.dims) return ::testing::AssertionFailure() << "shapes";
  std::vector<float> got = conv::Values(t);
  if (m.form == Form::kC8HW8) {
    if (t->shape.dims != std::vector<unsigned>{(out + 7) / 8, 1, 1, 8}) return ::testing::AssertionFailure() << "dims";
    if (!conv::TailLanesZero(got.data(), out, 1, 1, 8)) return ::testing::AssertionFailure() << "tail lanes";
    got.resize(out);
  } else if (m.form == Form::kC4HW4) {
    if (t->shape.dims != std::vector<unsigned>{out, 1, 1}) return ::testing::AssertionFailure() << "dims";
  }
  return conv::Near(got, want) << " (" << m.name << ", " << in << " -> " << out << ")";
}

TEST(FullConnectionReference, FixturesArePresentAndTheDoubleReferenceAgrees) {
  const auto cases = LoadReference("fc");
  ASSERT_GE(cases.size(), 7u);
  for (const RefCase& c : cases) {
    auto p = ParseParams(c);
    const unsigned in = p["in_features"].GetUint(), out = p["out_features"].GetUint();
    const float* bias = p["bias"].GetBool() ? c.inputs[2].data.data() : nullptr;
    EXPECT_TRUE(conv::Near(c.outputs[0].data, conv::NaiveFc(in, out, c.inputs[0].data, c.inputs[1].data, bias)))
        << c.name;
  }
}

class FullConnectionAgainstTorch : public ::testing::TestWithParam<int> {};

TEST_P(FullConnectionAgainstTorch, EveryMemberMatchesPyTorch) {
  const FcMember& m = kMembers[GetParam()];
  if (!CanRun(m)) GTEST_SKIP();
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
    conv::Ref want = conv::NaiveFc(in, out, c.inputs[0].data, c.inputs[1].data, bias);
    want.value.assign(c.outputs[0].data.begin(), c.outputs[0].data.end());
    EXPECT_TRUE(RunFc(m, ch, h, w, out, c.inputs[0].data, c.inputs[1].data, bias, want)) << c.name;
    ++ran;
  }
  EXPECT_GT(ran, 0);
}

INSTANTIATE_TEST_SUITE_P(Members, FullConnectionAgainstTorch, ::testing::Range(0, kMemberCount),
                         [](const auto& info) { return std::string(kMembers[info.param].name); });

// (member, output count) pairs the member accepts.
std::vector<std::tuple<int, unsigned>> GridCases() {
  std::vector<std::tuple<int, unsigned>> cases;
  for (int m = 0; m < kMemberCount; ++m) {
    for (unsigned out : {1u, 3u, 4u, 5u, 7u, 8u, 9u, 12u, 16u, 17u, 24u, 33u}) {
      if (out % kMembers[m].multiple == 0) cases.emplace_back(m, out);
    }
  }
  return cases;
}

class FullConnectionGrid : public ::testing::TestWithParam<std::tuple<int, unsigned>> {};

// Input counts 1..17 and beyond against output counts 1..17 and beyond, with
// and without bias; the blocked members see the input as a map with tails.
TEST_P(FullConnectionGrid, MatchesTheDoubleReference) {
  const FcMember& m = kMembers[std::get<0>(GetParam())];
  const unsigned out = std::get<1>(GetParam());
  if (!CanRun(m)) GTEST_SKIP();
  for (unsigned in : conv::FeatureCounts()) {
    if (in % m.multiple) continue;
    // Maps: 1x1 with `in` channels, and where it divides, a 2x2 or 3x1 map.
    std::vector<std::array<unsigned, 3>> maps = {{in, 1, 1}};
    if (m.form == Form::kC4HW4 || m.form == Form::kC8HW8) {
      if (in % 4 == 0) maps.push_back({in / 4, 2, 2});
      if (in % 3 == 0) maps.push_back({in / 3, 3, 1});
    }
    for (const auto& map : maps) {
      const auto x = conv::Random(in, in + out), w = conv::Random(std::size_t(in) * out, in * out);
      const auto b = conv::Random(out, out);
      const float* bias = (in + out) % 2 ? b.data() : nullptr;
      EXPECT_TRUE(RunFc(m, map[0], map[1], map[2], out, x, w, bias, conv::NaiveFc(in, out, x, w, bias)))
          << "map " << map[0] << "x" << map[1] << "x" << map[2];
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Members, FullConnectionGrid, ::testing::ValuesIn(GridCases()),
                         [](const auto& info) {
                           return std::string(kMembers[std::get<0>(info.param)].name) + "_out" +
                                  std::to_string(std::get<1>(info.param));
                         });

TEST(FullConnectionBatch, FourRowsShareEachWeightLoadAndTheRestGoOneByOne) {
  if (!conv::CanRunSSE()) GTEST_SKIP();
  auto ctx = conv::MakeContext();
  const unsigned in = 13, out = 6;
  const auto w = conv::Random(in * out, 1), b = conv::Random(out, 2);
  auto kernel = conv::CreateKernel("FullConnection_SSE_BC_Float_M1");
  ASSERT_TRUE(kernel->Config(conv::MakeFcInfo(in, out, w, &b), nullptr, ctx));
  for (unsigned batch : {1u, 3u, 4u, 5u, 9u}) {
    const auto x = conv::Random(std::size_t(batch) * in, batch);
    auto input = conv::MakeTensor(ctx->cpu, {batch, in}, TensorShape::FLEXIABLE, x);
    std::vector<std::shared_ptr<runtime::Tensor>> outputs;
    ASSERT_EQ(kernel->IsValidInput({input}), 0);
    ASSERT_TRUE(kernel->Forward({input}, outputs, ctx));
    ASSERT_EQ(outputs[0]->shape.dims, (std::vector<unsigned>{batch, out}));
    const auto got = conv::Values(outputs[0]);
    for (unsigned r = 0; r < batch; ++r) {
      const std::vector<float> row(x.begin() + r * in, x.begin() + (r + 1) * in);
      EXPECT_TRUE(conv::Near(std::vector<float>(got.begin() + r * out, got.begin() + (r + 1) * out),
                             conv::NaiveFc(in, out, row, w, b.data())))
          << "batch " << batch << " row " << r;
    }
  }
}

// ------------------------------------------------------------------ refusals

class FullConnectionRefusals : public ::testing::TestWithParam<int> {};

TEST_P(FullConnectionRefusals, BrokenRecordsAndInputsAreRefused) {
  const FcMember& m = kMembers[GetParam()];
  if (!CanRun(m)) GTEST_SKIP();
  auto ctx = conv::MakeContext();
  auto kernel = conv::CreateKernel(m.name);
  ASSERT_NE(kernel, nullptr);
  EXPECT_EQ(kernel->GetName(), m.name);
  EXPECT_EQ(kernel->IsValidParam(std::make_shared<runtime::Conv2dInfo>(), nullptr), -1);
  EXPECT_EQ(kernel->IsValidParam(conv::MakeFcInfo(0, 8, {}, nullptr), nullptr), -1);
  EXPECT_EQ(kernel->IsValidParam(conv::MakeFcInfo(8, 0, {}, nullptr), nullptr), -1);
  const unsigned in = 16, out = 8;
  const auto w = conv::Random(in * out, 1), b = conv::Random(out, 2);
  const auto short_w = conv::Random(in * out - 1, 1), short_b = conv::Random(out - 1, 2);
  EXPECT_FALSE(kernel->Config(conv::MakeFcInfo(in, out, short_w, &b), nullptr, ctx));
  EXPECT_FALSE(kernel->Config(conv::MakeFcInfo(in, out, w, &short_b), nullptr, ctx));
  EXPECT_FALSE(kernel->IsConfiged());
  EXPECT_FALSE(kernel->Config(conv::MakeFcInfo(in, out, w, &b), nullptr, nullptr));
  ASSERT_TRUE(kernel->Config(conv::MakeFcInfo(in, out, w, &b), nullptr, ctx));
  EXPECT_TRUE(kernel->IsConfiged());

  std::vector<std::shared_ptr<runtime::Tensor>> bad = {
      conv::MakeTensor(ctx->cpu, {15}, TensorShape::CHW, conv::Random(15, 1)),
      conv::MakeTensor(ctx->cpu, {17}, TensorShape::CHW, conv::Random(17, 1)),
      ctx->cpu->CreateTensor(runtime::MakeShape({16}, TensorShape::INT32)),
      nullptr,
  };
  if (m.form == Form::kC4HW4 || m.form == Form::kC8HW8) {
    const unsigned lanes = m.form == Form::kC4HW4 ? 4 : 8;
    const auto layout = lanes == 4 ? TensorShape::C4HW4 : TensorShape::C8HW8;
    // 16 features: 16 channels of 1x1, 4 of 2x2; 5 channels of 3x1 is 15.
    bad.push_back(conv::MakeTensor(ctx->cpu, {(5 + lanes - 1) / lanes, 3, 1, lanes}, layout,
                                   std::vector<float>(std::size_t((5 + lanes - 1) / lanes) * 3 * lanes, 0.0f)));
    bad.push_back(conv::MakeTensor(ctx->cpu, {9, 1, 1, lanes}, layout, std::vector<float>(9 * lanes, 0.0f)));
    bad.push_back(conv::MakeTensor(ctx->cpu, {1, 4, 4, lanes},
                                   lanes == 4 ? TensorShape::C8HW8 : TensorShape::C4HW4,
                                   std::vector<float>(16 * lanes, 0.0f)));
  }
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  for (std::size_t i = 0; i < bad.size(); ++i) {
    EXPECT_EQ(kernel->IsValidInput({bad[i]}), -2) << i;
    EXPECT_FALSE(kernel->Forward({bad[i]}, outputs, ctx)) << i;
  }
  EXPECT_EQ(kernel->IsValidInput({}), -2);
}

INSTANTIATE_TEST_SUITE_P(Members, FullConnectionRefusals, ::testing::Range(0, kMemberCount),
                         [](const auto& info) { return std::string(kMembers[info.param].name); });

TEST(FullConnectionRefusals, TiledMembersNeedWholeTiles) {
  EXPECT_EQ(conv::CreateKernel("FullConnection_SSE_C44_Float_M1")->IsValidParam(conv::MakeFcInfo(12, 6, {}, nullptr),
                                                                                nullptr),
            -1);
  EXPECT_EQ(conv::CreateKernel("FullConnection_SSE_C44_Float_M1")->IsValidParam(conv::MakeFcInfo(12, 8, {}, nullptr),
                                                                                nullptr),
            0);
  EXPECT_EQ(conv::CreateKernel("FullConnection_AVX_C88_Float_M1")->IsValidParam(conv::MakeFcInfo(12, 8, {}, nullptr),
                                                                                nullptr),
            -1);
  EXPECT_EQ(conv::CreateKernel("FullConnection_AVX_C88_Float_M1")->IsValidParam(conv::MakeFcInfo(16, 12, {}, nullptr),
                                                                                nullptr),
            -1);
  EXPECT_EQ(conv::CreateKernel("FullConnection_AVX_C88_Float_M1")->IsValidParam(conv::MakeFcInfo(16, 8, {}, nullptr),
                                                                                nullptr),
            0);
}

// ------------------------------------------------------------------ the reference routine

TEST(FullConnectionFallbackRoutine, AccumulatesInInputOrderOntoTheBias) {
  for (unsigned in : conv::FeatureCounts()) {
    for (unsigned out : {1u, 5u, 8u}) {
      const auto x = conv::Random(in, in), w = conv::Random(std::size_t(in) * out, out), b = conv::Random(out, 3);
      std::vector<float> y(out, 99.0f);
      const std::uint32_t fin = in, fout = out;
      kernel::functional::fullconnection_fallback_c_f32_m1(x.data(), fin, fout, w.data(), b.data(), y.data());
      EXPECT_TRUE(conv::Near(y, conv::NaiveFc(in, out, x, w, b.data())));
      kernel::functional::fullconnection_fallback_c_f32_m1(x.data(), fin, fout, w.data(), nullptr, y.data());
      EXPECT_TRUE(conv::Near(y, conv::NaiveFc(in, out, x, w, nullptr)));
      // The documented order: acc = fma(W[o][i], x[i], acc) from the bias on.
      float acc = b[0];
      for (unsigned i = 0; i < in; ++i) acc = std::fma(w[i], x[i], acc);
      kernel::functional::fullconnection_fallback_c_f32_m1(x.data(), fin, fout, w.data(), b.data(), y.data());
      EXPECT_EQ(y[0], acc);
    }
  }
}

}  // namespace
}  // namespace testing
}  // namespace tarn
