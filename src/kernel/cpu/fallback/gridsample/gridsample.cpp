#include "kernel/cpu/fallback/gridsample/gridsample.h"

#include <algorithm>
#include <cmath>

#include "kernel/cpu/avx/gridsample/gridsample.h"
#include "kernel/cpu/fallback/resampling_common/resampling_common.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

namespace functional {

namespace {

// Source positions along one axis of `size` pixels, in the steps of
// PyTorch's vectorised CPU kernel (so the rounding agrees with it).
class Axis {
 public:
  Axis(std::uint32_t size, bool align_corners, GridPadding padding)
      : max_(static_cast<float>(size) - 1.0f),
        align_(align_corners),
        padding_(padding),
        scale_(align_corners ? (static_cast<float>(size) - 1.0f) / 2.0f : static_cast<float>(size) / 2.0f),
        twice_span_(align_corners ? (static_cast<float>(size) - 1.0f) * 2.0f : static_cast<float>(size) * 2.0f),
        empty_(align_corners && size <= 1) {}

  float Position(float g) const {
    float x = align_ ? (g + 1.0f) * scale_ : (g + 1.0f) * scale_ - 0.5f;
    if (padding_ == GridPadding::kZeros) return x;
    if (padding_ == GridPadding::kReflection) x = Reflect(x);
    // max(x, 0) returning 0 for NaN, then min(x, size - 1).
    x = x > 0.0f ? x : 0.0f;
    return x < max_ ? x : max_;
  }

 private:
  float Reflect(float x) const {
    if (empty_) return 0.0f;
    const float low = align_ ? 0.0f : -0.5f;
    const float a = std::fabs(x - low);
    const float flips = std::trunc(a / twice_span_);
    const float extra = a - flips * twice_span_;
    const float other = twice_span_ - extra;
    if (std::isnan(extra) || std::isnan(other)) return extra + other;  // NaN on
    return (extra < other ? extra : other) + low;
  }

  float max_;
  bool align_;
  GridPadding padding_;
  float scale_, twice_span_;
  bool empty_;
};

}  // namespace

void GridSampleTaps(const GridSampleSetup& setup, const float* grid, std::uint32_t count, GridTaps* taps) {
  const Axis ax(setup.in_w, setup.align_corners, setup.padding), ay(setup.in_h, setup.align_corners, setup.padding);
  const bool in_bound = setup.padding != GridPadding::kZeros;
  const float w = static_cast<float>(setup.in_w), h = static_cast<float>(setup.in_h);
  const std::int64_t stride = setup.in_w;
  for (std::uint32_t i = 0; i < count; ++i) {
    const float x = ax.Position(grid[2 * i]), y = ay.Position(grid[2 * i + 1]);
    if (!setup.bilinear) {
      const float xn = std::nearbyint(x), yn = std::nearbyint(y);
      const bool inside = in_bound || (xn > -1.0f && xn < w && yn > -1.0f && yn < h);
      taps->offset[0][i] = inside ? static_cast<std::int32_t>(static_cast<std::int64_t>(yn) * stride +
                                                               static_cast<std::int64_t>(xn))
                                  : -1;
      taps->weight[0][i] = 1.0f;
      continue;
    }
    if (!in_bound && !(std::isfinite(x) && std::isfinite(y))) {
      // Reads nothing: 0, where PyTorch would give NaN.
      for (int k = 0; k < 4; ++k) taps->offset[k][i] = -1, taps->weight[k][i] = 0.0f;
      continue;
    }
    const float xw = std::floor(x), yn = std::floor(y);
    const float fw = x - xw, fe = 1.0f - fw, fn = y - yn, fs = 1.0f - fn;
    taps->weight[0][i] = fs * fe;
    taps->weight[1][i] = fs * fw;
    taps->weight[2][i] = fn * fe;
    taps->weight[3][i] = fn * fw;
    // Which neighbours lie in the plane, decided on the float positions so
    // that NaN and huge positions never reach an integer conversion.
    const bool west = in_bound || (xw > -1.0f && xw < w);
    const bool east = in_bound ? xw < w - 1.0f : (xw > -2.0f && xw < w - 1.0f);
    const bool north = in_bound || (yn > -1.0f && yn < h);
    const bool south = in_bound ? yn < h - 1.0f : (yn > -2.0f && yn < h - 1.0f);
    const std::int64_t ix = west || east ? static_cast<std::int64_t>(xw) : 0;
    const std::int64_t iy = north || south ? static_cast<std::int64_t>(yn) : 0;
    const bool corner[4] = {north && west, north && east, south && west, south && east};
    const std::int64_t off[4] = {iy * stride + ix, iy * stride + ix + 1, (iy + 1) * stride + ix,
                                 (iy + 1) * stride + ix + 1};
    for (int k = 0; k < 4; ++k) taps->offset[k][i] = corner[k] ? static_cast<std::int32_t>(off[k]) : -1;
  }
}

void grid_sample_f32(const float* src, std::uint32_t planes, std::uint32_t lanes, const GridSampleSetup& setup,
                     const float* grid, std::size_t pixels, float* dst) {
  const std::size_t plane = std::size_t(setup.in_h) * setup.in_w * lanes;
  GridTaps taps;
  for (std::size_t start = 0; start < pixels; start += kGridStrip) {
    const std::uint32_t count = static_cast<std::uint32_t>(std::min<std::size_t>(kGridStrip, pixels - start));
    GridSampleTaps(setup, grid + 2 * start, count, &taps);
    for (std::uint32_t c = 0; c < planes; ++c) {
      const float* p = src + c * plane;
      float* out = dst + (c * pixels + start) * lanes;
      for (std::uint32_t i = 0; i < count; ++i) {
        for (std::uint32_t j = 0; j < lanes; ++j, ++out) {
          auto v = [&](int k) { return taps.offset[k][i] >= 0 ? p[std::size_t(taps.offset[k][i]) * lanes + j] : 0.0f; };
          if (!setup.bilinear) {
            *out = v(0);
            continue;
          }
          *out = v(0) * taps.weight[0][i] + v(1) * taps.weight[1][i] + v(2) * taps.weight[2][i] +
                 v(3) * taps.weight[3][i];
        }
      }
    }
  }
}

}  // namespace functional

