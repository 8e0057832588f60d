#include "convert/op_mapping.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <set>
#include <sstream>

#include "convert/op_support.h"
#include "tarn/half.h"

namespace tarn {
namespace convert {

using runtime::LayerInfoPtr;
using OnnxDims = std::vector<std::int64_t>;

const MappedLayer* MappedModel::Find(const std::string& id) const {
  for (const MappedLayer& l : layers) {
    if (l.record->id == id) return &l;
  }
  return nullptr;
}

bool ToRuntimeDims(const OnnxDims& dims, int batch_axis, RuntimeDims* out) {
  out->clear();
  for (std::size_t k = 0; k < dims.size(); ++k) {
    if (static_cast<int>(k) == batch_axis) continue;
    if (dims[k] < 0 || dims[k] > std::numeric_limits<std::uint32_t>::max()) return false;
    out->push_back(static_cast<std::uint32_t>(dims[k]));
  }
  return true;
}

bool HalfExact(float value) { return static_cast<float>(half_float::half(value)) == value; }

namespace {

// The half nearest to `value` (the plain conversion truncates).
half_float::half NearestHalf(float value) {
  const half_float::half down(value);
  const half_float::half up = half_float::half::FromBits(static_cast<std::uint16_t>(down.bits() + 1));
  if (static_cast<float>(down) == value || !std::isfinite(static_cast<float>(up))) return down;
  return std::fabs(static_cast<float>(up) - value) < std::fabs(value - static_cast<float>(down)) ? up : down;
}

std::string DimsText(const std::vector<std::int64_t>& dims) {
  std::ostringstream s;
  s << "[";
  for (std::size_t k = 0; k < dims.size(); ++k) s << (k ? ", " : "") << dims[k];
  s << "]";
  return s.str();
}

std::string DimsText(const RuntimeDims& dims) {
  return DimsText(std::vector<std::int64_t>(dims.begin(), dims.end()));
}

std::string FloatText(double v) {
  std::ostringstream s;
  s.precision(9);
  s << v;
  return s.str();
}

struct Refusal {
  std::string message;
};

[[noreturn]] void Fail(const std::string& message) { throw Refusal{message}; }

// A value as the runtime holds it.
struct ValueRef {
  std::string layer;   // the layer whose output it is
  RuntimeDims actual;  // dims of the runtime tensor
  OnnxDims onnx;       // dims ONNX gives the value
  int batch = 0;       // batch axis within `onnx`, -1 when it has none
};

std::uint16_t U16(std::int64_t v, const char* what) {
  if (v < 0 || v > 65535) Fail(std::string(what) + " " + std::to_string(v) + " does not fit the record's 16 bits");
  return static_cast<std::uint16_t>(v);
}

std::int16_t I16(std::int64_t v, const char* what) {
  if (v < -32768 || v > 32767) Fail(std::string(what) + " " + std::to_string(v) + " does not fit the record's 16 bits");
  return static_cast<std::int16_t>(v);
}

// Gate blocks of `rows` rows each, reordered: block k of the result is block order[k] of `w`.
std::vector<float> ReorderGates(const float* w, std::size_t rows, std::size_t cols, const std::vector<int>& order) {
  std::vector<float> out;
  out.reserve(order.size() * rows * cols);
  for (int g : order) out.insert(out.end(), w + g * rows * cols, w + (g + 1) * rows * cols);
  return out;
}

class Mapper {
 public:
  Mapper(const Graph& graph, MappedModel* model, Problems* problems)
      : graph_(graph), model_(model), problems_(problems) {}

  bool Run() {
    for (const std::string& in : graph_.inputs) MapInput(in);
    for (std::size_t n = 0; n < graph_.nodes.size(); ++n) {
      const Node& node = graph_.nodes[n];
      if (absorbed_.count(n)) continue;
      bool poisoned = false;
      for (const std::string& in : node.inputs) poisoned = poisoned || poisoned_.count(in) != 0;
      if (poisoned) {
        Poison(node);
        continue;
      }
      try {
        MapNode(n, node);
      } catch (const Refusal& r) {
        problems_->push_back(Problem{node.name, node.op, r.message});
        Poison(node);
      }
    }
    const std::size_t before = problems_->size();
    for (const std::string& out : graph_.outputs) {
      if (poisoned_.count(out)) continue;
      auto it = refs_.find(out);
      if (it == refs_.end()) {
        problems_->push_back(Problem{"", "", "graph output '" + out + "' is a constant or not computed by a layer"});
        continue;
      }
      model_->output_ids.push_back(it->second.layer);
      model_->output_names.push_back(out);
    }
    return problems_->empty() && problems_->size() == before;
  }

 private:
  void Poison(const Node& node) {
    for (const std::string& out : node.outputs) poisoned_.insert(out);
  }

  // ---------------------------------------------------------------- values

  const ValueInfo& Info(const std::string& value) const {
    const ValueInfo* v = graph_.Value(value);
    if (!v || !v->known) Fail("the shape of '" + value + "' is unknown (shape inference could not tell)");
    for (std::int64_t d : v->dims) {
      if (d < 0) Fail("the shape of '" + value + "' is not static");
    }
    return *v;
  }

  const ValueRef& Tensor(const Node& node, std::size_t k) {
    const std::string& name = node.Input(k);
    if (name.empty()) Fail("input " + std::to_string(k) + " is missing");
    if (graph_.IsConstant(name)) {
      Fail("input '" + name + "' is a constant where the runtime needs a layer's output (the runtime has no "
           "constant tensors)");
    }
    auto it = refs_.find(name);
    if (it == refs_.end()) Fail("input '" + name + "' is computed by no layer");
    return it->second;
  }

  const ConstTensor& Const(const Node& node, std::size_t k, const char* what) {
    const ConstTensor* c = graph_.Constant(node.Input(k));
    if (!c) Fail(std::string(what) + " must be a constant (an initializer or folded value)");
    return *c;
  }

  const ConstTensor* OptionalConst(const Node& node, std::size_t k, const char* what) {
    if (node.Input(k).empty()) return nullptr;
    return &Const(node, k, what);
  }

  // The runtime dims the ONNX shape of `value` gives, batch axis removed.
  static RuntimeDims Expected(const OnnxDims& dims, int batch) {
    RuntimeDims out;
    if (!ToRuntimeDims(dims, batch, &out)) Fail("dimension out of range in " + DimsText(dims));
    return out;
  }

  // The input as an image tensor [1, C, H, W] (or [1, C, L] with rank 3).
  const ValueRef& Image(const Node& node, std::size_t k, std::size_t rank) {
    const ValueRef& r = Tensor(node, k);
    if (r.onnx.size() != rank) {
      Fail("input '" + node.Input(k) + "' has dims " + DimsText(r.onnx) + ", the runtime layer needs rank " +
           std::to_string(rank));
    }
    if (r.batch != 0) Fail("input '" + node.Input(k) + "' does not have its batch axis first");
    if (r.actual != Expected(r.onnx, r.batch)) {
      Fail("input '" + node.Input(k) + "' is held as " + DimsText(r.actual) + ", not as its ONNX shape " +
           DimsText(r.onnx));
    }
    return r;
  }

  // Binds an ONNX value to the output of `layer`.
  void Bind(const std::string& value, const std::string& layer, const RuntimeDims& actual, int batch) {
    ValueRef r;
    r.layer = layer;
    r.actual = actual;
    r.onnx = Info(value).dims;
    r.batch = batch;
    refs_[value] = r;
  }

  // Output `value` of `node` names the same runtime tensor as `source`.
  void Alias(const std::string& value, const ValueRef& source, int batch) {
    ValueRef r = source;
    r.onnx = Info(value).dims;
    r.batch = batch;
    refs_[value] = r;
  }

  // Adds a layer computing `node` from `inputs` (layer ids) into its first output.
  void Emit(const Node& node, LayerInfoPtr record, const std::vector<std::string>& inputs, int batch) {
    const std::string& out = node.Output(0);
    const RuntimeDims dims = Expected(Info(out).dims, batch);
    EmitWithDims(node, std::move(record), inputs, dims, batch);
  }

  void EmitWithDims(const Node& node, LayerInfoPtr record, const std::vector<std::string>& inputs,
                    const RuntimeDims& dims, int batch) {
    record->id = node.name;
    record->input_ids = inputs;
    MappedLayer layer;
    layer.record = record;
    layer.dims = dims;
    layer.node = node.name;
    layer.op = node.op;
    model_->layers.push_back(layer);
    Bind(node.Output(0), node.name, dims, batch);
  }

  void Warn(const Node& node, const std::string& message) {
    model_->warnings.push_back(node.name + " (" + node.op + "): " + message);
  }

  // Fails when any output past the first is read.
  void OnlyFirstOutput(const Node& node) {
    for (std::size_t k = 1; k < node.outputs.size(); ++k) {
      const std::string& out = node.outputs[k];
      if (!out.empty() && (!graph_.Consumers(out).empty() || graph_.IsOutput(out))) {
        Fail("output '" + out + "' is read, but the runtime layer computes only the first output");
      }
    }
  }

  // ---------------------------------------------------------------- dispatch

  void MapInput(const std::string& name) {
    auto record = std::make_shared<runtime::InputInfo>();
    record->id = name;
    const ValueInfo* v = graph_.Value(name);
    auto it = graph_.input_batch_axis.find(name);
    const int batch = it == graph_.input_batch_axis.end() ? 0 : it->second;
    RuntimeDims dims;
    if (v) ToRuntimeDims(v->dims, batch, &dims);
    MappedLayer layer;
    layer.record = record;
    layer.dims = dims;
    layer.op = "Input";
    model_->layers.push_back(layer);
    ValueRef r;
    r.layer = name;
    r.actual = dims;
    r.onnx = v ? v->dims : OnnxDims();
    r.batch = batch;
    refs_[name] = r;
  }

