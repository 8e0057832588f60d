// Raw-pointer matrix products of the specialised convolutions: the product
// of 8-lane blocked matrices under the 1x1 C8HW8 members (GEMM and its
// Strassen recursion), and the column-matrix product of the large-kernel CHW
// members (conv_im2col_sgemm_*). Like the routines of native_conv.h they check
// their arguments with process-ending assertions; the calling kernel has
// refused bad parameters before. The avx routines need AVX2 + FMA; the weight
// transform is plain C++ (Config runs it on any processor).
#pragma once

#include <memory>

namespace tarn {
namespace runtime {
class Context;
}  // namespace runtime
namespace kernel {
namespace native {

// Blocked matrices. Each matrix is a float pointer and four sizes: its rows
// and columns, then the rows and columns of the buffer it lies in (a quadrant
// of a larger matrix keeps the larger one's buffer columns as its stride).
// Sizes count elements:
//   A (the first operand)  an element is an 8 x 8 tile of 64 floats, element
//                          (i, k) at a + (i * aBufCols + k) * 64; row r of a
//                          tile maps lane r of a B element onto C's 8 lanes;
//   B and C                an element is an 8-float vector, element (k, j) at
//                          b + (k * bBufCols + j) * 8.
// A 1x1 convolution on C8HW8 is exactly C = A B with A the GN8C8HW8c8n weight
// (output blocks x input blocks), B the input (input blocks x H * W) and C the
// output (output blocks x H * W).

// C = A B, overwriting C: output-stationary tiles of up to three C rows by
// four columns in registers while every column of A is folded in.
void GEMM(const float* a, unsigned aRows, unsigned aCols, unsigned aBufRows, unsigned aBufCols, const float* b,
          unsigned bRows, unsigned bCols, unsigned bBufRows, unsigned bBufCols, float* c, unsigned cRows,
          unsigned cCols, unsigned cBufRows, unsigned cBufCols);

// C = A B by Strassen's recursion, overwriting C. With `level` above 1, or
// any of A's or B's two sizes odd, the product is one GEMM; otherwise the
// operands are cut into quadrants and the seven products
//   M1 = (A11 + A22)(B11 + B22)  M2 = (A21 + A22) B11  M3 = A11 (B12 - B22)
//   M4 = A22 (B21 - B11)         M5 = (A11 + A12) B22  M6 = (A21 - A11)(B11 + B12)
//   M7 = (A12 - A22)(B21 + B22)
// are each made by a call with level + 1 into temporaries of the context's
// device (as are the operand sums), then combined:
//   C11 = M1 + M4 - M5 + M7  C12 = M3 + M5  C21 = M2 + M4  C22 = M1 - M2 + M3 + M6.
// Called with level 0 it recurses at most twice (49 direct products). Returns
// the number of direct GEMM products made.
unsigned Strassen_M1(const float* a, unsigned aRows, unsigned aCols, unsigned aBufRows, unsigned aBufCols,
                     const float* b, unsigned bRows, unsigned bCols, unsigned bBufRows, unsigned bBufCols, float* c,
                     unsigned cRows, unsigned cCols, unsigned cBufRows, unsigned cBufCols, unsigned level,
                     const std::shared_ptr<runtime::Context>& context);

// The column-matrix product of a CHW convolution (any kernel and stride,
// dilation 1, one group).
//
// The weight [outch][inch][kernel_size] (kernel_size = KY * KX) re-ordered
// once into `kernel_tm` of conv_im2col_sgemm_weight_floats(inch, outch,
// kernel_size) floats: {ceil(outch / 4), inch * kernel_size, 4}, per block of
// four output channels and per column-matrix row (c, ky, kx) the four weights,
// zero beyond outch.
void conv_im2col_sgemm_transform_kernel_sse(const float* kernel, float* kernel_tm, int inch, int outch,
                                            int kernel_size);
constexpr long conv_im2col_sgemm_weight_floats(int inch, int outch, int kernel_size) {
  return (long(outch) + 3) / 4 * 4 * inch * kernel_size;
}
// out[n][oy][ox] = bias[n] + sum over (c, ky, kx) of w[n][c][ky][kx] *
// in[c][oy * strideY + ky][ox * strideX + kx] for a padded CHW input
// [inC, inH, inW] and CHW output [outC, outH, outW]; bias null means none.
// The routine builds the column matrix itself, a panel of output pixels at a
// time (the panel stays in the second-level cache; its scratch is allocated
// per call and a failed allocation throws std::bad_alloc), and multiplies each panel
// with the re-ordered weight four output channels by 24 pixels at a time,
// the accumulators starting from the bias: no fill pass before.
void conv_im2col_sgemm_avx(int inC, int inH, int inW, const float* in, int outC, int outH, int outW, float* out,
                           const float* kernel_tm, const float* bias, int kernelY, int kernelX, int strideY,
                           int strideX);

}  // namespace native
}  // namespace kernel
}  // namespace tarn
