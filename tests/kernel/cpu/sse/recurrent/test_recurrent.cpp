// The SSE recurrent members against PyTorch, their state, edge cases and
// refusals; against the portable members over every tail of the routines
// (within the tolerance: the SSE matrix-vector product sums in its own
// order); a sequence member is its cell stepped, bit for bit.
#include <gtest/gtest.h>

#include "kernel/cpu/recurrent_test_util.h"

namespace tarn {
namespace testing {
namespace {

namespace functional = kernel::functional;
using rnn::Kind;
using rnn::Member;

TRN_RECURRENT_MEMBER_TESTS(RecurrentSse, rnn::kSseMembers);

class RecurrentSseAgainstFallback : public ::testing::TestWithParam<int> {};
TEST_P(RecurrentSseAgainstFallback, AgreesOverEveryTail) {
  rnn::ExpectMembersAgree(rnn::kSseMembers[GetParam()], rnn::kFallbackMembers[GetParam()], false);
}
INSTANTIATE_TEST_SUITE_P(Members, RecurrentSseAgainstFallback, ::testing::Range(0, 6),
                         [](const auto& info) { return std::string(rnn::kSseMembers[info.param].name); });

TEST(RecurrentSseSequence, IsItsCellSteppedBitForBit) {
  for (int i = 0; i < 6; i += 2)
    rnn::ExpectSequenceIsTheCellStepped(rnn::kSseMembers[i], rnn::kSseMembers[i + 1], true);
}

TEST(RecurrentSseStep, OtherActivationCodesAreNotImplemented) {
  auto ctx = conv::MakeContext();
  const auto cell = rnn::RandomCell(Kind::kRNN, 2, 3, false, 1);
  auto tensor = [&](const std::vector<float>& v) { return rnn::Vec(ctx, {static_cast<unsigned>(v.size())}, v); };
  LogCapture quiet(1000);
  EXPECT_EQ(ThrownMessage([&] {
              functional::RNNCell_SSE_C_F32_M1({tensor({1, 2}), tensor({0, 0, 0})}, 2, 3, 0, 3, tensor(cell.w_ih),
                                               tensor(cell.w_hh), nullptr, nullptr, ctx->cpu);
            }),
            "Not Implemented.");
}

}  // namespace
}  // namespace testing
}  // namespace tarn
