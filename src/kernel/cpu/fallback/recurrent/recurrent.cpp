#include "kernel/cpu/fallback/recurrent/recurrent.h"

#include "tarn/kernel/activation.h"
#include "tarn/kernel/elementwise.h"
#include "tarn/kernel/fullconnection.h"

namespace tarn {
namespace kernel {
namespace {

namespace fn = functional;

const recurrent::CellRoutines kFallback = {fn::fullconnection_fallback_c_f32_m1,
                                           fn::elementwise_add_f32_m1,
                                           fn::elementwise_sub_f32_m1,
                                           fn::elementwise_mul_f32_m1,
                                           fn::sigmoid_f32,
                                           fn::tanh_f32,
                                           fn::relu_f32};

}  // namespace

namespace functional {

TRN_DEFINE_RNN_CELL_STEP(RNNCell_Fallback_C_F32_M1, kFallback)
TRN_DEFINE_GATED_CELL_STEP(LSTMCell_Fallback_C_F32_M1, kLSTM, kFallback)
TRN_DEFINE_GATED_CELL_STEP(GRUCell_Fallback_C_F32_M1, kGRU, kFallback)

}  // namespace functional

TRN_RECURRENT_CELL_FORWARD(RNNCell_Fallback_C_F32_M1)
TRN_RECURRENT_CELL_FORWARD(LSTMCell_Fallback_C_F32_M1)
TRN_RECURRENT_CELL_FORWARD(GRUCell_Fallback_C_F32_M1)
TRN_RECURRENT_SEQUENCE_FORWARD(RNN_Fallback_SC_F32_M1, kFallback, nullptr)
TRN_RECURRENT_SEQUENCE_FORWARD(LSTM_Fallback_SC_F32_M1, kFallback, nullptr)
TRN_RECURRENT_SEQUENCE_FORWARD(GRU_Fallback_SC_F32_M1, kFallback, nullptr)

}  // namespace kernel
}  // namespace tarn
