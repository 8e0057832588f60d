#include "kernel/cpu/fallback/recurrent/recurrent_base.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <functional>

#include "kernel/cpu/fallback/recurrent/recurrent.h"
#include "kernel/cpu/sgemm/recurrent/recurrent.h"
#include "kernel/cpu/sse/recurrent/recurrent.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

namespace {

// The fields of a recurrent record, whichever of the six it is.
struct RecordView {
  std::uint32_t in = 0, hidden = 0, layers = 1, activation = 0, complex = 0;
  bool bias = false, bidirectional = false;
  const runtime::RecurrentCell* cell = nullptr;    // a cell record
  const runtime::RecurrentStack* stack = nullptr;  // a stacked record
};

template <typename Record>
const Record* As(const runtime::LayerInfo* layer) {
  return dynamic_cast<const Record*>(layer);
}

void ReadCell(const runtime::RecurrentCell& c, RecordView* v) {
  v->cell = &c;
  v->in = c.in_size;
  v->hidden = c.hidden_size;
  v->bias = c.if_bias;
}

void ReadStack(const runtime::RecurrentStack& s, RecordView* v) {
  v->stack = &s;
  v->in = s.in_size;
  v->hidden = s.hidden_size;
  v->bias = s.if_bias;
  v->layers = s.num_layers;
  v->bidirectional = s.bidirectional;
  v->complex = s.complex_rnn_type;
}

// False when `layer` is not the record of this kind and form.
bool View(recurrent::CellKind kind, bool cell, const runtime::LayerInfo* layer, RecordView* v) {
  using recurrent::CellKind;
  switch (kind) {
    case CellKind::kRNN:
      if (cell) {
        const auto* r = As<runtime::RNNCellInfo>(layer);
        if (!r) return false;
        ReadCell(*r, v);
        v->activation = r->activation_type;
      } else {
        const auto* r = As<runtime::RNNInfo>(layer);
        if (!r) return false;
        ReadStack(*r, v);
        v->activation = r->activation_type;
      }
      return true;
    case CellKind::kLSTM:
      if (cell) {
        const auto* r = As<runtime::LSTMCellInfo>(layer);
        if (r) ReadCell(*r, v);
        return r != nullptr;
      } else {
        const auto* r = As<runtime::LSTMInfo>(layer);
        if (r) ReadStack(*r, v);
        return r != nullptr;
      }
    case CellKind::kGRU:
      if (cell) {
        const auto* r = As<runtime::GRUCellInfo>(layer);
        if (r) ReadCell(*r, v);
        return r != nullptr;
      } else {
        const auto* r = As<runtime::GRUInfo>(layer);
        if (r) ReadStack(*r, v);
        return r != nullptr;
      }
  }
  return false;
}

const char* RecordName(recurrent::CellKind kind, bool cell) {
  using recurrent::CellKind;
  switch (kind) {
    case CellKind::kRNN:
      return cell ? "RNNCellInfo" : "RNNInfo";
    case CellKind::kLSTM:
      return cell ? "LSTMCellInfo" : "LSTMInfo";
    case CellKind::kGRU:
      return cell ? "GRUCellInfo" : "GRUInfo";
  }
  return "";
}

}  // namespace

recurrent::CellWeights RecurrentKernelBase::PrivateMembers::Cell::Weights(std::uint32_t hidden) const {
  return {weight_ih->DataAs<float>(),
          weight_hh->DataAs<float>(),
          bias_ih ? bias_ih->DataAs<float>() : nullptr,
          bias_hh ? bias_hh->DataAs<float>() : nullptr,
          in,
          hidden};
}

constexpr char kOtherRecord[] = "the layer record is of another type";

