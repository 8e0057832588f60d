// Raw-pointer convolution routines: im2col and the weight-stationary cores.
//
// They take only integers and float pointers so any kernel can reuse them, and
// check their arguments with process-ending assertions: the calling kernel must
// have rejected bad parameters and inputs before (IsValidParam, Config,
// IsValidInput). Input sizes are those after padding; padding is never applied
// here. The cores accumulate into dst: the caller fills it with the bias (or
// zero) first and applies any activation afterwards.
//
// The names carry the instruction set a routine needs: sse = SSE4.1 + FMA,
// avx = AVX2 + FMA.
#pragma once

namespace tarn {
namespace kernel {
namespace native {

// col[(c * KY + ky) * KX + kx][oy * colW + ox] = img[c][oy * SY + ky * DY][ox * SX + kx * DX].
// A 1x1 kernel with stride 1 is a plain copy whatever the dilation.
void im2col_chw_f32_sse_m0(int i_imgC, int i_imgH, int i_imgW, int i_colC, int i_colH, int i_colW, int i_kernelY,
                           int i_kernelX, int i_strideY, int i_strideX, int i_dilateY, int i_dilateX, float* img,
                           float* col);
// The same on C4HW4: i_imgC and i_colC count 4-channel blocks, every moved
// element is one 4-float pixel vector.
void im2col_c4hw4_f32_sse_m0(int i_imgC, int i_imgH, int i_imgW, int i_colC, int i_colH, int i_colW, int i_kernelY,
                             int i_kernelX, int i_strideY, int i_strideX, int i_dilateY, int i_dilateX, float* img,
                             float* col);
// The same on C8HW8: every moved element is one 8-float pixel vector.
void im2col_c8hw8_f32_sse_m0(int i_imgC, int i_imgH, int i_imgW, int i_colC, int i_colH, int i_colW, int i_kernelY,
                             int i_kernelX, int i_strideY, int i_strideX, int i_dilateY, int i_dilateX, float* img,
                             float* col);

// 1x1 cores. Every one takes the same argument list; kernel, stride,
// dilation and group arguments must all be 1. i_srcC / i_dstC count stored
// planes (CHW) or blocks (C4HW4, C8HW8).
//
// Weight orders (H = W = 1), tiles indexed (output block, input block):
//   chw               row-major [outChannels][inChannels]
//   c4hw4             GN4C4HW4c4n: 4x4 tile, row k = input lane k to the 4 outputs
//   c8hw8, c4hw4_to_c8hw8, c8hw8_to_c4hw4 (m0), c8hw8_to_chw
//                     GN8C8HW8c8n: 8x8 tile, row k = input lane k to the 8 outputs
//                     (c4hw4_to_c8hw8 reads input blocks 2b and 2b + 1 for tile b;
//                     c8hw8_to_c4hw4_m0 writes output blocks 2b and 2b + 1)
//   c8hw8_to_c4hw4 m1 GN4C8HW8c4n: 8x4 tile, row k = input lane k to the 4 outputs
#define TARN_CONV_CORE_PARAMS                                                                                      \
  int i_inChannels, int i_srcH, int i_srcW, float *src, int i_srcC, int i_outChannels, int i_kernelY, int i_kernelX, \
      int i_strideY, int i_strideX, int i_dilateY, int i_dilateX, int i_groups, float *weight, int i_dstC,           \
      int i_dstH, int i_dstW, float *dst

// Plane sweep: per (output, input) channel pair dst[o] += w * src[i].
void conv2d_k1x1_s1x1_d1x1_g1_chw_f32_sse_m1(TARN_CONV_CORE_PARAMS);
// One 4x4 tile in registers across a whole plane, eight pixels per step.
void conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_sse_m0(TARN_CONV_CORE_PARAMS);
// One half (four outputs) of an 8x8 tile in registers per plane sweep.
void conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_sse_m0(TARN_CONV_CORE_PARAMS);
// Two pixels per 256-bit vector, the tile duplicated into both halves.
void conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_avx_m0(TARN_CONV_CORE_PARAMS);
// As m0, two input blocks per sweep: half the read-modify-write traffic on dst.
void conv2d_k1x1_s1x1_d1x1_g1_c4hw4_f32_avx_m1(TARN_CONV_CORE_PARAMS);
// One 8x8 tile in registers across a whole plane, eight pixels per step.
void conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m0(TARN_CONV_CORE_PARAMS);
// As m0 with two interleaved sums per pixel (shorter dependency chains),
// four pixels per step.
void conv2d_k1x1_s1x1_d1x1_g1_c8hw8_f32_avx_m3(TARN_CONV_CORE_PARAMS);
void conv2d_k1x1_s1x1_d1x1_g1_c4hw4_to_c8hw8_f32_avx_m0(TARN_CONV_CORE_PARAMS);
void conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_c4hw4_f32_avx_m0(TARN_CONV_CORE_PARAMS);
// Checks its input with "(i_inChannels + 3) / 8 == i_srcC" (kept as it is), so
// it refuses channel counts of 1 to 4 modulo 8.
void conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_c4hw4_f32_avx_m1(TARN_CONV_CORE_PARAMS);
// Eight pixels by eight outputs per step, transposed into the output planes.
void conv2d_k1x1_s1x1_d1x1_g1_c8hw8_to_chw_f32_avx_m0(TARN_CONV_CORE_PARAMS);

// Direct 3x3, stride 1, dilation 1 on C8HW8; weight GN8C8HW8c8n with H = W = 3
// (tile (output block, input block, ky, kx)). One output block by four pixels
// per register tile, sliding along the row: each input pixel under the tile
// is broadcast once per input lane for the three taps that read it.
void conv2d_k3x3_s1x1_d1x1_g1_c8hw8_f32_sse_m0(TARN_CONV_CORE_PARAMS);
// The same at stride 2 (each input pixel feeds one or two taps).
void conv2d_k3x3_s2x2_d1x1_g1_c8hw8_f32_sse_m0(TARN_CONV_CORE_PARAMS);

}  // namespace native
}  // namespace kernel
}  // namespace tarn
