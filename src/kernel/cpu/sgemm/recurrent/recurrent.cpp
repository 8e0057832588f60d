#include "kernel/cpu/sgemm/recurrent/recurrent.h"

#include <algorithm>
#include <cstddef>

#include "tarn/kernel/activation.h"
#include "tarn/kernel/elementwise.h"
#include "tarn/kernel/fullconnection.h"
#include "tarn/kernel/sgemm.h"

namespace tarn {
namespace kernel {
namespace {

namespace fn = functional;

const recurrent::CellRoutines kSgemm = {fn::fullconnection_sgemm_c_f32_m1,
                                        fn::elementwise_add_f32_m1,
                                        fn::elementwise_sub_f32_m1,
                                        fn::elementwise_mul_f32_m1,
                                        fn::sigmoid_f32,
                                        fn::tanh_f32,
                                        fn::relu_f32};

const recurrent::CellRoutines kSseSgemm = {fn::fullconnection_sgemm_c_f32_m1,
                                           fn::elementwise_add_sse_f32_m1,
                                           fn::elementwise_sub_sse_f32_m1,
                                           fn::elementwise_mul_sse_f32_m1,
                                           fn::sigmoid_f32,
                                           fn::tanh_f32,
                                           fn::relu_f32};

// gi (steps x out) = x (steps x in) * W^T (in x out) onto the bias in every
// row: each row is the step's W x + b, as fullconnection_sgemm_c_f32_m1
// forms it (bias first, product added with beta 1).
void AllStepsSgemm(const float* x, int steps, int in, const float* weight_t, const float* bias, int out, float* gi) {
  for (int t = 0; t < steps; ++t) std::copy(bias, bias + out, gi + std::ptrdiff_t(t) * out);
  Sgemm(steps, in, out, 1.0f, x, weight_t, 1.0f, gi);
}

}  // namespace

namespace functional {

TRN_DEFINE_RNN_CELL_STEP(RNNCell_SGEMM_C_F32_M1, kSgemm)
TRN_DEFINE_GATED_CELL_STEP(LSTMCell_SGEMM_C_F32_M1, kLSTM, kSgemm)
TRN_DEFINE_GATED_CELL_STEP(GRUCell_SGEMM_C_F32_M1, kGRU, kSgemm)
TRN_DEFINE_GATED_CELL_STEP(GRUCell_SSE_SGEMM_C_F32_M2, kGRU, kSseSgemm)

}  // namespace functional

TRN_RECURRENT_CELL_FORWARD(RNNCell_SGEMM_C_F32_M1)
TRN_RECURRENT_CELL_FORWARD(LSTMCell_SGEMM_C_F32_M1)
TRN_RECURRENT_CELL_FORWARD(GRUCell_SGEMM_C_F32_M1)
TRN_RECURRENT_CELL_FORWARD(GRUCell_SSE_SGEMM_C_F32_M2)
TRN_RECURRENT_SEQUENCE_FORWARD(RNN_SGEMM_SC_F32_M1, kSgemm, AllStepsSgemm)
TRN_RECURRENT_SEQUENCE_FORWARD(LSTM_SGEMM_SC_F32_M1, kSgemm, AllStepsSgemm)
TRN_RECURRENT_SEQUENCE_FORWARD(GRU_SGEMM_SC_F32_M1, kSgemm, AllStepsSgemm)
TRN_RECURRENT_SEQUENCE_FORWARD(GRU_SSE_SGEMM_SC_F32_M2, kSseSgemm, AllStepsSgemm)

}  // namespace kernel
}  // namespace tarn