  void MapNode(std::size_t index, const Node& node) {
    const std::string& op = node.op;
    for (const std::string& out : node.outputs) {
      if (!out.empty() && (graph_.Consumers(out).size() || graph_.IsOutput(out))) Info(out);
    }
    if (op == "Conv") return MapConv(node);
    if (op == "ConvTranspose") return MapConvTranspose(node);
    if (op == "Gemm") return MapGemm(node);
    if (op == "MatMul") return MapMatMul(index, node);
    if (op == "BatchNormalization") return MapBatchNorm(node);
    if (op == "InstanceNormalization") return MapInstanceNorm(node);
    if (op == "Relu" || op == "Sigmoid" || op == "Tanh" || op == "HardSwish" || op == "LeakyRelu" ||
        op == "HardSigmoid" || op == "PRelu" || op == "Clip" || op == "Elu") {
      return MapActivation(node);
    }
    if (op == "Softmax") return MapSoftmax(node);
    if (op == "Add" || op == "Sub" || op == "Mul" || op == "Div") return MapArithmetic(node);
    if (op == "MaxPool" || op == "AveragePool") return MapPool(node);
    if (op == "GlobalAveragePool" || op == "GlobalMaxPool") return MapGlobalPool(node);
    if (op == "Concat") return MapConcat(node);
    if (op == "Reshape" || op == "Flatten") return MapReshape(node);
    if (op == "Squeeze" || op == "Unsqueeze") return MapSqueeze(node);
    if (op == "Transpose") return MapTranspose(node);
    if (op == "Slice") return MapSlice(node);
    if (op == "Gather") return MapGather(node);
    if (op == "Pad") return MapPad(node);
    if (op == "Resize" || op == "Upsample") return MapResize(node);
    if (op == "DepthToSpace") return MapDepthToSpace(node);
    if (op == "SpaceToDepth") return MapSpaceToDepth(node);
    if (op == "GridSample") return MapGridSample(node);
    if (op == "LSTM" || op == "GRU" || op == "RNN") return MapRecurrent(node);
    if (op == "Identity" || op == "Dropout" || op == "Cast") {
      OnlyFirstOutput(node);
      const ValueRef& r = Tensor(node, 0);
      return Alias(node.Output(0), r, r.batch);
    }
    if (IsFoldingOperator(op)) {
      Fail("computes on a runtime tensor; " + op + " is only supported on constants (shape computations)");
    }
    Fail("operator " + op + " is not supported");
  }

  // ---------------------------------------------------------------- convolution

  struct Window {
    std::vector<std::int64_t> kernel, strides, dilations, pads;  // pads: begins then ends
  };

  // Kernel, strides, dilations and pads of a convolution or pooling node over
  // `spatial` (the input's spatial dims), auto_pad resolved.
  Window ReadWindow(const Node& node, const std::vector<std::int64_t>& spatial, std::vector<std::int64_t> kernel,
                    bool with_dilation) {
    const std::size_t n = spatial.size();
    Window w;
    if (node.Has("kernel_shape")) kernel = node.Ints("kernel_shape");
    if (kernel.size() != n) Fail("kernel_shape does not match the input's spatial rank");
    w.kernel = kernel;
    w.strides = node.Has("strides") ? node.Ints("strides") : std::vector<std::int64_t>(n, 1);
    w.dilations = with_dilation && node.Has("dilations") ? node.Ints("dilations") : std::vector<std::int64_t>(n, 1);
    w.pads = node.Has("pads") ? node.Ints("pads") : std::vector<std::int64_t>(2 * n, 0);
    if (w.strides.size() != n || w.dilations.size() != n || w.pads.size() != 2 * n) {
      Fail("strides, dilations or pads do not match the input's spatial rank");
    }
    for (std::size_t k = 0; k < n; ++k) {
      if (w.kernel[k] <= 0 || w.strides[k] <= 0 || w.dilations[k] <= 0) Fail("non-positive kernel, stride or dilation");
      if (w.pads[k] < 0 || w.pads[k + n] < 0) Fail("negative padding");
    }
    const std::string auto_pad = node.String("auto_pad", "NOTSET");
    if (auto_pad == "SAME_UPPER" || auto_pad == "SAME_LOWER") {
      for (std::size_t k = 0; k < n; ++k) {
        const std::int64_t out = (spatial[k] + w.strides[k] - 1) / w.strides[k];
        const std::int64_t total =
            std::max<std::int64_t>(0, (out - 1) * w.strides[k] + (w.kernel[k] - 1) * w.dilations[k] + 1 - spatial[k]);
        const std::int64_t small = total / 2;
        w.pads[k] = auto_pad == "SAME_UPPER" ? small : total - small;
        w.pads[k + n] = total - w.pads[k];
      }
    } else if (auto_pad == "VALID") {
      std::fill(w.pads.begin(), w.pads.end(), 0);
    } else if (auto_pad != "NOTSET") {
      Fail("auto_pad " + auto_pad + " is not supported");
    }
    return w;
  }

  void MapConv(const Node& node) {
    const ValueRef& x0 = Tensor(node, 0);
    const bool one_d = x0.onnx.size() == 3;
    const ValueRef& x = Image(node, 0, one_d ? 3 : 4);
    const ConstTensor& w = Const(node, 1, "the weight");
    const ConstTensor* b = OptionalConst(node, 2, "the bias");
    const std::int64_t groups = node.Int("group", 1);
    const std::size_t spatial_rank = one_d ? 1 : 2;
    if (!w.is_float() || w.dims.size() != spatial_rank + 2) Fail("the weight is not a float tensor of rank " +
                                                                 std::to_string(spatial_rank + 2));
    const std::int64_t m = w.dims[0], c = x.onnx[1];
    if (groups <= 0 || m % groups != 0 || c % groups != 0 || w.dims[1] * groups != c) {
      Fail("the weight " + DimsText(w.dims) + " does not fit " + std::to_string(c) + " input channels in " +
           std::to_string(groups) + " groups");
    }
    if (b && (!b->is_float() || b->f.size() != static_cast<std::size_t>(m))) Fail("the bias does not hold one value per output channel");
    const std::vector<std::int64_t> spatial(x.onnx.begin() + 2, x.onnx.end());
    const Window win = ReadWindow(node, spatial, std::vector<std::int64_t>(w.dims.begin() + 2, w.dims.end()), true);
    for (std::size_t k = 0; k < spatial_rank; ++k) {
      if (win.kernel[k] != w.dims[2 + k]) Fail("kernel_shape disagrees with the weight");
    }
    if (one_d) {
      auto r = std::make_shared<runtime::Conv1dInfo>();
      r->in_channels = U16(c, "input channels");
      r->out_channels = U16(m, "output channels");
      r->kernel_size = U16(win.kernel[0], "kernel size");
      r->padding_f = U16(win.pads[0], "padding");
      r->padding_b = U16(win.pads[1], "padding");
      r->stride = U16(win.strides[0], "stride");
      r->dilation = U16(win.dilations[0], "dilation");
      r->groups = U16(groups, "groups");
      r->if_bias = b != nullptr;
      r->weight = runtime::EncodeWeights(w.f);
      if (b) r->bias = runtime::EncodeWeights(b->f);
      return Emit(node, r, {x.layer}, 0);
    }
    auto r = std::make_shared<runtime::Conv2dInfo>();
    r->in_channels = U16(c, "input channels");
    r->out_channels = U16(m, "output channels");
    r->kernel_y = U16(win.kernel[0], "kernel height");
    r->kernel_x = U16(win.kernel[1], "kernel width");
    r->stride_y = U16(win.strides[0], "stride");
    r->stride_x = U16(win.strides[1], "stride");
    r->dilation_y = U16(win.dilations[0], "dilation");
    r->dilation_x = U16(win.dilations[1], "dilation");
    r->padding_t = U16(win.pads[0], "padding");
    r->padding_l = U16(win.pads[1], "padding");
    r->padding_b = U16(win.pads[2], "padding");
    r->padding_r = U16(win.pads[3], "padding");
    r->groups = U16(groups, "groups");
    r->if_bias = b != nullptr;
    r->weight = runtime::EncodeWeights(w.f);  // [M, C/g, kH, kW] is GNCHW memory order
    if (b) r->bias = runtime::EncodeWeights(b->f);
    Emit(node, r, {x.layer}, 0);
  }

