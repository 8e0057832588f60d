// Portable image operations. Built for baseline x86-64: vector paths use SSE2
// only.
#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "tarn/kernel/image_process.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using functional::GetImageGeometry;
using functional::ImageGeometry;
using runtime::TensorShape;

namespace {

using TensorPtr = std::shared_ptr<runtime::Tensor>;

inline std::uint8_t* Bytes(const TensorPtr& t) { return static_cast<std::uint8_t*>(t->Data()); }

// An interleaved 8-bit image with `channels` channels.
ImageGeometry U8Image(const TensorPtr& t, const char* op, const char* what, std::uint32_t channels) {
  const ImageGeometry g = GetImageGeometry(t, what);
  utility::Assert(t->shape.data_type == TensorShape::UINT8 && !g.planar && g.channels == channels,
                  "%s: the %s must be a UINT8 HWC image of %u channels.", op, what, channels);
  return g;
}

void RequireSameSize(const ImageGeometry& a, const ImageGeometry& b, const char* op) {
  utility::Assert(a.height == b.height && a.width == b.width, "%s: source is %ux%u but destination %ux%u.", op,
                  a.width, a.height, b.width, b.height);
}

// Same element type, arrangement and channel count.
void RequireSameKind(const TensorPtr& src, const ImageGeometry& s, const TensorPtr& dst, const ImageGeometry& d,
                     const char* op) {
  utility::Assert(src->shape.data_type == dst->shape.data_type && s.planar == d.planar && s.channels == d.channels,
                  "%s: source and destination differ in element type, layout or channel count.", op);
}

// Operations that allow src == dst work pixel by pixel in place; any other
// overlap is refused.
void CheckSameOrDistinct(const TensorPtr& src, const TensorPtr& dst) {
  if (src->Data() != dst->Data()) functional::CheckNoOverlap(src, dst);
}

// ---------------------------------------------------------------- colour

// {h,w,4} -> {h,w,3}; `swap` writes B,G,R.
void DropAlpha(const TensorPtr& src, const TensorPtr& dst, bool swap, const char* op) {
  const ImageGeometry s = U8Image(src, op, "source", 4);
  const ImageGeometry d = U8Image(dst, op, "destination", 3);
  RequireSameSize(s, d, op);
  functional::CheckNoOverlap(src, dst);
  const std::uint8_t* p = Bytes(src);
  std::uint8_t* q = Bytes(dst);
  const std::size_t n = static_cast<std::size_t>(s.height) * s.width;
  const int r = swap ? 2 : 0, b = swap ? 0 : 2;
  for (std::size_t i = 0; i < n; ++i, p += 4, q += 3) {
    q[0] = p[r];
    q[1] = p[1];
    q[2] = p[b];
  }
}

// Splits 32 interleaved pixels of CN channels (2*CN registers) into planes:
// afterwards v[2c] and v[2c+1] hold channel c of pixels 0-15 and 16-31. Five
// rounds of pairwise byte interleaving undo the CN-way interleave.
template <int CN>
inline void Deinterleave32(__m128i* v) {
  for (int round = 0; round < 5; ++round) {
    __m128i t[2 * CN];
    for (int i = 0; i < CN; ++i) {
      t[2 * i] = _mm_unpacklo_epi8(v[i], v[i + CN]);
      t[2 * i + 1] = _mm_unpackhi_epi8(v[i], v[i + CN]);
    }
    for (int i = 0; i < 2 * CN; ++i) v[i] = t[i];
  }
}

// (77 R + 150 G + 29 B) >> 8 for 16 pixels. The sum stays below 2^16, so
// wrapping 16-bit lanes read as unsigned hold it exactly.
inline __m128i Gray16(__m128i r, __m128i g, __m128i b) {
  const __m128i z = _mm_setzero_si128();
  const __m128i kr = _mm_set1_epi16(77), kg = _mm_set1_epi16(150), kb = _mm_set1_epi16(29);
  const __m128i lo = _mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(r, z), kr),
                                                 _mm_mullo_epi16(_mm_unpacklo_epi8(g, z), kg)),
                                   _mm_mullo_epi16(_mm_unpacklo_epi8(b, z), kb));
  const __m128i hi = _mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(_mm_unpackhi_epi8(r, z), kr),
                                                 _mm_mullo_epi16(_mm_unpackhi_epi8(g, z), kg)),
                                   _mm_mullo_epi16(_mm_unpackhi_epi8(b, z), kb));
  return _mm_packus_epi16(_mm_srli_epi16(lo, 8), _mm_srli_epi16(hi, 8));
}

