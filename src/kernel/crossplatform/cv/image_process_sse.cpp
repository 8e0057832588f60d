// ImageProcessSSE: vector quarter turns and the vector warp-and-normalise.
// Results equal the fallback's bit for bit: the rotations only move bytes,
// and Affine_Normalize does its sampling in integers, taking the fixed-point
// source points from the fallback's BuildAffineSampleMap; its only float
// steps are the conversion, a multiply by 2^-20 (exact, so fusing it with the
// subtraction changes nothing), the subtraction and the multiply.
#include <smmintrin.h>

#include <cstdint>
#include <cstring>

#include "tarn/kernel/image_process.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace native {

namespace {

inline __m128i Load(const std::uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void Store(std::uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// N x N transposes of N-lane vectors: log2(N) rounds of pairing register i
// with register i + N/2 at the lane width.
template <int N, typename Unpack>
inline void TransposeRounds(__m128i* v, Unpack lo_hi) {
  for (int round = 0; (1 << round) < N; ++round) {
    __m128i t[N];
    for (int i = 0; i < N / 2; ++i) lo_hi(v[i], v[i + N / 2], t[2 * i], t[2 * i + 1]);
    for (int i = 0; i < N; ++i) v[i] = t[i];
  }
}

void Transpose16x16_U8(const std::uint8_t* s, std::ptrdiff_t ss, std::uint8_t* d, std::ptrdiff_t ds) {
  __m128i v[16];
  for (int r = 0; r < 16; ++r) v[r] = Load(s + r * ss);
  TransposeRounds<16>(v, [](__m128i a, __m128i b, __m128i& lo, __m128i& hi) {
    lo = _mm_unpacklo_epi8(a, b);
    hi = _mm_unpackhi_epi8(a, b);
  });
  for (int r = 0; r < 16; ++r) Store(d + r * ds, v[r]);
}

void Transpose8x8_U16(const std::uint8_t* s, std::ptrdiff_t ss, std::uint8_t* d, std::ptrdiff_t ds) {
  __m128i v[8];
  for (int r = 0; r < 8; ++r) v[r] = Load(s + r * ss);
  TransposeRounds<8>(v, [](__m128i a, __m128i b, __m128i& lo, __m128i& hi) {
    lo = _mm_unpacklo_epi16(a, b);
    hi = _mm_unpackhi_epi16(a, b);
  });
  for (int r = 0; r < 8; ++r) Store(d + r * ds, v[r]);
}

inline void Transpose4x4_U32Regs(__m128i* v) {
  TransposeRounds<4>(v, [](__m128i a, __m128i b, __m128i& lo, __m128i& hi) {
    lo = _mm_unpacklo_epi32(a, b);
    hi = _mm_unpackhi_epi32(a, b);
  });
}

void Transpose4x4_U32(const std::uint8_t* s, std::ptrdiff_t ss, std::uint8_t* d, std::ptrdiff_t ds) {
  __m128i v[4];
  for (int r = 0; r < 4; ++r) v[r] = Load(s + r * ss);
  Transpose4x4_U32Regs(v);
  for (int r = 0; r < 4; ++r) Store(d + r * ds, v[r]);
}

void Transpose2x2_U64(const std::uint8_t* s, std::ptrdiff_t ss, std::uint8_t* d, std::ptrdiff_t ds) {
  const __m128i a = Load(s), b = Load(s + ss);
  Store(d, _mm_unpacklo_epi64(a, b));
  Store(d + ds, _mm_unpackhi_epi64(a, b));
}

// 3-byte pixels: widen four of them to 32-bit lanes, transpose, narrow back.
// Loads and stores touch exactly 12 bytes per row.
void Transpose4x4_U24(const std::uint8_t* s, std::ptrdiff_t ss, std::uint8_t* d, std::ptrdiff_t ds) {
  const __m128i widen = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
  const __m128i narrow = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  __m128i v[4];
  for (int r = 0; r < 4; ++r) {
    const std::uint8_t* row = s + r * ss;
    std::int32_t tail;
    std::memcpy(&tail, row + 8, 4);
    const __m128i packed =
        _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(row)), _mm_cvtsi32_si128(tail));
    v[r] = _mm_shuffle_epi8(packed, widen);
  }
  Transpose4x4_U32Regs(v);
  for (int r = 0; r < 4; ++r) {
    std::uint8_t* row = d + r * ds;
    const __m128i packed = _mm_shuffle_epi8(v[r], narrow);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(row), packed);
    const std::int32_t tail = _mm_extract_epi32(packed, 2);
    std::memcpy(row + 8, &tail, 4);
  }
}

