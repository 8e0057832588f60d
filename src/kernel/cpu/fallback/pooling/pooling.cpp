#include "kernel/cpu/fallback/pooling/pooling.h"

#include <cmath>
#include <cstdint>
#include <string>
#include <type_traits>

#include "kernel/cpu/avx/pooling/pooling.h"
#include "kernel/cpu/sse/pooling/pooling.h"
#include "tarn/kernel/pooling.h"
#include "tarn/kernel/tensor_helpers.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

namespace {

std::shared_ptr<runtime::TensorCPU> AsCPU(const std::shared_ptr<runtime::Tensor>& t) {
  return std::dynamic_pointer_cast<runtime::TensorCPU>(t);
}

// One float main-memory CHW tensor of rank 3 held in main memory by the CPU device.
bool IsPlainCHW(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) {
  return CheckFloatTensors(inputs, 1) == kValid && inputs[0]->shape.layout == runtime::TensorShape::CHW &&
         inputs[0]->shape.dims.size() == 3 && AsCPU(inputs[0]) != nullptr;
}

// a * b * c fits the 32-bit element counts of the kernels.
bool FitsU32(std::uint64_t a, std::uint64_t b, std::uint64_t c) {
  std::uint64_t ab, abc;
  return !__builtin_mul_overflow(a, b, &ab) && !__builtin_mul_overflow(ab, c, &abc) && abc <= UINT32_MAX;
}

runtime::TensorShape WithDims(const runtime::TensorShape& in, std::vector<unsigned> dims) {
  runtime::TensorShape out = in;
  out.dims = std::move(dims);
  return out;
}

}  // namespace

bool MaxPool2dOutputSize(std::uint32_t in, std::uint32_t pads, std::uint32_t kernel, std::uint32_t stride,
                         std::uint32_t dilation, bool ceil_mode, std::uint32_t* out) {
  if (kernel == 0 || stride == 0 || dilation == 0) return false;
  const std::int64_t num = static_cast<std::int64_t>(in) + pads - 1 - static_cast<std::int64_t>(kernel - 1) * dilation;
  if (num < 0) return false;
  const float q = static_cast<float>(num) / static_cast<float>(stride);
  const float r = ceil_mode ? std::ceil(q) : std::trunc(q);
  if (!(r < 4294967295.0f)) return false;
  *out = static_cast<std::uint32_t>(r) + 1;
  return true;
}

bool AvgPool2dOutputSize(std::uint32_t in, std::uint32_t pads, std::uint32_t kernel, std::uint32_t stride,
                         std::uint32_t* out) {
  if (kernel == 0 || stride == 0) return false;
  const std::uint64_t padded = static_cast<std::uint64_t>(in) + pads;
  if (padded < kernel) return false;
  *out = static_cast<std::uint32_t>((padded - kernel) / stride + 1);
  return true;
}

std::uint32_t PoolingPlaneFloats(const runtime::TensorShape& shape) {
  if (shape.data_type != runtime::TensorShape::FLOAT32) {
    TARN_ASSERT(false && "Invalid type");
  }
  const auto& d = shape.dims;
  std::uint32_t n = 1;
  for (size_t i = 1; i < d.size(); ++i) n *= d[i];
  return n;
}

// ---------------------------------------------------------------------------
// Max and average: the window skeleton.

namespace {

// Non-zero kernel and stride and no negative padding: the window fields that
// every pooling record has.
template <typename Record>
bool WindowRecordValid(const Record& r) {
  if (r.kernel_x == 0 || r.kernel_y == 0 || r.stride_x == 0 || r.stride_y == 0) return false;
  return r.padding_l >= 0 && r.padding_t >= 0 && r.padding_r >= 0 && r.padding_b >= 0;
}

template <typename Record>
void TakeWindow(const Record& r, WindowPooling2DBase* k) {
  k->kernel_x = r.kernel_x;
  k->kernel_y = r.kernel_y;
  k->padding_l = static_cast<std::uint16_t>(r.padding_l);
  k->padding_t = static_cast<std::uint16_t>(r.padding_t);
  k->padding_r = static_cast<std::uint16_t>(r.padding_r);
  k->padding_b = static_cast<std::uint16_t>(r.padding_b);
  k->stride_x = r.stride_x;
  k->stride_y = r.stride_y;
  k->ceil_mode = r.ceil_mode;
}

}  // namespace