template <int CN>
void GrayRow(const std::uint8_t* p, std::uint8_t* q, std::uint32_t n, int ri, int bi) {
  std::uint32_t x = 0;
  for (; x + 32 <= n; x += 32) {
    __m128i v[2 * CN];
    for (int i = 0; i < 2 * CN; ++i) v[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + x * CN + 16 * i));
    Deinterleave32<CN>(v);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(q + x), Gray16(v[2 * ri], v[2], v[2 * bi]));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(q + x + 16), Gray16(v[2 * ri + 1], v[3], v[2 * bi + 1]));
  }
  for (; x < n; ++x) {
    const std::uint8_t* px = p + x * CN;
    q[x] = static_cast<std::uint8_t>((77 * px[ri] + 150 * px[1] + 29 * px[bi]) >> 8);
  }
}

template <int CN>
void ToGray(const TensorPtr& src, const TensorPtr& dst, int ri, int bi, const char* op) {
  const ImageGeometry s = U8Image(src, op, "source", CN);
  const ImageGeometry d = U8Image(dst, op, "destination", 1);
  RequireSameSize(s, d, op);
  functional::CheckNoOverlap(src, dst);
  const std::size_t n = static_cast<std::size_t>(s.height) * s.width;
  // Rows are contiguous, so the whole image is one long row.
  const std::uint8_t* p = Bytes(src);
  std::uint8_t* q = Bytes(dst);
  for (std::size_t done = 0; done < n;) {
    const std::uint32_t chunk = static_cast<std::uint32_t>(std::min<std::size_t>(n - done, 1u << 30));
    GrayRow<CN>(p + done * CN, q + done, chunk, ri, bi);
    done += chunk;
  }
}

// ---------------------------------------------------------------- YUV 4:2:0

enum class ChromaLayout { kNV12, kNV21, kIYUV };

struct YUVRows {
  const std::uint8_t* y0;
  const std::uint8_t* y1;
  const std::uint8_t* chroma;  // interleaved pairs (NV12, NV21)
  const std::uint8_t* u;       // separate planes (IYUV)
  const std::uint8_t* v;
  std::uint8_t* out[2][3];     // [row][R,G,B]
};

// Low 8 bits of eight 16-bit lanes, each byte twice: the chroma term of a
// pair of neighbouring pixels.
inline __m128i PairBytes(__m128i v) {
  const __m128i low = _mm_and_si128(v, _mm_set1_epi16(0xFF));
  const __m128i bytes = _mm_packus_epi16(low, low);
  return _mm_unpacklo_epi8(bytes, bytes);
}

// 64 Y is a multiple of 64, so (64 Y + t) >> 6 = Y + (t >> 6) exactly, and
// the low 8 bits of that sum are a wrapping byte addition. The chroma terms
// (at most +-14464) fit in int16.
template <ChromaLayout L>
void DecodeRowPair(const YUVRows& r, std::uint32_t width) {
  std::uint32_t x = 0;
  const __m128i z = _mm_setzero_si128();
  const __m128i k128 = _mm_set1_epi16(128);
  for (; x + 16 <= width; x += 16) {
    __m128i u, v;
    if (L == ChromaLayout::kIYUV) {
      u = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(r.u + x / 2)), z);
      v = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(r.v + x / 2)), z);
    } else {
      const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(r.chroma + x));
      const __m128i first = _mm_and_si128(c, _mm_set1_epi16(0xFF)), second = _mm_srli_epi16(c, 8);
      u = L == ChromaLayout::kNV12 ? first : second;
      v = L == ChromaLayout::kNV12 ? second : first;
    }
    u = _mm_sub_epi16(u, k128);
    v = _mm_sub_epi16(v, k128);
    const __m128i rv = _mm_srai_epi16(_mm_mullo_epi16(v, _mm_set1_epi16(90)), 6);
    const __m128i guv = _mm_srai_epi16(
        _mm_sub_epi16(z, _mm_add_epi16(_mm_mullo_epi16(v, _mm_set1_epi16(46)), _mm_mullo_epi16(u, _mm_set1_epi16(22)))),
        6);
    const __m128i bu = _mm_srai_epi16(_mm_mullo_epi16(u, _mm_set1_epi16(113)), 6);
    const __m128i dr = PairBytes(rv), dg = PairBytes(guv), db = PairBytes(bu);
    for (int row = 0; row < 2; ++row) {
      const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>((row ? r.y1 : r.y0) + x));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(r.out[row][0] + x), _mm_add_epi8(y, dr));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(r.out[row][1] + x), _mm_add_epi8(y, dg));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(r.out[row][2] + x), _mm_add_epi8(y, db));
    }
  }
  for (; x < width; x += 2) {
    int U, V;
    if (L == ChromaLayout::kIYUV) {
      U = r.u[x / 2];
      V = r.v[x / 2];
    } else {
      U = r.chroma[L == ChromaLayout::kNV12 ? x : x + 1];
      V = r.chroma[L == ChromaLayout::kNV12 ? x + 1 : x];
    }
    const int u = U - 128, v = V - 128;
    for (int row = 0; row < 2; ++row) {
      const std::uint8_t* yr = row ? r.y1 : r.y0;
      for (std::uint32_t k = x; k < x + 2; ++k) {
        const int y64 = 64 * yr[k];
        // Low 8 bits on purpose: no clamping.
        r.out[row][0][k] = static_cast<std::uint8_t>((y64 + 90 * v) >> 6);
        r.out[row][1][k] = static_cast<std::uint8_t>((y64 - 46 * v - 22 * u) >> 6);
        r.out[row][2][k] = static_cast<std::uint8_t>((y64 + 113 * u) >> 6);
      }
    }
  }
}

