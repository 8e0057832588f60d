#include "kernel/cpu/fallback/pixel_shuffle/pixel_shuffle.h"

#include <cmath>
#include <vector>

#include "kernel/cpu/avx/pixel_shuffle/pixel_shuffle.h"
#include "kernel/cpu/sse/pixel_shuffle/pixel_shuffle.h"
#include "kernel/crossplatform/shape_common/shape_common.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

namespace functional {

void interleave_rows_f32(const float* const* rows, std::uint32_t r, std::uint32_t width, float* out) {
  InterleaveRest(rows, r, 0, width, out);
}

}  // namespace functional

void InterleaveRest(const float* const* rows, std::uint32_t r, std::uint32_t from, std::uint32_t width, float* out) {
  for (std::uint32_t x = from; x < width; ++x) {
    for (std::uint32_t j = 0; j < r; ++j) *out++ = rows[j][x];
  }
}

std::uint32_t WholeFactor(float value) {
  if (!(value >= 1.0f && value <= 65535.0f) || std::floor(value) != value) return 0;
  return static_cast<std::uint32_t>(value);
}

std::int32_t PixelShuffleKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                  std::shared_ptr<runtime::InferenceParam>) const {
  auto info = std::dynamic_pointer_cast<runtime::PixelShuffleInfo>(layer);
  return info && WholeFactor(info->upscale_factor) != 0 ? kValid : kInvalidParam;
}

bool PixelShuffleKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                    std::shared_ptr<runtime::InferenceParam> param, std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (IsValidParam(layer, param) != kValid) {
    utility::Log(utility::kLogError, "%s needs a PixelShuffleInfo record with a whole upscale_factor >= 1.",
                 GetName().c_str());
    return false;
  }
  r_ = WholeFactor(static_cast<const runtime::PixelShuffleInfo&>(*layer).upscale_factor);
  configured_ = true;
  return true;
}

bool PixelShuffleKernelBase::OutputShape(const std::vector<TensorShape>& inputs, TensorShape* output,
                                         std::string* why) const {
  if (!shape::OneDenseFloat(inputs, 3, why)) return false;
  std::uint64_t count = 0;
  const auto& d = inputs[0].dims;
  const std::uint64_t rr = std::uint64_t(r_) * r_;
  if (d[0] % rr != 0) {
    *why = "the input's " + std::to_string(d[0]) + " channels are not a multiple of " + std::to_string(rr);
    return false;
  }
  const std::vector<std::uint64_t> out = {d[0] / rr, std::uint64_t(d[1]) * r_, std::uint64_t(d[2]) * r_};
  if (!shape::CheckedCount(out, &count)) {
    *why = "the output would hold too many elements";
    return false;
  }
  *output = inputs[0];
  output->dims.assign(out.begin(), out.end());
  return true;
}

bool PixelShuffleKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                     std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                     std::shared_ptr<runtime::Context> context) const {
  auto out = Prepare(inputs, context);
  if (!out) return false;
  const std::uint32_t r = r_, c_out = out->shape.dims[0], h = inputs[0]->shape.dims[1], w = inputs[0]->shape.dims[2];
  const std::size_t plane = std::size_t(h) * w;
  const float* s = static_cast<const float*>(inputs[0]->Data());
  float* d = out->DataAs<float>();
  std::vector<const float*> rows(r);
  // Output row y * r + i of channel c interleaves row y of input channels
  // c * r * r + i * r + j, j = 0 .. r - 1.
  for (std::uint32_t c = 0; c < c_out; ++c) {
    for (std::uint32_t y = 0; y < h; ++y) {
      for (std::uint32_t i = 0; i < r; ++i, d += std::size_t(w) * r) {
        for (std::uint32_t j = 0; j < r; ++j) rows[j] = s + (std::size_t(c) * r * r + i * r + j) * plane + std::size_t(y) * w;
        fn_(rows.data(), r, w, d);
      }
    }
  }
  outputs.assign(1, out);
  return true;
}

// Baseline-compiled destructors (and so vtables and names) of every pixel
// shuffle kernel, whatever its family.
PixelShuffle_Fallback_CHW_Float_M1::~PixelShuffle_Fallback_CHW_Float_M1() = default;
PixelShuffle_SSE_CHW_Float_M1::~PixelShuffle_SSE_CHW_Float_M1() = default;
PixelShuffle_AVX_CHW_Float_M1::~PixelShuffle_AVX_CHW_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
