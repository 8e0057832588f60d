// Tensor-level loops behind the image operations: fixed-point bilinear
// resize, 8-bit to float, bilinear affine warps and the scalar
// warp-and-normalise. Built for baseline x86-64 (SSE2 vector paths only), so
// no multiply-add is ever fused and float results are reproducible.
#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "tarn/kernel/image_process.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {
namespace functional {

namespace {

using TensorPtr = std::shared_ptr<runtime::Tensor>;
using runtime::TensorShape;

// ---------------------------------------------------------------- bilinear resize

struct BilinearTaps {
  std::vector<std::int32_t> i0, i1;
  std::vector<std::int16_t> w0, w1;
};

std::int16_t SaturateInt16(double v) {
  if (v > 32767.0) return 32767;
  if (v < -32768.0) return -32768;
  return static_cast<std::int16_t>(v);
}

BilinearTaps ComputeBilinearTaps(std::uint32_t src_len, std::uint32_t dst_len) {
  BilinearTaps t;
  t.i0.resize(dst_len);
  t.i1.resize(dst_len);
  t.w0.resize(dst_len);
  t.w1.resize(dst_len);
  const double scale = static_cast<double>(src_len) / dst_len;
  const std::int64_t last = static_cast<std::int64_t>(src_len) - 1;
  for (std::uint32_t d = 0; d < dst_len; ++d) {
    const double fx = std::fma(d + 0.5, scale, -0.5);
    const double sxf = std::floor(fx);
    const std::int64_t sx = static_cast<std::int64_t>(sxf);
    if (sx < 0) {
      t.i0[d] = 0;
      t.i1[d] = last > 0 ? 1 : 0;
      t.w0[d] = 2048;
      t.w1[d] = 0;
    } else if (sx >= last) {
      // The last pair, all weight on the last sample (a lone sample for length 1).
      t.i0[d] = static_cast<std::int32_t>(last > 0 ? last - 1 : 0);
      t.i1[d] = static_cast<std::int32_t>(last);
      t.w0[d] = last > 0 ? 0 : 2048;
      t.w1[d] = last > 0 ? 2048 : 0;
    } else {
      const double f = fx - sxf;
      t.i0[d] = static_cast<std::int32_t>(sx);
      t.i1[d] = static_cast<std::int32_t>(sx + 1);
      t.w0[d] = SaturateInt16(std::round((1.0 - f) * 2048.0));
      t.w1[d] = SaturateInt16(std::round(f * 2048.0));
    }
  }
  return t;
}

// One source row through the horizontal pass; results are at most
// (255 * 2049) >> 4 = 32655, so they fit in int16.
template <int CN>
void HorizontalPass(const std::uint8_t* p, const BilinearTaps& t, std::int16_t* h) {
  const std::size_t n = t.i0.size();
  for (std::size_t d = 0; d < n; ++d) {
    const std::uint8_t* a = p + static_cast<std::size_t>(t.i0[d]) * CN;
    const std::uint8_t* b = p + static_cast<std::size_t>(t.i1[d]) * CN;
    const int w0 = t.w0[d], w1 = t.w1[d];
    for (int c = 0; c < CN; ++c) h[d * CN + c] = static_cast<std::int16_t>((a[c] * w0 + b[c] * w1) >> 4);
  }
}

// out = (((hA wy0) >> 16) + ((hB wy1) >> 16) + 2) >> 2. Both products are
// non-negative, so the signed high half of the 16x16 multiply is exactly the
// >> 16. The result never exceeds 255.
void VerticalPass(const std::int16_t* ha, const std::int16_t* hb, int wy0, int wy1, std::uint8_t* q, std::size_t n) {
  std::size_t i = 0;
  const __m128i b0 = _mm_set1_epi16(static_cast<short>(wy0)), b1 = _mm_set1_epi16(static_cast<short>(wy1));
  const __m128i two = _mm_set1_epi16(2);
  for (; i + 16 <= n; i += 16) {
    __m128i r[2];
    for (int k = 0; k < 2; ++k) {
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(ha + i + 8 * k));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(hb + i + 8 * k));
      r[k] = _mm_srai_epi16(_mm_add_epi16(_mm_add_epi16(_mm_mulhi_epi16(a, b0), _mm_mulhi_epi16(b, b1)), two), 2);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(q + i), _mm_packus_epi16(r[0], r[1]));
  }
  for (; i < n; ++i) {
    q[i] = static_cast<std::uint8_t>((((ha[i] * wy0) >> 16) + ((hb[i] * wy1) >> 16) + 2) >> 2);
  }
}

