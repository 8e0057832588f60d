// The AVX transposed member (3x3, dilation 1, one group, any stride and
// padding; C8HW8) against the double reference over stride phases, paddings
// and channel tails, PyTorch fixtures and hostile records.
#include <gtest/gtest.h>

#include "kernel/cpu/depthwise_test_util.h"

namespace tarn {
namespace testing {
namespace {

const conv::MemberDesc kAvxTransposed[] = {{"ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1", 8}};

TRN_TRANSPOSE_MEMBER_TESTS(ConvTransposeAvx, kAvxTransposed);

}  // namespace
}  // namespace testing
}  // namespace tarn
