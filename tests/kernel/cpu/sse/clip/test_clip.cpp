// Clip, SSE forms: bit for bit the portable routine over every step and tail, NaN,
// signed zeros and infinite bounds included.
#include <gtest/gtest.h>

#include "kernel/cpu/sse/resampling_forms.h"

namespace tarn {
namespace testing {
namespace {

TEST(SseClip, FormEqualsPortableOverEveryTail) {
  TRN_REQUIRE_SSE();
  ExpectClipEqualsPortable<SseForms>();
}

}  // namespace
}  // namespace testing
}  // namespace tarn
