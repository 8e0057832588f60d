// Direct convolution with SSE + FMA: the templates every fixed-geometry step
// of the SSE family instantiates (1x1, 1x3, 3x1 and 3x3 at stride 1 or 2, on
// CHW, C4HW4 and C8HW8). A step differs from another only in the template
// arguments: kernel size, stride, register tile and loop order.
//
// Every routine reads an input that is already padded, accumulates onto the
// output (which holds the bias or zero) and never touches memory outside the
// tensors: row tails are finished with narrower tiles, and CHW tails of one
// to three pixels are loaded and stored lane by lane.
//
// Include only from translation units of the SSE family.
#pragma once

#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace tarn {
namespace kernel {
namespace sse_conv {

using std::ptrdiff_t;

// Every lambda of the tiles is inlined: a register tile only stays in
// registers when its whole body is one function.
#define TRN_INLINE __attribute__((always_inline))

// f(std::integral_constant<int, 0>), ..., f(std::integral_constant<int, N - 1>),
// each index a compile-time constant so register arrays stay in registers.
template <typename F, int... I>
inline __attribute__((always_inline)) void UnrollImpl(F&& f, std::integer_sequence<int, I...>) {
  (f(std::integral_constant<int, I>{}), ...);
}
template <int N, typename F>
inline __attribute__((always_inline)) void Unroll(F&& f) {
  UnrollImpl(f, std::make_integer_sequence<int, N>{});
}

// How a register tile meets the kernel taps.
enum class Scheme {
  // Per tap and input lane: one weight vector per output block, one
  // broadcast per output pixel.
  kDirect,
  // Per kernel row and input lane: the weights of every tap of the row in
  // registers, each input pixel the row reads broadcast once and handed to
  // every tap that reads it (up to KX taps at stride 1): about a third of
  // the loads of kDirect for three-wide kernels.
  kSliding,
};

// Which loop is outer.
enum class Order {
  // Output blocks outer, pixel tiles inner: the weights of one block group
  // stay in the first cache levels; the input is read once per block group.
  kBlocksOuter,
  // Pixel tiles outer, output blocks inner: the input under one tile stays in
  // L1 while every output block consumes it; the weights are read once per
  // tile.
  kPixelsOuter,
};

// ------------------------------------------------------------------ blocked layouts

// One pass over blocked tensors (all strides in floats). The weight is tiled
// (output block, input block, ky, kx), each tile L x L with row k holding the
// weights from input lane k to the L output lanes (GN4C4HW4c4n, GN8C8HW8c8n).
struct BlockedArgs {
  const float* src;
  int srcBlocks;
  // The input blocks a pass sums over: a range of srcBlocks (set by Run).
  int ibBegin = 0, ibEnd = 0;
  ptrdiff_t srcRow, srcPlane;
  const float* weight;
  float* dst;
  int dstBlocks, dstH, dstW;
  ptrdiff_t dstRow, dstPlane;
};

// L lanes (4 or 8: one or two SSE vectors per pixel), KY x KX taps, stride
// SY x SX.
template <int L, int KY, int KX, int SY, int SX, Scheme S>
struct Blocked {
  static_assert(L == 4 || L == 8, "blocked layouts have 4 or 8 lanes");
  static constexpr int V = L / 4;
  static constexpr ptrdiff_t kTile = L * L;
  static constexpr ptrdiff_t kTaps = KY * KX;