template <ChromaLayout L>
void DecodeYUV420(const TensorPtr& src, const TensorPtr& dst, const char* op) {
  utility::Assert(src != nullptr && dst != nullptr, "%s: null tensor.", op);
  const runtime::TensorShape& ds = dst->shape;
  utility::Assert(ds.data_type == TensorShape::UINT8 && ds.layout == TensorShape::CHW && ds.dims.size() == 3 &&
                      ds.dims[0] == 3,
                  "%s: the destination must be a UINT8 planar {3, height, width} image.", op);
  const std::uint32_t h = ds.dims[1], w = ds.dims[2];
  if ((h & 1u) || (w & 1u)) return;  // 4:2:0 needs whole 2x2 blocks
  const std::size_t plane = static_cast<std::size_t>(h) * w;
  utility::Assert(src->shape.data_type == TensorShape::UINT8, "%s: the source must be UINT8.", op);
  utility::Assert(src->shape.Bytes() != SIZE_MAX && src->shape.Bytes() >= plane + plane / 2,
                  "%s: a %ux%u frame needs %zu bytes, the source holds %zu.", op, w, h, plane + plane / 2,
                  src->shape.Bytes());
  utility::Assert(ds.Bytes() != SIZE_MAX && dst->Data() != nullptr, "%s: the destination has no storage.", op);
  if (plane == 0) return;
  utility::Assert(src->Data() != nullptr, "%s: the source has no storage.", op);
  functional::CheckNoOverlap(src, dst);
  const std::uint8_t* Y = Bytes(src);
  const std::uint8_t* C = Y + plane;
  std::uint8_t* out = Bytes(dst);
  for (std::uint32_t y = 0; y < h; y += 2) {
    YUVRows r;
    r.y0 = Y + static_cast<std::size_t>(y) * w;
    r.y1 = r.y0 + w;
    r.chroma = C + static_cast<std::size_t>(y / 2) * w;
    r.u = C + static_cast<std::size_t>(y / 2) * (w / 2);
    r.v = r.u + plane / 4;
    for (int row = 0; row < 2; ++row) {
      for (int c = 0; c < 3; ++c) r.out[row][c] = out + c * plane + static_cast<std::size_t>(y + row) * w;
    }
    DecodeRowPair<L>(r, w);
  }
}

// ---------------------------------------------------------------- geometry

template <std::uint32_t PB>
inline void CopyPixel(std::uint8_t* d, const std::uint8_t* s, std::uint32_t) {
  std::memcpy(d, s, PB);
}
template <>
inline void CopyPixel<0>(std::uint8_t* d, const std::uint8_t* s, std::uint32_t pb) {
  std::memcpy(d, s, pb);
}

