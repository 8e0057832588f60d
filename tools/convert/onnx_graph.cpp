#include "convert/onnx_graph.h"

#include <limits>

namespace tarn {
namespace convert {

bool IsFloatType(std::int32_t type) {
  return type == kOnnxFloat || type == kOnnxFloat16 || type == kOnnxDouble;
}

bool IsIntegerType(std::int32_t type) {
  switch (type) {
    case kOnnxUint8:
    case kOnnxInt8:
    case kOnnxUint16:
    case kOnnxInt16:
    case kOnnxInt32:
    case kOnnxInt64:
    case kOnnxBool:
    case kOnnxUint32:
    case kOnnxUint64:
      return true;
    default:
      return false;
  }
}

std::vector<std::int64_t> ConstTensor::Ints() const {
  std::vector<std::int64_t> out(size());
  for (std::size_t k = 0; k < out.size(); ++k) out[k] = IntAt(k);
  return out;
}

std::int64_t ElementCount(const std::vector<std::int64_t>& dims) {
  constexpr std::int64_t kLimit = std::int64_t(1) << 62;
  std::int64_t n = 1;
  for (std::int64_t d : dims) {
    if (d < 0) return -1;
    if (d != 0 && n > kLimit / d) return -1;
    n *= d;
  }
  return n;
}

std::int64_t Node::Int(const std::string& key, std::int64_t fallback) const {
  auto it = attrs.find(key);
  return it != attrs.end() && it->second.kind == Attribute::kInt ? it->second.i : fallback;
}

float Node::Float(const std::string& key, float fallback) const {
  auto it = attrs.find(key);
  return it != attrs.end() && it->second.kind == Attribute::kFloat ? it->second.f : fallback;
}

std::string Node::String(const std::string& key, const std::string& fallback) const {
  auto it = attrs.find(key);
  return it != attrs.end() && it->second.kind == Attribute::kString ? it->second.s : fallback;
}

std::vector<std::int64_t> Node::Ints(const std::string& key) const {
  auto it = attrs.find(key);
  return it != attrs.end() && it->second.kind == Attribute::kInts ? it->second.ints : std::vector<std::int64_t>();
}

std::vector<float> Node::Floats(const std::string& key) const {
  auto it = attrs.find(key);
  return it != attrs.end() && it->second.kind == Attribute::kFloats ? it->second.floats : std::vector<float>();
}

std::vector<std::string> Node::Strings(const std::string& key) const {
  auto it = attrs.find(key);
  return it != attrs.end() && it->second.kind == Attribute::kStrings ? it->second.strings
                                                                     : std::vector<std::string>();
}

namespace {
const std::string kNone;
}

const std::string& Node::Input(std::size_t k) const { return k < inputs.size() ? inputs[k] : kNone; }
const std::string& Node::Output(std::size_t k) const { return k < outputs.size() ? outputs[k] : kNone; }

const ConstTensor* Graph::Constant(const std::string& value) const {
  auto it = constants.find(value);
  return it == constants.end() ? nullptr : &it->second;
}

const ValueInfo* Graph::Value(const std::string& value) const {
  auto it = values.find(value);
  return it == values.end() ? nullptr : &it->second;
}

std::vector<std::size_t> Graph::Consumers(const std::string& value) const {
  std::vector<std::size_t> out;
  if (value.empty()) return out;
  for (std::size_t n = 0; n < nodes.size(); ++n) {
    for (const std::string& in : nodes[n].inputs) {
      if (in == value) {
        out.push_back(n);
        break;
      }
    }
  }
  return out;
}

bool Graph::IsOutput(const std::string& value) const {
  for (const std::string& o : outputs) {
    if (o == value) return true;
  }
  return false;
}

std::int64_t Graph::Producer(const std::string& value) const {
  if (value.empty()) return -1;
  for (std::size_t n = 0; n < nodes.size(); ++n) {
    for (const std::string& out : nodes[n].outputs) {
      if (out == value) return static_cast<std::int64_t>(n);
    }
  }
  return -1;
}

}  // namespace convert
}  // namespace tarn