template <int CN>
void ResizeBilinear(const TensorPtr& src, const TensorPtr& dst, const char* op) {
  const ImageGeometry s = GetImageGeometry(src, "source");
  const ImageGeometry d = GetImageGeometry(dst, "destination");
  utility::Assert(src->shape.data_type == TensorShape::UINT8 && dst->shape.data_type == TensorShape::UINT8 &&
                      !s.planar && !d.planar && s.channels == CN && d.channels == CN,
                  "%s: source and destination must be UINT8 HWC images of %d channels.", op, CN);
  CheckNoOverlap(src, dst);
  if (d.width == 0 || d.height == 0) return;
  utility::Assert(s.width > 0 && s.height > 0, "%s: cannot resize an empty image.", op);
  const BilinearTaps tx = ComputeBilinearTaps(s.width, d.width);
  const BilinearTaps ty = ComputeBilinearTaps(s.height, d.height);
  const std::size_t n = static_cast<std::size_t>(d.width) * CN;
  std::vector<std::int16_t> storage(2 * n);
  std::int16_t* bufs[2] = {storage.data(), storage.data() + n};
  std::int64_t held[2] = {-1, -1};
  const std::uint8_t* p = static_cast<const std::uint8_t*>(src->Data());
  std::uint8_t* q = static_cast<std::uint8_t*>(dst->Data());
  // Consecutive output rows often share source rows: keep the last two.
  auto row = [&](std::int64_t y, std::int64_t keep) -> const std::int16_t* {
    for (int k = 0; k < 2; ++k) {
      if (held[k] == y) return bufs[k];
    }
    const int k = held[0] == keep ? 1 : 0;
    HorizontalPass<CN>(p + static_cast<std::size_t>(y) * s.row_bytes(), tx, bufs[k]);
    held[k] = y;
    return bufs[k];
  };
  for (std::uint32_t dy = 0; dy < d.height; ++dy) {
    const std::int64_t y0 = ty.i0[dy], y1 = ty.i1[dy];
    const std::int16_t* ha = row(y0, y1);
    const std::int16_t* hb = row(y1, y0);
    VerticalPass(ha, hb, ty.w0[dy], ty.w1[dy], q + static_cast<std::size_t>(dy) * d.row_bytes(), n);
  }
}

// ---------------------------------------------------------------- bilinear warps

template <typename T>
struct Sampler;

template <>
struct Sampler<std::uint8_t> {
  // v is in 2^-20 steps; rounded to nearest.
  static std::uint8_t Blend(int p00, int p01, int p10, int p11, int fx, int fy) {
    const int one = AffineSampleMap::kOne;
    const int h0 = p00 * (one - fx) + p01 * fx, h1 = p10 * (one - fx) + p11 * fx;
    const int v = h0 * (one - fy) + h1 * fy;
    return static_cast<std::uint8_t>((v + (1 << 19)) >> 20);
  }
  static std::uint8_t Border(float b) { return BorderToU8(b); }
};

template <>
struct Sampler<float> {
  static float Blend(float p00, float p01, float p10, float p11, int fx, int fy) {
    const float one = static_cast<float>(AffineSampleMap::kOne);
    const float wx1 = static_cast<float>(fx), wy1 = static_cast<float>(fy);
    const float wx0 = one - wx1, wy0 = one - wy1;
    const float h0 = p00 * wx0 + p01 * wx1, h1 = p10 * wx0 + p11 * wx1;
    return (h0 * wy0 + h1 * wy1) * (1.0f / 1048576.0f);
  }
  static float Border(float b) { return b; }
};

