#include <gtest/gtest.h>

#include <cstring>

#include "runtime/record_filler.h"
#include "tarn/runtime/binary_stream.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/runtime/model_info.h"
#include "test_util.h"

namespace tarn {
namespace {

using namespace runtime;

// One layer of every record type, each filled with distinct values.
std::shared_ptr<TRModelInfo> EveryLayerModel() {
  auto model = std::make_shared<TRModelInfo>();
  testing::Fill(model->extra_info, 5);
  std::string previous;
  for (std::uint16_t code : testing::CodesWithRecords()) {
    auto layer = CreateLayerInfo(code);
    testing::Fill(*layer, code * 31);
    layer->type = static_cast<ENUM_TYPE_LAYER>(code);
    layer->id = "L" + std::to_string(code);
    layer->input_ids = previous.empty() ? std::vector<std::string>{} : std::vector<std::string>{previous};
    previous = layer->id;
    model->squential_ids.push_back(layer->id);
    model->squential_types.push_back(code);
    model->layers[layer->id] = layer;
  }
  model->squential_output_ids = {previous};
  return model;
}

void ExpectSameModel(TRModelInfo& a, TRModelInfo& b) {
  EXPECT_EQ(a.squential_ids, b.squential_ids);
  EXPECT_EQ(a.squential_types, b.squential_types);
  EXPECT_EQ(a.squential_output_ids, b.squential_output_ids);
  EXPECT_EQ(testing::CompactJson(a.extra_info), testing::CompactJson(b.extra_info));
  ASSERT_EQ(a.layers.size(), b.layers.size());
  for (const auto& id : a.squential_ids) {
    ASSERT_TRUE(b.layers.count(id)) << id;
    EXPECT_EQ(testing::CompactJson(*a.layers[id]), testing::CompactJson(*b.layers[id])) << id;
  }
}

class ModelFiles : public ::testing::Test {
 protected:
  testing::TempDir dir;
};

TEST_F(ModelFiles, EveryLayerTypeRoundTripsInBothFormats) {
  auto model = EveryLayerModel();
  for (const char* name : {"m.json", "m.trmod"}) {
    const std::string path = dir.File(name);
    ASSERT_TRUE(model->ToFile(path.c_str(), std::strstr(name, ".json") ? "json" : "bin"));
    TRModelInfo back;
    ASSERT_TRUE(back.FromFile(path.c_str()));
    ExpectSameModel(*model, back);
  }
}

TEST_F(ModelFiles, EveryTruncationOfABinaryModelThrows) {
  auto model = EveryLayerModel();
  const std::string path = dir.File("m.trmod");
  ASSERT_TRUE(model->ToFile(path.c_str(), "bin"));
  const auto bytes = testing::ReadAll(path);
  // Cuts at every byte of the first 600 and then at a stride through the rest.
  for (size_t cut = 0; cut < bytes.size(); cut += cut < 600 ? 1 : 97) {
    testing::WriteAll(path, std::vector<unsigned char>(bytes.begin(), bytes.begin() + cut));
    TRModelInfo back;
    EXPECT_NE(testing::ThrownMessage([&] { back.FromFile(path.c_str()); }), "") << cut;
  }
}

TEST_F(ModelFiles, CorruptBytesNeverCrash) {
  auto model = EveryLayerModel();
  const std::string path = dir.File("m.trmod");
  ASSERT_TRUE(model->ToFile(path.c_str(), "bin"));
  const auto bytes = testing::ReadAll(path);
  unsigned seed = 1;
  for (int round = 0; round < 300; ++round) {
    auto corrupt = bytes;
    for (int k = 0; k < 4; ++k) {
      seed = seed * 1103515245u + 12345u;
      corrupt[(seed >> 8) % corrupt.size()] ^= static_cast<unsigned char>(1u << ((seed >> 4) % 8));
    }
    testing::WriteAll(path, corrupt);
    TRModelInfo back;
    (void)testing::ThrownMessage([&] { back.FromFile(path.c_str()); });
  }
}

// Bytes of a NetExtraInfo written at a protocol version.
std::vector<unsigned char> ExtraInfoBytes(unsigned version, std::uint64_t fmlas) {
  NetExtraInfo info;
  info.fmlas = fmlas;
  FILE* f = std::tmpfile();
  auto w = std::make_shared<FILEWriter>(f, false);
  w->protocol_version_ = version;
  w->Visit(&info, "extra_info");
  std::vector<unsigned char> out(std::ftell(f));
  std::rewind(f);
  EXPECT_EQ(std::fread(out.data(), 1, out.size(), f), out.size());
  std::fclose(f);
  return out;
}

TEST(NetExtraInfo, FmlasWidthFollowsTheProtocolVersion) {
  const auto old_bytes = ExtraInfoBytes(20006, 0x0102030405ULL);
  const auto new_bytes = ExtraInfoBytes(20007, 0x0102030405ULL);
  EXPECT_EQ(new_bytes.size(), old_bytes.size() + 4);
  const size_t at = 8 + std::strlen("NetExtraInfo") + 5 * 4;
  std::uint32_t narrow;
  std::memcpy(&narrow, old_bytes.data() + at, 4);
  EXPECT_EQ(narrow, 0x02030405u) << "four bytes at 20006";
  std::uint64_t wide;
  std::memcpy(&wide, new_bytes.data() + at, 8);
  EXPECT_EQ(wide, 0x0102030405ULL) << "eight bytes at 20007";

  // Reading a 20006 file through the header.
  FILE* f = std::tmpfile();
  const std::uint32_t header = 20006;
  std::fwrite(&header, 4, 1, f);
  std::fwrite(old_bytes.data(), 1, old_bytes.size(), f);
  std::rewind(f);
  NetExtraInfo back;
  back.VisitAttr(std::make_shared<FILEReader>(f, 0));
  EXPECT_EQ(std::fgetc(f), EOF);
  std::fclose(f);
  EXPECT_EQ(back.fmlas, 0x02030405u);
}

const char* kTwoLayerJson = R"({
  "serializable_type": "TRModelInfo",
  "squential_output_ids": ["sq"],
  "extra_info": null,
  "squential_ids": ["in", "sq"],
  "squential_types": [0, 16],
  "in": {"serializable_type": "InputInfo", "type": 0, "id": "in", "input_ids": [], "read_count": 1, "location": 0},
  "sq": {"serializable_type": "TensorUnSqueezeInfo", "type": 15, "id": "sq", "input_ids": ["in"],
         "read_count": 0, "dim": 1}
})";

