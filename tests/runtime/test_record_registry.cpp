#include <gtest/gtest.h>

#include <set>

#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/runtime/model_info.h"
#include "tarn/runtime/serializable.h"

namespace tarn {
namespace {

using namespace runtime;

// Every class a model, configuration or package file can hold.
std::set<std::string> ExpectedRecordClasses() {
  std::set<std::string> names = {"TimeInfo", "NetExtraInfo", "TensorInfo", "TRModelInfo", "TRModelInfoArr",
                                 "KernelCfg", "KernelInferenceConfig", "KernelCfgArr", "LayerCfg", "TRModelCfg",
                                 "TRModelMultiBackendCfgs", "TRModelMultiBackendCfgsArr", "TRNModel", "TensorShape",
                                 "Extra", "TensorDimemsionSamplingInfo"};
  for (unsigned code = 0; code < 65536; ++code) {
    if (LayerInfoPtr record = CreateLayerInfo(static_cast<std::uint16_t>(code))) {
      names.insert(record->GetClassTypeName());
    }
  }
  for (const std::string& name : LayerInfoFactoryNames()) names.insert(name);
  for (const std::string& name : InferenceParamNames()) names.insert(name);
  return names;
}

TEST(SerializableRegistry, HoldsEveryRecordClassUnderItsName) {
  const SerializableRegistry& registry = GetSerializableRegistry();
  const std::set<std::string> expected = ExpectedRecordClasses();
  const std::vector<std::string> keys = registry.GetKeys();
  EXPECT_EQ(std::set<std::string>(keys.begin(), keys.end()), expected);
  EXPECT_EQ(keys.size(), expected.size());
  EXPECT_GE(keys.size(), 80u);
  for (const std::string& key : keys) {
    SerializablePtr record = registry.Create(key);
    ASSERT_NE(record, nullptr) << key;
    EXPECT_EQ(record->GetClassTypeName(), key);
  }
  EXPECT_EQ(&GetSerializableRegistry(), &registry) << "one registry per process";
}

TEST(SerializableRegistry, CreatedRecordsReadTheirOwnJson) {
  // A record made by name reads back what another one of its class writes.
  const SerializableRegistry& registry = GetSerializableRegistry();
  for (const std::string& key : registry.GetKeys()) {
    SerializablePtr written = registry.Create(key);
    if (auto layer = std::dynamic_pointer_cast<LayerInfo>(written)) layer->id = "layer of " + key;
    JSONDocument doc;
    const std::string text = SerializeJSONValue(ToJSONValue(written.get(), doc.GetAllocator()));
    JSONDocument parsed;
    parsed.Parse(text.c_str());
    SerializablePtr read = registry.Create(key);
    JSONValueTo(parsed, read.get());
    JSONDocument again;
    EXPECT_EQ(SerializeJSONValue(ToJSONValue(read.get(), again.GetAllocator())), text) << key;
  }
}

}  // namespace
}  // namespace tarn