using BlockKernel = void (*)(const std::uint8_t*, std::ptrdiff_t, std::uint8_t*, std::ptrdiff_t);

// dst(i, j) = src(j, i) in vector blocks; the ragged right and bottom strips
// go through the portable transpose.
void TransposeSSE(const std::uint8_t* src, std::ptrdiff_t ss, std::uint8_t* dst, std::ptrdiff_t ds,
                  std::uint32_t rows, std::uint32_t cols, std::uint32_t pb) {
  TARN_NATIVE_ASSERT(src != nullptr && dst != nullptr);
  BlockKernel kernel = nullptr;
  std::uint32_t block = 0;
  switch (pb) {
    case 1: kernel = Transpose16x16_U8; block = 16; break;
    case 2: kernel = Transpose8x8_U16; block = 8; break;
    case 3: kernel = Transpose4x4_U24; block = 4; break;
    case 4: kernel = Transpose4x4_U32; block = 4; break;
    case 8: kernel = Transpose2x2_U64; block = 2; break;
    default: break;
  }
  if (kernel == nullptr) {
    functional::TransposePixels(src, ss, dst, ds, rows, cols, pb);
    return;
  }
  const std::uint32_t full_cols = cols - cols % block, full_rows = rows - rows % block;
  // Column strips of 64 source columns keep the written rows in cache.
  for (std::uint32_t c0 = 0; c0 < full_cols; c0 += 64) {
    const std::uint32_t c1 = c0 + 64 < full_cols ? c0 + 64 : full_cols;
    for (std::uint32_t j = 0; j < full_rows; j += block) {
      for (std::uint32_t i = c0; i < c1; i += block) {
        kernel(src + static_cast<std::ptrdiff_t>(j) * ss + static_cast<std::ptrdiff_t>(i) * pb, ss,
               dst + static_cast<std::ptrdiff_t>(i) * ds + static_cast<std::ptrdiff_t>(j) * pb, ds);
      }
    }
  }
  if (full_cols < cols) {
    functional::TransposePixels(src + static_cast<std::ptrdiff_t>(full_cols) * pb, ss,
                                dst + static_cast<std::ptrdiff_t>(full_cols) * ds, ds, rows, cols - full_cols, pb);
  }
  if (full_rows < rows) {
    functional::TransposePixels(src + static_cast<std::ptrdiff_t>(full_rows) * ss, ss,
                                dst + static_cast<std::ptrdiff_t>(full_rows) * pb, ds, rows - full_rows, full_cols,
                                pb);
  }
}

// ---------------------------------------------------------------- warp and normalise

struct NormalizeJob {
  const std::uint8_t* src;
  std::int64_t width, height;            // source
  std::int64_t pix, row, plane;          // source element strides
  std::uint32_t channels;
  float* dst;
  std::uint32_t out_width, out_height;
  const functional::AffineSampleMap* map;
  int border;
  const float* mean;
  const float* scale;
};

constexpr float kFixedToFloat = 1.0f / 1048576.0f;  // 2^-20

inline int Tap(const NormalizeJob& j, const std::uint8_t* base, std::int64_t x, std::int64_t y) {
  return (x >= 0 && x < j.width && y >= 0 && y < j.height) ? base[y * j.row + x * j.pix] : j.border;
}

