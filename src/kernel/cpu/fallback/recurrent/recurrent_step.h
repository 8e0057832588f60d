// The step equations of the three recurrent cells, written once over raw
// memory and parameterised by the routines of a kernel family. The tensor
// steps of tarn/kernel/recurrent.h and the sequence kernels both run these,
// so a sequence member gives the bits of its cell step by step. Baseline code:
// only the routines it is handed may use a family's instructions.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tarn/kernel/recurrent.h"

namespace tarn {
namespace kernel {
namespace recurrent {

enum class CellKind { kRNN, kLSTM, kGRU };

// Gate blocks of H rows in the weights: 1, 4 (i, f, g, o) or 3 (r, z, n).
constexpr std::uint32_t GateCount(CellKind kind) {
  return kind == CellKind::kRNN ? 1 : (kind == CellKind::kLSTM ? 4 : 3);
}

// The routines a family builds its steps from (the functional argument forms).
struct CellRoutines {
  void (*fc)(const float* input, const std::uint32_t& inFeatures, const std::uint32_t& outFeatures, const float* weight,
             const float* bias, float* output);
  void (*add)(const float* a, const float* b, const std::uint32_t& count, float* dst);
  void (*sub)(const float* a, const float* b, const std::uint32_t& count, float* dst);
  void (*mul)(const float* a, const float* b, const std::uint32_t& count, float* dst);
  void (*sigmoid)(const float* src, const std::uint32_t& count, float* dst);
  void (*tanh)(const float* src, const std::uint32_t& count, float* dst);
  void (*relu)(const float* src, const std::uint32_t& count, float* dst);
};

// One cell's weights (row-major, gate blocks stacked) and sizes; the biases
// are null when the cell has none.
struct CellWeights {
  const float* w_ih;
  const float* w_hh;
  const float* b_ih;
  const float* b_hh;
  std::uint32_t in;
  std::uint32_t hidden;
};

// Floats of scratch one step of `kind` needs.
std::size_t StepScratch(CellKind kind, std::uint32_t hidden);

// gi = FC(x, W_ih, b_ih): the input side of a step, G*H floats.
void InputProduct(const CellRoutines& r, const CellWeights& w, CellKind kind, const float* x, float* gi);

// The rest of a step from its input side `gi` and the state. `h_out` may be
// `h` itself and `c_out` may be `c`; neither may overlap gi or the scratch.
// The simple cell's activation code must be 2 (ReLU) or 5 (tanh), else the
// assertion "Not Implemented." fails.
void RNNStep(const CellRoutines& r, const CellWeights& w, std::uint32_t activation, const float* gi, const float* h,
             float* scratch, float* h_out);
void LSTMStep(const CellRoutines& r, const CellWeights& w, const float* gi, const float* h, const float* c,
              float* scratch, float* h_out, float* c_out);
void GRUStep(const CellRoutines& r, const CellWeights& w, const float* gi, const float* h, float* scratch,
             float* h_out);

// A whole tensor step (the functional forms of tarn/kernel/recurrent.h):
// checks its arguments (assertions), makes the scratch and the new state
// through the device, runs InputProduct and the step.
functional::RecurrentTensors TensorStep(CellKind kind, const CellRoutines& r,
                                        const functional::RecurrentTensors& inputs, std::uint32_t in,
                                        std::uint32_t hidden, std::uint32_t has_bias, std::uint32_t activation,
                                        const std::shared_ptr<runtime::Tensor>& weight_ih,
                                        const std::shared_ptr<runtime::Tensor>& weight_hh,
                                        const std::shared_ptr<runtime::Tensor>& bias_ih,
                                        const std::shared_ptr<runtime::Tensor>& bias_hh,
                                        const std::shared_ptr<runtime::DeviceCPU>& device);

}  // namespace recurrent
}  // namespace kernel
}  // namespace tarn

// Defines the tensor step `name` of tarn/kernel/recurrent.h (inside
// tarn::kernel::functional) as TensorStep of its kind on `routines`.
#define TRN_DEFINE_RNN_CELL_STEP(name, routines)                                                                      \
  TRN_RNN_CELL_STEP(name) {                                                                                           \
    return ::tarn::kernel::recurrent::TensorStep(::tarn::kernel::recurrent::CellKind::kRNN, routines, inputs, inSize, \
                                                 hiddenSize, hasBias, activation, weight_ih, weight_hh, bias_ih,      \
                                                 bias_hh, device);                                                    \
  }
#define TRN_DEFINE_GATED_CELL_STEP(name, kind, routines)                                                              \
  TRN_GATED_CELL_STEP(name) {                                                                                         \
    return ::tarn::kernel::recurrent::TensorStep(::tarn::kernel::recurrent::CellKind::kind, routines, inputs, inSize, \
                                                 hiddenSize, hasBias, 0, weight_ih, weight_hh, bias_ih, bias_hh,      \
                                                 device);                                                             \
  }