  void MapConvTranspose(const Node& node) {
    const ValueRef& x = Image(node, 0, 4);
    const ConstTensor& w = Const(node, 1, "the weight");
    const ConstTensor* b = OptionalConst(node, 2, "the bias");
    const std::int64_t groups = node.Int("group", 1);
    if (!w.is_float() || w.dims.size() != 4) Fail("the weight is not a float tensor of rank 4");
    const std::int64_t c = x.onnx[1];
    if (groups <= 0 || w.dims[0] != c || c % groups != 0) Fail("the weight " + DimsText(w.dims) + " does not fit the input");
    const std::int64_t m = w.dims[1] * groups;
    if (b && (!b->is_float() || b->f.size() != static_cast<std::size_t>(m))) Fail("the bias does not hold one value per output channel");
    const std::vector<std::int64_t> spatial(x.onnx.begin() + 2, x.onnx.end());
    std::vector<std::int64_t> kernel = node.Has("kernel_shape") ? node.Ints("kernel_shape")
                                                                : std::vector<std::int64_t>{w.dims[2], w.dims[3]};
    if (kernel.size() != 2 || kernel[0] != w.dims[2] || kernel[1] != w.dims[3]) Fail("kernel_shape disagrees with the weight");
    std::vector<std::int64_t> strides = node.Has("strides") ? node.Ints("strides") : std::vector<std::int64_t>{1, 1};
    std::vector<std::int64_t> dil = node.Has("dilations") ? node.Ints("dilations") : std::vector<std::int64_t>{1, 1};
    std::vector<std::int64_t> pads = node.Has("pads") ? node.Ints("pads") : std::vector<std::int64_t>{0, 0, 0, 0};
    std::vector<std::int64_t> out_pad = node.Has("output_padding") ? node.Ints("output_padding")
                                                                   : std::vector<std::int64_t>{0, 0};
    if (strides.size() != 2 || dil.size() != 2 || pads.size() != 4 || out_pad.size() != 2) Fail("attribute ranks do not match");
    const OnnxDims& out_dims = Info(node.Output(0)).dims;
    if (out_dims.size() != 4) Fail("the output is not of rank 4");
    // Whatever the attributes say (pads, auto_pad, output_shape), the output
    // size is known: the end padding makes the size come out right.
    const std::string auto_pad = node.String("auto_pad", "NOTSET");
    std::int64_t pad_begin[2], pad_end[2];
    for (int k = 0; k < 2; ++k) {
      const std::int64_t full = (spatial[k] - 1) * strides[k] + dil[k] * (kernel[k] - 1) + 1;
      const std::int64_t total = full - out_dims[2 + k];
      if (node.Has("output_shape") || auto_pad == "SAME_UPPER" || auto_pad == "SAME_LOWER") {
        const std::int64_t half = total / 2;
        pad_begin[k] = auto_pad == "SAME_UPPER" ? half : total - half;
      } else if (auto_pad == "VALID") {
        pad_begin[k] = 0;
      } else {
        pad_begin[k] = pads[k];
      }
      pad_end[k] = total - pad_begin[k];
    }
    auto r = std::make_shared<runtime::ConvTranspose2dInfo>();
    r->in_channels = U16(c, "input channels");
    r->out_channels = U16(m, "output channels");
    r->kernel_y = U16(kernel[0], "kernel height");
    r->kernel_x = U16(kernel[1], "kernel width");
    r->stride_y = U16(strides[0], "stride");
    r->stride_x = U16(strides[1], "stride");
    r->dilation_y = U16(dil[0], "dilation");
    r->dilation_x = U16(dil[1], "dilation");
    r->padding_t = I16(pad_begin[0], "padding");
    r->padding_l = I16(pad_begin[1], "padding");
    r->padding_b = I16(pad_end[0], "padding");
    r->padding_r = I16(pad_end[1], "padding");
    r->groups = U16(groups, "groups");
    r->if_bias = b != nullptr;
    r->weight = runtime::EncodeWeights(w.f);  // [C_in, M/g, kH, kW], as PyTorch stores it
    if (b) r->bias = runtime::EncodeWeights(b->f);
    Emit(node, r, {x.layer}, 0);
  }

  // ---------------------------------------------------------------- matrix products

  // A fully connected layer from a [.., K] tensor and the weight [N, K].
  void EmitFullConnection(const Node& node, const ValueRef& x, std::vector<float> weight, std::int64_t k,
                          std::int64_t n, const std::vector<float>* bias, const std::string& output) {
    auto r = std::make_shared<runtime::FullConnectionInfo>();
    r->in_features = U16(k, "input features");
    r->out_features = U16(n, "output features");
    r->if_bias = bias != nullptr;
    r->weight = runtime::EncodeWeights(weight);
    if (bias) r->bias = runtime::EncodeWeights(*bias);
    const ValueInfo& info = Info(output);
    // The output keeps the rows of the input; with one row it is a vector.
    RuntimeDims dims;
    ToRuntimeDims(info.dims, x.batch, &dims);
    r->id = node.name;
    r->input_ids = {x.layer};
    MappedLayer layer;
    layer.record = r;
    layer.dims = dims;
    std::uint64_t rows = 1;
    for (std::size_t i = 0; i + 1 < x.actual.size(); ++i) rows *= x.actual[i];
    std::uint64_t count = 1;
    for (auto d : x.actual) count *= d;
    if (count == static_cast<std::uint64_t>(k)) layer.dims = {static_cast<std::uint32_t>(n)};
    else if (x.actual.empty() || x.actual.back() != k) Fail("the input " + DimsText(x.actual) + " does not end in " + std::to_string(k) + " features");
    else layer.dims = {static_cast<std::uint32_t>(rows), static_cast<std::uint32_t>(n)};
    layer.node = node.name;
    layer.op = node.op;
    model_->layers.push_back(layer);
    ValueRef ref;
    ref.layer = node.name;
    ref.actual = layer.dims;
    ref.onnx = info.dims;
    ref.batch = x.batch;
    refs_[output] = ref;
  }

  void MapGemm(const Node& node) {
    const ValueRef& a = Tensor(node, 0);
    if (node.Int("transA", 0) != 0) Fail("transA = 1 is not supported");
    const ConstTensor* bc = graph_.Constant(node.Input(1));
    if (!bc) return MapGemmRecord(node);
    const ConstTensor& b = *bc;
    const bool trans_b = node.Int("transB", 0) != 0;
    const float alpha = node.Float("alpha", 1.0f), beta = node.Float("beta", 1.0f);
    if (!b.is_float() || b.dims.size() != 2) Fail("B is not a 2-D float tensor");
    if (a.onnx.size() != 2 || a.batch != 0 || a.onnx[0] != 1) Fail("A must be [1, K] with the batch first");
    const std::int64_t k = trans_b ? b.dims[1] : b.dims[0], n = trans_b ? b.dims[0] : b.dims[1];
    std::vector<float> weight(static_cast<std::size_t>(n * k));
    for (std::int64_t o = 0; o < n; ++o) {
      for (std::int64_t i = 0; i < k; ++i) {
        weight[o * k + i] = alpha * (trans_b ? b.f[o * k + i] : b.f[i * n + o]);
      }
    }
    std::vector<float> bias;
    const ConstTensor* c = OptionalConst(node, 2, "C");
    if (c) {
      if (!c->is_float() || (c->size() != 1 && c->size() != static_cast<std::size_t>(n))) Fail("C is not a scalar or one value per output");
      bias.resize(static_cast<std::size_t>(n));
      for (std::int64_t o = 0; o < n; ++o) bias[o] = beta * c->f[c->size() == 1 ? 0 : o];
    }
    EmitFullConnection(node, a, std::move(weight), k, n, c ? &bias : nullptr, node.Output(0));
  }

  // Gemm or MatMul of two runtime tensors.
  void MapGemmRecord(const Node& node) {
    const ValueRef& a = Tensor(node, 0);
    const ValueRef& b = Tensor(node, 1);
    if (!node.Input(2).empty()) Fail("a C operand with two non-constant operands needs a constant tensor, which the runtime lacks");
    if (a.actual.size() != 2 || b.actual.size() != 2) Fail("the runtime Gemm multiplies 2-D tensors");
    auto r = std::make_shared<runtime::GemmInfo>();
    r->trans_a = node.Int("transA", 0) != 0;
    r->trans_b = node.Int("transB", 0) != 0;
    r->alpha = node.Float("alpha", 1.0f);
    r->beta = node.Float("beta", 1.0f);
    Emit(node, r, {a.layer, b.layer}, a.batch);
  }

  void MapMatMul(std::size_t index, const Node& node) {
    const ValueRef& a = Tensor(node, 0);
    const ConstTensor* bc = graph_.Constant(node.Input(1));
    if (!bc) {
      if (a.onnx.size() != 2) Fail("a product of two runtime tensors must be 2-D");
      return MapGemmRecord(node);
    }
    const ConstTensor& b = *bc;
    if (!b.is_float() || b.dims.size() != 2) Fail("B is not a 2-D float tensor");
    if (a.batch > 0 && static_cast<std::size_t>(a.batch) + 1 >= a.onnx.size()) Fail("the product runs along the batch axis");
    const std::int64_t k = b.dims[0], n = b.dims[1];
    std::vector<float> weight(static_cast<std::size_t>(n * k));
    for (std::int64_t o = 0; o < n; ++o) {
      for (std::int64_t i = 0; i < k; ++i) weight[o * k + i] = b.f[i * n + o];
    }
    // A following Add of a per-column constant becomes the bias.
    std::string output = node.Output(0);
    std::vector<float> bias;
    const auto readers = graph_.Consumers(output);
    if (readers.size() == 1 && !graph_.IsOutput(output)) {
      const Node& add = graph_.nodes[readers[0]];
      const std::string& other = add.Input(0) == output ? add.Input(1) : add.Input(0);
      const ConstTensor* c = add.op == "Add" && add.inputs.size() == 2 ? graph_.Constant(other) : nullptr;
      const ValueInfo* before = graph_.Value(output);
      const ValueInfo* after = graph_.Value(add.Output(0));
      if (c && c->is_float() && c->dims.size() == 1 && c->dims[0] == n && before && after && before->known &&
          after->known && before->dims == after->dims) {
        bias = c->f;
        absorbed_.insert(readers[0]);
        output = add.Output(0);
      }
    }
    (void)index;
    EmitFullConnection(node, a, std::move(weight), k, n, bias.empty() ? nullptr : &bias, output);
  }

  // ---------------------------------------------------------------- normalisation