// The scalar rendering for the row tails; identical arithmetic.
void NormalizePixel(const NormalizeJob& j, std::uint32_t x, std::uint32_t y) {
  const functional::AffineSampleMap& m = *j.map;
  const std::int32_t X = m.col_x[x] + m.row_x[y], Y = m.col_y[x] + m.row_y[y];
  const std::int64_t sx = X >> 10, sy = Y >> 10;
  const int fx = X & 1023, fy = Y & 1023;
  const std::size_t plane = static_cast<std::size_t>(j.out_width) * j.out_height;
  for (std::uint32_t c = 0; c < j.channels; ++c) {
    const std::uint8_t* base = j.src + c * j.plane;
    const int h0 = Tap(j, base, sx, sy) * (1024 - fx) + Tap(j, base, sx + 1, sy) * fx;
    const int h1 = Tap(j, base, sx, sy + 1) * (1024 - fx) + Tap(j, base, sx + 1, sy + 1) * fx;
    const int v = h0 * (1024 - fy) + h1 * fy;
    const float sample = static_cast<float>(v) * kFixedToFloat;
    j.dst[c * plane + static_cast<std::size_t>(y) * j.out_width + x] = (sample - j.mean[c]) * j.scale[c];
  }
}

inline void StoreNormalized(float* q, __m128i v, __m128 mean, __m128 scale) {
  const __m128 sample = _mm_mul_ps(_mm_cvtepi32_ps(v), _mm_set1_ps(kFixedToFloat));
  _mm_storeu_ps(q, _mm_mul_ps(_mm_sub_ps(sample, mean), scale));
}

// Four destination pixels per step: source points and weights in vector
// lanes, the 16 taps per channel gathered, the blend in 32-bit lanes.
void NormalizeGeneral(const NormalizeJob& j) {
  const functional::AffineSampleMap& m = *j.map;
  const std::size_t plane = static_cast<std::size_t>(j.out_width) * j.out_height;
  const __m128i lowbits = _mm_set1_epi32(1023), one = _mm_set1_epi32(1024), minus1 = _mm_set1_epi32(-1);
  const __m128i last_x = _mm_set1_epi32(static_cast<int>(j.width - 1));
  const __m128i last_y = _mm_set1_epi32(static_cast<int>(j.height - 1));
  for (std::uint32_t y = 0; y < j.out_height; ++y) {
    const __m128i rx = _mm_set1_epi32(m.row_x[y]), ry = _mm_set1_epi32(m.row_y[y]);
    std::uint32_t x = 0;
    for (; x + 4 <= j.out_width; x += 4) {
      const __m128i X = _mm_add_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(&m.col_x[x])), rx);
      const __m128i Y = _mm_add_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(&m.col_y[x])), ry);
      const __m128i sx = _mm_srai_epi32(X, 10), sy = _mm_srai_epi32(Y, 10);
      const __m128i fx = _mm_and_si128(X, lowbits), fy = _mm_and_si128(Y, lowbits);
      const __m128i wx0 = _mm_sub_epi32(one, fx), wy0 = _mm_sub_epi32(one, fy);
      // All four neighbours of all four points inside: sx in [0, w-2], sy in [0, h-2].
      const __m128i inside = _mm_and_si128(_mm_and_si128(_mm_cmpgt_epi32(sx, minus1), _mm_cmplt_epi32(sx, last_x)),
                                           _mm_and_si128(_mm_cmpgt_epi32(sy, minus1), _mm_cmplt_epi32(sy, last_y)));
      alignas(16) std::int32_t xs[4], ys[4];
      _mm_store_si128(reinterpret_cast<__m128i*>(xs), sx);
      _mm_store_si128(reinterpret_cast<__m128i*>(ys), sy);
      const bool all_inside = _mm_movemask_epi8(inside) == 0xFFFF;
      std::int64_t off[4];
      for (int k = 0; k < 4; ++k) off[k] = ys[k] * j.row + xs[k] * j.pix;
      for (std::uint32_t c = 0; c < j.channels; ++c) {
        const std::uint8_t* base = j.src + c * j.plane;
        __m128i p00, p01, p10, p11;
        if (all_inside) {
          const std::uint8_t* a = base + off[0];
          const std::uint8_t* b = base + off[1];
          const std::uint8_t* e = base + off[2];
          const std::uint8_t* f = base + off[3];
          const std::int64_t px = j.pix, rw = j.row;
          p00 = _mm_setr_epi32(a[0], b[0], e[0], f[0]);
          p01 = _mm_setr_epi32(a[px], b[px], e[px], f[px]);
          p10 = _mm_setr_epi32(a[rw], b[rw], e[rw], f[rw]);
          p11 = _mm_setr_epi32(a[rw + px], b[rw + px], e[rw + px], f[rw + px]);
        } else {
          alignas(16) std::int32_t t[4][4];
          for (int k = 0; k < 4; ++k) {
            t[0][k] = Tap(j, base, xs[k], ys[k]);
            t[1][k] = Tap(j, base, std::int64_t(xs[k]) + 1, ys[k]);
            t[2][k] = Tap(j, base, xs[k], std::int64_t(ys[k]) + 1);
            t[3][k] = Tap(j, base, std::int64_t(xs[k]) + 1, std::int64_t(ys[k]) + 1);
          }
          p00 = _mm_load_si128(reinterpret_cast<const __m128i*>(t[0]));
          p01 = _mm_load_si128(reinterpret_cast<const __m128i*>(t[1]));
          p10 = _mm_load_si128(reinterpret_cast<const __m128i*>(t[2]));
          p11 = _mm_load_si128(reinterpret_cast<const __m128i*>(t[3]));
        }
        const __m128i h0 = _mm_add_epi32(_mm_mullo_epi32(p00, wx0), _mm_mullo_epi32(p01, fx));
        const __m128i h1 = _mm_add_epi32(_mm_mullo_epi32(p10, wx0), _mm_mullo_epi32(p11, fx));
        const __m128i v = _mm_add_epi32(_mm_mullo_epi32(h0, wy0), _mm_mullo_epi32(h1, fy));
        StoreNormalized(j.dst + c * plane + static_cast<std::size_t>(y) * j.out_width + x, v,
                        _mm_set1_ps(j.mean[c]), _mm_set1_ps(j.scale[c]));
      }
    }
    for (; x < j.out_width; ++x) NormalizePixel(j, x, y);
  }
}

