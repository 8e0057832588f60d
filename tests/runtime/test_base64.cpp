#include <gtest/gtest.h>

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

}  // namespace
}  // namespace tarn
