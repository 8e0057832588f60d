#include "kernel/cpu/sgemm/gemm/gemm.h"

#include "tarn/kernel/sgemm.h"

namespace tarn {
namespace kernel {
namespace functional {

void gemm_f32_sgemm(bool trans_a, bool trans_b, int M, int N, int K, float alpha, const float* A, const float* B,
                    float beta, float* Y) {
  Sgemm(trans_a, trans_b, M, K, N, alpha, A, B, beta, Y);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