const char* RecurrentKernelBase::RecordProblem(const std::shared_ptr<runtime::LayerInfo>& layer) const {
  RecordView v;
  if (!layer || !View(kind_, form_ == Form::kCell, layer.get(), &v)) return kOtherRecord;
  if (v.in == 0 || v.hidden == 0) return "\"in_size\" and \"hidden_size\" must not be 0";
  if (v.stack && v.layers == 0) return "\"num_layers\" must not be 0";
  if (v.complex != 0) return "\"complex_rnn_type\" other than 0 is not a kind of stack this kernel knows";
  if (kind_ == CellKind::kRNN && v.activation != functional::kRNNActivationReLU &&
      v.activation != functional::kRNNActivationTanh) {
    return "\"activation_type\" must be 2 (ReLU) or 5 (tanh)";
  }
  return nullptr;
}

std::int32_t RecurrentKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                               std::shared_ptr<runtime::InferenceParam>) const {
  return RecordProblem(layer) ? kInvalidParam : kValid;
}

bool RecurrentKernelBase::DecodeCell(const std::string& w_ih, const std::string& w_hh, const std::string& b_ih,
                                     const std::string& b_hh, std::uint32_t in, const char* where,
                                     runtime::DeviceCPU& device, PrivateMembers::Cell* cell) {
  const std::uint32_t rows = recurrent::GateCount(kind_) * hidden_;
  struct Blob {
    const char* key;
    const std::string* text;
    std::uint32_t rows, cols;  // cols 0: a bias vector
    std::shared_ptr<runtime::TensorCPU>* into;
  };
  const Blob blobs[] = {{"weight_ih", &w_ih, rows, in, &cell->weight_ih},
                        {"weight_hh", &w_hh, rows, hidden_, &cell->weight_hh},
                        {"bias_ih", &b_ih, rows, 0, &cell->bias_ih},
                        {"bias_hh", &b_hh, rows, 0, &cell->bias_hh}};
  for (const Blob& b : blobs) {
    if (b.cols == 0 && !has_bias_) continue;
    const std::vector<float> values = runtime::DecodeWeights(*b.text);
    const std::uint64_t want = std::uint64_t(b.rows) * (b.cols == 0 ? 1 : b.cols);
    if (values.size() != want) {
      utility::Log(utility::kLogError, "%s: \"%s\" of %s holds %zu floats, the sizes need %llu.", GetName().c_str(),
                   b.key, where, values.size(), static_cast<unsigned long long>(want));
      return false;
    }
    *b.into = device.CreateTensor(b.cols == 0 ? runtime::MakeShape({b.rows}) : runtime::MakeShape({b.rows, b.cols}),
                                  values.data());
  }
  cell->in = in;
  cell->h.assign(hidden_, 0.0f);
  if (kind_ == CellKind::kLSTM) cell->c.assign(hidden_, 0.0f);
  return true;
}

bool RecurrentKernelBase::PackInputProducts(runtime::DeviceCPU& device) {
  const std::uint32_t rows = recurrent::GateCount(kind_) * hidden_, dirs = Directions(), out = dirs * rows;
  for (std::uint32_t l = 0; l < layers_; ++l) {
    const std::uint32_t in = members_.cells[l * dirs].in;
    auto wt = device.CreateTensor(runtime::MakeShape({in, out}));
    auto bias = device.CreateTensor(runtime::MakeShape({out}));
    float* t = wt->DataAs<float>();
    float* b = bias->DataAs<float>();
    for (std::uint32_t d = 0; d < dirs; ++d) {
      const PrivateMembers::Cell& cell = members_.cells[l * dirs + d];
      const float* w = cell.weight_ih->DataAs<float>();
      for (std::uint32_t r = 0; r < rows; ++r) {
        for (std::uint32_t i = 0; i < in; ++i) t[std::size_t(i) * out + d * rows + r] = w[std::size_t(r) * in + i];
      }
      if (cell.bias_ih) {
        std::memcpy(b + d * rows, cell.bias_ih->DataAs<float>(), rows * sizeof(float));
      } else {
        std::fill(b + d * rows, b + (d + 1) * rows, 0.0f);
      }
    }
    members_.input_weight_t.push_back(wt);
    members_.input_bias.push_back(bias);
  }
  return true;
}

