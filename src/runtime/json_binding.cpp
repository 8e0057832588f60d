#include "tarn/runtime/json_binding.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>

#include <rapidjson/error/en.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "tarn/utility/log.h"

namespace tarn {
namespace runtime {
namespace {

constexpr unsigned kWriteFlags = rapidjson::kWriteNanAndInfFlag;
constexpr unsigned kParseFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseNanAndInfFlag;

[[noreturn]] void WrongType(const char* key, const char* expected) {
  utility::AssertFailed("JSON member \"%s\" is not %s.", key, expected);
}

// Element converters shared by scalars and arrays.
template <typename T>
T ToSigned(const JSONValue& v, const char* key) {
  if (!v.IsInt()) WrongType(key, "a signed 32-bit integer");
  return static_cast<T>(v.GetInt());
}
template <typename T>
T ToUnsigned(const JSONValue& v, const char* key) {
  if (!v.IsUint()) WrongType(key, "an unsigned 32-bit integer");
  return static_cast<T>(v.GetUint());
}
long ToInt64(const JSONValue& v, const char* key) {
  if (!v.IsInt64()) WrongType(key, "a signed 64-bit integer");
  return static_cast<long>(v.GetInt64());
}
unsigned long ToUint64(const JSONValue& v, const char* key) {
  if (!v.IsUint64()) WrongType(key, "an unsigned 64-bit integer");
  return static_cast<unsigned long>(v.GetUint64());
}
double ToDouble(const JSONValue& v, const char* key) {
  if (!v.IsNumber()) WrongType(key, "a number");
  return v.GetDouble();
}
float ToFloat(const JSONValue& v, const char* key) { return static_cast<float>(ToDouble(v, key)); }
half_float::half ToHalf(const JSONValue& v, const char* key) { return half_float::half(ToFloat(v, key)); }
std::string ToText(const JSONValue& v, const char* key) {
  if (!v.IsString()) WrongType(key, "a string");
  return std::string(v.GetString(), v.GetStringLength());
}

template <typename Writer>
std::string Serialize(const JSONValue& value) {
  rapidjson::StringBuffer buffer;
  Writer writer(buffer);
  // The pretty writer cannot spell NaN or infinity and stops there.
  utility::Assert(value.Accept(writer), "JSON text cannot hold a NaN or infinite number.");
  return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace

// ---------------------------------------------------------------- setter

JSONNodeSetter::JSONNodeSetter(JSONValue& node, JSONAllocator& allocator, bool version_flag)
    : node_(node), allocator_(allocator) {
  protocol_version_ = kSerializationProtocolVersion;
  if (version_flag) {
    JSONValue version(protocol_version_);
    Add("serialization_protocol_version", version);
  }
}

void JSONNodeSetter::Add(const char* key, JSONValue& value) {
  JSONValue name(key, allocator_);
  node_.AddMember(name, value, allocator_);
}

template <typename T>
void JSONNodeSetter::AddNumberArray(const std::vector<T>* value, const char* key) {
  JSONValue array(rapidjson::kArrayType);
  array.Reserve(static_cast<rapidjson::SizeType>(value->size()), allocator_);
  for (const T& element : *value) array.PushBack(JSONValue(element), allocator_);
  Add(key, array);
}

void JSONNodeSetter::Visit(float* v, const char* key) {
  JSONValue value(static_cast<double>(*v));
  Add(key, value);
}
void JSONNodeSetter::Visit(half_float::half* v, const char* key) {
  JSONValue value(static_cast<double>(static_cast<float>(*v)));
  Add(key, value);
}
void JSONNodeSetter::Visit(double* v, const char* key) {
  JSONValue value(*v);
  Add(key, value);
}
void JSONNodeSetter::Visit(signed char* v, const char* key) {
  JSONValue value(static_cast<int>(*v));
  Add(key, value);
}
void JSONNodeSetter::Visit(unsigned char* v, const char* key) {
  JSONValue value(static_cast<unsigned>(*v));
  Add(key, value);
}
void JSONNodeSetter::Visit(short* v, const char* key) {
  JSONValue value(static_cast<int>(*v));
  Add(key, value);
}
void JSONNodeSetter::Visit(unsigned short* v, const char* key) {
  JSONValue value(static_cast<unsigned>(*v));
  Add(key, value);
}
void JSONNodeSetter::Visit(int* v, const char* key) {
  JSONValue value(*v);
  Add(key, value);
}
void JSONNodeSetter::Visit(unsigned int* v, const char* key) {
  JSONValue value(*v);
  Add(key, value);
}
void JSONNodeSetter::Visit(long* v, const char* key) {
  JSONValue value(static_cast<int64_t>(*v));
  Add(key, value);
}
void JSONNodeSetter::Visit(unsigned long* v, const char* key) {
  JSONValue value(static_cast<uint64_t>(*v));
  Add(key, value);
}
void JSONNodeSetter::Visit(bool* v, const char* key) {
  JSONValue value(*v);
  Add(key, value);
}
void JSONNodeSetter::Visit(char* v, const char* key) {
  JSONValue value(v, allocator_);  // the zero-terminated text starting at the attribute
  Add(key, value);
}
void JSONNodeSetter::Visit(std::string* v, const char* key) {
  JSONValue value(v->data(), static_cast<rapidjson::SizeType>(v->size()), allocator_);
  Add(key, value);
}
void JSONNodeSetter::Visit(std::vector<float>* v, const char* key) {
  JSONValue array(rapidjson::kArrayType);
  array.Reserve(static_cast<rapidjson::SizeType>(v->size()), allocator_);
  for (float f : *v) array.PushBack(JSONValue(static_cast<double>(f)), allocator_);
  Add(key, array);
}
void JSONNodeSetter::Visit(std::vector<half_float::half>* v, const char* key) {
  JSONValue array(rapidjson::kArrayType);
  array.Reserve(static_cast<rapidjson::SizeType>(v->size()), allocator_);
  for (half_float::half h : *v) array.PushBack(JSONValue(static_cast<double>(static_cast<float>(h))), allocator_);
  Add(key, array);
}
void JSONNodeSetter::Visit(std::vector<unsigned short>* v, const char* key) {
  JSONValue array(rapidjson::kArrayType);
  array.Reserve(static_cast<rapidjson::SizeType>(v->size()), allocator_);
  for (unsigned short e : *v) array.PushBack(JSONValue(static_cast<unsigned>(e)), allocator_);
  Add(key, array);
}
void JSONNodeSetter::Visit(std::vector<short>* v, const char* key) {
  JSONValue array(rapidjson::kArrayType);
  array.Reserve(static_cast<rapidjson::SizeType>(v->size()), allocator_);
  for (short e : *v) array.PushBack(JSONValue(static_cast<int>(e)), allocator_);
  Add(key, array);
}
void JSONNodeSetter::Visit(std::vector<std::string>* v, const char* key) {
  JSONValue array = ToJSONValue(*v, allocator_);
  Add(key, array);
}
void JSONNodeSetter::Visit(Serializable* v, const char* key) {
  JSONValue object(rapidjson::kObjectType);
  auto nested = std::make_shared<JSONNodeSetter>(object, allocator_, false);
  nested->protocol_version_ = protocol_version_;
  v->VisitAttr(nested);
  Add(key, object);
}
void JSONNodeSetter::Visit(std::vector<int>* v, const char* key) { AddNumberArray(v, key); }
void JSONNodeSetter::Visit(std::vector<long>* v, const char* key) {
  JSONValue array(rapidjson::kArrayType);
  array.Reserve(static_cast<rapidjson::SizeType>(v->size()), allocator_);
  for (long e : *v) array.PushBack(JSONValue(static_cast<int64_t>(e)), allocator_);
  Add(key, array);
}
void JSONNodeSetter::Visit(std::vector<unsigned int>* v, const char* key) { AddNumberArray(v, key); }
void JSONNodeSetter::Visit(std::vector<unsigned long>* v, const char* key) {
  JSONValue array(rapidjson::kArrayType);
  array.Reserve(static_cast<rapidjson::SizeType>(v->size()), allocator_);
  for (unsigned long e : *v) array.PushBack(JSONValue(static_cast<uint64_t>(e)), allocator_);
  Add(key, array);
}
void JSONNodeSetter::Visit(std::vector<std::vector<unsigned short>>* v, const char* key) {
  JSONValue outer(rapidjson::kArrayType);
  outer.Reserve(static_cast<rapidjson::SizeType>(v->size()), allocator_);
  for (const auto& inner : *v) {
    JSONValue array(rapidjson::kArrayType);
    array.Reserve(static_cast<rapidjson::SizeType>(inner.size()), allocator_);
    for (unsigned short e : inner) array.PushBack(JSONValue(static_cast<unsigned>(e)), allocator_);
    outer.PushBack(array, allocator_);
  }
  Add(key, outer);
}

// ---------------------------------------------------------------- getter

JSONNodeGetter::JSONNodeGetter(const JSONValue& node, unsigned int version) : node_(node) {
  if (version != 0) {
    protocol_version_ = version;
    return;
  }
  utility::Assert(node.IsObject(), "JSON node is not an object.");
  protocol_version_ = kSerializationProtocolVersion;
  auto it = node.FindMember("serialization_protocol_version");
  if (it != node.MemberEnd()) {
    protocol_version_ = ToUnsigned<unsigned int>(it->value, "serialization_protocol_version");
    utility::Assert(protocol_version_ <= kSerializationProtocolVersion,
                    "_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__.");
  }
}

const JSONValue& JSONNodeGetter::Member(const char* key) const {
  if (!node_.IsObject()) utility::AssertFailed("JSON member \"%s\" looked up in a value that is not an object.", key);
  auto it = node_.FindMember(key);
  if (it == node_.MemberEnd()) utility::AssertFailed("JSON member \"%s\" is missing.", key);
  return it->value;
}

const JSONValue& JSONNodeGetter::ArrayMember(const char* key) const {
  const JSONValue& v = Member(key);
  if (!v.IsArray()) WrongType(key, "an array");
  return v;
}

template <typename T, typename Convert>
void JSONNodeGetter::ReadArray(std::vector<T>* value, const char* key, Convert convert) {
  const JSONValue& array = ArrayMember(key);
  value->reserve(value->size() + array.Size());
  for (const JSONValue& element : array.GetArray()) value->push_back(convert(element, key));
}

void JSONNodeGetter::Visit(float* v, const char* key) { *v = ToFloat(Member(key), key); }
void JSONNodeGetter::Visit(half_float::half* v, const char* key) { *v = ToHalf(Member(key), key); }
void JSONNodeGetter::Visit(double* v, const char* key) { *v = ToDouble(Member(key), key); }
void JSONNodeGetter::Visit(signed char* v, const char* key) { *v = ToSigned<signed char>(Member(key), key); }
void JSONNodeGetter::Visit(unsigned char* v, const char* key) { *v = ToUnsigned<unsigned char>(Member(key), key); }
void JSONNodeGetter::Visit(short* v, const char* key) { *v = ToSigned<short>(Member(key), key); }
void JSONNodeGetter::Visit(unsigned short* v, const char* key) { *v = ToUnsigned<unsigned short>(Member(key), key); }
void JSONNodeGetter::Visit(int* v, const char* key) { *v = ToSigned<int>(Member(key), key); }
void JSONNodeGetter::Visit(unsigned int* v, const char* key) { *v = ToUnsigned<unsigned int>(Member(key), key); }
void JSONNodeGetter::Visit(long* v, const char* key) { *v = ToInt64(Member(key), key); }
void JSONNodeGetter::Visit(unsigned long* v, const char* key) { *v = ToUint64(Member(key), key); }
void JSONNodeGetter::Visit(bool* v, const char* key) {
  const JSONValue& m = Member(key);
  if (!m.IsBool()) WrongType(key, "a boolean");
  *v = m.GetBool();
}
void JSONNodeGetter::Visit(char* v, const char* key) {
  // The attribute is the start of a caller-owned buffer; the bytes are copied
  // without a terminator.
  const JSONValue& m = Member(key);
  if (!m.IsString()) WrongType(key, "a string");
  std::memcpy(v, m.GetString(), m.GetStringLength());
}
void JSONNodeGetter::Visit(std::string* v, const char* key) { *v = ToText(Member(key), key); }
void JSONNodeGetter::Visit(std::vector<float>* v, const char* key) { ReadArray(v, key, ToFloat); }
void JSONNodeGetter::Visit(std::vector<half_float::half>* v, const char* key) { ReadArray(v, key, ToHalf); }
void JSONNodeGetter::Visit(std::vector<unsigned short>* v, const char* key) {
  ReadArray(v, key, ToUnsigned<unsigned short>);
}
void JSONNodeGetter::Visit(std::vector<short>* v, const char* key) { ReadArray(v, key, ToSigned<short>); }
void JSONNodeGetter::Visit(std::vector<std::string>* v, const char* key) { ReadArray(v, key, ToText); }
void JSONNodeGetter::Visit(Serializable* v, const char* key) {
  const JSONValue& m = Member(key);
  if (m.IsNull()) return;
  utility::Assert(m.IsObject() || m.IsArray(), "Created node is a unkown value.");
  auto nested = std::make_shared<JSONNodeGetter>(m, protocol_version_);
  v->VisitAttr(nested);
}
void JSONNodeGetter::Visit(std::vector<int>* v, const char* key) { ReadArray(v, key, ToSigned<int>); }
void JSONNodeGetter::Visit(std::vector<long>* v, const char* key) { ReadArray(v, key, ToInt64); }
void JSONNodeGetter::Visit(std::vector<unsigned int>* v, const char* key) {
  ReadArray(v, key, ToUnsigned<unsigned int>);
}
void JSONNodeGetter::Visit(std::vector<unsigned long>* v, const char* key) { ReadArray(v, key, ToUint64); }
void JSONNodeGetter::Visit(std::vector<std::vector<unsigned short>>* v, const char* key) {
  const JSONValue& outer = ArrayMember(key);
  v->reserve(v->size() + outer.Size());
  for (const JSONValue& inner : outer.GetArray()) {
    if (!inner.IsArray()) WrongType(key, "an array of arrays");
    std::vector<unsigned short> values;
    values.reserve(inner.Size());
    for (const JSONValue& e : inner.GetArray()) values.push_back(ToUnsigned<unsigned short>(e, key));
    v->push_back(std::move(values));
  }
}

// ---------------------------------------------------------------- free functions

JSONValue ToJSONValue(Serializable* record, JSONAllocator& allocator) {
  JSONValue object(rapidjson::kObjectType);
  auto setter = std::make_shared<JSONNodeSetter>(object, allocator, true);
  record->VisitAttr(setter);
  return object;
}

JSONValue ToJSONValue(const std::string& text, JSONAllocator& allocator) {
  return JSONValue(text.data(), static_cast<rapidjson::SizeType>(text.size()), allocator);
}

JSONValue ToJSONValue(const std::vector<std::string>& texts, JSONAllocator& allocator) {
  JSONValue array(rapidjson::kArrayType);
  array.Reserve(static_cast<rapidjson::SizeType>(texts.size()), allocator);
  for (const std::string& t : texts) array.PushBack(ToJSONValue(t, allocator), allocator);
  return array;
}

void JSONValueTo(const JSONValue& value, std::string& text) { text = ToText(value, "(value)"); }

void JSONValueTo(const JSONValue& value, std::vector<std::string>& texts) {
  if (!value.IsArray()) WrongType("(value)", "an array");
  for (const JSONValue& e : value.GetArray()) texts.push_back(ToText(e, "(value)"));
}

void JSONValueTo(const JSONValue& value, Serializable* record) {
  auto getter = std::make_shared<JSONNodeGetter>(value, 0);
  record->VisitAttr(getter);
}

std::string SerializeJSONValue(const JSONValue& value) {
  using Writer = rapidjson::Writer<rapidjson::StringBuffer, rapidjson::UTF8<>, rapidjson::UTF8<>,
                                   rapidjson::CrtAllocator, kWriteFlags>;
  return Serialize<Writer>(value);
}

std::string SerializeJSONValuePretty(const JSONValue& value) {
  return Serialize<rapidjson::PrettyWriter<rapidjson::StringBuffer>>(value);
}

void printjsonvalue(const JSONValue& value) { utility::Log(utility::kLogInfo, "%s", SerializeJSONValue(value).c_str()); }

std::unique_ptr<char[]> ReadJsonFileText(const char* path, std::size_t* size) {
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path, "rb"), &std::fclose);
  utility::Assert(file != nullptr, "Error in opening the file [%s].", path);
  // A directory opens on Linux and reports a size near 2^63: only regular files are read.
  struct stat st;
  utility::Assert(::fstat(::fileno(file.get()), &st) == 0 && S_ISREG(st.st_mode), "[%s] is not a regular file.", path);
  long length = -1;
  if (std::fseek(file.get(), 0, SEEK_END) == 0) length = std::ftell(file.get());
  utility::Assert(length >= 0 && std::fseek(file.get(), 0, SEEK_SET) == 0, "Error in read the whole file [%s].", path);
  // Left uninitialised: the read fills it, and a 60 MB model is not cleared first.
  std::unique_ptr<char[]> text(new char[static_cast<size_t>(length) + 1]);
  const size_t read = length > 0 ? std::fread(text.get(), 1, static_cast<size_t>(length), file.get()) : 0;
  utility::Assert(read == static_cast<size_t>(length), "Error in read the whole file [%s].", path);
  text[static_cast<size_t>(length)] = '\0';
  *size = static_cast<size_t>(length);
  return text;
}

std::stringstream ReadJsonFile2StrStream(const char* path) {
  std::size_t size = 0;
  const std::unique_ptr<char[]> text = ReadJsonFileText(path, &size);
  std::stringstream stream;
  stream.write(text.get(), static_cast<std::streamsize>(size));
  return stream;
}

namespace {

void CheckParsedObject(const JSONDocument& document, const char* message) {
  if (!document.IsObject()) {
    if (document.HasParseError()) {
      utility::Log(utility::kLogError, "JSON parse error at offset %zu: %s", document.GetErrorOffset(),
                   rapidjson::GetParseError_En(document.GetParseError()));
    }
    utility::AssertFailedMessage(message);
  }
}

}  // namespace

void ParseJsonObject(JSONDocument& document, const char* json, const char* message) {
  document.Parse<kParseFlags>(json);
  CheckParsedObject(document, message);
}

void ParseJsonObjectInsitu(JSONDocument& document, char* json, const char* message) {
  document.ParseInsitu<kParseFlags>(json);
  CheckParsedObject(document, message);
}

}  // namespace runtime
}  // namespace tarn
