// Routines of the fully connected kernels: out = W x + b for one input vector
// x of inFeatures floats and a weight of outFeatures rows.
//
// Every routine first copies the bias into the output (or zeroes the output
// when bias is null), then accumulates W x onto it. The functional forms take
// the counts as references and constant pointers, the native forms int counts
// and plain pointers; both read the weight row-major W[o][i] unless a tile
// order is named. Vector forms need the instruction set of their name (sse:
// SSE4.1 + FMA, avx: AVX2 + FMA).
#pragma once

#include <cstdint>

namespace tarn {
namespace kernel {
namespace functional {

// The reference: acc = out[o]; acc = fma(W[o][i], x[i], acc) in input order.
void fullconnection_fallback_c_f32_m1(const float* input, const std::uint32_t& inFeatures,
                                      const std::uint32_t& outFeatures, const float* weight, const float* bias,
                                      float* output);
// One output at a time: a 4-float accumulator over the whole vectors, its
// lanes summed 0 + 1, + 2, + 3; the last inFeatures % 4 products summed apart.
void fullconnection_sse_c_f32_m1(const float* input, const std::uint32_t& inFeatures,
                                 const std::uint32_t& outFeatures, const float* weight, const float* bias,
                                 float* output);
// Four outputs at a time sharing each input load, reduced with horizontal adds.
void fullconnection_sse_c_f32_m2(const float* input, const std::uint32_t& inFeatures,
                                 const std::uint32_t& outFeatures, const float* weight, const float* bias,
                                 float* output);
// One Sgemm (M = outFeatures, K = inFeatures, N = 1, beta = 1) onto the bias.
void fullconnection_sgemm_c_f32_m1(const float* input, const std::uint32_t& inFeatures,
                                   const std::uint32_t& outFeatures, const float* weight, const float* bias,
                                   float* output);

}  // namespace functional

namespace native {

// Four rows at a time, 8-float accumulators.
void fc_c_f32_avx_m0(float* input, int i_inFeatures, int i_outFeatures, float* weight, float* bias, float* output);
// Weight in 8x8 tiles (N8C88c8n): tile (ob, ib) holds at k * 8 + j the weight
// from input 8 ib + k to output 8 ob + j. Both counts must be multiples of 8.
void fc_c88_f32_avx_m0(float* input, int i_inFeatures, int i_outFeatures, float* weight, float* bias,
                       float* output);
// The same with 4x4 tiles: tile (ob, ib) holds at k * 4 + j the weight from
// input 4 ib + k to output 4 ob + j. Both counts must be multiples of 4.
void fullconnection_sse_c44_f32_m1(float* input, int i_inFeatures, int i_outFeatures, float* weight, float* bias,
                                   float* output);

}  // namespace native

// Batch rows: input [batch][inFeatures], output [batch][outFeatures]; four
// rows share each weight load. Bias copied first as above.
void FullConnection_SSE_BC_Float_M1_Full_Connection(const float* input, int batch, int inFeatures, int outFeatures,
                                                    const float* weight, const float* bias, float* output);
// A C4HW4 map [ceil(C / 4), H, W, 4] against a row-major weight whose rows are
// CHW-flattened (C * H * W); accumulates onto `output` (outFeatures floats),
// which the caller has filled with the bias or zero.
void FullConnection_SSE_C4HW4_Float_M1_Full_Connection(const float* input, int channels, int height, int width,
                                                       int outFeatures, const float* weight, float* output);
// Weight in N8C88c8n with both counts rounded up to a whole tile (zero lanes);
// any feature counts. Bias copied first as above.
void FullConnection_AVX_C_Float_M2_Full_Connection(float* input, int inFeatures, int outFeatures, float* weight,
                                                   float* bias, float* output);
// Row-major weight, eight rows at a time reduced by a transposing horizontal
// add. Bias copied first as above.
void FullConnection_AVX_C_Float_M3_Full_Connection(float* input, int inFeatures, int outFeatures, float* weight,
                                                   float* bias, float* output);
// A C8HW8 map [ceil(C / 8), H, W, 8] against a weight packed by
// Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback from [1, O, C * H * W, 1, 1]
// (CHW-flattened rows); accumulates onto the C8HW8 output
// [ceil(O / 8), 1, 1, 8], which the caller has filled with the bias or zero.
void FullConnection_AVX_C8HW8_Float_M1_Full_Connection(const float* input, int channels, int height, int width,
                                                       int outFeatures, const float* weight, float* output);

}  // namespace kernel
}  // namespace tarn
