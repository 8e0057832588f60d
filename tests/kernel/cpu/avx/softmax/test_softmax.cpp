// Softmax, AVX forms: within 1e-6 of the portable routine along and across the axis over
// every tail, and the polynomial exponential against std::exp.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/resampling_forms.h"

namespace tarn {
namespace testing {
namespace {

TEST(AvxSoftmax, FormsNearPortableOverEveryTail) {
  TRN_REQUIRE_AVX();
  ExpectSoftmaxNearPortable<AvxForms>();
}

TEST(AvxSoftmax, ExponentialIsAccurate) {
  TRN_REQUIRE_AVX();
  ExpectSoftmaxExponentialAccurate<AvxForms>();
}

}  // namespace
}  // namespace testing
}  // namespace tarn
