#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "tarn/utility/npy.h"
#include "test_util.h"

namespace tarn {
namespace {

using utility::NpyArray;

std::string Fixture(const std::string& name) { return std::string(TRN_TEST_DATA_DIR) + "/npy/" + name; }

// The reason DecodeNPY gives for `bytes`, or "" when it reads them.
std::string Refusal(const std::vector<unsigned char>& bytes) {
  testing::LogCapture quiet;
  NpyArray array;
  std::string error;
  return utility::DecodeNPY(bytes.data(), bytes.size(), &array, &error) ? std::string() : error;
}

TEST(NpyReader, ReadsWhatNumPyWrites) {
  for (const char* name : {"f32_2x3.npy", "f32_2x3_v2.npy"}) {
    NpyArray a;
    ASSERT_TRUE(utility::ReadNPY(Fixture(name), &a)) << name;
    EXPECT_EQ(a.shape, (std::vector<unsigned>{2, 3}));
    EXPECT_EQ(a.values, (std::vector<float>{-2.5f, -1.5f, -0.5f, 0.5f, 1.5f, 2.5f}));
  }
  NpyArray v;
  ASSERT_TRUE(utility::ReadNPY(Fixture("f32_vector.npy"), &v));
  EXPECT_EQ(v.shape, (std::vector<unsigned>{4}));
  EXPECT_EQ(v.values, (std::vector<float>{1.5f, -0.25f, 3.0e38f, 1e-45f}));
  NpyArray batched;
  ASSERT_TRUE(utility::ReadNPY(Fixture("f32_1x3x2x2.npy"), &batched));
  EXPECT_EQ(batched.shape, (std::vector<unsigned>{1, 3, 2, 2}));
  EXPECT_EQ(batched.values[11], 11.0f);
}

TEST(NpyWriter, MatchesNumPyByteForByte) {
  const std::vector<float> matrix = {-2.5f, -1.5f, -0.5f, 0.5f, 1.5f, 2.5f};
  std::vector<std::uint8_t> out;
  ASSERT_TRUE(utility::EncodeNPY(matrix.data(), {2, 3}, &out));
  EXPECT_EQ(out, testing::ReadAll(Fixture("f32_2x3.npy")));
  const std::vector<float> vector = {1.5f, -0.25f, 3.0e38f, 1e-45f};
  ASSERT_TRUE(utility::EncodeNPY(vector.data(), {4}, &out));
  EXPECT_EQ(out, testing::ReadAll(Fixture("f32_vector.npy"))) << "a one-element tuple keeps its comma";

  testing::TempDir dir;
  std::vector<float> values(2 * 3 * 1 * 2 * 1 * 2 * 1 * 2);
  for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i) * 0.5f;
  const std::vector<unsigned> shape = {2, 3, 1, 2, 1, 2, 1, 2};
  ASSERT_TRUE(utility::WriteNPY(dir.File("8d.npy"), values.data(), shape));
  NpyArray back;
  ASSERT_TRUE(utility::ReadNPY(dir.File("8d.npy"), &back));
  EXPECT_EQ(back.shape, shape);
  EXPECT_EQ(back.values, values);
  testing::LogCapture quiet;
  EXPECT_FALSE(utility::EncodeNPY(values.data(), {}, &out)) << "no zero-dimensional arrays";
  std::string error;
  EXPECT_FALSE(utility::WriteNPY("/nonexistent-dir/x.npy", values.data(), shape, &error));
  EXPECT_NE(error.find("cannot open /nonexistent-dir/x.npy"), std::string::npos);
  if (access("/dev/full", W_OK) == 0) {
    EXPECT_FALSE(utility::WriteNPY("/dev/full", values.data(), shape, &error));
    EXPECT_NE(error.find("cannot write /dev/full"), std::string::npos) << "a failed write is not a success";
  }
}

struct RefusedFile {
  const char* name;
  const char* reason;
};

class NpyRefusedFiles : public ::testing::TestWithParam<RefusedFile> {};

TEST_P(NpyRefusedFiles, NameTheReason) {
  const std::string reason = Refusal(testing::ReadAll(Fixture(GetParam().name)));
  EXPECT_NE(reason.find(GetParam().reason), std::string::npos) << reason;
}

INSTANTIATE_TEST_SUITE_P(
    NumPyFiles, NpyRefusedFiles,
    ::testing::Values(RefusedFile{"f64_2x3.npy", "element type '<f8'"},
                      RefusedFile{"f32_big_endian.npy", "element type '>f4'"},
                      RefusedFile{"u8_2x3.npy", "element type '|u1'"},
                      RefusedFile{"f32_fortran.npy", "Fortran-order"},
                      RefusedFile{"f32_v3.npy", "format version 3.0"},
                      RefusedFile{"f32_scalar.npy", "0 dimensions"},
                      RefusedFile{"f32_empty.npy", "dimension of size 0"}),
    TRN_INDEX_NAMES);

// A version 1.0 file with the given header dictionary and `floats` values.
std::vector<unsigned char> Crafted(const std::string& dict, size_t floats, bool newline = true) {
  std::string header = dict;
  if (newline) header += '\n';
  std::vector<unsigned char> bytes = {0x93, 'N', 'U', 'M', 'P', 'Y', 1, 0};
  bytes.push_back(static_cast<unsigned char>(header.size() & 0xFF));
  bytes.push_back(static_cast<unsigned char>(header.size() >> 8));
  bytes.insert(bytes.end(), header.begin(), header.end());
  bytes.resize(bytes.size() + 4 * floats, 0);
  return bytes;
}

struct MalformedHeader {
  std::string dict;
  size_t floats;
  const char* reason;
};

class NpyMalformed : public ::testing::TestWithParam<MalformedHeader> {};

TEST_P(NpyMalformed, AreRefused) {
  const std::string reason = Refusal(Crafted(GetParam().dict, GetParam().floats));
  EXPECT_NE(reason.find(GetParam().reason), std::string::npos) << reason;
}

const std::string kGood = "{'descr': '<f4', 'fortran_order': False, 'shape': (5,), }";

INSTANTIATE_TEST_SUITE_P(
    Headers, NpyMalformed,
    ::testing::Values(
        MalformedHeader{"{'descr': '<f4', 'fortran_order': False, 'shape': (5), }", 5, "'shape' is not a tuple"},
        MalformedHeader{"{'descr': '<f4', 'shape': (5,), }", 5, "lacks"},
        MalformedHeader{"{'descr': '<f4', 'fortran_order': False, 'shape': (5,), 'x': 1}", 5, "unexpected"},
        MalformedHeader{"{'descr': '<f4', 'descr': '<f4', 'fortran_order': False, 'shape': (5,)}", 5, "repeated"},
        MalformedHeader{"{'descr': '<f4', 'fortran_order': false, 'shape': (5,)}", 5, "neither True nor False"},
        MalformedHeader{"{'descr': '<f4', 'fortran_order': False, 'shape': (5,), } x", 5, "line feed"},
        MalformedHeader{"['descr', '<f4']", 5, "not a dictionary"},
        MalformedHeader{"{'descr': '<f4', 'fortran_order': False, 'shape': (1,1,1,1,1,1,1,1,1), }", 1,
                        "9 dimensions"},
        MalformedHeader{"{'descr': '<f4', 'fortran_order': False, 'shape': (4294967296,), }", 0,
                        "sizes must be from 1"},
        MalformedHeader{"{'descr': '<f4', 'fortran_order': False, 'shape': (4294967295, 4294967295, 4294967295), }",
                        2, "needs more data than the file holds (8 bytes)"},
        MalformedHeader{"{'descr': '<f4', 'fortran_order': False, 'shape': (99999999999999999999,), }", 0,
                        "'shape' is not a tuple"},
        MalformedHeader{kGood, 4, "needs more data than the file holds (16 bytes)"},
        MalformedHeader{kGood, 6, "needs 20 bytes of data, the file holds 24"}),
    TRN_INDEX_NAMES);

TEST(NpyReader, RefusesBrokenPrefixes) {
  std::vector<unsigned char> good = Crafted(kGood, 5);
  EXPECT_EQ(Refusal(good), "");
  EXPECT_NE(Refusal(Crafted(kGood, 5, false)).find("line feed"), std::string::npos);
  auto magic = good;
  magic[1] = 'n';
  EXPECT_NE(Refusal(magic).find("magic"), std::string::npos);
  auto minor = good;
  minor[7] = 1;
  EXPECT_NE(Refusal(minor).find("version 1.1"), std::string::npos);
  auto long_header = good;
  long_header[9] = 0x7F;  // the header length runs past the end of the file
  EXPECT_NE(Refusal(long_header).find("the header says"), std::string::npos);
  EXPECT_NE(Refusal(std::vector<unsigned char>(good.begin(), good.begin() + 7)).find("truncated"), std::string::npos);
  std::string error;
  testing::LogCapture log;
  NpyArray a;
  EXPECT_FALSE(utility::ReadNPY("/nonexistent/x.npy", &a, &error));
  EXPECT_NE(error.find("cannot open /nonexistent/x.npy"), std::string::npos);
  EXPECT_TRUE(log.Contains("NPY: cannot open", utility::kLogError));
}

}  // namespace
}  // namespace tarn
