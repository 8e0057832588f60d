// SSE recurrent kernels: fullconnection_sse_c_f32_m2 for every matrix-vector
// product, the SSE add/sub/mul, and the library's sigmoid, tanh and ReLU.
#pragma once

#include "kernel/cpu/fallback/recurrent/recurrent_base.h"

namespace tarn {
namespace kernel {

TRN_RECURRENT_KERNEL(RNNCell_SSE_C_F32_M1, kRNN, kCell, kPerStep)
TRN_RECURRENT_KERNEL(RNN_SSE_SC_F32_M1, kRNN, kSequence, kPerStep)
TRN_RECURRENT_KERNEL(LSTMCell_SSE_C_F32_M1, kLSTM, kCell, kPerStep)
TRN_RECURRENT_KERNEL(LSTM_SSE_SC_F32_M1, kLSTM, kSequence, kPerStep)
TRN_RECURRENT_KERNEL(GRUCell_SSE_C_F32_M1, kGRU, kCell, kPerStep)
TRN_RECURRENT_KERNEL(GRU_SSE_SC_F32_M1, kGRU, kSequence, kPerStep)

}  // namespace kernel
}  // namespace tarn
