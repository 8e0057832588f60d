// The AVX depthwise members (C4HW4 and C8HW8, 3x3 and 5x5, strides 1 and 2)
// against the double reference over every tail and channel count, PyTorch
// fixtures (groups = channels) and hostile records.
#include <gtest/gtest.h>

#include "kernel/cpu/depthwise_test_util.h"

namespace tarn {
namespace testing {
namespace {

const conv::DepthwiseMember kAvxDepthwise[] = {
    {"Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1", 4, 3, 1},
    {"Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1", 4, 3, 2},
    {"Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1", 8, 3, 1},
    {"Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1", 8, 3, 2},
    {"Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1", 8, 5, 1},
    {"Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1", 8, 5, 2},
};

TRN_DEPTHWISE_MEMBER_TESTS(DepthwiseAvx, kAvxDepthwise);

}  // namespace
}  // namespace testing
}  // namespace tarn
