#include "tarn/runtime/serializable.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <typeindex>
#include <unordered_map>

#include "runtime/record_registration.h"
#include "tarn/runtime/binary_stream.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/runtime/version1.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace runtime {
namespace {

// Demangling costs far more than a lookup and runs once per visited record.
std::string DemangledName(const std::type_info& type) {
  static std::mutex mutex;
  static auto* cache = new std::unordered_map<std::type_index, std::string>();
  std::lock_guard<std::mutex> lock(mutex);
  auto it = cache->find(type);
  if (it != cache->end()) return it->second;
  const char* mangled = type.name();
  if (*mangled == '*') ++mangled;
  int status = 0;
  char* demangled = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
  std::string name = (status == 0 && demangled != nullptr) ? std::string(demangled) : std::string(mangled);
  std::free(demangled);
  cache->emplace(type, name);
  return name;
}

bool EndsWith(const std::string& text, const char* suffix) {
  const size_t n = std::strlen(suffix);
  return text.size() >= n && text.compare(text.size() - n, n, suffix) == 0;
}

using FilePtr = std::unique_ptr<FILE, int (*)(FILE*)>;

}  // namespace

Visitor::~Visitor() = default;

Serializable::Serializable() : serializable_type_("Serializable") {}

Serializable::~Serializable() = default;

void Serializable::VisitAttr(const VisitorPtr& visitor) {
  serializable_type_ = GetClassTypeName();
  visitor->Visit(&serializable_type_, "serializable_type");
}

std::string Serializable::GetClassTypeNameWithNamespace() {
  serializable_type_ = DemangledName(typeid(*this));
  return serializable_type_;
}

std::string Serializable::GetClassTypeName() {
  const std::string full = GetClassTypeNameWithNamespace();
  const size_t colon = full.rfind(':');
  return colon == std::string::npos ? full : full.substr(colon + 1);
}

bool Serializable::FromJsonString(const char* json) {
  JSONDocument document;
  ParseJsonObject(document, json, "JSON text is not an object.");
  auto getter = std::make_shared<JSONNodeGetter>(document, 0);
  VisitAttr(getter);
  return true;
}

bool Serializable::FromFile(const char* path, const char* type) {
  const bool json = std::strcmp(type, "json") == 0;
  if (json || std::strcmp(type, "bin") == 0) {
    // A version-1 file would otherwise fail somewhere inside with a message
    // about JSON syntax or stream values that helps nobody.
    const tarn1::Version1Detection legacy = tarn1::DetectVersion1File(path);
    if (legacy.detected) {
      utility::Log(utility::kLogError, "%s", tarn1::Version1Message(path, legacy).c_str());
      return false;
    }
  }
  if (json) {
    // Parsed in place: the weight blobs are not copied into the document.
    std::size_t size = 0;
    const std::unique_ptr<char[]> text = ReadJsonFileText(path, &size);
    JSONDocument document;
    ParseJsonObjectInsitu(document, text.get(), "JSON file is not an object.");
    auto getter = std::make_shared<JSONNodeGetter>(document, 0);
    VisitAttr(getter);
    return true;
  }
  if (std::strcmp(type, "bin") == 0) {
    FilePtr file(std::fopen(path, "rb"), &std::fclose);
    if (!file) {
      utility::Log(utility::kLogError, "Failed to open model file, file path: %s.", path);
      return false;
    }
    auto reader = std::make_shared<FILEReader>(file.get(), 0);
    VisitAttr(reader);
    return true;
  }
  utility::Log(utility::kLogError, "Unknow file type, file path: %s.", path);
  return false;
}

bool Serializable::FromFile(const char* path) {
  const std::string p(path);
  if (EndsWith(p, ".json")) return FromFile(path, "json");
  for (const char* ext : {".trmod", ".trcfg", ".trmods", ".trcfgs"}) {
    if (EndsWith(p, ext)) return FromFile(path, "bin");
  }
  utility::AssertFailed("Unknow nets file type, file path: %s.", path);
}

bool Serializable::ToFile(const char* path, const char* type) {
  if (std::strcmp(type, "json") == 0) {
    JSONDocument document;
    JSONValue value = ToJSONValue(this, document.GetAllocator());
    const std::string text = SerializeJSONValuePretty(value);
    std::ofstream out(path, std::ios::out | std::ios::trunc | std::ios::binary);
    if (!out) {
      utility::Log(utility::kLogError, "Failed to write file, file path: %s.", path);
      return false;
    }
    out << text;
    return static_cast<bool>(out);
  }
  if (std::strcmp(type, "bin") == 0) {
    FilePtr file(std::fopen(path, "wb+"), &std::fclose);
    if (!file) {
      utility::Log(utility::kLogError, "Failed to write file, file path: %s.", path);
      return false;
    }
    auto writer = std::make_shared<FILEWriter>(file.get(), true);
    VisitAttr(writer);
    return std::fflush(file.get()) == 0;
  }
  utility::Log(utility::kLogError, "Unknow file type, file path: %s.", path);
  return false;
}

SerializableRegistry& GetSerializableRegistry() {
  static SerializableRegistry* registry = [] {
    auto* r = new SerializableRegistry();
    RegisterTensorRecords(*r);
    RegisterLayerRecords(*r);
    RegisterModelRecords(*r);
    RegisterConfigRecords(*r);
    return r;
  }();
  return *registry;
}

}  // namespace runtime
}  // namespace tarn