// Whether every source point is the destination point moved by whole pixels;
// then every weight is (1024, 0) and each output is one source value (or the
// border), which the blend reproduces exactly.
bool IsWholePixelShift(const functional::AffineSampleMap& m, std::int64_t* tx, std::int64_t* ty) {
  if (m.col_x.empty() || m.row_x.empty()) return false;
  const std::int64_t X0 = std::int64_t(m.col_x[0]) + m.row_x[0], Y0 = std::int64_t(m.col_y[0]) + m.row_y[0];
  if ((X0 & 1023) != 0 || (Y0 & 1023) != 0) return false;
  for (std::size_t x = 0; x < m.col_x.size(); ++x) {
    if (std::int64_t(m.col_x[x]) - m.col_x[0] != std::int64_t(x) * 1024 || m.col_y[x] != m.col_y[0]) return false;
  }
  for (std::size_t y = 0; y < m.row_x.size(); ++y) {
    if (std::int64_t(m.row_y[y]) - m.row_y[0] != std::int64_t(y) * 1024 || m.row_x[y] != m.row_x[0]) return false;
  }
  *tx = X0 >> 10;
  *ty = Y0 >> 10;
  return true;
}

// Four consecutive interleaved pixels of C channels: exactly 4*C bytes read.
template <int C>
inline __m128i LoadFourPixels(const std::uint8_t* p) {
  if (C == 4) return Load(p);
  const __m128i lo = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
  if (C == 2) return lo;
  std::int32_t tail;
  std::memcpy(&tail, p + 8, 4);
  return _mm_unpacklo_epi64(lo, _mm_cvtsi32_si128(tail));
}

// Channel c of the four pixels as 32-bit lanes.
template <int C>
inline __m128i PickChannel(__m128i v, int c) {
  const __m128i pick = _mm_setr_epi8(static_cast<char>(c), -1, -1, -1, static_cast<char>(C + c), -1, -1, -1,
                                     static_cast<char>(2 * C + c), -1, -1, -1, static_cast<char>(3 * C + c), -1, -1,
                                     -1);
  return _mm_shuffle_epi8(v, pick);
}

