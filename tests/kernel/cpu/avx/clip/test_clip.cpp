// Clip, AVX forms: bit for bit the portable routine over every step and tail, NaN,
// signed zeros and infinite bounds included.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/resampling_forms.h"

namespace tarn {
namespace testing {
namespace {

TEST(AvxClip, FormEqualsPortableOverEveryTail) {
  TRN_REQUIRE_AVX();
  ExpectClipEqualsPortable<AvxForms>();
}

}  // namespace
}  // namespace testing
}  // namespace tarn
