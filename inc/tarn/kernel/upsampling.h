// The source tables and loops of the 2-D upsampling kernels (nearest and
// bilinear, PyTorch's F.interpolate with a scale factor on an NCHW tensor).
#pragma once

#include <cstdint>
#include <vector>

namespace tarn {
namespace kernel {
namespace functional {

// Where every output row and column reads. Nearest uses y0/x0; bilinear
// blends rows y0 and y1 with weights wy0 and wy1, columns likewise.
struct Upsample2DPlan {
  std::uint32_t in_h = 0, in_w = 0, out_h = 0, out_w = 0;
  bool bilinear = false;
  // Nearest only: out_w == 2 * in_w and x0[ox] == ox / 2, every column twice.
  bool doubles_columns = false;
  // Bilinear only: out_w == 2 * in_w and outputs 2i + 1 and 2i + 2 both blend
  // columns i and i + 1, with weights that repeat: (pair_w[0], pair_w[1]) and
  // (pair_w[2], pair_w[3]) (the 2x half-pixel case).
  bool pairs_columns = false;
  float pair_w[4] = {0, 0, 0, 0};
  std::vector<std::int32_t> y0, y1, x0, x1;
  std::vector<float> wy0, wy1, wx0, wx1;
};

// The output extent floor(in * scale) (the product in double); 0 when the
// scale is not finite and > 0, or the extent is below 1 or above 2^31 - 1.
std::uint32_t UpsampleExtent(std::uint32_t in, float scale);

// The tables of one axis of `in` source positions and `out` outputs.
// Nearest: source floor(d * s') with s' = (float)(1 / scale), at most in - 1.
// Bilinear: an axis whose extent is unchanged is copied; otherwise the source
// position is s' * d with s' = (in - 1) / (out - 1) (align_corners, 0 when
// out == 1) or s' * (d + 0.5) - 0.5 clamped at 0 (half-pixel centres, the
// product in double), with s' = (float)(1 / scale); i0 = min(floor(pos),
// in - 1), i1 = i0 + 1 unless at the edge, w1 = clamp(pos - i0, 0, 1) and
// w0 = 1 - w1.
void UpsampleAxis(std::uint32_t in, std::uint32_t out, float scale, bool bilinear, bool align_corners,
                  std::vector<std::int32_t>* i0, std::vector<std::int32_t>* i1, std::vector<float>* w0,
                  std::vector<float>* w1);

// The plan of an in_h x in_w input; false when an output extent is out of range.
bool MakeUpsample2DPlan(std::uint32_t in_h, std::uint32_t in_w, float scale_y, float scale_x, bool bilinear,
                        bool align_corners, Upsample2DPlan* plan);

// Upsamples `planes` planes of in_h x in_w pixels of `lanes` floats (lanes 1:
// CHW; 4: C4HW4 blocks; 8: C8HW8 blocks) into out_h x out_w. Bilinear per
// float: t0 = v(y0, x0) * wx0 + v(y0, x1) * wx1, t1 likewise on row y1,
// out = t0 * wy0 + t1 * wy1, every product and sum rounded on its own, so
// every form gives the same bits; nearest copies bits.
using Upsample2DFn = void (*)(const float* src, std::uint32_t planes, std::uint32_t lanes,
                              const Upsample2DPlan& plan, float* dst);
// Portable, any lanes.
void upsample2d_f32(const float* src, std::uint32_t planes, std::uint32_t lanes, const Upsample2DPlan& plan,
                    float* dst);
// SSE4.1 (lanes 1 and 4) and AVX2 (lanes 1 and 8). The plane forms blend
// each needed source row once horizontally (kept while later output rows
// need it) and repeat an output row that reads the same source row.
void upsample2d_sse_f32(const float* src, std::uint32_t planes, std::uint32_t lanes, const Upsample2DPlan& plan,
                        float* dst);
void upsample2d_c4hw4_sse_f32(const float* src, std::uint32_t planes, std::uint32_t lanes,
                              const Upsample2DPlan& plan, float* dst);
void upsample2d_avx_f32(const float* src, std::uint32_t planes, std::uint32_t lanes, const Upsample2DPlan& plan,
                        float* dst);
void upsample2d_c8hw8_avx_f32(const float* src, std::uint32_t planes, std::uint32_t lanes,
                              const Upsample2DPlan& plan, float* dst);

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
