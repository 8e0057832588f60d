// AVX grid sampling on C8HW8: the taps of a strip of output pixels are worked
// out once (by the portable routine), then every block blends one 8-channel
// register per tap with the portable form's products and sums in the same
// order (a tap outside the plane reads a zero register).
#include <immintrin.h>

#include <algorithm>

#include "tarn/kernel/grid_sample.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

inline __m256 Tap(const float* plane, std::int32_t offset) {
  return offset >= 0 ? _mm256_loadu_ps(plane + std::size_t(offset) * 8) : _mm256_setzero_ps();
}

}  // namespace

void grid_sample_c8hw8_avx_f32(const float* src, std::uint32_t planes, std::uint32_t lanes, const GridSampleSetup& setup,
                               const float* grid, std::size_t pixels, float* dst) {
  TARN_NATIVE_ASSERT(lanes == 8);
  const std::size_t plane = std::size_t(setup.in_h) * setup.in_w * 8;
  GridTaps taps;
  for (std::size_t start = 0; start < pixels; start += kGridStrip) {
    const std::uint32_t count = static_cast<std::uint32_t>(std::min<std::size_t>(kGridStrip, pixels - start));
    GridSampleTaps(setup, grid + 2 * start, count, &taps);
    for (std::uint32_t b = 0; b < planes; ++b) {
      const float* p = src + b * plane;
      float* out = dst + (b * pixels + start) * 8;
      if (!setup.bilinear) {
        for (std::uint32_t i = 0; i < count; ++i, out += 8) _mm256_storeu_ps(out, Tap(p, taps.offset[0][i]));
        continue;
      }
      for (std::uint32_t i = 0; i < count; ++i, out += 8) {
        __m256 acc = _mm256_mul_ps(Tap(p, taps.offset[0][i]), _mm256_set1_ps(taps.weight[0][i]));
        for (int k = 1; k < 4; ++k) {
          acc = _mm256_add_ps(acc, _mm256_mul_ps(Tap(p, taps.offset[k][i]), _mm256_set1_ps(taps.weight[k][i])));
        }
        _mm256_storeu_ps(out, acc);
      }
    }
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
