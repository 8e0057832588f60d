// The M2 GRU pair: the CBLAS product with the SSE add/sub/mul. Those are
// single IEEE operations like the plain ones, so the pair gives the bits of
// the SGEMM M1 GRU members (cell and sequence) over every tail; and PyTorch's
// numbers, state, edge cases and refusals like every member.
#include <gtest/gtest.h>

#include "kernel/cpu/recurrent_test_util.h"

namespace tarn {
namespace testing {
namespace {

using rnn::Kind;
using rnn::Member;

const Member kSseSgemm[] = {{"GRUCell_SSE_SGEMM_C_F32_M2", Kind::kGRU, true},
                            {"GRU_SSE_SGEMM_SC_F32_M2", Kind::kGRU, false}};
const Member kSgemm[] = {{"GRUCell_SGEMM_C_F32_M1", Kind::kGRU, true}, {"GRU_SGEMM_SC_F32_M1", Kind::kGRU, false}};

TRN_RECURRENT_MEMBER_TESTS(RecurrentSseSgemm, kSseSgemm);

TEST(RecurrentSseSgemmAgainstSgemm, CellIsBitIdenticalOverEveryTail) {
  rnn::ExpectMembersAgree(kSseSgemm[0], kSgemm[0], true);
}

TEST(RecurrentSseSgemmAgainstSgemm, SequenceIsBitIdenticalOverEveryTail) {
  rnn::ExpectMembersAgree(kSseSgemm[1], kSgemm[1], true);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
