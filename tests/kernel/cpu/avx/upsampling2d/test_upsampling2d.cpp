// Upsampling, AVX forms: nearest, both bilinear conventions and the 2x column path equal
// the portable routine bit for bit over every output tail, on planes and blocks.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/resampling_forms.h"

namespace tarn {
namespace testing {
namespace {

TEST(AvxUpsample, FormsEqualPortableOverEveryTail) {
  TRN_REQUIRE_AVX();
  ExpectUpsampleFormsEqualPortable<AvxForms>();
}

}  // namespace
}  // namespace testing
}  // namespace tarn