  std::vector<float> PerChannel(const Node& node, std::size_t k, const char* what, std::int64_t channels) {
    const ConstTensor& c = Const(node, k, what);
    if (!c.is_float() || c.f.size() != static_cast<std::size_t>(channels)) {
      Fail(std::string(what) + " does not hold one value per channel");
    }
    return c.f;
  }

  void MapBatchNorm(const Node& node) {
    OnlyFirstOutput(node);
    const ValueRef& x = Tensor(node, 0);
    if (x.batch != 0 || x.onnx.size() < 2 || x.onnx.size() > 4) Fail("the input must be [1, C], [1, C, L] or [1, C, H, W]");
    const std::int64_t c = x.onnx[1];
    const float eps = node.Float("epsilon", 1e-5f);
    const float momentum = node.Float("momentum", 0.9f);
    auto fill = [&](auto& r) {
      r->num_features = U16(c, "channels");
      r->eps = eps;
      r->momentum = 1.0f - momentum;  // PyTorch's momentum weighs the new statistics
      r->if_affine = true;
      r->if_track_running_stats = true;
      r->scale = runtime::EncodeWeights(PerChannel(node, 1, "the scale", c));
      r->shift = runtime::EncodeWeights(PerChannel(node, 2, "the bias", c));
      r->mean = runtime::EncodeWeights(PerChannel(node, 3, "the mean", c));
      r->variance = runtime::EncodeWeights(PerChannel(node, 4, "the variance", c));
    };
    if (x.onnx.size() == 4) {
      auto r = std::make_shared<runtime::BatchNorm2dInfo>();
      fill(r);
      return Emit(node, r, {x.layer}, 0);
    }
    auto r = std::make_shared<runtime::BatchNorm1dInfo>();
    fill(r);
    Emit(node, r, {x.layer}, 0);
  }

  void MapInstanceNorm(const Node& node) {
    const ValueRef& x = Image(node, 0, 4);
    const std::int64_t c = x.onnx[1];
    auto r = std::make_shared<runtime::InstanceNorm2dInfo>();
    r->num_features = U16(c, "channels");
    r->eps = node.Float("epsilon", 1e-5f);
    r->if_affine = true;
    r->if_track_running_stats = false;
    r->scale = runtime::EncodeWeights(PerChannel(node, 1, "the scale", c));
    r->shift = runtime::EncodeWeights(PerChannel(node, 2, "the bias", c));
    Emit(node, r, {x.layer}, 0);
  }

  // ---------------------------------------------------------------- activations

  void EmitActivation(const Node& node, const ValueRef& x, std::uint16_t code, float alpha = 1.0f, float beta = 0.0f,
                      const std::vector<float>& weight = {}) {
    auto r = std::make_shared<runtime::ActivationInfo>();
    r->activation_type = code;
    r->activation_alpha = NearestHalf(alpha);
    r->activation_beta = NearestHalf(beta);
    if (!HalfExact(alpha) || !HalfExact(beta)) {
      Warn(node, "the activation parameters " + FloatText(alpha) + ", " + FloatText(beta) +
                     " are stored as half floats " + FloatText(static_cast<float>(r->activation_alpha)) + ", " +
                     FloatText(static_cast<float>(r->activation_beta)));
    }
    if (!weight.empty()) {
      r->weight = runtime::EncodeWeights(weight);
      r->num_parameters = 1;
    }
    Emit(node, r, {x.layer}, x.batch);
  }

  // Clip bounds: attributes before opset 11, optional constant inputs after.
  void ClipBounds(const Node& node, float* lo, float* hi) {
    *lo = -std::numeric_limits<float>::infinity();
    *hi = std::numeric_limits<float>::infinity();
    if (graph_.opset < 11) {
      *lo = node.Float("min", *lo);
      *hi = node.Float("max", *hi);
      return;
    }
    const ConstTensor* a = OptionalConst(node, 1, "min");
    const ConstTensor* b = OptionalConst(node, 2, "max");
    if ((a && a->size() != 1) || (b && b->size() != 1)) Fail("min and max must be scalars");
    if (a) *lo = static_cast<float>(a->At(0));
    if (b) *hi = static_cast<float>(b->At(0));
  }

  void MapActivation(const Node& node) {
    const ValueRef& x = Tensor(node, 0);
    const std::string& op = node.op;
    if (op == "Relu") return EmitActivation(node, x, runtime::ACTIVATION_RELU);
    if (op == "Sigmoid") return EmitActivation(node, x, runtime::ACTIVATION_SIGMOID);
    if (op == "Tanh") return EmitActivation(node, x, runtime::ACTIVATION_TANH);
    if (op == "HardSwish") return EmitActivation(node, x, runtime::ACTIVATION_HSWISH);
    if (op == "LeakyRelu") return EmitActivation(node, x, runtime::ACTIVATION_LEAKY, node.Float("alpha", 0.01f));
    if (op == "HardSigmoid") {
      const float alpha = node.Float("alpha", 0.2f), beta = node.Float("beta", 0.5f);
      if (std::fabs(alpha - 1.0f / 6.0f) > 1e-6f || beta != 0.5f) {
        Fail("HardSigmoid with alpha " + FloatText(alpha) + " and beta " + FloatText(beta) +
             ": the runtime's hard sigmoid is relu6(x + 3) / 6 (alpha 1/6, beta 0.5)");
      }
      return EmitActivation(node, x, runtime::ACTIVATION_HSIGMOID);
    }
    if (op == "PRelu") {
      const ConstTensor& slope = Const(node, 1, "the slope");
      if (!slope.is_float() || slope.f.empty()) Fail("the slope is not a float tensor");
      for (float s : slope.f) {
        if (s != slope.f[0]) {
          Fail("the slope differs between channels; the runtime's PReLU applies one slope to every channel");
        }
      }
      return EmitActivation(node, x, runtime::ACTIVATION_PRELU, 1.0f, 0.0f, {slope.f[0]});
    }
    if (op == "Clip") {
      float lo, hi;
      ClipBounds(node, &lo, &hi);
      if (lo == 0.0f && hi == 6.0f) return EmitActivation(node, x, runtime::ACTIVATION_RELU6);
      if (lo == 0.0f && std::isinf(hi) && hi > 0) return EmitActivation(node, x, runtime::ACTIVATION_RELU);
      auto r = std::make_shared<runtime::ClipInfo>();
      r->minimum_value = NearestHalf(lo);
      r->maximum_value = NearestHalf(hi);
      if (!HalfExact(lo) || !HalfExact(hi)) {
        Warn(node, "the bounds " + FloatText(lo) + ", " + FloatText(hi) + " are stored as half floats " +
                       FloatText(static_cast<float>(r->minimum_value)) + ", " +
                       FloatText(static_cast<float>(r->maximum_value)));
      }
      return Emit(node, r, {x.layer}, x.batch);
    }
    Fail("the runtime has no " + op + " activation (no activation code or kernel computes it)");
  }

  // Runtime index of ONNX axis `axis` of a value of `rank` dims with batch axis `batch`.
  static std::int64_t RuntimeAxis(std::int64_t axis, std::size_t rank, int batch) {
    const std::int64_t r = static_cast<std::int64_t>(rank);
    if (axis < -r || axis >= r) Fail("axis " + std::to_string(axis) + " is out of range");
    if (axis < 0) axis += r;
    if (axis == batch) Fail("the operation runs along the batch axis");
    return batch >= 0 && axis > batch ? axis - 1 : axis;
  }

  // The input with its runtime dims equal to its ONNX dims without batch.
  const ValueRef& Consistent(const Node& node, std::size_t k) {
    const ValueRef& x = Tensor(node, k);
    if (x.actual != Expected(x.onnx, x.batch)) {
      Fail("input '" + node.Input(k) + "' is held as " + DimsText(x.actual) + ", not as its ONNX shape " +
           DimsText(x.onnx));
    }
    return x;
  }

  void MapSoftmax(const Node& node) {
    const ValueRef& x = Consistent(node, 0);
    const std::int64_t rank = static_cast<std::int64_t>(x.onnx.size());
    std::int64_t axis = node.Int("axis", graph_.opset >= 13 ? -1 : 1);
    if (axis < 0) axis += rank;
    if (graph_.opset < 13) {
      // Before opset 13 Softmax flattens the dims from `axis` on: one axis only when the rest are 1.
      for (std::int64_t k = axis + 1; k < rank; ++k) {
        if (x.onnx[k] != 1) Fail("softmax over the flattened dims " + std::to_string(axis) + ".. is not supported");
      }
    }
    auto r = std::make_shared<runtime::SoftmaxInfo>();
    r->dim = U16(RuntimeAxis(axis, x.onnx.size(), x.batch), "axis");
    Emit(node, r, {x.layer}, x.batch);
  }

  // ---------------------------------------------------------------- element-wise