namespace {

const char* RecordProblem(const std::shared_ptr<runtime::LayerInfo>& layer) {
  auto r = std::dynamic_pointer_cast<runtime::GridSampleInfo>(layer);
  if (!r) return "the record is not a GridSampleInfo";
  if (r->mode > 1) return "\"mode\" is neither 0 (bilinear) nor 1 (nearest)";
  if (r->padding_mode > 2) return "\"padding_mode\" is not 0 (zeros), 1 (border) or 2 (reflection)";
  return nullptr;
}

}  // namespace

std::int32_t GridSampleKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                std::shared_ptr<runtime::InferenceParam>) const {
  return RecordProblem(layer) ? kInvalidParam : kValid;
}

bool GridSampleKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam>,
                                  std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (const char* p = RecordProblem(layer)) return RefuseRecord(*this, "%s", p);
  const auto& r = static_cast<const runtime::GridSampleInfo&>(*layer);
  setup_.bilinear = r.mode == 0;
  setup_.padding = static_cast<functional::GridPadding>(r.padding_mode);
  setup_.align_corners = r.align_corners;
  configured_ = true;
  return true;
}

GridSampleKernelBase::GridSampleKernelBase(runtime::TensorShape::Layout layout, functional::GridSampleFn fn)
    : ShapedKernelBase(2), layout_(layout), lanes_(LayoutLanes(layout)), fn_(fn) {}

const char* GridSampleKernelBase::Problem(const std::vector<runtime::TensorShape>& inputs,
                                          runtime::TensorShape* out) const {
  const runtime::TensorShape& in = inputs[0];
  const runtime::TensorShape& grid = inputs[1];
  if (lanes_ > 1) {
    if (const char* p = BlockedShapeProblem(in, layout_)) return p;
  } else if (!IsPlainLayout(in.layout) || in.dims.size() != 3) {
    return "the input is not a CHW tensor [C, H, W]";
  }
  if (LayoutLanes(grid.layout) > 1 || grid.dims.size() != 3 || grid.dims[2] != 2) {
    return "the grid is not a plain tensor [H_out, W_out, 2]";
  }
  if (!FitsPassFloats({in.dims[0], grid.dims[0], grid.dims[1], lanes_})) {
    return "the output would hold more than 2^31 - 1 floats";
  }
  std::vector<unsigned> dims = {in.dims[0], grid.dims[0], grid.dims[1]};
  if (lanes_ > 1) dims.push_back(lanes_);
  *out = runtime::TensorShape(dims, runtime::TensorShape::FLOAT32, lanes_ > 1 ? layout_ : runtime::TensorShape::CHW,
                              runtime::TensorShape::MainMemory);
  return nullptr;
}

bool GridSampleKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                   std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                   std::shared_ptr<runtime::Context> context) const {
  auto out = Prepare(inputs, context);
  if (!out) return false;
  const auto& d = inputs[0]->shape.dims;
  functional::GridSampleSetup setup = setup_;
  setup.in_h = d[1];
  setup.in_w = d[2];
  const std::size_t pixels = std::size_t(inputs[1]->shape.dims[0]) * inputs[1]->shape.dims[1];
  fn_(static_cast<const float*>(inputs[0]->Data()), d[0], lanes_, setup, static_cast<const float*>(inputs[1]->Data()),
      pixels, out->DataAs<float>());
  outputs.assign(1, out);
  return true;
}

// Baseline-compiled destructors of every member, whatever its family.
GridSample_Fallback_CHW_Float_M1::~GridSample_Fallback_CHW_Float_M1() = default;
GridSample_AVX_C8HW8_Float_M1::~GridSample_AVX_C8HW8_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
