#include "convert/graph_passes.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>

#include "convert/op_support.h"

namespace tarn {
namespace convert {
namespace {

using Dims = std::vector<std::int64_t>;

Dims Strides(const Dims& dims) {
  Dims s(dims.size(), 1);
  for (std::size_t k = dims.size(); k-- > 1;) s[k - 1] = s[k] * dims[k];
  return s;
}

// Normalises an axis for `rank`; false when out of range.
bool NormaliseAxis(std::int64_t axis, std::size_t rank, std::int64_t* out) {
  const std::int64_t r = static_cast<std::int64_t>(rank);
  if (axis < -r || axis >= r) return false;
  *out = axis < 0 ? axis + r : axis;
  return true;
}

ConstTensor Empty(std::int32_t type, const Dims& dims) {
  ConstTensor t;
  t.type = type;
  t.dims = dims;
  const std::int64_t n = ElementCount(dims);
  if (t.is_float()) {
    t.f.assign(static_cast<std::size_t>(n), 0.0f);
  } else {
    t.i.assign(static_cast<std::size_t>(n), 0);
  }
  return t;
}

void CopyElement(const ConstTensor& from, std::size_t src, ConstTensor* to, std::size_t dst) {
  if (to->is_float()) {
    to->f[dst] = static_cast<float>(from.At(src));
  } else {
    to->i[dst] = from.IntAt(src);
  }
}

bool BroadcastDims(const Dims& a, const Dims& b, Dims* out) {
  const std::size_t rank = std::max(a.size(), b.size());
  out->assign(rank, 1);
  for (std::size_t k = 0; k < rank; ++k) {
    const std::int64_t da = k + a.size() >= rank ? a[k + a.size() - rank] : 1;
    const std::int64_t db = k + b.size() >= rank ? b[k + b.size() - rank] : 1;
    if (da != db && da != 1 && db != 1) return false;
    (*out)[k] = da == 1 ? db : da;
  }
  return true;
}

// Offset into a tensor of `dims` broadcast to `out` for the output coordinates.
// Runs once per folded element, so it keeps its stride in a register instead
// of allocating a stride vector.
std::int64_t BroadcastOffset(const Dims& dims, const Dims& out, const Dims& coords) {
  std::int64_t offset = 0, stride = 1;
  const std::size_t shift = out.size() - dims.size();
  for (std::size_t k = dims.size(); k-- > 0;) {
    if (dims[k] != 1) offset += coords[k + shift] * stride;
    stride *= dims[k];
  }
  return offset;
}

void Coordinates(std::int64_t flat, const Dims& dims, Dims* coords) {
  coords->assign(dims.size(), 0);
  for (std::size_t k = dims.size(); k-- > 0;) {
    if (dims[k] == 0) return;
    (*coords)[k] = flat % dims[k];
    flat /= dims[k];
  }
}

bool Binary(const ConstTensor& a, const ConstTensor& b, const std::string& op, std::int64_t limit, ConstTensor* out) {
  Dims dims;
  if (!BroadcastDims(a.dims, b.dims, &dims)) return false;
  const std::int64_t n = ElementCount(dims);
  if (n < 0 || n > limit) return false;
  const bool floating = a.is_float() || b.is_float();
  const bool compare = op == "Equal";
  *out = Empty(compare ? kOnnxBool : (floating ? kOnnxFloat : a.type), dims);
  Dims coords;
  for (std::int64_t k = 0; k < n; ++k) {
    Coordinates(k, dims, &coords);
    const std::size_t ia = static_cast<std::size_t>(BroadcastOffset(a.dims, dims, coords));
    const std::size_t ib = static_cast<std::size_t>(BroadcastOffset(b.dims, dims, coords));
    if (compare) {
      out->i[k] = a.At(ia) == b.At(ib) ? 1 : 0;
    } else if (floating) {
      const float x = static_cast<float>(a.At(ia)), y = static_cast<float>(b.At(ib));
      out->f[k] = op == "Add" ? x + y : op == "Sub" ? x - y : op == "Mul" ? x * y : x / y;
    } else {
      const std::int64_t x = a.i[ia], y = b.i[ib];
      if (op == "Div" && y == 0) return false;
      out->i[k] = op == "Add" ? x + y : op == "Sub" ? x - y : op == "Mul" ? x * y : x / y;
    }
  }
  return true;
}

bool Gather(const ConstTensor& data, const ConstTensor& indices, std::int64_t axis_attr, std::int64_t limit,
            ConstTensor* out) {
  std::int64_t axis;
  if (data.dims.empty() || !NormaliseAxis(axis_attr, data.dims.size(), &axis) || indices.is_float()) return false;
  Dims dims(data.dims.begin(), data.dims.begin() + axis);
  dims.insert(dims.end(), indices.dims.begin(), indices.dims.end());
  dims.insert(dims.end(), data.dims.begin() + axis + 1, data.dims.end());
  const std::int64_t n = ElementCount(dims);
  if (n < 0 || n > limit) return false;
  *out = Empty(data.type, dims);
  const std::int64_t outer = ElementCount(Dims(data.dims.begin(), data.dims.begin() + axis));
  const std::int64_t inner = ElementCount(Dims(data.dims.begin() + axis + 1, data.dims.end()));
  const std::int64_t extent = data.dims[axis];
  const std::int64_t count = static_cast<std::int64_t>(indices.size());
  for (std::int64_t o = 0; o < outer; ++o) {
    for (std::int64_t j = 0; j < count; ++j) {
      std::int64_t index = indices.i[j];
      if (index < 0) index += extent;
      if (index < 0 || index >= extent) return false;
      for (std::int64_t in = 0; in < inner; ++in) {
        CopyElement(data, static_cast<std::size_t>((o * extent + index) * inner + in), out,
                    static_cast<std::size_t>((o * count + j) * inner + in));
      }
    }
  }
  return true;
}

// out becomes a tensor of `dims` whose element at each coordinate is data's
// element at source(coordinates).
template <typename Source>
void Remap(const ConstTensor& data, const Dims& dims, ConstTensor* out, Source source) {
  *out = Empty(data.type, dims);
  Dims coords;
  const std::int64_t n = ElementCount(dims);
  for (std::int64_t k = 0; k < n; ++k) {
    Coordinates(k, dims, &coords);
    CopyElement(data, static_cast<std::size_t>(source(coords)), out, static_cast<std::size_t>(k));
  }
}

bool Transpose(const ConstTensor& data, Dims perm, ConstTensor* out) {
  const std::size_t rank = data.dims.size();
  if (perm.empty()) {
    for (std::size_t k = rank; k-- > 0;) perm.push_back(static_cast<std::int64_t>(k));
  }
  if (perm.size() != rank) return false;
  std::vector<bool> seen(rank, false);
  Dims dims(rank);
  for (std::size_t k = 0; k < rank; ++k) {
    if (perm[k] < 0 || perm[k] >= static_cast<std::int64_t>(rank) || seen[perm[k]]) return false;
    seen[perm[k]] = true;
    dims[k] = data.dims[perm[k]];
  }
  const Dims in_strides = Strides(data.dims);
  Remap(data, dims, out, [&](const Dims& coords) {
    std::int64_t src = 0;
    for (std::size_t d = 0; d < rank; ++d) src += coords[d] * in_strides[perm[d]];
    return src;
  });
  return true;
}

// Python-style slice bounds of one axis, as ONNX Slice defines them.
void SliceBounds(std::int64_t extent, std::int64_t start, std::int64_t end, std::int64_t step, std::int64_t* first,
                 std::int64_t* count) {
  if (start < 0) start += extent;
  if (end < 0) end += extent;
  if (step > 0) {
    start = std::clamp<std::int64_t>(start, 0, extent);
    end = std::clamp<std::int64_t>(end, 0, extent);
    *count = end > start ? (end - start + step - 1) / step : 0;
  } else {
    start = std::clamp<std::int64_t>(start, 0, extent - 1);
    end = std::clamp<std::int64_t>(end, -1, extent - 1);
    *count = start > end ? (start - end - step - 1) / -step : 0;
  }
  *first = start;
}

bool Slice(const ConstTensor& data, const Dims& starts, const Dims& ends, Dims axes, Dims steps, ConstTensor* out) {
  const std::size_t rank = data.dims.size();
  if (starts.size() != ends.size()) return false;
  if (axes.empty()) {
    for (std::size_t k = 0; k < starts.size(); ++k) axes.push_back(static_cast<std::int64_t>(k));
  }
  if (steps.empty()) steps.assign(starts.size(), 1);
  if (axes.size() != starts.size() || steps.size() != starts.size()) return false;
  Dims first(rank, 0), step(rank, 1), dims = data.dims;
  for (std::size_t k = 0; k < axes.size(); ++k) {
    std::int64_t axis;
    if (!NormaliseAxis(axes[k], rank, &axis) || steps[k] == 0) return false;
    SliceBounds(data.dims[axis], starts[k], ends[k], steps[k], &first[axis], &dims[axis]);
    step[axis] = steps[k];
  }
  const Dims in_strides = Strides(data.dims);
  Remap(data, dims, out, [&](const Dims& coords) {
    std::int64_t src = 0;
    for (std::size_t d = 0; d < rank; ++d) src += (first[d] + coords[d] * step[d]) * in_strides[d];
    return src;
  });
  return true;
}

bool Concat(const std::vector<const ConstTensor*>& parts, std::int64_t axis_attr, std::int64_t limit,
            ConstTensor* out) {
  if (parts.empty()) return false;
  const Dims& base = parts[0]->dims;
  std::int64_t axis;
  if (!NormaliseAxis(axis_attr, base.size(), &axis)) return false;
  Dims dims = base;
  dims[axis] = 0;
  bool floating = false;
  for (const ConstTensor* p : parts) {
    if (p->dims.size() != base.size()) return false;
    for (std::size_t k = 0; k < base.size(); ++k) {
      if (static_cast<std::int64_t>(k) != axis && p->dims[k] != base[k]) return false;
    }
    dims[axis] += p->dims[axis];
    floating = floating || p->is_float();
  }
  const std::int64_t n = ElementCount(dims);
  if (n < 0 || n > limit) return false;
  *out = Empty(floating ? kOnnxFloat : parts[0]->type, dims);
  const std::int64_t outer = ElementCount(Dims(base.begin(), base.begin() + axis));
  const std::int64_t inner = ElementCount(Dims(base.begin() + axis + 1, base.end()));
  std::size_t dst = 0;
  for (std::int64_t o = 0; o < outer; ++o) {
    for (const ConstTensor* p : parts) {
      const std::int64_t run = p->dims[axis] * inner;
      for (std::int64_t k = 0; k < run; ++k) CopyElement(*p, static_cast<std::size_t>(o * run + k), out, dst++);
    }
  }
  return true;
}

// The new dims of a Reshape: 0 copies the input dim (unless allowzero), one -1 is inferred.
bool ReshapeDims(const Dims& in, const Dims& shape, bool allowzero, Dims* out) {
  *out = shape;
  int infer = -1;
  std::int64_t known = 1;
  for (std::size_t k = 0; k < shape.size(); ++k) {
    if (shape[k] == 0 && !allowzero) {
      if (k >= in.size()) return false;
      (*out)[k] = in[k];
    } else if (shape[k] == -1) {
      if (infer >= 0) return false;
      infer = static_cast<int>(k);
      continue;
    } else if (shape[k] < 0) {
      return false;
    }
    if ((*out)[k] != 0 && known > (std::int64_t(1) << 40) / (*out)[k]) return false;
    known *= (*out)[k];
  }
  const std::int64_t total = ElementCount(in);
  if (total < 0) return false;
  if (infer >= 0) {
    if (known == 0 || total % known != 0) return false;
    (*out)[infer] = total / known;
  } else if (known != total) {
    return false;
  }
  return true;
}

// Axes given as an attribute (older opsets) or as the second input.
bool AxesOf(const Graph& graph, const Node& node, Dims* axes) {
  if (node.Has("axes")) {
    *axes = node.Ints("axes");
    return true;
  }
  if (node.Input(1).empty()) {
    axes->clear();
    return true;
  }
  const ConstTensor* c = graph.Constant(node.Input(1));
  if (!c) return false;
  *axes = c->Ints();
  return true;
}

}  // namespace

bool EvaluateNode(const Graph& graph, const Node& node, std::vector<ConstTensor>* outputs, std::int64_t limit) {
  const std::string& op = node.op;
  std::vector<const ConstTensor*> in;
  for (const std::string& name : node.inputs) in.push_back(name.empty() ? nullptr : graph.Constant(name));
  auto need = [&](std::size_t count) {
    if (in.size() < count) return false;
    for (std::size_t k = 0; k < count; ++k) {
      if (!in[k]) return false;
    }
    return true;
  };
  ConstTensor out;
  if (op == "Shape") {
    const ValueInfo* v = graph.Value(node.Input(0));
    if (!v || !v->known) return false;
    const std::int64_t rank = static_cast<std::int64_t>(v->dims.size());
    std::int64_t start = node.Int("start", 0), end = node.Int("end", rank);
    if (start < 0) start += rank;
    if (end < 0) end += rank;
    start = std::clamp<std::int64_t>(start, 0, rank);
    end = std::clamp<std::int64_t>(end, 0, rank);
    out.type = kOnnxInt64;
    for (std::int64_t k = start; k < end; ++k) out.i.push_back(v->dims[k]);
    out.dims = {static_cast<std::int64_t>(out.i.size())};
  } else if (op == "Size") {
    const ValueInfo* v = graph.Value(node.Input(0));
    if (!v || !v->known) return false;
    out.type = kOnnxInt64;
    out.i = {ElementCount(v->dims)};
  } else if (op == "Identity") {
    if (!need(1)) return false;
    out = *in[0];
  } else if (op == "Cast") {
    if (!need(1)) return false;
    const std::int32_t to = static_cast<std::int32_t>(node.Int("to", kOnnxFloat));
    if (!IsFloatType(to) && !IsIntegerType(to)) return false;
    out = Empty(to, in[0]->dims);
    for (std::size_t k = 0; k < out.size(); ++k) {
      if (out.is_float()) {
        out.f[k] = static_cast<float>(in[0]->At(k));
      } else {
        const double v = in[0]->At(k);
        if (!(std::fabs(v) < 9.2e18)) return false;
        out.i[k] = to == kOnnxBool ? (v != 0.0) : static_cast<std::int64_t>(v);
      }
    }
  } else if (op == "Gather") {
    if (!need(2) || !Gather(*in[0], *in[1], node.Int("axis", 0), limit, &out)) return false;
  } else if (op == "Unsqueeze" || op == "Squeeze") {
    Dims axes;
    if (!need(1) || !AxesOf(graph, node, &axes)) return false;
    out = *in[0];
    if (op == "Squeeze") {
      Dims dims;
      std::set<std::int64_t> drop;
      for (std::int64_t a : axes) {
        std::int64_t axis;
        if (!NormaliseAxis(a, in[0]->dims.size(), &axis) || in[0]->dims[axis] != 1) return false;
        drop.insert(axis);
      }
      for (std::size_t k = 0; k < in[0]->dims.size(); ++k) {
        if (axes.empty() ? in[0]->dims[k] != 1 : !drop.count(static_cast<std::int64_t>(k))) {
          dims.push_back(in[0]->dims[k]);
        }
      }
      out.dims = dims;
    } else {
      const std::size_t rank = in[0]->dims.size() + axes.size();
      std::set<std::int64_t> add;
      for (std::int64_t a : axes) {
        std::int64_t axis;
        if (!NormaliseAxis(a, rank, &axis) || !add.insert(axis).second) return false;
      }
      Dims dims;
      std::size_t src = 0;
      for (std::size_t k = 0; k < rank; ++k) {
        dims.push_back(add.count(static_cast<std::int64_t>(k)) ? 1 : in[0]->dims[src++]);
      }
      out.dims = dims;
    }
  } else if (op == "Concat") {
    std::vector<const ConstTensor*> parts;
    for (const ConstTensor* c : in) {
      if (!c) return false;
      parts.push_back(c);
    }
    if (!Concat(parts, node.Int("axis", 0), limit, &out)) return false;
  } else if (op == "Slice") {
    if (!need(1)) return false;
    Dims starts, ends, axes, steps;
    if (graph.opset < 10) {
      starts = node.Ints("starts");
      ends = node.Ints("ends");
      axes = node.Ints("axes");
    } else {
      if (!need(3)) return false;
      starts = in[1]->Ints();
      ends = in[2]->Ints();
      if (in.size() > 3) {
        if (!node.Input(3).empty() && !in[3]) return false;
        if (in[3]) axes = in[3]->Ints();
      }
      if (in.size() > 4) {
        if (!node.Input(4).empty() && !in[4]) return false;
        if (in[4]) steps = in[4]->Ints();
      }
    }
    if (!Slice(*in[0], starts, ends, axes, steps, &out)) return false;
  } else if (op == "Reshape") {
    if (!need(2)) return false;
    Dims dims;
    if (!ReshapeDims(in[0]->dims, in[1]->Ints(), node.Int("allowzero", 0) != 0, &dims)) return false;
    out = *in[0];
    out.dims = dims;
  } else if (op == "Transpose") {
    if (!need(1) || !Transpose(*in[0], node.Ints("perm"), &out)) return false;
  } else if (op == "ConstantOfShape") {
    if (!need(1)) return false;
    const Dims dims = in[0]->Ints();
    const std::int64_t n = ElementCount(dims);
    if (n < 0 || n > limit) return false;
    ConstTensor value;
    value.f = {0.0f};
    auto it = node.attrs.find("value");
    if (it != node.attrs.end() && it->second.kind == Attribute::kTensor && it->second.t.size() == 1) {
      value = it->second.t;
    }
    out = Empty(value.type, dims);
    for (std::size_t k = 0; k < out.size(); ++k) CopyElement(value, 0, &out, k);
  } else if (op == "Range") {
    if (!need(3) || in[0]->size() != 1 || in[1]->size() != 1 || in[2]->size() != 1) return false;
    const double start = in[0]->At(0), limit_v = in[1]->At(0), delta = in[2]->At(0);
    if (delta == 0.0) return false;
    const double steps = std::ceil((limit_v - start) / delta);
    if (!(steps <= static_cast<double>(limit))) return false;
    const std::int64_t n = std::max<std::int64_t>(0, static_cast<std::int64_t>(steps));
    out = Empty(in[0]->type, {n});
    for (std::int64_t k = 0; k < n; ++k) {
      if (out.is_float()) {
        out.f[k] = static_cast<float>(start + k * delta);
      } else {
        out.i[k] = static_cast<std::int64_t>(start) + k * static_cast<std::int64_t>(delta);
      }
    }
  } else if (op == "Add" || op == "Sub" || op == "Mul" || op == "Div" || op == "Equal") {
    if (!need(2) || !Binary(*in[0], *in[1], op, limit, &out)) return false;
  } else if (op == "Where") {
    if (!need(3)) return false;
    Dims dims, both;
    if (!BroadcastDims(in[1]->dims, in[2]->dims, &both) || !BroadcastDims(in[0]->dims, both, &dims)) return false;
    const std::int64_t n = ElementCount(dims);
    if (n < 0 || n > limit) return false;
    out = Empty(in[1]->is_float() || in[2]->is_float() ? kOnnxFloat : in[1]->type, dims);
    Dims coords;
    for (std::int64_t k = 0; k < n; ++k) {
      Coordinates(k, dims, &coords);
      const bool take = in[0]->At(static_cast<std::size_t>(BroadcastOffset(in[0]->dims, dims, coords))) != 0.0;
      const ConstTensor* from = take ? in[1] : in[2];
      CopyElement(*from, static_cast<std::size_t>(BroadcastOffset(from->dims, dims, coords)), &out,
                  static_cast<std::size_t>(k));
    }
  } else if (op == "Expand") {
    if (!need(2)) return false;
    Dims dims;
    if (!BroadcastDims(in[0]->dims, in[1]->Ints(), &dims)) return false;
    const std::int64_t n = ElementCount(dims);
    if (n < 0 || n > limit) return false;
    const ConstTensor& data = *in[0];
    Remap(data, dims, &out, [&](const Dims& coords) { return BroadcastOffset(data.dims, dims, coords); });
  } else if (op == "Floor" || op == "Ceil" || op == "Sqrt" || op == "Neg") {
    if (!need(1)) return false;
    out = *in[0];
    for (std::size_t k = 0; k < out.size(); ++k) {
      if (out.is_float()) {
        float& v = out.f[k];
        v = op == "Floor" ? std::floor(v) : op == "Ceil" ? std::ceil(v) : op == "Sqrt" ? std::sqrt(v) : -v;
      } else if (op == "Neg") {
        out.i[k] = -out.i[k];
      } else if (op == "Sqrt") {
        return false;
      }
    }
  } else if (op == "ReduceProd") {
    if (!need(1)) return false;
    Dims axes = node.Ints("axes");
    if (!node.Has("axes") && !node.Input(1).empty()) {
      if (!need(2)) return false;
      axes = in[1]->Ints();
    }
    // Only the whole-tensor product that flatten exports use, keeping dims or not.
    if (!axes.empty() && axes.size() != in[0]->dims.size()) return false;
    double product = 1.0;
    for (std::size_t k = 0; k < in[0]->size(); ++k) product *= in[0]->At(k);
    out = Empty(in[0]->type, node.Int("keepdims", 1) ? Dims(in[0]->dims.size(), 1) : Dims());
    if (out.is_float()) {
      out.f[0] = static_cast<float>(product);
    } else {
      out.i[0] = static_cast<std::int64_t>(product);
    }
  } else {
    return false;
  }
  const std::int64_t count = ElementCount(out.dims);
  if (count < 0 || count > limit || static_cast<std::size_t>(count) != out.size()) return false;
  outputs->assign(1, std::move(out));
  return true;
}

void RenameValue(Graph* graph, const std::string& from, const std::string& to) {
  for (Node& node : graph->nodes) {
    for (std::string& in : node.inputs) {
      if (in == from) in = to;
    }
  }
  for (std::string& out : graph->outputs) {
    if (out == from) out = to;
  }
}

namespace {

// A node may be dropped in favour of its input when its output is not a graph
// output, or when that input is itself a value the graph output can name.
bool Bypass(Graph* graph, std::size_t n) {
  const Node node = graph->nodes[n];
  const std::string& in = node.Input(0);
  const std::string& out = node.Output(0);
  if (in.empty() || out.empty()) return false;
  for (std::size_t k = 1; k < node.outputs.size(); ++k) {
    if (!node.outputs[k].empty() && (!graph->Consumers(node.outputs[k]).empty() || graph->IsOutput(node.outputs[k]))) {
      return false;
    }
  }
  // A graph output that would become a graph input or a constant keeps its node.
  if (graph->IsOutput(out) &&
      (graph->IsConstant(in) || std::find(graph->inputs.begin(), graph->inputs.end(), in) != graph->inputs.end())) {
    return false;
  }
  graph->nodes.erase(graph->nodes.begin() + static_cast<std::ptrdiff_t>(n));
  RenameValue(graph, out, in);
  return true;
}

}  // namespace

void RemoveNoOps(Graph* graph, PassReport* report) {
  for (std::size_t n = 0; n < graph->nodes.size();) {
    const Node& node = graph->nodes[n];
    bool no_op = node.op == "Identity" || node.op == "Dropout";
    if (node.op == "Cast") {
      const ValueInfo* v = graph->Value(node.Input(0));
      no_op = v && IsFloatType(v->type) && IsFloatType(static_cast<std::int32_t>(node.Int("to", 0))) &&
              !graph->IsConstant(node.Input(0));
    }
    if (node.op == "Dropout" && graph->opset >= 12 && !node.Input(2).empty()) {
      // training_mode given: only a constant false keeps it a no-op.
      const ConstTensor* mode = graph->Constant(node.Input(2));
      no_op = mode && mode->size() == 1 && mode->At(0) == 0.0;
    }
    if (no_op && Bypass(graph, n)) {
      ++report->removed;
      continue;
    }
    ++n;
  }
}

void FoldConstants(Graph* graph, PassReport* report, std::int64_t max_elements) {
  for (std::size_t n = 0; n < graph->nodes.size();) {
    const Node& node = graph->nodes[n];
    bool all_constant = node.op == "Shape" || node.op == "Size";
    if (!all_constant && !node.inputs.empty()) {
      all_constant = true;
      for (const std::string& in : node.inputs) {
        if (!in.empty() && !graph->IsConstant(in)) all_constant = false;
      }
    }
    std::vector<ConstTensor> results;
    if (!all_constant || node.outputs.size() != 1 || graph->IsOutput(node.Output(0)) ||
        !EvaluateNode(*graph, node, &results, max_elements)) {
      ++n;
      continue;
    }
    const std::string out = node.Output(0);
    ValueInfo info;
    info.dims = results[0].dims;
    info.type = results[0].is_float() ? kOnnxFloat : results[0].type;
    info.known = true;
    graph->values[out] = info;
    graph->constants[out] = std::move(results[0]);
    graph->nodes.erase(graph->nodes.begin() + static_cast<std::ptrdiff_t>(n));
    ++report->folded;
  }
  // Constants nobody reads any more (the folded chains' inputs) are dropped.
  std::set<std::string> read(graph->outputs.begin(), graph->outputs.end());
  for (const Node& node : graph->nodes) read.insert(node.inputs.begin(), node.inputs.end());
  for (auto it = graph->constants.begin(); it != graph->constants.end();) {
    it = read.count(it->first) ? std::next(it) : graph->constants.erase(it);
  }
}

void FoldPadding(Graph* graph, PassReport* report) {
  for (std::size_t n = 0; n < graph->nodes.size();) {
    const Node& pad = graph->nodes[n];
    if (pad.op != "Pad" || pad.String("mode", "constant") != "constant") {
      ++n;
      continue;
    }
    Dims pads = pad.Ints("pads");
    float value = pad.Float("value", 0.0f);
    bool known = graph->opset < 11;
    if (!known) {
      const ConstTensor* p = graph->Constant(pad.Input(1));
      const ConstTensor* v = pad.Input(2).empty() ? nullptr : graph->Constant(pad.Input(2));
      known = p && (pad.Input(2).empty() || (v && v->size() == 1)) && pad.Input(3).empty();
      if (known) {
        pads = p->Ints();
        if (v) value = static_cast<float>(v->At(0));
      }
    }
    const ValueInfo* x = graph->Value(pad.Input(0));
    if (!known || value != 0.0f || !x || !x->known || (x->dims.size() != 3 && x->dims.size() != 4) ||
        pads.size() != 2 * x->dims.size()) {
      ++n;
      continue;
    }
    const std::size_t rank = x->dims.size();
    bool spatial_only = true, nothing = true;
    for (std::size_t k = 0; k < 2 * rank; ++k) {
      if (pads[k] < 0 || (k % rank < 2 && pads[k] != 0)) spatial_only = false;
      if (pads[k] != 0) nothing = false;
    }
    if (nothing && Bypass(graph, n)) {
      ++report->pads;
      continue;
    }
    const auto readers = graph->Consumers(pad.Output(0));
    if (!spatial_only || readers.size() != 1 || graph->IsOutput(pad.Output(0))) {
      ++n;
      continue;
    }
    Node& next = graph->nodes[readers[0]];
    const bool conv = next.op == "Conv";
    const bool avg = next.op == "AveragePool";
    const std::size_t spatial = rank - 2;
    Dims own = next.Has("pads") ? next.Ints("pads") : Dims(2 * spatial, 0);
    bool own_zero = true;
    for (std::int64_t v : own) own_zero = own_zero && v == 0;
    if ((!conv && !avg) || next.Input(0) != pad.Output(0) || next.String("auto_pad", "NOTSET") != "NOTSET" ||
        own.size() != 2 * spatial || (avg && !own_zero && next.Int("count_include_pad", 0) == 0)) {
      ++n;
      continue;
    }
    for (std::size_t k = 0; k < spatial; ++k) {
      own[k] += pads[2 + k];
      own[spatial + k] += pads[rank + 2 + k];
    }
    next.attrs["pads"].kind = Attribute::kInts;
    next.attrs["pads"].ints = own;
    if (avg) {
      // The zeros the Pad added were counted: so is the padding now.
      next.attrs["count_include_pad"].kind = Attribute::kInt;
      next.attrs["count_include_pad"].i = 1;
    }
    next.inputs[0] = pad.Input(0);
    graph->nodes.erase(graph->nodes.begin() + static_cast<std::ptrdiff_t>(n));
    ++report->pads;
  }
}

void CanonicaliseArithmetic(Graph* graph) {
  int serial = 0;
  for (Node& node : graph->nodes) {
    if ((node.op != "Sub" && node.op != "Div") || node.inputs.size() != 2) continue;
    const ConstTensor* c = graph->Constant(node.inputs[1]);
    if (!c || !c->is_float() || graph->IsConstant(node.inputs[0])) continue;
    ConstTensor flipped = *c;
    for (float& v : flipped.f) v = node.op == "Sub" ? -v : 1.0f / v;
    const std::string name = node.inputs[1] + (node.op == "Sub" ? "_negated" : "_reciprocal") + std::to_string(serial++);
    graph->constants[name] = flipped;
    ValueInfo info;
    info.dims = flipped.dims;
    info.type = kOnnxFloat;
    info.known = true;
    graph->values[name] = info;
    node.inputs[1] = name;
    node.op = node.op == "Sub" ? "Add" : "Mul";
  }
}

namespace {

// The per-output-channel values of `c` for a layer of `channels` outputs whose
// output has `rank` dims with channels at axis 1 (scalars repeat); false when
// `c` varies along any other axis.
bool PerChannel(const ConstTensor& c, std::int64_t channels, std::size_t rank, std::vector<float>* values) {
  if (!c.is_float() || c.dims.size() > rank) return false;
  const std::size_t shift = rank - c.dims.size();
  std::int64_t varying = -1;
  for (std::size_t k = 0; k < c.dims.size(); ++k) {
    if (c.dims[k] == 1) continue;
    if (k + shift != 1 || c.dims[k] != channels) return false;
    varying = static_cast<std::int64_t>(k);
  }
  values->resize(static_cast<std::size_t>(channels));
  for (std::int64_t m = 0; m < channels; ++m) (*values)[m] = varying < 0 ? c.f[0] : c.f[m];
  return true;
}

// The weighted layer whose output `value` is, when nothing else reads it:
// its node index, output-channel count and how its weight is laid out.
struct Weighted {
  std::size_t node = 0;
  std::int64_t channels = 0;
  std::string weight, bias;  // constant names (bias may be "")
};

bool FindWeighted(const Graph& graph, const std::string& value, Weighted* w) {
  const std::int64_t p = graph.Producer(value);
  if (p < 0 || graph.IsOutput(value) || graph.Consumers(value).size() != 1) return false;
  const Node& node = graph.nodes[p];
  const ConstTensor* weight = graph.Constant(node.Input(1));
  if (!weight || !weight->is_float()) return false;
  if (!node.Input(2).empty()) {
    const ConstTensor* bias = graph.Constant(node.Input(2));
    if (!bias || !bias->is_float()) return false;
  }
  w->node = static_cast<std::size_t>(p);
  w->weight = node.Input(1);
  w->bias = node.Input(2);
  if (node.op == "Conv") {
    if (weight->dims.empty()) return false;
    w->channels = weight->dims[0];
  } else if (node.op == "ConvTranspose") {
    if (weight->dims.size() < 2) return false;
    w->channels = weight->dims[1] * node.Int("group", 1);
  } else if (node.op == "Gemm") {
    if (weight->dims.size() != 2 || node.Int("transA", 0) != 0) return false;
    w->channels = node.Int("transB", 0) ? weight->dims[0] : weight->dims[1];
    if (!w->bias.empty()) {
      // Gemm's C broadcasts to [M, N]; only a per-column (or scalar) C folds.
      const ConstTensor* c = graph.Constant(w->bias);
      std::vector<float> ignored;
      if (!PerChannel(*c, w->channels, 2, &ignored)) return false;
    }
  } else {
    return false;
  }
  return w->channels > 0;
}

// Scales output channel m of the weight by scale[m] and sets the bias to
// bias * scale + shift, writing new constants (the old may be shared).
void Refold(Graph* graph, const Weighted& w, const std::vector<float>& scale, const std::vector<float>& shift,
            int serial) {
  Node& node = graph->nodes[w.node];
  ConstTensor weight = *graph->Constant(w.weight);
  const std::int64_t m_count = w.channels;
  const std::size_t total = weight.f.size();
  if (node.op == "Conv") {
    const std::size_t per = total / static_cast<std::size_t>(m_count);
    for (std::size_t k = 0; k < total; ++k) weight.f[k] *= scale[k / per];
  } else if (node.op == "ConvTranspose") {
    // [C_in, M/g, kH, kW]: output channel g * M/g + m of group g.
    const std::int64_t groups = node.Int("group", 1);
    const std::int64_t per_group = weight.dims[1];
    const std::size_t taps = total / static_cast<std::size_t>(weight.dims[0] * per_group);
    const std::int64_t in_per_group = weight.dims[0] / groups;
    for (std::size_t k = 0; k < total; ++k) {
      const std::int64_t ci = static_cast<std::int64_t>(k / (taps * per_group));
      const std::int64_t m = static_cast<std::int64_t>((k / taps) % per_group);
      weight.f[k] *= scale[(ci / in_per_group) * per_group + m];
    }
  } else {  // Gemm
    const bool trans_b = node.Int("transB", 0) != 0;
    const std::int64_t cols = weight.dims[1];
    for (std::size_t k = 0; k < total; ++k) {
      weight.f[k] *= scale[trans_b ? k / cols : k % cols];
    }
  }
  std::vector<float> bias(static_cast<std::size_t>(m_count), 0.0f);
  if (!w.bias.empty()) {
    const ConstTensor& b = *graph->Constant(w.bias);
    const std::size_t rank = node.op == "Gemm" ? 2 : b.dims.size() == 1 ? 1 : b.dims.size();
    std::vector<float> values;
    if (node.op == "Gemm") {
      PerChannel(b, m_count, rank, &values);
      const float beta = node.Float("beta", 1.0f);
      for (float& v : values) v *= beta;
    } else {
      values = b.f;
    }
    bias = values;
  }
  for (std::int64_t m = 0; m < m_count; ++m) bias[m] = bias[m] * scale[m] + shift[m];
  if (node.op == "Gemm") {
    // alpha scales the product only: move it into the weight, beta is now folded in.
    const float alpha = node.Float("alpha", 1.0f);
    for (float& v : weight.f) v *= alpha;
    node.attrs["alpha"].kind = Attribute::kFloat;
    node.attrs["alpha"].f = 1.0f;
    node.attrs["beta"].kind = Attribute::kFloat;
    node.attrs["beta"].f = 1.0f;
  }
  const std::string wname = node.name + "_folded_weight" + std::to_string(serial);
  const std::string bname = node.name + "_folded_bias" + std::to_string(serial);
  ConstTensor b;
  b.type = kOnnxFloat;
  b.dims = {m_count};
  b.f = bias;
  graph->constants[wname] = weight;
  graph->constants[bname] = b;
  for (const auto* name : {&wname, &bname}) {
    ValueInfo info;
    info.dims = graph->constants[*name].dims;
    info.type = kOnnxFloat;
    info.known = true;
    graph->values[*name] = info;
  }
  node.inputs.resize(3);
  node.inputs[1] = wname;
  node.inputs[2] = bname;
}

}  // namespace

void FoldIntoWeights(Graph* graph, PassReport* report) {
  int serial = 0;
  for (std::size_t n = 0; n < graph->nodes.size();) {
    const Node node = graph->nodes[n];
    Weighted w;
    std::vector<float> scale, shift;
    bool fold = false;
    if (node.op == "BatchNormalization" && node.outputs.size() >= 1 && FindWeighted(*graph, node.Input(0), &w)) {
      bool extra_outputs = false;
      for (std::size_t k = 1; k < node.outputs.size(); ++k) {
        if (!node.outputs[k].empty() && (!graph->Consumers(node.outputs[k]).empty() || graph->IsOutput(node.outputs[k]))) {
          extra_outputs = true;
        }
      }
      const ConstTensor* s = graph->Constant(node.Input(1));
      const ConstTensor* b = graph->Constant(node.Input(2));
      const ConstTensor* mean = graph->Constant(node.Input(3));
      const ConstTensor* var = graph->Constant(node.Input(4));
      const auto m = static_cast<std::size_t>(w.channels);
      if (!extra_outputs && s && b && mean && var && s->is_float() && b->is_float() && mean->is_float() &&
          var->is_float() && s->f.size() == m && b->f.size() == m && mean->f.size() == m && var->f.size() == m &&
          node.Int("training_mode", 0) == 0) {
        const float eps = node.Float("epsilon", 1e-5f);
        scale.resize(m);
        shift.resize(m);
        for (std::size_t k = 0; k < m; ++k) {
          scale[k] = s->f[k] / std::sqrt(var->f[k] + eps);
          shift[k] = b->f[k] - mean->f[k] * scale[k];
        }
        fold = true;
        if (fold) ++report->batch_norms;
      }
    } else if ((node.op == "Mul" || node.op == "Add") && node.inputs.size() == 2) {
      for (int side = 0; side < 2 && !fold; ++side) {
        const ConstTensor* c = graph->Constant(node.inputs[1 - side]);
        if (!c || !FindWeighted(*graph, node.inputs[side], &w)) continue;
        const ValueInfo* v = graph->Value(node.inputs[side]);
        const ValueInfo* o = graph->Value(node.Output(0));
        std::vector<float> values;
        // The constant must not widen the result (a broadcast onto more dims).
        if (!v || !o || !v->known || !o->known || v->dims != o->dims ||
            !PerChannel(*c, w.channels, v->dims.size(), &values)) {
          continue;
        }
        scale.assign(values.size(), 1.0f);
        shift.assign(values.size(), 0.0f);
        if (node.op == "Mul") {
          scale = values;
        } else {
          shift = values;
        }
        fold = true;
        ++report->affine;
      }
    }
    if (!fold) {
      ++n;
      continue;
    }
    Refold(graph, w, scale, shift, serial++);
    const std::string produced = graph->nodes[w.node].Output(0);
    const std::string out = node.Output(0);
    graph->nodes.erase(graph->nodes.begin() + static_cast<std::ptrdiff_t>(n));
    RenameValue(graph, out, produced);
    graph->values[produced] = graph->values[out];
  }
}

void FuseHardSwish(Graph* graph, PassReport* report) {
  for (std::size_t n = 0; n < graph->nodes.size(); ++n) {
    Node& mul = graph->nodes[n];
    if (mul.op != "Mul" || mul.inputs.size() != 2) continue;
    for (int side = 0; side < 2; ++side) {
      const std::int64_t p = graph->Producer(mul.inputs[side]);
      if (p < 0) continue;
      const Node& hs = graph->nodes[p];
      if (hs.op != "HardSigmoid" || hs.Input(0) != mul.inputs[1 - side]) continue;
      if (std::fabs(hs.Float("alpha", 0.2f) - 1.0f / 6.0f) > 1e-6f || std::fabs(hs.Float("beta", 0.5f) - 0.5f) > 1e-6f) {
        continue;
      }
      if (graph->Consumers(hs.Output(0)).size() != 1 || graph->IsOutput(hs.Output(0))) continue;
      const std::string x = hs.Input(0);
      mul.op = "HardSwish";
      mul.inputs = {x};
      mul.attrs.clear();
      graph->nodes.erase(graph->nodes.begin() + p);
      ++report->hard_swish;
      if (static_cast<std::size_t>(p) < n) --n;
      break;
    }
  }
}

}  // namespace convert
}  // namespace tarn
