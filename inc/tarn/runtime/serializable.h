// The attribute-visitor protocol: every stored record describes its attributes
// once, in VisitAttr, and the same code reads and writes JSON and the binary
// stream format.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tarn/half.h"
#include "tarn/runtime/class_registry.h"

// Version written by this build; stored data with a larger version is refused.
#define __SERIALIZATION_PROTOCOL_VERSION__ 20015u

namespace tarn {
namespace runtime {

constexpr unsigned int kSerializationProtocolVersion = __SERIALIZATION_PROTOCOL_VERSION__;

class Serializable;

// Abstract visitor. The order of the overloads is part of the interface.
class Visitor {
 public:
  virtual ~Visitor();
  virtual void Visit(float* value, const char* key) = 0;
  virtual void Visit(half_float::half* value, const char* key) = 0;
  virtual void Visit(double* value, const char* key) = 0;
  virtual void Visit(signed char* value, const char* key) = 0;
  virtual void Visit(unsigned char* value, const char* key) = 0;
  virtual void Visit(short* value, const char* key) = 0;
  virtual void Visit(unsigned short* value, const char* key) = 0;
  virtual void Visit(int* value, const char* key) = 0;
  virtual void Visit(unsigned int* value, const char* key) = 0;
  virtual void Visit(long* value, const char* key) = 0;
  virtual void Visit(unsigned long* value, const char* key) = 0;
  virtual void Visit(bool* value, const char* key) = 0;
  // Treats the attribute as the start of a zero-terminated character buffer.
  virtual void Visit(char* value, const char* key) = 0;
  virtual void Visit(std::string* value, const char* key) = 0;
  virtual void Visit(std::vector<float>* value, const char* key) = 0;
  virtual void Visit(std::vector<half_float::half>* value, const char* key) = 0;
  virtual void Visit(std::vector<unsigned short>* value, const char* key) = 0;
  virtual void Visit(std::vector<short>* value, const char* key) = 0;
  virtual void Visit(std::vector<std::string>* value, const char* key) = 0;
  virtual void Visit(Serializable* value, const char* key) = 0;
  virtual void Visit(std::vector<int>* value, const char* key) = 0;
  virtual void Visit(std::vector<long>* value, const char* key) = 0;
  virtual void Visit(std::vector<unsigned int>* value, const char* key) = 0;
  virtual void Visit(std::vector<unsigned long>* value, const char* key) = 0;
  virtual void Visit(std::vector<std::vector<unsigned short>>* value, const char* key) = 0;

  // Protocol version of the data being read or written.
  unsigned int protocol_version_ = kSerializationProtocolVersion;
};

using VisitorPtr = std::shared_ptr<Visitor>;

// The 26 overrides every concrete visitor declares, in the interface's order.
#define TRN_VISITOR_OVERRIDES                                                        \
  void Visit(float* value, const char* key) override;                               \
  void Visit(half_float::half* value, const char* key) override;                    \
  void Visit(double* value, const char* key) override;                              \
  void Visit(signed char* value, const char* key) override;                         \
  void Visit(unsigned char* value, const char* key) override;                       \
  void Visit(short* value, const char* key) override;                               \
  void Visit(unsigned short* value, const char* key) override;                      \
  void Visit(int* value, const char* key) override;                                 \
  void Visit(unsigned int* value, const char* key) override;                        \
  void Visit(long* value, const char* key) override;                                \
  void Visit(unsigned long* value, const char* key) override;                       \
  void Visit(bool* value, const char* key) override;                                \
  void Visit(char* value, const char* key) override;                                \
  void Visit(std::string* value, const char* key) override;                         \
  void Visit(std::vector<float>* value, const char* key) override;                  \
  void Visit(std::vector<half_float::half>* value, const char* key) override;       \
  void Visit(std::vector<unsigned short>* value, const char* key) override;         \
  void Visit(std::vector<short>* value, const char* key) override;                  \
  void Visit(std::vector<std::string>* value, const char* key) override;            \
  void Visit(Serializable* value, const char* key) override;                        \
  void Visit(std::vector<int>* value, const char* key) override;                    \
  void Visit(std::vector<long>* value, const char* key) override;                   \
  void Visit(std::vector<unsigned int>* value, const char* key) override;           \
  void Visit(std::vector<unsigned long>* value, const char* key) override;          \
  void Visit(std::vector<std::vector<unsigned short>>* value, const char* key) override;

class Serializable {
 public:
  Serializable();
  Serializable(const Serializable&) = default;
  Serializable& operator=(const Serializable&) = default;
  virtual ~Serializable();

  // Visits "serializable_type": the class name is assigned first, so reading
  // leaves the stored name and writing emits the current class name.
  virtual void VisitAttr(const VisitorPtr& visitor);
  // Class name without namespace, e.g. "Conv2dInfo".
  virtual std::string GetClassTypeName();
  // Fully qualified class name, e.g. "tarn::runtime::Conv2dInfo".
  virtual std::string GetClassTypeNameWithNamespace();
  // Loads by the path's extension: ".json" as JSON; ".trmod", ".trcfg",
  // ".trmods", ".trcfgs" as the binary stream format.
  virtual bool FromFile(const char* path);
  // Loads with an explicit format, "json" or "bin".
  virtual bool FromFile(const char* path, const char* type);
  virtual bool FromJsonString(const char* json);
  // Saves in the format "json" or "bin".
  virtual bool ToFile(const char* path, const char* type);

  std::string serializable_type_;
};

using SerializablePtr = std::shared_ptr<Serializable>;

// Factory of records keyed by their class type name.
using SerializableRegistry = ClassRegistry<std::shared_ptr<Serializable>>;

// The process-wide registry of every record class (layer records, models and
// their containers, configurations, inference parameters, tensor shapes), keyed
// by class type name ("Conv2dInfo"). The record modules fill it on the first
// call, which is thread-safe; registering more classes afterwards is not, so
// do that, if at all, at start-up before other threads use it.
SerializableRegistry& GetSerializableRegistry();

}  // namespace runtime
}  // namespace tarn