  void MapArithmetic(const Node& node) {
    const std::string& op = node.op;
    const std::uint16_t code = op == "Add" ? runtime::ELEMENTWISE_ADD
                               : op == "Sub" ? runtime::ELEMENTWISE_SUB
                               : op == "Mul" ? runtime::ELEMENTWISE_MUL
                                             : runtime::ELEMENTWISE_DIV;
    const ConstTensor* c0 = graph_.Constant(node.Input(0));
    const ConstTensor* c1 = graph_.Constant(node.Input(1));
    if (c0 && c1) Fail("both operands are constant");
    if (c0 || c1) return MapConstantArithmetic(node, c0 ? 1 : 0, c0 ? *c0 : *c1);
    const ValueRef& a = Tensor(node, 0);
    const ValueRef& b = Tensor(node, 1);
    for (const ValueRef* r : {&a, &b}) {
      if (r->batch > 0) Fail("an operand has its batch axis inside; the runtime aligns operands from the end");
      if (r->actual != Expected(r->onnx, r->batch)) Fail("an operand is held in a different shape than ONNX gives it");
    }
    const int batch = a.batch == 0 || b.batch == 0 ? 0 : -1;
    if (a.actual == b.actual) {
      auto r = std::make_shared<runtime::ElementWiseOperatorInfo>();
      r->op_type = code;
      return Emit(node, r, {a.layer, b.layer}, batch);
    }
    auto r = std::make_shared<runtime::BroadcastOperatorInfo>();
    r->op_type = code;
    Emit(node, r, {a.layer, b.layer}, batch);
  }

  // x op c (x_side 0) or c op x (x_side 1), c constant. The runtime has no
  // constant tensors: a uniform c becomes a linear activation, a per-channel
  // c on an image a batch-norm record (mean 0, variance 1, eps 0).
  void MapConstantArithmetic(const Node& node, int x_side, const ConstTensor& c) {
    const ValueRef& x = Tensor(node, x_side);
    const std::string& op = node.op;
    if (!c.is_float() || c.f.empty()) Fail("the constant operand is not a float tensor");
    const ValueInfo& out = Info(node.Output(0));
    if (out.dims != x.onnx) Fail("the constant operand " + DimsText(c.dims) + " widens the result; the runtime has no constant tensors");
    bool uniform = true;
    for (float v : c.f) uniform = uniform && v == c.f[0];
    // scale * x + shift, per element of c.
    std::vector<float> scale(c.f.size(), 1.0f), shift(c.f.size(), 0.0f);
    for (std::size_t k = 0; k < c.f.size(); ++k) {
      const float v = c.f[k];
      if (op == "Add") shift[k] = v;
      else if (op == "Mul") scale[k] = v;
      else if (op == "Sub" && x_side == 0) shift[k] = -v;
      else if (op == "Sub") { scale[k] = -1.0f; shift[k] = v; }
      else if (op == "Div" && x_side == 0) scale[k] = 1.0f / v;
      else Fail("dividing a constant by a runtime tensor is not supported");
    }
    if (uniform && HalfExact(scale[0]) && HalfExact(shift[0])) {
      return EmitActivation(node, x, runtime::ACTIVATION_LINEAR, scale[0], shift[0]);
    }
    // Per channel (or uniform, spread over the channels) on an image.
    if (x.onnx.size() == 4 && x.batch == 0) {
      const std::int64_t channels = x.onnx[1];
      std::vector<float> s(static_cast<std::size_t>(channels)), t(static_cast<std::size_t>(channels));
      bool per_channel = uniform;
      if (!uniform && c.dims.size() <= 4) {
        const std::size_t shift_rank = 4 - c.dims.size();
        per_channel = true;
        for (std::size_t k = 0; k < c.dims.size(); ++k) {
          if (c.dims[k] != 1 && (k + shift_rank != 1 || c.dims[k] != channels)) per_channel = false;
        }
      }
      if (per_channel) {
        for (std::int64_t m = 0; m < channels; ++m) {
          const std::size_t k = uniform ? 0 : static_cast<std::size_t>(m);
          s[m] = scale[k];
          t[m] = shift[k];
        }
        auto r = std::make_shared<runtime::BatchNorm2dInfo>();
        r->num_features = U16(channels, "channels");
        r->eps = 0.0f;
        r->if_affine = true;
        r->scale = runtime::EncodeWeights(s);
        r->shift = runtime::EncodeWeights(t);
        r->mean = runtime::EncodeWeights(std::vector<float>(s.size(), 0.0f));
        r->variance = runtime::EncodeWeights(std::vector<float>(s.size(), 1.0f));
        return Emit(node, r, {x.layer}, 0);
      }
    }
    if (uniform) {
      return EmitActivation(node, x, runtime::ACTIVATION_LINEAR, scale[0], shift[0]);
    }
    Fail("the constant operand " + DimsText(c.dims) + " is neither uniform nor per channel; the runtime has no "
         "constant tensors");
  }

  // ---------------------------------------------------------------- pooling

  // Window, strides and paddings of a pooling record.
  template <typename Pool>
  static void FillPoolWindow(Pool& r, const Window& w) {
    r.kernel_y = U16(w.kernel[0], "kernel height");
    r.kernel_x = U16(w.kernel[1], "kernel width");
    r.stride_y = U16(w.strides[0], "stride");
    r.stride_x = U16(w.strides[1], "stride");
    r.padding_t = I16(w.pads[0], "padding");
    r.padding_l = I16(w.pads[1], "padding");
    r.padding_b = I16(w.pads[2], "padding");
    r.padding_r = I16(w.pads[3], "padding");
  }

  void MapPool(const Node& node) {
    OnlyFirstOutput(node);
    const ValueRef& x = Image(node, 0, 4);
    const bool is_max = node.op == "MaxPool";
    if (is_max && node.Int("storage_order", 0) != 0) Fail("storage_order 1 is not supported");
    const std::vector<std::int64_t> spatial(x.onnx.begin() + 2, x.onnx.end());
    Window w = ReadWindow(node, spatial, {}, is_max);
    const OnnxDims& out = Info(node.Output(0)).dims;
    if (out.size() != 4) Fail("the output is not of rank 4");
    const bool ceil_mode = node.Int("ceil_mode", 0) != 0;
    if (is_max) {
      auto r = std::make_shared<runtime::MaxPool2dInfo>();
      FillPoolWindow(*r, w);
      r->dilation_y = U16(w.dilations[0], "dilation");
      r->dilation_x = U16(w.dilations[1], "dilation");
      r->ceil_mode = ceil_mode;
      return Emit(node, r, {x.layer}, 0);
    }
    const bool include_pad = node.Int("count_include_pad", 0) != 0;
    // The runtime's average pooling always rounds the output size down; a
    // ceil-mode window past the edge is expressed as extra end padding, which
    // gives the same divisor when padding does not count.
    for (int k = 0; k < 2; ++k) {
      const std::int64_t reach = (out[2 + k] - 1) * w.strides[k] + w.kernel[k];
      const std::int64_t have = spatial[k] + w.pads[k] + w.pads[k + 2];
      if (reach > have) {
        if (!ceil_mode) Fail("the window runs past the padded input");
        if (include_pad) {
          Fail("ceil_mode with count_include_pad = 1 and a last window past the padding: the runtime's divisor "
               "would count the overhang");
        }
        w.pads[k + 2] += reach - have;
      }
    }
    auto r = std::make_shared<runtime::AvgPool2dInfo>();
    FillPoolWindow(*r, w);
    r->ceil_mode = false;
    r->count_include_pad = include_pad;
    Emit(node, r, {x.layer}, 0);
  }

  void MapGlobalPool(const Node& node) {
    const ValueRef& x = Image(node, 0, 4);
    if (node.op == "GlobalMaxPool") {
      auto r = std::make_shared<runtime::MaxPool2dInfo>();
      r->kernel_y = U16(x.onnx[2], "kernel height");
      r->kernel_x = U16(x.onnx[3], "kernel width");
      return Emit(node, r, {x.layer}, 0);
    }
    auto r = std::make_shared<runtime::AvgPool2dInfo>();
    r->kernel_y = U16(x.onnx[2], "kernel height");
    r->kernel_x = U16(x.onnx[3], "kernel width");
    Emit(node, r, {x.layer}, 0);
  }

  // ---------------------------------------------------------------- shape operations

  void MapConcat(const Node& node) {
    std::vector<std::string> inputs;
    int batch = -2;
    for (std::size_t k = 0; k < node.inputs.size(); ++k) {
      const ValueRef& x = Consistent(node, k);
      if (batch != -2 && x.batch != batch) Fail("the inputs hold their batch axes at different places");
      batch = x.batch;
      inputs.push_back(x.layer);
    }
    const ValueRef& first = Tensor(node, 0);
    auto r = std::make_shared<runtime::ConcatenateInfo>();
    r->dim = U16(RuntimeAxis(node.Int("axis", 0), first.onnx.size(), first.batch), "axis");
    Emit(node, r, inputs, first.batch);
  }

  // Where the batch axis of `in` ends up in a reshape to `out`: the first unit
  // axis whose preceding dims hold as many elements as those before the input's
  // batch axis; -1 (none) when no axis qualifies.
  static int ReshapedBatch(const OnnxDims& in, int batch, const OnnxDims& out) {
    if (batch < 0) return -1;
    std::int64_t before = 1;
    for (int k = 0; k < batch; ++k) before *= in[k];
    std::int64_t prefix = 1;
    for (std::size_t j = 0; j < out.size(); ++j) {
      if (prefix == before && out[j] == 1) return static_cast<int>(j);
      prefix *= out[j];
      if (prefix > before) break;
    }
    return -1;
  }

  static RuntimeDims WithoutUnitDims(const RuntimeDims& dims) {
    RuntimeDims out;
    for (std::uint32_t d : dims) {
      if (d != 1) out.push_back(d);
    }
    return out;
  }

  // Whether every reader of `value` is a Gemm or MatMul that becomes a fully
  // connected layer (which reads any tensor of its input-feature count).
  bool OnlyFullyConnectedReaders(const std::string& value) const {
    if (graph_.IsOutput(value)) return false;
    const auto readers = graph_.Consumers(value);
    if (readers.empty()) return false;
    for (std::size_t n : readers) {
      const Node& r = graph_.nodes[n];
      const ConstTensor* b = graph_.Constant(r.Input(1));
      if (r.Input(0) != value || !b || b->dims.size() != 2) return false;
      if (r.op == "Gemm" && r.Int("transA", 0) != 0) return false;
      if (r.op != "Gemm" && r.op != "MatMul") return false;
    }
    return true;
  }

