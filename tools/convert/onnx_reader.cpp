#include "convert/onnx_reader.h"

#include <onnx/checker.h>
#include <onnx/defs/schema.h>
#include <onnx/onnx_pb.h>
#include <onnx/shape_inference/implementation.h>

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "convert/op_support.h"

namespace tarn {
namespace convert {
namespace {

std::string Str(std::int64_t v) { return std::to_string(v); }

void Refuse(Problems* problems, const std::string& message, const std::string& node = "", const std::string& op = "") {
  problems->push_back(Problem{node, op, message});
}

// IEEE half bits to float, exact.
float HalfToFloat(std::uint16_t h) {
  const std::uint32_t sign = std::uint32_t(h & 0x8000u) << 16;
  std::uint32_t exponent = (h >> 10) & 0x1f;
  std::uint32_t mantissa = h & 0x3ffu;
  std::uint32_t bits;
  if (exponent == 0x1f) {
    bits = sign | 0x7f800000u | (mantissa << 13);
  } else if (exponent != 0) {
    bits = sign | ((exponent + 112) << 23) | (mantissa << 13);
  } else if (mantissa == 0) {
    bits = sign;
  } else {
    // Subnormal half: normalise the mantissa.
    exponent = 113;
    while ((mantissa & 0x400u) == 0) {
      mantissa <<= 1;
      --exponent;
    }
    bits = sign | (exponent << 23) | ((mantissa & 0x3ffu) << 13);
  }
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;
}

std::size_t ElementBytes(std::int32_t type) {
  switch (type) {
    case kOnnxFloat: case kOnnxInt32: case kOnnxUint32: return 4;
    case kOnnxDouble: case kOnnxInt64: case kOnnxUint64: return 8;
    case kOnnxFloat16: case kOnnxInt16: case kOnnxUint16: return 2;
    case kOnnxInt8: case kOnnxUint8: case kOnnxBool: return 1;
    default: return 0;
  }
}

template <typename T>
T LoadLE(const char* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

// Reads the data of a TensorProto, checking it against its dims; "" on
// success, the reason otherwise.
std::string ReadTensor(const onnx::TensorProto& t, const ReaderLimits& limits, ConstTensor* out) {
  if (t.data_location() == onnx::TensorProto::EXTERNAL || t.external_data_size() > 0) {
    return "tensor '" + t.name() + "' keeps its data in an external file, which the converter does not read";
  }
  if (t.has_segment()) return "tensor '" + t.name() + "' is segmented";
  out->dims.assign(t.dims().begin(), t.dims().end());
  const std::int64_t count = ElementCount(out->dims);
  if (count < 0 || count > limits.max_elements) {
    return "tensor '" + t.name() + "' has absurd dimensions";
  }
  out->type = t.data_type();
  const std::size_t bytes = ElementBytes(out->type);
  if (bytes == 0) return "tensor '" + t.name() + "' has an element type the converter does not handle";
  const std::size_t n = static_cast<std::size_t>(count);
  const bool raw = t.has_raw_data();
  if (raw && t.raw_data().size() != n * bytes) {
    return "tensor '" + t.name() + "' holds " + Str(t.raw_data().size()) + " bytes, its dims need " + Str(n * bytes);
  }
  const char* r = raw ? t.raw_data().data() : nullptr;
  auto size_error = [&](int have) {
    return "tensor '" + t.name() + "' holds " + Str(have) + " values, its dims need " + Str(count);
  };
  if (out->is_float()) {
    out->f.resize(n);
    switch (out->type) {
      case kOnnxFloat:
        if (raw) {
          for (std::size_t k = 0; k < n; ++k) out->f[k] = LoadLE<float>(r + 4 * k);
        } else {
          if (static_cast<std::size_t>(t.float_data_size()) != n) return size_error(t.float_data_size());
          for (std::size_t k = 0; k < n; ++k) out->f[k] = t.float_data(static_cast<int>(k));
        }
        break;
      case kOnnxDouble:
        if (raw) {
          for (std::size_t k = 0; k < n; ++k) out->f[k] = static_cast<float>(LoadLE<double>(r + 8 * k));
        } else {
          if (static_cast<std::size_t>(t.double_data_size()) != n) return size_error(t.double_data_size());
          for (std::size_t k = 0; k < n; ++k) out->f[k] = static_cast<float>(t.double_data(static_cast<int>(k)));
        }
        break;
      default:  // float16: raw halves or one half per int32 entry
        if (raw) {
          for (std::size_t k = 0; k < n; ++k) out->f[k] = HalfToFloat(LoadLE<std::uint16_t>(r + 2 * k));
        } else {
          if (static_cast<std::size_t>(t.int32_data_size()) != n) return size_error(t.int32_data_size());
          for (std::size_t k = 0; k < n; ++k) {
            out->f[k] = HalfToFloat(static_cast<std::uint16_t>(t.int32_data(static_cast<int>(k))));
          }
        }
    }
    return "";
  }
  out->i.resize(n);
  if (raw) {
    for (std::size_t k = 0; k < n; ++k) {
      const char* p = r + bytes * k;
      switch (out->type) {
        case kOnnxInt64: out->i[k] = LoadLE<std::int64_t>(p); break;
        case kOnnxUint64: out->i[k] = static_cast<std::int64_t>(LoadLE<std::uint64_t>(p)); break;
        case kOnnxInt32: out->i[k] = LoadLE<std::int32_t>(p); break;
        case kOnnxUint32: out->i[k] = LoadLE<std::uint32_t>(p); break;
        case kOnnxInt16: out->i[k] = LoadLE<std::int16_t>(p); break;
        case kOnnxUint16: out->i[k] = LoadLE<std::uint16_t>(p); break;
        case kOnnxInt8: out->i[k] = LoadLE<std::int8_t>(p); break;
        default: out->i[k] = LoadLE<std::uint8_t>(p); break;  // uint8, bool
      }
    }
    return "";
  }
  if (out->type == kOnnxInt64) {
    if (static_cast<std::size_t>(t.int64_data_size()) != n) return size_error(t.int64_data_size());
    for (std::size_t k = 0; k < n; ++k) out->i[k] = t.int64_data(static_cast<int>(k));
  } else if (out->type == kOnnxUint32 || out->type == kOnnxUint64) {
    if (static_cast<std::size_t>(t.uint64_data_size()) != n) return size_error(t.uint64_data_size());
    for (std::size_t k = 0; k < n; ++k) out->i[k] = static_cast<std::int64_t>(t.uint64_data(static_cast<int>(k)));
  } else {
    if (static_cast<std::size_t>(t.int32_data_size()) != n) return size_error(t.int32_data_size());
    for (std::size_t k = 0; k < n; ++k) out->i[k] = t.int32_data(static_cast<int>(k));
  }
  return "";
}

void WriteTensor(const std::string& name, const ConstTensor& c, onnx::TensorProto* t) {
  t->set_name(name);
  for (std::int64_t d : c.dims) t->add_dims(d);
  if (c.is_float()) {
    t->set_data_type(onnx::TensorProto::FLOAT);
    for (float v : c.f) t->add_float_data(v);
  } else {
    t->set_data_type(c.type);
    if (c.type == kOnnxInt64) {
      for (std::int64_t v : c.i) t->add_int64_data(v);
    } else if (c.type == kOnnxUint32 || c.type == kOnnxUint64) {
      for (std::int64_t v : c.i) t->add_uint64_data(static_cast<std::uint64_t>(v));
    } else {
      for (std::int64_t v : c.i) t->add_int32_data(static_cast<std::int32_t>(v));
    }
  }
}

std::string ReadAttribute(const onnx::AttributeProto& a, const ReaderLimits& limits, Attribute* out) {
  switch (a.type()) {
    case onnx::AttributeProto::INT: out->kind = Attribute::kInt; out->i = a.i(); break;
    case onnx::AttributeProto::FLOAT: out->kind = Attribute::kFloat; out->f = a.f(); break;
    case onnx::AttributeProto::STRING: out->kind = Attribute::kString; out->s = a.s(); break;
    case onnx::AttributeProto::INTS:
      out->kind = Attribute::kInts;
      out->ints.assign(a.ints().begin(), a.ints().end());
      break;
    case onnx::AttributeProto::FLOATS:
      out->kind = Attribute::kFloats;
      out->floats.assign(a.floats().begin(), a.floats().end());
      break;
    case onnx::AttributeProto::STRINGS:
      out->kind = Attribute::kStrings;
      out->strings.assign(a.strings().begin(), a.strings().end());
      break;
    case onnx::AttributeProto::TENSOR: {
      out->kind = Attribute::kTensor;
      const std::string why = ReadTensor(a.t(), limits, &out->t);
      if (!why.empty()) return why;
      break;
    }
    default: out->kind = Attribute::kOther; break;
  }
  return "";
}

void WriteAttribute(const std::string& name, const Attribute& a, onnx::AttributeProto* p) {
  p->set_name(name);
  switch (a.kind) {
    case Attribute::kInt: p->set_type(onnx::AttributeProto::INT); p->set_i(a.i); break;
    case Attribute::kFloat: p->set_type(onnx::AttributeProto::FLOAT); p->set_f(a.f); break;
    case Attribute::kString: p->set_type(onnx::AttributeProto::STRING); p->set_s(a.s); break;
    case Attribute::kInts:
      p->set_type(onnx::AttributeProto::INTS);
      for (auto v : a.ints) p->add_ints(v);
      break;
    case Attribute::kFloats:
      p->set_type(onnx::AttributeProto::FLOATS);
      for (auto v : a.floats) p->add_floats(v);
      break;
    case Attribute::kStrings:
      p->set_type(onnx::AttributeProto::STRINGS);
      for (const auto& v : a.strings) p->add_strings(v);
      break;
    case Attribute::kTensor:
      p->set_type(onnx::AttributeProto::TENSOR);
      WriteTensor("", a.t, p->mutable_t());
      break;
    case Attribute::kOther: break;
  }
}

ValueInfo ReadValueInfo(const onnx::ValueInfoProto& v) {
  ValueInfo info;
  if (!v.type().has_tensor_type()) return info;
  const auto& tt = v.type().tensor_type();
  info.type = tt.elem_type();
  if (!tt.has_shape()) return info;
  info.known = true;
  for (const auto& d : tt.shape().dim()) {
    if (!d.has_dim_value() || d.dim_value() < 0) {
      info.known = false;
      info.dims.push_back(-1);
    } else {
      info.dims.push_back(d.dim_value());
    }
  }
  return info;
}

void WriteValueInfo(const std::string& name, const ValueInfo& info, onnx::ValueInfoProto* v) {
  v->set_name(name);
  auto* tt = v->mutable_type()->mutable_tensor_type();
  tt->set_elem_type(info.type == kOnnxUndefined ? onnx::TensorProto::FLOAT : info.type);
  auto* shape = tt->mutable_shape();
  for (std::int64_t d : info.dims) shape->add_dim()->set_dim_value(d);
}

bool RunInference(onnx::ModelProto& model, Problems* problems) {
  try {
    onnx::ShapeInferenceOptions options;
    options.check_type = true;
    options.error_mode = 0;  // values it cannot infer stay unknown and are refused later, node by node
    options.enable_data_propagation = true;
    onnx::shape_inference::InferShapes(model, onnx::OpSchemaRegistry::Instance(), options);
  } catch (const std::exception& e) {
    Refuse(problems, std::string("shape inference failed: ") + e.what());
    return false;
  }
  return true;
}

// The values of the model's graph after inference.
void CollectValues(const onnx::GraphProto& g, Graph* graph) {
  graph->values.clear();
  for (const auto& v : g.input()) graph->values[v.name()] = ReadValueInfo(v);
  for (const auto& v : g.value_info()) graph->values[v.name()] = ReadValueInfo(v);
  for (const auto& v : g.output()) {
    ValueInfo info = ReadValueInfo(v);
    auto it = graph->values.find(v.name());
    // An output declared without a shape keeps what inference found.
    if (info.known || it == graph->values.end()) graph->values[v.name()] = info;
  }
  for (const auto& c : graph->constants) {
    ValueInfo info;
    info.dims = c.second.dims;
    info.type = c.second.is_float() ? kOnnxFloat : c.second.type;
    info.known = true;
    graph->values[c.first] = info;
  }
}

bool TopologicallySorted(const Graph& graph, Problems* problems) {
  std::set<std::string> defined(graph.inputs.begin(), graph.inputs.end());
  for (const auto& c : graph.constants) defined.insert(c.first);
  for (const Node& node : graph.nodes) {
    for (const std::string& in : node.inputs) {
      if (!in.empty() && !defined.count(in)) {
        Refuse(problems, "reads '" + in + "', which no earlier node, input or initializer defines", node.name,
               node.op);
        return false;
      }
    }
    for (const std::string& out : node.outputs) {
      if (!out.empty()) defined.insert(out);
    }
  }
  for (const std::string& out : graph.outputs) {
    if (!defined.count(out)) {
      Refuse(problems, "graph output '" + out + "' is never computed");
      return false;
    }
  }
  return true;
}

bool IsRecurrentOp(const std::string& op) { return op == "LSTM" || op == "GRU" || op == "RNN"; }

}  // namespace

bool ReadOnnxModel(const void* data, std::size_t size, Graph* graph, Problems* problems, const ReaderLimits& limits) {
  *graph = Graph();
  if (size > limits.max_bytes || size > static_cast<std::size_t>(INT_MAX)) {
    Refuse(problems, "the file is larger than " + Str(static_cast<std::int64_t>(limits.max_bytes)) + " bytes");
    return false;
  }
  onnx::ModelProto model;
  {
    google::protobuf::io::ArrayInputStream raw(data, static_cast<int>(size));
    google::protobuf::io::CodedInputStream coded(&raw);
    coded.SetTotalBytesLimit(static_cast<int>(size) + 1);
    coded.SetRecursionLimit(64);
    if (!model.ParseFromCodedStream(&coded) || !coded.ConsumedEntireMessage()) {
      Refuse(problems, "not an ONNX model: the protobuf message is malformed or truncated");
      return false;
    }
  }
  if (!model.has_graph()) {
    Refuse(problems, "not an ONNX model: it holds no graph");
    return false;
  }
  const onnx::GraphProto& g = model.graph();
  if (static_cast<std::size_t>(g.node_size()) > limits.max_nodes) {
    Refuse(problems, "the graph has " + Str(g.node_size()) + " nodes, more than the converter takes (" +
                         Str(static_cast<std::int64_t>(limits.max_nodes)) + ")");
    return false;
  }
  for (const auto& op : model.opset_import()) {
    if (op.domain().empty() || op.domain() == "ai.onnx") graph->opset = op.version();
  }
  if (graph->opset < kMinOpset || graph->opset > kMaxOpset) {
    Refuse(problems, "opset " + Str(graph->opset) + " of the default domain: the converter reads opsets " +
                         Str(kMinOpset) + " to " + Str(kMaxOpset));
    return false;
  }
  for (const auto& t : g.initializer()) {
    if (t.data_location() == onnx::TensorProto::EXTERNAL || t.external_data_size() > 0) {
      Refuse(problems, "initializer '" + t.name() + "' keeps its data in an external file, which the converter "
                       "does not read");
      return false;
    }
  }
  if (g.sparse_initializer_size() > 0) {
    Refuse(problems, "sparse initializers are not supported");
    return false;
  }
  try {
    onnx::checker::check_model(model);
  } catch (const std::exception& e) {
    Refuse(problems, std::string("the ONNX checker refuses the model: ") + e.what());
    return false;
  }

  graph->name = g.name();
  graph->ir_version = model.ir_version();
  graph->producer = model.producer_name() + " " + model.producer_version();

  std::set<std::string> initializer_names;
  for (const auto& t : g.initializer()) initializer_names.insert(t.name());

  // Fix the batch axis of every real input to 1, so that shape inference
  // gives static shapes; any other dynamic dimension is refused.
  onnx::GraphProto* mg = model.mutable_graph();
  for (auto& v : *mg->mutable_input()) {
    if (initializer_names.count(v.name())) continue;
    graph->inputs.push_back(v.name());
    int batch_axis = 0;
    for (const auto& node : g.node()) {
      if (IsRecurrentOp(node.op_type()) && node.input_size() > 0 && node.input(0) == v.name()) {
        bool batch_first = false;
        for (const auto& a : node.attribute()) {
          if (a.name() == "layout" && a.i() == 1) batch_first = true;
        }
        if (!batch_first) batch_axis = 1;
      }
    }
    graph->input_batch_axis[v.name()] = batch_axis;
    if (!v.type().has_tensor_type() || !v.type().tensor_type().has_shape()) {
      Refuse(problems, "input '" + v.name() + "' has no tensor shape");
      continue;
    }
    if (v.type().tensor_type().elem_type() != onnx::TensorProto::FLOAT) {
      Refuse(problems, "input '" + v.name() + "' is not a float tensor");
      continue;
    }
    auto* shape = v.mutable_type()->mutable_tensor_type()->mutable_shape();
    if (shape->dim_size() <= batch_axis) {
      Refuse(problems, "input '" + v.name() + "' has no batch axis");
      continue;
    }
    for (int k = 0; k < shape->dim_size(); ++k) {
      auto* d = shape->mutable_dim(k);
      if (k == batch_axis) {
        if (d->has_dim_value() && d->dim_value() != 1) {
          Refuse(problems, "input '" + v.name() + "' has batch " + Str(d->dim_value()) + ": the runtime runs batch 1");
        }
        d->set_dim_value(1);
      } else if (!d->has_dim_value()) {
        Refuse(problems, "input '" + v.name() + "' has the dynamic dimension '" + d->dim_param() + "' at axis " +
                             Str(k) + ": export the model with fixed sizes");
      } else if (d->dim_value() <= 0 || d->dim_value() > limits.max_elements) {
        Refuse(problems, "input '" + v.name() + "' has the absurd dimension " + Str(d->dim_value()));
      }
    }
    std::vector<std::int64_t> dims;
    for (const auto& d : shape->dim()) dims.push_back(d.dim_value());
    const std::int64_t count = ElementCount(dims);
    if (count < 0 || count > limits.max_elements) Refuse(problems, "input '" + v.name() + "' has absurd dimensions");
  }
  if (!problems->empty()) return false;
  for (const auto& o : g.output()) graph->outputs.push_back(o.name());

  for (const auto& t : g.initializer()) {
    ConstTensor c;
    const std::string why = ReadTensor(t, limits, &c);
    if (!why.empty()) {
      Refuse(problems, why);
      return false;
    }
    graph->constants[t.name()] = std::move(c);
  }

  if (!RunInference(model, problems)) return false;

  std::set<std::string> names;
  for (int n = 0; n < mg->node_size(); ++n) {
    const onnx::NodeProto& p = mg->node(n);
    Node node;
    node.op = p.op_type();
    node.name = p.name().empty() ? p.op_type() + "_" + Str(n) : p.name();
    // Node names need not be unique in ONNX; the layer ids made from them must be.
    if (names.count(node.name)) node.name += "_" + Str(n);
    names.insert(node.name);
    node.inputs.assign(p.input().begin(), p.input().end());
    node.outputs.assign(p.output().begin(), p.output().end());
    if (!p.domain().empty() && p.domain() != "ai.onnx") {
      Refuse(problems, "operator of domain '" + p.domain() + "' is not supported", node.name, node.op);
      continue;
    }
    bool bad = false;
    for (const auto& a : p.attribute()) {
      Attribute attr;
      const std::string why = ReadAttribute(a, limits, &attr);
      if (!why.empty()) {
        Refuse(problems, "attribute '" + a.name() + "': " + why, node.name, node.op);
        bad = true;
      }
      node.attrs[a.name()] = std::move(attr);
    }
    if (bad) continue;
    if (!IsKnownOperator(node.op)) {
      Refuse(problems, "operator " + node.op + " is not supported by the converter", node.name, node.op);
      continue;
    }
    if (node.op == "Constant") {
      // Constant nodes become constants right away.
      ConstTensor c;
      if (node.Has("value") && node.attrs["value"].kind == Attribute::kTensor) {
        c = node.attrs["value"].t;
      } else if (node.Has("value_float")) {
        c.type = kOnnxFloat;
        c.f = {node.Float("value_float", 0.0f)};
      } else if (node.Has("value_floats")) {
        c.type = kOnnxFloat;
        c.f = node.Floats("value_floats");
        c.dims = {static_cast<std::int64_t>(c.f.size())};
      } else if (node.Has("value_int")) {
        c.type = kOnnxInt64;
        c.i = {node.Int("value_int", 0)};
      } else if (node.Has("value_ints")) {
        c.type = kOnnxInt64;
        c.i = node.Ints("value_ints");
        c.dims = {static_cast<std::int64_t>(c.i.size())};
      } else {
        Refuse(problems, "a Constant without a numeric value is not supported", node.name, node.op);
        continue;
      }
      if (!node.outputs.empty()) graph->constants[node.outputs[0]] = std::move(c);
      continue;
    }
    graph->nodes.push_back(std::move(node));
  }
  CollectValues(*mg, graph);
  if (!problems->empty()) return false;
  return TopologicallySorted(*graph, problems);
}

bool ReadOnnxFile(const std::string& path, Graph* graph, Problems* problems, const ReaderLimits& limits) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) {
    Refuse(problems, "cannot open " + path);
    return false;
  }
  const std::streamoff size = in.tellg();
  if (size < 0 || static_cast<std::uint64_t>(size) > limits.max_bytes) {
    Refuse(problems, path + " is larger than " + Str(static_cast<std::int64_t>(limits.max_bytes)) + " bytes");
    return false;
  }
  std::string bytes(static_cast<std::size_t>(size), '\0');
  in.seekg(0);
  if (!in.read(&bytes[0], size)) {
    Refuse(problems, "cannot read " + path);
    return false;
  }
  return ReadOnnxModel(bytes.data(), bytes.size(), graph, problems, limits);
}

bool InferShapes(Graph* graph, Problems* problems) {
  onnx::ModelProto model;
  // Initializers need not be listed as inputs from IR version 4 on.
  model.set_ir_version(std::max<std::int64_t>(graph->ir_version, 7));
  auto* opset = model.add_opset_import();
  opset->set_domain("");
  opset->set_version(graph->opset);
  onnx::GraphProto* g = model.mutable_graph();
  g->set_name(graph->name);
  for (const std::string& in : graph->inputs) {
    const ValueInfo* info = graph->Value(in);
    if (info) WriteValueInfo(in, *info, g->add_input());
  }
  for (const auto& c : graph->constants) WriteTensor(c.first, c.second, g->add_initializer());
  for (const Node& node : graph->nodes) {
    onnx::NodeProto* p = g->add_node();
    p->set_name(node.name);
    p->set_op_type(node.op);
    for (const auto& in : node.inputs) p->add_input(in);
    for (const auto& out : node.outputs) p->add_output(out);
    for (const auto& a : node.attrs) {
      if (a.second.kind != Attribute::kOther) WriteAttribute(a.first, a.second, p->add_attribute());
    }
  }
  for (const std::string& out : graph->outputs) g->add_output()->set_name(out);
  if (!RunInference(model, problems)) return false;
  CollectValues(*g, graph);
  return true;
}

}  // namespace convert
}  // namespace tarn
