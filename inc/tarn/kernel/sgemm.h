// The library's only door to the CBLAS matrix product.
#pragma once

namespace tarn {
namespace kernel {

// C (M x N) = alpha * A (M x K) * B (K x N) + beta * C, all row-major and
// untransposed (leading dimensions K, N and N). The first call pins OpenBLAS
// to one thread, so the product runs on the caller's thread only; that
// setting is process-wide. Empty sizes leave C alone (K == 0 scales C by beta).
void Sgemm(int M, int K, int N, float alpha, const float* A, const float* B, float beta, float* C);
// The same with either operand stored transposed: A is K x M when trans_a
// (leading dimension M), B is N x K when trans_b (leading dimension K).
void Sgemm(bool trans_a, bool trans_b, int M, int K, int N, float alpha, const float* A, const float* B, float beta,
           float* C);

}  // namespace kernel
}  // namespace tarn
