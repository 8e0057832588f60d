// What the twenty recurrent kernels share: reading their records, the weights
// decoded once in Config, the state carried between calls, and the drivers of
// a cell step and of a whole sequence. Baseline code; a member adds only its
// Forward, which hands the driver its family's routines.
//
// Records and tensors (batch 1, PyTorch nn.RNNCell/LSTMCell/GRUCell and
// nn.RNN/LSTM/GRU semantics):
// - Weights as in tarn/kernel/recurrent.h. A stacked record holds one blob
//   per layer in each "..._forward" list (and "..._reverse" list when
//   "bidirectional" is set); layer 0 reads "in_size" inputs, layer k > 0 the
//   D * H outputs of layer k - 1 (D = 2 directions when bidirectional, else
//   1). Bias lists are read only when "if_bias" is set, reverse lists only
//   when "bidirectional" is.
// - "activation_type" (simple cells only): 2 = ReLU, 5 = tanh; other codes
//   are refused. "activation_alpha"/"activation_beta" are carried only.
// - "complex_rnn_type": 0 is the plain stack above, the only kind there is;
//   other values are reserved and refused so that a model meaning something
//   else is not run with the wrong equations.
// - Cell inputs: x (I elements), then optionally h (H elements) and, for
//   LSTM, c (H elements). Outputs: h' ({H}), and c' ({H}) for LSTM.
// - Sequence inputs: x, a float tensor whose last dim is I, read as S = count
//   / I time steps of I features (S x I, "SC"; [S, 1, I] reads the same);
//   then optionally the initial hidden states [L * D, H] and, for LSTM, the
//   initial cell states [L * D, H] (any dims with that many elements; index
//   layer * D + direction). Outputs: the last layer's outputs of every step
//   [S, D * H] (per step [forward, reverse]), the final hidden states
//   [L * D, H], and for LSTM the final cell states [L * D, H].
// - State: each cell starts at zero after Config; a Forward leaves its final
//   state in the kernel, so the next call continues the sequence (one step per
//   call for the cell kernels). A state given as an input replaces the stored
//   one for that call. ResetRNNState sets every state back to zero. Since
//   Forward changes this state, a kernel must not run on two threads at once.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kernel/cpu/fallback/conv_core/layer_kernel_base.h"
#include "kernel/cpu/fallback/recurrent/recurrent_step.h"
#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

class RecurrentKernelBase : public KernelBase {
 public:
  using CellKind = recurrent::CellKind;
  // One step per call (layout C) or a whole sequence (layout SC).
  enum class Form { kCell, kSequence };
  // How a sequence member forms the input-side products: one matrix-vector
  // product per step, or those of all steps of a layer in one matrix product
  // before its recurrence (Config then keeps each layer's input weights
  // transposed, both directions side by side).
  enum class InputProducts { kPerStep, kAllSteps };

  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  std::int32_t IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const override;
  // Zeroes every stored state; 0.
  int ResetRNNState() const override;

  std::uint32_t in_size() const { return in_; }
  std::uint32_t hidden_size() const { return hidden_; }

 protected:
  RecurrentKernelBase(CellKind kind, Form form, InputProducts products = InputProducts::kPerStep)
      : kind_(kind), form_(form), products_(products) {}

  // The Forward of a cell member: its tensor step on x and the stored (or
  // given) state, which then holds the new state.
  bool ForwardCell(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                   std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                   const std::shared_ptr<runtime::Context>& context, functional::RNNCellStep step) const;
  bool ForwardCell(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                   std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                   const std::shared_ptr<runtime::Context>& context, functional::GatedCellStep step) const;

  // All steps' input-side products of one layer: gi[t] = W x[t] + b for the
  // `steps` rows of x (`in` floats each), given the weight transposed
  // (in x out) and the bias (out floats): gi is steps x out.
  using AllStepsProduct = void (*)(const float* x, int steps, int in, const float* weight_t, const float* bias, int out,
                                   float* gi);
  // The Forward of a sequence member: every layer, direction and step with
  // `routines`; `all_steps` is the product of a kAllSteps member.
  bool ForwardSequence(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                       std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                       const std::shared_ptr<runtime::Context>& context, const recurrent::CellRoutines& routines,
                       AllStepsProduct all_steps = nullptr) const;

