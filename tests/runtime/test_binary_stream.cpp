#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "runtime/all_types_record.h"
#include "tarn/runtime/binary_stream.h"
#include "tarn/runtime/tensor.h"
#include "test_util.h"

namespace tarn {
namespace {

using runtime::FILEReader;
using runtime::FILEWriter;
using testing::AllTypesRecord;

// A scratch stream with helpers to write raw bytes and rewind.
class Stream {
 public:
  Stream() : f_(std::tmpfile()) {}
  ~Stream() {
    if (f_) std::fclose(f_);
  }
  FILE* get() const { return f_; }
  void Rewind() { std::rewind(f_); }
  std::vector<unsigned char> Bytes() {
    std::fflush(f_);
    const long pos = std::ftell(f_);
    std::rewind(f_);
    std::vector<unsigned char> out;
    int c;
    while ((c = std::fgetc(f_)) != EOF) out.push_back(static_cast<unsigned char>(c));
    std::fseek(f_, pos, SEEK_SET);
    return out;
  }
  template <typename T>
  void Put(T value) {
    std::fwrite(&value, sizeof value, 1, f_);
  }
  void PutText(const std::string& s) {
    Put<std::uint64_t>(s.size());
    std::fwrite(s.data(), 1, s.size(), f_);
  }

 private:
  FILE* f_;
};

template <typename T>
void AppendLE(std::vector<unsigned char>& out, T value) {
  unsigned char b[sizeof(T)];
  std::memcpy(b, &value, sizeof(T));
  out.insert(out.end(), b, b + sizeof(T));
}

void AppendText(std::vector<unsigned char>& out, const std::string& s) {
  AppendLE<std::uint64_t>(out, s.size());
  out.insert(out.end(), s.begin(), s.end());
}

TEST(BinaryStream, EveryOverloadRoundTrips) {
  AllTypesRecord written;
  written.FillDistinct();
  Stream s;
  written.VisitAttr(std::make_shared<FILEWriter>(s.get(), true));
  s.Rewind();
  AllTypesRecord read;
  read.VisitAttr(std::make_shared<FILEReader>(s.get(), 0));
  // The array of arrays reads back behind as many empty arrays as were stored.
  written.vvu16.insert(written.vvu16.begin(), 2, std::vector<unsigned short>());
  EXPECT_TRUE(read.SameValues(written));
  EXPECT_EQ(read.serializable_type_, "AllTypesRecord");
  EXPECT_EQ(std::fgetc(s.get()), EOF) << "the reader must consume exactly what the writer wrote";
}

TEST(BinaryStream, ByteLayoutOfATensorShape) {
  runtime::TensorShape shape({2, 3}, runtime::TensorShape::FLOAT16, runtime::TensorShape::C4HW4,
                             runtime::TensorShape::MainMemory, runtime::TensorShape::Extra(-2));
  Stream s;
  shape.VisitAttr(std::make_shared<FILEWriter>(s.get(), true));

  std::vector<unsigned char> expected;
  AppendLE<std::uint32_t>(expected, 20015);
  AppendText(expected, "TensorShape");
  AppendLE<std::uint64_t>(expected, 2);
  AppendLE<std::uint32_t>(expected, 2);
  AppendLE<std::uint32_t>(expected, 3);
  AppendLE<std::uint32_t>(expected, 1);        // FLOAT16
  AppendLE<std::uint32_t>(expected, 2);        // C4HW4
  AppendLE<std::uint32_t>(expected, 0x10001);  // MainMemory
  AppendText(expected, "Extra");               // nested record: no header, no length
  AppendLE<std::int16_t>(expected, -2);
  EXPECT_EQ(s.Bytes(), expected);
}

TEST(BinaryStream, EmptyStringAndArrayWriteOnlyTheirCount) {
  Stream s;
  auto w = std::make_shared<FILEWriter>(s.get(), false);
  std::string empty;
  std::vector<float> none;
  w->Visit(&empty, "");
  w->Visit(&none, "");
  EXPECT_EQ(s.Bytes(), std::vector<unsigned char>(16, 0));
}

TEST(BinaryStream, BoolAndCharAreOneByte) {
  Stream s;
  auto w = std::make_shared<FILEWriter>(s.get(), false);
  bool t = true;
  char c = 'z';
  w->Visit(&t, "");
  w->Visit(&c, "");
  EXPECT_EQ(s.Bytes(), (std::vector<unsigned char>{1, 'z'}));
}

struct VersionCase {
  std::uint32_t stored;
  bool accepted_with_header_check;
};

class BinaryVersion : public ::testing::TestWithParam<VersionCase> {};

TEST_P(BinaryVersion, HeaderCheckAndPathConstructor) {
  const VersionCase c = GetParam();
  testing::TempDir dir;
  const std::string path = dir.File("v.trmod");
  {
    FILE* f = std::fopen(path.c_str(), "wb");
    std::fwrite(&c.stored, 4, 1, f);
    int value = 1234;
    std::fwrite(&value, 4, 1, f);
    std::fclose(f);
  }
  // Checked path: FILEReader(stream, 0).
  {
    FILE* f = std::fopen(path.c_str(), "rb");
    const std::string msg = testing::ThrownMessage([&] { FILEReader r(f, 0); });
    if (c.accepted_with_header_check) {
      EXPECT_EQ(msg, "");
    } else {
      EXPECT_EQ(msg, "_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__.");
    }
    std::fclose(f);
  }
  // The path constructor reads the header without a range check.
  {
    auto r = std::make_shared<FILEReader>(path.c_str());
    EXPECT_EQ(r->protocol_version_, c.stored);
    int value = 0;
    r->Visit(&value, "");
    EXPECT_EQ(value, 1234);
  }
  // A non-zero version reads no header: the first value is the header itself.
  {
    FILE* f = std::fopen(path.c_str(), "rb");
    auto r = std::make_shared<FILEReader>(f, 20015u);
    std::uint32_t first = 0;
    r->Visit(&first, "");
    EXPECT_EQ(first, c.stored);
    std::fclose(f);
  }
}

INSTANTIATE_TEST_SUITE_P(Versions, BinaryVersion,
                         ::testing::Values(VersionCase{20015, true}, VersionCase{20016, false},
                                           VersionCase{20006, true}), TRN_INDEX_NAMES);

TEST(BinaryStream, NestedRecordInheritsVersionAndAddsNoHeader) {
  runtime::TensorShape shape({1}, runtime::TensorShape::FLOAT32, runtime::TensorShape::CHW,
                             runtime::TensorShape::MainMemory);
  Stream s;
  auto w = std::make_shared<FILEWriter>(s.get(), false);
  w->Visit(&shape, "shape");
  const auto bytes = s.Bytes();
  ASSERT_GE(bytes.size(), 8u);
  EXPECT_EQ(bytes[0], 11) << "first bytes are the type name length, not a header";
}

TEST(BinaryStream, NullStreamIsRefused) {
  EXPECT_EQ(testing::ThrownMessage([] { FILEReader r(nullptr, 0); }),
            "cant construct FILEReader object using a NULL ptr.");
}

TEST(BinaryStream, TruncatedStreamFailsAtFirstShortReadAndKeepsEarlierValues) {
  AllTypesRecord written;
  written.FillDistinct();
  Stream full;
  written.VisitAttr(std::make_shared<FILEWriter>(full.get(), true));
  const auto bytes = full.Bytes();
  // Cut inside the double that follows f32 and f16.
  const size_t header_and_name = 4 + 8 + std::strlen("AllTypesRecord");
  const size_t cut = header_and_name + 4 + 2 + 3;
  Stream s;
  std::fwrite(bytes.data(), 1, cut, s.get());
  s.Rewind();
  AllTypesRecord read;
  const std::string msg =
      testing::ThrownMessage([&] { read.VisitAttr(std::make_shared<FILEReader>(s.get(), 0)); });
  EXPECT_EQ(msg, std::string("failed to read a ") + typeid(double).name() + " value, error code is 0.\n");
  EXPECT_EQ(read.f32, written.f32);
  EXPECT_EQ(read.f16, written.f16);
  EXPECT_EQ(read.f64, 0.0);
}

TEST(BinaryStream, EveryTruncationOfARecordThrows) {
  AllTypesRecord written;
  written.FillDistinct();
  Stream full;
  written.VisitAttr(std::make_shared<FILEWriter>(full.get(), true));
  const auto bytes = full.Bytes();
  for (size_t cut = 0; cut < bytes.size(); ++cut) {
    Stream s;
    std::fwrite(bytes.data(), 1, cut, s.get());
    s.Rewind();
    AllTypesRecord read;
    EXPECT_NE(testing::ThrownMessage([&] { read.VisitAttr(std::make_shared<FILEReader>(s.get(), 0)); }), "")
        << "cut at " << cut;
  }
}

TEST(BinaryStream, HugeCountsAreRefusedBeforeAllocating) {
  for (std::uint64_t count : {std::numeric_limits<std::uint64_t>::max(), std::uint64_t(1) << 40, std::uint64_t(3)}) {
    Stream s;
    s.Put<std::uint64_t>(count);
    s.Put<std::uint32_t>(7);  // only four bytes of payload follow
    s.Rewind();
    auto r = std::make_shared<FILEReader>(s.get(), 20015u);
    std::vector<unsigned int> values;
    const std::string msg = testing::ThrownMessage([&] { r->Visit(&values, ""); });
    EXPECT_EQ(msg, std::string("failed to read a ") + typeid(std::vector<unsigned int>).name() +
                       " value, error code is 0.\n");
    EXPECT_LE(values.capacity(), 16u);
  }
  for (std::uint64_t count : {std::numeric_limits<std::uint64_t>::max(), std::uint64_t(1) << 40}) {
    Stream s;
    s.Put<std::uint64_t>(count);
    s.Rewind();
    auto r = std::make_shared<FILEReader>(s.get(), 20015u);
    std::vector<std::vector<unsigned short>> nested;
    std::vector<std::string> texts;
    std::string text;
    EXPECT_NE(testing::ThrownMessage([&] { r->Visit(&nested, ""); }), "");
    s.Rewind();
    EXPECT_NE(testing::ThrownMessage([&] { r->Visit(&texts, ""); }), "");
    s.Rewind();
    EXPECT_NE(testing::ThrownMessage([&] { r->Visit(&text, ""); }), "");
  }
}

TEST(BinaryStream, HugeCountFromAPipeDoesNotAllocateAhead) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  const std::uint64_t count = std::uint64_t(1) << 36;  // 256 GiB of floats announced
  const float payload[2] = {1.0f, 2.0f};
  ASSERT_EQ(write(fds[1], &count, sizeof count), 8);
  ASSERT_EQ(write(fds[1], payload, sizeof payload), 8);
  close(fds[1]);
  FILE* in = fdopen(fds[0], "rb");
  auto r = std::make_shared<FILEReader>(in, 20015u);
  std::vector<float> values;
  EXPECT_NE(testing::ThrownMessage([&] { r->Visit(&values, ""); }), "");
  EXPECT_LE(values.size(), (1u << 20) / sizeof(float));
  std::fclose(in);
}

TEST(BinaryStream, ReadingReplacesVectorContents) {
  Stream s;
  std::vector<int> stored = {4, 5};
  std::make_shared<FILEWriter>(s.get(), false)->Visit(&stored, "");
  s.Rewind();
  std::vector<int> target = {1, 2, 3};
  std::make_shared<FILEReader>(s.get(), 20015u)->Visit(&target, "");
  EXPECT_EQ(target, stored);
}

TEST(BinaryStream, ArrayOfArraysKeepsTheReadAsymmetry) {
  Stream s;
  std::vector<std::vector<unsigned short>> stored = {{1, 2}, {}, {3}};
  std::make_shared<FILEWriter>(s.get(), false)->Visit(&stored, "");
  s.Rewind();
  std::vector<std::vector<unsigned short>> target;
  std::make_shared<FILEReader>(s.get(), 20015u)->Visit(&target, "");
  // Three empty arrays from the resize, then the two non-empty ones; the empty one is not appended.
  const std::vector<std::vector<unsigned short>> expected = {{}, {}, {}, {1, 2}, {3}};
  EXPECT_EQ(target, expected);
}

TEST(BinaryStream, WriteFailuresUseTheirMessages) {
  testing::TempDir dir;
  const std::string path = dir.File("ro");
  testing::WriteAll(path, {});
  FILE* f = std::fopen(path.c_str(), "rb");  // writing to a read-only stream fails at once
  auto w = std::make_shared<FILEWriter>(f, false);
  float x = 1;
  std::string text = "abc";
  const std::string scalar = testing::ThrownMessage([&] { w->Visit(&x, ""); });
  EXPECT_EQ(scalar, std::string("failed to write a ") + typeid(float).name() + " value, error code is 1.\n");
  std::clearerr(f);
  const std::string count = testing::ThrownMessage([&] { w->Visit(&text, ""); });
  EXPECT_EQ(count, std::string("failed to write the ") + typeid(std::string).name() + " value, error code is 1.\n");
  std::fclose(f);
}

TEST(BinaryStream, PathWriterToUnopenablePathFailsOnFirstWrite) {
  EXPECT_NE(testing::ThrownMessage([] { FILEWriter w("/nonexistent-dir/x.trmod"); }), "");
}

// ---------------------------------------------------------------- weight blobs

std::string FloatsToB64(const std::vector<float>& v) {
  return runtime::Base64Encode(reinterpret_cast<const unsigned char*>(v.data()), v.size() * 4);
}

std::vector<float> B64ToFloats(const std::string& b64) {
  const std::string bytes = runtime::Base64Decode(b64);
  std::vector<float> v(bytes.size() / 4);
  std::memcpy(v.data(), bytes.data(), v.size() * 4);
  return v;
}

TEST(WeightBlob, StoredAsTruncatedHalves) {
  const std::vector<float> weights = {0.1f, -1.0f, 65504.0f, 1e6f, 1.0e-7f};
  Stream s;
  auto w = std::make_shared<FILEWriter>(s.get(), false);
  runtime::FileWriter_Visit_B64Encoded_F16_Data(w, FloatsToB64(weights));
  const auto bytes = s.Bytes();
  ASSERT_EQ(bytes.size(), 8u + 2 * weights.size());
  EXPECT_EQ(bytes[0], weights.size());
  std::uint16_t first;
  std::memcpy(&first, bytes.data() + 8, 2);
  EXPECT_EQ(first, 0x2E66);  // 0.1 truncated
  s.Rewind();
  std::string back;
  runtime::FileReader_Visit_B64Encoded_F16_Data(std::make_shared<FILEReader>(s.get(), 20015u), back);
  const std::vector<float> restored = B64ToFloats(back);
  ASSERT_EQ(restored.size(), weights.size());
  EXPECT_EQ(restored[0], 0.0999755859375f);
  EXPECT_EQ(restored[1], -1.0f);
  EXPECT_EQ(restored[2], 65504.0f);
  EXPECT_TRUE(std::isinf(restored[3]));
  EXPECT_GT(restored[4], 0.0f);  // a subnormal half
  EXPECT_LT(restored[4], 1.0e-7f);
}

TEST(WeightBlob, TrailingBytesBeyondWholeFloatsAreLost) {
  for (int extra = 0; extra < 4; ++extra) {
    std::vector<unsigned char> raw(8 + extra, 0);
    const float a = 2.0f, b = -0.5f;
    std::memcpy(raw.data(), &a, 4);
    std::memcpy(raw.data() + 4, &b, 4);
    Stream s;
    runtime::FileWriter_Visit_B64Encoded_F16_Data(std::make_shared<FILEWriter>(s.get(), false),
                                                  runtime::Base64Encode(raw.data(), raw.size()));
    s.Rewind();
    std::string back;
    runtime::FileReader_Visit_B64Encoded_F16_Data(std::make_shared<FILEReader>(s.get(), 20015u), back);
    EXPECT_EQ(B64ToFloats(back), (std::vector<float>{2.0f, -0.5f})) << extra;
    EXPECT_EQ(runtime::Base64Decode(back).size(), 8u);
  }
}

TEST(WeightBlob, ListOfBlobsRoundTripsAndClearsTheTarget) {
  const std::vector<std::string> blobs = {FloatsToB64({1, 2, 3}), "", FloatsToB64({-4})};
  Stream s;
  runtime::FileWriter_Visit_Vec_B64Encoded_F16_Data(std::make_shared<FILEWriter>(s.get(), false), blobs);
  s.Rewind();
  std::vector<std::string> back = {"stale"};
  runtime::FileReader_Visit_Vec_B64Encoded_F16_Data(std::make_shared<FILEReader>(s.get(), 20015u), back);
  ASSERT_EQ(back.size(), 3u);
  EXPECT_EQ(B64ToFloats(back[0]), (std::vector<float>{1, 2, 3}));
  EXPECT_EQ(back[1], "");
  EXPECT_EQ(B64ToFloats(back[2]), (std::vector<float>{-4}));
}

TEST(WeightBlob, HugeHalfCountIsRefused) {
  Stream s;
  s.Put<std::uint64_t>(std::uint64_t(1) << 50);
  s.Put<std::uint16_t>(0x3C00);
  s.Rewind();
  std::string back;
  EXPECT_NE(testing::ThrownMessage([&] {
              runtime::FileReader_Visit_B64Encoded_F16_Data(std::make_shared<FILEReader>(s.get(), 20015u), back);
            }),
            "");
}

}  // namespace
}  // namespace tarn
