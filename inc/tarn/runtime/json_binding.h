// JSON form of records: each visited attribute is one member of a JSON object.
#pragma once

#include <cstddef>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

// The JSON library's own assertions become exceptions: a hostile document must
// never stop the process.
#ifndef RAPIDJSON_ASSERT
#define RAPIDJSON_ASSERT(x) \
  ((x) ? static_cast<void>(0) : throw std::runtime_error("JSON library check failed: " #x))
#endif
// Strings (weight blobs are megabytes of text) are scanned 16 bytes at a time;
// SSE2 is part of every x86-64 processor. Every file that includes RapidJSON
// includes it through this header, so that all of them see the same setting.
// The scan loads aligned 16-byte blocks, so the block holding the terminator
// may extend past the allocation: harmless on hardware (an aligned block never
// crosses a page) but reported by AddressSanitizer, so sanitized builds (every
// file compiled the same way) scan byte by byte.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TRN_JSON_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(TRN_JSON_SANITIZED)
#undef TRN_JSON_SANITIZED
#elif !defined(RAPIDJSON_SSE2)
#define RAPIDJSON_SSE2
#endif
#ifndef RAPIDJSON_HAS_STDSTRING
#define RAPIDJSON_HAS_STDSTRING 1
#endif
#include <rapidjson/document.h>

#include "tarn/runtime/serializable.h"

namespace tarn {
namespace runtime {

using JSONValue = rapidjson::Value;
using JSONDocument = rapidjson::Document;
using JSONAllocator = rapidjson::Document::AllocatorType;

class JSONNodeSetter : public Visitor {
 public:
  // With `version_flag`, adds "serialization_protocol_version" to `node` at once.
  JSONNodeSetter(JSONValue& node, JSONAllocator& allocator, bool version_flag);

  TRN_VISITOR_OVERRIDES

 private:
  void Add(const char* key, JSONValue& value);
  template <typename T>
  void AddNumberArray(const std::vector<T>* value, const char* key);

  JSONValue& node_;
  JSONAllocator& allocator_;
};

// Reads attributes from a JSON object. A missing key or a member of the wrong
// type throws std::runtime_error naming the key.
class JSONNodeGetter : public Visitor {
 public:
  // A non-zero `version` is used as is; zero takes the node's
  // "serialization_protocol_version" (20015 when absent) and checks it.
  JSONNodeGetter(const JSONValue& node, unsigned int version);

  TRN_VISITOR_OVERRIDES

  const JSONValue& node() const { return node_; }

 private:
  const JSONValue& Member(const char* key) const;
  const JSONValue& ArrayMember(const char* key) const;
  template <typename T, typename Convert>
  void ReadArray(std::vector<T>* value, const char* key, Convert convert);

  const JSONValue& node_;
};

JSONValue ToJSONValue(Serializable* record, JSONAllocator& allocator);
JSONValue ToJSONValue(const std::string& text, JSONAllocator& allocator);
JSONValue ToJSONValue(const std::vector<std::string>& texts, JSONAllocator& allocator);
void JSONValueTo(const JSONValue& value, std::string& text);
void JSONValueTo(const JSONValue& value, std::vector<std::string>& texts);
void JSONValueTo(const JSONValue& value, Serializable* record);

// Compact JSON text of a value.
std::string SerializeJSONValue(const JSONValue& value);
// Compact JSON text of a value, pretty-printed with four-space indentation.
std::string SerializeJSONValuePretty(const JSONValue& value);
void printjsonvalue(const JSONValue& value);

// The whole file in a string stream.
std::stringstream ReadJsonFile2StrStream(const char* path);
// The whole file as zero-terminated text that the caller may change (for
// in-place parsing); `size` receives its length. Same checks and messages as
// ReadJsonFile2StrStream.
std::unique_ptr<char[]> ReadJsonFileText(const char* path, std::size_t* size);

// Parses JSON text; the document is an object or the check fails.
void ParseJsonObject(JSONDocument& document, const char* json, const char* what);
// The same in place: strings are decoded inside `json`, which must outlive
// the document.
void ParseJsonObjectInsitu(JSONDocument& document, char* json, const char* what);

}  // namespace runtime
}  // namespace tarn