template <std::uint32_t PB>
void TransposeBlocked(const std::uint8_t* src, std::ptrdiff_t ss, std::uint8_t* dst, std::ptrdiff_t ds,
                      std::uint32_t rows, std::uint32_t cols, std::uint32_t pb) {
  constexpr std::uint32_t kTile = 16;  // keeps both sides of a tile in cache
  for (std::uint32_t i0 = 0; i0 < cols; i0 += kTile) {
    const std::uint32_t i1 = std::min(cols, i0 + kTile);
    for (std::uint32_t j0 = 0; j0 < rows; j0 += kTile) {
      const std::uint32_t j1 = std::min(rows, j0 + kTile);
      for (std::uint32_t i = i0; i < i1; ++i) {
        std::uint8_t* d = dst + static_cast<std::ptrdiff_t>(i) * ds;
        for (std::uint32_t j = j0; j < j1; ++j) {
          CopyPixel<PB>(d + static_cast<std::size_t>(j) * pb, src + static_cast<std::ptrdiff_t>(j) * ss +
                                                                 static_cast<std::size_t>(i) * pb,
                        pb);
        }
      }
    }
  }
}

// Reverses the order of n pixels; src may equal dst.
void ReversePixels(const std::uint8_t* src, std::uint8_t* dst, std::size_t n, std::uint32_t pb) {
  if (src == dst) {
    for (std::size_t i = 0, j = n; i + 1 < j; ++i, --j) {
      std::swap_ranges(dst + i * pb, dst + (i + 1) * pb, dst + (j - 1) * pb);
    }
    return;
  }
  for (std::size_t i = 0; i < n; ++i) std::memcpy(dst + i * pb, src + (n - 1 - i) * pb, pb);
}

// Same geometry for 180 degrees and flips.
ImageGeometry CheckSameShape(const TensorPtr& src, const TensorPtr& dst, const char* op) {
  const ImageGeometry s = GetImageGeometry(src, "source");
  const ImageGeometry d = GetImageGeometry(dst, "destination");
  RequireSameKind(src, s, dst, d, op);
  RequireSameSize(s, d, op);
  CheckSameOrDistinct(src, dst);
  return s;
}

template <typename T>
void HWCToCHW(const T* s, T* d, std::size_t n, std::uint32_t c) {
  for (std::uint32_t k = 0; k < c; ++k) {
    T* plane = d + k * n;
    for (std::size_t i = 0; i < n; ++i) plane[i] = s[i * c + k];
  }
}

template <typename T>
void CHWToHWC(const T* s, T* d, std::size_t n, std::uint32_t c) {
  for (std::uint32_t k = 0; k < c; ++k) {
    const T* plane = s + k * n;
    for (std::size_t i = 0; i < n; ++i) d[i * c + k] = plane[i];
  }
}

void Reorder(const TensorPtr& src, const TensorPtr& dst, bool to_planar, const char* op) {
  const ImageGeometry s = GetImageGeometry(src, "source");
  const ImageGeometry d = GetImageGeometry(dst, "destination");
  utility::Assert(s.planar != to_planar && d.planar == to_planar,
                  to_planar ? "%s: needs an HWC source and a CHW destination." : "%s: needs a CHW source and an HWC destination.",
                  op);
  utility::Assert(src->shape.data_type == dst->shape.data_type && s.channels == d.channels,
                  "%s: source and destination differ in element type or channel count.", op);
  RequireSameSize(s, d, op);
  functional::CheckNoOverlap(src, dst);
  const std::size_t n = static_cast<std::size_t>(s.height) * s.width;
  if (n == 0 || s.channels == 0) return;
  auto run = [&](auto tag) {
    using T = decltype(tag);
    const T* a = static_cast<const T*>(src->Data());
    T* b = static_cast<T*>(dst->Data());
    if (to_planar) {
      HWCToCHW(a, b, n, s.channels);
    } else {
      CHWToHWC(a, b, n, s.channels);
    }
  };
  switch (s.element_bytes) {
    case 1: run(std::uint8_t()); break;
    case 2: run(std::uint16_t()); break;
    case 4: run(std::uint32_t()); break;
    default: utility::Assert(false, "%s: unsupported element size %u.", op, s.element_bytes);
  }
}

// ---------------------------------------------------------------- crops

std::int64_t RectValue(float v, const char* op) {
  utility::Assert(std::isfinite(v) && std::fabs(v) < 2147483648.0f, "%s: crop rectangle value %g is out of range.",
                  op, static_cast<double>(v));
  return static_cast<std::int64_t>(v);  // truncation
}