 private:
  // The cells of a kernel and what Config prepared for them.
  struct PrivateMembers {
    // One cell: a cell member has one; a sequence member one per layer and
    // direction, in the order layer * D + direction.
    struct Cell {
      std::shared_ptr<runtime::TensorCPU> weight_ih, weight_hh, bias_ih, bias_hh;  // biases null without bias
      std::uint32_t in = 0;
      std::vector<float> h, c;  // the carried state (c for LSTM only)
      recurrent::CellWeights Weights(std::uint32_t hidden) const;
    };
    using RNNCell = Cell;
    using LSTMCell = Cell;
    using GRUCell = Cell;
    std::vector<Cell> cells;
    // kAllSteps: per layer, both directions' input weights transposed
    // ([in, D * G * H]) and their input biases side by side (zero without bias).
    std::vector<std::shared_ptr<runtime::TensorCPU>> input_weight_t, input_bias;
  };

  // Why the record cannot be computed by this kernel, or null when it can.
  const char* RecordProblem(const std::shared_ptr<runtime::LayerInfo>& layer) const;
  bool DecodeCell(const std::string& w_ih, const std::string& w_hh, const std::string& b_ih, const std::string& b_hh,
                  std::uint32_t in, const char* where, runtime::DeviceCPU& device, PrivateMembers::Cell* cell);
  bool PackInputProducts(runtime::DeviceCPU& device);
  // Time steps of a sequence input (0 when it does not fit).
  std::uint32_t Steps(const runtime::TensorShape& input) const;
  std::uint32_t StateCount() const { return kind_ == CellKind::kLSTM ? 2 : 1; }
  std::uint32_t Directions() const { return bidirectional_ ? 2 : 1; }
  // The cell Forward around one call of a tensor step on (x, h[, c]).
  using CellStepCall =
      std::function<functional::RecurrentTensors(const functional::RecurrentTensors&, const PrivateMembers::Cell&)>;
  bool ForwardCellWith(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                       std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                       const std::shared_ptr<runtime::Context>& context, const CellStepCall& step) const;
  // Copies the states given as inputs 1 and 2 into the cells.
  void TakeGivenStates(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const;

  CellKind kind_;
  Form form_;
  InputProducts products_;
  std::uint32_t in_ = 0, hidden_ = 0, layers_ = 1, activation_ = 0;
  bool has_bias_ = false, bidirectional_ = false;
  mutable PrivateMembers members_;
};

}  // namespace kernel
}  // namespace tarn

// A recurrent member: its kind, form and way of forming input products.
#define TRN_RECURRENT_KERNEL(cls, kind, form, products)                                 \
  class cls : public RecurrentKernelBase {                                              \
   public:                                                                              \
    cls() : RecurrentKernelBase(CellKind::kind, Form::form, InputProducts::products) {} \
    ~cls() override;                                                                    \
    TRN_KERNEL_NAME(cls)                                                                \
    TRN_LAYER_FORWARD                                                                   \
  };

// The Forward of a cell member: the tensor step of its own name.
#define TRN_RECURRENT_CELL_FORWARD(cls)                                                                                \
  bool cls::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,                                       \
                    std::vector<std::shared_ptr<runtime::Tensor>>& outputs, std::shared_ptr<runtime::Context> context) \
      const {                                                                                                          \
    return ForwardCell(inputs, outputs, context, functional::cls);                                                     \
  }
// The Forward of a sequence member: its family's routines, and the all-steps
// input product of a kAllSteps member (nullptr otherwise).
#define TRN_RECURRENT_SEQUENCE_FORWARD(cls, routines, all_steps)                                                       \
  bool cls::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,                                       \
                    std::vector<std::shared_ptr<runtime::Tensor>>& outputs, std::shared_ptr<runtime::Context> context) \
      const {                                                                                                          \
    return ForwardSequence(inputs, outputs, context, routines, all_steps);                                             \
  }
