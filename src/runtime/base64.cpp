#include <array>
#include <cstdint>
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

}  // namespace

std::string Base64Encode(const unsigned char* data, unsigned long size) {
  std::string out;
  out.resize(((size + 2) / 3) * 4);
  char* o = &out[0];
  unsigned long i = 0;
  for (; i + 3 <= size; i += 3) {
    const std::uint32_t v = (std::uint32_t(data[i]) << 16) | (std::uint32_t(data[i + 1]) << 8) | data[i + 2];
    *o++ = kAlphabet[(v >> 18) & 63];
    *o++ = kAlphabet[(v >> 12) & 63];
    *o++ = kAlphabet[(v >> 6) & 63];
    *o++ = kAlphabet[v & 63];
  }
  const unsigned long rest = size - i;
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
  return out;
}

std::string Base64Decode(const std::string& text) {
  std::string out;
  out.resize(text.size() / 4 * 3 + 3);
  char* o = &out[0];
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
  const unsigned char* end = p + text.size();
  // Fast path: whole groups of four alphabet characters.
  while (end - p >= 4) {
    const int a = kDecode[p[0]], b = kDecode[p[1]], c = kDecode[p[2]], d = kDecode[p[3]];
    if ((a | b | c | d) < 0) break;
    const std::uint32_t v = (std::uint32_t(a) << 18) | (std::uint32_t(b) << 12) | (std::uint32_t(c) << 6) | d;
    *o++ = static_cast<char>(v >> 16);
    *o++ = static_cast<char>((v >> 8) & 0xFF);
    *o++ = static_cast<char>(v & 0xFF);
    p += 4;
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
      *o++ = static_cast<char>((acc >> bits) & 0xFF);
    }
  }
  out.resize(static_cast<size_t>(o - out.data()));
  return out;
}

}  // namespace runtime
}  // namespace tarn
