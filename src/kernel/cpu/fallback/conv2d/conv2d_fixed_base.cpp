#include "kernel/cpu/fallback/conv2d/conv2d_fixed_base.h"

#include <cmath>
#include <cstring>

#include "tarn/kernel/conv_layout.h"
#include "tarn/kernel/packing.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

std::int16_t QuantizeToStep(float x, int step, int lo, int hi) {
  float y = x * StepScale(-step);
  if (std::isnan(y)) y = 0.0f;
  y = std::fmin(std::fmax(y, float(lo)), float(hi));
  return static_cast<std::int16_t>(std::nearbyint(y));
}

float StepScale(int step) { return std::ldexp(1.0f, step); }

std::int32_t FixedConv2DBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                           std::shared_ptr<runtime::InferenceParam> param) const {
  const std::int32_t valid = Conv2DKernelBase::IsValidParam(layer, param);
  if (valid != kValid || pads_) return valid;
  const auto& info = static_cast<const runtime::Conv2dInfo&>(*layer);
  return info.padding_l == 0 && info.padding_r == 0 && info.padding_t == 0 && info.padding_b == 0 ? kValid
                                                                                                   : kInvalidParam;
}

Conv2DKernelBase::TensorCPUPtr DirectCHWConv2DBase::PackWeight(const TensorCPUPtr& gnchw,
                                                               const std::shared_ptr<runtime::DeviceCPU>& device) const {
  const std::uint32_t n = gnchw->shape.dims[1];
  const std::uint32_t missing = ChannelBlocks(n, 4) * 4 - n;
  if (missing == 0) return Function_Tensor_GNCHW_To_GN4CHW4_Fallback(gnchw, device);
  return Function_Tensor_GNCHW_To_GN4CHW4_Fallback(Function_Tensor_GNCHW_Concat_Value(gnchw, missing, 0.0f, device),
                                                   device);
}

Conv2DKernelBase::TensorCPUPtr WinogradConv2DBase::PackWeight(const TensorCPUPtr& gnchw,
                                                              const std::shared_ptr<runtime::DeviceCPU>& device) const {
  const std::uint32_t n = gnchw->shape.dims[1], c = gnchw->shape.dims[2];
  const std::uint32_t blocks = ChannelBlocks(n, 4);
  auto packed = device->CreateTensor(runtime::MakeShape({16, blocks, c, 4}, TensorShape::FLOAT32, TensorShape::FLEXIABLE));
  float* u = packed->DataAs<float>();
  std::memset(u, 0, packed->shape.Bytes());
  const float* g = gnchw->DataAs<float>();
  for (std::uint32_t o = 0; o < n; ++o) {
    for (std::uint32_t ci = 0; ci < c; ++ci) {
      const float* k = g + (std::size_t(o) * c + ci) * 9;
      // G g: 4 x 3, then (G g) G^T: 4 x 4.
      float gg[4][3];
      for (int j = 0; j < 3; ++j) {
        gg[0][j] = k[j];
        gg[1][j] = 0.5f * (k[j] + k[3 + j] + k[6 + j]);
        gg[2][j] = 0.5f * (k[j] - k[3 + j] + k[6 + j]);
        gg[3][j] = k[6 + j];
      }
      for (int i = 0; i < 4; ++i) {
        const float row[4] = {gg[i][0], 0.5f * (gg[i][0] + gg[i][1] + gg[i][2]),
                              0.5f * (gg[i][0] - gg[i][1] + gg[i][2]), gg[i][2]};
        for (int j = 0; j < 4; ++j) {
          u[((std::size_t(i * 4 + j) * blocks + o / 4) * c + ci) * 4 + o % 4] = row[j];
        }
      }
    }
  }
  return packed;
}

// ------------------------------------------------------------------ 16-bit member

std::int32_t Int16Conv2DBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                           std::shared_ptr<runtime::InferenceParam> param) const {
  if (!std::dynamic_pointer_cast<runtime::InferenceParamConv2DQuant>(param)) return kInvalidParam;
  return FixedConv2DBase::IsValidParam(layer, param);
}

bool Int16Conv2DBase::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
                             std::shared_ptr<runtime::Context> context) {
  configured_ = false;
  if (auto quant = std::dynamic_pointer_cast<runtime::InferenceParamConv2DQuant>(param)) {
    weight_step_ = quant->weight_step_size;
    output_step_ = quant->output_step_size;
  } else {
    utility::Log(utility::kLogError, "%s: needs an InferenceParamConv2DQuant with the step sizes.", GetName().c_str());
    return false;
  }
  if (!FixedConv2DBase::Config(layer, param, context)) return false;
  if (bias_) {
    const std::uint32_t n = bias_->shape.dims[0];
    auto quantized = context->cpu->CreateTensor(runtime::MakeShape({n}, TensorShape::INT16));
    const float* b = bias_->DataAs<float>();
    std::int16_t* q = quantized->DataAs<std::int16_t>();
    for (std::uint32_t i = 0; i < n; ++i) q[i] = QuantizeToStep(b[i], output_step_);
    bias_ = quantized;
  }
  return true;
}

Conv2DKernelBase::TensorCPUPtr Int16Conv2DBase::PackWeight(const TensorCPUPtr& gnchw,
                                                           const std::shared_ptr<runtime::DeviceCPU>& device) const {
  const std::uint32_t n = gnchw->shape.dims[1], c = gnchw->shape.dims[2];
  const std::uint32_t nb = ChannelBlocks(n, 8), cb = ChannelBlocks(c, 8);
  auto packed = device->CreateTensor(runtime::MakeShape({nb, cb, 4, 8, 2}, TensorShape::INT16, TensorShape::FLEXIABLE));
  std::int16_t* q = packed->DataAs<std::int16_t>();
  std::memset(q, 0, packed->shape.Bytes());
  const float* w = gnchw->DataAs<float>();
  for (std::uint32_t o = 0; o < n; ++o) {
    for (std::uint32_t i = 0; i < c; ++i) {
      const std::size_t tile = std::size_t(o / 8) * cb + i / 8;
      const std::uint32_t lane = i % 8;
      q[tile * 64 + (lane / 2) * 16 + (o % 8) * 2 + lane % 2] =
          QuantizeToStep(w[std::size_t(o) * c + i], weight_step_, -32767, 32767);
    }
  }
  return packed;
}

std::vector<TensorShape> Int16Conv2DBase::GetOutputShapes(const std::vector<TensorShape>& inputs) const {
  std::vector<TensorShape> shapes = FixedConv2DBase::GetOutputShapes(inputs);
  for (TensorShape& s : shapes) s.extra.step_size = output_step_;
  return shapes;
}

std::int32_t Int16Conv2DBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  const std::int32_t valid = FixedConv2DBase::IsValidInput(inputs);
  if (valid != kValid) return valid;
  const int shift = ShiftFor(inputs[0]->shape.extra.step_size);
  return shift >= kMinShift && shift <= kMaxShift ? kValid : kInvalidTensor;
}

}  // namespace kernel
}  // namespace tarn
