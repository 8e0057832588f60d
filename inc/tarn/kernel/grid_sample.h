// The source taps and loops of the grid-sampling kernels (PyTorch's
// F.grid_sample on one image).
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarn {
namespace kernel {
namespace functional {

enum class GridPadding : std::uint16_t { kZeros = 0, kBorder = 1, kReflection = 2 };

struct GridSampleSetup {
  bool bilinear = true;
  GridPadding padding = GridPadding::kZeros;
  bool align_corners = false;
  std::uint32_t in_h = 0, in_w = 0;  // the sampled plane, at most 2^31 - 1 floats
};

// Output pixels whose taps are worked out together.
constexpr std::uint32_t kGridStrip = 64;

// The taps of a strip of output pixels: for bilinear the north-west,
// north-east, south-west and south-east neighbours (nearest: tap 0 alone),
// each a pixel offset into the plane (-1 for a neighbour outside it, which
// reads as 0) and a weight.
struct GridTaps {
  std::int32_t offset[4][kGridStrip];
  float weight[4][kGridStrip];
};

// The taps of `count` (at most kGridStrip) output pixels from their grid pairs
// (x, y) in [-1, 1], stored one pair after the other. The source position is
// (g + 1) * (size - 1) / 2 (align_corners) or (g + 1) * size / 2 - 0.5;
// border padding clips it to [0, size - 1] (a NaN to 0), reflection first
// folds it about the edges (the corner centres with align_corners, the
// outer pixel edges without), then clips. Bilinear: weights
// (1 - fy)(1 - fx), (1 - fy) fx, fy (1 - fx), fy fx of the fractions past
// floor; nearest: the position rounded half to even. Computed as PyTorch's CPU
// kernel computes them, with one deliberate difference: under zeros padding a
// position that is NaN or infinite reads nothing (every tap outside, weight
// 0), so the output is 0 where PyTorch gives NaN.
void GridSampleTaps(const GridSampleSetup& setup, const float* grid, std::uint32_t count, GridTaps* taps);

// Samples `planes` planes of setup.in_h x setup.in_w pixels of `lanes` floats
// (lanes 1: CHW; 8: C8HW8 blocks) at `pixels` output pixels whose grid pairs
// are in `grid`; dst holds `planes` planes of `pixels` pixels. Bilinear per
// float: ((v0 w0 + v1 w1) + v2 w2) + v3 w3, each product and sum rounded on
// its own (v = 0 for a tap outside the plane); nearest copies v0 (0 outside).
using GridSampleFn = void (*)(const float* src, std::uint32_t planes, std::uint32_t lanes,
                              const GridSampleSetup& setup, const float* grid, std::size_t pixels, float* dst);
// Portable, any lanes.
void grid_sample_f32(const float* src, std::uint32_t planes, std::uint32_t lanes, const GridSampleSetup& setup,
                     const float* grid, std::size_t pixels, float* dst);
// AVX2 on C8HW8 (lanes 8): one 8-channel register per tap, bit for bit the
// portable result.
void grid_sample_c8hw8_avx_f32(const float* src, std::uint32_t planes, std::uint32_t lanes, const GridSampleSetup& setup,
                               const float* grid, std::size_t pixels, float* dst);

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
