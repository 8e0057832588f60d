// Version-1 model files are recognised wherever a model file is read and
// refused with the detected version and the advice to re-export.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "tarn/runtime/binary_stream.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/version1.h"
#include "tarn/utility/model_loader.h"
#include "test_util.h"

namespace tarn {
namespace {

using namespace runtime;

std::vector<unsigned char> Le32(std::uint32_t v) {
  return {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v >> 16),
          static_cast<unsigned char>(v >> 24)};
}

// A file head: the given first bytes followed by some body.
std::vector<unsigned char> Head(std::vector<unsigned char> first) {
  for (int i = 0; i < 64; ++i) first.push_back(static_cast<unsigned char>(i * 7));
  return first;
}

std::vector<unsigned char> Marker(std::uint16_t marker, std::uint32_t version) {
  std::vector<unsigned char> b = {static_cast<unsigned char>(marker), static_cast<unsigned char>(marker >> 8)};
  const auto v = Le32(version);
  b.insert(b.end(), v.begin(), v.end());
  return b;
}

struct HeadCase {
  std::vector<unsigned char> bytes;
  bool detected;
  std::uint32_t version;
  std::uint16_t marker;
  const char* text;  // part of the message
};

class Version1Heads : public ::testing::TestWithParam<HeadCase> {};

TEST_P(Version1Heads, AreToldFromCurrentFiles) {
  const HeadCase& c = GetParam();
  const std::vector<unsigned char> file = Head(c.bytes);
  const tarn1::Version1Detection d = tarn1::DetectVersion1(file.data(), file.size());
  EXPECT_EQ(d.detected, c.detected);
  EXPECT_EQ(d.file_version, c.version);
  EXPECT_EQ(d.marker, c.marker);
  if (c.detected) {
    const std::string message = tarn1::Version1Message("m.trnmodel", d);
    EXPECT_NE(message.find(std::string("m.trnmodel is a version-1 model file (") + c.text), std::string::npos)
        << message;
    EXPECT_NE(message.find("re-export the model with trn_convert"), std::string::npos);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Crafted, Version1Heads,
    ::testing::Values(HeadCase{Le32(9999), false, 0, 0, ""},
                      HeadCase{Le32(10000), true, 10000, 0, "file version 10000"},
                      HeadCase{Le32(10011), true, 10011, 0, "file version 10011"},
                      HeadCase{Le32(10012), false, 0, 0, ""},
                      HeadCase{Le32(20015), false, 0, 0, ""},
                      HeadCase{Marker(0x5555, 10004), true, 10004, 0x5555, "message marker 0x5555, file version 10004"},
                      HeadCase{Marker(0xaaaa, 77), true, 0, 0xaaaa, "message marker 0xaaaa, file version unknown"},
                      HeadCase{Marker(0xaaaa, 10012), true, 0, 0xaaaa, "message marker 0xaaaa, file version unknown"},
                      HeadCase{{'{', '\n', ' ', '"'}, false, 0, 0, ""}),
    TRN_INDEX_NAMES);

TEST(Version1Heads, ShortHeads) {
  const unsigned char two[] = {0x55, 0x55};
  EXPECT_TRUE(tarn1::DetectVersion1(two, 2).detected);
  EXPECT_FALSE(tarn1::DetectVersion1(two, 1).detected);
  EXPECT_FALSE(tarn1::DetectVersion1(nullptr, 6).detected);
  EXPECT_FALSE(tarn1::DetectVersion1File("/nonexistent/model.trmod").detected);
}

// Every reader of model files, on the four kinds of version-1 head.
class Version1Files : public ::testing::TestWithParam<std::vector<unsigned char>> {
 protected:
  std::string Write(const std::string& name) {
    const std::string path = dir.File(name);
    testing::WriteAll(path, Head(GetParam()));
    return path;
  }
  std::string Expected() const {
    const std::vector<unsigned char> head = Head(GetParam());
    const auto d = tarn1::DetectVersion1(head.data(), head.size());
    return d.file_version ? "file version " + std::to_string(d.file_version) : std::string("file version unknown");
  }
  testing::TempDir dir;
};

TEST_P(Version1Files, EveryReaderRefusesThem) {
  testing::LogCapture log;
  for (const char* name : {"m.trnmodel", "m.json"}) {
    TRNModel pkg;
    const std::string path = Write(name);
    EXPECT_FALSE(pkg.FromFile(path.c_str(), std::string(name).find(".json") != std::string::npos ? "json" : "bin"));
    EXPECT_TRUE(log.Contains(path + " is a version-1 model file", utility::kLogError));
    EXPECT_TRUE(log.Contains(Expected(), utility::kLogError));

    KernelRegistry kernels;
    InferenceParamRegistry params;
    std::shared_ptr<Context> ctx;
    utility::create_context(ctx, 64);
    std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
    log.lines.clear();
    EXPECT_EQ(utility::load_model(path, nets, ctx, kernels, params, "cpu_sse", 1, 0), -2) << name;
    EXPECT_TRUE(log.Contains("re-export the model with trn_convert", utility::kLogError));
  }
  for (const char* name : {"m.trmod", "m.trcfgs"}) {
    TRModelInfo model;
    EXPECT_FALSE(model.FromFile(Write(name).c_str())) << "by extension: " << name;
  }

  const std::string path = Write("m.trmod");
  FILE* f = std::fopen(path.c_str(), "rb");
  ASSERT_NE(f, nullptr);
  EXPECT_NE(testing::ThrownMessage([&] { FILEReader reader(f, 0); }).find("The stream is a version-1 model file"),
            std::string::npos);
  std::fclose(f);
  EXPECT_NE(testing::ThrownMessage([&] { FILEReader reader(path.c_str()); }).find("is a version-1 model file"),
            std::string::npos);

  log.lines.clear();
  TRModelInfo model;
  EXPECT_EQ(testing::ThrownMessage([&] { model.LoadFromTRModel1(path.c_str()); }), "Loading trmdel1 fail.");
  EXPECT_TRUE(log.Contains(Expected(), utility::kLogError));

#ifdef TRN_MODEL_TOOL
  const std::string err = dir.File("err.txt");
  EXPECT_NE(std::system((std::string(TRN_MODEL_TOOL) + " summary " + path + " > /dev/null 2> " + err).c_str()), 0);
  const auto bytes = testing::ReadAll(err);
  EXPECT_NE(std::string(bytes.begin(), bytes.end()).find("is a version-1 model file"), std::string::npos);
#endif
}

INSTANTIATE_TEST_SUITE_P(Heads, Version1Files,
                         ::testing::Values(Le32(10000), Le32(10011), Marker(0x5555, 10003), Marker(0xaaaa, 0)),
                         TRN_INDEX_NAMES);

TEST(Version1Files, NeighbouringVersionsAreNotReportedAsVersion1) {
  testing::TempDir dir;
  testing::LogCapture log;
  for (std::uint32_t v : {9999u, 10012u}) {
    const std::string path = dir.File("m" + std::to_string(v) + ".trnmodel");
    testing::WriteAll(path, Head(Le32(v)));
    TRNModel pkg;
    // Read as a current file of that protocol version; its body is not a package.
    EXPECT_NE(testing::ThrownMessage([&] { pkg.FromFile(path.c_str(), "bin"); }), "");
    TRModelInfo model;
    EXPECT_EQ(testing::ThrownMessage([&] { model.LoadFromTRModel1(path.c_str()); }), "Loading trmdel1 fail.");
  }
  EXPECT_FALSE(log.Contains("version-1 model file ("));
  EXPECT_TRUE(log.Contains("is not a version-1 model file."));
}

}  // namespace
}  // namespace tarn