  // OB output blocks from `ob` on, PX output pixels from (oy, ox) on.
  template <int OB, int PX>
  static inline __attribute__((always_inline)) void Tile(const BlockedArgs& a, int ob, int oy, int ox) {
    __m128 acc[OB][PX][V];
    float* d = a.dst + ob * a.dstPlane + oy * a.dstRow + ptrdiff_t(ox) * L;
    Unroll<OB>([&](auto o) TRN_INLINE {
      Unroll<PX>([&](auto p) TRN_INLINE { Unroll<V>([&](auto v) TRN_INLINE { acc[o][p][v] = _mm_loadu_ps(d + o * a.dstPlane + p * L + 4 * v); }); });
    });
    const ptrdiff_t wBlock = ptrdiff_t(a.srcBlocks) * kTaps * kTile;
    const float* w0 = a.weight + ob * wBlock;
    const float* s0 = a.src + ptrdiff_t(oy) * SY * a.srcRow + ptrdiff_t(ox) * SX * L;
    for (int ib = a.ibBegin; ib < a.ibEnd; ++ib) {
      const float* sb = s0 + ib * a.srcPlane;
      const float* wb = w0 + ib * kTaps * kTile;
      for (int ky = 0; ky < KY; ++ky) {
        const float* sr = sb + ky * a.srcRow;
        const float* wr = wb + ky * KX * kTile;
        if constexpr (S == Scheme::kDirect) {
          Unroll<KX>([&](auto kx) TRN_INLINE {
            Unroll<L>([&](auto k) TRN_INLINE {
              __m128 w[OB][V];
              Unroll<OB>([&](auto o) TRN_INLINE {
                Unroll<V>([&](auto v) TRN_INLINE { w[o][v] = _mm_loadu_ps(wr + o * wBlock + kx * kTile + k * L + 4 * v); });
              });
              Unroll<PX>([&](auto p) TRN_INLINE {
                const __m128 x = _mm_set1_ps(sr[(p * SX + kx) * L + k]);
                Unroll<OB>([&](auto o) TRN_INLINE {
                  Unroll<V>([&](auto v) TRN_INLINE { acc[o][p][v] = _mm_fmadd_ps(w[o][v], x, acc[o][p][v]); });
                });
              });
            });
          });
        } else {
          Unroll<L>([&](auto k) TRN_INLINE {
            __m128 w[OB][KX][V];
            Unroll<OB>([&](auto o) TRN_INLINE {
              Unroll<KX>([&](auto kx) TRN_INLINE {
                Unroll<V>([&](auto v) TRN_INLINE { w[o][kx][v] = _mm_loadu_ps(wr + o * wBlock + kx * kTile + k * L + 4 * v); });
              });
            });
            // Input column i of the tile feeds pixel p through tap kx when
            // i = p * SX + kx.
            Unroll<(PX - 1) * SX + KX>([&](auto i) TRN_INLINE {
              const __m128 x = _mm_set1_ps(sr[i * L + k]);
              Unroll<KX>([&](auto kx) TRN_INLINE {
                constexpr int off = decltype(i)::value - decltype(kx)::value;
                if constexpr (off >= 0 && off % SX == 0 && off / SX < PX) {
                  Unroll<OB>([&](auto o) TRN_INLINE {
                    Unroll<V>([&](auto v) TRN_INLINE {
                      acc[o][off / SX][v] = _mm_fmadd_ps(w[o][kx][v], x, acc[o][off / SX][v]);
                    });
                  });
                }
              });
            });
          });
        }
      }
    }
    Unroll<OB>([&](auto o) TRN_INLINE {
      Unroll<PX>([&](auto p) TRN_INLINE { Unroll<V>([&](auto v) TRN_INLINE { _mm_storeu_ps(d + o * a.dstPlane + p * L + 4 * v, acc[o][p][v]); }); });
    });
  }

  // A tile of exactly r (1..N) pixels.
  template <int OB, int N>
  static inline void Tail(const BlockedArgs& a, int ob, int oy, int ox, int r) {
    if constexpr (N > 0) {
      if (r == N) return Tile<OB, N>(a, ob, oy, ox);
      Tail<OB, N - 1>(a, ob, oy, ox, r);
    }
  }

  // A row of w pixels cut into as few tiles of at most PX pixels as hold it,
  // of widths that differ by one at most (a 7-pixel row at PX = 6 is 4 + 3,
  // not 6 + 1): calls f(start, width) for each.
  template <int PX, typename F>
  static inline void Tiles(int w, F f) {
    const int n = (w + PX - 1) / PX, base = w / n, wider = w % n;
    for (int i = 0, ox = 0; i < n; ++i) {
      const int width = base + (i < wider ? 1 : 0);
      f(ox, width);
      ox += width;
    }
  }

  // One output row of OB blocks.
  template <int OB, int PX>
  static inline void Row(const BlockedArgs& a, int ob, int oy) {
    Tiles<PX>(a.dstW, [&](int ox, int width) {
      if (width == PX) {
        Tile<OB, PX>(a, ob, oy, ox);
      } else {
        Tail<OB, PX - 1>(a, ob, oy, ox, width);
      }
    });
  }

  // Input blocks per pass: the weights of one output block for that many
  // input blocks (KY KX L L floats each) take about 12 KB, so they stay in L1
  // while every tile of the map uses them; each pass adds onto the output.
  static int ChunkBlocks() {
    constexpr int per_block = KY * KX * L * L * 4;
    return per_block >= 12 * 1024 ? 1 : 12 * 1024 / per_block;
  }