void Crop(const TensorPtr& src, const TensorPtr& dst, float fx, float fy, float fw, float fh, std::uint32_t channels,
          const char* op) {
  const ImageGeometry s = GetImageGeometry(src, "source");
  const ImageGeometry d = GetImageGeometry(dst, "destination");
  utility::Assert(!s.planar && !d.planar && s.channels == channels && d.channels == channels &&
                      src->shape.data_type == dst->shape.data_type,
                  "%s: source and destination must be HWC images of %u channels and the same type.", op, channels);
  const std::int64_t x = RectValue(fx, op), y = RectValue(fy, op), w = RectValue(fw, op), h = RectValue(fh, op);
  utility::Assert(w >= 0 && h >= 0 && d.width == w && d.height == h,
                  "%s: the destination must be {%lld, %lld, %u}.", op, static_cast<long long>(h),
                  static_cast<long long>(w), channels);
  functional::CheckNoOverlap(src, dst);
  const std::int64_t x0 = std::max<std::int64_t>(x, 0), x1 = std::min<std::int64_t>(x + w, s.width);
  if (x1 <= x0) return;
  const std::uint8_t* p = Bytes(src);
  std::uint8_t* q = Bytes(dst);
  for (std::int64_t i = 0; i < h; ++i) {
    const std::int64_t sy = y + i;
    if (sy < 0 || sy >= s.height) continue;
    std::memcpy(q + i * d.row_bytes() + (x0 - x) * d.pixel_bytes, p + sy * s.row_bytes() + x0 * s.pixel_bytes,
                (x1 - x0) * s.pixel_bytes);
  }
}

// floor((i + 0.5) * scale - 0.5) + offset, clamped to the source.
std::vector<std::uint32_t> NearestMap(std::uint32_t dst_len, std::int64_t rect_len, std::int64_t offset,
                                      std::uint32_t src_len) {
  std::vector<std::uint32_t> map(dst_len);
  const double scale = static_cast<double>(rect_len) / dst_len;
  for (std::uint32_t i = 0; i < dst_len; ++i) {
    const double v = std::floor((i + 0.5) * scale - 0.5) + static_cast<double>(offset);
    map[i] = static_cast<std::uint32_t>(std::min<double>(std::max<double>(v, 0.0), src_len - 1.0));
  }
  return map;
}

template <std::uint32_t PB>
void GatherNearest(const std::uint8_t* p, std::size_t srow, std::uint8_t* q, std::size_t drow,
                   const std::vector<std::uint32_t>& xs, const std::vector<std::uint32_t>& ys, std::uint32_t pb) {
  for (std::size_t i = 0; i < ys.size(); ++i) {
    const std::uint8_t* sr = p + ys[i] * srow;
    std::uint8_t* dr = q + i * drow;
    for (std::size_t j = 0; j < xs.size(); ++j) CopyPixel<PB>(dr + j * pb, sr + static_cast<std::size_t>(xs[j]) * pb, pb);
  }
}

void CropResizeNearest(const TensorPtr& src, const TensorPtr& dst, std::int64_t x, std::int64_t y, std::int64_t w,
                       std::int64_t h, const char* op) {
  const ImageGeometry s = GetImageGeometry(src, "source");
  const ImageGeometry d = GetImageGeometry(dst, "destination");
  utility::Assert(src->shape.layout == TensorShape::HWC && dst->shape.layout == TensorShape::HWC,
                  "%s: both images must have layout HWC.", op);
  RequireSameKind(src, s, dst, d, op);
  utility::Assert(w > 0 && h > 0, "%s: the crop rectangle must not be empty.", op);
  functional::CheckNoOverlap(src, dst);
  if (d.width == 0 || d.height == 0 || d.pixel_bytes == 0) return;
  utility::Assert(s.width > 0 && s.height > 0, "%s: the source image is empty.", op);
  const std::vector<std::uint32_t> xs = NearestMap(d.width, w, x, s.width);
  const std::vector<std::uint32_t> ys = NearestMap(d.height, h, y, s.height);
  const std::uint8_t* p = Bytes(src);
  std::uint8_t* q = Bytes(dst);
  switch (s.pixel_bytes) {
    case 1: GatherNearest<1>(p, s.row_bytes(), q, d.row_bytes(), xs, ys, 1); break;
    case 2: GatherNearest<2>(p, s.row_bytes(), q, d.row_bytes(), xs, ys, 2); break;
    case 3: GatherNearest<3>(p, s.row_bytes(), q, d.row_bytes(), xs, ys, 3); break;
    case 4: GatherNearest<4>(p, s.row_bytes(), q, d.row_bytes(), xs, ys, 4); break;
    default: GatherNearest<0>(p, s.row_bytes(), q, d.row_bytes(), xs, ys, s.pixel_bytes); break;
  }
}

// ---------------------------------------------------------------- nearest warp

