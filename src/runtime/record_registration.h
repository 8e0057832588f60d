// Each record module registers its own record classes in the process-wide
// registry of GetSerializableRegistry, keyed by class type name.
#pragma once

#include <memory>

#include "tarn/runtime/serializable.h"

namespace tarn {
namespace runtime {

template <typename T>
void RegisterRecord(SerializableRegistry& registry) {
  registry.Register(T().GetClassTypeName(), [] { return std::static_pointer_cast<Serializable>(std::make_shared<T>()); },
                    false);
}

void RegisterTensorRecords(SerializableRegistry& registry);  // tensor.cpp
void RegisterLayerRecords(SerializableRegistry& registry);   // trmodel2/layer_info.cpp
void RegisterModelRecords(SerializableRegistry& registry);   // trmodel2/model_info.cpp
void RegisterConfigRecords(SerializableRegistry& registry);  // inference_config.cpp

}  // namespace runtime
}  // namespace tarn
