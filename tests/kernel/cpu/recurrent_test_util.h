// Helpers of the recurrent-kernel tests: records from weights, the PyTorch
// fixtures (tests/reference/make_recurrent_reference.py), running a member,
// and the checks each family's test file runs on its own members.
//
// Tolerance: |got - want| <= 3e-6 * (1 + |want|) wherever two computations
// sum their matrix-vector products in different orders (a member against
// PyTorch, the SSE or CBLAS products against the reference). The states are
// squashed by tanh and sigmoid, so rounding differences do not grow along a
// sequence; over 64 steps they stay below 4e-7 here. Members built from the same
// routines must agree bit for bit.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "kernel/cpu/conv_test_util.h"
#include "tarn/kernel/recurrent.h"
#include "test_util.h"

namespace tarn {
namespace testing {
namespace rnn {

namespace functional = kernel::functional;
using conv::TensorCPUPtr;
using runtime::TensorShape;
using Tensors = std::vector<std::shared_ptr<runtime::Tensor>>;
using Values = std::vector<std::vector<float>>;

constexpr double kTolerance = 3e-6;

enum class Kind { kRNN, kLSTM, kGRU };

struct Member {
  const char* name;
  Kind kind;
  bool cell;  // one step per call (else a sequence)
};

// The members of each family, cell and sequence of each kind in turn.
inline constexpr Member kFallbackMembers[] = {
    {"RNNCell_Fallback_C_F32_M1", Kind::kRNN, true},   {"RNN_Fallback_SC_F32_M1", Kind::kRNN, false},
    {"LSTMCell_Fallback_C_F32_M1", Kind::kLSTM, true}, {"LSTM_Fallback_SC_F32_M1", Kind::kLSTM, false},
    {"GRUCell_Fallback_C_F32_M1", Kind::kGRU, true},   {"GRU_Fallback_SC_F32_M1", Kind::kGRU, false},
};
inline constexpr Member kSseMembers[] = {
    {"RNNCell_SSE_C_F32_M1", Kind::kRNN, true},   {"RNN_SSE_SC_F32_M1", Kind::kRNN, false},
    {"LSTMCell_SSE_C_F32_M1", Kind::kLSTM, true}, {"LSTM_SSE_SC_F32_M1", Kind::kLSTM, false},
    {"GRUCell_SSE_C_F32_M1", Kind::kGRU, true},   {"GRU_SSE_SC_F32_M1", Kind::kGRU, false},
};
inline constexpr Member kSgemmMembers[] = {
    {"RNNCell_SGEMM_C_F32_M1", Kind::kRNN, true},   {"RNN_SGEMM_SC_F32_M1", Kind::kRNN, false},
    {"LSTMCell_SGEMM_C_F32_M1", Kind::kLSTM, true}, {"LSTM_SGEMM_SC_F32_M1", Kind::kLSTM, false},
    {"GRUCell_SGEMM_C_F32_M1", Kind::kGRU, true},   {"GRU_SGEMM_SC_F32_M1", Kind::kGRU, false},
};

inline unsigned Gates(Kind k) { return k == Kind::kRNN ? 1 : (k == Kind::kLSTM ? 4 : 3); }
inline unsigned StateCount(Kind k) { return k == Kind::kLSTM ? 2 : 1; }
inline const char* KindName(Kind k) { return k == Kind::kRNN ? "rnn" : (k == Kind::kLSTM ? "lstm" : "gru"); }

// One cell's weights; biases empty without bias.
struct CellBlobs {
  std::vector<float> w_ih, w_hh, b_ih, b_hh;
};

inline CellBlobs RandomCell(Kind kind, unsigned in, unsigned hidden, bool bias, unsigned seed) {
  const std::size_t rows = std::size_t(Gates(kind)) * hidden;
  CellBlobs b{conv::Random(rows * in, seed), conv::Random(rows * hidden, seed + 1), {}, {}};
  // Weights of about 1 / sqrt(fan-in), as PyTorch initialises them.
  const float s = 1.0f / std::sqrt(static_cast<float>(std::max(in, hidden)));
  for (float& v : b.w_ih) v *= s;
  for (float& v : b.w_hh) v *= s;
  if (bias) {
    b.b_ih = conv::Random(rows, seed + 2);
    b.b_hh = conv::Random(rows, seed + 3);
  }
  return b;
}

// A record of `kind`: a cell record from cells[0] when `cell`, else a stack
// of `layers` x `dirs` cells in the order layer * dirs + direction.
struct Shape {
  unsigned in, hidden, layers = 1;
  bool bidirectional = false, bias = true;
  std::uint16_t activation = functional::kRNNActivationTanh;
};

inline std::shared_ptr<runtime::LayerInfo> MakeRecord(Kind kind, bool cell, const Shape& s,
                                                      const std::vector<CellBlobs>& cells) {
  using runtime::EncodeWeights;
  auto fill_cell = [&](runtime::RecurrentCell& r) {
    r.in_size = static_cast<std::uint16_t>(s.in);
    r.hidden_size = static_cast<std::uint16_t>(s.hidden);
    r.if_bias = s.bias;
    r.weight_ih = EncodeWeights(cells[0].w_ih);
    r.weight_hh = EncodeWeights(cells[0].w_hh);
    r.bias_ih = EncodeWeights(cells[0].b_ih);
    r.bias_hh = EncodeWeights(cells[0].b_hh);
  };
  auto fill_stack = [&](runtime::RecurrentStack& r) {
    r.in_size = static_cast<std::uint16_t>(s.in);
    r.hidden_size = static_cast<std::uint16_t>(s.hidden);
    r.if_bias = s.bias;
    r.num_layers = static_cast<std::uint16_t>(s.layers);
    r.bidirectional = s.bidirectional;
    const unsigned dirs = s.bidirectional ? 2 : 1;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const bool reverse = i % dirs == 1;
      (reverse ? r.weight_ih_reverse : r.weight_ih_forward).push_back(EncodeWeights(cells[i].w_ih));
      (reverse ? r.weight_hh_reverse : r.weight_hh_forward).push_back(EncodeWeights(cells[i].w_hh));
      if (!s.bias) continue;
      (reverse ? r.bias_ih_reverse : r.bias_ih_forward).push_back(EncodeWeights(cells[i].b_ih));
      (reverse ? r.bias_hh_reverse : r.bias_hh_forward).push_back(EncodeWeights(cells[i].b_hh));
    }
  };
  switch (kind) {
    case Kind::kRNN:
      if (cell) {
        auto r = std::make_shared<runtime::RNNCellInfo>();
        fill_cell(*r);
        r->activation_type = s.activation;
        return r;
      } else {
        auto r = std::make_shared<runtime::RNNInfo>();
        fill_stack(*r);
        r->activation_type = s.activation;
        return r;
      }
    case Kind::kLSTM:
      if (cell) {
        auto r = std::make_shared<runtime::LSTMCellInfo>();
        fill_cell(*r);
        return r;
      } else {
        auto r = std::make_shared<runtime::LSTMInfo>();
        fill_stack(*r);
        return r;
      }
    case Kind::kGRU:
      if (cell) {
        auto r = std::make_shared<runtime::GRUCellInfo>();
        fill_cell(*r);
        return r;
      } else {
        auto r = std::make_shared<runtime::GRUInfo>();
        fill_stack(*r);
        return r;
      }
  }
  return nullptr;
}

// Random cells for a record of shape s (one for a cell member).
inline std::vector<CellBlobs> RandomCells(Kind kind, bool cell, const Shape& s, unsigned seed) {
  std::vector<CellBlobs> cells;
  const unsigned dirs = s.bidirectional ? 2 : 1, count = cell ? 1 : s.layers * dirs;
  for (unsigned i = 0; i < count; ++i) {
    const unsigned in = i / dirs == 0 ? s.in : dirs * s.hidden;
    cells.push_back(RandomCell(kind, in, s.hidden, s.bias, seed + 10 * i));
  }
  return cells;
}

// A configured member (fails the test when it is missing or refuses).
inline std::shared_ptr<runtime::IKernel> Configured(const std::string& name,
                                                    const std::shared_ptr<runtime::LayerInfo>& record,
                                                    const std::shared_ptr<runtime::Context>& ctx) {
  auto kernel = conv::CreateKernel(name);
  EXPECT_NE(kernel, nullptr) << name << " is not registered";
  if (!kernel) return nullptr;
  EXPECT_TRUE(kernel->Config(record, nullptr, ctx)) << name << " refused the record";
  return kernel->IsConfiged() ? kernel : nullptr;
}

inline TensorCPUPtr Vec(const std::shared_ptr<runtime::Context>& ctx, std::vector<unsigned> dims,
                        const std::vector<float>& v) {
  return conv::MakeTensor(ctx->cpu, std::move(dims), TensorShape::FLEXIABLE, v);
}

// Forward on `inputs`: the output values, empty when anything refuses.
inline Values Forward(const std::shared_ptr<runtime::IKernel>& kernel, const std::shared_ptr<runtime::Context>& ctx,
                      const Tensors& inputs) {
  Values values;
  if (!kernel || kernel->IsValidInput(inputs) != 0) return values;
  Tensors outputs;
  if (!kernel->Forward(inputs, outputs, ctx) || kernel->IsValidOutput(outputs) != 0) return values;
  std::vector<TensorShape> shapes;
  for (const auto& t : inputs) shapes.push_back(t->shape);
  const auto want = kernel->GetOutputShapes(shapes);
  if (want.size() != outputs.size()) return values;
  for (std::size_t i = 0; i < outputs.size(); ++i) {
    if (outputs[i]->shape.dims != want[i].dims) return Values();
    values.push_back(conv::Values(outputs[i]));
  }
  return values;
}

// A member stepped once per row of x (cells), or run once on all of x.
inline Values Run(const std::shared_ptr<runtime::IKernel>& kernel, bool cell, Kind kind,
                  const std::shared_ptr<runtime::Context>& ctx, const std::vector<float>& x, unsigned in,
                  const Values& given_states = {}) {
  const unsigned steps = static_cast<unsigned>(x.size() / in);
  if (!cell) {
    Tensors inputs{Vec(ctx, {steps, in}, x)};
    for (const auto& s : given_states) inputs.push_back(Vec(ctx, {static_cast<unsigned>(s.size())}, s));
    return Forward(kernel, ctx, inputs);
  }
  Values per_state(StateCount(kind));
  for (unsigned t = 0; t < steps; ++t) {
    Tensors inputs{Vec(ctx, {in}, std::vector<float>(x.begin() + t * in, x.begin() + (t + 1) * in))};
    if (t == 0) {
      for (const auto& s : given_states) inputs.push_back(Vec(ctx, {static_cast<unsigned>(s.size())}, s));
    }
    Values out = Forward(kernel, ctx, inputs);
    if (out.size() != per_state.size()) return Values();
    for (std::size_t s = 0; s < out.size(); ++s) per_state[s].insert(per_state[s].end(), out[s].begin(), out[s].end());
  }
  return per_state;
}

inline ::testing::AssertionResult Near(const std::vector<float>& got, const std::vector<float>& want,
                                       double tolerance = kTolerance) {
  if (got.size() != want.size()) return ::testing::AssertionFailure() << "size " << got.size() << " != " << want.size();
  for (std::size_t i = 0; i < got.size(); ++i) {
    if (!(std::fabs(double(got[i]) - want[i]) <= tolerance * (1.0 + std::fabs(want[i])))) {
      return ::testing::AssertionFailure() << "element " << i << ": got " << got[i] << ", want " << want[i];
    }
  }
  return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult Same(const Values& got, const Values& want) {
  if (got.size() != want.size() || got.empty()) {
    return ::testing::AssertionFailure() << got.size() << " outputs, want " << want.size();
  }
  for (std::size_t o = 0; o < got.size(); ++o) {
    if (got[o].size() != want[o].size() ||
        std::memcmp(got[o].data(), want[o].data(), got[o].size() * sizeof(float)) != 0) {
      return ::testing::AssertionFailure() << "output " << o << " differs in its bits";
    }
  }
  return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult Close(const Values& got, const Values& want) {
  if (got.size() != want.size() || got.empty()) {
    return ::testing::AssertionFailure() << got.size() << " outputs, want " << want.size();
  }
  for (std::size_t o = 0; o < got.size(); ++o) {
    auto r = Near(got[o], want[o]);
    if (!r) return r << " (output " << o << ")";
  }
  return ::testing::AssertionSuccess();
}

// ------------------------------------------------------------------ fixtures

// A fixture case as a record, its input x and its states.
struct TorchCase {
  std::string name;
  Shape shape;
  std::shared_ptr<runtime::LayerInfo> record;
  std::vector<float> x;
  Values given;  // the initial states when the case gives them
  Values want;   // PyTorch's outputs
};

inline std::vector<TorchCase> TorchCases(Kind kind, bool cell) {
  std::vector<TorchCase> cases;
  for (const RefCase& c : LoadReference(cell ? "recurrent/cells" : std::string("recurrent/") + KindName(kind))) {
    auto p = ParseParams(c);
    if (std::string(p["kind"].GetString()) != KindName(kind)) continue;
    TorchCase t;
    t.name = c.name;
    t.shape.in = p["in"].GetUint();
    t.shape.hidden = p["hidden"].GetUint();
    t.shape.bias = p["bias"].GetBool();
    t.shape.activation = std::string(p["activation"].GetString()) == "relu" ? functional::kRNNActivationReLU
                                                                            : functional::kRNNActivationTanh;
    unsigned count = 1;
    if (!cell) {
      t.shape.layers = p["layers"].GetUint();
      t.shape.bidirectional = p["bidirectional"].GetBool();
      count = t.shape.layers * (t.shape.bidirectional ? 2 : 1);
    }
    t.x = c.inputs[0].data;
    std::vector<CellBlobs> blobs;
    for (unsigned i = 0; i < count; ++i) {
      const auto* in = &c.inputs[1 + 4 * i];
      blobs.push_back({in[0].data, in[1].data, in[2].data, in[3].data});
    }
    for (std::size_t i = 1 + 4 * count; i < c.inputs.size(); ++i) t.given.push_back(c.inputs[i].data);
    for (const auto& o : c.outputs) t.want.push_back(o.data);
    t.record = MakeRecord(kind, cell, t.shape, blobs);
    cases.push_back(std::move(t));
  }
  return cases;
}

// Every fixture case of the member's kind, run after a first call that
// leaves a state behind: a case that gives its initial states must replace
// it, one that does not runs after ResetRNNState.
inline void ExpectMatchesTorch(const Member& m) {
  auto ctx = conv::MakeContext();
  int ran = 0;
  for (const TorchCase& c : TorchCases(m.kind, m.cell)) {
    auto kernel = Configured(m.name, c.record, ctx);
    ASSERT_NE(kernel, nullptr) << c.name;
    ASSERT_FALSE(Run(kernel, m.cell, m.kind, ctx, c.x, c.shape.in).empty()) << c.name;
    if (c.given.empty()) {
      EXPECT_EQ(kernel->ResetRNNState(), 0);
    }
    EXPECT_TRUE(Close(Run(kernel, m.cell, m.kind, ctx, c.x, c.shape.in, c.given), c.want)) << m.name << " " << c.name;
    ++ran;
  }
  EXPECT_GT(ran, 0);
}

// ------------------------------------------------------------------ state

// The stored state carries into the next call, ResetRNNState clears it so
// that the same input gives the first outputs again, and states given as
// inputs replace the stored ones.
inline void ExpectStateLifecycle(const Member& m) {
  auto ctx = conv::MakeContext();
  const Shape s{6, 5, m.cell ? 1u : 2u, !m.cell};
  auto kernel = Configured(m.name, MakeRecord(m.kind, m.cell, s, RandomCells(m.kind, m.cell, s, 3)), ctx);
  ASSERT_NE(kernel, nullptr);
  const auto x = conv::Random(4 * s.in, 9);
  const Values first = Run(kernel, m.cell, m.kind, ctx, x, s.in);
  ASSERT_FALSE(first.empty());
  const Values carried = Run(kernel, m.cell, m.kind, ctx, x, s.in);
  ASSERT_EQ(carried.size(), first.size());
  EXPECT_FALSE(Near(carried[0], first[0], 1e-3)) << "the second call did not continue from the stored state";
  EXPECT_EQ(kernel->ResetRNNState(), 0);
  EXPECT_TRUE(Same(Run(kernel, m.cell, m.kind, ctx, x, s.in), first)) << "after ResetRNNState";

  // Zero states given as inputs act as a reset; other given states change the outputs.
  const unsigned cells = m.cell ? 1 : s.layers * (s.bidirectional ? 2 : 1);
  const Values zeros(StateCount(m.kind), std::vector<float>(cells * s.hidden, 0.0f));
  EXPECT_TRUE(Same(Run(kernel, m.cell, m.kind, ctx, x, s.in, zeros), first)) << "zero states given";
  Values ones = zeros;
  for (auto& v : ones) std::fill(v.begin(), v.end(), 0.5f);
  const Values from_ones = Run(kernel, m.cell, m.kind, ctx, x, s.in, ones);
  ASSERT_EQ(from_ones.size(), first.size());
  EXPECT_FALSE(Near(from_ones[0], first[0], 1e-3)) << "the given states were not used";
  // Only the hidden state given (LSTM): the cell state stays as stored.
  if (m.kind == Kind::kLSTM) {
    EXPECT_EQ(kernel->ResetRNNState(), 0);
    const Values h_only = Run(kernel, m.cell, m.kind, ctx, x, s.in, {ones[0]});
    ASSERT_EQ(h_only.size(), first.size());
    EXPECT_FALSE(Near(h_only[0], from_ones[0], 1e-3));
    EXPECT_FALSE(Near(h_only[0], first[0], 1e-3));
  }
}

// ------------------------------------------------------------------ edge cases

// GRU without bias on zero input and zero state: r = z = 0.5, n = 0, h' = 0.
// LSTM with zero weights from zero state: c' = 0, h' = 0, whatever the input.
inline void ExpectZeroCases(const Member& m) {
  if (m.kind == Kind::kRNN) return;
  auto ctx = conv::MakeContext();
  const Shape s{5, 9, m.cell ? 1u : 2u, !m.cell, m.kind == Kind::kLSTM};
  std::vector<CellBlobs> cells = RandomCells(m.kind, m.cell, s, 21);
  std::vector<float> x(3 * s.in, 0.0f);
  if (m.kind == Kind::kLSTM) {
    for (auto& c : cells) {
      std::fill(c.w_ih.begin(), c.w_ih.end(), 0.0f);
      std::fill(c.w_hh.begin(), c.w_hh.end(), 0.0f);
      std::fill(c.b_ih.begin(), c.b_ih.end(), 0.0f);
      std::fill(c.b_hh.begin(), c.b_hh.end(), 0.0f);
    }
    x = conv::Random(3 * s.in, 22);
  }
  auto kernel = Configured(m.name, MakeRecord(m.kind, m.cell, s, cells), ctx);
  ASSERT_NE(kernel, nullptr);
  const Values out = Run(kernel, m.cell, m.kind, ctx, x, s.in);
  ASSERT_FALSE(out.empty());
  for (const auto& o : out) {
    for (float v : o) ASSERT_EQ(v, 0.0f) << m.name;
  }
}

// ------------------------------------------------------------------ refusals

inline void ExpectRefusals(const Member& m) {
  auto ctx = conv::MakeContext();
  auto kernel = conv::CreateKernel(m.name);
  ASSERT_NE(kernel, nullptr);
  EXPECT_EQ(kernel->GetName(), m.name);
  EXPECT_FALSE(kernel->IsConfiged());
  EXPECT_EQ(kernel->ResetRNNState(), 0) << "a recurrent kernel has a state to clear";
  EXPECT_EQ(kernel->IsValidInput({}), -2) << "not configured";

  const Shape good{4, 6, 2, true};
  const auto cells = RandomCells(m.kind, m.cell, good, 5);
  auto record = [&](Shape s, std::vector<CellBlobs> c) { return MakeRecord(m.kind, m.cell, s, c); };
  struct Bad {
    std::string what;
    std::shared_ptr<runtime::LayerInfo> record;
    bool header;  // refused by IsValidParam already, not only by Config
  };
  const Kind other = m.kind == Kind::kGRU ? Kind::kLSTM : Kind::kGRU;
  std::vector<Bad> bad = {
      {"another record type", std::make_shared<runtime::FullConnectionInfo>(), true},
      {"the other form's record", MakeRecord(m.kind, !m.cell, good, RandomCells(m.kind, !m.cell, good, 5)), true},
      {"another kind's record", MakeRecord(other, m.cell, good, RandomCells(other, m.cell, good, 5)), true},
      {"hidden_size 0", record(Shape{4, 0, 2, true}, cells), true},
      {"in_size 0", record(Shape{0, 6, 2, true}, cells), true},
  };
  {
    auto c = cells;
    c[0].w_ih.pop_back();
    bad.push_back({"weight_ih one float short", record(good, c), false});
    c = cells;
    c.back().w_hh.push_back(1.0f);
    bad.push_back({"weight_hh one float long", record(good, c), false});
    c = cells;
    c[0].b_hh.clear();
    bad.push_back({"bias_hh missing with if_bias", record(good, c), false});
  }
  if (!m.cell) {
    bad.push_back({"num_layers 0", record(Shape{4, 6, 0, true}, cells), true});
    bad.push_back({"more layers than blobs", record(Shape{4, 6, 3, true}, cells), false});
    Shape uni = good;
    uni.bidirectional = false;
    Shape claims = uni;
    claims.bidirectional = true;
    bad.push_back({"bidirectional without reverse weights", record(claims, RandomCells(m.kind, false, uni, 5)), false});
    auto complex = record(good, cells);
    dynamic_cast<runtime::RecurrentStack&>(*complex).complex_rnn_type = 1;
    bad.push_back({"complex_rnn_type 1", complex, true});
  }
  if (m.kind == Kind::kRNN) {
    for (std::uint16_t code : {0, 1, 3, 4, 6}) {
      Shape s = good;
      s.activation = code;
      bad.push_back({"activation_type " + std::to_string(code), record(s, cells), true});
    }
  }
  for (const Bad& b : bad) {
    LogCapture log(utility::kLogError);
    if (b.header) {
      EXPECT_EQ(kernel->IsValidParam(b.record, nullptr), -1) << b.what;
    }
    EXPECT_FALSE(kernel->Config(b.record, nullptr, ctx)) << b.what;
    EXPECT_FALSE(kernel->IsConfiged()) << b.what;
    EXPECT_FALSE(log.lines.empty()) << b.what << " was refused without a log line";
  }
  EXPECT_FALSE(kernel->Config(record(good, cells), nullptr, nullptr));
  ASSERT_TRUE(kernel->Config(record(good, cells), nullptr, ctx));
  EXPECT_EQ(kernel->IsValidParam(record(good, cells), nullptr), 0);

  const unsigned states = m.cell ? 1 : good.layers * 2;
  const auto x = conv::Random(3 * good.in, 1);
  const auto h = conv::Random(states * good.hidden, 2);
  auto x_input =
      m.cell ? Vec(ctx, {good.in}, std::vector<float>(x.begin(), x.begin() + good.in)) : Vec(ctx, {3, good.in}, x);
  std::vector<std::pair<std::string, Tensors>> inputs = {
      {"x one feature short", {Vec(ctx, {good.in - 1}, std::vector<float>(good.in - 1))}},
      {"x as integers", {ctx->cpu->CreateTensor(runtime::MakeShape({3, good.in}, TensorShape::INT32))}},
      {"a null input", {nullptr}},
      {"state one float short",
       {x_input, Vec(ctx, {states * good.hidden - 1}, std::vector<float>(h.begin() + 1, h.end()))}},
      {"too many inputs", Tensors(2 + StateCount(m.kind), x_input)},
  };
  if (!m.cell) inputs.push_back({"x whose last dim is not in_size", {Vec(ctx, {good.in, 3}, x)}});
  EXPECT_TRUE(kernel->GetOutputShapes({}).empty());
  Tensors outputs;
  for (const auto& in : inputs) {
    EXPECT_EQ(kernel->IsValidInput(in.second), -2) << in.first;
    LogCapture log(utility::kLogError);
    EXPECT_FALSE(kernel->Forward(in.second, outputs, ctx)) << in.first;
  }
  EXPECT_FALSE(Forward(kernel, ctx, {x_input}).empty()) << "the good input after the refused ones";
}

// ------------------------------------------------------------------ members against each other

// Sizes around every vector step of the routines: hidden 1..17 and beyond,
// input counts rotating through whole vectors and tails.
struct Sweep {
  unsigned in, hidden;
};
inline std::vector<Sweep> SweepSizes() {
  const unsigned ins[] = {1, 3, 4, 5, 8, 9, 17};
  std::vector<Sweep> v;
  unsigned i = 0;
  for (unsigned h = 1; h <= 17; ++h) v.push_back({ins[i++ % 7], h});
  for (unsigned h : {24u, 33u}) v.push_back({ins[i++ % 7], h});
  return v;
}

// Members a and b (same kind and form) on random weights over SweepSizes(),
// with and without bias, stacks two layers deep, every other one
// bidirectional: bit for bit when `exact`, else within the tolerance.
inline void ExpectMembersAgree(const Member& a, const Member& b, bool exact) {
  ASSERT_TRUE(a.kind == b.kind && a.cell == b.cell);
  auto ctx = conv::MakeContext();
  unsigned seed = 0;
  for (const Sweep& sw : SweepSizes()) {
    for (bool bias : {true, false}) {
      ++seed;
      Shape s{sw.in, sw.hidden, a.cell ? 1u : 2u, !a.cell && seed % 2 == 0, bias};
      if (a.kind == Kind::kRNN && seed % 3 == 0) s.activation = functional::kRNNActivationReLU;
      auto record = MakeRecord(a.kind, a.cell, s, RandomCells(a.kind, a.cell, s, seed * 100));
      auto ka = Configured(a.name, record, ctx), kb = Configured(b.name, record, ctx);
      ASSERT_TRUE(ka && kb);
      const auto x = conv::Random(5 * s.in, seed);
      const Values va = Run(ka, a.cell, a.kind, ctx, x, s.in), vb = Run(kb, b.cell, b.kind, ctx, x, s.in);
      EXPECT_TRUE(exact ? Same(va, vb) : Close(va, vb))
          << a.name << " vs " << b.name << ": in " << s.in << ", hidden " << s.hidden << (bias ? ", bias" : "")
          << (s.bidirectional ? ", bidirectional" : "");
    }
  }
}

// A one-layer sequence member against its cell member stepped over the
// sequence: the forward half of the outputs is the cell's h per step, the
// reverse half the cell's h over the reversed sequence with the reverse
// weights; the final states are the cells' last ones. Bit for bit when
// `exact`.
inline void ExpectSequenceIsTheCellStepped(const Member& cell, const Member& sequence, bool exact) {
  ASSERT_TRUE(cell.cell && !sequence.cell && cell.kind == sequence.kind);
  const Kind kind = cell.kind;
  auto ctx = conv::MakeContext();
  for (unsigned hidden : {1u, 4u, 7u, 8u, 13u}) {
    const Shape s{5, hidden, 1, true};
    const auto cells = RandomCells(kind, false, s, hidden);
    const unsigned steps = 6;
    const auto x = conv::Random(steps * s.in, hidden + 1);
    std::vector<float> reversed;
    for (unsigned t = steps; t-- > 0;)
      reversed.insert(reversed.end(), x.begin() + t * s.in, x.begin() + (t + 1) * s.in);

    auto seq = Configured(sequence.name, MakeRecord(kind, false, s, cells), ctx);
    auto fwd = Configured(cell.name, MakeRecord(kind, true, s, {cells[0]}), ctx);
    auto rev = Configured(cell.name, MakeRecord(kind, true, s, {cells[1]}), ctx);
    ASSERT_TRUE(seq && fwd && rev);
    const Values got = Run(seq, false, kind, ctx, x, s.in);
    const Values f = Run(fwd, true, kind, ctx, x, s.in), r = Run(rev, true, kind, ctx, reversed, s.in);
    ASSERT_EQ(got.size(), 1 + StateCount(kind));
    ASSERT_FALSE(f.empty() || r.empty());
    // The cells' outputs arranged as the sequence arranges them.
    Values want(got.size());
    for (unsigned t = 0; t < steps; ++t) {
      want[0].insert(want[0].end(), f[0].begin() + t * hidden, f[0].begin() + (t + 1) * hidden);
      const unsigned rt = steps - 1 - t;
      want[0].insert(want[0].end(), r[0].begin() + rt * hidden, r[0].begin() + (rt + 1) * hidden);
    }
    for (unsigned st = 0; st < StateCount(kind); ++st) {
      want[1 + st].assign(f[st].end() - hidden, f[st].end());
      want[1 + st].insert(want[1 + st].end(), r[st].end() - hidden, r[st].end());
    }
    EXPECT_TRUE(exact ? Same(got, want) : Close(got, want)) << sequence.name << " hidden " << hidden;
  }
}

}  // namespace rnn
}  // namespace testing
}  // namespace tarn

// The fixture, state, edge-case and refusal checks of every member in
// `members` (an array of rnn::Member), as tests of the file that expands
// this: its path names the members' instruction-set family.
#define TRN_RECURRENT_MEMBER_TESTS(Suite, members)                                                                     \
  class Suite : public ::testing::TestWithParam<int> {};                                                               \
  TEST_P(Suite, MatchesPyTorch) { ::tarn::testing::rnn::ExpectMatchesTorch(members[GetParam()]); }                     \
  TEST_P(Suite, CarriesResetsAndReplacesItsState) { ::tarn::testing::rnn::ExpectStateLifecycle(members[GetParam()]); } \
  TEST_P(Suite, ZeroInputsAndWeightsGiveZeroStates) { ::tarn::testing::rnn::ExpectZeroCases(members[GetParam()]); }    \
  TEST_P(Suite, RefusesBrokenRecordsAndInputs) { ::tarn::testing::rnn::ExpectRefusals(members[GetParam()]); }          \
  INSTANTIATE_TEST_SUITE_P(Members, Suite, ::testing::Range(0, static_cast<int>(std::size(members))),                  \
                           [](const auto& info) { return std::string(members[info.param].name); })
