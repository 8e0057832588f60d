#include "kernel/cpu/fallback/layout_transform/layout_transform.h"

#include <cstring>

#include "kernel/cpu/avx/layout_transform/layout_transform.h"
#include "kernel/cpu/sse/layout_transform/layout_transform.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

namespace {

unsigned Lanes(TensorShape::Layout layout) {
  return layout == TensorShape::C4HW4 ? 4 : layout == TensorShape::C8HW8 ? 8 : 1;
}

// Channels, height and width of a tensor in `layout`; false for a shape that
// is not one of that layout.
bool ChannelsHW(const TensorShape& s, TensorShape::Layout layout, std::uint64_t* c, std::uint32_t* h,
                std::uint32_t* w) {
  const unsigned lanes = Lanes(layout);
  if (lanes == 1) {
    if (s.dims.size() != 3) return false;
    *c = s.dims[0];
  } else {
    if (s.dims.size() != 4 || s.dims[3] != lanes) return false;
    *c = std::uint64_t(s.dims[0]) * lanes;
  }
  *h = s.dims[1];
  *w = s.dims[2];
  return true;
}

}  // namespace

std::uint32_t LayoutPlaneFloats(const TensorShape& shape) {
  if (shape.data_type != TensorShape::FLOAT32) {
    TARN_ASSERT(false && "Invalid type");
  }
  std::uint32_t n = 1;
  for (size_t i = 1; i < shape.dims.size(); ++i) n *= shape.dims[i];
  return n;
}

std::int32_t LayoutTransformBase::IsValidParam(std::shared_ptr<runtime::LayerInfo>,
                                               std::shared_ptr<runtime::InferenceParam>) const {
  return kValid;
}

bool LayoutTransformBase::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                 std::shared_ptr<runtime::InferenceParam> param, std::shared_ptr<runtime::Context>) {
  configured_ = IsValidParam(layer, param) == kValid;
  return configured_;
}

std::vector<TensorShape> LayoutTransformBase::GetOutputShapes(const std::vector<TensorShape>& inputs) const {
  std::uint64_t c;
  std::uint32_t h, w;
  if (inputs.empty() || !ChannelsHW(inputs[0], from_, &c, &h, &w)) return {};
  const unsigned lanes = Lanes(to_);
  if (c % lanes != 0 || c / lanes > UINT32_MAX) return {};
  TensorShape out = inputs[0];
  out.layout = to_;
  if (lanes == 1) {
    out.dims = {static_cast<unsigned>(c), h, w};
  } else {
    out.dims = {static_cast<unsigned>(c / lanes), h, w, lanes};
  }
  return {out};
}

std::int32_t LayoutTransformBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (CheckFloatTensors(inputs, 1) != kValid || !std::dynamic_pointer_cast<runtime::TensorCPU>(inputs[0])) {
    return kInvalidTensor;
  }
  const TensorShape& s = inputs[0]->shape;
  if (s.layout != from_ || GetOutputShapes({s}).empty()) return kInvalidTensor;
  if (s.ElementCount() > UINT32_MAX) return kInvalidTensor;
  return kValid;
}

std::int32_t LayoutTransformBase::IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const {
  if (CheckFloatTensors(outputs, 1) != kValid || outputs[0]->shape.layout != to_) return kInvalidTensor;
  return kValid;
}

bool LayoutTransformBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                  std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                  std::shared_ptr<runtime::Context> context) const {
  if (inputs.empty() || !context || !context->cpu) return false;
  auto in = std::dynamic_pointer_cast<runtime::TensorCPU>(inputs[0]);
  const auto shapes = GetOutputShapes({inputs[0]->shape});
  if (!in || shapes.empty()) return false;
  auto out = context->cpu->CreateTensor(shapes[0], nullptr);
  fn_(in, out);
  outputs.assign(1, out);
  return true;
}

// ---------------------------------------------------------------------------

LayoutBlocks CheckLayoutBlocks(const functional::TensorCPUPtr& chw, const functional::TensorCPUPtr& blocked,
                               unsigned lanes) {
  const std::uint32_t pixels = LayoutPlaneFloats(chw->shape);
  (void)LayoutPlaneFloats(blocked->shape);
  const auto& c = chw->shape.dims;
  const auto& b = blocked->shape.dims;
  TARN_NATIVE_ASSERT(c.size() == 3 && b.size() == 4 && b[3] == lanes);
  TARN_NATIVE_ASSERT(std::uint64_t(b[0]) * lanes == c[0] && b[1] == c[1] && b[2] == c[2]);
  return {b[0], pixels};
}

LayoutBlocks CheckC4C8Blocks(const functional::TensorCPUPtr& c4, const functional::TensorCPUPtr& c8) {
  const std::uint32_t pixels = LayoutPlaneFloats(c4->shape) / 4;
  (void)LayoutPlaneFloats(c8->shape);
  const auto& a = c4->shape.dims;
  const auto& b = c8->shape.dims;
  TARN_NATIVE_ASSERT(a.size() == 4 && b.size() == 4 && a[3] == 4 && b[3] == 8);
  TARN_NATIVE_ASSERT(std::uint64_t(b[0]) * 2 == a[0] && a[1] == b[1] && a[2] == b[2]);
  return {b[0], pixels};
}

void BlockPlanes(const functional::TensorCPUPtr& chw, std::uint32_t block, unsigned lanes, std::uint32_t pixels,
                 float** planes) {
  planes[0] = static_cast<float*>(chw->Locate3D(lanes * block, 0, 0));
  for (unsigned j = 1; j < lanes; ++j) planes[j] = planes[j - 1] + pixels;
}

// memcpy moves the bits as they are, signalling NaNs included.
void PlanesToBlocked(float* const* planes, unsigned lanes, std::uint32_t from, std::uint32_t to, float* blocked) {
  for (std::uint32_t p = from; p < to; ++p, blocked += lanes) {
    for (unsigned j = 0; j < lanes; ++j) std::memcpy(blocked + j, planes[j] + p, sizeof(float));
  }
}

void BlockedToPlanes(const float* blocked, unsigned lanes, std::uint32_t from, std::uint32_t to, float* const* planes) {
  for (std::uint32_t p = from; p < to; ++p, blocked += lanes) {
    for (unsigned j = 0; j < lanes; ++j) std::memcpy(planes[j] + p, blocked + j, sizeof(float));
  }
}

// Baseline-compiled destructors (and so vtables and names) of every kernel
// of this operation, whatever its family.
LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1::~LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1() = default;
LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2::~LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2() = default;
LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1::~LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1() = default;
LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1::~LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1() = default;
LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1::~LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1() = default;
LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2::~LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2() = default;
LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1::~LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1() =
    default;
LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1::~LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1() =
    default;
LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1::~LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1() = default;
LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1::~LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1() = default;
LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2::~LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2() = default;

}  // namespace kernel
}  // namespace tarn
