// The loops of the vector upsampling forms, written once for any register
// width. V supplies Reg, kLanes, Load, Store, Set1, Add, Mul, Gather (kLanes
// floats at kLanes int32 offsets) and Interleave (alternating floats); each
// family's file brings its V and the one-float Lane with internal linkage, so
// this header holds no intrinsics. Every blend is computed as the portable
// form computes it (t0 = a * wx0 + b * wx1, t1 likewise, t0 * wy0 + t1 * wy1),
// so the forms agree bit for bit.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "kernel/cpu/fallback/resampling_common/scalar_lane.h"
#include "tarn/kernel/upsampling.h"

namespace tarn {
namespace kernel {
namespace functional {

// One source row blended horizontally: out[ox] = s[x0] * wx0 + s[x1] * wx1.
// The 2x pattern runs on neighbouring loads and interleaves its two outputs;
// otherwise the sources are gathered.
template <typename V>
void BlendColumns(const float* s, const Upsample2DPlan& p, float* out) {
  constexpr std::uint32_t L = V::kLanes;
  std::uint32_t ox = 0;
  if (p.pairs_columns) {
    const typename V::Reg w0 = V::Set1(p.pair_w[0]), w1 = V::Set1(p.pair_w[1]);
    const typename V::Reg w2 = V::Set1(p.pair_w[2]), w3 = V::Set1(p.pair_w[3]);
    out[0] = Lane::Add(Lane::Mul(s[p.x0[0]], p.wx0[0]), Lane::Mul(s[p.x1[0]], p.wx1[0]));
    std::uint32_t i = 0;
    for (; i + L < p.in_w; i += L) {
      const typename V::Reg a = V::Load(s + i), b = V::Load(s + i + 1);
      typename V::Reg lo, hi;
      V::Interleave(V::Add(V::Mul(a, w0), V::Mul(b, w1)), V::Add(V::Mul(a, w2), V::Mul(b, w3)), &lo, &hi);
      V::Store(out + 2 * i + 1, lo);
      V::Store(out + 2 * i + 1 + L, hi);
    }
    ox = 2 * i + 1;
  }
  for (; ox + L <= p.out_w; ox += L) {
    const typename V::Reg a = V::Mul(V::Gather(s, p.x0.data() + ox), V::Load(p.wx0.data() + ox));
    const typename V::Reg b = V::Mul(V::Gather(s, p.x1.data() + ox), V::Load(p.wx1.data() + ox));
    V::Store(out + ox, V::Add(a, b));
  }
  for (; ox < p.out_w; ++ox) out[ox] = Lane::Add(Lane::Mul(s[p.x0[ox]], p.wx0[ox]), Lane::Mul(s[p.x1[ox]], p.wx1[ox]));
}

// out = h0 * wy0 + h1 * wy1 over one output row, and with `out2` a second
// row of the same sources with the weights wy2, wy3 (each source loaded once).
template <typename V>
void BlendRows(const float* h0, const float* h1, float wy0, float wy1, std::uint32_t n, float* out,
               float* out2 = nullptr, float wy2 = 0.0f, float wy3 = 0.0f) {
  constexpr std::uint32_t L = V::kLanes;
  const typename V::Reg v0 = V::Set1(wy0), v1 = V::Set1(wy1), v2 = V::Set1(wy2), v3 = V::Set1(wy3);
  std::uint32_t i = 0;
  if (out2) {
    for (; i + L <= n; i += L) {
      const typename V::Reg a = V::Load(h0 + i), b = V::Load(h1 + i);
      V::Store(out + i, V::Add(V::Mul(a, v0), V::Mul(b, v1)));
      V::Store(out2 + i, V::Add(V::Mul(a, v2), V::Mul(b, v3)));
    }
    for (; i < n; ++i) {
      out[i] = Lane::Add(Lane::Mul(h0[i], wy0), Lane::Mul(h1[i], wy1));
      out2[i] = Lane::Add(Lane::Mul(h0[i], wy2), Lane::Mul(h1[i], wy3));
    }
    return;
  }
  for (; i + 2 * L <= n; i += 2 * L) {
    const typename V::Reg r0 = V::Add(V::Mul(V::Load(h0 + i), v0), V::Mul(V::Load(h1 + i), v1));
    const typename V::Reg r1 = V::Add(V::Mul(V::Load(h0 + i + L), v0), V::Mul(V::Load(h1 + i + L), v1));
    V::Store(out + i, r0);
    V::Store(out + i + L, r1);
  }
  for (; i + L <= n; i += L) V::Store(out + i, V::Add(V::Mul(V::Load(h0 + i), v0), V::Mul(V::Load(h1 + i), v1)));
  for (; i < n; ++i) out[i] = Lane::Add(Lane::Mul(h0[i], wy0), Lane::Mul(h1[i], wy1));
}

// One output row of nearest on planes: each float twice for a 2x column
// pattern, else gathered.
template <typename V>
void NearestRow(const float* s, const Upsample2DPlan& p, float* out) {
  constexpr std::uint32_t L = V::kLanes;
  std::uint32_t ox = 0;
  if (p.doubles_columns) {
    std::uint32_t x = 0;
    for (; x + L <= p.in_w; x += L) {
      typename V::Reg lo, hi;
      const typename V::Reg v = V::Load(s + x);
      V::Interleave(v, v, &lo, &hi);
      V::Store(out + 2 * x, lo);
      V::Store(out + 2 * x + L, hi);
    }
    ox = 2 * x;
  } else {
    for (; ox + L <= p.out_w; ox += L) V::Store(out + ox, V::Gather(s, p.x0.data() + ox));
  }
  for (; ox < p.out_w; ++ox) out[ox] = s[p.x0[ox]];
}

// Planes (lanes 1). An output row that reads the same source row as the one
// before is a copy of it; bilinear keeps the horizontal blends of the two
// source rows last used, so every source row is blended once per plane, and
// two neighbouring output rows of the same two source rows are blended in one
// sweep (the 2x case).
template <typename V>
void UpsamplePlanes(const float* src, std::uint32_t planes, const Upsample2DPlan& p, float* dst) {
  const std::size_t in_plane = std::size_t(p.in_h) * p.in_w, ow = p.out_w;
  std::vector<float> cache(p.bilinear ? 2 * ow : 0);
  for (std::uint32_t c = 0; c < planes; ++c, src += in_plane) {
    std::int32_t cached[2] = {-1, -1};
    // The blend of source row y, computed into the slot that does not hold `keep`.
    auto blended = [&](std::int32_t y, std::int32_t keep) -> const float* {
      for (int s = 0; s < 2; ++s) {
        if (cached[s] == y) return cache.data() + s * ow;
      }
      const int s = cached[0] == keep ? 1 : 0;
      BlendColumns<V>(src + std::size_t(y) * p.in_w, p, cache.data() + s * ow);
      cached[s] = y;
      return cache.data() + s * ow;
    };
    for (std::uint32_t oy = 0; oy < p.out_h; ++oy, dst += ow) {
      if (oy > 0 && p.y0[oy] == p.y0[oy - 1] && p.y1[oy] == p.y1[oy - 1] && p.wy0[oy] == p.wy0[oy - 1] &&
          p.wy1[oy] == p.wy1[oy - 1]) {
        std::memcpy(dst, dst - ow, ow * sizeof(float));
      } else if (!p.bilinear) {
        NearestRow<V>(src + std::size_t(p.y0[oy]) * p.in_w, p, dst);
      } else {
        const float* h0 = blended(p.y0[oy], p.y1[oy]);
        const float* h1 = blended(p.y1[oy], p.y0[oy]);
        if (oy + 1 < p.out_h && p.y0[oy + 1] == p.y0[oy] && p.y1[oy + 1] == p.y1[oy]) {
          BlendRows<V>(h0, h1, p.wy0[oy], p.wy1[oy], p.out_w, dst, dst + ow, p.wy0[oy + 1], p.wy1[oy + 1]);
          ++oy;
          dst += ow;
        } else {
          BlendRows<V>(h0, h1, p.wy0[oy], p.wy1[oy], p.out_w, dst);
        }
      }
    }
  }
}

// Blocked (lanes = V::kLanes): one register per pixel.
template <typename V>
void UpsampleBlocked(const float* src, std::uint32_t planes, const Upsample2DPlan& p, float* dst) {
  constexpr std::size_t L = V::kLanes;
  const std::size_t row = std::size_t(p.in_w) * L, orow = std::size_t(p.out_w) * L;
  for (std::uint32_t c = 0; c < planes; ++c, src += p.in_h * row) {
    for (std::uint32_t oy = 0; oy < p.out_h; ++oy, dst += orow) {
      const float* r0 = src + p.y0[oy] * row;
      if (!p.bilinear) {
        if (oy > 0 && p.y0[oy] == p.y0[oy - 1]) {
          std::memcpy(dst, dst - orow, orow * sizeof(float));
          continue;
        }
        if (p.doubles_columns) {
          for (std::uint32_t x = 0; x < p.in_w; ++x) {
            const typename V::Reg v = V::Load(r0 + x * L);
            V::Store(dst + 2 * x * L, v);
            V::Store(dst + (2 * x + 1) * L, v);
          }
        } else {
          for (std::uint32_t ox = 0; ox < p.out_w; ++ox) V::Store(dst + ox * L, V::Load(r0 + p.x0[ox] * L));
        }
        continue;
      }
      const float* r1 = src + p.y1[oy] * row;
      const typename V::Reg wy0 = V::Set1(p.wy0[oy]), wy1 = V::Set1(p.wy1[oy]);
      for (std::uint32_t ox = 0; ox < p.out_w; ++ox) {
        const std::size_t x0 = p.x0[ox] * L, x1 = p.x1[ox] * L;
        const typename V::Reg wx0 = V::Set1(p.wx0[ox]), wx1 = V::Set1(p.wx1[ox]);
        const typename V::Reg t0 = V::Add(V::Mul(V::Load(r0 + x0), wx0), V::Mul(V::Load(r0 + x1), wx1));
        const typename V::Reg t1 = V::Add(V::Mul(V::Load(r1 + x0), wx0), V::Mul(V::Load(r1 + x1), wx1));
        V::Store(dst + ox * L, V::Add(V::Mul(t0, wy0), V::Mul(t1, wy1)));
      }
    }
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