void WarpNearest(const TensorPtr& src, const TensorPtr& dst, const float* m, const char* op) {
  const ImageGeometry s = GetImageGeometry(src, "source");
  const ImageGeometry d = GetImageGeometry(dst, "destination");
  RequireSameKind(src, s, dst, d, op);
  utility::Assert(m != nullptr, "%s: affine matrix is null.", op);
  functional::CheckNoOverlap(src, dst);
  const std::uint8_t* p = Bytes(src);
  std::uint8_t* q = Bytes(dst);
  const std::uint32_t pb = s.pixel_bytes;
  for (std::uint32_t y = 0; y < d.height; ++y) {
    const float fy = static_cast<float>(y);
    for (std::uint32_t x = 0; x < d.width; ++x) {
      const float fx = static_cast<float>(x);
      const float vx = m[0] * fx + m[1] * fy + m[2] + 0.5f;
      const float vy = m[3] * fx + m[4] * fy + m[5] + 0.5f;
      // Also rejects NaN, before the conversion could be undefined.
      if (!(vx > -1.0f && vx < 2147483520.0f && vy > -1.0f && vy < 2147483520.0f)) continue;
      const std::int64_t sx = static_cast<std::int64_t>(vx), sy = static_cast<std::int64_t>(vy);
      if (sx > static_cast<std::int64_t>(s.width) - 1 || sy > static_cast<std::int64_t>(s.height) - 1) continue;
      for (std::uint32_t k = 0; k < s.planes; ++k) {
        std::memcpy(q + k * d.plane_bytes() + y * d.row_bytes() + static_cast<std::size_t>(x) * pb,
                    p + k * s.plane_bytes() + sy * s.row_bytes() + sx * pb, pb);
      }
    }
  }
}

}  // namespace

namespace functional {

void TransposePixels(const std::uint8_t* src, std::ptrdiff_t src_stride, std::uint8_t* dst,
                     std::ptrdiff_t dst_stride, std::uint32_t rows, std::uint32_t cols, std::uint32_t pixel_bytes) {
  switch (pixel_bytes) {
    case 1: TransposeBlocked<1>(src, src_stride, dst, dst_stride, rows, cols, 1); break;
    case 2: TransposeBlocked<2>(src, src_stride, dst, dst_stride, rows, cols, 2); break;
    case 3: TransposeBlocked<3>(src, src_stride, dst, dst_stride, rows, cols, 3); break;
    case 4: TransposeBlocked<4>(src, src_stride, dst, dst_stride, rows, cols, 4); break;
    case 8: TransposeBlocked<8>(src, src_stride, dst, dst_stride, rows, cols, 8); break;
    default: TransposeBlocked<0>(src, src_stride, dst, dst_stride, rows, cols, pixel_bytes); break;
  }
}

ImageGeometry CheckQuarterTurn(const std::shared_ptr<runtime::Tensor>& src,
                               const std::shared_ptr<runtime::Tensor>& dst, const char* op) {
  const ImageGeometry s = GetImageGeometry(src, "source");
  const ImageGeometry d = GetImageGeometry(dst, "destination");
  RequireSameKind(src, s, dst, d, op);
  utility::Assert(d.height == s.width && d.width == s.height,
                  "%s: a %ux%u source turns into a %ux%u destination, not %ux%u.", op, s.width, s.height, s.height,
                  s.width, d.width, d.height);
  functional::CheckNoOverlap(src, dst);
  return s;
}

}  // namespace functional

ImageProcessFallback::~ImageProcessFallback() = default;

void ImageProcessFallback::ConvertRGBAtoRGB(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  DropAlpha(src, dst, false, "ConvertRGBAtoRGB");
}

void ImageProcessFallback::ConvertRGBAtoBGR(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  DropAlpha(src, dst, true, "ConvertRGBAtoBGR");
}

void ImageProcessFallback::ConvertRGBtoBGR(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  const char* op = "ConvertRGBtoBGR";
  const ImageGeometry s = U8Image(src, op, "source", 3);
  const ImageGeometry d = U8Image(dst, op, "destination", 3);
  RequireSameSize(s, d, op);
  CheckSameOrDistinct(src, dst);
  const std::uint8_t* p = Bytes(src);
  std::uint8_t* q = Bytes(dst);
  const std::size_t n = static_cast<std::size_t>(s.height) * s.width;
  for (std::size_t i = 0; i < n; ++i, p += 3, q += 3) {
    const std::uint8_t r = p[0], g = p[1], b = p[2];  // whole pixel read first: in place works
    q[0] = b;
    q[1] = g;
    q[2] = r;
  }
}

