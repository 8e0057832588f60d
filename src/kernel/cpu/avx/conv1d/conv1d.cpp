#include "kernel/cpu/avx/conv1d/conv1d.h"

#include <immintrin.h>

#include <cstddef>

namespace tarn {
namespace kernel {
namespace {

using std::ptrdiff_t;

// out[n][l] += w0 * in[c][l] + w1 * in[c][l + 1] + w2 * in[c][l + 2] for all
// n, c; `in` holds `channels` rows of length + 2 floats (already padded).
void ThreeTaps(const float* in, int channels, int length, const float* weight, int outChannels, float* out) {
  const ptrdiff_t inRow = ptrdiff_t(length) + 2;
  for (int n = 0; n < outChannels; ++n) {
    float* o = out + ptrdiff_t(n) * length;
    for (int c = 0; c < channels; ++c) {
      const float* w = weight + (ptrdiff_t(n) * channels + c) * 3;
      const float* s = in + c * inRow;
      const __m256 w0 = _mm256_set1_ps(w[0]), w1 = _mm256_set1_ps(w[1]), w2 = _mm256_set1_ps(w[2]);
      int l = 0;
      for (; l + 8 <= length; l += 8) {
        __m256 acc = _mm256_loadu_ps(o + l);
        acc = _mm256_fmadd_ps(w0, _mm256_loadu_ps(s + l), acc);
        acc = _mm256_fmadd_ps(w1, _mm256_loadu_ps(s + l + 1), acc);
        acc = _mm256_fmadd_ps(w2, _mm256_loadu_ps(s + l + 2), acc);
        _mm256_storeu_ps(o + l, acc);
      }
      const __m128 t0 = _mm256_castps256_ps128(w0), t1 = _mm256_castps256_ps128(w1), t2 = _mm256_castps256_ps128(w2);
      for (; l < length; ++l) {
        __m128 dot = _mm_mul_ss(t0, _mm_load_ss(s + l));
        dot = _mm_fmadd_ss(t1, _mm_load_ss(s + l + 1), dot);
        dot = _mm_fmadd_ss(t2, _mm_load_ss(s + l + 2), dot);
        o[l] += _mm_cvtss_f32(dot);
      }
    }
  }
}

}  // namespace

bool Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                 std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                 std::shared_ptr<runtime::Context> context) const {
  std::shared_ptr<runtime::TensorCPU> padded, output;
  if (!Prepare(inputs, context, &padded, &output)) return false;
  ThreeTaps(padded->DataAs<float>(), static_cast<int>(InChannels()), static_cast<int>(output->shape.dims[1]),
            weight_->DataAs<float>(), static_cast<int>(OutChannels()), output->DataAs<float>());
  outputs.assign(1, output);
  return true;
}

}  // namespace kernel
}  // namespace tarn
