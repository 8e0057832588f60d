// One step of a simple recurrent, LSTM or GRU cell on tensors, one function
// per cell kernel (each named after its kernel).
//
// Sizes: I inputs, H hidden, G gate blocks (1 simple, 4 LSTM in the order
// i, f, g, o, 3 GRU in the order r, z, n). weight_ih is G*H rows of I floats,
// weight_hh G*H rows of H floats, row-major; bias_ih and bias_hh G*H floats
// each. With hasBias 0 both biases are ignored (may be null) and the
// matrix-vector products start from zero. FC(v, W, b) below is W v + b.
//
//   simple: h' = act(FC(x, W_ih, b_ih) + FC(h, W_hh, b_hh))
//   LSTM:   gates = FC(x, W_ih, b_ih) + FC(h, W_hh, b_hh);
//           i, f, o = sigmoid, g = tanh of their blocks (in the order i, f, g, o);
//           c' = (f * c) + (i * g); h' = o * tanh(c')
//   GRU:    gi = FC(x, W_ih, b_ih); gh = FC(h, W_hh, b_hh);
//           r = sigmoid(gi_r + gh_r); z = sigmoid(gi_z + gh_z);
//           n = tanh(gi_n + r * gh_n)   (r scales the hidden product with its bias);
//           h' = n - z * (n - h)        (evaluated as t = n - h, t = z * t, n - t)
//
// Every operation is one call of the kernel's routines, in the order written,
// so the last bits depend only on those routines: the Fallback step uses
// fullconnection_fallback_c_f32_m1 and the plain element functions; SSE uses
// fullconnection_sse_c_f32_m2 with the SSE add/sub/mul; SGEMM uses
// fullconnection_sgemm_c_f32_m1 with the plain element functions; the
// SSE_SGEMM GRU step pairs the CBLAS product with the SSE add/sub/mul. The
// activations are always sigmoid_f32, tanh_f32 and relu_f32 (the library's
// expf and tanhf), and add, sub and mul are single IEEE operations in every
// form, so two steps with the same matrix-vector routine give identical bits.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/tensor.h"

namespace tarn {
namespace kernel {
namespace functional {

// Codes of "activation_type" that the simple cell (RNNCellInfo, RNNInfo)
// understands. They are the recurrent layers' own: they do not follow the
// numbering of the activation kernels' records (where 2 is the sigmoid).
constexpr std::uint32_t kRNNActivationReLU = 2;
constexpr std::uint32_t kRNNActivationTanh = 5;

using RecurrentTensors = std::vector<std::shared_ptr<runtime::Tensor>>;

// The common argument list of the steps. `inputs` holds x (I floats) and h
// (H floats), and for LSTM c (H floats), each a float tensor of any dims with
// that many elements. The result is the new state, fresh tensors of dims {H}
// made through `device`: {h'} for the simple and GRU cells, {h', c'} for
// LSTM. The simple cell's activation code must be kRNNActivationReLU or
// kRNNActivationTanh; any other fails the assertion "Not Implemented."
// (std::runtime_error). Missing tensors or wrong element counts fail an
// assertion as well.
#define TRN_RNN_CELL_STEP(name)                                                                             \
  RecurrentTensors name(                                                                                    \
      const RecurrentTensors& inputs, const std::uint32_t& inSize, const std::uint32_t& hiddenSize,         \
      const std::uint32_t& hasBias, const std::uint32_t& activation,                                        \
      const std::shared_ptr<runtime::Tensor>& weight_ih, const std::shared_ptr<runtime::Tensor>& weight_hh, \
      const std::shared_ptr<runtime::Tensor>& bias_ih, const std::shared_ptr<runtime::Tensor>& bias_hh,     \
      const std::shared_ptr<runtime::DeviceCPU>& device)
#define TRN_GATED_CELL_STEP(name)                                                                         \
  RecurrentTensors name(                                                                                  \
      const RecurrentTensors& inputs, const std::uint32_t& inSize, const std::uint32_t& hiddenSize,       \
      const std::uint32_t& hasBias, const std::shared_ptr<runtime::Tensor>& weight_ih,                    \
      const std::shared_ptr<runtime::Tensor>& weight_hh, const std::shared_ptr<runtime::Tensor>& bias_ih, \
      const std::shared_ptr<runtime::Tensor>& bias_hh, const std::shared_ptr<runtime::DeviceCPU>& device)

TRN_RNN_CELL_STEP(RNNCell_Fallback_C_F32_M1);
TRN_RNN_CELL_STEP(RNNCell_SSE_C_F32_M1);
TRN_RNN_CELL_STEP(RNNCell_SGEMM_C_F32_M1);

TRN_GATED_CELL_STEP(LSTMCell_Fallback_C_F32_M1);
TRN_GATED_CELL_STEP(LSTMCell_SSE_C_F32_M1);
TRN_GATED_CELL_STEP(LSTMCell_SGEMM_C_F32_M1);

TRN_GATED_CELL_STEP(GRUCell_Fallback_C_F32_M1);
TRN_GATED_CELL_STEP(GRUCell_SSE_C_F32_M1);
TRN_GATED_CELL_STEP(GRUCell_SGEMM_C_F32_M1);
TRN_GATED_CELL_STEP(GRUCell_SSE_SGEMM_C_F32_M2);

// The signatures of the two kinds of step, for code that picks one.
using RNNCellStep = TRN_RNN_CELL_STEP((*));
using GatedCellStep = TRN_GATED_CELL_STEP((*));

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
