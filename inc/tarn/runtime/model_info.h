// The description of a network (TRModelInfo) and the records around it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "tarn/runtime/layer_info.h"
#include "tarn/runtime/serializable.h"

namespace tarn {
namespace runtime {

// Visits `ids` as the nested records of `records`, one per id under the id as
// key, constructing the missing ones (every id when reading a fresh object).
template <typename Record>
void VisitRecordsById(const VisitorPtr& visitor, const std::vector<std::string>& ids,
                      std::unordered_map<std::string, std::shared_ptr<Record>>& records) {
  for (const std::string& id : ids) {
    std::shared_ptr<Record>& record = records[id];
    if (!record) record = std::make_shared<Record>();
    visitor->Visit(record.get(), id.c_str());
  }
}

class TimeInfo : public Serializable {
 public:
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint32_t year = 0, moon = 0, day = 0, hour = 0, min = 0, sec = 0;
};

class NetExtraInfo : public Serializable {
 public:
  // "fmlas" is stored in 8 bytes above protocol 20006 and in 4 bytes up to it.
  void VisitAttr(const VisitorPtr& visitor) override;
  std::uint32_t version = 0;
  std::uint32_t app_type = 0;
  std::uint32_t model_id = 0;
  std::uint32_t model_base_h = 0;
  std::uint32_t model_base_w = 0;
  std::uint64_t fmlas = 0;
  TimeInfo time;
  std::string device;
  std::string summary;
};

// A free-standing tensor description.
class TensorInfo : public Serializable {
 public:
  void VisitAttr(const VisitorPtr& visitor) override;
  std::vector<unsigned short> shape;
  std::string dtype;
  std::string data;
  std::string layout;
};

class TRModelInfo : public Serializable {
 public:
  TRModelInfo();
  // The layer lists first, then one nested record per id in sequence order. A
  // missing record is constructed from its code; after reading, the code of
  // the sequence wins over the record's own "type".
  void VisitAttr(const VisitorPtr& visitor) override;

  // Ids whose type is 0 (input layers), in sequence order.
  std::vector<std::string> GetInputIDs() const;
  // The stored output ids; without them, the layers no other layer reads.
  std::vector<std::string> GetOutputIDs() const;

  // Would read a file of the legacy version-1 format. That format is not
  // documented, so this build only recognises such files (see version1.h):
  // it logs what it found and always fails with "Loading trmdel1 fail.".
  void LoadFromTRModel1(const char* path);

  std::vector<std::string> squential_output_ids;
  NetExtraInfo extra_info;
  std::vector<std::string> squential_ids;
  std::vector<unsigned short> squential_types;
  std::unordered_map<std::string, LayerInfoPtr> layers;
};

using TRModelInfoPtr = std::shared_ptr<TRModelInfo>;

// Reads a TRModelInfo from JSON text ("Document must be a Object." otherwise).
std::shared_ptr<TRModelInfo> parseModelInfoPtrFromJson(const char* json);

// Several models, keyed by name.
class TRModelInfoArr : public Serializable {
 public:
  void VisitAttr(const VisitorPtr& visitor) override;
  std::vector<std::string> squential_ids;
  std::unordered_map<std::string, std::shared_ptr<TRModelInfo>> models;
};

}  // namespace runtime
}  // namespace tarn
