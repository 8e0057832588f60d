// Batch normalisation, AVX forms: the affine routines equal the portable one bit for bit over every
// plane tail and on blocked planes; the kernels equal the portable kernel on CHW
// and blocked tensors (padding lanes kept zero); upsampling and clip kernels
// are checked there too.
#include <gtest/gtest.h>

#include "kernel/cpu/avx/resampling_forms.h"

namespace tarn {
namespace testing {
namespace {

TEST(AvxBatchNorm, AffineFormsEqualPortable) {
  TRN_REQUIRE_AVX();
  ExpectAffineFormsEqualPortable<AvxForms>();
}

TEST(AvxBatchNorm, KernelsEqualPortableOnPlanesAndBlocks) {
  TRN_REQUIRE_AVX();
  ExpectExactKernelsEqualPortable<AvxForms>();
}

}  // namespace
}  // namespace testing
}  // namespace tarn
