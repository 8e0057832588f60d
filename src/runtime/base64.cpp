#include "runtime/base64.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include "tarn/runtime/binary_stream.h"

namespace tarn {
namespace runtime {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<std::int8_t, 256> MakeDecodeTable() {
  std::array<std::int8_t, 256> t{};
  for (auto& v : t) v = -1;
  for (int i = 0; i < 64; ++i) t[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::int8_t>(i);
  return t;
}

constexpr std::array<std::int8_t, 256> kDecode = MakeDecodeTable();

// Weight blobs are tens of megabytes: the fast paths convert two characters
// (12 bits) per table lookup instead of one (6 bits).
constexpr std::uint16_t kInvalidPair = 0x8000;

// Two characters read as a little-endian 16-bit number (first character in
// the low byte) -> their 12 bits, or kInvalidPair.
const std::uint16_t* DecodePairs() {
  static const auto* table = [] {
    auto* t = new std::array<std::uint16_t, 65536>();
    for (unsigned i = 0; i < 65536; ++i) {
      const int a = kDecode[i & 0xFF], b = kDecode[i >> 8];
      (*t)[i] = (a | b) < 0 ? kInvalidPair : static_cast<std::uint16_t>((a << 6) | b);
    }
    return t;
  }();
  return table->data();
}

// 12 bits -> their two characters, the first in the low byte.
const std::uint16_t* EncodePairs() {
  static const auto* table = [] {
    auto* t = new std::array<std::uint16_t, 4096>();
    for (unsigned i = 0; i < 4096; ++i) {
      (*t)[i] = static_cast<std::uint16_t>(static_cast<unsigned char>(kAlphabet[i >> 6]) |
                                           (static_cast<unsigned char>(kAlphabet[i & 63]) << 8));
    }
    return t;
  }();
  return table->data();
}

}  // namespace

std::size_t Base64DecodeInto(const char* text, std::size_t size, unsigned char* out) {
  const std::uint16_t* pairs = DecodePairs();
  const auto* p = reinterpret_cast<const unsigned char*>(text);
  const unsigned char* end = p + size;
  unsigned char* o = out;
  // Two groups of four alphabet characters per step: eight characters give
  // six bytes. Each step stores eight bytes of which six count; the
  // capacity's slack takes the other two.
  while (end - p >= 8) {
    std::uint64_t chars;
    std::memcpy(&chars, p, 8);
    const std::uint64_t a = pairs[chars & 0xFFFF], b = pairs[(chars >> 16) & 0xFFFF];
    const std::uint64_t c = pairs[(chars >> 32) & 0xFFFF], d = pairs[chars >> 48];
    if ((a | b | c | d) & kInvalidPair) break;
    const std::uint64_t bits = (a << 36) | (b << 24) | (c << 12) | d;  // 48 bits, first byte highest
    const std::uint64_t bytes = __builtin_bswap64(bits << 16);
    std::memcpy(o, &bytes, 8);
    o += 6;
    p += 8;
  }
  // The rest one character at a time: padding ends the data, foreign characters are skipped.
  std::uint32_t acc = 0;
  int bits = 0;
  for (; p < end; ++p) {
    if (*p == '=') break;
    const int v = kDecode[*p];
    if (v < 0) continue;
    acc = (acc << 6) | static_cast<std::uint32_t>(v);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      *o++ = static_cast<unsigned char>((acc >> bits) & 0xFF);
    }
  }
  return static_cast<std::size_t>(o - out);
}

void Base64EncodeInto(const unsigned char* data, std::size_t size, char* out) {
  const std::uint16_t* pairs = EncodePairs();
  char* o = out;
  std::size_t i = 0;
  // Six bytes give eight characters; the load reads two bytes ahead, so the
  // step runs while eight bytes remain.
  for (; i + 8 <= size; i += 6) {
    std::uint64_t bytes;
    std::memcpy(&bytes, data + i, 8);
    const std::uint64_t bits = __builtin_bswap64(bytes) >> 16;  // the six bytes, first highest
    const std::uint64_t chars = std::uint64_t(pairs[bits >> 36]) | (std::uint64_t(pairs[(bits >> 24) & 0xFFF]) << 16) |
                                (std::uint64_t(pairs[(bits >> 12) & 0xFFF]) << 32) |
                                (std::uint64_t(pairs[bits & 0xFFF]) << 48);
    std::memcpy(o, &chars, 8);
    o += 8;
  }
  for (; i + 3 <= size; i += 3) {
    const std::uint32_t v = (std::uint32_t(data[i]) << 16) | (std::uint32_t(data[i + 1]) << 8) | data[i + 2];
    const std::uint32_t chars = pairs[v >> 12] | (std::uint32_t(pairs[v & 0xFFF]) << 16);
    std::memcpy(o, &chars, 4);
    o += 4;
  }
  const std::size_t rest = size - i;
  if (rest == 1) {
    const std::uint32_t v = std::uint32_t(data[i]) << 16;
    *o++ = kAlphabet[(v >> 18) & 63];
    *o++ = kAlphabet[(v >> 12) & 63];
    *o++ = '=';
    *o++ = '=';
  } else if (rest == 2) {
    const std::uint32_t v = (std::uint32_t(data[i]) << 16) | (std::uint32_t(data[i + 1]) << 8);
    *o++ = kAlphabet[(v >> 18) & 63];
    *o++ = kAlphabet[(v >> 12) & 63];
    *o++ = kAlphabet[(v >> 6) & 63];
    *o++ = '=';
  }
}

std::string Base64Encode(const unsigned char* data, unsigned long size) {
  std::string out(Base64EncodedSize(size), '\0');
  if (size != 0) Base64EncodeInto(data, size, &out[0]);
  return out;
}

std::string Base64Decode(const std::string& text) {
  std::string out(Base64DecodeCapacity(text.size()), '\0');
  out.resize(Base64DecodeInto(text.data(), text.size(), reinterpret_cast<unsigned char*>(&out[0])));
  return out;
}

}  // namespace runtime
}  // namespace tarn
