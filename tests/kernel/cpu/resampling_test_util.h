// Shared helpers of the normalisation, upsampling, softmax, clip and
// grid-sampling tests: records, the PyTorch fixtures, and the test bodies
// that each instruction-set family runs on its own routines and kernels (the
// TEST macros stay in the family's files, whose paths tell the suite's main
// which processors may run them).
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "kernel/cpu/element_test_util.h"
#include "kernel/cpu/fallback/batchnorm/batchnorm.h"
#include "kernel/cpu/fallback/clip/clip.h"
#include "kernel/cpu/fallback/gridsample/gridsample.h"
#include "kernel/cpu/fallback/instancenorm/instancenorm.h"
#include "kernel/cpu/fallback/softmax/softmax.h"
#include "kernel/cpu/fallback/upsampling2d/upsampling2d.h"
#include "reference/reference_data.h"
#include "tarn/kernel/grid_sample.h"
#include "tarn/kernel/normalization.h"
#include "tarn/kernel/softmax.h"
#include "tarn/kernel/upsampling.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace testing {

// ---------------------------------------------------------------------------
// Records.

template <typename Record>
std::shared_ptr<Record> BatchNormRecord(const std::vector<float>& mean, const std::vector<float>& var,
                                        const std::vector<float>& scale, const std::vector<float>& shift, float eps) {
  auto r = std::make_shared<Record>();
  r->num_features = static_cast<std::uint16_t>(mean.size());
  r->eps = eps;
  r->if_affine = !scale.empty();
  r->mean = runtime::EncodeWeights(mean);
  r->variance = runtime::EncodeWeights(var);
  r->scale = runtime::EncodeWeights(scale);
  r->shift = runtime::EncodeWeights(shift);
  return r;
}

inline std::shared_ptr<runtime::InstanceNorm2dInfo> InstanceNormRecord(std::uint16_t channels,
                                                                       const std::vector<float>& scale,
                                                                       const std::vector<float>& shift, float eps) {
  auto r = std::make_shared<runtime::InstanceNorm2dInfo>();
  r->num_features = channels;
  r->eps = eps;
  r->if_affine = !scale.empty();
  r->scale = runtime::EncodeWeights(scale);
  r->shift = runtime::EncodeWeights(shift);
  return r;
}

inline std::shared_ptr<runtime::Upsample2dInfo> UpsampleRecord(float sy, float sx, bool bilinear, bool align) {
  auto r = std::make_shared<runtime::Upsample2dInfo>();
  r->scale_factor_y = sy;
  r->scale_factor_x = sx;
  r->unsample_type = bilinear ? 1 : 0;
  r->align_corner = align;
  return r;
}

inline std::shared_ptr<runtime::SoftmaxInfo> SoftmaxRecord(std::uint16_t dim) {
  auto r = std::make_shared<runtime::SoftmaxInfo>();
  r->dim = dim;
  return r;
}

inline std::shared_ptr<runtime::ClipInfo> ClipRecord(float lo, float hi) {
  auto r = std::make_shared<runtime::ClipInfo>();
  r->minimum_value = half_float::half(lo);
  r->maximum_value = half_float::half(hi);
  return r;
}

inline std::shared_ptr<runtime::GridSampleInfo> GridSampleRecord(std::uint16_t mode, std::uint16_t padding,
                                                                 bool align) {
  auto r = std::make_shared<runtime::GridSampleInfo>();
  r->mode = mode;
  r->padding_mode = padding;
  r->align_corners = align;
  return r;
}

// Fixtures of tests/reference/make_resampling_reference.py.
inline std::vector<RefCase> ResamplingReference(const std::string& operation) {
  return LoadReference("resampling/" + operation);
}

