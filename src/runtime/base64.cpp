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
  out.reserve(text.size() / 4 * 3 + 3);
  std::uint32_t acc = 0;
  int bits = 0;
  for (unsigned char c : text) {
    if (c == '=') break;
    const int v = kDecode[c];
    if (v < 0) continue;
    acc = (acc << 6) | static_cast<std::uint32_t>(v);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<char>((acc >> bits) & 0xFF));
    }
  }
  return out;
}

}  // namespace runtime
}  // namespace tarn
