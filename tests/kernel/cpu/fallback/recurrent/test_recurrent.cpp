// The portable recurrent members against PyTorch, their state, edge cases
// and refusals; a sequence member is its cell stepped over the sequence, bit
// for bit; the step's "Not Implemented." path.
#include <gtest/gtest.h>

#include "kernel/cpu/recurrent_test_util.h"

namespace tarn {
namespace testing {
namespace {

namespace functional = kernel::functional;
using rnn::Kind;
using rnn::Member;

TRN_RECURRENT_MEMBER_TESTS(RecurrentFallback, rnn::kFallbackMembers);

TEST(RecurrentFallbackSequence, IsItsCellSteppedBitForBit) {
  for (int i = 0; i < 6; i += 2)
    rnn::ExpectSequenceIsTheCellStepped(rnn::kFallbackMembers[i], rnn::kFallbackMembers[i + 1], true);
}

// The simple step knows ReLU (2) and tanh (5) only; the tensor step of every
// family says so through the assertion, and its ReLU is the ReLU.
TEST(RecurrentFallbackStep, OtherActivationCodesAreNotImplemented) {
  auto ctx = conv::MakeContext();
  const unsigned in = 3, hidden = 4;
  const auto cell = rnn::RandomCell(Kind::kRNN, in, hidden, true, 1);
  auto tensor = [&](const std::vector<float>& v) { return rnn::Vec(ctx, {static_cast<unsigned>(v.size())}, v); };
  const rnn::Tensors inputs = {tensor(conv::Random(in, 2)), tensor(conv::Random(hidden, 3))};
  const functional::RNNCellStep steps[] = {functional::RNNCell_Fallback_C_F32_M1, functional::RNNCell_SGEMM_C_F32_M1};
  for (auto step : steps) {
    auto run = [&](std::uint32_t code) {
      return step(inputs, in, hidden, 1, code, tensor(cell.w_ih), tensor(cell.w_hh), tensor(cell.b_ih),
                  tensor(cell.b_hh), ctx->cpu);
    };
    for (std::uint32_t code : {0u, 1u, 3u, 4u, 6u, 65535u}) {
      LogCapture quiet(1000);
      EXPECT_EQ(ThrownMessage([&] { run(code); }), "Not Implemented.") << "code " << code;
    }
    const auto relu = run(functional::kRNNActivationReLU), tanh = run(functional::kRNNActivationTanh);
    ASSERT_EQ(relu.size(), 1u);
    const auto r = conv::Values(relu[0]), t = conv::Values(tanh[0]);
    for (unsigned j = 0; j < hidden; ++j) {
      // Both activate the same sum s: where relu(s) > 0 it is s itself.
      EXPECT_GE(r[j], 0.0f);
      if (r[j] > 0.0f) {
        EXPECT_EQ(t[j], std::tanh(r[j]));
      }
    }
  }
}

// A tensor step refuses what it cannot compute through its assertion.
TEST(RecurrentFallbackStep, MissingOrMisSizedTensorsFailTheAssertion) {
  auto ctx = conv::MakeContext();
  const unsigned in = 3, hidden = 4;
  const auto cell = rnn::RandomCell(Kind::kLSTM, in, hidden, true, 1);
  auto tensor = [&](const std::vector<float>& v) { return rnn::Vec(ctx, {static_cast<unsigned>(v.size())}, v); };
  const auto x = tensor(conv::Random(in, 2)), h = tensor(conv::Random(hidden, 3)), c = tensor(conv::Random(hidden, 4));
  auto step = [&](const rnn::Tensors& inputs, const std::shared_ptr<runtime::Tensor>& bias_hh) {
    return functional::LSTMCell_Fallback_C_F32_M1(inputs, in, hidden, 1, tensor(cell.w_ih), tensor(cell.w_hh),
                                                  tensor(cell.b_ih), bias_hh, ctx->cpu);
  };
  LogCapture quiet(1000);
  EXPECT_EQ(step({x, h, c}, tensor(cell.b_hh)).size(), 2u);
  EXPECT_NE(ThrownMessage([&] { step({x, h}, tensor(cell.b_hh)); }), "") << "no cell state";
  EXPECT_NE(ThrownMessage([&] { step({x, h, x}, tensor(cell.b_hh)); }), "") << "x where c belongs";
  EXPECT_NE(ThrownMessage([&] { step({x, h, c}, nullptr); }), "") << "no bias_hh with hasBias";
  EXPECT_NE(ThrownMessage([&] { step({h, h, c}, tensor(cell.b_hh)); }), "") << "x of the hidden size";
}

}  // namespace
}  // namespace testing
}  // namespace tarn
