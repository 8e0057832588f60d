// The direct convolution steps of the specialised members, written once for
// any register width (the pattern of pooling_steps.h): V supplies the
// register type Reg, its float count kLanes, Load, Store, Broadcast (one
// float to every lane), Fma (a * b + c, fused), Zero, and where a step needs
// them LoadHalves / StoreHalves / LoadLow / StoreLow (two 4-float blocks in
// one 8-float register) and LoadFirst / StoreFirst (the first n floats, the
// rest zero on load and untouched on store). Each family's file defines its V
// with its own intrinsics in an unnamed namespace, so this header holds none
// and every instantiation stays in the file of its instruction set.
//
// Two register blockings, both output-stationary: a tile of outputs stays in
// registers while every input channel and kernel tap is folded in, and is
// written once. That is what separates these steps from the 1x1 cores, which
// keep one weight tile in registers and sweep the whole output plane per
// input block (read-modify-write of the output for every input block).
//
//   Blocked outputs (ChannelTile / RunBlocked): a register holds one pixel of
//   one output block (or two 4-lane blocks); per input lane and tap, one
//   weight register per output group and one broadcast input value per pixel.
//   A tile is OB groups x PX pixels, at most twelve accumulators (OB = 3 x 4,
//   2 x 6, 1 x 8), so the fused multiply-adds of one tap are independent
//   enough to hide their latency and the weights and broadcasts still fit.
//
//   Plane outputs (PlaneTile / RunPlanes): a register holds V::kLanes
//   neighbouring pixels of one output channel; per input channel and tap,
//   PV input registers and one broadcast weight per output channel. A tile is
//   NB <= 6 channels x PV <= 2 registers; the last register of a row may be
//   partial (LoadFirst / StoreFirst).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tarn/runtime/tensor.h"