TEST(TRModelInfo, SequenceTypeRepairsTheRecordType) {
  testing::LogCapture log;
  auto model = parseModelInfoPtrFromJson(kTwoLayerJson);
  EXPECT_EQ(model->layers["sq"]->type, 16);
  EXPECT_TRUE(log.Contains("This TRModelInfo may be a old vesion file, please verify it.", utility::kLogWarning));
  EXPECT_EQ(model->GetInputIDs(), (std::vector<std::string>{"in"}));
  EXPECT_EQ(model->GetOutputIDs(), (std::vector<std::string>{"sq"}));
  model->squential_output_ids.clear();
  EXPECT_EQ(model->GetOutputIDs(), (std::vector<std::string>{"sq"})) << "derived: read by no other layer";
}

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  text.replace(text.find(from), from.size(), to);
  return text;
}

struct BadModel {
  std::string json;
  std::string message;
};

class BadModels : public ::testing::TestWithParam<BadModel> {};

TEST_P(BadModels, AreRefusedWithTheirMessage) {
  TRModelInfo model;
  EXPECT_EQ(testing::ThrownMessage([&] { model.FromJsonString(GetParam().json.c_str()); }), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BadModels,
    ::testing::Values(
        BadModel{Replace(kTwoLayerJson, "[0, 16]", "[0]"), "Length of layer id and type mismatch."},
        BadModel{Replace(kTwoLayerJson, "[0, 16]", "[0, 16, 1]"), "Length of layer id and type mismatch."},
        BadModel{Replace(kTwoLayerJson, "[0, 16]", "[0, 65535]"), "Unknow Layer Type."},
        BadModel{Replace(kTwoLayerJson, "[0, 16]", "[0, 254]"), "Unsupported Layer Type [254]."},
        BadModel{Replace(kTwoLayerJson, "[0, 16]", "[0, 4]"), "Unsupported Layer Type [4]."},
        BadModel{Replace(kTwoLayerJson, "\"sq\": {", "\"zz\": {"), "JSON member \"sq\" is missing."},
        BadModel{Replace(kTwoLayerJson, "\"dim\": 1", "\"dim\": \"1\""), "JSON member \"dim\" is not a signed 32-bit integer."},
        BadModel{Replace(kTwoLayerJson, "[0, 16]", "[0, -1]"), "JSON member \"squential_types\" is not an unsigned 32-bit integer."}),
    TRN_INDEX_NAMES);

TEST(TRModelInfo, LengthMismatchFailsBeforeAnyLayerIsRead) {
  TRModelInfo model;
  EXPECT_NE(testing::ThrownMessage([&] { model.FromJsonString(Replace(kTwoLayerJson, "[0, 16]", "[0]").c_str()); }),
            "");
  EXPECT_TRUE(model.layers.empty());
}

TEST(TRModelInfo, DuplicatedIdIsOneRecordVisitedTwice) {
  std::string json = Replace(kTwoLayerJson, "[\"in\", \"sq\"]", "[\"in\", \"sq\", \"sq\"]");
  json = Replace(json, "[0, 16]", "[0, 16, 16]");
  auto model = parseModelInfoPtrFromJson(json.c_str());
  EXPECT_EQ(model->layers.size(), 2u);
  EXPECT_EQ(model->layers["sq"]->input_ids, (std::vector<std::string>{"in", "in"})) << "JSON reading appends";
}

TEST(TRModelInfo, ExistingRecordIsReusedNotReplaced) {
  TRModelInfo model;
  auto mine = std::make_shared<TensorUnSqueezeInfo>();
  model.layers["sq"] = mine;
  ASSERT_TRUE(model.FromJsonString(kTwoLayerJson));
  EXPECT_EQ(model.layers["sq"], mine);
  EXPECT_EQ(mine->dim, 1);
}

TEST(TRModelInfo, JsonNotAnObject) {
  EXPECT_EQ(testing::ThrownMessage([] { parseModelInfoPtrFromJson("[]"); }), "Document must be a Object.");
  EXPECT_EQ(testing::ThrownMessage([] { parseModelInfoPtrFromJson("{"); }), "Document must be a Object.");
}

TEST(TRModelInfo, LegacyFilesAreRefused) {
  TRModelInfo model;
  EXPECT_EQ(testing::ThrownMessage([&] { model.LoadFromTRModel1("/tmp/any.trmodel"); }), "Loading trmdel1 fail.");
}

TEST_F(ModelFiles, HugeCountsInABinaryModelAreRefusedQuickly) {
  // A model header announcing 2^40 layer ids.
  const std::string path = dir.File("huge.trmod");
  std::vector<unsigned char> bytes;
  auto put = [&bytes](const void* p, size_t n) {
    bytes.insert(bytes.end(), static_cast<const unsigned char*>(p), static_cast<const unsigned char*>(p) + n);
  };
  const std::uint32_t version = 20015;
  put(&version, 4);
  const std::uint64_t name_len = 11;
  put(&name_len, 8);
  put("TRModelInfo", 11);
  const std::uint64_t huge = std::uint64_t(1) << 40;
  put(&huge, 8);
  testing::WriteAll(path, bytes);
  TRModelInfo model;
  EXPECT_NE(testing::ThrownMessage([&] { model.FromFile(path.c_str()); }), "");
}

TEST_F(ModelFiles, ContainerRecordsRoundTrip) {
  TRModelInfoArr arr;
  arr.squential_ids = {"a", "b"};
  arr.models["a"] = EveryLayerModel();
  arr.models["b"] = std::make_shared<TRModelInfo>();
  for (const char* name : {"arr.json", "arr.trmods"}) {
    const std::string path = dir.File(name);
    ASSERT_TRUE(arr.ToFile(path.c_str(), std::strstr(name, ".json") ? "json" : "bin"));
    TRModelInfoArr back;
    ASSERT_TRUE(back.FromFile(path.c_str()));
    EXPECT_EQ(back.squential_ids, arr.squential_ids);
    ExpectSameModel(*arr.models["a"], *back.models["a"]);
    EXPECT_TRUE(back.models["b"]->squential_ids.empty());
  }
  TimeInfo t;
  TensorInfo ti;
  testing::Fill(t, 3);
  testing::Fill(ti, 4);
  TimeInfo t2;
  TensorInfo ti2;
  ASSERT_TRUE(t2.FromJsonString(testing::CompactJson(t).c_str()));
  ASSERT_TRUE(ti2.FromJsonString(testing::CompactJson(ti).c_str()));
  EXPECT_EQ(testing::CompactJson(t2), testing::CompactJson(t));
  EXPECT_EQ(testing::CompactJson(ti2), testing::CompactJson(ti));
  EXPECT_NE(testing::CompactJson(t).find("\"moon\""), std::string::npos);
}

}  // namespace
}  // namespace tarn
