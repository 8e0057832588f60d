#include "kernel/cpu/fallback/adaptive_max_pooling/adaptive_max_pooling.h"

#include <cmath>
#include <limits>

#include "kernel/cpu/fallback/resampling_common/resampling_common.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

namespace {

const char* RecordProblem(const std::shared_ptr<runtime::LayerInfo>& layer) {
  auto r = std::dynamic_pointer_cast<runtime::AdaptiveMaxPool2dInfo>(layer);
  if (!r) return "the record is not an AdaptiveMaxPool2dInfo";
  const auto& s = r->output_size;
  if (s.empty() || s.size() > 2) return "\"output_size\" must hold one or two sizes";
  for (unsigned short v : s) {
    if (v == 0) return "an output size is 0";
  }
  return nullptr;
}

// The first input index of output cell a of b cells over c inputs, and one
// past the last (integer forms of floor(a * c / b) and ceil((a + 1) * c / b)).
std::uint64_t WindowStart(std::uint64_t a, std::uint64_t b, std::uint64_t c) { return (a / b) * c + ((a % b) * c) / b; }
std::uint64_t WindowEnd(std::uint64_t a, std::uint64_t b, std::uint64_t c) { return 1 + ((a + 1) * c - 1) / b; }

}  // namespace

std::int32_t AdaptivePooling2D_Max_Fallback_CHW_Float_M1::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                                       std::shared_ptr<runtime::InferenceParam>) const {
  return RecordProblem(layer) ? kInvalidParam : kValid;
}

bool AdaptivePooling2D_Max_Fallback_CHW_Float_M1::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                                         std::shared_ptr<runtime::InferenceParam>,
                                                         std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (const char* p = RecordProblem(layer)) return RefuseRecord(*this, "%s", p);
  const auto& s = static_cast<const runtime::AdaptiveMaxPool2dInfo&>(*layer).output_size;
  output_h_ = s[0];
  output_w_ = s.size() == 2 ? s[1] : s[0];
  configured_ = true;
  return true;
}

const char* AdaptivePooling2D_Max_Fallback_CHW_Float_M1::Problem(const std::vector<runtime::TensorShape>& in,
                                                                 runtime::TensorShape* out) const {
  const runtime::TensorShape& s = in[0];
  if (!IsPlainLayout(s.layout) || s.dims.size() != 3) return "the input is not a CHW tensor [C, H, W]";
  if (!FitsPassFloats({s.dims[0], output_h_, output_w_})) return "the output would hold more than 2^31 - 1 floats";
  *out = ShapeWithDims(s, {s.dims[0], output_h_, output_w_});
  return nullptr;
}

bool AdaptivePooling2D_Max_Fallback_CHW_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                          std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                          std::shared_ptr<runtime::Context> context) const {
  auto out = Prepare(inputs, context);
  if (!out) return false;
  const auto& d = inputs[0]->shape.dims;
  const std::uint32_t h = d[1], w = d[2];
  const float* in = static_cast<const float*>(inputs[0]->Data());
  float* o = out->DataAs<float>();
  for (std::uint32_t c = 0; c < d[0]; ++c, in += std::size_t(h) * w) {
    for (std::uint32_t oy = 0; oy < output_h_; ++oy) {
      const std::uint64_t y0 = WindowStart(oy, output_h_, h), y1 = WindowEnd(oy, output_h_, h);
      for (std::uint32_t ox = 0; ox < output_w_; ++ox) {
        const std::uint64_t x0 = WindowStart(ox, output_w_, w), x1 = WindowEnd(ox, output_w_, w);
        float m = -std::numeric_limits<float>::infinity();
        for (std::uint64_t y = y0; y < y1; ++y) {
          for (std::uint64_t x = x0; x < x1; ++x) {
            const float v = in[y * w + x];
            if (v > m || std::isnan(v)) m = v;
          }
        }
        *o++ = m;
      }
    }
  }
  outputs.assign(1, out);
  return true;
}

}  // namespace kernel
}  // namespace tarn
