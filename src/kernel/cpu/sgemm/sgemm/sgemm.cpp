#include "tarn/kernel/sgemm.h"

#include <cblas.h>

#include <cstddef>
#include <mutex>

namespace tarn {
namespace kernel {
namespace {

// Constant-initialised: nothing runs when the library loads.
std::once_flag g_single_thread;

}  // namespace

void Sgemm(int M, int K, int N, float alpha, const float* A, const float* B, float beta, float* C) {
  Sgemm(false, false, M, K, N, alpha, A, B, beta, C);
}

void Sgemm(bool trans_a, bool trans_b, int M, int K, int N, float alpha, const float* A, const float* B, float beta,
           float* C) {
  if (M <= 0 || N <= 0) return;
  if (K <= 0) {
    // No product: CBLAS would reject the zero leading dimension of A.
    const std::size_t count = static_cast<std::size_t>(M) * N;
    for (std::size_t i = 0; i < count; ++i) C[i] = beta == 0.0f ? 0.0f : beta * C[i];
    return;
  }
  std::call_once(g_single_thread, [] { openblas_set_num_threads(1); });
  cblas_sgemm(CblasRowMajor, trans_a ? CblasTrans : CblasNoTrans, trans_b ? CblasTrans : CblasNoTrans, M, N, K, alpha,
              A, trans_a ? M : K, B, trans_b ? K : N, beta, C, N);
}

}  // namespace kernel
}  // namespace tarn
