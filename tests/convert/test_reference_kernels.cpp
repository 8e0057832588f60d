// The records written for operators whose library kernels have not all
// landed, checked against PyTorch through small scalar reference kernels that
// exist only in this test (each follows the meaning the record's convention
// gives it). They are registered into a converter of their own under the
// names the planner looks for; a library kernel of the same name registered
// first takes their place, so these checks keep running once the real
// kernels land.
#include <algorithm>
#include <cmath>

#include "convert/convert_test_util.h"
#include "tarn/kernel/kernel_base.h"
#include "tarn/runtime/net.h"

namespace tarn {
namespace testing {
namespace {

using runtime::LayerInfo;
using runtime::Tensor;
using runtime::TensorShape;
using Tensors = std::vector<std::shared_ptr<Tensor>>;

// A reference kernel: the record type it takes and its output from the inputs.
class ReferenceKernel : public kernel::KernelBase {
 public:
  using Compute = std::function<bool(const LayerInfo&, const Tensors&, std::vector<unsigned>*, std::vector<float>*)>;
  ReferenceKernel(std::string name, std::uint16_t type, Compute compute)
      : name_(std::move(name)), type_(type), compute_(std::move(compute)) {}
  std::string GetName() const override { return name_; }
  std::int32_t IsValidParam(std::shared_ptr<LayerInfo> layer, std::shared_ptr<runtime::InferenceParam>) const override {
    return layer && layer->type == type_ ? 0 : -1;
  }
  bool Config(std::shared_ptr<LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context>) override {
    record_ = layer;
    return configured_ = IsValidParam(layer, param) == 0;
  }
  std::int32_t IsValidInput(const Tensors& inputs) const override { return kernel::CheckFloatTensors(inputs, -1); }
  std::vector<TensorShape> GetOutputShapes(const std::vector<TensorShape>& inputs) const override {
    // Shapes come from a run on zeros of the input shapes.
    Tensors zeros;
    std::vector<std::vector<float>> storage(inputs.size());
    for (std::size_t k = 0; k < inputs.size(); ++k) {
      storage[k].assign(inputs[k].ElementCount(), 0.0f);
      zeros.push_back(std::make_shared<runtime::TensorCPU>(
          inputs[k], std::shared_ptr<void>(storage[k].data(), [](void*) {}), nullptr));
    }
    std::vector<unsigned> dims;
    std::vector<float> out;
    if (!compute_(*record_, zeros, &dims, &out)) return {};
    return {runtime::MakeShape(dims)};
  }
  bool Forward(const Tensors& inputs, Tensors& outputs, std::shared_ptr<runtime::Context> ctx) const override {
    std::vector<unsigned> dims;
    std::vector<float> out;
    if (!compute_(*record_, inputs, &dims, &out)) return false;
    outputs.assign(1, ctx->cpu->CreateTensor(runtime::MakeShape(dims), out.data()));
    return true;
  }

