// Shared helpers of the converter tests: the PyTorch fixtures, converting in
// process, loading the written package through the library's entry point and
// running it.
#pragma once

#include <gtest/gtest.h>

#include <onnx/onnx_pb.h>

#include <cmath>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "convert/converter.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/json_binding.h"
#include "tarn/utility/model_loader.h"
#include "test_util.h"

namespace tarn {
namespace testing {

struct FixtureTensor {
  std::string name;
  std::vector<std::uint32_t> dims;
  std::vector<float> data;
};

struct OnnxFixture {
  std::string onnx;  // the model's bytes
  std::string waits_for;
  std::vector<FixtureTensor> inputs, outputs;
};

inline std::string ReadText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

inline std::string FixturePath(const std::string& name, const char* ext) {
  return std::string(TRN_ONNX_FIXTURE_DIR) + "/" + name + ext;
}

inline bool LoadFixture(const std::string& name, OnnxFixture* f) {
  f->onnx = ReadText(FixturePath(name, ".onnx"));
  const std::string json = ReadText(FixturePath(name, ".json"));
  runtime::JSONDocument doc;
  doc.Parse(json.c_str());
  if (f->onnx.empty() || !doc.IsObject()) return false;
  f->waits_for = doc["waits_for"].GetString();
  auto read = [](const runtime::JSONValue& list, std::vector<FixtureTensor>* out) {
    for (const auto& t : list.GetArray()) {
      FixtureTensor ft;
      ft.name = t["name"].GetString();
      for (const auto& d : t["dims"].GetArray()) ft.dims.push_back(d.GetUint());
      ft.data = runtime::DecodeWeights(t["data"].GetString());
      out->push_back(ft);
    }
  };
  read(doc["inputs"], &f->inputs);
  read(doc["outputs"], &f->outputs);
  return true;
}

// One converter for the whole test program: registering the kernels and
// creating the context once.
inline convert::Planner& SharedPlanner() {
  static convert::Planner* planner = new convert::Planner();
  return *planner;
}

inline bool Convert(const std::string& onnx, const convert::ConvertOptions& options, convert::ConvertResult* result) {
  return convert::ConvertOnnx(onnx.data(), onnx.size(), options, SharedPlanner(), result);
}

inline convert::ConvertOptions OptionsFor(convert::Target target) {
  convert::ConvertOptions options;
  options.plan.target = target;
  return options;
}

// Whether the processor running the tests has the target's instructions.
inline bool CanRun(convert::Target target) {
  const runtime::CPUDeviceInfo cpu = runtime::DetectCPUDevice();
  if (target == convert::Target::kAVX) return cpu.CanRunAVXKernels();
  if (target == convert::Target::kSSE) return cpu.CanRunSSEKernels();
  return true;
}

// Whether every problem is a layer waiting for an unregistered kernel family.
inline bool OnlyMissingKernels(const convert::Problems& problems) {
  if (problems.empty()) return false;
  for (const auto& p : problems) {
    if (p.message.find("is registered: waits for") == std::string::npos) return false;
  }
  return true;
}

// A package written to disk and loaded again through load_model.
class LoadedPackage {
 public:
  bool Load(runtime::TRNModel& package, const std::string& file = "model.json") {
    path_ = dir_.File(file);
    std::string error;
    if (!convert::WritePackage(package, path_, &error)) {
      ADD_FAILURE() << error;
      return false;
    }
    utility::init_register_operators(kernels_, params_);
    utility::create_context(ctx_, 64);
    if (utility::load_model(path_, nets_, ctx_, kernels_, params_, package.sdk_type, 1, 0) != 0 || nets_.empty()) {
      ADD_FAILURE() << "load_model refused " << path_;
      return false;
    }
    pkg_ = nets_.begin()->second;
    return pkg_->net != nullptr;
  }

  // Runs the net on the fixture's inputs (shaped as the converted model's
  // input layers, without the batch axis); the outputs in the model's order.
  std::vector<std::shared_ptr<runtime::Tensor>> Run(const std::vector<FixtureTensor>& inputs,
                                                    const convert::MappedModel& model) {
    for (const FixtureTensor& in : inputs) {
      const std::int64_t index = pkg_->net->IndexOf(in.name);
      const convert::MappedLayer* layer = model.Find(in.name);
      EXPECT_TRUE(index >= 0 && layer) << "no input layer " << in.name;
      if (index < 0 || !layer) return {};
      pkg_->input_tensors[static_cast<std::uint32_t>(index)] =
          ctx_->cpu->CreateTensor(runtime::MakeShape(layer->dims), in.data.data());
    }
    const auto out = pkg_->net->Forward(pkg_->input_tensors, pkg_->output_indices, ctx_, &times_);
    std::vector<std::shared_ptr<runtime::Tensor>> result;
    for (std::uint32_t index : pkg_->output_indices) {
      auto it = out.find(index);
      if (it == out.end() || it->second.empty()) return {};
      result.push_back(it->second[0]);
    }
    return result;
  }

  const std::vector<float>& times() const { return times_; }
  runtime::Net& net() { return *pkg_->net; }

