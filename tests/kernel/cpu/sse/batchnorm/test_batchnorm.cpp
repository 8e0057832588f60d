// Batch normalisation, SSE forms: the affine routines equal the portable one bit for bit over every
// plane tail and on blocked planes; the kernels equal the portable kernel on CHW
// and blocked tensors (padding lanes kept zero); upsampling and clip kernels
// are checked there too.
#include <gtest/gtest.h>

#include "kernel/cpu/sse/resampling_forms.h"

namespace tarn {
namespace testing {
namespace {

TEST(SseBatchNorm, AffineFormsEqualPortable) {
  TRN_REQUIRE_SSE();
  ExpectAffineFormsEqualPortable<SseForms>();
}

TEST(SseBatchNorm, KernelsEqualPortableOnPlanesAndBlocks) {
  TRN_REQUIRE_SSE();
  ExpectExactKernelsEqualPortable<SseForms>();
}

}  // namespace
}  // namespace testing
}  // namespace tarn
