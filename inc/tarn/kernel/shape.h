// Raw routines of the shape operations, concatenation, padding, pixel
// shuffle, space-to-depth and Gemm. The kernel classes check shapes and
// records; these routines trust their arguments. Every routine that only
// moves values moves them bit for bit (NaN payloads, signed zeros).
//
// Blocked layouts: [ceil(C / k), H, W, k] with k = 4 (C4HW4) or 8 (C8HW8);
// lanes of the last block beyond the last channel are zero.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarn {
namespace kernel {
namespace functional {

// ---------------------------------------------------------------- gathers

// A copy described by one table of source offsets per output dim: output
// element (i0, ..., in) is source element base + offsets[0][i0] + ... +
// offsets[n][in] (offsets in elements). Transposes, broadcasts, slices and
// index lists are all such tables.
struct GatherPlan {
  std::size_t base = 0;
  std::vector<std::vector<std::size_t>> offsets;  // offsets[d].size() is output dim d
};
// Copies every output element of `plan` from src to the dense dst.
void gather_bytes(const void* src, void* dst, const GatherPlan& plan, std::uint32_t element_bytes);

// ---------------------------------------------------------------- concatenation

// Places the `channels` channels of one blocked input (its block planes of
// `pixels` pixel vectors of `lanes` floats) at channel `offset` of a blocked
// output. Lanes of the first output block below offset % lanes are kept (an
// earlier input wrote them); lanes of the last output block beyond
// offset + channels become zero, whatever the input's tail holds.
void place_channels_f32(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset,
                        std::uint32_t lanes, float* out);
void place_channels_c4_f32_sse(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset,
                               float* out);
void place_channels_c8_f32_avx(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset,
                               float* out);

// ---------------------------------------------------------------- padding

// One plane (or block plane) of a constant padding, in floats: `out_rows`
// output rows of left + width + right floats. Output row y copies `width`
// floats of input row y - top (s + (y - top) * in_row), framed by `left` and
// `right` fill floats, when 0 <= y - top < in_rows; every other row is fill
// only. The fill repeats `pattern` (`lanes` floats: one pixel vector; lanes 1
// repeats pattern[0]); left, width, right and in_row are multiples of lanes.
struct PadPlane {
  std::size_t out_rows = 0, in_rows = 0;
  std::int64_t top = 0;  // negative: input rows cropped at the top
  std::size_t in_row = 0, left = 0, width = 0, right = 0;
};
void pad_plane_f32(float* d, const float* s, const PadPlane& g, const float* pattern, std::uint32_t lanes);
// SSE takes lanes 1 and 4, AVX lanes 1 and 8.
void pad_plane_f32_sse(float* d, const float* s, const PadPlane& g, const float* pattern, std::uint32_t lanes);
void pad_plane_f32_avx(float* d, const float* s, const PadPlane& g, const float* pattern, std::uint32_t lanes);

// ---------------------------------------------------------------- pixel shuffle

// One output row of a pixel shuffle with factor r: out[x * r + j] = rows[j][x]
// for x < width, j < r.
void interleave_rows_f32(const float* const* rows, std::uint32_t r, std::uint32_t width, float* out);
// Vector forms for r = 2 and 4 (AVX also 8); other factors take the portable loop.
void interleave_rows_f32_sse(const float* const* rows, std::uint32_t r, std::uint32_t width, float* out);
void interleave_rows_f32_avx(const float* const* rows, std::uint32_t r, std::uint32_t width, float* out);

// ---------------------------------------------------------------- Gemm

// Y (M x N, row-major) = alpha * op(A) op(B) + beta * Y, op(A) M x K and
// op(B) K x N. A is stored M x K (K x M when trans_a), B K x N (N x K when
// trans_b). The portable loop sums the products in K order in float.
void gemm_f32(bool trans_a, bool trans_b, int M, int N, int K, float alpha, const float* A, const float* B, float beta,
              float* Y);

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