// |got - want| <= tolerance * max(1, |want|) for every element.
inline ::testing::AssertionResult Near(const std::vector<float>& got, const std::vector<float>& want, float tolerance) {
  if (got.size() != want.size()) return ::testing::AssertionFailure() << got.size() << " values, want " << want.size();
  for (size_t i = 0; i < got.size(); ++i) {
    const float bound = tolerance * std::max(1.0f, std::fabs(want[i]));
    if (!(std::fabs(got[i] - want[i]) <= bound) && !(std::isnan(got[i]) && std::isnan(want[i]))) {
      return ::testing::AssertionFailure() << "element " << i << ": got " << got[i] << ", want " << want[i];
    }
  }
  return ::testing::AssertionSuccess();
}

// The kernel's first output on `inputs`, or an empty vector when it refuses.
inline std::vector<float> Output(const std::shared_ptr<runtime::IKernel>& k,
                                 const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                 const std::shared_ptr<runtime::Context>& ctx, std::vector<unsigned>* dims = nullptr) {
  auto out = RunKernel(k, inputs, ctx);
  if (!out) return {};
  if (dims) *dims = out->shape.dims;
  return Values(out);
}

// The message of the refusal that `fn` logs.
template <typename Fn>
std::string LoggedRefusal(Fn fn) {
  LogCapture log(utility::kLogError);
  fn();
  return log.lines.empty() ? std::string() : log.lines.back().second;
}

// ---------------------------------------------------------------------------
// Family bodies. F names the family's register width kLanes and its routines:
// kAffine (lanes 1), kAffineBlocked (lanes kLanes), kMeanVar, kUpsample (lanes
// 1), kUpsampleBlocked (lanes kLanes), kSoftmax, kClip.

// The affine map equals the portable one bit for bit over every plane tail and
// on blocked planes; NaN, infinities and signed zeros included.
template <typename F>
void ExpectAffineFormsEqualPortable() {
  const unsigned L = F::kLanes;
  for (std::size_t plane = 1; plane <= 4 * L + L + 3; ++plane) {
    for (std::uint32_t blocks : {1u, 3u}) {
      const std::vector<float> x = TestValues(blocks * plane * L, -4.0f, 4.0f, unsigned(plane * 7 + blocks), 11);
      const std::vector<float> a = TestValues(blocks * L, -2.0f, 2.0f, unsigned(plane + 1));
      const std::vector<float> b = TestValues(blocks * L, -1.0f, 1.0f, unsigned(plane + 2));
      std::vector<float> want(blocks * plane), got(blocks * plane, -7.0f);
      kernel::functional::channel_affine_f32(x.data(), blocks, plane, 1, a.data(), b.data(), want.data());
      F::kAffine(x.data(), blocks, plane, 1, a.data(), b.data(), got.data());
      EXPECT_TRUE(SameBits(got, want, true)) << "plane " << plane << " blocks " << blocks;
      std::vector<float> bwant(blocks * plane * L), bgot(blocks * plane * L, -7.0f);
      kernel::functional::channel_affine_f32(x.data(), blocks, plane, L, a.data(), b.data(), bwant.data());
      F::kAffineBlocked(x.data(), blocks, plane, L, a.data(), b.data(), bgot.data());
      EXPECT_TRUE(SameBits(bgot, bwant, true)) << "blocked plane " << plane << " blocks " << blocks;
    }
  }
}

// The vector statistics differ from the portable ones only in the order of
// the double sums: the mean by at most one float step, and so the variance by
// a step, or a few where a large offset makes the mean's step count.
template <typename F>
void ExpectMeanVarNearPortable() {
  for (std::size_t n = 1; n <= 3 * F::kLanes + 3; ++n) {
    for (float offset : {0.0f, 1000.0f}) {
      std::vector<float> x = TestValues(n, -3.0f, 3.0f, unsigned(n * 3 + 1));
      for (float& v : x) v += offset;
      float m0, m1, v0, v1;
      kernel::functional::mean_var_f32(x.data(), n, &m0, &v0);
      F::kMeanVar(x.data(), n, &m1, &v1);
      EXPECT_LE(UlpDistance(m0, m1), 1) << n;
      EXPECT_LE(UlpDistance(v0, v1), offset > 0 ? 64 : 1) << n;  // a mean one step off moves every square
    }
  }
}

