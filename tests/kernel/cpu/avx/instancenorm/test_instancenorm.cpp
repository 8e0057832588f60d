// Instance normalisation, AVX forms: the statistics within a float step of the portable ones, the
// kernel (and softmax) against the PyTorch fixtures.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/resampling_forms.h"

namespace tarn {
namespace testing {
namespace {

TEST(AvxInstanceNorm, StatisticsNearPortable) {
  TRN_REQUIRE_AVX();
  ExpectMeanVarNearPortable<AvxForms>();
}

TEST(AvxInstanceNorm, KernelMatchesPyTorch) {
  TRN_REQUIRE_AVX();
  ExpectStatisticalKernelsMatchPyTorch<AvxForms>();
}

}  // namespace
}  // namespace testing
}  // namespace tarn
