#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

#include "runtime/all_types_record.h"
#include "tarn/runtime/binary_stream.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/runtime/tensor.h"
#include "test_util.h"

namespace tarn {
namespace {

using runtime::JSONDocument;
using runtime::JSONNodeGetter;
using runtime::JSONNodeSetter;
using testing::AllTypesRecord;

std::string ToJsonText(runtime::Serializable* record) {
  JSONDocument doc;
  runtime::JSONValue v = runtime::ToJSONValue(record, doc.GetAllocator());
  return runtime::SerializeJSONValue(v);
}

TEST(JsonBinding, EveryOverloadRoundTrips) {
  AllTypesRecord written;
  written.FillDistinct();
  written.vvu16 = {{1, 2}, {}, {3}};  // JSON keeps empty inner arrays
  AllTypesRecord read;
  ASSERT_TRUE(read.FromJsonString(ToJsonText(&written).c_str()));
  EXPECT_TRUE(read.SameValues(written));
}

TEST(JsonBinding, MembersFollowTheVisitOrderAfterTheVersion) {
  runtime::TensorShape shape({4}, runtime::TensorShape::UINT8, runtime::TensorShape::HWC,
                             runtime::TensorShape::MainMemory, runtime::TensorShape::Extra(3));
  EXPECT_EQ(ToJsonText(&shape),
            "{\"serialization_protocol_version\":20015,\"serializable_type\":\"TensorShape\",\"dims\":[4],"
            "\"data_type\":7,\"layout\":1,\"location\":65537,\"extra\":{\"serializable_type\":\"Extra\","
            "\"step_size\":3}}");
}

TEST(JsonBinding, VersionRules) {
  runtime::TensorShape::Extra e;
  EXPECT_TRUE(e.FromJsonString("{\"serializable_type\":\"Extra\",\"step_size\":5}"));  // absent: 20015
  EXPECT_EQ(e.step_size, 5);
  EXPECT_TRUE(e.FromJsonString(
      "{\"serialization_protocol_version\":20015,\"serializable_type\":\"Extra\",\"step_size\":6}"));
  EXPECT_EQ(e.step_size, 6);
  EXPECT_EQ(testing::ThrownMessage([&] {
              e.FromJsonString(
                  "{\"serialization_protocol_version\":20016,\"serializable_type\":\"Extra\",\"step_size\":7}");
            }),
            "_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__.");
  EXPECT_EQ(e.step_size, 6);
  JSONDocument doc;
  doc.Parse("{\"serialization_protocol_version\":20016}");
  EXPECT_EQ(JSONNodeGetter(doc, 20006).protocol_version_, 20006u) << "a given version skips the check";
  EXPECT_EQ(JSONNodeGetter(doc["serialization_protocol_version"], 1).protocol_version_, 1u);
}

TEST(JsonBinding, HalfReadsTruncatedAndWritesItsExactValue) {
  class HalfRecord : public runtime::Serializable {
   public:
    void VisitAttr(const runtime::VisitorPtr& v) override { v->Visit(&h, "h"); }
    half_float::half h;
  } r;
  ASSERT_TRUE(r.FromJsonString("{\"h\":0.1}"));
  EXPECT_EQ(r.h.bits(), 0x2E66);
  EXPECT_EQ(ToJsonText(&r), "{\"serialization_protocol_version\":20015,\"h\":0.0999755859375}");
  ASSERT_TRUE(r.FromJsonString("{\"h\":1.000732421875}"));
  EXPECT_EQ(r.h.bits(), 0x3C00) << "rounding would give 0x3C01";
}

TEST(JsonBinding, CharOverloadTreatsTheAttributeAsATextBuffer) {
  class CharRecord : public runtime::Serializable {
   public:
    void VisitAttr(const runtime::VisitorPtr& v) override { v->Visit(buffer, "c"); }
    char buffer[16] = {};
  } r;
  std::strcpy(r.buffer, "abc");
  EXPECT_EQ(ToJsonText(&r), "{\"serialization_protocol_version\":20015,\"c\":\"abc\"}");
  std::memset(r.buffer, 'x', sizeof r.buffer);
  r.buffer[15] = '\0';
  ASSERT_TRUE(r.FromJsonString("{\"c\":\"hi\"}"));
  EXPECT_EQ(std::string(r.buffer, 4), "hixx") << "bytes are copied without a terminator";
}

TEST(JsonBinding, ReadingAppendsToVectors) {
  class VecRecord : public runtime::Serializable {
   public:
    void VisitAttr(const runtime::VisitorPtr& v) override {
      v->Visit(&ints, "ints");
      v->Visit(&texts, "texts");
      v->Visit(&nested, "nested");
    }
    std::vector<int> ints = {1};
    std::vector<std::string> texts = {"a"};
    std::vector<std::vector<unsigned short>> nested = {{9}};
  } r;
  ASSERT_TRUE(r.FromJsonString("{\"ints\":[2,3],\"texts\":[\"b\"],\"nested\":[[],[7]]}"));
  EXPECT_EQ(r.ints, (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(r.texts, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(r.nested, (std::vector<std::vector<unsigned short>>{{9}, {}, {7}}));
}

TEST(JsonBinding, NestedRecordNullStaysAndNumberFails) {
  runtime::TensorShape shape;
  shape.extra.step_size = 9;
  ASSERT_TRUE(shape.FromJsonString(
      "{\"serializable_type\":\"TensorShape\",\"dims\":[],\"data_type\":0,\"layout\":0,\"location\":65537,"
      "\"extra\":null}"));
  EXPECT_EQ(shape.extra.step_size, 9);
  EXPECT_EQ(testing::ThrownMessage([&] {
              shape.FromJsonString(
                  "{\"serializable_type\":\"TensorShape\",\"dims\":[],\"data_type\":0,\"layout\":0,"
                  "\"location\":65537,\"extra\":3}");
            }),
            "Created node is a unkown value.");
}

TEST(JsonBinding, StoredTypeNameReplacesTheMember) {
  runtime::TensorShape::Extra e;
  ASSERT_TRUE(e.FromJsonString("{\"serializable_type\":\"SomethingElse\",\"step_size\":1}"));
  EXPECT_EQ(e.serializable_type_, "SomethingElse");
}

struct BadJsonCase {
  const char* json;
  const char* message_part;
};

class JsonBadInput : public ::testing::TestWithParam<BadJsonCase> {};

TEST_P(JsonBadInput, ThrowsNamingTheProblem) {
  AllTypesRecord good;
  good.FillDistinct();
  AllTypesRecord r;
  const std::string msg = testing::ThrownMessage([&] { r.FromJsonString(GetParam().json); });
  EXPECT_NE(msg.find(GetParam().message_part), std::string::npos) << msg;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, JsonBadInput,
    ::testing::Values(BadJsonCase{"{\"serializable_type\":\"x\"}", "\"f32\" is missing"},
                      BadJsonCase{"{\"serializable_type\":7}", "\"serializable_type\" is not a string"},
                      BadJsonCase{"[1,2]", "JSON text is not an object."},
                      BadJsonCase{"{\"a\":", "JSON text is not an object."},
                      BadJsonCase{"", "JSON text is not an object."}), TRN_INDEX_NAMES);

TEST(JsonBinding, WrongMemberTypesThrowNamingTheKey) {
  class NumRecord : public runtime::Serializable {
   public:
    void VisitAttr(const runtime::VisitorPtr& v) override {
      v->Visit(&u, "u");
      v->Visit(&i, "i");
      v->Visit(&list, "list");
      v->Visit(&flag, "flag");
    }
    unsigned short u = 0;
    short i = 0;
    std::vector<float> list;
    bool flag = false;
  };
  const char* cases[][2] = {
      {"{\"u\":-1,\"i\":0,\"list\":[],\"flag\":true}", "\"u\""},
      {"{\"u\":\"1\",\"i\":0,\"list\":[],\"flag\":true}", "\"u\""},
      {"{\"u\":1,\"i\":3000000000,\"list\":[],\"flag\":true}", "\"i\""},
      {"{\"u\":1,\"i\":0,\"list\":3,\"flag\":true}", "\"list\""},
      {"{\"u\":1,\"i\":0,\"list\":[\"x\"],\"flag\":true}", "\"list\""},
      {"{\"u\":1,\"i\":0,\"list\":[],\"flag\":1}", "\"flag\""},
  };
  for (auto& c : cases) {
    NumRecord r;
    const std::string msg = testing::ThrownMessage([&] { r.FromJsonString(c[0]); });
    EXPECT_NE(msg.find(c[1]), std::string::npos) << c[0] << " -> " << msg;
  }
  NumRecord r;
  ASSERT_TRUE(r.FromJsonString("{\"u\":70000,\"i\":-70000,\"list\":[1],\"flag\":false,\"unknown\":1}"));
  EXPECT_EQ(r.u, static_cast<unsigned short>(70000)) << "numbers that fit 32 bits are truncated to the width";
  EXPECT_EQ(r.i, static_cast<short>(-70000));
}

TEST(JsonBinding, FreeFunctions) {
  JSONDocument doc;
  auto& a = doc.GetAllocator();
  std::string text;
  runtime::JSONValueTo(runtime::ToJSONValue(std::string("hey"), a), text);
  EXPECT_EQ(text, "hey");
  std::vector<std::string> texts = {"z"};
  runtime::JSONValueTo(runtime::ToJSONValue(std::vector<std::string>{"x", "y"}, a), texts);
  EXPECT_EQ(texts, (std::vector<std::string>{"z", "x", "y"}));
  doc.Parse("{\"serialization_protocol_version\":20016}");
  runtime::TensorShape::Extra e;
  EXPECT_NE(testing::ThrownMessage([&] { runtime::JSONValueTo(doc, &e); }), "");
  testing::LogCapture log;
  runtime::printjsonvalue(doc);
  EXPECT_TRUE(log.Contains("{\"serialization_protocol_version\":20016}"));
}

// ---------------------------------------------------------------- files

class JsonFiles : public ::testing::Test {
 protected:
  testing::TempDir dir;
  runtime::TensorShape shape{{2, 3, 4},
                             runtime::TensorShape::FLOAT32,
                             runtime::TensorShape::C8HW8,
                             runtime::TensorShape::OpenGLImage,
                             runtime::TensorShape::Extra(-4)};
};

TEST_F(JsonFiles, JsonFileIsPrettyWithFourSpaces) {
  const std::string path = dir.File("s.json");
  ASSERT_TRUE(shape.ToFile(path.c_str(), "json"));
  const auto bytes = testing::ReadAll(path);
  const std::string text(bytes.begin(), bytes.end());
  EXPECT_EQ(text.rfind("{\n    \"serialization_protocol_version\": 20015,\n    \"serializable_type\"", 0), 0u)
      << text;
  runtime::TensorShape back;
  ASSERT_TRUE(back.FromFile(path.c_str()));
  EXPECT_EQ(back, shape) << "a GPU location reads back unchanged";
}

struct ExtensionCase {
  const char* name;
  const char* written_as;  // "json", "bin" or nullptr when the name must be refused
};

class ExtensionSwitch : public JsonFiles, public ::testing::WithParamInterface<ExtensionCase> {};

TEST_P(ExtensionSwitch, LoadsByExactCaseSensitiveEnding) {
  const ExtensionCase c = GetParam();
  const std::string path = dir.File(c.name);
  ASSERT_TRUE(shape.ToFile(path.c_str(), c.written_as ? c.written_as : "json"));
  runtime::TensorShape back;
  if (c.written_as) {
    ASSERT_TRUE(back.FromFile(path.c_str()));
    EXPECT_EQ(back, shape);
  } else {
    EXPECT_EQ(testing::ThrownMessage([&] { back.FromFile(path.c_str()); }),
              "Unknow nets file type, file path: " + path + ".");
  }
}

INSTANTIATE_TEST_SUITE_P(Endings, ExtensionSwitch,
                         ::testing::Values(ExtensionCase{"a.json", "json"}, ExtensionCase{"a.trmod", "bin"},
                                           ExtensionCase{"a.trcfg", "bin"}, ExtensionCase{"a.trmods", "bin"},
                                           ExtensionCase{"a.trcfgs", "bin"}, ExtensionCase{"a.JSON", nullptr},
                                           ExtensionCase{"a.Trmod", nullptr}, ExtensionCase{"a.jsonx", nullptr},
                                           ExtensionCase{"a.trnmodel", nullptr}, ExtensionCase{"json", nullptr}), TRN_INDEX_NAMES);

TEST_F(JsonFiles, ExplicitTypeMessages) {
  testing::LogCapture log;
  EXPECT_FALSE(shape.ToFile(dir.File("x").c_str(), "xml"));
  EXPECT_TRUE(log.Contains("Unknow file type, file path: " + dir.File("x") + ".", utility::kLogError));
  EXPECT_FALSE(shape.FromFile(dir.File("x").c_str(), "yaml"));
  EXPECT_FALSE(shape.FromFile(dir.File("missing.trmod").c_str(), "bin"));
  EXPECT_TRUE(log.Contains("Failed to open model file, file path: " + dir.File("missing.trmod") + ".",
                           utility::kLogError));
  EXPECT_EQ(testing::ThrownMessage([&] { shape.FromFile(dir.File("missing.json").c_str(), "json"); }),
            "Error in opening the file [" + dir.File("missing.json") + "].");
}

TEST_F(JsonFiles, ReadJsonFileWholeAndDirectoriesRefused) {
  const std::string path = dir.File("t.json");
  testing::WriteAll(path, {'{', '}'});
  EXPECT_EQ(runtime::ReadJsonFile2StrStream(path.c_str()).str(), "{}");
  // Refused before its reported size (near 2^63) is allocated.
  const std::string refusal = testing::ThrownMessage([&] { runtime::ReadJsonFile2StrStream(dir.path().c_str()); });
  EXPECT_NE(refusal.find("is not a regular file"), std::string::npos) << refusal;
}

TEST_F(JsonFiles, NaNCannotBeWrittenToAPrettyFile) {
  class F : public runtime::Serializable {
   public:
    void VisitAttr(const runtime::VisitorPtr& v) override { v->Visit(&x, "x"); }
    float x = std::numeric_limits<float>::quiet_NaN();
  } f;
  EXPECT_NE(testing::ThrownMessage([&] { f.ToFile(dir.File("n.json").c_str(), "json"); }), "");
}

}  // namespace
}  // namespace tarn
