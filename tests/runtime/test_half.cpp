#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "tarn/half.h"

namespace {

// Independent decoding of a binary16 pattern by its definition.
double DecodeHalf(std::uint16_t h) {
  const int sign = h >> 15, exponent = (h >> 10) & 31, mantissa = h & 1023;
  double magnitude;
  if (exponent == 0) {
    magnitude = std::ldexp(mantissa, -24);
  } else if (exponent == 31) {
    magnitude = mantissa ? std::numeric_limits<double>::quiet_NaN() : std::numeric_limits<double>::infinity();
  } else {
    magnitude = std::ldexp(1024 + mantissa, exponent - 25);
  }
  return sign ? -magnitude : magnitude;
}

// Truncation by definition: the half of largest magnitude not above |f|, same sign,
// infinity beyond the largest finite half's next step.
std::uint16_t TruncateByDefinition(float f) {
  const std::uint16_t sign = std::signbit(f) ? 0x8000 : 0;
  const double a = std::fabs(static_cast<double>(f));
  if (std::isinf(a) || a >= 65536.0) return sign | 0x7C00;
  std::uint16_t best = 0;
  for (std::uint16_t bits = 0; bits < 0x7C00; ++bits) {
    if (DecodeHalf(bits) <= a) best = bits;
  }
  return sign | best;
}

TEST(Half, ToFloatIsExactForEveryPattern) {
  for (std::uint32_t bits = 0; bits <= 0xFFFF; ++bits) {
    const float f = half_float::half::FromBits(static_cast<std::uint16_t>(bits));
    const double expected = DecodeHalf(static_cast<std::uint16_t>(bits));
    if (std::isnan(expected)) {
      ASSERT_TRUE(std::isnan(f)) << bits;
    } else {
      ASSERT_EQ(static_cast<double>(f), expected) << bits;
      ASSERT_EQ(std::signbit(f), (bits & 0x8000) != 0) << bits;
    }
  }
}

TEST(Half, FromFloatTruncates) {
  EXPECT_EQ(half_float::half(0.1f).bits(), 0x2E66);
  EXPECT_EQ(half_float::half(1.000732421875f).bits(), 0x3C00);  // rounding would give 0x3C01
  EXPECT_EQ(half_float::half(-1.000732421875f).bits(), 0xBC00);
  EXPECT_EQ(half_float::half(65519.0f).bits(), 0x7BFF);          // stays finite when truncated
  EXPECT_EQ(half_float::half(65536.0f).bits(), 0x7C00);
  EXPECT_EQ(half_float::half(-1e9f).bits(), 0xFC00);
  EXPECT_EQ(half_float::half(5.96e-8f).bits(), 0x0000);          // just below the smallest subnormal
  EXPECT_EQ(half_float::half(5.9604645e-8f).bits(), 0x0001);
  EXPECT_EQ(half_float::half(-0.0f).bits(), 0x8000);
  EXPECT_EQ(half_float::half(std::numeric_limits<float>::infinity()).bits(), 0x7C00);
}

TEST(Half, NaNStaysNaNWhateverItsPayload) {
  for (std::uint32_t payload : {0x400000u, 0x000001u, 0x001FFFu, 0x7FFFFFu}) {
    for (std::uint32_t sign : {0u, 0x80000000u}) {
      const std::uint32_t bits = sign | 0x7F800000u | payload;
      float f;
      std::memcpy(&f, &bits, 4);
      const half_float::half h(f);
      EXPECT_EQ(h.bits() & 0x7C00, 0x7C00);
      EXPECT_NE(h.bits() & 0x03FF, 0) << std::hex << bits;
      EXPECT_TRUE(std::isnan(static_cast<float>(h)));
    }
  }
}

TEST(Half, FromFloatMatchesTheDefinitionOnSampledFloats) {
  std::mt19937 rng(7);
  std::uniform_int_distribution<std::uint32_t> any;
  int checked = 0;
  for (int i = 0; i < 3000; ++i) {
    std::uint32_t bits = any(rng);
    // Bias the sample towards the half range, where the tables matter.
    if (i % 2) bits = (bits & 0x807FFFFFu) | ((100u + (bits >> 24) % 50u) << 23);
    float f;
    std::memcpy(&f, &bits, 4);
    if (std::isnan(f)) continue;
    ASSERT_EQ(half_float::half(f).bits(), TruncateByDefinition(f)) << f;
    ++checked;
  }
  EXPECT_GT(checked, 2900);
}

}  // namespace