  // The whole pass with OB output blocks by PX pixels per register tile
  // (blocks left over at the end are done one by one), in passes over
  // ChunkBlocks() input blocks.
  template <int OB, int PX, Order O>
  static void Run(const BlockedArgs& args) {
    BlockedArgs a = args;
    const int full = a.dstBlocks - a.dstBlocks % OB, chunk = ChunkBlocks();
    auto passes = [&](auto body) {
      for (a.ibBegin = 0; a.ibBegin < a.srcBlocks; a.ibBegin += chunk) {
        a.ibEnd = a.ibBegin + chunk < a.srcBlocks ? a.ibBegin + chunk : a.srcBlocks;
        body();
      }
    };
    if constexpr (O == Order::kBlocksOuter) {
      for (int ob = 0; ob < full; ob += OB) {
        passes([&] {
          for (int oy = 0; oy < a.dstH; ++oy) Row<OB, PX>(a, ob, oy);
        });
      }
      for (int ob = full; ob < a.dstBlocks; ++ob) {
        passes([&] {
          for (int oy = 0; oy < a.dstH; ++oy) Row<1, PX>(a, ob, oy);
        });
      }
    } else {
      passes([&] {
        for (int oy = 0; oy < a.dstH; ++oy) {
          Tiles<PX>(a.dstW, [&](int ox, int width) {
            if (width == PX) {
              for (int ob = 0; ob < full; ob += OB) Tile<OB, PX>(a, ob, oy, ox);
              for (int ob = full; ob < a.dstBlocks; ++ob) Tile<1, PX>(a, ob, oy, ox);
            } else {
              for (int ob = 0; ob < full; ob += OB) Tail<OB, PX - 1>(a, ob, oy, ox, width);
              for (int ob = full; ob < a.dstBlocks; ++ob) Tail<1, PX - 1>(a, ob, oy, ox, width);
            }
          });
        }
      });
    }
  }
};

// ------------------------------------------------------------------ CHW

// One pass over CHW tensors (strides in floats). The weight is GN4CHW4:
// [ceil(N/4), C, KY, KX, 4], zero beyond N.
struct ChwArgs {
  const float* src;
  int channels;
  ptrdiff_t srcRow, srcPlane;
  const float* weight;
  float* dst;
  int outChannels, dstH, dstW;
  ptrdiff_t dstRow, dstPlane;
};

// Four pixels p[0], p[SX], p[2 SX], p[3 SX]; never reads past p[3 SX].
template <int SX>
inline __attribute__((always_inline)) __m128 LoadPixels(const float* p) {
  static_assert(SX == 1 || SX == 2, "stride 1 or 2");
  if constexpr (SX == 1) {
    return _mm_loadu_ps(p);
  } else {
    // p0 p1 p2 p3 and p3 p4 p5 p6 give p0 p2 p4 p6.
    return _mm_shuffle_ps(_mm_loadu_ps(p), _mm_loadu_ps(p + 3), _MM_SHUFFLE(3, 1, 2, 0));
  }
}

// The first n (1..3) of those pixels, the other lanes zero.
template <int SX>
inline __m128 LoadPixelsPartial(const float* p, int n) {
  alignas(16) float t[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  for (int i = 0; i < n; ++i) t[i] = p[i * SX];
  return _mm_load_ps(t);
}

inline __m128 LoadPartial(const float* p, int n) { return LoadPixelsPartial<1>(p, n); }

inline void StorePartial(float* p, __m128 v, int n) {
  alignas(16) float t[4];
  _mm_store_ps(t, v);
  for (int i = 0; i < n; ++i) p[i] = t[i];
}

template <int KY, int KX, int SY, int SX>
struct Chw {
  static constexpr int kTaps = KY * KX;

  // Four output channels from og * 4 (n of them real) by ROWS output rows
  // from oy by PV vectors of four pixels from ox; with kPart the last vector
  // holds only `part` (1..3) pixels. Its loads then run past the last pixel
  // into the rest of the tensor (the lanes are never stored); the channels
  // where they would run past its end are loaded lane by lane.
  template <int ROWS, int PV, bool kPart = false>
  static inline __attribute__((always_inline)) void Tile(const ChwArgs& a, int og, int n, int oy, int ox,
                                                         int part = 0) {
    __m128 acc[4][ROWS][PV];
    float* d = a.dst + ptrdiff_t(og) * 4 * a.dstPlane + oy * a.dstRow + ox;
    Unroll<4>([&](auto o) TRN_INLINE {
      Unroll<ROWS>([&](auto r) TRN_INLINE {
        Unroll<PV>([&](auto v) TRN_INLINE {
          const float* q = d + o * a.dstPlane + r * a.dstRow + 4 * v;
          if (o >= n) {
            acc[o][r][v] = _mm_setzero_ps();
          } else if (kPart && v == PV - 1) {
            acc[o][r][v] = LoadPartial(q, part);
          } else {
            acc[o][r][v] = _mm_loadu_ps(q);
          }
        });
      });
    });
    const float* s0 = a.src + ptrdiff_t(oy) * SY * a.srcRow + ptrdiff_t(ox) * SX;
    const float* w0 = a.weight + ptrdiff_t(og) * a.channels * kTaps * 4;
    // Input row ir of the tile feeds output row r through kernel row ky when
    // ir = r * SY + ky: per kernel column every input row under the tile is
    // loaded once, and each weight broadcast serves all rows.
    constexpr int kInRows = (ROWS - 1) * SY + KY;
    auto channel = [&](int c, auto lane_by_lane) TRN_INLINE {
      const float* sc = s0 + c * a.srcPlane;
      const float* wc = w0 + ptrdiff_t(c) * kTaps * 4;
      Unroll<KX>([&](auto kx) TRN_INLINE {
        __m128 x[kInRows][PV];
        Unroll<kInRows>([&](auto ir) TRN_INLINE {
          Unroll<PV>([&](auto v) TRN_INLINE {
            const float* q = sc + ir * a.srcRow + kx + 4 * v * SX;
            if constexpr (std::decay_t<decltype(lane_by_lane)>::value && std::decay_t<decltype(v)>::value == PV - 1) {
              x[ir][v] = LoadPixelsPartial<SX>(q, part);
            } else {
              x[ir][v] = LoadPixels<SX>(q);
            }
          });
        });
        Unroll<KY>([&](auto ky) TRN_INLINE {
          Unroll<4>([&](auto o) TRN_INLINE {
            const __m128 w = _mm_set1_ps(wc[(ky * KX + kx) * 4 + o]);
            Unroll<ROWS>([&](auto r) TRN_INLINE {
              Unroll<PV>([&](auto v) TRN_INLINE { acc[o][r][v] = _mm_fmadd_ps(w, x[r * SY + ky][v], acc[o][r][v]); });
            });
          });
        });
      });
    };
    int whole = a.channels;
    if constexpr (kPart) {
      // The last float the tile's loads touch, from a channel's start, and the
      // room the tensor leaves: channel c may load whole vectors when
      // c * srcPlane < room. On small planes (a 1x1 stride-2 layer on a 1x2
      // map) that excludes more than the last channel.
      const ptrdiff_t reach = (kInRows - 1) * a.srcRow + (KX - 1) + 4 * (PV - 1) * SX + 3 * SX;
      const ptrdiff_t room = ptrdiff_t(a.channels) * a.srcPlane - (s0 - a.src) - reach;
      whole = room <= 0 ? 0 : static_cast<int>(std::min<ptrdiff_t>(a.channels, (room + a.srcPlane - 1) / a.srcPlane));
    }
    for (int c = 0; c < whole; ++c) channel(c, std::false_type{});
    for (int c = whole; c < a.channels; ++c) channel(c, std::true_type{});
    for (int o = 0; o < n; ++o) {
      Unroll<ROWS>([&](auto r) TRN_INLINE {
        Unroll<PV>([&](auto v) TRN_INLINE {
          float* q = d + o * a.dstPlane + r * a.dstRow + 4 * v;
          if (kPart && v == PV - 1) {
            StorePartial(q, acc[o][r][v], part);
          } else {
            _mm_storeu_ps(q, acc[o][r][v]);
          }
        });
      });
    }
  }

  // The last r (1 .. 4 * PV - 1) pixels of a row in one tile of as few
  // vectors as hold them.
  template <int ROWS, int PV>
  static inline void Tail(const ChwArgs& a, int og, int n, int oy, int ox, int r) {
    if constexpr (PV > 1) {
      if (r <= 4 * (PV - 1)) return Tail<ROWS, PV - 1>(a, og, n, oy, ox, r);
    }
    if (r % 4 == 0) return Tile<ROWS, PV>(a, og, n, oy, ox);
    Tile<ROWS, PV, true>(a, og, n, oy, ox, r % 4);
  }

  // ROWS output rows from oy: PV vectors per tile, then the tail.
  template <int ROWS, int PV>
  static inline void Rows(const ChwArgs& a, int og, int n, int oy) {
    int ox = 0;
    for (; ox + 4 * PV <= a.dstW; ox += 4 * PV) Tile<ROWS, PV>(a, og, n, oy, ox);
    if (ox < a.dstW) Tail<ROWS, PV>(a, og, n, oy, ox, a.dstW - ox);
  }

  // The whole pass: groups of four output channels outer, then tiles of ROWS
  // rows by PV vectors (the rows left over below the last whole tile one by
  // one).
  template <int ROWS, int PV>
  static void Run(const ChwArgs& a) {
    const int groups = (a.outChannels + 3) / 4;
    const int full = a.dstH - a.dstH % ROWS;
    for (int og = 0; og < groups; ++og) {
      const int n = a.outChannels - og * 4 < 4 ? a.outChannels - og * 4 : 4;
      for (int oy = 0; oy < full; oy += ROWS) Rows<ROWS, PV>(a, og, n, oy);
      for (int oy = full; oy < a.dstH; ++oy) Rows<1, PV>(a, og, n, oy);
    }
  }
};

}  // namespace sse_conv
}  // namespace kernel
}  // namespace tarn
