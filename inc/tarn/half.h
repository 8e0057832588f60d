// IEEE 754 binary16 storage type used for weights and 16-bit record attributes.
//
// Only conversions are provided. float -> half uses the base/shift table
// method and truncates the mantissa (round toward zero); half -> float is exact
// through the mantissa/exponent/offset tables. All tables are built at compile
// time, so the header has no link-time dependency.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

namespace half_float {
namespace detail {

struct FloatToHalfTables {
  std::array<std::uint16_t, 512> base{};
  std::array<std::uint8_t, 512> shift{};
};

constexpr FloatToHalfTables MakeFloatToHalfTables() {
  FloatToHalfTables t{};
  for (int i = 0; i < 256; ++i) {
    const int e = i - 127;
    std::uint16_t base = 0;
    std::uint8_t shift = 0;
    if (e < -24) {  // too small even for a subnormal: signed zero
      base = 0x0000;
      shift = 24;
    } else if (e < -14) {  // half subnormal
      base = static_cast<std::uint16_t>(0x0400 >> (-e - 14));
      shift = static_cast<std::uint8_t>(-e - 1);
    } else if (e <= 15) {  // normal
      base = static_cast<std::uint16_t>((e + 15) << 10);
      shift = 13;
    } else if (e < 128) {  // beyond the half range: infinity
      base = 0x7C00;
      shift = 24;
    } else {  // float infinity or NaN keeps its top mantissa bits
      base = 0x7C00;
      shift = 13;
    }
    t.base[i] = base;
    t.base[i | 0x100] = static_cast<std::uint16_t>(base | 0x8000);
    t.shift[i] = shift;
    t.shift[i | 0x100] = shift;
  }
  return t;
}

struct HalfToFloatTables {
  std::array<std::uint32_t, 2048> mantissa{};
  std::array<std::uint32_t, 64> exponent{};
  std::array<std::uint16_t, 64> offset{};
};

constexpr std::uint32_t NormaliseSubnormalMantissa(std::uint32_t i) {
  std::uint32_t m = i << 13;
  std::uint32_t e = 0;
  while (!(m & 0x00800000u)) {
    e -= 0x00800000u;
    m <<= 1;
  }
  m &= ~0x00800000u;
  e += 0x38800000u;
  return m | e;
}

constexpr HalfToFloatTables MakeHalfToFloatTables() {
  HalfToFloatTables t{};
  t.mantissa[0] = 0;
  for (std::uint32_t i = 1; i < 1024; ++i) t.mantissa[i] = NormaliseSubnormalMantissa(i);
  for (std::uint32_t i = 1024; i < 2048; ++i) t.mantissa[i] = 0x38000000u + ((i - 1024) << 13);
  t.exponent[0] = 0;
  for (std::uint32_t i = 1; i < 31; ++i) t.exponent[i] = i << 23;
  t.exponent[31] = 0x47800000u;
  t.exponent[32] = 0x80000000u;
  for (std::uint32_t i = 33; i < 63; ++i) t.exponent[i] = 0x80000000u + ((i - 32) << 23);
  t.exponent[63] = 0xC7800000u;
  for (std::uint32_t i = 0; i < 64; ++i) t.offset[i] = (i == 0 || i == 32) ? 0 : 1024;
  return t;
}

inline constexpr FloatToHalfTables kFloatToHalf = MakeFloatToHalfTables();
inline constexpr HalfToFloatTables kHalfToFloat = MakeHalfToFloatTables();

inline std::uint16_t FloatToHalfBits(float value) {
  std::uint32_t f;
  std::memcpy(&f, &value, sizeof f);
  const std::uint32_t idx = f >> 23;  // sign and exponent, 9 bits
  std::uint16_t h = static_cast<std::uint16_t>(kFloatToHalf.base[idx] +
                                               ((f & 0x007FFFFFu) >> kFloatToHalf.shift[idx]));
  // A NaN whose payload lives only in the low 13 bits would otherwise collapse to infinity.
  if ((f & 0x7F800000u) == 0x7F800000u && (f & 0x007FFFFFu) && !(h & 0x03FFu)) h |= 0x0200u;
  return h;
}

inline float HalfBitsToFloat(std::uint16_t h) {
  const std::uint32_t f =
      kHalfToFloat.mantissa[kHalfToFloat.offset[h >> 10] + (h & 0x3FFu)] + kHalfToFloat.exponent[h >> 10];
  float out;
  std::memcpy(&out, &f, sizeof out);
  return out;
}

}  // namespace detail

class half {
 public:
  constexpr half() = default;
  explicit half(float value) : bits_(detail::FloatToHalfBits(value)) {}

  static half FromBits(std::uint16_t bits) {
    half h;
    h.bits_ = bits;
    return h;
  }

  operator float() const { return detail::HalfBitsToFloat(bits_); }
  std::uint16_t bits() const { return bits_; }

  friend bool operator==(half a, half b) { return a.bits_ == b.bits_; }
  friend bool operator!=(half a, half b) { return a.bits_ != b.bits_; }

 private:
  std::uint16_t bits_ = 0;
};

static_assert(sizeof(half) == 2, "half must be two bytes");

}  // namespace half_float