template <int C>
void ShiftRowInterleaved(const NormalizeJob& j, const std::uint8_t* srow, float* const* out, std::uint32_t x0,
                         std::uint32_t x1, std::int64_t tx) {
  __m128 mean[C], scale[C];
  for (int c = 0; c < C; ++c) {
    mean[c] = _mm_set1_ps(j.mean[c]);
    scale[c] = _mm_set1_ps(j.scale[c]);
  }
  std::uint32_t x = x0;
  for (; x + 4 <= x1; x += 4) {
    const __m128i px = LoadFourPixels<C>(srow + (x + tx) * C);
    for (int c = 0; c < C; ++c) {
      // The lanes hold v / 2^20, so the blend's own conversion is repeated.
      StoreNormalized(out[c] + x, _mm_slli_epi32(PickChannel<C>(px, c), 20), mean[c], scale[c]);
    }
  }
  for (; x < x1; ++x) {
    for (int c = 0; c < C; ++c) {
      const float sample = static_cast<float>(srow[(x + tx) * C + c] << 20) * kFixedToFloat;
      out[c][x] = (sample - j.mean[c]) * j.scale[c];
    }
  }
}

void ShiftRowPlanar(const NormalizeJob& j, const std::uint8_t* srow, float* const* out, std::uint32_t x0,
                    std::uint32_t x1, std::int64_t tx) {
  for (std::uint32_t c = 0; c < j.channels; ++c) {
    const std::uint8_t* p = srow + c * j.plane + tx;
    const __m128 mean = _mm_set1_ps(j.mean[c]), scale = _mm_set1_ps(j.scale[c]);
    std::uint32_t x = x0;
    for (; x + 16 <= x1; x += 16) {
      const __m128i b = Load(p + x);
      const __m128i q0 = _mm_cvtepu8_epi32(b);
      const __m128i q1 = _mm_cvtepu8_epi32(_mm_srli_si128(b, 4));
      const __m128i q2 = _mm_cvtepu8_epi32(_mm_srli_si128(b, 8));
      const __m128i q3 = _mm_cvtepu8_epi32(_mm_srli_si128(b, 12));
      StoreNormalized(out[c] + x, _mm_slli_epi32(q0, 20), mean, scale);
      StoreNormalized(out[c] + x + 4, _mm_slli_epi32(q1, 20), mean, scale);
      StoreNormalized(out[c] + x + 8, _mm_slli_epi32(q2, 20), mean, scale);
      StoreNormalized(out[c] + x + 12, _mm_slli_epi32(q3, 20), mean, scale);
    }
    for (; x < x1; ++x) {
      const float sample = static_cast<float>(p[x] << 20) * kFixedToFloat;
      out[c][x] = (sample - j.mean[c]) * j.scale[c];
    }
  }
}

void NormalizeShift(const NormalizeJob& j, std::int64_t tx, std::int64_t ty) {
  const std::size_t plane = static_cast<std::size_t>(j.out_width) * j.out_height;
  float border[4];
  for (std::uint32_t c = 0; c < j.channels; ++c) {
    const float sample = static_cast<float>(j.border << 20) * kFixedToFloat;
    border[c] = (sample - j.mean[c]) * j.scale[c];
  }
  // Destination columns whose source column lies inside the image.
  const std::int64_t lo = tx < 0 ? -tx : 0;
  const std::int64_t hi = j.width - tx;
  const std::uint32_t x0 = static_cast<std::uint32_t>(lo < j.out_width ? lo : j.out_width);
  const std::uint32_t x1 =
      static_cast<std::uint32_t>(hi < 0 ? 0 : (hi < j.out_width ? hi : std::int64_t(j.out_width)));
  for (std::uint32_t y = 0; y < j.out_height; ++y) {
    float* out[4];
    for (std::uint32_t c = 0; c < j.channels; ++c) out[c] = j.dst + c * plane + static_cast<std::size_t>(y) * j.out_width;
    const std::int64_t sy = y + ty;
    const bool row_inside = sy >= 0 && sy < j.height;
    const std::uint32_t a = row_inside ? x0 : 0, b = row_inside ? (x1 > x0 ? x1 : x0) : 0;
    for (std::uint32_t c = 0; c < j.channels; ++c) {
      for (std::uint32_t x = 0; x < (row_inside ? a : j.out_width); ++x) out[c][x] = border[c];
      for (std::uint32_t x = (row_inside ? b : j.out_width); x < j.out_width; ++x) out[c][x] = border[c];
    }
    if (!row_inside || b <= a) continue;
    const std::uint8_t* srow = j.src + sy * j.row;
    if (j.pix == 1 && j.channels > 1) {
      ShiftRowPlanar(j, srow, out, a, b, tx);
      continue;
    }
    switch (j.channels) {
      case 1: ShiftRowPlanar(j, srow, out, a, b, tx); break;
      case 2: ShiftRowInterleaved<2>(j, srow, out, a, b, tx); break;
      case 3: ShiftRowInterleaved<3>(j, srow, out, a, b, tx); break;
      default: ShiftRowInterleaved<4>(j, srow, out, a, b, tx); break;
    }
  }
}

}  // namespace

}  // namespace native

