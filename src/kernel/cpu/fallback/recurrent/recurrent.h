// The portable recurrent kernels, the references of the family: the
// reference matrix-vector product and the plain element functions.
#pragma once

#include "kernel/cpu/fallback/recurrent/recurrent_base.h"

namespace tarn {
namespace kernel {

TRN_RECURRENT_KERNEL(RNNCell_Fallback_C_F32_M1, kRNN, kCell, kPerStep)
TRN_RECURRENT_KERNEL(RNN_Fallback_SC_F32_M1, kRNN, kSequence, kPerStep)
TRN_RECURRENT_KERNEL(LSTMCell_Fallback_C_F32_M1, kLSTM, kCell, kPerStep)
TRN_RECURRENT_KERNEL(LSTM_Fallback_SC_F32_M1, kLSTM, kSequence, kPerStep)
TRN_RECURRENT_KERNEL(GRUCell_Fallback_C_F32_M1, kGRU, kCell, kPerStep)
TRN_RECURRENT_KERNEL(GRU_Fallback_SC_F32_M1, kGRU, kSequence, kPerStep)

}  // namespace kernel
}  // namespace tarn