inline kernel::functional::Upsample2DPlan Plan(unsigned h, unsigned w, float sy, float sx, bool bilinear, bool align) {
  kernel::functional::Upsample2DPlan plan;
  EXPECT_TRUE(kernel::functional::MakeUpsample2DPlan(h, w, sy, sx, bilinear, align, &plan));
  return plan;
}

// The vector upsampling forms give the portable bits for nearest (with the 2x
// column path) and both bilinear conventions, over output widths that leave
// every tail, on planes and on blocked planes.
template <typename F>
void ExpectUpsampleFormsEqualPortable() {
  const unsigned L = F::kLanes;
  struct Scale {
    float y, x;
  };
  for (const Scale s : {Scale{2.0f, 2.0f}, Scale{1.5f, 2.5f}, Scale{0.5f, 0.75f}, Scale{3.0f, 1.0f}, Scale{1.3f, 0.6f}}) {
    for (unsigned w = 1; w <= 2 * L + 3; ++w) {
      for (int mode = 0; mode < 3; ++mode) {
        const unsigned h = 3 + w % 3, planes = 2;
        if (kernel::functional::UpsampleExtent(h, s.y) == 0 || kernel::functional::UpsampleExtent(w, s.x) == 0) continue;
        const auto plan = Plan(h, w, s.y, s.x, mode > 0, mode == 2);
        const std::vector<float> x = TestValues(planes * h * w * L, -5.0f, 5.0f, w * 13 + mode, 17);
        const std::size_t out = std::size_t(planes) * plan.out_h * plan.out_w;
        std::vector<float> want(out), got(out, -7.0f);
        kernel::functional::upsample2d_f32(x.data(), planes, 1, plan, want.data());
        F::kUpsample(x.data(), planes, 1, plan, got.data());
        EXPECT_TRUE(SameBits(got, want, true)) << "planes: w " << w << " mode " << mode << " scale " << s.x;
        std::vector<float> bwant(out * L), bgot(out * L, -7.0f);
        kernel::functional::upsample2d_f32(x.data(), planes, L, plan, bwant.data());
        F::kUpsampleBlocked(x.data(), planes, L, plan, bgot.data());
        EXPECT_TRUE(SameBits(bgot, bwant, true)) << "blocked: w " << w << " mode " << mode << " scale " << s.x;
      }
    }
  }
}

// The vector softmax is within 1e-6 (relative) of the portable one along the
// last dim and across inner columns, for every tail of either; a row of huge
// values stays finite, and NaN spreads over its line.
template <typename F>
void ExpectSoftmaxNearPortable() {
  const unsigned L = F::kLanes;
  for (std::size_t dim = 1; dim <= 3 * L + 2; ++dim) {
    for (std::size_t inner : {std::size_t(1), std::size_t(2), std::size_t(L), std::size_t(L + 3)}) {
      const std::size_t outer = 2, n = outer * dim * inner;
      std::vector<float> x = TestValues(n, -20.0f, 20.0f, unsigned(dim * 31 + inner));
      if (dim > 2) x[1] = 80.0f;  // a large value must not overflow
      std::vector<float> want(n), got(n);
      kernel::functional::softmax_f32(x.data(), outer, dim, inner, want.data());
      F::kSoftmax(x.data(), outer, dim, inner, got.data());
      for (std::size_t i = 0; i < n; ++i) {
        EXPECT_NEAR(got[i], want[i], 1e-6f * want[i] + 1e-37f) << "dim " << dim << " inner " << inner << " at " << i;
      }
    }
  }
  std::vector<float> x = {1.0f, NAN, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f, 8.0f, 9.0f, 10.0f};
  std::vector<float> y(x.size());
  F::kSoftmax(x.data(), 1, x.size(), 1, y.data());
  for (float v : y) EXPECT_TRUE(std::isnan(v));
}