std::vector<runtime::TensorShape> WindowPooling2DBase::GetOutputShapes(
    const std::vector<runtime::TensorShape>& inputs) const {
  if (inputs.empty() || inputs[0].dims.size() != 3) return {};
  const auto& d = inputs[0].dims;
  std::uint32_t oh, ow;
  if (!OutputExtent(false, d[1], &oh) || !OutputExtent(true, d[2], &ow)) return {};
  return {WithDims(inputs[0], {d[0], oh, ow})};
}

std::int32_t WindowPooling2DBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (!IsPlainCHW(inputs)) return kInvalidTensor;
  const auto shapes = GetOutputShapes({inputs[0]->shape});
  if (shapes.empty()) return kInvalidTensor;
  const auto& d = inputs[0]->shape.dims;
  const auto& o = shapes[0].dims;
  if (!FitsU32(d[0], std::uint64_t(d[1]) + padding_t + padding_b, std::uint64_t(d[2]) + padding_l + padding_r) ||
      !FitsU32(o[0], o[1], o[2])) {
    return kInvalidTensor;
  }
  return kValid;
}

bool WindowPooling2DBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                  std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                  std::shared_ptr<runtime::Context> context) const {
  if (inputs.empty() || !context || !context->cpu) return false;
  const auto shapes = GetOutputShapes({inputs[0]->shape});
  auto in = AsCPU(inputs[0]);
  if (shapes.empty() || !in) return false;
  auto padded =
      Padding_HW_MainMemory_CHW_Float_Fallback_M1(in, padding_l, padding_r, padding_t, padding_b, fill_, context->cpu);
  auto out = context->cpu->CreateTensor(shapes[0], nullptr);
  const std::uint32_t c = shapes[0].dims[0], oh = shapes[0].dims[1], ow = shapes[0].dims[2];
  const std::uint32_t hp = padded->shape.dims[1], wp = padded->shape.dims[2];
  for (std::uint32_t ch = 0; ch < c; ++ch) {
    PoolPlane(padded->DataAs<float>() + static_cast<size_t>(ch) * hp * wp, hp, wp, oh, ow,
              out->DataAs<float>() + static_cast<size_t>(ch) * oh * ow);
  }
  outputs.assign(1, out);
  return true;
}

// ---------------------------------------------------------------------------
// Max.

Pooling2D_Max_Fallback_Float_M1::Pooling2D_Max_Fallback_Float_M1() : WindowPooling2DBase(kMaxPoolingFill) {}

std::int32_t Pooling2D_Max_Fallback_Float_M1::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                           std::shared_ptr<runtime::InferenceParam>) const {
  auto r = std::dynamic_pointer_cast<runtime::MaxPool2dInfo>(layer);
  return r && WindowRecordValid(*r) && r->dilation_x != 0 && r->dilation_y != 0 ? kValid : kInvalidParam;
}

bool Pooling2D_Max_Fallback_Float_M1::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                             std::shared_ptr<runtime::InferenceParam> param,
                                             std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (IsValidParam(layer, param) != kValid) return false;
  auto r = std::static_pointer_cast<runtime::MaxPool2dInfo>(layer);
  TakeWindow(*r, this);
  dilation_x = r->dilation_x;
  dilation_y = r->dilation_y;
  configured_ = true;
  return true;
}

bool Pooling2D_Max_Fallback_Float_M1::OutputExtent(bool x, std::uint32_t in, std::uint32_t* out) const {
  return x ? MaxPool2dOutputSize(in, padding_l + padding_r, kernel_x, stride_x, dilation_x, ceil_mode, out)
           : MaxPool2dOutputSize(in, padding_t + padding_b, kernel_y, stride_y, dilation_y, ceil_mode, out);
}

void Pooling2D_Max_Fallback_Float_M1::PoolPlane(const float* plane, std::uint32_t hp, std::uint32_t wp,
                                                std::uint32_t oh, std::uint32_t ow, float* o) const {
  for (std::uint32_t oy = 0; oy < oh; ++oy) {
    for (std::uint32_t ox = 0; ox < ow; ++ox) {
      float m = kMaxPoolingFill;
      for (std::uint32_t ky = 0; ky < kernel_y; ++ky) {
        std::uint64_t r = std::uint64_t(stride_y) * oy + std::uint64_t(ky) * dilation_y;
        if (r >= hp) r = hp - 1;
        const float* row = plane + r * wp;
        for (std::uint32_t kx = 0; kx < kernel_x; ++kx) {
          std::uint64_t q = std::uint64_t(stride_x) * ox + std::uint64_t(kx) * dilation_x;
          if (q >= wp) q = wp - 1;
          const float v = row[q];
          // The scalar maximum instruction with the running maximum second:
          // a NaN input is skipped.
          m = v > m ? v : m;
        }
      }
      *o++ = m;
    }
  }
}

