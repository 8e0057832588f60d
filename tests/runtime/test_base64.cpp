#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "tarn/runtime/binary_stream.h"
#include "test_util.h"

namespace tarn {
namespace {

struct Vector {
  const char* plain;
  const char* encoded;
};

class Base64Vectors : public ::testing::TestWithParam<Vector> {};

TEST_P(Base64Vectors, EncodesAndDecodes) {
  const std::string plain = GetParam().plain;
  EXPECT_EQ(runtime::Base64Encode(reinterpret_cast<const unsigned char*>(plain.data()), plain.size()),
            GetParam().encoded);
  EXPECT_EQ(runtime::Base64Decode(GetParam().encoded), plain);
}

// Each padding length: none, "==" and "=".
INSTANTIATE_TEST_SUITE_P(Padding, Base64Vectors,
                         ::testing::Values(Vector{"", ""}, Vector{"f", "Zg=="}, Vector{"fo", "Zm8="},
                                           Vector{"foo", "Zm9v"}, Vector{"foob", "Zm9vYg=="},
                                           Vector{"fooba", "Zm9vYmE="}, Vector{"foobar", "Zm9vYmFy"},
                                           Vector{"\xff\xfe\xfd", "//79"}), TRN_INDEX_NAMES);

TEST(Base64, DecodingStopsAtTheFirstPadAndSkipsForeignCharacters) {
  EXPECT_EQ(runtime::Base64Decode("Zm9v=YmFy"), "foo");
  EXPECT_EQ(runtime::Base64Decode("Zm9v\nYmFy\r\n"), "foobar");
  EXPECT_EQ(runtime::Base64Decode("Z"), "");
  EXPECT_EQ(runtime::Base64Decode("!!!"), "");
}

TEST(Base64, RandomBytesRoundTrip) {
  std::mt19937 rng(3);
  for (size_t n = 0; n < 70; ++n) {
    std::string bytes(n, '\0');
    for (char& c : bytes) c = static_cast<char>(rng());
    const std::string text = runtime::Base64Encode(reinterpret_cast<const unsigned char*>(bytes.data()), n);
    EXPECT_EQ(text.size(), (n + 2) / 3 * 4);
    EXPECT_EQ(runtime::Base64Decode(text), bytes);
  }
}

// Character-at-a-time forms, against which the eight-character steps of the
// library are checked over every length and every position of a disturbance.
const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string ReferenceEncode(const std::string& bytes) {
  std::string out;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t n = std::min<size_t>(3, bytes.size() - i);
    std::uint32_t v = 0;
    for (size_t k = 0; k < 3; ++k) v = (v << 8) | (k < n ? static_cast<unsigned char>(bytes[i + k]) : 0);
    for (size_t k = 0; k < 4; ++k) out += k <= n ? kAlphabet[(v >> (18 - 6 * k)) & 63] : '=';
  }
  return out;
}

std::string ReferenceDecode(const std::string& text) {
  std::string out;
  std::uint32_t acc = 0;
  int bits = 0;
  for (char c : text) {
    if (c == '=') break;
    const char* at = std::strchr(kAlphabet, c);
    if (at == nullptr || c == '\0') continue;
    acc = (acc << 6) | static_cast<std::uint32_t>(at - kAlphabet);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out += static_cast<char>((acc >> bits) & 0xFF);
    }
  }
  return out;
}

TEST(Base64, WideStepsEqualTheCharacterAtATimeForms) {
  std::mt19937 rng(11);
  for (size_t n = 0; n < 100; ++n) {
    std::string bytes(n, '\0');
    for (char& c : bytes) c = static_cast<char>(rng());
    const std::string text = runtime::Base64Encode(reinterpret_cast<const unsigned char*>(bytes.data()), n);
    ASSERT_EQ(text, ReferenceEncode(bytes)) << n;
  }
  // A line break, a foreign byte or a pad at every position of a 48-character text.
  std::string bytes(36, '\0');
  for (char& c : bytes) c = static_cast<char>(rng());
  const std::string text = ReferenceEncode(bytes);
  for (size_t at = 0; at <= text.size(); ++at) {
    for (const char* insert : {"\n", "\xff", "=", "\r\n"}) {
      std::string disturbed = text;
      disturbed.insert(at, insert);
      ASSERT_EQ(runtime::Base64Decode(disturbed), ReferenceDecode(disturbed)) << at << " " << int(insert[0]);
    }
  }
}

}  // namespace
}  // namespace tarn