void ImageProcessFallback::ConvertYUV2RGB_NV21(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  DecodeYUV420<ChromaLayout::kNV21>(src, dst, "ConvertYUV2RGB_NV21");
}

void ImageProcessFallback::ConvertYUV2RGB_NV12(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  DecodeYUV420<ChromaLayout::kNV12>(src, dst, "ConvertYUV2RGB_NV12");
}

void ImageProcessFallback::ConvertYUV2RGB_IYUV(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  DecodeYUV420<ChromaLayout::kIYUV>(src, dst, "ConvertYUV2RGB_IYUV");
}

void ImageProcessFallback::ConvertRGB2Gray(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  ToGray<3>(src, dst, 0, 2, "ConvertRGB2Gray");
}

void ImageProcessFallback::ConvertRGBA2Gray(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  ToGray<4>(src, dst, 0, 2, "ConvertRGBA2Gray");
}

void ImageProcessFallback::ConvertBGR2Gray(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  ToGray<3>(src, dst, 2, 0, "ConvertBGR2Gray");
}

void ImageProcessFallback::ClockwiseRotate90(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  const ImageGeometry g = functional::CheckQuarterTurn(src, dst, "ClockwiseRotate90");
  if (g.height == 0 || g.width == 0) return;
  const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(g.row_bytes());
  const std::ptrdiff_t drow = static_cast<std::ptrdiff_t>(g.height) * g.pixel_bytes;
  for (std::uint32_t k = 0; k < g.planes; ++k) {
    const std::uint8_t* p = Bytes(src) + k * g.plane_bytes();
    // dst(i, j) = src(h-1-j, i): the transpose of the image read bottom-up.
    functional::TransposePixels(p + (g.height - 1) * row, -row, Bytes(dst) + k * g.plane_bytes(), drow, g.height,
                                g.width, g.pixel_bytes);
  }
}

void ImageProcessFallback::ClockwiseRotate270(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  const ImageGeometry g = functional::CheckQuarterTurn(src, dst, "ClockwiseRotate270");
  if (g.height == 0 || g.width == 0) return;
  const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(g.row_bytes());
  const std::ptrdiff_t drow = static_cast<std::ptrdiff_t>(g.height) * g.pixel_bytes;
  for (std::uint32_t k = 0; k < g.planes; ++k) {
    std::uint8_t* q = Bytes(dst) + k * g.plane_bytes();
    // dst(i, j) = src(j, w-1-i): the transpose written bottom-up.
    functional::TransposePixels(Bytes(src) + k * g.plane_bytes(), row, q + (g.width - 1) * drow, -drow, g.height,
                                g.width, g.pixel_bytes);
  }
}

void ImageProcessFallback::ClockwiseRotate180(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  const ImageGeometry g = CheckSameShape(src, dst, "ClockwiseRotate180");
  const std::size_t n = static_cast<std::size_t>(g.height) * g.width;
  for (std::uint32_t k = 0; k < g.planes; ++k) {
    // Turning a plane half way round reverses its pixel sequence.
    ReversePixels(Bytes(src) + k * g.plane_bytes(), Bytes(dst) + k * g.plane_bytes(), n, g.pixel_bytes);
  }
}

void ImageProcessFallback::Flip_Horizintal(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  const ImageGeometry g = CheckSameShape(src, dst, "Flip_Horizintal");
  for (std::uint32_t k = 0; k < g.planes; ++k) {
    for (std::uint32_t y = 0; y < g.height; ++y) {
      const std::size_t off = k * g.plane_bytes() + y * g.row_bytes();
      ReversePixels(Bytes(src) + off, Bytes(dst) + off, g.width, g.pixel_bytes);
    }
  }
}

void ImageProcessFallback::Flip_Vertical(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  const ImageGeometry g = CheckSameShape(src, dst, "Flip_Vertical");
  const std::size_t row = g.row_bytes();
  for (std::uint32_t k = 0; k < g.planes; ++k) {
    const std::uint8_t* p = Bytes(src) + k * g.plane_bytes();
    std::uint8_t* q = Bytes(dst) + k * g.plane_bytes();
    for (std::uint32_t y = 0; y < g.height; ++y) {
      const std::uint8_t* from = p + (g.height - 1 - y) * row;
      std::uint8_t* to = q + y * row;
      if (p == q) {
        if (y < g.height - 1 - y) std::swap_ranges(to, to + row, q + (g.height - 1 - y) * row);
      } else {
        std::memcpy(to, from, row);
      }
    }
  }
}

