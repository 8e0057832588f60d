// Running a convolution member end to end (record, Config, IsValidInput,
// Forward) against the double reference.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kernel/cpu/conv_test_util.h"

namespace tarn {
namespace testing {
namespace conv {

struct MemberDesc {
  const char* name;
  unsigned lanes;  // 1 CHW, 4 C4HW4, 8 C8HW8
  bool avx;        // needs AVX2 (else SSE4.1 when vector)
  bool vector;
};

inline bool CanRun(const MemberDesc& m) { return !m.vector || (m.avx ? CanRunAVX() : CanRunSSE()); }

inline TensorCPUPtr LayoutTensor(const std::shared_ptr<runtime::DeviceCPU>& device, const std::vector<float>& chw,
                                 unsigned c, unsigned h, unsigned w, unsigned lanes) {
  if (lanes == 1) return MakeTensor(device, {c, h, w}, TensorShape::CHW, chw);
  return MakeTensor(device, {(c + lanes - 1) / lanes, h, w, lanes},
                    lanes == 4 ? TensorShape::C4HW4 : TensorShape::C8HW8, ToBlocked(chw, c, h, w, lanes));
}

// Runs member `m` on `g` with the given data and compares with `want`.
inline ::testing::AssertionResult RunConvMemberOn(const MemberDesc& m, const ConvGeom& g, const std::vector<float>& x,
                                                  const std::vector<float>& weight, const std::vector<float>& bias,
                                                  const Ref& want) {
  auto ctx = MakeContext();
  auto input = LayoutTensor(ctx->cpu, x, g.c, g.h, g.w, m.lanes);
  KernelRun run = RunKernel(m.name, MakeConv2dInfo(g, weight, bias), ctx, input);
  if (!run.kernel) return ::testing::AssertionFailure() << m.name << " is not registered";
  if (!run.configured) return ::testing::AssertionFailure() << m.name << " refused Config for " << g;
  if (run.valid != 0) return ::testing::AssertionFailure() << m.name << " refused the input of " << g;
  if (!run.forwarded || run.outputs.size() != 1) return ::testing::AssertionFailure() << m.name << " Forward failed";
  const auto& out = run.outputs[0];
  const auto shapes = run.kernel->GetOutputShapes({input->shape});
  if (shapes.size() != 1 || shapes[0].dims != out->shape.dims || shapes[0].layout != out->shape.layout) {
    return ::testing::AssertionFailure() << "GetOutputShapes disagrees with the output";
  }
  if (run.kernel->IsValidOutput(run.outputs) != 0) return ::testing::AssertionFailure() << "IsValidOutput refused";
  const float* o = static_cast<const float*>(out->Data());
  const unsigned oh = g.OutH(), ow = g.OutW();
  const std::vector<float> got =
      m.lanes == 1 ? std::vector<float>(o, o + std::size_t(g.n) * oh * ow) : FromBlocked(o, g.n, oh, ow, m.lanes);
  auto near = Near(got, want);
  if (!near) return near << " (" << m.name << ", " << g << ")";
  if (m.lanes != 1 && !TailLanesZero(o, g.n, oh, ow, m.lanes)) {
    return ::testing::AssertionFailure() << "tail lanes not zero (" << m.name << ", " << g << ")";
  }
  return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult RunConvMember(const MemberDesc& m, const ConvGeom& g, unsigned seed) {
  const std::vector<float> x = Random(std::size_t(g.c) * g.h * g.w, seed);
  const std::vector<float> weight = Random(g.WeightCount(), seed + 1);
  const std::vector<float> bias = g.bias ? Random(g.n, seed + 2) : std::vector<float>();
  return RunConvMemberOn(m, g, x, weight, bias, NaiveConv2d(g, x, weight, bias));
}

// The kernel part of a geometry (channels and input size filled in per case).
struct Geometry {
  unsigned ky, kx, sy, sx, dy, dx, pl, pr, pt, pb;
};

inline ConvGeom Make(const Geometry& k, unsigned c, unsigned n, unsigned g, unsigned h, unsigned w, bool bias) {
  return ConvGeom{c, n, h, w, k.ky, k.kx, k.sy, k.sx, k.dy, k.dx, g, k.pl, k.pr, k.pt, k.pb, bias};
}

// Smallest input extent the kernel fits after padding.
inline unsigned MinExtent(unsigned kernel, unsigned dilation, unsigned pad_a, unsigned pad_b) {
  const unsigned need = dilation * (kernel - 1) + 1;
  return need > pad_a + pad_b ? need - pad_a - pad_b : 1;
}

// Strides, dilations, asymmetric padding, non-square kernels.
inline const std::vector<Geometry>& Geometries() {
  static const std::vector<Geometry> g = {
      {3, 3, 1, 1, 1, 1, 1, 1, 1, 1},  // 3x3 same
      {3, 3, 2, 2, 1, 1, 1, 0, 2, 1},  // stride 2, asymmetric padding
      {3, 3, 1, 1, 2, 2, 2, 2, 2, 2},  // dilation 2 keeps the size
      {1, 1, 1, 1, 1, 1, 0, 0, 0, 0},  // 1x1
      {2, 3, 2, 1, 1, 2, 0, 1, 1, 0},  // mixed
      {5, 5, 1, 1, 1, 1, 2, 2, 2, 2},  // 5x5
      {7, 7, 2, 2, 1, 1, 3, 3, 3, 3},  // stem-like
      {1, 1, 2, 2, 1, 1, 0, 0, 0, 0},  // strided 1x1
  };
  return g;
}

}  // namespace conv
}  // namespace testing
}  // namespace tarn