  void EmitReshape(const Node& node, const ValueRef& x, const RuntimeDims& dims, int batch) {
    auto r = std::make_shared<runtime::TensorReshapeInfo>();
    // Dims beyond 16 bits are left to the kernel to infer (-1, at most one).
    bool inferred = false;
    for (std::uint32_t d : dims) {
      if (d <= 32767) {
        r->new_shape.push_back(static_cast<short>(d));
      } else if (!inferred) {
        r->new_shape.push_back(-1);
        inferred = true;
      } else {
        Fail("the new shape " + DimsText(dims) + " has two dims beyond the record's 16 bits");
      }
    }
    EmitWithDims(node, r, {x.layer}, dims, batch);
  }

  void MapReshape(const Node& node) {
    const ValueRef& x = Tensor(node, 0);
    const OnnxDims& out = Info(node.Output(0)).dims;
    const int batch = ReshapedBatch(x.onnx, x.batch, out);
    const RuntimeDims dims = Expected(out, batch);
    if (dims == x.actual) return Alias(node.Output(0), x, batch);
    // Dropping or adding unit dims of a graph output nobody reads changes no
    // value the caller sees.
    if (graph_.IsOutput(node.Output(0)) && graph_.Consumers(node.Output(0)).empty() &&
        WithoutUnitDims(dims) == WithoutUnitDims(x.actual)) {
      return Alias(node.Output(0), x, batch);
    }
    // A flatten before a classifier: the fully connected kernels read the map as it is.
    if (dims.size() == 1 && OnlyFullyConnectedReaders(node.Output(0))) {
      ValueRef r = x;
      r.onnx = out;
      r.batch = batch;
      refs_[node.Output(0)] = r;
      return;
    }
    EmitReshape(node, x, dims, batch);
  }

  void MapSqueeze(const Node& node) {
    const ValueRef& x = Tensor(node, 0);
    const OnnxDims& out = Info(node.Output(0)).dims;
    std::vector<std::int64_t> axes = node.Ints("axes");
    if (!node.Has("axes") && !node.Input(1).empty()) axes = Const(node, 1, "the axes").Ints();
    // Where the batch axis goes: squeezed away, or shifted by the axes before it.
    int batch = x.batch;
    if (batch >= 0) {
      const std::int64_t in_rank = static_cast<std::int64_t>(x.onnx.size());
      if (node.op == "Squeeze") {
        if (axes.empty()) {
          batch = -1;  // every unit dim goes, the batch with them
        } else {
          int shift = 0;
          for (std::int64_t a : axes) {
            const std::int64_t axis = a < 0 ? a + in_rank : a;
            if (axis == x.batch) shift = -1000;
            else if (axis < x.batch) ++shift;
          }
          batch = shift < 0 ? -1 : batch - shift;
        }
      } else {
        const std::int64_t out_rank = static_cast<std::int64_t>(out.size());
        std::vector<bool> added(static_cast<std::size_t>(out_rank), false);
        for (std::int64_t a : axes) {
          const std::int64_t axis = a < 0 ? a + out_rank : a;
          if (axis >= 0 && axis < out_rank) added[axis] = true;
        }
        int seen = 0;
        for (std::int64_t k = 0; k < out_rank; ++k) {
          if (added[k]) continue;
          if (seen++ == x.batch) {
            batch = static_cast<int>(k);
            break;
          }
        }
      }
    }
    const RuntimeDims dims = Expected(out, batch);
    if (dims == x.actual) return Alias(node.Output(0), x, batch);
    if (x.actual != Expected(x.onnx, x.batch)) return EmitReshape(node, x, dims, batch);
    if (axes.size() == 1 && node.op == "Squeeze") {
      auto r = std::make_shared<runtime::TensorSqueezeInfo>();
      r->dim = I16(RuntimeAxis(axes[0], x.onnx.size(), x.batch), "axis");
      return EmitWithDims(node, r, {x.layer}, dims, batch);
    }
    if (axes.size() == 1 && node.op == "Unsqueeze") {
      // The record inserts before a runtime index: count the output axes
      // before the new one that are not the batch.
      const std::int64_t out_rank = static_cast<std::int64_t>(out.size());
      const std::int64_t axis = axes[0] < 0 ? axes[0] + out_rank : axes[0];
      std::int64_t index = axis;
      if (batch >= 0 && batch < axis) --index;
      auto r = std::make_shared<runtime::TensorUnSqueezeInfo>();
      r->type = runtime::LAYER_TENSOR_UNSQUEEZE;
      r->dim = I16(index, "axis");
      return EmitWithDims(node, r, {x.layer}, dims, batch);
    }
    EmitReshape(node, x, dims, batch);
  }

  void MapTranspose(const Node& node) {
    const ValueRef& x = Tensor(node, 0);
    const std::size_t rank = x.onnx.size();
    std::vector<std::int64_t> perm = node.Ints("perm");
    if (perm.empty()) {
      for (std::size_t k = rank; k-- > 0;) perm.push_back(static_cast<std::int64_t>(k));
    }
    if (perm.size() != rank) Fail("perm does not match the input's rank");
    int batch = -1;
    std::vector<unsigned short> axes;
    for (std::size_t j = 0; j < rank; ++j) {
      if (perm[j] < 0 || perm[j] >= static_cast<std::int64_t>(rank)) Fail("perm is not a permutation");
      if (perm[j] == x.batch) {
        batch = static_cast<int>(j);
        continue;
      }
      const std::int64_t a = x.batch >= 0 && perm[j] > x.batch ? perm[j] - 1 : perm[j];
      axes.push_back(static_cast<unsigned short>(a));
    }
    bool identity = true;
    for (std::size_t k = 0; k < axes.size(); ++k) identity = identity && axes[k] == k;
    // Moving only the batch axis (or unit axes) keeps the memory order.
    if (identity) return Alias(node.Output(0), x, batch);
    if (x.actual != Expected(x.onnx, x.batch)) Fail("the input is held in a different shape than ONNX gives it");
    auto r = std::make_shared<runtime::TensorTransposeInfo>();
    r->axes = axes;
    Emit(node, r, {x.layer}, batch);
  }

  void MapSlice(const Node& node) {
    const ValueRef& x = Consistent(node, 0);
    std::vector<std::int64_t> starts, ends, axes, steps;
    if (graph_.opset < 10) {
      starts = node.Ints("starts");
      ends = node.Ints("ends");
      axes = node.Ints("axes");
    } else {
      starts = Const(node, 1, "starts").Ints();
      ends = Const(node, 2, "ends").Ints();
      if (const ConstTensor* a = OptionalConst(node, 3, "axes")) axes = a->Ints();
      if (const ConstTensor* s = OptionalConst(node, 4, "steps")) steps = s->Ints();
    }
    if (axes.empty()) {
      for (std::size_t k = 0; k < starts.size(); ++k) axes.push_back(static_cast<std::int64_t>(k));
    }
    if (steps.empty()) steps.assign(starts.size(), 1);
    if (starts.size() != ends.size() || axes.size() != starts.size() || steps.size() != starts.size()) {
      Fail("starts, ends, axes and steps differ in length");
    }
    auto r = std::make_shared<runtime::TensorSliceInfo>();
    const std::int64_t rank = static_cast<std::int64_t>(x.onnx.size());
    for (std::size_t k = 0; k < axes.size(); ++k) {
      std::int64_t axis = axes[k] < 0 ? axes[k] + rank : axes[k];
      if (axis < 0 || axis >= rank) Fail("axis out of range");
      if (steps[k] < 1) Fail("step " + std::to_string(steps[k]) + ": the slice record takes steps of 1 and more");
      const std::int64_t extent = x.onnx[axis];
      std::int64_t s = starts[k] < 0 ? starts[k] + extent : starts[k];
      std::int64_t e = ends[k] < 0 ? ends[k] + extent : ends[k];
      s = std::clamp<std::int64_t>(s, 0, extent);
      e = std::clamp<std::int64_t>(e, 0, extent);
      if (axis == x.batch) {
        if (s != 0 || e < 1) Fail("the slice selects along the batch axis");
        continue;
      }
      r->slice_dims.push_back(I16(RuntimeAxis(axis, x.onnx.size(), x.batch), "axis"));
      r->slice_dims.push_back(I16(s, "start"));
      r->slice_dims.push_back(e >= extent ? 32767 : I16(e, "end"));
      r->slice_dims.push_back(I16(steps[k], "step"));
    }
    if (r->slice_dims.empty()) return Alias(node.Output(0), x, x.batch);
    Emit(node, r, {x.layer}, x.batch);
  }

  void MapGather(const Node& node) {
    const ValueRef& x = Consistent(node, 0);
    const ConstTensor& indices = Const(node, 1, "the indices");
    if (indices.is_float() || indices.dims.size() > 1) Fail("only a scalar or a list of indices is supported");
    const std::int64_t rank = static_cast<std::int64_t>(x.onnx.size());
    std::int64_t axis = node.Int("axis", 0);
    if (axis < 0) axis += rank;
    const std::int64_t runtime_axis = RuntimeAxis(axis, x.onnx.size(), x.batch);
    auto r = std::make_shared<runtime::TensorGetItemInfo>();
    for (std::int64_t k = 0; k < runtime_axis; ++k) r->sampling_infos.emplace_back();  // whole dims
    runtime::TensorDimemsionSamplingInfo info;
    info.sampling_type = indices.dims.empty() ? 1 : 3;
    for (std::int64_t v : indices.i) info.data.push_back(I16(v, "index"));
    r->sampling_infos.push_back(info);
    Emit(node, r, {x.layer}, x.batch);
  }

