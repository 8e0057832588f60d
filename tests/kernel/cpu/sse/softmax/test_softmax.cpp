// Softmax, SSE forms: within 1e-6 of the portable routine along and across the axis over
// every tail, and the polynomial exponential against std::exp.
#include <gtest/gtest.h>

#include "kernel/cpu/sse/resampling_forms.h"

namespace tarn {
namespace testing {
namespace {

TEST(SseSoftmax, FormsNearPortableOverEveryTail) {
  TRN_REQUIRE_SSE();
  ExpectSoftmaxNearPortable<SseForms>();
}

TEST(SseSoftmax, ExponentialIsAccurate) {
  TRN_REQUIRE_SSE();
  ExpectSoftmaxExponentialAccurate<SseForms>();
}

}  // namespace
}  // namespace testing
}  // namespace tarn
