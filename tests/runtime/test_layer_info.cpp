#include <gtest/gtest.h>

#include "runtime/record_filler.h"
#include "tarn/runtime/binary_stream.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/runtime/layer_info.h"
#include "test_util.h"

namespace tarn {
namespace {

using namespace runtime;

std::vector<std::string> JsonKeys(Serializable& record) {
  JSONDocument doc;
  JSONValue v = ToJSONValue(&record, doc.GetAllocator());
  std::vector<std::string> keys;
  for (const auto& m : v.GetObject()) keys.push_back(m.name.GetString());
  return keys;
}

TEST(LayerInfo, CodesHaveTheirRecordClasses) {
  const std::pair<std::uint16_t, const char*> expected[] = {
      {0, "InputInfo"},           {1, "ActivationInfo"},         {2, "Conv2dInfo"},
      {3, "ConvTranspose2dInfo"}, {6, "AvgPool2dInfo"},          {7, "MaxPool2dInfo"},
      {8, "InstanceNorm2dInfo"},  {9, "BatchNorm2dInfo"},        {10, "Upsample2dInfo"},
      {11, "ElementWiseOperatorInfo"}, {12, "ConcatenateInfo"},  {13, "TensorReshapeInfo"},
      {14, "TensorTransposeInfo"}, {15, "TensorSqueezeInfo"},    {16, "TensorUnSqueezeInfo"},
      {17, "FullConnectionInfo"}, {21, "PixelShuffleInfo"},      {22, "TensorGetItemInfo"},
      {23, "SQFCConv2dInfo"},     {24, "SQFCConv2dFoldedBNInfo"}, {26, "AdaptiveAvgPool2dInfo"},
      {27, "AdaptiveMaxPool2dInfo"}, {28, "GemmInfo"},           {29, "BroadcastOperatorInfo"},
      {30, "BatchNorm1dInfo"},    {31, "ClipInfo"},              {32, "SoftmaxInfo"},
      {33, "RNNCellInfo"},        {34, "RNNInfo"},               {35, "LSTMCellInfo"},
      {36, "LSTMInfo"},           {37, "GRUCellInfo"},           {38, "GRUInfo"},
      {39, "SpaceToDepthInfo"},   {40, "Conv1dInfo"},            {41, "TensorExpandInfo"},
      {42, "Pad1dInfo"},          {43, "Pad2dInfo"},             {44, "GridSampleInfo"},
      {45, "TensorArithmeticInfo"}, {46, "TensorSliceInfo"},     {252, "LayerPlaceholderInfo"}};
  EXPECT_EQ(testing::CodesWithRecords().size(), std::size(expected));
  for (const auto& e : expected) {
    auto record = CreateLayerInfo(e.first);
    ASSERT_NE(record, nullptr) << e.first;
    EXPECT_EQ(record->serializable_type_, e.second) << "the constructor sets the class name";
    EXPECT_EQ(record->GetClassTypeName(), e.second);
    if (e.first != 16) {
      EXPECT_EQ(record->type, e.first) << e.second;
    }
  }
  for (std::uint16_t code : {4, 5, 18, 19, 20, 25, 253, 254, 65535}) EXPECT_EQ(CreateLayerInfo(code), nullptr) << code;
}

TEST(LayerInfo, TypeToStringQuirks) {
  EXPECT_EQ(LayerTypeToString(LAYER_INPUT), "Input");
  EXPECT_EQ(LayerTypeToString(static_cast<ENUM_TYPE_LAYER>(29)), "Blob");
  EXPECT_EQ(LayerTypeToString(static_cast<ENUM_TYPE_LAYER>(254)), "Blob");
  EXPECT_EQ(LayerTypeToString(static_cast<ENUM_TYPE_LAYER>(4)), "UnKnown");
  EXPECT_EQ(LayerTypeToString(static_cast<ENUM_TYPE_LAYER>(16)), "TensorUnSqueeze");
  EXPECT_EQ(LayerTypeToString(static_cast<ENUM_TYPE_LAYER>(36)), "LSTM");
  EXPECT_EQ(LayerTypeToString(static_cast<ENUM_TYPE_LAYER>(37)), "UnKnown");
  EXPECT_EQ(LayerTypeToString(static_cast<ENUM_TYPE_LAYER>(46)), "TensorSlice");
  EXPECT_EQ(LayerTypeToString(LAYER_UNKNOWN), "UnKnown");
  EXPECT_EQ(TensorUnSqueezeInfo().type, 15);
  EXPECT_EQ(LayerInfo().type, 65535);
}

TEST(LayerInfo, ConstructorDefaults) {
  Conv2dInfo c;
  EXPECT_EQ(c.stride_x, 1);
  EXPECT_EQ(c.stride_y, 1);
  EXPECT_EQ(c.dilation_x, 1);
  EXPECT_EQ(c.dilation_y, 1);
  EXPECT_EQ(c.groups, 1);
  EXPECT_EQ(c.in_channels + c.out_channels + c.kernel_x + c.kernel_y, 0);
  EXPECT_EQ(c.padding_l + c.padding_t + c.padding_r + c.padding_b, 0);
  EXPECT_FALSE(c.if_bias);
  EXPECT_TRUE(c.weight.empty() && c.bias.empty());
}

TEST(LayerInfo, JsonKeyOrderOfARecord) {
  Conv2dInfo c;
  EXPECT_EQ(JsonKeys(c),
            (std::vector<std::string>{"serialization_protocol_version", "serializable_type", "type", "id",
                                      "input_ids", "read_count", "in_channels", "out_channels", "kernel_x",
                                      "kernel_y", "padding_l", "padding_t", "padding_r", "padding_b", "stride_x",
                                      "stride_y", "dilation_x", "dilation_y", "groups", "if_bias", "weight",
                                      "bias"}));
  Upsample2dInfo u;
  EXPECT_EQ(JsonKeys(u), (std::vector<std::string>{"serialization_protocol_version", "serializable_type", "type",
                                                    "id", "input_ids", "read_count", "scale_factor_y",
                                                    "scale_factor_x", "align_corner", "unsample_type"}));
  RNNInfo r;
  const auto keys = JsonKeys(r);
  EXPECT_EQ(std::vector<std::string>(keys.begin() + 6, keys.begin() + 15),
            (std::vector<std::string>{"in_size", "hidden_size", "if_bias", "activation_type", "activation_alpha",
                                      "activation_beta", "num_layers", "bidirectional", "complex_rnn_type"}));
  SQFCConv2dFoldedBNInfo q;
  const auto qkeys = JsonKeys(q);
  EXPECT_EQ(std::vector<std::string>(qkeys.end() - 9, qkeys.end()),
            (std::vector<std::string>{"bias", "eps", "momentum", "if_affine", "if_track_running_stats", "scale",
                                      "shift", "variance", "mean"}));
}

TEST(LayerInfo, SignednessOfPaddings) {
  Conv2dInfo c;
  c.padding_l = static_cast<std::uint16_t>(-1);
  const std::string json = testing::CompactJson(c);
  EXPECT_NE(json.find("\"padding_l\":65535"), std::string::npos) << "unsigned paddings keep only the wrap-around";
  Conv2dInfo back;
  ASSERT_TRUE(back.FromJsonString(json.c_str()));
  EXPECT_EQ(back.padding_l, 65535);
  const std::string negative = json.substr(0, json.find("65535")) + "-1" + json.substr(json.find("65535") + 5);
  EXPECT_EQ(testing::ThrownMessage([&] { Conv2dInfo x; x.FromJsonString(negative.c_str()); }),
            "JSON member \"padding_l\" is not an unsigned 32-bit integer.");
  ConvTranspose2dInfo t;
  t.padding_l = -1;
  ConvTranspose2dInfo tb;
  ASSERT_TRUE(tb.FromJsonString(testing::CompactJson(t).c_str()));
  EXPECT_EQ(tb.padding_l, -1);
}

TEST(LayerInfo, GetItemStoresSamplingInfosUnderTheirIndex) {
  TensorGetItemInfo g;
  g.sampling_infos.resize(3);
  g.sampling_infos[2].data = {4, -5};
  const auto keys = JsonKeys(g);
  EXPECT_EQ(std::vector<std::string>(keys.end() - 4, keys.end()),
            (std::vector<std::string>{"num_sampling_infos", "0", "1", "2"}));
  TensorGetItemInfo back;
  ASSERT_TRUE(back.FromJsonString(testing::CompactJson(g).c_str()));
  ASSERT_EQ(back.sampling_infos.size(), 3u);
  EXPECT_EQ(back.sampling_infos[2].data, (std::vector<short>{4, -5}));
}

TEST(LayerInfo, MissingTypeIsGuardedAndLogged) {
  testing::LogCapture log;
  ElementWiseOperatorInfo e;
  ASSERT_TRUE(e.FromJsonString(
      "{\"serializable_type\":\"ElementWiseOperatorInfo\",\"id\":\"add\",\"input_ids\":[\"a\",\"b\"],"
      "\"read_count\":2,\"op_type\":1}"));
  EXPECT_TRUE(log.Contains("This may be a old version model file.", utility::kLogWarning));
  EXPECT_EQ(e.type, LAYER_ELEMENTWISE);
  EXPECT_EQ(e.id, "add");
  EXPECT_EQ(e.op_type, 1);
  // Other missing keys are not guarded.
  EXPECT_EQ(testing::ThrownMessage([] {
              ElementWiseOperatorInfo x;
              x.FromJsonString("{\"serializable_type\":\"ElementWiseOperatorInfo\",\"type\":11,\"input_ids\":[],"
                               "\"read_count\":0,\"op_type\":1}");
            }),
            "JSON member \"id\" is missing.");
}

TEST(LayerInfo, WeightsAreHalvesInTheBinaryForm) {
  FullConnectionInfo fc;
  fc.weight = EncodeWeights(std::vector<float>{0.1f, 2.0f});
  FILE* f = std::tmpfile();
  fc.VisitAttr(std::make_shared<FILEWriter>(f, true));
  const long size = std::ftell(f);
  std::rewind(f);
  FullConnectionInfo back;
  back.VisitAttr(std::make_shared<FILEReader>(f, 0));
  std::fclose(f);
  EXPECT_EQ(DecodeWeights(back.weight), (std::vector<float>{0.0999755859375f, 2.0f}));
  // header, name, common attributes, 2+2+1 feature bytes, then 8 + 2*2 and 8 + 0 bytes of weights.
  const long common = 4 + 8 + 18 + 2 + 8 + 8 + 2;
  EXPECT_EQ(size, common + 5 + 12 + 8);
}

class LayerRoundTrip : public ::testing::TestWithParam<std::uint16_t> {};

TEST_P(LayerRoundTrip, JsonAndBinaryGiveBackEveryField) {
  auto record = CreateLayerInfo(GetParam());
  testing::Fill(*record, GetParam() * 100);
  record->id = "layer";
  record->input_ids = {"x", "y"};
  const std::string expected = testing::CompactJson(*record);

  auto from_json = CreateLayerInfo(GetParam());
  ASSERT_TRUE(from_json->FromJsonString(expected.c_str()));
  EXPECT_EQ(testing::CompactJson(*from_json), expected);

  FILE* f = std::tmpfile();
  record->VisitAttr(std::make_shared<FILEWriter>(f, true));
  std::rewind(f);
  auto from_bin = CreateLayerInfo(GetParam());
  from_bin->VisitAttr(std::make_shared<FILEReader>(f, 0));
  EXPECT_EQ(std::fgetc(f), EOF);
  std::fclose(f);
  EXPECT_EQ(testing::CompactJson(*from_bin), expected);
}

INSTANTIATE_TEST_SUITE_P(EveryRecord, LayerRoundTrip, ::testing::ValuesIn(testing::CodesWithRecords()));

TEST(LayerInfo, PlaceholderShapesFollowTheBinaryReadRule) {
  LayerPlaceholderInfo p;
  p.input_shapes = {{1, 3, 8, 8}, {}};
  FILE* f = std::tmpfile();
  p.VisitAttr(std::make_shared<FILEWriter>(f, true));
  std::rewind(f);
  LayerPlaceholderInfo back;
  back.VisitAttr(std::make_shared<FILEReader>(f, 0));
  std::fclose(f);
  EXPECT_EQ(back.input_shapes, (std::vector<std::vector<unsigned short>>{{}, {}, {1, 3, 8, 8}}));
}

TEST(LayerInfoFactory, BuildsEveryNameItKnows) {
  EXPECT_EQ(LayerInfoFactoryNames().size(), 33u);
  for (const std::string& name : LayerInfoFactoryNames()) {
    LayerInfoPtr prototype;
    for (std::uint16_t code : testing::CodesWithRecords()) {
      auto r = CreateLayerInfo(code);
      if (r->serializable_type_ == name) prototype = r;
    }
    ASSERT_NE(prototype, nullptr) << name;
    testing::Fill(*prototype, 7);
    prototype->id = name;
    const std::string json = testing::CompactJson(*prototype);
    LayerInfoPtr made = LayerInfoFactory(json);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->serializable_type_, name);
    EXPECT_EQ(testing::CompactJson(*made), json);
  }
}

TEST(LayerInfoFactory, RefusesOthers) {
  for (const char* name : {"SQFCConv2dInfo", "SQFCConv2dFoldedBNInfo", "AdaptiveMaxPool2dInfo", "BatchNorm1dInfo",
                           "SpaceToDepthInfo", "Pad1dInfo", "Pad2dInfo", "TensorSliceInfo", "LayerPlaceholderInfo",
                           "conv2dinfo", "LayerInfo"}) {
    const std::string json = std::string("{\"serializable_type\":\"") + name + "\"}";
    EXPECT_EQ(testing::ThrownMessage([&] { LayerInfoFactory(json); }), "Unsupported Layer Type.") << name;
  }
  EXPECT_NE(testing::ThrownMessage([] { LayerInfoFactory("[]"); }), "");
  EXPECT_NE(testing::ThrownMessage([] { LayerInfoFactory("{\"serializable_type\":3}"); }), "");
}

}  // namespace
}  // namespace tarn
