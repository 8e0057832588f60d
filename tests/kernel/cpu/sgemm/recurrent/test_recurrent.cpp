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

TRN_RECURRENT_MEMBER_TESTS(RecurrentSgemm, rnn::kSgemmMembers);

class RecurrentSgemmAgainstFallback : public ::testing::TestWithParam<int> {};
TEST_P(RecurrentSgemmAgainstFallback, AgreesOverEveryTail) {
  rnn::ExpectMembersAgree(rnn::kSgemmMembers[GetParam()], rnn::kFallbackMembers[GetParam()], false);
}
INSTANTIATE_TEST_SUITE_P(Members, RecurrentSgemmAgainstFallback, ::testing::Range(0, 6),
                         [](const auto& info) { return std::string(rnn::kSgemmMembers[info.param].name); });

TEST(RecurrentSgemmSequence, IsItsCellSteppedWithinTheTolerance) {
  for (int i = 0; i < 6; i += 2)
    rnn::ExpectSequenceIsTheCellStepped(rnn::kSgemmMembers[i], rnn::kSgemmMembers[i + 1], false);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