void ImageProcessFallback::Affine_Float(const TensorPtr& src, const TensorPtr& dst, const float* m,
                                        const ContextPtr&) {
  utility::Assert(m != nullptr, "Affine_Float: affine matrix is null.");
  float inverse[6];
  utility::Assert(InvertAffineMatrix(m, inverse), "Affine_Float: affine matrix cannot be inverted.");
  WarpNearest(src, dst, inverse, "Affine_Float");
}

void ImageProcessFallback::Affine_INV_Float(const TensorPtr& src, const TensorPtr& dst, const float* m,
                                            const ContextPtr&) {
  WarpNearest(src, dst, m, "Affine_INV_Float");
}

void ImageProcessFallback::Affine_INV_BILINEAR_Float(const TensorPtr& src, const TensorPtr& dst, const float* m,
                                                     const ContextPtr&) {
  functional::F_Affine_INV_BILINEAR_Float_Fallback(src, dst, m);
}

void ImageProcessFallback::HWC2CHW(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  Reorder(src, dst, true, "HWC2CHW");
}

void ImageProcessFallback::CHW2HWC(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  Reorder(src, dst, false, "CHW2HWC");
}

void ImageProcessFallback::Convert8U_To_32F(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  functional::F_Convert8U_To_32F_Fallback(src, dst);
}

void ImageProcessFallback::Crop_C1(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                                   float height, const ContextPtr&) {
  Crop(src, dst, x, y, width, height, 1, "Crop_C1");
}
void ImageProcessFallback::Crop_C2(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                                   float height, const ContextPtr&) {
  Crop(src, dst, x, y, width, height, 2, "Crop_C2");
}
void ImageProcessFallback::Crop_C3(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                                   float height, const ContextPtr&) {
  Crop(src, dst, x, y, width, height, 3, "Crop_C3");
}
void ImageProcessFallback::Crop_C4(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                                   float height, const ContextPtr&) {
  Crop(src, dst, x, y, width, height, 4, "Crop_C4");
}

void ImageProcessFallback::Resize_Nearest_C1(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  const ImageGeometry s = GetImageGeometry(src, "source");
  utility::Assert(!s.planar && s.channels == 1, "Resize_Nearest_C1: the source must be an HWC image of 1 channel.");
  CropResizeNearest(src, dst, 0, 0, s.width, s.height, "Resize_Nearest_C1");
}

void ImageProcessFallback::Resize_Bilinear_C1(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  functional::F_Resize_Bilinear_HWC_U8_C1_Fallback(src, dst);
}
void ImageProcessFallback::Resize_Bilinear_C2(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  functional::F_Resize_Bilinear_HWC_U8_C2_Fallback(src, dst);
}
void ImageProcessFallback::Resize_Bilinear_C3(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  functional::F_Resize_Bilinear_HWC_U8_C3_Fallback(src, dst);
}
void ImageProcessFallback::Resize_Bilinear_C4(const TensorPtr& src, const TensorPtr& dst, const ContextPtr&) {
  functional::F_Resize_Bilinear_HWC_U8_C4_Fallback(src, dst);
}

void ImageProcessFallback::Crop_Resize_Nearest(const TensorPtr& src, const TensorPtr& dst, float x, float y,
                                               float width, float height) {
  const char* op = "Crop_Resize_Nearest";
  CropResizeNearest(src, dst, RectValue(x, op), RectValue(y, op), RectValue(width, op), RectValue(height, op), op);
}

void ImageProcessFallback::Crop_Resize_Nearest_C1(const TensorPtr& src, const TensorPtr& dst, float x, float y,
                                                  float width, float height, const ContextPtr&) {
  Crop_Resize_Nearest(src, dst, x, y, width, height);
}
void ImageProcessFallback::Crop_Resize_Nearest_C2(const TensorPtr& src, const TensorPtr& dst, float x, float y,
                                                  float width, float height, const ContextPtr&) {
  Crop_Resize_Nearest(src, dst, x, y, width, height);
}
void ImageProcessFallback::Crop_Resize_Nearest_C3(const TensorPtr& src, const TensorPtr& dst, float x, float y,
                                                  float width, float height, const ContextPtr&) {
  Crop_Resize_Nearest(src, dst, x, y, width, height);
}
void ImageProcessFallback::Crop_Resize_Nearest_C4(const TensorPtr& src, const TensorPtr& dst, float x, float y,
                                                  float width, float height, const ContextPtr&) {
  Crop_Resize_Nearest(src, dst, x, y, width, height);
}

}  // namespace kernel
}  // namespace tarn