ImageProcessSSE::~ImageProcessSSE() = default;

void ImageProcessSSE::ClockwiseRotate90(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  const functional::ImageGeometry g = functional::CheckQuarterTurn(src, dst, "ClockwiseRotate90");
  if (g.height == 0 || g.width == 0) return;
  const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(g.row_bytes());
  const std::ptrdiff_t drow = static_cast<std::ptrdiff_t>(g.height) * g.pixel_bytes;
  const std::uint8_t* p = static_cast<const std::uint8_t*>(src->Data());
  std::uint8_t* q = static_cast<std::uint8_t*>(dst->Data());
  for (std::uint32_t k = 0; k < g.planes; ++k) {
    // The transpose of the image read bottom-up.
    native::TransposeSSE(p + k * g.plane_bytes() + (g.height - 1) * row, -row, q + k * g.plane_bytes(), drow,
                         g.height, g.width, g.pixel_bytes);
  }
}

void ImageProcessSSE::ClockwiseRotate270(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  const functional::ImageGeometry g = functional::CheckQuarterTurn(src, dst, "ClockwiseRotate270");
  if (g.height == 0 || g.width == 0) return;
  const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(g.row_bytes());
  const std::ptrdiff_t drow = static_cast<std::ptrdiff_t>(g.height) * g.pixel_bytes;
  const std::uint8_t* p = static_cast<const std::uint8_t*>(src->Data());
  std::uint8_t* q = static_cast<std::uint8_t*>(dst->Data());
  for (std::uint32_t k = 0; k < g.planes; ++k) {
    // The transpose written bottom-up.
    native::TransposeSSE(p + k * g.plane_bytes(), row, q + k * g.plane_bytes() + (g.width - 1) * drow, -drow,
                         g.height, g.width, g.pixel_bytes);
  }
}

void ImageProcessSSE::Affine_Normalize(const TensorPtr& src, const TensorPtr& dst, const float* m,
                                       const AffineNormalizeParam& param, const ContextPtr&) {
  const functional::ImageGeometry s = functional::CheckAffineNormalize(src, dst);
  const functional::ImageGeometry d = functional::GetImageGeometry(dst, "destination");
  double inv[6];
  functional::InvertAffineMatrixChecked(m, inv);
  const functional::AffineSampleMap map = functional::BuildAffineSampleMap(inv, d.width, d.height);
  if (d.width == 0 || d.height == 0) return;
  native::NormalizeJob job;
  job.src = static_cast<const std::uint8_t*>(src->Data());
  job.width = s.width;
  job.height = s.height;
  job.channels = s.channels;
  job.pix = s.planar ? 1 : s.channels;
  job.row = job.pix * s.width;
  job.plane = s.planar ? job.row * s.height : 1;
  job.dst = static_cast<float*>(dst->Data());
  job.out_width = d.width;
  job.out_height = d.height;
  job.map = &map;
  job.border = functional::BorderToU8(param.border);
  job.mean = param.mean;
  job.scale = param.scale;
  std::int64_t tx = 0, ty = 0;
  if (native::IsWholePixelShift(map, &tx, &ty)) {
    native::NormalizeShift(job, tx, ty);
  } else {
    native::NormalizeGeneral(job);
  }
}

}  // namespace kernel
}  // namespace tarn
