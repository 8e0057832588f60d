// The SSE transposed members (3x3, dilation 1, one group, any stride and
// padding; CHW and C4HW4) against the double reference over stride phases,
// paddings and channel tails, PyTorch fixtures and hostile records.
#include <gtest/gtest.h>

#include "kernel/cpu/depthwise_test_util.h"

namespace tarn {
namespace testing {
namespace {

const conv::MemberDesc kSseTransposed[] = {
    {"ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1", 1},
    {"ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1", 4},
};

TRN_TRANSPOSE_MEMBER_TESTS(ConvTransposeSse, kSseTransposed);

}  // namespace
}  // namespace testing
}  // namespace tarn
