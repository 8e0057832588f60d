// Gemm through the CBLAS matrix product (the project's Sgemm wrapper, one
// thread). Registered with the portable kernels: it runs on any x86-64.
#pragma once

#include "kernel/cpu/fallback/gemm/gemm.h"

namespace tarn {
namespace kernel {
namespace functional {

void gemm_f32_sgemm(bool trans_a, bool trans_b, int M, int N, int K, float alpha, const float* A, const float* B,
                    float beta, float* Y);

}  // namespace functional

TRN_GEMM_KERNEL(Gemm_SGEMM_Float_M1, functional::gemm_f32_sgemm)

}  // namespace kernel
}  // namespace tarn