// ---------------------------------------------------------------------------
// Average.

std::int32_t Pooling2D_Avg_Fallback_Float_M1::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                           std::shared_ptr<runtime::InferenceParam>) const {
  auto r = std::dynamic_pointer_cast<runtime::AvgPool2dInfo>(layer);
  return r && WindowRecordValid(*r) ? kValid : kInvalidParam;
}

bool Pooling2D_Avg_Fallback_Float_M1::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                             std::shared_ptr<runtime::InferenceParam> param,
                                             std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (IsValidParam(layer, param) != kValid) return false;
  auto r = std::static_pointer_cast<runtime::AvgPool2dInfo>(layer);
  TakeWindow(*r, this);
  count_include_pad = r->count_include_pad;
  configured_ = true;
  return true;
}

// ceil_mode is deliberately not consulted: the size always rounds down.
bool Pooling2D_Avg_Fallback_Float_M1::OutputExtent(bool x, std::uint32_t in, std::uint32_t* out) const {
  return x ? AvgPool2dOutputSize(in, padding_l + padding_r, kernel_x, stride_x, out)
           : AvgPool2dOutputSize(in, padding_t + padding_b, kernel_y, stride_y, out);
}

void Pooling2D_Avg_Fallback_Float_M1::PoolPlane(const float* plane, std::uint32_t hp, std::uint32_t wp,
                                                std::uint32_t oh, std::uint32_t ow, float* o) const {
  const float window = static_cast<float>(std::uint32_t(kernel_x) * kernel_y);
  for (std::uint32_t oy = 0; oy < oh; ++oy) {
    for (std::uint32_t ox = 0; ox < ow; ++ox) {
      float divisor = window;
      float sum = 0.0f;
      for (std::uint32_t ky = 0; ky < kernel_y; ++ky) {
        const std::uint64_t r = std::uint64_t(stride_y) * oy + ky;
        const float* row = plane + r * wp;
        const bool row_pad = r < padding_t || r >= std::uint64_t(hp) - padding_b;
        for (std::uint32_t kx = 0; kx < kernel_x; ++kx) {
          const std::uint64_t q = std::uint64_t(stride_x) * ox + kx;
          sum += row[q];
          // Border positions still add their zeros; they only leave the count.
          if (!count_include_pad && (row_pad || q < padding_l || q >= std::uint64_t(wp) - padding_r)) {
            divisor -= 1.0f;
          }
        }
      }
      *o++ = sum / divisor;
    }
  }
}

// ---------------------------------------------------------------------------
// Adaptive average.

std::int32_t AdaptivePooling2D_Avg_Fallback_CHW_Float_M1::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                                       std::shared_ptr<runtime::InferenceParam>) const {
  auto r = std::dynamic_pointer_cast<runtime::AdaptiveAvgPool2dInfo>(layer);
  if (!r || r->output_size.size() != 2 || r->output_size[0] == 0 || r->output_size[1] == 0) return kInvalidParam;
  return kValid;
}

bool AdaptivePooling2D_Avg_Fallback_CHW_Float_M1::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                                         std::shared_ptr<runtime::InferenceParam> param,
                                                         std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (IsValidParam(layer, param) != kValid) return false;
  auto r = std::static_pointer_cast<runtime::AdaptiveAvgPool2dInfo>(layer);
  output_h = r->output_size[0];
  output_w = r->output_size[1];
  configured_ = true;
  return true;
}

std::vector<runtime::TensorShape> AdaptivePooling2D_Avg_Fallback_CHW_Float_M1::GetOutputShapes(
    const std::vector<runtime::TensorShape>& inputs) const {
  if (inputs.empty() || inputs[0].dims.size() != 3) return {};
  return {WithDims(inputs[0], {inputs[0].dims[0], output_h, output_w})};
}

std::int32_t AdaptivePooling2D_Avg_Fallback_CHW_Float_M1::IsValidInput(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (!IsPlainCHW(inputs) || output_h == 0 || output_w == 0) return kInvalidTensor;
  if (!FitsU32(inputs[0]->shape.dims[0], output_h, output_w)) return kInvalidTensor;
  return kValid;
}

