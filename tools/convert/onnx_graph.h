// The converter's view of an ONNX model: a topologically ordered list of
// nodes, the constant tensors (initializers, Constant nodes and everything
// folded from them) and the static shape of every value. It is built from the
// protobuf model by ReadOnnxModel (onnx_reader.h) and rewritten by the graph
// passes (graph_passes.h); nothing after the reader touches protobuf.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace tarn {
namespace convert {

// ONNX element types the converter handles (TensorProto::DataType codes).
enum OnnxType : std::int32_t {
  kOnnxUndefined = 0,
  kOnnxFloat = 1,
  kOnnxUint8 = 2,
  kOnnxInt8 = 3,
  kOnnxUint16 = 4,
  kOnnxInt16 = 5,
  kOnnxInt32 = 6,
  kOnnxInt64 = 7,
  kOnnxBool = 9,
  kOnnxFloat16 = 10,
  kOnnxDouble = 11,
  kOnnxUint32 = 12,
  kOnnxUint64 = 13,
};

bool IsFloatType(std::int32_t type);
bool IsIntegerType(std::int32_t type);

// A constant tensor. Floating types are held as floats, integer and boolean
// types as 64-bit integers; `type` keeps the declared ONNX type.
struct ConstTensor {
  std::vector<std::int64_t> dims;
  std::int32_t type = kOnnxFloat;
  std::vector<float> f;
  std::vector<std::int64_t> i;

  bool is_float() const { return IsFloatType(type); }
  std::size_t size() const { return is_float() ? f.size() : i.size(); }
  // Element k as a double / as an integer, whatever the storage.
  double At(std::size_t k) const { return is_float() ? f[k] : static_cast<double>(i[k]); }
  std::int64_t IntAt(std::size_t k) const { return is_float() ? static_cast<std::int64_t>(f[k]) : i[k]; }
  // All elements as integers (for shape-like tensors).
  std::vector<std::int64_t> Ints() const;
};

// Product of dims; -1 on a negative dim or on overflow past 2^62.
std::int64_t ElementCount(const std::vector<std::int64_t>& dims);

struct Attribute {
  enum Kind { kInt, kFloat, kString, kInts, kFloats, kStrings, kTensor, kOther };
  Kind kind = kOther;
  std::int64_t i = 0;
  float f = 0.0f;
  std::string s;
  std::vector<std::int64_t> ints;
  std::vector<float> floats;
  std::vector<std::string> strings;
  ConstTensor t;
};

struct Node {
  std::string name;  // never empty: unnamed nodes get "<op>_<index>"
  std::string op;
  std::vector<std::string> inputs;  // "" marks an omitted optional input
  std::vector<std::string> outputs;
  std::map<std::string, Attribute> attrs;

  bool Has(const std::string& key) const { return attrs.count(key) != 0; }
  std::int64_t Int(const std::string& key, std::int64_t fallback) const;
  float Float(const std::string& key, float fallback) const;
  std::string String(const std::string& key, const std::string& fallback) const;
  std::vector<std::int64_t> Ints(const std::string& key) const;
  std::vector<float> Floats(const std::string& key) const;
  std::vector<std::string> Strings(const std::string& key) const;
  // Input k, or "" when the node has fewer inputs.
  const std::string& Input(std::size_t k) const;
  const std::string& Output(std::size_t k) const;
};

// The static shape and element type of a value; `known` is false when shape
// inference could not tell (such a value cannot be converted).
struct ValueInfo {
  std::vector<std::int64_t> dims;
  std::int32_t type = kOnnxUndefined;
  bool known = false;
};

struct Graph {
  std::string name;
  std::int64_t opset = 0;
  std::int64_t ir_version = 0;
  std::string producer;
  std::vector<std::string> inputs;   // graph inputs that are not initializers
  std::vector<std::string> outputs;
  std::vector<Node> nodes;           // topological order
  std::map<std::string, ConstTensor> constants;
  std::map<std::string, ValueInfo> values;
  // Axis of the batch dimension of each graph input (0 for images, 1 for the
  // sequence input of a recurrent layer in its default layout).
  std::map<std::string, int> input_batch_axis;

  bool IsConstant(const std::string& value) const { return constants.count(value) != 0; }
  const ConstTensor* Constant(const std::string& value) const;
  const ValueInfo* Value(const std::string& value) const;
  // The nodes reading `value`, by index, and whether the value is a graph output.
  std::vector<std::size_t> Consumers(const std::string& value) const;
  bool IsOutput(const std::string& value) const;
  // The index of the node producing `value`, or -1.
  std::int64_t Producer(const std::string& value) const;
};

// The first problem found in one node (or in the model as a whole).
struct Problem {
  std::string node;  // node name, "" for the model
  std::string op;
  std::string message;
};

using Problems = std::vector<Problem>;

}  // namespace convert
}  // namespace tarn
