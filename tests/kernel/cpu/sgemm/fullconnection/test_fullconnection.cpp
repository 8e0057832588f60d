// The CBLAS fully connected member and routine against PyTorch fixtures and
// the double reference, and its refusals.
#include <gtest/gtest.h>

#include <vector>

#include "kernel/cpu/fc_test_util.h"
#include "tarn/kernel/fullconnection.h"

namespace tarn {
namespace testing {
namespace {

const conv::FcMember kSgemm[] = {{"FullConnection_SGEMM_C_Float_M1", conv::Form::kVector, 1}};

TRN_FC_MEMBER_TESTS(FullConnectionSgemm, kSgemm);

TEST(FullConnectionSgemmRoutine, AddsTheProductOntoTheBias) {
  conv::ExpectRoutineMatches(
      "sgemm",
      [](std::vector<float>& x, const std::vector<float>& w, unsigned in, unsigned out, float* bias, float* y) {
        kernel::functional::fullconnection_sgemm_c_f32_m1(x.data(), in, out, w.data(), bias, y);
      },
      conv::FeatureCounts(), {1, 5, 16});
}

}  // namespace
}  // namespace testing
}  // namespace tarn
