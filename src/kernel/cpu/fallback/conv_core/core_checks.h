// Argument checks of the raw convolution cores (TARN_CONV_CORE_PARAMS). Each
// check is a TARN_NATIVE_ASSERT of its own, so a failure names the argument
// rule that broke, spelled as written here.
#pragma once

#include "tarn/utility/log.h"

// The output size rule, after the core's layout and geometry checks.
#define TARN_CHECK_CORE_OUTPUT_SIZE()                                                       \
  TARN_NATIVE_ASSERT((i_srcH - i_dilateY * (i_kernelY - 1) - 1) / i_strideY + 1 == i_dstH); \
  TARN_NATIVE_ASSERT((i_srcW - i_dilateX * (i_kernelX - 1) - 1) / i_strideX + 1 == i_dstW)

// A kernel of kx x ky taps, stride 1, dilation 1, then the output size rule.
#define TARN_CHECK_CORE_GEOMETRY(kx, ky) \
  TARN_NATIVE_ASSERT(i_kernelX == kx);   \
  TARN_NATIVE_ASSERT(i_kernelY == ky);   \
  TARN_NATIVE_ASSERT(i_strideX == 1);    \
  TARN_NATIVE_ASSERT(i_strideY == 1);    \
  TARN_NATIVE_ASSERT(i_dilateX == 1);    \
  TARN_NATIVE_ASSERT(i_dilateY == 1);    \
  TARN_CHECK_CORE_OUTPUT_SIZE()

// Blocked channel counts: `in_rule` / `out_rule` are the stored counts the
// core expects, e.g. (i_inChannels + 3) / 4.
#define TARN_CHECK_CORE_CHANNELS(in_rule, out_rule) \
  TARN_NATIVE_ASSERT(i_groups == 1);                \
  TARN_NATIVE_ASSERT(in_rule == i_srcC);            \
  TARN_NATIVE_ASSERT(out_rule == i_dstC)
