#include "kernel/cpu/sse/recurrent/recurrent.h"

#include "tarn/kernel/activation.h"
#include "tarn/kernel/elementwise.h"
#include "tarn/kernel/fullconnection.h"

namespace tarn {
namespace kernel {
namespace {

namespace fn = functional;

const recurrent::CellRoutines kSse = {fn::fullconnection_sse_c_f32_m2,
                                      fn::elementwise_add_sse_f32_m1,
                                      fn::elementwise_sub_sse_f32_m1,
                                      fn::elementwise_mul_sse_f32_m1,
                                      fn::sigmoid_f32,
                                      fn::tanh_f32,
                                      fn::relu_f32};

}  // namespace

namespace functional {

TRN_DEFINE_RNN_CELL_STEP(RNNCell_SSE_C_F32_M1, kSse)
TRN_DEFINE_GATED_CELL_STEP(LSTMCell_SSE_C_F32_M1, kLSTM, kSse)
TRN_DEFINE_GATED_CELL_STEP(GRUCell_SSE_C_F32_M1, kGRU, kSse)

}  // namespace functional

TRN_RECURRENT_CELL_FORWARD(RNNCell_SSE_C_F32_M1)
TRN_RECURRENT_CELL_FORWARD(LSTMCell_SSE_C_F32_M1)
TRN_RECURRENT_CELL_FORWARD(GRUCell_SSE_C_F32_M1)
TRN_RECURRENT_SEQUENCE_FORWARD(RNN_SSE_SC_F32_M1, kSse, nullptr)
TRN_RECURRENT_SEQUENCE_FORWARD(LSTM_SSE_SC_F32_M1, kSse, nullptr)
TRN_RECURRENT_SEQUENCE_FORWARD(GRU_SSE_SC_F32_M1, kSse, nullptr)

}  // namespace kernel
}  // namespace tarn
