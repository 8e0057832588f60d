// AVX grid sampling: the taps of a strip of output pixels are worked out once
// (by the portable routine), then every channel gathers eight outputs per
// step, a tap outside the plane masked to 0, and blends them with the
// portable form's products and sums in the same order.
#include <immintrin.h>

#include <algorithm>

#include "tarn/kernel/grid_sample.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

inline __m256 Tap(const float* plane, const std::int32_t* offset) {
  const __m256i idx = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(offset));
  const __m256 inside = _mm256_castsi256_ps(_mm256_cmpgt_epi32(idx, _mm256_set1_epi32(-1)));
  return _mm256_mask_i32gather_ps(_mm256_setzero_ps(), plane, idx, inside, 4);
}

inline float ScalarTap(const float* plane, std::int32_t offset) { return offset >= 0 ? plane[offset] : 0.0f; }

}  // namespace

void grid_sample_avx_f32(const float* src, std::uint32_t channels, const GridSampleSpec& spec, const float* grid,
                         std::size_t pixels, float* dst) {
  const std::size_t plane = std::size_t(spec.in_h) * spec.in_w;
  GridTaps taps;
  for (std::size_t start = 0; start < pixels; start += kGridStrip) {
    const std::uint32_t count = static_cast<std::uint32_t>(std::min<std::size_t>(kGridStrip, pixels - start));
    GridSampleTaps(spec, grid + 2 * start, count, &taps);
    for (std::uint32_t c = 0; c < channels; ++c) {
      const float* p = src + c * plane;
      float* out = dst + c * pixels + start;
      std::uint32_t i = 0;
      if (!spec.bilinear) {
        for (; i + 8 <= count; i += 8) _mm256_storeu_ps(out + i, Tap(p, taps.offset[0] + i));
        for (; i < count; ++i) out[i] = ScalarTap(p, taps.offset[0][i]);
        continue;
      }
      for (; i + 8 <= count; i += 8) {
        __m256 acc = _mm256_mul_ps(Tap(p, taps.offset[0] + i), _mm256_loadu_ps(taps.weight[0] + i));
        for (int k = 1; k < 4; ++k) {
          acc = _mm256_add_ps(acc, _mm256_mul_ps(Tap(p, taps.offset[k] + i), _mm256_loadu_ps(taps.weight[k] + i)));
        }
        _mm256_storeu_ps(out + i, acc);
      }
      for (; i < count; ++i) {
        float acc = ScalarTap(p, taps.offset[0][i]) * taps.weight[0][i];
        for (int k = 1; k < 4; ++k) acc = acc + ScalarTap(p, taps.offset[k][i]) * taps.weight[k][i];
        out[i] = acc;
      }
    }
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
