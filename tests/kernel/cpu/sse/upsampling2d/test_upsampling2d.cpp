// Upsampling, SSE forms: nearest, both bilinear conventions and the 2x column path equal
// the portable routine bit for bit over every output tail, on planes and blocks.
#include <gtest/gtest.h>

#include "kernel/cpu/sse/resampling_forms.h"

namespace tarn {
namespace testing {
namespace {

TEST(SseUpsample, FormsEqualPortableOverEveryTail) {
  TRN_REQUIRE_SSE();
  ExpectUpsampleFormsEqualPortable<SseForms>();
}

}  // namespace
}  // namespace testing
}  // namespace tarn
