// Recurrent kernels on the CBLAS product: fullconnection_sgemm_c_f32_m1 for
// the per-step products with the plain element functions, and the M2 GRU
// pair with the SSE add/sub/mul. The sequence members form the input-side
// products of all steps of a layer in one matrix product before its
// recurrence (the same products per step, summed by the CBLAS in its own
// order), then run the recurrence step by step as the cells do.
#pragma once

#include "kernel/cpu/fallback/recurrent/recurrent_base.h"

namespace tarn {
namespace kernel {

TRN_RECURRENT_KERNEL(RNNCell_SGEMM_C_F32_M1, kRNN, kCell, kPerStep)
TRN_RECURRENT_KERNEL(RNN_SGEMM_SC_F32_M1, kRNN, kSequence, kAllSteps)
TRN_RECURRENT_KERNEL(LSTMCell_SGEMM_C_F32_M1, kLSTM, kCell, kPerStep)
TRN_RECURRENT_KERNEL(LSTM_SGEMM_SC_F32_M1, kLSTM, kSequence, kAllSteps)
TRN_RECURRENT_KERNEL(GRUCell_SGEMM_C_F32_M1, kGRU, kCell, kPerStep)
TRN_RECURRENT_KERNEL(GRU_SGEMM_SC_F32_M1, kGRU, kSequence, kAllSteps)
// Needs SSE4.1 + FMA for its element-wise routines.
TRN_RECURRENT_KERNEL(GRUCell_SSE_SGEMM_C_F32_M2, kGRU, kCell, kPerStep)
TRN_RECURRENT_KERNEL(GRU_SSE_SGEMM_SC_F32_M2, kGRU, kSequence, kAllSteps)

}  // namespace kernel
}  // namespace tarn
