// Reads the reference fixtures made by tests/reference/make_reference_data.py.
#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tarn/runtime/json_binding.h"

namespace tarn {
namespace testing {

struct RefTensor {
  std::vector<unsigned> shape;
  std::vector<float> data;
};

struct RefCase {
  std::string name;
  std::string op;
  std::string params;  // the "params" member as compact JSON text
  std::vector<RefTensor> inputs;
  std::vector<RefTensor> outputs;
};

inline RefTensor ReadRefTensor(const runtime::JSONValue& v) {
  RefTensor t;
  for (const auto& d : v["shape"].GetArray()) t.shape.push_back(d.GetUint());
  t.data.reserve(v["data"].Size());
  for (const auto& x : v["data"].GetArray()) t.data.push_back(static_cast<float>(x.GetDouble()));
  return t;
}

// Every case of tests/data/reference/<fixture>.json; empty when the file is missing.
inline std::vector<RefCase> LoadReference(const std::string& fixture) {
  std::ifstream in(std::string(TRN_TEST_DATA_DIR) + "/reference/" + fixture + ".json");
  std::vector<RefCase> cases;
  if (!in) return cases;
  std::stringstream text;
  text << in.rdbuf();
  runtime::JSONDocument doc;
  doc.Parse(text.str().c_str());
  if (!doc.IsObject() || !doc.HasMember("cases")) return cases;
  for (const auto& c : doc["cases"].GetArray()) {
    RefCase rc;
    rc.name = c["name"].GetString();
    rc.op = c["op"].GetString();
    rc.params = runtime::SerializeJSONValue(c["params"]);
    for (const auto& t : c["inputs"].GetArray()) rc.inputs.push_back(ReadRefTensor(t));
    for (const auto& t : c["outputs"].GetArray()) rc.outputs.push_back(ReadRefTensor(t));
    cases.push_back(std::move(rc));
  }
  return cases;
}

// A parameter of a case, read from its params JSON.
inline runtime::JSONDocument ParseParams(const RefCase& c) {
  runtime::JSONDocument doc;
  doc.Parse(c.params.c_str());
  return doc;
}

}  // namespace testing
}  // namespace tarn