template <typename T>
void WarpBilinearTyped(const TensorPtr& src, const ImageGeometry& s, const TensorPtr& dst, const ImageGeometry& d,
                       const float* m, bool border, float border_value) {
  const double inv[6] = {m[0], m[1], m[2], m[3], m[4], m[5]};
  const AffineSampleMap map = BuildAffineSampleMap(inv, d.width, d.height);
  const T* p = static_cast<const T*>(src->Data());
  T* q = static_cast<T*>(dst->Data());
  const T bv = Sampler<T>::Border(border_value);
  // Element strides of a pixel, a row and a plane; channels per pixel.
  const std::size_t cpp = s.planar ? 1 : s.channels;
  const std::size_t planes = s.planar ? s.channels : 1;
  const std::size_t srow = static_cast<std::size_t>(s.width) * cpp, drow = static_cast<std::size_t>(d.width) * cpp;
  const std::size_t splane = srow * s.height, dplane = drow * d.height;
  const std::int64_t max_x = (static_cast<std::int64_t>(s.width) - 1) * AffineSampleMap::kOne;
  const std::int64_t max_y = (static_cast<std::int64_t>(s.height) - 1) * AffineSampleMap::kOne;
  const std::int64_t w = s.width, h = s.height;
  for (std::uint32_t y = 0; y < d.height; ++y) {
    for (std::uint32_t x = 0; x < d.width; ++x) {
      const std::int32_t X = map.col_x[x] + map.row_x[y], Y = map.col_y[x] + map.row_y[y];
      if (!border && (X < 0 || X > max_x || Y < 0 || Y > max_y)) continue;
      const std::int64_t sx = X >> AffineSampleMap::kBits, sy = Y >> AffineSampleMap::kBits;
      const int fx = X & (AffineSampleMap::kOne - 1), fy = Y & (AffineSampleMap::kOne - 1);
      const bool in_x0 = sx >= 0 && sx < w, in_x1 = sx + 1 >= 0 && sx + 1 < w;
      const bool in_y0 = sy >= 0 && sy < h, in_y1 = sy + 1 >= 0 && sy + 1 < h;
      // Without a border the point is inside, and a neighbour past the last
      // column or row has weight 0: read the edge instead.
      const std::int64_t x1 = border ? sx + 1 : std::min(sx + 1, w - 1);
      const std::int64_t y1 = border ? sy + 1 : std::min(sy + 1, h - 1);
      for (std::size_t k = 0; k < planes; ++k) {
        for (std::size_t c = 0; c < cpp; ++c) {
          const T* base = p + k * splane + c;
          auto tap = [&](std::int64_t tx, std::int64_t ty, bool inside) -> T {
            return (!border || inside) ? base[ty * srow + tx * cpp] : bv;
          };
          const T v = Sampler<T>::Blend(tap(sx, sy, in_x0 && in_y0), tap(x1, sy, in_x1 && in_y0),
                                        tap(sx, y1, in_x0 && in_y1), tap(x1, y1, in_x1 && in_y1), fx, fy);
          q[k * dplane + static_cast<std::size_t>(y) * drow + x * cpp + c] = v;
        }
      }
    }
  }
}

void WarpBilinear(const TensorPtr& src, const TensorPtr& dst, const float* m, bool border, float border_value,
                  const char* op) {
  const ImageGeometry s = GetImageGeometry(src, "source");
  const ImageGeometry d = GetImageGeometry(dst, "destination");
  const auto type = src->shape.data_type;
  utility::Assert(type == dst->shape.data_type && (type == TensorShape::UINT8 || type == TensorShape::FLOAT32),
                  "%s: source and destination must both be UINT8 or both FLOAT32.", op);
  utility::Assert(s.planar == d.planar && s.channels == d.channels,
                  "%s: source and destination differ in layout or channel count.", op);
  utility::Assert(m != nullptr, "%s: affine matrix is null.", op);
  CheckNoOverlap(src, dst);
  if (!border && (s.width == 0 || s.height == 0)) return;
  if (type == TensorShape::UINT8) {
    WarpBilinearTyped<std::uint8_t>(src, s, dst, d, m, border, border_value);
  } else {
    WarpBilinearTyped<float>(src, s, dst, d, m, border, border_value);
  }
}

}  // namespace

void F_Resize_Bilinear_HWC_U8_C1_Fallback(const TensorPtr& src, const TensorPtr& dst) {
  ResizeBilinear<1>(src, dst, "Resize_Bilinear_C1");
}
void F_Resize_Bilinear_HWC_U8_C2_Fallback(const TensorPtr& src, const TensorPtr& dst) {
  ResizeBilinear<2>(src, dst, "Resize_Bilinear_C2");
}
void F_Resize_Bilinear_HWC_U8_C3_Fallback(const TensorPtr& src, const TensorPtr& dst) {
  ResizeBilinear<3>(src, dst, "Resize_Bilinear_C3");
}
void F_Resize_Bilinear_HWC_U8_C4_Fallback(const TensorPtr& src, const TensorPtr& dst) {
  ResizeBilinear<4>(src, dst, "Resize_Bilinear_C4");
}

