// The CBLAS recurrent members against PyTorch, their state, edge cases and
// refusals, and against the portable members within the tolerance (the CBLAS
// sums its products in its own order). The sequence members form the
// input-side products of all steps in one matrix product, so they match
// their cells stepped within the tolerance, not bit for bit.
#include <gtest/gtest.h>

#include "kernel/cpu/recurrent_test_util.h"

namespace tarn {
namespace testing {
namespace {

using rnn::Kind;
using rnn::Member;

const Member kSgemm[] = {
    {"RNNCell_SGEMM_C_F32_M1", Kind::kRNN, true},  {"RNN_SGEMM_SC_F32_M1", Kind::kRNN, false},
    {"LSTMCell_SGEMM_C_F32_M1", Kind::kLSTM, true}, {"LSTM_SGEMM_SC_F32_M1", Kind::kLSTM, false},
    {"GRUCell_SGEMM_C_F32_M1", Kind::kGRU, true},  {"GRU_SGEMM_SC_F32_M1", Kind::kGRU, false},
};
const Member kFallback[] = {
    {"RNNCell_Fallback_C_F32_M1", Kind::kRNN, true},  {"RNN_Fallback_SC_F32_M1", Kind::kRNN, false},
    {"LSTMCell_Fallback_C_F32_M1", Kind::kLSTM, true}, {"LSTM_Fallback_SC_F32_M1", Kind::kLSTM, false},
    {"GRUCell_Fallback_C_F32_M1", Kind::kGRU, true},  {"GRU_Fallback_SC_F32_M1", Kind::kGRU, false},
};

TRN_RECURRENT_MEMBER_TESTS(RecurrentSgemm, kSgemm);

class RecurrentSgemmAgainstFallback : public ::testing::TestWithParam<int> {};
TEST_P(RecurrentSgemmAgainstFallback, AgreesOverEveryTail) {
  rnn::ExpectMembersAgree(kSgemm[GetParam()], kFallback[GetParam()], false);
}
INSTANTIATE_TEST_SUITE_P(Members, RecurrentSgemmAgainstFallback, ::testing::Range(0, 6),
                         [](const auto& info) { return std::string(kSgemm[info.param].name); });

TEST(RecurrentSgemmSequence, IsItsCellSteppedWithinTheTolerance) {
  for (int i = 0; i < 6; i += 2) rnn::ExpectSequenceIsTheCellStepped(kSgemm[i], kSgemm[i + 1], false);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
