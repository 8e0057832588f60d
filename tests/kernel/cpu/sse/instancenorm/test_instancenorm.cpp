// Instance normalisation, SSE forms: the statistics within a float step of the portable ones, the
// kernel (and softmax) against the PyTorch fixtures.
#include <gtest/gtest.h>

#include "kernel/cpu/sse/resampling_forms.h"

namespace tarn {
namespace testing {
namespace {

TEST(SseInstanceNorm, StatisticsNearPortable) {
  TRN_REQUIRE_SSE();
  ExpectMeanVarNearPortable<SseForms>();
}

TEST(SseInstanceNorm, KernelMatchesPyTorch) {
  TRN_REQUIRE_SSE();
  ExpectStatisticalKernelsMatchPyTorch<SseForms>();
}

}  // namespace
}  // namespace testing
}  // namespace tarn