// The polynomial exponential of the vector softmax against std::exp on the
// range softmax feeds it (x - max <= 0).
template <typename F>
void ExpectSoftmaxExponentialAccurate() {
  // softmax([x, 0]) = [e^x / (1 + e^x), 1 / (1 + e^x)]: read e^x back as y0 / y1.
  for (float x = -87.0f; x <= 0.0f; x += 0.37f) {
    float in[2] = {x, 0.0f}, out[2];
    F::kSoftmax(in, 1, 2, 1, out);
    const double want = std::exp(static_cast<double>(x));
    EXPECT_NEAR(out[0] / static_cast<double>(out[1]), want, 4e-7 * want) << x;
  }
}

// Clip equals the portable form bit for bit over every step and tail.
template <typename F>
void ExpectClipEqualsPortable() {
  const unsigned L = F::kLanes;
  for (std::uint32_t n = 0; n <= 4 * L + L + 3; ++n) {
    const std::vector<float> x = TestValues(n, -8.0f, 8.0f, n + 5, 3);
    for (const auto& [lo, hi] : {std::pair<float, float>{0.0f, 6.0f}, {-1.5f, 2.25f}, {-0.0f, 0.0f},
                                 {-std::numeric_limits<float>::infinity(), 0.5f}}) {
      std::vector<float> want(n), got(n, -7.0f);
      kernel::functional::clip_f32(x.data(), n, lo, hi, want.data());
      F::kClip(x.data(), n, lo, hi, got.data());
      EXPECT_TRUE(SameBits(got, want)) << n << " [" << lo << ", " << hi << "]";
    }
  }
}

// Kernel K, configured by `record`, on x as a [c, h, w] CHW tensor, or on
// the blocked copy of x when lanes > 1; the CHW values of its output.
template <typename K>
std::vector<float> RunChw(const std::shared_ptr<runtime::LayerInfo>& record, const std::vector<float>& x, unsigned c,
                          unsigned h, unsigned w, unsigned lanes, std::vector<unsigned>* dims = nullptr) {
  auto ctx = ElementContext();
  auto k = Configured<K>(record, ctx);
  const auto layout = lanes == 4 ? runtime::TensorShape::C4HW4 : runtime::TensorShape::C8HW8;
  auto in = lanes == 1 ? MakeTensor(ctx, {c, h, w}, x)
                       : MakeTensor(ctx, {(c + lanes - 1) / lanes, h, w, lanes}, ToBlocked(x, c, h, w, lanes), layout);
  std::vector<unsigned> out_dims;
  std::vector<float> y = Output(k, {in}, ctx, &out_dims);
  if (dims) *dims = out_dims;
  if (lanes == 1 || y.empty()) return y;
  const unsigned oh = out_dims[1], ow = out_dims[2];
  const std::vector<float> chw = FromBlocked(y, c, oh, ow, lanes);
  // The padding lanes stay zero.
  const std::vector<float> again = ToBlocked(chw, c, oh, ow, lanes);
  EXPECT_TRUE(SameBits(y, again, true)) << "padding lanes of " << k->GetName();
  return chw;
}

// ---------------------------------------------------------------------------
// Kernel-level bodies shared by the SSE and AVX files. F also names the
// family's kernel classes: BatchNormChw, BatchNormBlocked, InstanceNorm,
// UpsampleChw, UpsampleBlocked, Softmax, Clip.