bool AdaptivePooling2D_Avg_Fallback_CHW_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                          std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                          std::shared_ptr<runtime::Context> context) const {
  if (inputs.empty() || !context || !context->cpu || output_h == 0 || output_w == 0) return false;
  const auto shapes = GetOutputShapes({inputs[0]->shape});
  if (shapes.empty()) return false;
  auto out = context->cpu->CreateTensor(shapes[0], nullptr);
  const std::uint32_t c = shapes[0].dims[0], h = inputs[0]->shape.dims[1], w = inputs[0]->shape.dims[2];
  const std::uint32_t plane_floats = PoolingPlaneFloats(inputs[0]->shape);
  const float sh = static_cast<float>(h) / static_cast<float>(output_h);
  const float sw = static_cast<float>(w) / static_cast<float>(output_w);
  // Window edges; the end is held at the extent in case float rounding of
  // (o + 1) * scale lands just above it.
  auto span = [](std::uint32_t o, float scale, std::uint32_t extent, std::uint32_t* begin, std::uint32_t* end) {
    const float b = std::trunc(static_cast<float>(o) * scale);
    const float e = std::ceil(static_cast<float>(o + 1) * scale);
    *end = e < static_cast<float>(extent) ? static_cast<std::uint32_t>(e) : extent;
    *begin = b < static_cast<float>(*end) ? static_cast<std::uint32_t>(b) : *end;
  };
  const float* in = static_cast<const float*>(inputs[0]->Data());
  float* o = out->DataAs<float>();
  for (std::uint32_t ch = 0; ch < c; ++ch) {
    const float* plane = in + static_cast<size_t>(ch) * plane_floats;
    for (std::uint32_t oy = 0; oy < output_h; ++oy) {
      std::uint32_t y0, y1;
      span(oy, sh, h, &y0, &y1);
      for (std::uint32_t ox = 0; ox < output_w; ++ox) {
        std::uint32_t x0, x1;
        span(ox, sw, w, &x0, &x1);
        float sum = 0.0f;
        for (std::uint32_t y = y0; y < y1; ++y) {
          for (std::uint32_t x = x0; x < x1; ++x) sum += plane[static_cast<size_t>(y) * w + x];
        }
        // Two divisions, rows then columns.
        *o++ = (sum / static_cast<float>(y1 - y0)) / static_cast<float>(x1 - x0);
      }
    }
  }
  outputs.assign(1, out);
  return true;
}

// ---------------------------------------------------------------------------
// Fixed-size skeleton.

namespace {

template <typename Record>
std::int32_t FixedWindowMatch(const std::shared_ptr<runtime::LayerInfo>& layer, std::uint16_t k, std::uint16_t s) {
  auto r = std::dynamic_pointer_cast<Record>(layer);
  if (!r) return kInvalidParam;
  return r->kernel_x == k && r->kernel_y == k && r->stride_x == s && r->stride_y == s ? kValid : kInvalidParam;
}

}  // namespace

std::int32_t FixedPooling2DBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                              std::shared_ptr<runtime::InferenceParam>) const {
  return is_max_ ? FixedWindowMatch<runtime::MaxPool2dInfo>(layer, kernel_, stride_)
                 : FixedWindowMatch<runtime::AvgPool2dInfo>(layer, kernel_, stride_);
}

namespace {

// The fixed-size kernels read no padding, dilation or ceil_mode; a record that
// sets them is still accepted (it matches by window and stride), but the
// output then differs from the layer's, so the configuration is flagged.
template <typename Record>
std::string IgnoredSettings(const Record& r) {
  std::string ignored;
  if (r.padding_l || r.padding_t || r.padding_r || r.padding_b) {
    ignored += utility::FormatString("padding (l %d, t %d, r %d, b %d)", r.padding_l, r.padding_t, r.padding_r,
                                     r.padding_b);
  }
  if (r.ceil_mode) ignored += std::string(ignored.empty() ? "" : ", ") + "ceil_mode";
  if constexpr (std::is_same<Record, runtime::MaxPool2dInfo>::value) {
    if (r.dilation_x != 1 || r.dilation_y != 1) {
      ignored += utility::FormatString("%sdilation %ux%u", ignored.empty() ? "" : ", ", r.dilation_x, r.dilation_y);
    }
  }
  return ignored;
}

}  // namespace

bool FixedPooling2DBase::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                std::shared_ptr<runtime::InferenceParam> param, std::shared_ptr<runtime::Context>) {
  configured_ = IsValidParam(layer, param) == kValid;
  if (!configured_) return false;
  const std::string ignored = is_max_ ? IgnoredSettings(static_cast<const runtime::MaxPool2dInfo&>(*layer))
                                      : IgnoredSettings(static_cast<const runtime::AvgPool2dInfo&>(*layer));
  if (!ignored.empty()) {
    utility::Log(utility::kLogWarning,
                 "%s: layer <%s> sets %s, which this fixed-size kernel ignores: its output differs from the layer's "
                 "(the general pooling kernel computes it).",
                 GetName().c_str(), layer->id.c_str(), ignored.c_str());
  }
  return true;
}