namespace tarn {
namespace kernel {
namespace direct {

using std::ptrdiff_t;

// How the registers of one output group land in the output tensor.
enum class OutMode {
  kWhole,    // one register is one output block of V::kLanes lanes
  kHalves,   // one register is two consecutive blocks of V::kLanes / 2 lanes
  kLowHalf,  // as kHalves with the second block missing (odd block count)
};

// Where the accumulators of a tile start.
enum class Init {
  kLoad,  // the output as it is (filled with the bias or zero before)
  kBias,  // the packed bias, V::kLanes values per output group
  kZero,  // zero: the step overwrites the output
};

// The operands of one blocked pass. Weights are packed per output group
// (V::kLanes output channels), then per input block, kernel row, kernel
// column and input lane: V::kLanes floats per (group, block, ky, kx, lane).
struct BlockedPass {
  const float* src;     // padded input at block 0, row 0, column 0
  ptrdiff_t srcBlock;   // floats between stored input blocks (planes for CHW)
  ptrdiff_t srcRow;     // floats between input rows (pixels are the block's lanes apart)
  int inBlocks;
  const float* weight;  // output group 0
  ptrdiff_t weightGroup;  // floats between output groups
  const float* bias;    // Init::kBias only
  float* dst;           // output at block 0, row 0, column 0
  ptrdiff_t dstBlock;   // floats between output blocks (the half-width ones for kHalves)
  ptrdiff_t dstRow;     // floats between output rows (pixels are the block's lanes apart)
  int groups;           // output register groups
  bool lastGroupHalf;   // kHalves: the last group has one block only
  int outH, outW;
};

// The blocked pass of a step over tensors: input [blocks, H, W, lanes] or CHW
// [C, H, W] (one lane), output [blocks, OH, OW, lanes] with V::kLanes lanes
// (kWhole) or V::kLanes / 2 (kHalves), weight packed for KY x KX taps.
template <typename V, OutMode kOut, int KY, int KX>
BlockedPass DescribeBlocked(const runtime::TensorCPU& in, const runtime::TensorCPU& out, const float* weight,
                            const float* bias) {
  const auto& di = in.shape.dims;
  const auto& d = out.shape.dims;
  BlockedPass a{};
  const ptrdiff_t inLanes = di.size() == 4 ? di[3] : 1;
  a.srcRow = ptrdiff_t(di[2]) * inLanes;
  a.srcBlock = a.srcRow * di[1];
  a.inBlocks = static_cast<int>(di[0]);
  a.src = in.DataAs<float>();
  a.dstRow = ptrdiff_t(d[2]) * (d.size() == 4 ? d[3] : 1);
  a.dstBlock = a.dstRow * d[1];
  a.dst = out.DataAs<float>();
  a.outH = static_cast<int>(d[1]);
  a.outW = static_cast<int>(d[2]);
  a.groups = static_cast<int>(kOut == OutMode::kWhole ? d[0] : (d[0] + 1) / 2);
  a.lastGroupHalf = kOut != OutMode::kWhole && d[0] % 2 == 1;
  a.weight = weight;
  a.weightGroup = ptrdiff_t(a.inBlocks) * KY * KX * inLanes * V::kLanes;
  a.bias = bias;
  return a;
}

// Most pixels per tile for OB output groups (twelve accumulators at most).
constexpr int MaxTilePixels(int ob) { return ob == 1 ? 8 : 12 / ob; }

// One tile: OB output groups x PX output pixels of one row. `src` is the
// input at the tile's first pixel, `dst` the output there. IL input lanes per
// stored block (1 for CHW input). The per-column launder keeps the compiler
// from merging the broadcasts that neighbouring kernel columns share when the
// stride is 1: kept apart they are cheap loads, merged they outlive the
// registers and spill.
template <typename V, int IL, int KY, int KX, int SX, OutMode kOut, Init kInit, int OB, int PX>
void ChannelTile(const BlockedPass& a, const float* src, const float* w, const float* bias, float* dst) {
  using Reg = typename V::Reg;
  constexpr int L = V::kLanes;
  constexpr int DL = kOut == OutMode::kWhole ? L : L / 2;  // floats per output pixel of one block
  constexpr ptrdiff_t kTap = ptrdiff_t(IL) * L;            // weight floats per kernel tap
  static_assert(kOut != OutMode::kLowHalf || OB == 1, "a missing half ends the last group only");
  // Register o of pixel p: block o (kWhole) or blocks 2o and 2o + 1.
  const auto out = [&](int o, int p) { return dst + (kOut == OutMode::kWhole ? o : 2 * o) * a.dstBlock + p * DL; };
  Reg acc[OB][PX];
#pragma GCC unroll 4
  for (int o = 0; o < OB; ++o) {
#pragma GCC unroll 8
    for (int p = 0; p < PX; ++p) {
      if constexpr (kInit == Init::kZero) {
        acc[o][p] = V::Zero();
      } else if constexpr (kInit == Init::kBias) {
        acc[o][p] = V::Load(bias + o * L);
      } else if constexpr (kOut == OutMode::kWhole) {
        acc[o][p] = V::Load(out(o, p));
      } else if constexpr (kOut == OutMode::kHalves) {
        acc[o][p] = V::LoadHalves(out(o, p), out(o, p) + a.dstBlock);
      } else {
        acc[o][p] = V::LoadLow(out(o, p));
      }
    }
  }
  for (int ib = 0; ib < a.inBlocks; ++ib) {
    const float* sb = src + ib * a.srcBlock;
    const float* wb = w + ib * (KY * KX * kTap);
    for (int ky = 0; ky < KY; ++ky) {
      const float* sr = sb + ky * a.srcRow;
      const float* wr = wb + ky * (KX * kTap);
#pragma GCC unroll 8
      for (int kx = 0; kx < KX; ++kx) {
        const float* sk = sr + kx * IL;
        asm("" : "+r"(sk));
#pragma GCC unroll 8
        for (int l = 0; l < IL; ++l) {
          Reg wv[OB];
#pragma GCC unroll 4
          for (int o = 0; o < OB; ++o) wv[o] = V::Load(wr + o * a.weightGroup + kx * kTap + l * L);
#pragma GCC unroll 8
          for (int p = 0; p < PX; ++p) {
            const Reg b = V::Broadcast(sk + p * SX * IL + l);
#pragma GCC unroll 4
            for (int o = 0; o < OB; ++o) acc[o][p] = V::Fma(wv[o], b, acc[o][p]);
          }
        }
      }
    }
  }
#pragma GCC unroll 4
  for (int o = 0; o < OB; ++o) {
#pragma GCC unroll 8
    for (int p = 0; p < PX; ++p) {
      if constexpr (kOut == OutMode::kWhole) {
        V::Store(out(o, p), acc[o][p]);
      } else if constexpr (kOut == OutMode::kHalves) {
        V::StoreHalves(out(o, p), out(o, p) + a.dstBlock, acc[o][p]);
      } else {
        V::StoreLow(out(o, p), acc[o][p]);
      }
    }
  }
}

// The tile of `px` pixels (1 .. MaxTilePixels(OB)), chosen at run time.
template <typename V, int IL, int KY, int KX, int SX, OutMode kOut, Init kInit, int OB, int PX = 1>
inline void ChannelTileOf(int px, const BlockedPass& a, const float* src, const float* w, const float* bias,
                          float* dst) {
  if constexpr (PX <= MaxTilePixels(OB)) {
    if (px == PX) return ChannelTile<V, IL, KY, KX, SX, kOut, kInit, OB, PX>(a, src, w, bias, dst);
    ChannelTileOf<V, IL, KY, KX, SX, kOut, kInit, OB, PX + 1>(px, a, src, w, bias, dst);
  }
}

// `total` split into `count` parts as even as possible; the first
// total % count parts are one larger. Even tiles keep every tile near full
// width (56 pixels as 6,6,6,6,6,6,5,5,5,5 rather than nine 6s and a 2).
struct EvenSplit {
  int count, base, extra;
  EvenSplit(int total, int most) : count((total + most - 1) / most), base(0), extra(0) {
    if (count > 0) {
      base = total / count;
      extra = total % count;
    }
  }
  int Size(int i) const { return base + (i < extra ? 1 : 0); }
};

// Groups [g0, g0 + OB) over the whole output plane.
template <typename V, int IL, int KY, int KX, int SY, int SX, OutMode kOut, Init kInit, int OB>
void RunGroups(const BlockedPass& a, int g0) {
  constexpr int L = V::kLanes;
  constexpr int DL = kOut == OutMode::kWhole ? L : L / 2;
  constexpr int blocksPerGroup = kOut == OutMode::kWhole ? 1 : 2;
  const float* w = a.weight + g0 * a.weightGroup;
  const float* bias = kInit == Init::kBias ? a.bias + g0 * L : nullptr;
  const EvenSplit tiles(a.outW, MaxTilePixels(OB));
  for (int oy = 0; oy < a.outH; ++oy) {
    const float* srcRow = a.src + oy * SY * a.srcRow;
    float* dstRow = a.dst + blocksPerGroup * g0 * a.dstBlock + oy * a.dstRow;
    int ox = 0;
    for (int t = 0; t < tiles.count; ++t) {
      const int px = tiles.Size(t);
      ChannelTileOf<V, IL, KY, KX, SX, kOut, kInit, OB>(px, a, srcRow + ox * SX * IL, w, bias, dstRow + ox * DL);
      ox += px;
    }
  }
}

// The whole pass: output groups taken three, two or one at a time (four as
// two and two), each group block over every row.
template <typename V, int IL, int KY, int KX, int SY, int SX, OutMode kOut, Init kInit>
void RunBlocked(const BlockedPass& a) {
  const int full = kOut == OutMode::kHalves && a.lastGroupHalf ? a.groups - 1 : a.groups;
  for (int g = 0; g < full;) {
    const int left = full - g;
    const int ob = left == 4 ? 2 : (left < 3 ? left : 3);
    if (ob == 3) {
      RunGroups<V, IL, KY, KX, SY, SX, kOut, kInit, 3>(a, g);
    } else if (ob == 2) {
      RunGroups<V, IL, KY, KX, SY, SX, kOut, kInit, 2>(a, g);
    } else {
      RunGroups<V, IL, KY, KX, SY, SX, kOut, kInit, 1>(a, g);
    }
    g += ob;
  }
  if constexpr (kOut == OutMode::kHalves) {
    if (full < a.groups) RunGroups<V, IL, KY, KX, SY, SX, OutMode::kLowHalf, kInit, 1>(a, full);
  }
}

// A blocked convolution step (padded input, output holding the bias or zero,
// packed weight) over tensors.
template <typename V, int IL, int KY, int KX, int SY, int SX, OutMode kOut>
void BlockedStep(const std::shared_ptr<runtime::TensorCPU>& input, const std::shared_ptr<runtime::TensorCPU>& output,
                 const std::shared_ptr<runtime::TensorCPU>& weight) {
  BlockedPass a = DescribeBlocked<V, kOut, KY, KX>(*input, *output, weight->DataAs<float>(), nullptr);
  if (KY == 1 && KX == 1 && SY == 1 && SX == 1) {
    // Without padding input and output pixels line up: the plane is one row
    // and only its end has a short tile.
    a.outW *= a.outH;
    a.outH = 1;
  }
  RunBlocked<V, IL, KY, KX, SY, SX, kOut, Init::kLoad>(a);
}

// A blocked step that writes its output: the accumulators start from the
// bias (zero beyond its values, or without one) and every output register is
// stored once, with no fill pass before.
template <typename V, int IL, int KY, int KX, int SY, int SX, OutMode kOut>
void BlockedWritingStep(const std::shared_ptr<runtime::TensorCPU>& input,
                        const std::shared_ptr<runtime::TensorCPU>& output,
                        const std::shared_ptr<runtime::TensorCPU>& weight,
                        const std::shared_ptr<runtime::TensorCPU>& bias) {
  BlockedPass a = DescribeBlocked<V, kOut, KY, KX>(*input, *output, weight->DataAs<float>(), nullptr);
  std::vector<float> lanes(std::size_t(a.groups) * V::kLanes, 0.0f);
  if (bias) {
    const std::size_t count = bias->shape.ElementCount() < lanes.size() ? bias->shape.ElementCount() : lanes.size();
    for (std::size_t i = 0; i < count; ++i) lanes[i] = bias->DataAs<float>()[i];
  }
  a.bias = lanes.data();
  RunBlocked<V, IL, KY, KX, SY, SX, kOut, Init::kBias>(a);
}

// ---------------------------------------------------------------- plane outputs

// The operands of one plane pass (CHW input and output). Weights are packed
// per block of six output channels, then per input channel, kernel row and
// kernel column: six floats (zero beyond the last channel).
struct PlanePass {
  const float* src;  // padded input at channel 0, row 0, column 0
  ptrdiff_t srcPlane, srcRow;
  int inChannels;
  const float* weight;
  float* dst;
  ptrdiff_t dstPlane, dstRow;
  int outChannels;
  int outH, outW;  // a 1x1 pass may treat the whole plane as one row
};

constexpr int kPlaneChannels = 6;  // output channels per weight block

// NB output channels x PV registers of pixels, accumulated onto dst; with
// kPartial the last register holds only `last` pixels.
template <typename V, int KY, int KX, int NB, int PV, bool kPartial>
void PlaneTile(const PlanePass& a, const float* src, const float* w, float* dst, int last) {
  using Reg = typename V::Reg;
  constexpr int L = V::kLanes;
  Reg acc[NB][PV];
#pragma GCC unroll 8
  for (int n = 0; n < NB; ++n) {
#pragma GCC unroll 4
    for (int v = 0; v < PV; ++v) {
      const float* d = dst + n * a.dstPlane + v * L;
      acc[n][v] = kPartial && v == PV - 1 ? V::LoadFirst(d, last) : V::Load(d);
    }
  }
  for (int c = 0; c < a.inChannels; ++c) {
    for (int ky = 0; ky < KY; ++ky) {
      const float* sr = src + c * a.srcPlane + ky * a.srcRow;
      const float* wr = w + (c * KY + ky) * KX * kPlaneChannels;
#pragma GCC unroll 8
      for (int kx = 0; kx < KX; ++kx) {
        Reg x[PV];
#pragma GCC unroll 4
        for (int v = 0; v < PV; ++v) {
          x[v] = kPartial && v == PV - 1 ? V::LoadFirst(sr + kx + v * L, last) : V::Load(sr + kx + v * L);
        }
#pragma GCC unroll 8
        for (int n = 0; n < NB; ++n) {
          const Reg b = V::Broadcast(wr + kx * kPlaneChannels + n);
#pragma GCC unroll 4
          for (int v = 0; v < PV; ++v) acc[n][v] = V::Fma(b, x[v], acc[n][v]);
        }
      }
    }
  }
#pragma GCC unroll 8
  for (int n = 0; n < NB; ++n) {
#pragma GCC unroll 4
    for (int v = 0; v < PV; ++v) {
      float* d = dst + n * a.dstPlane + v * L;
      if (kPartial && v == PV - 1) {
        V::StoreFirst(d, acc[n][v], last);
      } else {
        V::Store(d, acc[n][v]);
      }
    }
  }
}

template <typename V, int KY, int KX, int NB>
void PlaneTileOf(int registers, bool partial, const PlanePass& a, const float* src, const float* w, float* dst,
                 int last) {
  if (registers == 2) {
    partial ? PlaneTile<V, KY, KX, NB, 2, true>(a, src, w, dst, last)
            : PlaneTile<V, KY, KX, NB, 2, false>(a, src, w, dst, last);
  } else {
    partial ? PlaneTile<V, KY, KX, NB, 1, true>(a, src, w, dst, last)
            : PlaneTile<V, KY, KX, NB, 1, false>(a, src, w, dst, last);
  }
}

// The tile of channels [n0, n0 + nb) (nb = 1 .. 6) at `src` / `dst`.
template <typename V, int KY, int KX>
void PlaneTileAt(int nb, int registers, bool partial, const PlanePass& a, const float* src, int n0, float* dst,
                 int last) {
  const float* w = a.weight + ptrdiff_t(n0 / kPlaneChannels) * a.inChannels * KY * KX * kPlaneChannels;
  float* d = dst + n0 * a.dstPlane;
  switch (nb) {
    case 1: return PlaneTileOf<V, KY, KX, 1>(registers, partial, a, src, w, d, last);
    case 2: return PlaneTileOf<V, KY, KX, 2>(registers, partial, a, src, w, d, last);
    case 3: return PlaneTileOf<V, KY, KX, 3>(registers, partial, a, src, w, d, last);
    case 4: return PlaneTileOf<V, KY, KX, 4>(registers, partial, a, src, w, d, last);
    case 5: return PlaneTileOf<V, KY, KX, 5>(registers, partial, a, src, w, d, last);
    default: return PlaneTileOf<V, KY, KX, 6>(registers, partial, a, src, w, d, last);
  }
}

// The whole pass, stride 1 along the row (the plane members are stride 1):
// per row and per two registers of pixels, every block of six output
// channels, so the input those pixels read stays in the first-level cache
// while all the output channels are made from it.
template <typename V, int KY, int KX, int SY>
void RunPlanes(const PlanePass& a) {
  constexpr int L = V::kLanes;
  const int vectors = (a.outW + L - 1) / L;
  const int last = a.outW - (vectors - 1) * L;  // pixels in the last register of a row
  for (int oy = 0; oy < a.outH; ++oy) {
    const float* src = a.src + oy * SY * a.srcRow;
    float* dst = a.dst + oy * a.dstRow;
    for (int v = 0; v < vectors; v += 2) {
      const int registers = vectors - v >= 2 ? 2 : 1;
      const bool partial = v + registers == vectors && last < L;
      for (int n0 = 0; n0 < a.outChannels; n0 += kPlaneChannels) {
        const int nb = a.outChannels - n0 < kPlaneChannels ? a.outChannels - n0 : kPlaneChannels;
        PlaneTileAt<V, KY, KX>(nb, registers, partial, a, src + v * L, n0, dst + v * L, last);
      }
    }
  }
}

// A plane convolution step over CHW tensors (padded input, output holding
// the bias or zero, weight in the order above).
template <typename V, int KY, int KX>
void PlaneStep(const std::shared_ptr<runtime::TensorCPU>& input, const std::shared_ptr<runtime::TensorCPU>& output,
               const std::shared_ptr<runtime::TensorCPU>& weight) {
  const auto& di = input->shape.dims;
  const auto& d = output->shape.dims;
  PlanePass a{};
  a.src = input->DataAs<float>();
  a.srcRow = di[2];
  a.srcPlane = ptrdiff_t(di[1]) * di[2];
  a.inChannels = static_cast<int>(di[0]);
  a.weight = weight->DataAs<float>();
  a.dst = output->DataAs<float>();
  a.dstRow = d[2];
  a.dstPlane = ptrdiff_t(d[1]) * d[2];
  a.outChannels = static_cast<int>(d[0]);
  a.outH = static_cast<int>(d[1]);
  a.outW = static_cast<int>(d[2]);
  if (KY == 1 && KX == 1) {
    // A 1x1 kernel without padding: the plane is one row.
    a.outW *= a.outH;
    a.outH = 1;
  }
  RunPlanes<V, KY, KX, 1>(a);
}

}  // namespace direct
}  // namespace kernel
}  // namespace tarn