void F_Convert8U_To_32F_Fallback(const TensorPtr& src, const TensorPtr& dst) {
  utility::Assert(src != nullptr && dst != nullptr, "Convert8U_To_32F: null tensor.");
  TARN_ASSERT(src->shape.data_type == runtime::TensorShape::UINT8);
  utility::Assert(src->shape.dims.size() == 3, "Convert8U_To_32F: the source must have three dims.");
  utility::Assert(dst->shape.data_type == TensorShape::FLOAT32, "Convert8U_To_32F: the destination must be FLOAT32.");
  const std::size_t n = static_cast<std::size_t>(src->shape.dims[0]) * src->shape.dims[1] * src->shape.dims[2];
  utility::Assert(dst->shape.ElementCount() == n, "Convert8U_To_32F: the destination must hold %zu elements.", n);
  if (n == 0) return;
  utility::Assert(src->Data() != nullptr && dst->Data() != nullptr, "Convert8U_To_32F: a tensor has no storage.");
  CheckNoOverlap(src, dst);
  const std::uint8_t* p = static_cast<const std::uint8_t*>(src->Data());
  float* q = static_cast<float*>(dst->Data());
  for (std::size_t i = 0; i < n; ++i) q[i] = static_cast<float>(p[i]);
}

void F_Affine_INV_BILINEAR_Float_Fallback(const TensorPtr& src, const TensorPtr& dst, const float* m) {
  WarpBilinear(src, dst, m, false, 0.0f, "Affine_INV_BILINEAR_Float");
}

void F_Affine_INV_BILINEAR_Float_Border_Fallback(const TensorPtr& src, const TensorPtr& dst, const float* m,
                                                 float border) {
  WarpBilinear(src, dst, m, true, border, "Affine_INV_BILINEAR_Float_Border");
}

void F_Affine_Normalize_Fallback(const TensorPtr& src, const TensorPtr& dst, const float* m,
                                 const AffineNormalizeParam& param) {
  const ImageGeometry s = CheckAffineNormalize(src, dst);
  const ImageGeometry d = GetImageGeometry(dst, "destination");
  double inv[6];
  InvertAffineMatrixChecked(m, inv);
  const AffineSampleMap map = BuildAffineSampleMap(inv, d.width, d.height);
  const std::uint8_t* p = static_cast<const std::uint8_t*>(src->Data());
  float* q = static_cast<float*>(dst->Data());
  const int bv = BorderToU8(param.border);
  const std::int64_t cpp = s.planar ? 1 : s.channels;
  const std::int64_t srow = s.width * cpp, splane = s.planar ? srow * s.height : 1;
  const std::size_t dplane = static_cast<std::size_t>(d.width) * d.height;
  const std::int64_t w = s.width, h = s.height;
  const int one = AffineSampleMap::kOne;
  for (std::uint32_t y = 0; y < d.height; ++y) {
    for (std::uint32_t x = 0; x < d.width; ++x) {
      const std::int32_t X = map.col_x[x] + map.row_x[y], Y = map.col_y[x] + map.row_y[y];
      const std::int64_t sx = X >> AffineSampleMap::kBits, sy = Y >> AffineSampleMap::kBits;
      const int fx = X & (one - 1), fy = Y & (one - 1);
      const bool in_x0 = sx >= 0 && sx < w, in_x1 = sx + 1 >= 0 && sx + 1 < w;
      const bool in_y0 = sy >= 0 && sy < h, in_y1 = sy + 1 >= 0 && sy + 1 < h;
      for (std::uint32_t c = 0; c < s.channels; ++c) {
        const std::uint8_t* base = p + c * splane;
        auto tap = [&](std::int64_t tx, std::int64_t ty, bool inside) -> int {
          return inside ? base[ty * srow + tx * cpp] : bv;
        };
        const int h0 = tap(sx, sy, in_x0 && in_y0) * (one - fx) + tap(sx + 1, sy, in_x1 && in_y0) * fx;
        const int h1 = tap(sx, sy + 1, in_x0 && in_y1) * (one - fx) + tap(sx + 1, sy + 1, in_x1 && in_y1) * fx;
        const int v = h0 * (one - fy) + h1 * fy;
        const float sample = static_cast<float>(v) * (1.0f / 1048576.0f);
        q[c * dplane + static_cast<std::size_t>(y) * d.width + x] = (sample - param.mean[c]) * param.scale[c];
      }
    }
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