std::vector<runtime::TensorShape> FixedPooling2DBase::GetOutputShapes(
    const std::vector<runtime::TensorShape>& inputs) const {
  const size_t rank = layout_ == runtime::TensorShape::CHW ? 3 : 4;
  if (inputs.empty() || inputs[0].dims.size() != rank) return {};
  std::uint32_t oh, ow;
  if (!AvgPool2dOutputSize(inputs[0].dims[1], 0, kernel_, stride_, &oh) ||
      !AvgPool2dOutputSize(inputs[0].dims[2], 0, kernel_, stride_, &ow)) {
    return {};
  }
  std::vector<unsigned> dims = inputs[0].dims;
  dims[1] = oh;
  dims[2] = ow;
  return {WithDims(inputs[0], dims)};
}

std::int32_t FixedPooling2DBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (CheckFloatTensors(inputs, 1) != kValid || !AsCPU(inputs[0])) return kInvalidTensor;
  const auto& s = inputs[0]->shape;
  if (s.layout != layout_) return kInvalidTensor;
  if (layout_ == runtime::TensorShape::C4HW4 && (s.dims.size() != 4 || s.dims[3] != 4)) return kInvalidTensor;
  if (layout_ == runtime::TensorShape::C8HW8 && (s.dims.size() != 4 || s.dims[3] != 8)) return kInvalidTensor;
  if (GetOutputShapes({s}).empty() || s.ElementCount() > UINT32_MAX) return kInvalidTensor;
  return kValid;
}

bool FixedPooling2DBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                 std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                 std::shared_ptr<runtime::Context> context) const {
  if (inputs.empty() || !context || !context->cpu) return false;
  auto in = AsCPU(inputs[0]);
  const auto shapes = GetOutputShapes({inputs[0]->shape});
  if (!in || shapes.empty()) return false;
  auto out = context->cpu->CreateTensor(shapes[0], nullptr);
  fn_(in, out);
  outputs.assign(1, out);
  return true;
}

FixedPoolingGeometry CheckFixedPooling(const functional::TensorCPUPtr& input, const functional::TensorCPUPtr& output,
                                       unsigned lanes, unsigned k, unsigned s) {
  const std::uint32_t in_plane = PoolingPlaneFloats(input->shape);
  const std::uint32_t out_plane = PoolingPlaneFloats(output->shape);
  const auto& id = input->shape.dims;
  const auto& od = output->shape.dims;
  const size_t rank = lanes == 1 ? 3 : 4;
  TARN_NATIVE_ASSERT(id.size() == rank && od.size() == rank && id[0] == od[0]);
  TARN_NATIVE_ASSERT(lanes == 1 || (id[3] == lanes && od[3] == lanes));
  TARN_NATIVE_ASSERT(id[1] >= k && id[2] >= k && (id[1] - k) / s + 1 == od[1] && (id[2] - k) / s + 1 == od[2]);
  return {id[0], in_plane, out_plane, id[2], od[1], od[2]};
}

// Baseline-compiled destructors (and so vtables and names) of every kernel
// of this operation, whatever its family.
Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1::~Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1() = default;
Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1::~Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1() = default;
Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1::~Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1() = default;
Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1::~Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1() = default;
Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1::~Pooling2D_Avg_K7x7_S1x1_SSE_CHW_Float_M1() = default;
Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1::~Pooling2D_Avg_K4x4_S4x4_SSE_CHW_Float_M1() = default;
Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1::~Pooling2D_Avg_K4x4_S4x4_SSE_C4HW4_Float_M1() = default;
Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1::~Pooling2D_Avg_K2x2_S2x2_AVX_C8HW8_Float_M1() = default;
Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1::~Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1() = default;
Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1::~Pooling2D_Avg_K4x4_S4x4_AVX_C8HW8_Float_M1() = default;
Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1::~Pooling2D_Avg_K4x4_S1x1_AVX_C8HW8_Float_M1() = default;
Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1::~Pooling2D_Avg_K7x7_S1x1_AVX_C8HW8_Float_M1() = default;
Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1::~Pooling2D_Avg_K8x8_S1x1_AVX_C8HW8_Float_M1() = default;
Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1::~Pooling2D_Max_K2x2_S2x2_AVX_C8HW8_Float_M1() = default;
Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1::~Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