bool RecurrentKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam>,
                                 std::shared_ptr<runtime::Context> context) {
  configured_ = false;
  members_ = PrivateMembers();
  const bool cell_form = form_ == Form::kCell;
  if (const char* problem = RecordProblem(layer)) {
    if (problem == kOtherRecord) {
      utility::Log(utility::kLogError, "%s: the layer record is not a %s.", GetName().c_str(),
                   RecordName(kind_, cell_form));
    } else {
      utility::Log(utility::kLogError, "%s: %s.", GetName().c_str(), problem);
    }
    return false;
  }
  if (!context || !context->cpu) return false;
  RecordView v;
  View(kind_, cell_form, layer.get(), &v);
  in_ = v.in;
  hidden_ = v.hidden;
  layers_ = cell_form ? 1 : v.layers;
  activation_ = v.activation;
  has_bias_ = v.bias;
  bidirectional_ = !cell_form && v.bidirectional;
  runtime::DeviceCPU& device = *context->cpu;

  if (cell_form) {
    members_.cells.resize(1);
    const runtime::RecurrentCell& c = *v.cell;
    if (!DecodeCell(c.weight_ih, c.weight_hh, c.bias_ih, c.bias_hh, in_, "the cell", device, &members_.cells[0])) {
      return false;
    }
  } else {
    const runtime::RecurrentStack& s = *v.stack;
    struct List {
      const char* key;
      const std::vector<std::string>* blobs;
      bool needed;
    };
    const List lists[] = {{"weight_ih_forward", &s.weight_ih_forward, true},
                          {"weight_hh_forward", &s.weight_hh_forward, true},
                          {"bias_ih_forward", &s.bias_ih_forward, has_bias_},
                          {"bias_hh_forward", &s.bias_hh_forward, has_bias_},
                          {"weight_ih_reverse", &s.weight_ih_reverse, bidirectional_},
                          {"weight_hh_reverse", &s.weight_hh_reverse, bidirectional_},
                          {"bias_ih_reverse", &s.bias_ih_reverse, bidirectional_ && has_bias_},
                          {"bias_hh_reverse", &s.bias_hh_reverse, bidirectional_ && has_bias_}};
    for (const List& list : lists) {
      if (list.needed && list.blobs->size() != layers_) {
        utility::Log(utility::kLogError, "%s: \"%s\" holds %zu blobs for %u layers.", GetName().c_str(), list.key,
                     list.blobs->size(), layers_);
        return false;
      }
    }
    static const std::string kNone;
    auto blob = [&](const List& list, std::uint32_t l) -> const std::string& {
      return list.needed ? (*list.blobs)[l] : kNone;
    };
    const std::uint32_t dirs = Directions();
    members_.cells.resize(std::size_t(layers_) * dirs);
    for (std::uint32_t l = 0; l < layers_; ++l) {
      const std::uint32_t in = l == 0 ? in_ : dirs * hidden_;
      for (std::uint32_t d = 0; d < dirs; ++d) {
        const List* set = lists + 4 * d;
        const std::string where = "layer " + std::to_string(l) + (d ? " (reverse)" : " (forward)");
        if (!DecodeCell(blob(set[0], l), blob(set[1], l), blob(set[2], l), blob(set[3], l), in, where.c_str(), device,
                        &members_.cells[std::size_t(l) * dirs + d])) {
          return false;
        }
      }
    }
    if (products_ == InputProducts::kAllSteps && !PackInputProducts(device)) return false;
  }
  configured_ = true;
  return true;
}

