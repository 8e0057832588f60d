#include "tarn/runtime/model_info.h"

#include <unordered_set>

#include "runtime/record_registration.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/runtime/version1.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace runtime {

void TimeInfo::VisitAttr(const VisitorPtr& v) {
  Serializable::VisitAttr(v);
  v->Visit(&year, "year");
  v->Visit(&moon, "moon");
  v->Visit(&day, "day");
  v->Visit(&hour, "hour");
  v->Visit(&min, "min");
  v->Visit(&sec, "sec");
}

void NetExtraInfo::VisitAttr(const VisitorPtr& v) {
  Serializable::VisitAttr(v);
  v->Visit(&version, "version");
  v->Visit(&app_type, "app_type");
  v->Visit(&model_id, "model_id");
  v->Visit(&model_base_h, "model_base_h");
  v->Visit(&model_base_w, "model_base_w");
  if (v->protocol_version_ > 20006) {
    unsigned long wide = fmlas;
    v->Visit(&wide, "fmlas");
    fmlas = wide;
  } else {
    unsigned int narrow = static_cast<unsigned int>(fmlas);
    v->Visit(&narrow, "fmlas");
    fmlas = narrow;
  }
  v->Visit(&time, "time");
  v->Visit(&device, "device");
  v->Visit(&summary, "summary");
}

void TensorInfo::VisitAttr(const VisitorPtr& v) {
  Serializable::VisitAttr(v);
  v->Visit(&shape, "shape");
  v->Visit(&dtype, "dtype");
  v->Visit(&data, "data");
  v->Visit(&layout, "layout");
}

TRModelInfo::TRModelInfo() { serializable_type_ = "TRModelInfo"; }

void TRModelInfo::VisitAttr(const VisitorPtr& v) {
  Serializable::VisitAttr(v);
  v->Visit(&squential_output_ids, "squential_output_ids");
  v->Visit(&extra_info, "extra_info");
  v->Visit(&squential_ids, "squential_ids");
  v->Visit(&squential_types, "squential_types");
  utility::Assert(squential_ids.size() == squential_types.size(), "Length of layer id and type mismatch.");
  for (size_t i = 0; i < squential_ids.size(); ++i) {
    const std::string& id = squential_ids[i];
    const unsigned short code = squential_types[i];
    LayerInfoPtr& record = layers[id];
    if (!record) {
      utility::Assert(code != LAYER_UNKNOWN, "Unknow Layer Type.");
      record = CreateLayerInfo(code);
      if (!record) {
        layers.erase(id);
        utility::AssertFailed("Unsupported Layer Type [%u].", static_cast<unsigned>(code));
      }
    }
    LayerInfoPtr keep = record;  // the map may rehash while the record is visited
    v->Visit(keep.get(), id.c_str());
    if (keep->type != code) {
      utility::Log(utility::kLogWarning, "This TRModelInfo may be a old vesion file, please verify it.");
      keep->type = static_cast<ENUM_TYPE_LAYER>(code);
    }
  }
}

std::vector<std::string> TRModelInfo::GetInputIDs() const {
  std::vector<std::string> ids;
  for (size_t i = 0; i < squential_ids.size() && i < squential_types.size(); ++i) {
    if (squential_types[i] == LAYER_INPUT) ids.push_back(squential_ids[i]);
  }
  return ids;
}

std::vector<std::string> TRModelInfo::GetOutputIDs() const {
  if (!squential_output_ids.empty()) return squential_output_ids;
  std::unordered_set<std::string> read;
  for (const auto& entry : layers) {
    if (entry.second) read.insert(entry.second->input_ids.begin(), entry.second->input_ids.end());
  }
  std::vector<std::string> ids;
  for (const std::string& id : squential_ids) {
    if (!read.count(id) && layers.count(id)) ids.push_back(id);
  }
  return ids;
}

void TRModelInfo::LoadFromTRModel1(const char* path) {
  // The version-1 format is not documented, so its files are recognised and
  // refused, never guessed at.
  const tarn1::Version1Detection legacy = tarn1::DetectVersion1File(path);
  if (legacy.detected) {
    utility::Log(utility::kLogError, "%s", tarn1::Version1Message(path, legacy).c_str());
  } else {
    utility::Log(utility::kLogError, "%s is not a version-1 model file.", path);
  }
  utility::AssertFailed("Loading trmdel1 fail.");
}

std::shared_ptr<TRModelInfo> parseModelInfoPtrFromJson(const char* json) {
  JSONDocument document;
  ParseJsonObject(document, json, "Document must be a Object.");
  auto model = std::make_shared<TRModelInfo>();
  model->VisitAttr(std::make_shared<JSONNodeGetter>(document, 0));
  return model;
}

void TRModelInfoArr::VisitAttr(const VisitorPtr& v) {
  Serializable::VisitAttr(v);
  v->Visit(&squential_ids, "squential_ids");
  VisitRecordsById(v, squential_ids, models);
}

void RegisterModelRecords(SerializableRegistry& registry) {
  RegisterRecord<TimeInfo>(registry);
  RegisterRecord<NetExtraInfo>(registry);
  RegisterRecord<TensorInfo>(registry);
  RegisterRecord<TRModelInfo>(registry);
  RegisterRecord<TRModelInfoArr>(registry);
}

}  // namespace runtime
}  // namespace tarn
