// Row interleaving of the SSE pixel shuffle. Factor 2 interleaves two rows
// with unpacks, factor 4 transposes 4x4 tiles; other factors and the last
// width % 4 columns take the portable loop. Moves only: values arrive bit
// for bit.
#include <immintrin.h>

#include "kernel/cpu/sse/pixel_shuffle/pixel_shuffle.h"

namespace tarn {
namespace kernel {
namespace functional {

void interleave_rows_f32_sse(const float* const* rows, std::uint32_t r, std::uint32_t width, float* out) {
  std::uint32_t x = 0;
  if (r == 2) {
    for (; x + 4 <= width; x += 4, out += 8) {
      const __m128 a = _mm_loadu_ps(rows[0] + x), b = _mm_loadu_ps(rows[1] + x);
      _mm_storeu_ps(out, _mm_unpacklo_ps(a, b));
      _mm_storeu_ps(out + 4, _mm_unpackhi_ps(a, b));
    }
  } else if (r == 4) {
    for (; x + 4 <= width; x += 4, out += 16) {
      __m128 a = _mm_loadu_ps(rows[0] + x), b = _mm_loadu_ps(rows[1] + x);
      __m128 c = _mm_loadu_ps(rows[2] + x), d = _mm_loadu_ps(rows[3] + x);
      _MM_TRANSPOSE4_PS(a, b, c, d);
      _mm_storeu_ps(out, a);
      _mm_storeu_ps(out + 4, b);
      _mm_storeu_ps(out + 8, c);
      _mm_storeu_ps(out + 12, d);
    }
  }
  InterleaveRest(rows, r, x, width, out);
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