std::uint32_t RecurrentKernelBase::Steps(const TensorShape& input) const {
  if (input.dims.empty() || input.dims.back() != in_) return 0;
  const std::size_t count = input.ElementCount();
  if (count == 0 || count > INT_MAX) return 0;
  const std::uint64_t steps = count / in_;
  // The largest buffer of a Forward: the input products of every step.
  const std::uint64_t gates = std::uint64_t(Directions()) * recurrent::GateCount(kind_) * hidden_;
  if (steps * gates > INT_MAX) return 0;
  return static_cast<std::uint32_t>(steps);
}

std::vector<TensorShape> RecurrentKernelBase::GetOutputShapes(const std::vector<TensorShape>& inputs) const {
  if (!configured_ || inputs.empty() || inputs.size() > 1 + StateCount()) return {};
  const std::uint64_t state = std::uint64_t(members_.cells.size()) * hidden_;
  for (std::size_t i = 1; i < inputs.size(); ++i) {
    if (inputs[i].ElementCount() != state) return {};
  }
  if (form_ == Form::kCell) {
    if (inputs[0].ElementCount() != in_) return {};
    return std::vector<TensorShape>(StateCount(), runtime::MakeShape({hidden_}));
  }
  const std::uint32_t steps = Steps(inputs[0]);
  if (steps == 0) return {};
  std::vector<TensorShape> shapes = {
      runtime::MakeShape({steps, Directions() * hidden_}, TensorShape::FLOAT32, TensorShape::FLEXIABLE)};
  for (std::uint32_t s = 0; s < StateCount(); ++s) {
    shapes.push_back(
        runtime::MakeShape({layers_ * Directions(), hidden_}, TensorShape::FLOAT32, TensorShape::FLEXIABLE));
  }
  return shapes;
}

std::int32_t RecurrentKernelBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (!configured_ || inputs.empty() || inputs.size() > 1 + StateCount()) return kInvalidTensor;
  if (CheckFloatTensors(inputs, -1) != kValid) return kInvalidTensor;
  std::vector<TensorShape> shapes;
  for (const auto& t : inputs) {
    if (!std::dynamic_pointer_cast<runtime::TensorCPU>(t)) return kInvalidTensor;
    shapes.push_back(t->shape);
  }
  return GetOutputShapes(shapes).empty() ? kInvalidTensor : kValid;
}

std::int32_t RecurrentKernelBase::IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const {
  const int count = form_ == Form::kCell ? static_cast<int>(StateCount()) : 1 + static_cast<int>(StateCount());
  return CheckFloatTensors(outputs, count);
}

int RecurrentKernelBase::ResetRNNState() const {
  for (PrivateMembers::Cell& cell : members_.cells) {
    std::fill(cell.h.begin(), cell.h.end(), 0.0f);
    std::fill(cell.c.begin(), cell.c.end(), 0.0f);
  }
  return 0;
}

void RecurrentKernelBase::TakeGivenStates(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  for (std::size_t s = 1; s < inputs.size(); ++s) {
    const float* given = static_cast<const float*>(inputs[s]->Data());
    for (std::size_t i = 0; i < members_.cells.size(); ++i) {
      std::vector<float>& state = s == 1 ? members_.cells[i].h : members_.cells[i].c;
      std::copy(given + i * hidden_, given + (i + 1) * hidden_, state.begin());
    }
  }
}

namespace {

bool Refused(const std::string& name) {
  utility::Log(utility::kLogError, "%s: Forward on an input the kernel refuses.", name.c_str());
  return false;
}

}  // namespace