  void MapPad(const Node& node) {
    const ValueRef& x = Consistent(node, 0);
    const std::string mode = node.String("mode", "constant");
    if (mode != "constant") {
      Fail("pad mode '" + mode + "': the padding records have no mode field, so only constant padding is expressible");
    }
    std::vector<std::int64_t> pads;
    float value = 0.0f;
    if (graph_.opset < 11) {
      pads = node.Ints("pads");
      value = node.Float("value", 0.0f);
    } else {
      pads = Const(node, 1, "pads").Ints();
      if (const ConstTensor* v = OptionalConst(node, 2, "the value")) {
        if (v->size() != 1) Fail("the pad value must be a scalar");
        value = static_cast<float>(v->At(0));
      }
      if (!node.Input(3).empty()) Fail("the axes input of Pad is not supported");
    }
    const std::size_t rank = x.onnx.size();
    if (pads.size() != 2 * rank) Fail("pads do not match the input's rank");
    const std::size_t first = rank == 4 ? 2 : rank == 3 ? 2 : rank;
    if (x.batch != 0 || first >= rank) Fail("only the last dim of [1, C, L] or the last two of [1, C, H, W] can be padded");
    for (std::size_t k = 0; k < first; ++k) {
      if (pads[k] != 0 || pads[k + rank] != 0) Fail("only the last dim of [1, C, L] or the last two of [1, C, H, W] can be padded");
    }
    if (rank == 4) {
      auto r = std::make_shared<runtime::Pad2dInfo>();
      r->padding_t = I16(pads[2], "padding");
      r->padding_l = I16(pads[3], "padding");
      r->padding_b = I16(pads[6], "padding");
      r->padding_r = I16(pads[7], "padding");
      r->padding_v = value;
      return Emit(node, r, {x.layer}, 0);
    }
    auto r = std::make_shared<runtime::Pad1dInfo>();
    r->padding_l = I16(pads[2], "padding");
    r->padding_r = I16(pads[5], "padding");
    r->padding_v = value;
    Emit(node, r, {x.layer}, 0);
  }

  // ---------------------------------------------------------------- resampling

  // The float scale whose product with `in`, rounded down, gives `out`.
  static float ScaleFor(std::int64_t in, std::int64_t out) {
    float s = static_cast<float>(static_cast<double>(out) / static_cast<double>(in));
    for (int k = 0; k < 4 && std::floor(static_cast<double>(in) * s) < static_cast<double>(out); ++k) {
      s = std::nextafter(s, std::numeric_limits<float>::infinity());
    }
    return s;
  }

  void MapResize(const Node& node) {
    const ValueRef& x = Image(node, 0, 4);
    const OnnxDims& out = Info(node.Output(0)).dims;
    if (out.size() != 4 || out[0] != 1 || out[1] != x.onnx[1]) Fail("only the spatial dims can be resized");
    std::string mode = node.String("mode", "nearest");
    if (mode == "bilinear") mode = "linear";
    if (mode != "nearest" && mode != "linear") Fail("mode '" + mode + "' is not supported (nearest and linear are)");
    // Scales: given, or the ratio of the sizes.
    std::vector<float> scales;
    if (node.op == "Upsample" && graph_.opset < 9) {
      scales = node.Floats("scales");
    } else {
      const std::size_t index = node.op == "Upsample" || graph_.opset < 11 ? 1 : 2;
      if (const ConstTensor* s = OptionalConst(node, index, "the scales")) {
        for (std::size_t k = 0; k < s->size(); ++k) scales.push_back(static_cast<float>(s->At(k)));
      }
    }
    float sy, sx;
    if (scales.size() == 4) {
      if (scales[0] != 1.0f || scales[1] != 1.0f) Fail("the batch and channel scales must be 1");
      sy = scales[2];
      sx = scales[3];
    } else {
      sy = ScaleFor(x.onnx[2], out[2]);
      sx = ScaleFor(x.onnx[3], out[3]);
    }
    if (!(sy > 0.0f) || !(sx > 0.0f) || !std::isfinite(sy) || !std::isfinite(sx)) Fail("the scales are not positive");
    if (std::floor(double(x.onnx[2]) * sy) != double(out[2]) || std::floor(double(x.onnx[3]) * sx) != double(out[3])) {
      Fail("the output size " + DimsText(out) + " is not floor(input * scale)");
    }
    const std::string ctm = graph_.opset >= 11 && node.op == "Resize"
                                ? node.String("coordinate_transformation_mode", "half_pixel")
                                : "asymmetric";
    auto r = std::make_shared<runtime::Upsample2dInfo>();
    r->scale_factor_y = sy;
    r->scale_factor_x = sx;
    if (mode == "nearest") {
      if (ctm != "asymmetric") Fail("nearest resizing with '" + ctm + "' coordinates (the runtime's is asymmetric, floor)");
      const std::string nearest = graph_.opset >= 11 && node.op == "Resize"
                                      ? node.String("nearest_mode", "round_prefer_floor")
                                      : "floor";
      // Rounding half down equals floor when no source position has a fraction above one half.
      const bool floor_like = nearest == "floor" || (nearest == "round_prefer_floor" && sy <= 2.0f && sx <= 2.0f &&
                                                     sy == std::floor(sy) && sx == std::floor(sx));
      if (!floor_like) Fail("nearest_mode '" + nearest + "' at these scales differs from the runtime's floor");
      r->unsample_type = 0;
    } else {
      if (ctm == "align_corners") {
        r->align_corner = true;
      } else if (ctm == "half_pixel" || ctm == "pytorch_half_pixel") {
        r->align_corner = false;
      } else {
        Fail("linear resizing with '" + ctm + "' coordinates is not supported");
      }
      r->unsample_type = 1;
    }
    Emit(node, r, {x.layer}, 0);
  }

  void MapDepthToSpace(const Node& node) {
    const ValueRef& x = Image(node, 0, 4);
    if (node.String("mode", "DCR") != "CRD") {
      Fail("mode DCR: the pixel-shuffle record computes the CRD order (PyTorch's pixel_shuffle)");
    }
    auto r = std::make_shared<runtime::PixelShuffleInfo>();
    r->upscale_factor = static_cast<float>(node.Int("blocksize", 0));
    Emit(node, r, {x.layer}, 0);
  }

  void MapSpaceToDepth(const Node& node) {
    const ValueRef& x = Image(node, 0, 4);
    auto r = std::make_shared<runtime::SpaceToDepthInfo>();
    r->scale_factor = static_cast<float>(node.Int("blocksize", 0));
    Emit(node, r, {x.layer}, 0);
  }

  void MapGridSample(const Node& node) {
    const ValueRef& x = Image(node, 0, 4);
    const ValueRef& grid = Consistent(node, 1);
    if (grid.onnx.size() != 4 || grid.batch != 0) Fail("the grid must be [1, H_out, W_out, 2]");
    const std::string mode = node.String("mode", "bilinear");
    const std::string padding = node.String("padding_mode", "zeros");
    auto r = std::make_shared<runtime::GridSampleInfo>();
    if (mode == "bilinear") r->mode = 0;
    else if (mode == "nearest") r->mode = 1;
    else Fail("mode '" + mode + "' is not supported");
    if (padding == "zeros") r->padding_mode = 0;
    else if (padding == "border") r->padding_mode = 1;
    else if (padding == "reflection") r->padding_mode = 2;
    else Fail("padding_mode '" + padding + "' is not supported");
    r->align_corners = node.Int("align_corners", 0) != 0;
    Emit(node, r, {x.layer, grid.layer}, 0);
  }

  // ---------------------------------------------------------------- recurrent layers

  // The recurrent cells read activation code 2 as ReLU and 5 as tanh.
  static constexpr std::uint16_t kRecurrentRelu = 2;
  static constexpr std::uint16_t kRecurrentTanh = 5;

  static bool ZeroState(const ConstTensor* c) {
    if (!c) return true;
    for (std::size_t k = 0; k < c->size(); ++k) {
      if (c->At(k) != 0.0) return false;
    }
    return true;
  }