// Batch norm, upsampling and clip kernels of the family give the portable
// kernels' bits on CHW and, blocked, on channel counts that leave padding lanes.
template <typename F>
void ExpectExactKernelsEqualPortable() {
  const unsigned L = F::kLanes;
  for (unsigned c : {1u, L - 1, L + 2}) {
    const unsigned h = 3, w = 2 * L + 3;
    const std::vector<float> x = TestValues(size_t(c) * h * w, -4.0f, 4.0f, c, 9);
    std::vector<float> mean(c), var(c), scale(c), shift(c);
    for (unsigned k = 0; k < c; ++k) mean[k] = 0.1f * k, var[k] = 0.5f + k, scale[k] = 1.5f - k, shift[k] = 0.25f * k;
    auto bn = BatchNormRecord<runtime::BatchNorm2dInfo>(mean, var, scale, shift, 1e-5f);
    const std::vector<float> want = RunChw<kernel::BatchNorm2D_Fallback_CHW_Float_M1>(bn, x, c, h, w, 1);
    EXPECT_TRUE(SameBits(RunChw<typename F::BatchNormChw>(bn, x, c, h, w, 1), want, true)) << c;
    EXPECT_TRUE(SameBits(RunChw<typename F::BatchNormBlocked>(bn, x, c, h, w, L), want, true)) << c;
    for (int mode = 0; mode < 3; ++mode) {
      auto up = UpsampleRecord(mode == 0 ? 2.0f : 1.75f, 2.0f + 0.5f * mode, mode > 0, mode == 2);
      const std::vector<float> uwant = RunChw<kernel::Upsampling2D_Fallback_CHW_Float_M1>(up, x, c, h, w, 1);
      EXPECT_TRUE(SameBits(RunChw<typename F::UpsampleChw>(up, x, c, h, w, 1), uwant, true)) << c << " " << mode;
      EXPECT_TRUE(SameBits(RunChw<typename F::UpsampleBlocked>(up, x, c, h, w, L), uwant, true)) << c << " " << mode;
    }
    auto clip = ClipRecord(-1.0f, 2.5f);
    const std::vector<float> cwant = RunChw<kernel::Clip_Fallback_Float_M1>(clip, x, c, h, w, 1);
    EXPECT_TRUE(SameBits(RunChw<typename F::Clip>(clip, x, c, h, w, 1), cwant)) << c;
    EXPECT_TRUE(SameBits(RunChw<typename F::Clip>(clip, x, c, h, w, L), cwant)) << c;
  }
}

// Instance norm and softmax kernels of the family against the PyTorch
// fixtures, with the portable kernels' tolerances.
template <typename F>
void ExpectStatisticalKernelsMatchPyTorch() {
  auto ctx = ElementContext();
  for (const auto& c : ResamplingReference("instance_norm")) {
    const auto p = ParseParams(c);
    const bool affine = p["affine"].GetBool();
    const auto& in = c.inputs;
    auto r = InstanceNormRecord(static_cast<std::uint16_t>(in[0].shape[0]), affine ? in[1].data : std::vector<float>(),
                                affine ? in[2].data : std::vector<float>(), p["eps"].GetFloat());
    const std::vector<float> y =
        RunChw<typename F::InstanceNorm>(r, in[0].data, in[0].shape[0], in[0].shape[1], in[0].shape[2], 1);
    EXPECT_TRUE(Near(y, c.outputs[0].data, 2e-6f)) << c.name;
  }
  const auto cases = ResamplingReference("softmax");
  ASSERT_FALSE(cases.empty());
  for (const auto& c : cases) {
    auto k = Configured<typename F::Softmax>(SoftmaxRecord(static_cast<std::uint16_t>(ParseParams(c)["dim"].GetUint())), ctx);
    const std::vector<float> y = Output(k, {MakeTensor(ctx, c.inputs[0].shape, c.inputs[0].data)}, ctx);
    ASSERT_EQ(y.size(), c.outputs[0].data.size()) << c.name;
    for (size_t i = 0; i < y.size(); ++i) {
      EXPECT_NEAR(y[i], c.outputs[0].data[i], 2e-6f * c.outputs[0].data[i] + 1e-30f) << c.name << " " << i;
    }
  }
}

}  // namespace testing
}  // namespace tarn