bool RecurrentKernelBase::ForwardCellWith(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                          std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                          const std::shared_ptr<runtime::Context>& context,
                                          const CellStepCall& step) const {
  if (!context || !context->cpu || IsValidInput(inputs) != kValid) return Refused(GetName());
  TakeGivenStates(inputs);
  PrivateMembers::Cell& cell = members_.cells[0];
  const auto state = runtime::MakeShape({hidden_});
  functional::RecurrentTensors args{inputs[0], context->cpu->CreateExternalTensor(state, cell.h.data())};
  if (kind_ == CellKind::kLSTM) args.push_back(context->cpu->CreateExternalTensor(state, cell.c.data()));
  functional::RecurrentTensors next = step(args, cell);
  // The kernel keeps its own copy: the caller may change the outputs.
  const float* h = static_cast<const float*>(next[0]->Data());
  std::copy(h, h + hidden_, cell.h.begin());
  if (kind_ == CellKind::kLSTM) {
    const float* c = static_cast<const float*>(next[1]->Data());
    std::copy(c, c + hidden_, cell.c.begin());
  }
  outputs = std::move(next);
  return true;
}

bool RecurrentKernelBase::ForwardCell(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                      std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                      const std::shared_ptr<runtime::Context>& context,
                                      functional::RNNCellStep step) const {
  const std::uint32_t bias = has_bias_ ? 1 : 0;
  return ForwardCellWith(inputs, outputs, context,
                         [&](const functional::RecurrentTensors& args, const PrivateMembers::Cell& c) {
                           return step(args, in_, hidden_, bias, activation_, c.weight_ih, c.weight_hh, c.bias_ih,
                                       c.bias_hh, context->cpu);
                         });
}

bool RecurrentKernelBase::ForwardCell(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                      std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                      const std::shared_ptr<runtime::Context>& context,
                                      functional::GatedCellStep step) const {
  const std::uint32_t bias = has_bias_ ? 1 : 0;
  return ForwardCellWith(
      inputs, outputs, context, [&](const functional::RecurrentTensors& args, const PrivateMembers::Cell& c) {
        return step(args, in_, hidden_, bias, c.weight_ih, c.weight_hh, c.bias_ih, c.bias_hh, context->cpu);
      });
}

bool RecurrentKernelBase::ForwardSequence(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                          std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                          const std::shared_ptr<runtime::Context>& context,
                                          const recurrent::CellRoutines& routines, AllStepsProduct all_steps) const {
  if (!context || !context->cpu || IsValidInput(inputs) != kValid) return Refused(GetName());
  utility::Assert((products_ == InputProducts::kAllSteps) == (all_steps != nullptr),
                  "%s: the input products do not match the way Config prepared them.", GetName().c_str());
  TakeGivenStates(inputs);
  runtime::DeviceCPU& device = *context->cpu;
  const std::uint32_t S = Steps(inputs[0]->shape), D = Directions(), H = hidden_;
  const std::uint32_t rows = recurrent::GateCount(kind_) * H, width = D * H;

  auto y = device.CreateF32FlexiableMainMemory({S, width});
  // Outputs of the layers below the last, alternating.
  std::shared_ptr<runtime::TensorCPU> between[2];
  for (std::uint32_t i = 0; i < 2 && i + 1 < layers_; ++i) between[i] = device.CreateF32FlexiableMainMemory({S, width});
  const std::size_t gi_floats = all_steps ? std::size_t(S) * D * rows : rows;
  auto work = device.CreateF32CMainMemory(static_cast<unsigned>(gi_floats + recurrent::StepScratch(kind_, H)));
  float* gi = work->DataAs<float>();
  float* scratch = gi + gi_floats;

  const float* x = static_cast<const float*>(inputs[0]->Data());
  std::uint32_t in = in_;
  for (std::uint32_t l = 0; l < layers_; ++l) {
    float* out = l + 1 == layers_ ? y->DataAs<float>() : between[l % 2]->DataAs<float>();
    if (all_steps) {
      all_steps(x, static_cast<int>(S), static_cast<int>(in), members_.input_weight_t[l]->DataAs<float>(),
                members_.input_bias[l]->DataAs<float>(), static_cast<int>(D * rows), gi);
    }
    for (std::uint32_t d = 0; d < D; ++d) {
      PrivateMembers::Cell& cell = members_.cells[std::size_t(l) * D + d];
      const recurrent::CellWeights w = cell.Weights(H);
      const float* h = cell.h.data();
      for (std::uint32_t k = 0; k < S; ++k) {
        const std::size_t t = d == 0 ? k : S - 1 - k;
        const float* g = gi + (all_steps ? t * D * rows + d * rows : 0);
        if (!all_steps) recurrent::InputProduct(routines, w, kind_, x + t * in, gi);
        float* h_out = out + t * width + d * H;
        switch (kind_) {
          case CellKind::kRNN:
            recurrent::RNNStep(routines, w, activation_, g, h, scratch, h_out);
            break;
          case CellKind::kLSTM:
            recurrent::LSTMStep(routines, w, g, h, cell.c.data(), scratch, h_out, cell.c.data());
            break;
          case CellKind::kGRU:
            recurrent::GRUStep(routines, w, g, h, scratch, h_out);
            break;
        }
        h = h_out;
      }
      std::copy(h, h + H, cell.h.begin());
    }
    x = out;
    in = width;
  }

  outputs.assign(1, y);
  for (std::uint32_t s = 0; s < StateCount(); ++s) {
    auto states = device.CreateF32FlexiableMainMemory({layers_ * D, H});
    float* p = states->DataAs<float>();
    for (const PrivateMembers::Cell& cell : members_.cells) {
      const std::vector<float>& v = s == 0 ? cell.h : cell.c;
      p = std::copy(v.begin(), v.end(), p);
    }
    outputs.push_back(states);
  }
  return true;
}