 private:
  TempDir dir_;
  std::string path_;
  runtime::KernelRegistry kernels_;
  runtime::InferenceParamRegistry params_;
  std::shared_ptr<runtime::Context> ctx_;
  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets_;
  std::shared_ptr<utility::_NetworkPackage> pkg_;
  std::vector<float> times_;
};

// max |a - b| over the elements, and whether it stays within tolerance * max |b|.
inline ::testing::AssertionResult CloseToReference(const runtime::Tensor& out, const FixtureTensor& ref,
                                                   float tolerance) {
  const std::size_t n = out.shape.ElementCount();
  if (n != ref.data.size()) {
    return ::testing::AssertionFailure() << "the output holds " << n << " values, PyTorch's " << ref.data.size();
  }
  const float* y = static_cast<const float*>(out.Data());
  float worst = 0.0f, scale = 0.0f;
  std::size_t at = 0;
  for (std::size_t k = 0; k < n; ++k) {
    scale = std::max(scale, std::fabs(ref.data[k]));
    const float d = std::fabs(y[k] - ref.data[k]);
    if (!(d <= worst)) {
      worst = d;
      at = k;
    }
  }
  if (worst <= tolerance * std::max(scale, 1e-30f)) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "max |diff| " << worst << " at " << at << " (" << y[at] << " vs "
                                       << ref.data[at] << "), more than " << tolerance << " x max |reference| "
                                       << scale;
}

// A minimal ONNX model built in memory: nodes over float inputs, with
// initializers; for refusal and planner tests.
struct OnnxBuilder {
  onnx::ModelProto model;
  onnx::GraphProto* graph;

  explicit OnnxBuilder(int opset = 13) {
    model.set_ir_version(7);
    auto* o = model.add_opset_import();
    o->set_domain("");
    o->set_version(opset);
    graph = model.mutable_graph();
    graph->set_name("g");
  }
  static void Shape(onnx::ValueInfoProto* v, const std::string& name, const std::vector<std::int64_t>& dims) {
    v->set_name(name);
    auto* t = v->mutable_type()->mutable_tensor_type();
    t->set_elem_type(onnx::TensorProto::FLOAT);
    auto* s = t->mutable_shape();
    for (std::int64_t d : dims) s->add_dim()->set_dim_value(d);
  }
  OnnxBuilder& Input(const std::string& name, const std::vector<std::int64_t>& dims) {
    Shape(graph->add_input(), name, dims);
    return *this;
  }
  // Graph outputs need a shape for the ONNX checker; inference checks it.
  OnnxBuilder& Output(const std::string& name, const std::vector<std::int64_t>& dims) {
    Shape(graph->add_output(), name, dims);
    return *this;
  }
  OnnxBuilder& Weight(const std::string& name, const std::vector<std::int64_t>& dims, float value = 0.5f) {
    auto* t = graph->add_initializer();
    t->set_name(name);
    t->set_data_type(onnx::TensorProto::FLOAT);
    std::int64_t n = 1;
    for (std::int64_t d : dims) {
      t->add_dims(d);
      n *= d;
    }
    for (std::int64_t k = 0; k < n; ++k) t->add_float_data(value + 0.01f * static_cast<float>(k % 7));
    return *this;
  }
  OnnxBuilder& Ints(const std::string& name, const std::vector<std::int64_t>& values) {
    auto* t = graph->add_initializer();
    t->set_name(name);
    t->set_data_type(onnx::TensorProto::INT64);
    t->add_dims(static_cast<std::int64_t>(values.size()));
    for (std::int64_t v : values) t->add_int64_data(v);
    return *this;
  }
  onnx::NodeProto* Node(const std::string& op, const std::vector<std::string>& inputs,
                        const std::vector<std::string>& outputs, const std::string& name = "") {
    auto* n = graph->add_node();
    n->set_op_type(op);
    n->set_name(name.empty() ? op + std::to_string(graph->node_size()) : name);
    for (const auto& i : inputs) n->add_input(i);
    for (const auto& o : outputs) n->add_output(o);
    return n;
  }
  static void Attr(onnx::NodeProto* n, const std::string& key, std::int64_t v) {
    auto* a = n->add_attribute();
    a->set_name(key);
    a->set_type(onnx::AttributeProto::INT);
    a->set_i(v);
  }
  static void Attr(onnx::NodeProto* n, const std::string& key, float v) {
    auto* a = n->add_attribute();
    a->set_name(key);
    a->set_type(onnx::AttributeProto::FLOAT);
    a->set_f(v);
  }
  static void Attr(onnx::NodeProto* n, const std::string& key, const std::string& v) {
    auto* a = n->add_attribute();
    a->set_name(key);
    a->set_type(onnx::AttributeProto::STRING);
    a->set_s(v);
  }
  static void Attr(onnx::NodeProto* n, const std::string& key, const std::vector<std::int64_t>& v) {
    auto* a = n->add_attribute();
    a->set_name(key);
    a->set_type(onnx::AttributeProto::INTS);
    for (auto x : v) a->add_ints(x);
  }
  std::string Bytes() const { return model.SerializeAsString(); }
};

}  // namespace testing
}  // namespace tarn