 private:
  std::string name_;
  std::uint16_t type_;
  Compute compute_;
  std::shared_ptr<LayerInfo> record_;
};

const float* Data(const std::shared_ptr<Tensor>& t) { return static_cast<const float*>(t->Data()); }

std::vector<unsigned> Strides(const std::vector<unsigned>& dims) {
  std::vector<unsigned> s(dims.size(), 1);
  for (std::size_t k = dims.size(); k-- > 1;) s[k - 1] = s[k] * dims[k];
  return s;
}

float Sigmoid(float x) { return 1.0f / (std::exp(-x) + 1.0f); }

// W v + b for a row-major [rows, cols] weight.
std::vector<float> Affine(const std::vector<float>& w, const std::vector<float>& b, const float* v, std::size_t rows,
                          std::size_t cols) {
  std::vector<float> out(rows);
  for (std::size_t r = 0; r < rows; ++r) {
    float acc = b.empty() ? 0.0f : b[r];
    for (std::size_t c = 0; c < cols; ++c) acc += w[r * cols + c] * v[c];
    out[r] = acc;
  }
  return out;
}

// A whole recurrent stack over an [S, I] sequence: all steps of the last
// layer, [forward, reverse] features per step.
bool Recurrent(const LayerInfo& info, const Tensors& in, std::vector<unsigned>* dims, std::vector<float>* out) {
  const auto& r = dynamic_cast<const runtime::RecurrentStack&>(info);
  const int gates = info.type == runtime::LAYER_LSTM ? 4 : info.type == runtime::LAYER_GRU ? 3 : 1;
  std::uint16_t act = 5;
  if (auto* rnn = dynamic_cast<const runtime::RNNInfo*>(&info)) act = rnn->activation_type;
  const auto& d = in[0]->shape.dims;
  if (d.size() != 2 || d[1] != r.in_size) return false;
  const std::size_t steps = d[0], h = r.hidden_size, dirs = r.bidirectional ? 2 : 1;
  std::vector<float> seq(Data(in[0]), Data(in[0]) + steps * d[1]);
  std::size_t width = d[1];
  for (std::size_t layer = 0; layer < r.num_layers; ++layer) {
    std::vector<float> next(steps * dirs * h);
    for (std::size_t dir = 0; dir < dirs; ++dir) {
      auto blob = [&](const std::vector<std::string>& f, const std::vector<std::string>& b) {
        return runtime::DecodeWeights((dir ? b : f).at(layer));
      };
      const auto wih = blob(r.weight_ih_forward, r.weight_ih_reverse);
      const auto whh = blob(r.weight_hh_forward, r.weight_hh_reverse);
      const auto bih = blob(r.bias_ih_forward, r.bias_ih_reverse);
      const auto bhh = blob(r.bias_hh_forward, r.bias_hh_reverse);
      if (wih.size() != gates * h * width || whh.size() != gates * h * h) return false;
      std::vector<float> state(h, 0.0f), cell(h, 0.0f);
      for (std::size_t n = 0; n < steps; ++n) {
        const std::size_t t = dir ? steps - 1 - n : n;
        const auto gi = Affine(wih, bih, &seq[t * width], gates * h, width);
        const auto gh = Affine(whh, bhh, state.data(), gates * h, h);
        for (std::size_t j = 0; j < h; ++j) {
          if (gates == 4) {
            const float i = Sigmoid(gi[j] + gh[j]), f = Sigmoid(gi[h + j] + gh[h + j]);
            const float g = std::tanh(gi[2 * h + j] + gh[2 * h + j]), o = Sigmoid(gi[3 * h + j] + gh[3 * h + j]);
            cell[j] = f * cell[j] + i * g;
            state[j] = o * std::tanh(cell[j]);
          } else if (gates == 3) {
            const float rr = Sigmoid(gi[j] + gh[j]), z = Sigmoid(gi[h + j] + gh[h + j]);
            const float nn = std::tanh(gi[2 * h + j] + rr * gh[2 * h + j]);
            state[j] = nn - z * (nn - state[j]);
          } else {
            const float s = gi[j] + gh[j];
            state[j] = act == 2 ? std::max(s, 0.0f) : std::tanh(s);
          }
        }
        std::copy(state.begin(), state.end(), next.begin() + t * dirs * h + dir * h);
      }
    }
    seq.swap(next);
    width = dirs * h;
  }
  *dims = {static_cast<unsigned>(steps), static_cast<unsigned>(width)};
  *out = seq;
  return true;
}

bool Concatenate(const LayerInfo& info, const Tensors& in, std::vector<unsigned>* dims, std::vector<float>* out) {
  const std::size_t dim = static_cast<const runtime::ConcatenateInfo&>(info).dim;
  *dims = in[0]->shape.dims;
  if (dim >= dims->size()) return false;
  (*dims)[dim] = 0;
  for (const auto& t : in) (*dims)[dim] += t->shape.dims[dim];
  std::size_t outer = 1;
  for (std::size_t k = 0; k < dim; ++k) outer *= (*dims)[k];
  out->clear();
  for (std::size_t o = 0; o < outer; ++o) {
    for (const auto& t : in) {
      const std::size_t run = t->shape.ElementCount() / outer;
      out->insert(out->end(), Data(t) + o * run, Data(t) + (o + 1) * run);
    }
  }
  return true;
}

bool Reshape(const LayerInfo& info, const Tensors& in, std::vector<unsigned>* dims, std::vector<float>* out) {
  const auto& shape = static_cast<const runtime::TensorReshapeInfo&>(info).new_shape;
  const std::size_t count = in[0]->shape.ElementCount();
  std::size_t known = 1;
  int infer = -1;
  dims->clear();
  for (std::size_t k = 0; k < shape.size(); ++k) {
    unsigned d = shape[k] == 0 ? in[0]->shape.dims.at(k) : static_cast<unsigned>(std::max<short>(shape[k], 0));
    if (shape[k] == -1) infer = static_cast<int>(k), d = 1;
    dims->push_back(d);
    known *= d;
  }
  if (infer >= 0) (*dims)[infer] = static_cast<unsigned>(count / known);
  out->assign(Data(in[0]), Data(in[0]) + count);
  return true;
}

bool Transpose(const LayerInfo& info, const Tensors& in, std::vector<unsigned>* dims, std::vector<float>* out) {
  const auto& axes = static_cast<const runtime::TensorTransposeInfo&>(info).axes;
  const auto& d = in[0]->shape.dims;
  if (axes.size() != d.size()) return false;
  std::vector<unsigned> a(axes.begin(), axes.end());
  dims->clear();
  for (unsigned x : a) dims->push_back(d.at(x));
  out->assign(in[0]->shape.ElementCount(), 0.0f);
  runtime::TransposeRaw(Data(in[0]), out->data(), d, a, sizeof(float));
  return true;
}

bool SqueezeOrUnsqueeze(const LayerInfo& info, const Tensors& in, std::vector<unsigned>* dims,
                        std::vector<float>* out) {
  *dims = in[0]->shape.dims;
  const int rank = static_cast<int>(dims->size());
  if (info.type == runtime::LAYER_TENSOR_UNSQUEEZE) {
    int dim = static_cast<const runtime::TensorUnSqueezeInfo&>(info).dim;
    if (dim < 0) dim += rank + 1;
    dims->insert(dims->begin() + dim, 1u);
  } else {
    int dim = static_cast<const runtime::TensorSqueezeInfo&>(info).dim;
    if (dim < 0) dim += rank;
    if ((*dims)[dim] == 1) dims->erase(dims->begin() + dim);
  }
  out->assign(Data(in[0]), Data(in[0]) + in[0]->shape.ElementCount());
  return true;
}

bool Slice(const LayerInfo& info, const Tensors& in, std::vector<unsigned>* dims, std::vector<float>* out) {
  const auto& s = static_cast<const runtime::TensorSliceInfo&>(info).slice_dims;
  const auto& d = in[0]->shape.dims;
  std::vector<unsigned> first(d.size(), 0), step(d.size(), 1);
  *dims = d;
  for (std::size_t g = 0; g + 3 < s.size(); g += 4) {
    const int axis = s[g] < 0 ? s[g] + static_cast<int>(d.size()) : s[g];
    const int extent = static_cast<int>(d[axis]);
    int b = s[g + 1] < 0 ? s[g + 1] + extent : s[g + 1];
    int e = s[g + 2] == 32767 ? extent : (s[g + 2] < 0 ? s[g + 2] + extent : s[g + 2]);
    b = std::clamp(b, 0, extent);
    e = std::clamp(e, 0, extent);
    first[axis] = static_cast<unsigned>(b);
    step[axis] = static_cast<unsigned>(s[g + 3]);
    (*dims)[axis] = e > b ? static_cast<unsigned>((e - b + s[g + 3] - 1) / s[g + 3]) : 0;
  }
  const auto in_strides = Strides(d), out_strides = Strides(*dims);
  std::size_t n = 1;
  for (unsigned x : *dims) n *= x;
  out->resize(n);
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t src = 0, rest = k;
    for (std::size_t a = 0; a < dims->size(); ++a) {
      const std::size_t c = rest / out_strides[a];
      rest %= out_strides[a];
      src += (first[a] + c * step[a]) * in_strides[a];
    }
    (*out)[k] = Data(in[0])[src];
  }
  return true;
}

bool Softmax(const LayerInfo& info, const Tensors& in, std::vector<unsigned>* dims, std::vector<float>* out) {
  const std::size_t dim = static_cast<const runtime::SoftmaxInfo&>(info).dim;
  *dims = in[0]->shape.dims;
  if (dim >= dims->size()) return false;
  const auto strides = Strides(*dims);
  out->assign(Data(in[0]), Data(in[0]) + in[0]->shape.ElementCount());
  const std::size_t extent = (*dims)[dim], stride = strides[dim];
  for (std::size_t base = 0; base < out->size(); ++base) {
    if ((base / stride) % extent != 0) continue;
    float top = -INFINITY, sum = 0.0f;
    for (std::size_t j = 0; j < extent; ++j) top = std::max(top, (*out)[base + j * stride]);
    for (std::size_t j = 0; j < extent; ++j) sum += ((*out)[base + j * stride] = std::exp((*out)[base + j * stride] - top));
    for (std::size_t j = 0; j < extent; ++j) (*out)[base + j * stride] /= sum;
  }
  return true;
}

void RegisterReferences(runtime::KernelRegistry& registry) {
  auto add = [&](const std::string& name, std::uint16_t type, ReferenceKernel::Compute fn) {
    registry.Register(name, [=] { return std::make_shared<ReferenceKernel>(name, type, fn); }, false);
  };
  add("LSTM_Fallback_SC_F32_M1", runtime::LAYER_LSTM, Recurrent);
  add("GRU_Fallback_SC_F32_M1", runtime::LAYER_GRU, Recurrent);
  add("RNN_Fallback_SC_F32_M1", runtime::LAYER_RNN, Recurrent);
  add("Concatenate_Fallback_Float_M1", runtime::LAYER_CONCATENATE, Concatenate);
  add("TensorReshape_Fallback_Float_M1", runtime::LAYER_TENSOR_RESHAPE, Reshape);
  add("TensorTranspose_Fallback_Float_M1", runtime::LAYER_TENSOR_TRANSPOSE, Transpose);
  add("TensorSqueeze_Fallback_Float_M1", runtime::LAYER_TENSOR_SQUEEZE, SqueezeOrUnsqueeze);
  add("TensorUnSqueeze_Fallback_Float_M1", runtime::LAYER_TENSOR_UNSQUEEZE, SqueezeOrUnsqueeze);
  add("TensorSlice_Fallback_Float_M1", runtime::LAYER_TENSOR_SLICE, Slice);
  add("Softmax_Fallback_Float_M1", runtime::LAYER_SOFTMAX, Softmax);
}

class RecordsThroughReferenceKernels : public ::testing::TestWithParam<std::string> {};

TEST_P(RecordsThroughReferenceKernels, MatchPyTorch) {
  static convert::Planner* planner = [] {
    auto* p = new convert::Planner();
    RegisterReferences(p->registry());
    return p;
  }();
  OnnxFixture f;
  ASSERT_TRUE(LoadFixture(GetParam(), &f));
  convert::ConvertOptions options = OptionsFor(convert::Target::kFallback);
  convert::ConvertResult r;
  ASSERT_TRUE(convert::ConvertOnnx(f.onnx.data(), f.onnx.size(), options, *planner, &r))
      << convert::FormatProblems(r.problems);
  auto net = runtime::CreateNet(convert::Planner::ModelInfo(r.model, "net"), convert::Planner::ModelCfg(r.plan),
                                planner->registry(), planner->context());
  ASSERT_NE(net, nullptr);
  runtime::TensorMap inputs;
  for (const FixtureTensor& in : f.inputs) {
    const convert::MappedLayer* layer = r.model.Find(in.name);
    ASSERT_NE(layer, nullptr);
    inputs[static_cast<std::uint32_t>(net->IndexOf(in.name))] =
        planner->context()->cpu->CreateTensor(runtime::MakeShape(layer->dims), in.data.data());
  }
  const std::uint32_t output = static_cast<std::uint32_t>(net->IndexOf(r.model.output_ids.at(0)));
  const auto out = net->Forward(inputs, {output}, planner->context());
  ASSERT_EQ(out.count(output), 1u) << "the forward pass failed";
  EXPECT_TRUE(CloseToReference(*out.at(output)[0], f.outputs[0], 1e-4f)) << convert::PlanTable(r.plan);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, RecordsThroughReferenceKernels,
                         ::testing::Values("lstm_2layer", "lstm_batch_first", "gru_bidirectional", "rnn_relu",
                                           "arch_lstm", "arch_gru_bidirectional", "concat", "arch_squeezenet",
                                           "reshape", "transpose", "squeeze_unsqueeze", "slice", "softmax"));

}  // namespace
}  // namespace testing
}  // namespace tarn