// Every member's destructor is its key function: defined here, in baseline
// code, it puts the vtable, GetName and the destructor of each family's class
// in this file, so any member can be created, named and configured on any
// x86-64. Only Forward runs family code.
RNNCell_Fallback_C_F32_M1::~RNNCell_Fallback_C_F32_M1() = default;
RNN_Fallback_SC_F32_M1::~RNN_Fallback_SC_F32_M1() = default;
LSTMCell_Fallback_C_F32_M1::~LSTMCell_Fallback_C_F32_M1() = default;
LSTM_Fallback_SC_F32_M1::~LSTM_Fallback_SC_F32_M1() = default;
GRUCell_Fallback_C_F32_M1::~GRUCell_Fallback_C_F32_M1() = default;
GRU_Fallback_SC_F32_M1::~GRU_Fallback_SC_F32_M1() = default;
RNNCell_SSE_C_F32_M1::~RNNCell_SSE_C_F32_M1() = default;
RNN_SSE_SC_F32_M1::~RNN_SSE_SC_F32_M1() = default;
LSTMCell_SSE_C_F32_M1::~LSTMCell_SSE_C_F32_M1() = default;
LSTM_SSE_SC_F32_M1::~LSTM_SSE_SC_F32_M1() = default;
GRUCell_SSE_C_F32_M1::~GRUCell_SSE_C_F32_M1() = default;
GRU_SSE_SC_F32_M1::~GRU_SSE_SC_F32_M1() = default;
RNNCell_SGEMM_C_F32_M1::~RNNCell_SGEMM_C_F32_M1() = default;
RNN_SGEMM_SC_F32_M1::~RNN_SGEMM_SC_F32_M1() = default;
LSTMCell_SGEMM_C_F32_M1::~LSTMCell_SGEMM_C_F32_M1() = default;
LSTM_SGEMM_SC_F32_M1::~LSTM_SGEMM_SC_F32_M1() = default;
GRUCell_SGEMM_C_F32_M1::~GRUCell_SGEMM_C_F32_M1() = default;
GRU_SGEMM_SC_F32_M1::~GRU_SGEMM_SC_F32_M1() = default;
GRUCell_SSE_SGEMM_C_F32_M2::~GRUCell_SSE_SGEMM_C_F32_M2() = default;
GRU_SSE_SGEMM_SC_F32_M2::~GRU_SSE_SGEMM_SC_F32_M2() = default;

}  // namespace kernel
}  // namespace tarn