  void MapRecurrent(const Node& node) {
    const std::string& op = node.op;
    const int gates = op == "LSTM" ? 4 : op == "GRU" ? 3 : 1;
    const ValueRef& x = Tensor(node, 0);
    const bool batch_first = node.Int("layout", 0) != 0;
    if (x.onnx.size() != 3 || x.batch != (batch_first ? 0 : 1)) {
      Fail("the input must be [S, 1, I] (or [1, S, I] with layout 1) with its batch axis there");
    }
    const std::int64_t seq = batch_first ? x.onnx[1] : x.onnx[0];
    const std::int64_t in_size = x.onnx[2];
    const RuntimeDims sc{static_cast<std::uint32_t>(seq), static_cast<std::uint32_t>(in_size)};
    if (x.actual != sc) Fail("the input is held as " + DimsText(x.actual) + ", not as a sequence " + DimsText(sc));
    const ConstTensor& w = Const(node, 1, "W");
    const ConstTensor& rw = Const(node, 2, "R");
    const ConstTensor* b = OptionalConst(node, 3, "B");
    const std::int64_t hidden = node.Int("hidden_size", 0);
    const std::string direction = node.String("direction", "forward");
    if (direction == "reverse") Fail("a reverse-only layer is not expressible (the records run reverse only beside forward)");
    const int dirs = direction == "bidirectional" ? 2 : 1;
    if (hidden <= 0 || !w.is_float() || !rw.is_float() || w.dims != OnnxDims{dirs, gates * hidden, in_size} ||
        rw.dims != OnnxDims{dirs, gates * hidden, hidden}) {
      Fail("W or R does not fit hidden_size " + std::to_string(hidden) + " and " + std::to_string(dirs) + " directions");
    }
    if (b && (!b->is_float() || b->dims != OnnxDims{dirs, 2 * gates * hidden})) Fail("B does not fit the layer");
    if (!node.Input(4).empty()) {
      const ConstTensor* lens = graph_.Constant(node.Input(4));
      bool full = lens != nullptr;
      for (std::size_t k = 0; full && k < lens->size(); ++k) full = lens->IntAt(k) == seq;
      if (!full) Fail("sequence_lens shorter than the sequence are not supported");
    }
    for (std::size_t k = 5; k < node.inputs.size(); ++k) {
      if (node.Input(k).empty()) continue;
      const ConstTensor* c = graph_.Constant(node.Input(k));
      if (!c || !ZeroState(c)) {
        Fail(k == 7 ? "peephole weights are not supported"
                    : "initial states must be zero constants (the converter passes no state tensors)");
      }
    }
    if (node.Has("clip")) Fail("clip is not supported");
    if (node.Int("input_forget", 0) != 0) Fail("input_forget is not supported");
    std::uint16_t activation = kRecurrentTanh;
    const std::vector<std::string> acts = node.Strings("activations");
    if (op == "RNN") {
      for (std::size_t k = 0; k < acts.size(); ++k) {
        if (acts[k] != acts[0]) Fail("the two directions use different activations");
      }
      const std::string a = acts.empty() ? "Tanh" : acts[0];
      if (a == "Relu") activation = kRecurrentRelu;
      else if (a != "Tanh") Fail("activation " + a + " is not supported (Tanh and Relu are)");
    } else {
      const std::vector<std::string> standard = op == "LSTM" ? std::vector<std::string>{"Sigmoid", "Tanh", "Tanh"}
                                                             : std::vector<std::string>{"Sigmoid", "Tanh"};
      for (std::size_t k = 0; k < acts.size(); ++k) {
        if (acts[k] != standard[k % standard.size()]) Fail("activations other than the standard ones are not supported");
      }
    }
    if (op == "GRU" && node.Int("linear_before_reset", 0) != 1) {
      Fail("linear_before_reset = 0: the runtime's GRU applies the reset gate after the hidden product "
           "(linear_before_reset = 1, as PyTorch exports it)");
    }
    for (std::size_t k = 1; k < node.outputs.size(); ++k) {
      const std::string& out = node.outputs[k];
      if (!out.empty() && (!graph_.Consumers(out).empty() || graph_.IsOutput(out))) {
        Fail("the final state '" + out + "' is read; a reader of a recurrent layer receives all its outputs, so "
             "only its sequence output can be used");
      }
    }
    // ONNX orders the gates i, o, f, c (LSTM) and z, r, h (GRU); the runtime
    // wants PyTorch's i, f, g, o and r, z, n.
    const std::vector<int> order = op == "LSTM" ? std::vector<int>{0, 2, 3, 1}
                                   : op == "GRU" ? std::vector<int>{1, 0, 2}
                                                 : std::vector<int>{0};
    const std::size_t h = static_cast<std::size_t>(hidden), in = static_cast<std::size_t>(in_size);
    const std::size_t g = static_cast<std::size_t>(gates);
    std::vector<std::string> w_ih[2], w_hh[2], b_ih[2], b_hh[2];
    for (int d = 0; d < dirs; ++d) {
      w_ih[d].push_back(runtime::EncodeWeights(ReorderGates(w.f.data() + d * g * h * in, h, in, order)));
      w_hh[d].push_back(runtime::EncodeWeights(ReorderGates(rw.f.data() + d * g * h * h, h, h, order)));
      std::vector<float> zeros(g * h, 0.0f);
      const float* bias = b ? b->f.data() + d * 2 * g * h : nullptr;
      b_ih[d].push_back(runtime::EncodeWeights(bias ? ReorderGates(bias, h, 1, order) : zeros));
      b_hh[d].push_back(runtime::EncodeWeights(bias ? ReorderGates(bias + g * h, h, 1, order) : zeros));
    }
    const RuntimeDims y{static_cast<std::uint32_t>(seq), static_cast<std::uint32_t>(dirs * hidden)};
    // Y is [S, dirs, 1, H] (or [1, S, dirs, H]... no: [S, 1, dirs, H] with
    // layout 1); its runtime tensor is [S, dirs * H], forward then reverse
    // features per step. The views PyTorch puts after it alias that tensor.
    const int y_batch = batch_first ? 0 : 2;

    // A layer stacked on the previous one of the same kind becomes one more
    // layer of that record.
    if (StackOnto(node, x, dirs, hidden, activation, w_ih, w_hh, b_ih, b_hh, y, y_batch)) return;

    auto fill = [&](runtime::RecurrentStack& r) {
      r.in_size = U16(in_size, "input size");
      r.hidden_size = U16(hidden, "hidden size");
      r.if_bias = true;
      r.num_layers = 1;
      r.bidirectional = dirs == 2;
      r.weight_ih_forward = w_ih[0];
      r.weight_hh_forward = w_hh[0];
      r.bias_ih_forward = b_ih[0];
      r.bias_hh_forward = b_hh[0];
      if (dirs == 2) {
        r.weight_ih_reverse = w_ih[1];
        r.weight_hh_reverse = w_hh[1];
        r.bias_ih_reverse = b_ih[1];
        r.bias_hh_reverse = b_hh[1];
      }
    };
    LayerInfoPtr record;
    if (op == "LSTM") {
      auto r = std::make_shared<runtime::LSTMInfo>();
      fill(*r);
      record = r;
    } else if (op == "GRU") {
      auto r = std::make_shared<runtime::GRUInfo>();
      fill(*r);
      record = r;
    } else {
      auto r = std::make_shared<runtime::RNNInfo>();
      fill(*r);
      r->activation_type = activation;
      record = r;
    }
    EmitWithDims(node, record, {x.layer}, y, y_batch);
    recurrent_[node.name] = Recurrent{op, dirs, hidden, activation};
  }

  struct Recurrent {
    std::string op;
    int dirs = 1;
    std::int64_t hidden = 0;
    std::uint16_t activation = 0;
  };

  // Whether every reader of the values aliasing `layer` is either another view
  // of it or `node`, and none is a graph output.
  bool OnlyReadBy(const std::string& layer, const Node& node) const {
    for (const auto& entry : refs_) {
      if (entry.second.layer != layer) continue;
      if (graph_.IsOutput(entry.first)) return false;
      for (std::size_t n : graph_.Consumers(entry.first)) {
        const Node& reader = graph_.nodes[n];
        if (reader.name == node.name) continue;
        bool view = true;
        for (const std::string& out : reader.outputs) {
          auto it = refs_.find(out);
          view = view && it != refs_.end() && it->second.layer == layer;
        }
        if (!view) return false;
      }
    }
    return true;
  }

  bool StackOnto(const Node& node, const ValueRef& x, int dirs, std::int64_t hidden, std::uint16_t activation,
                 std::vector<std::string> (&w_ih)[2], std::vector<std::string> (&w_hh)[2],
                 std::vector<std::string> (&b_ih)[2], std::vector<std::string> (&b_hh)[2], const RuntimeDims& y,
                 int y_batch) {
    auto it = recurrent_.find(x.layer);
    if (it == recurrent_.end()) return false;
    const Recurrent& below = it->second;
    if (below.op != node.op || below.dirs != dirs || below.hidden != hidden || below.activation != activation) {
      return false;
    }
    if (!OnlyReadBy(x.layer, node)) return false;
    for (MappedLayer& l : model_->layers) {
      if (l.record->id != x.layer) continue;
      auto* stack = dynamic_cast<runtime::RecurrentStack*>(l.record.get());
      if (!stack) return false;
      ++stack->num_layers;
      stack->weight_ih_forward.push_back(w_ih[0][0]);
      stack->weight_hh_forward.push_back(w_hh[0][0]);
      stack->bias_ih_forward.push_back(b_ih[0][0]);
      stack->bias_hh_forward.push_back(b_hh[0][0]);
      if (dirs == 2) {
        stack->weight_ih_reverse.push_back(w_ih[1][0]);
        stack->weight_hh_reverse.push_back(w_hh[1][0]);
        stack->bias_ih_reverse.push_back(b_ih[1][0]);
        stack->bias_hh_reverse.push_back(b_hh[1][0]);
      }
      l.dims = y;
      ValueRef r;
      r.layer = x.layer;
      r.actual = y;
      r.onnx = Info(node.Output(0)).dims;
      r.batch = y_batch;
      refs_[node.Output(0)] = r;
      return true;
    }
    return false;
  }

  const Graph& graph_;
  MappedModel* model_;
  Problems* problems_;
  std::map<std::string, ValueRef> refs_;
  std::set<std::string> poisoned_;
  std::set<std::size_t> absorbed_;
  std::map<std::string, Recurrent> recurrent_;
};

}  // namespace

bool MapGraph(const Graph& graph, MappedModel* model, Problems* problems) {
  *model = MappedModel();
  Mapper mapper(graph, model, problems);
  return mapper.Run();
}

}  // namespace convert
}  // namespace tarn
