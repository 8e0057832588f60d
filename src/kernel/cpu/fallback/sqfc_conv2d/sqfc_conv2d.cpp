#include "kernel/cpu/fallback/sqfc_conv2d/sqfc_conv2d.h"

#include <cmath>

#include "kernel/cpu/fallback/resampling_common/resampling_common.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

namespace functional {

bool MakeFixedPointGrid(std::uint32_t clip, std::uint32_t bits, FixedPointGrid* grid) {
  *grid = FixedPointGrid();
  if (bits == 0) return true;
  if (bits > 24 || clip == 0) return false;
  const float levels = static_cast<float>(1u << (bits - 1));
  grid->bits = bits;
  grid->step = static_cast<float>(clip) / levels;
  grid->inverse = 1.0f / grid->step;
  grid->lowest = -levels;
  grid->highest = levels - 1.0f;
  return true;
}

void fake_quantize_f32(const FixedPointGrid& grid, float* values, std::size_t count) {
  if (grid.bits == 0) return;
  for (std::size_t i = 0; i < count; ++i) {
    float q = std::nearbyint(values[i] * grid.inverse);
    q = q < grid.lowest ? grid.lowest : (q > grid.highest ? grid.highest : q);
    values[i] = q * grid.step;
  }
}

}  // namespace functional

const char* SQFCConv2DKernelBase::RecordProblem(const std::shared_ptr<runtime::LayerInfo>& layer,
                                                runtime::Conv2dInfo* conv) const {
  auto r = std::dynamic_pointer_cast<runtime::SQFCConv2dInfo>(layer);
  if (!r) return "the record is not an SQFCConv2dInfo";
  const bool folded = std::dynamic_pointer_cast<runtime::SQFCConv2dFoldedBNInfo>(layer) != nullptr;
  if (folded != folded_) {
    return folded_ ? "the record is not an SQFCConv2dFoldedBNInfo"
                   : "the record carries a batch norm to fold; the FoldedBN kernel computes it";
  }
  if (r->padding_l < 0 || r->padding_t < 0 || r->padding_r < 0 || r->padding_b < 0) return "a padding is negative";
  functional::FixedPointGrid grid;
  if (!functional::MakeFixedPointGrid(r->w_clip, r->w_qbit, &grid) ||
      !functional::MakeFixedPointGrid(r->b_clip, r->b_qbit, &grid) ||
      !functional::MakeFixedPointGrid(r->a_clip, r->a_qbit, &grid)) {
    return "a quantisation grid has more than 24 bits, or bits with a clip of 0";
  }
  conv->in_channels = r->in_channels;
  conv->out_channels = r->out_channels;
  conv->kernel_x = r->kernel_x;
  conv->kernel_y = r->kernel_y;
  conv->stride_x = r->stride_x;
  conv->stride_y = r->stride_y;
  conv->dilation_x = r->dilation_x;
  conv->dilation_y = r->dilation_y;
  conv->groups = r->groups;
  conv->if_bias = r->if_bias || folded;
  conv->padding_l = static_cast<std::uint16_t>(r->padding_l);
  conv->padding_t = static_cast<std::uint16_t>(r->padding_t);
  conv->padding_r = static_cast<std::uint16_t>(r->padding_r);
  conv->padding_b = static_cast<std::uint16_t>(r->padding_b);
  Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1 probe;
  if (probe.IsValidParam(std::shared_ptr<runtime::Conv2dInfo>(conv, [](runtime::Conv2dInfo*) {}), nullptr) != kValid) {
    return "the geometry is not a convolution's (a size, stride, dilation or group count of 0, or channels not "
           "divisible by the groups)";
  }
  return nullptr;
}

std::int32_t SQFCConv2DKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                std::shared_ptr<runtime::InferenceParam>) const {
  runtime::Conv2dInfo conv;
  return RecordProblem(layer, &conv) ? kInvalidParam : kValid;
}

bool SQFCConv2DKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                  std::shared_ptr<runtime::InferenceParam>, std::shared_ptr<runtime::Context> context) {
  configured_ = false;
  conv_.reset();
  quantised_.reset();
  auto conv = std::make_shared<runtime::Conv2dInfo>();
  if (const char* p = RecordProblem(layer, conv.get())) return RefuseRecord(*this, "%s", p);
  const auto& r = static_cast<const runtime::SQFCConv2dInfo&>(*layer);
  const std::uint32_t n = r.out_channels;
  const std::size_t per_output = std::size_t(r.in_channels / r.groups) * r.kernel_y * r.kernel_x;
  std::vector<float> weight, bias(n, 0.0f);
  if (!DecodeBlob(*this, r.weight, "weight", n * per_output, &weight)) return false;
  if (r.if_bias && !DecodeBlob(*this, r.bias, "bias", n, &bias)) return false;
  if (folded_) {
    const auto& bn = static_cast<const runtime::SQFCConv2dFoldedBNInfo&>(*layer);
    std::vector<float> mean, variance, scale(n, 1.0f), shift(n, 0.0f);
    if (!DecodeBlob(*this, bn.mean, "mean", n, &mean) || !DecodeBlob(*this, bn.variance, "variance", n, &variance)) {
      return false;
    }
    if (bn.if_affine &&
        (!DecodeBlob(*this, bn.scale, "scale", n, &scale) || !DecodeBlob(*this, bn.shift, "shift", n, &shift))) {
      return false;
    }
    for (std::uint32_t k = 0; k < n; ++k) {
      const float v = variance[k] + bn.eps;
      if (!(v > 0.0f)) {
        return RefuseRecord(*this, "channel %u has variance %g with eps %g: variance + eps must be > 0", k,
                            static_cast<double>(variance[k]), static_cast<double>(bn.eps));
      }
      const float f = scale[k] / std::sqrt(v);
      for (std::size_t i = 0; i < per_output; ++i) weight[k * per_output + i] *= f;
      bias[k] = (bias[k] - mean[k]) * f + shift[k];
    }
  }
  functional::FixedPointGrid grid;
  functional::MakeFixedPointGrid(r.w_clip, r.w_qbit, &grid);
  functional::fake_quantize_f32(grid, weight.data(), weight.size());
  functional::MakeFixedPointGrid(r.b_clip, r.b_qbit, &grid);
  functional::fake_quantize_f32(grid, bias.data(), bias.size());
  functional::MakeFixedPointGrid(r.a_clip, r.a_qbit, &activation_);
  conv->weight = runtime::EncodeWeights(weight);
  if (conv->if_bias) conv->bias = runtime::EncodeWeights(bias);
  auto kernel = std::make_shared<Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1>();
  if (!kernel->Config(conv, nullptr, context)) return RefuseRecord(*this, "the convolution refused the quantised layer");
  conv_ = kernel;
  quantised_ = conv;
  configured_ = true;
  return true;
}

std::vector<runtime::TensorShape> SQFCConv2DKernelBase::GetOutputShapes(
    const std::vector<runtime::TensorShape>& inputs) const {
  return conv_ ? conv_->GetOutputShapes(inputs) : std::vector<runtime::TensorShape>();
}

std::int32_t SQFCConv2DKernelBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (!configured_) return RefuseInput(*this, "the kernel is not configured");
  if (conv_->IsValidInput(inputs) != kValid) {
    return RefuseInput(*this, "the input is not one CHW float tensor of %u channels that the kernel window fits",
                       conv_->InChannels());
  }
  return kValid;
}

std::int32_t SQFCConv2DKernelBase::IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const {
  return conv_ ? conv_->IsValidOutput(outputs) : kInvalidTensor;
}

bool SQFCConv2DKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                   std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                   std::shared_ptr<runtime::Context> context) const {
  if (!configured_ || !conv_->Forward(inputs, outputs, context) || outputs.size() != 1) return false;
  functional::fake_quantize_f32(activation_, static_cast<float*>(outputs[0]->Data()), outputs[0]->shape.ElementCount());
  return true;
}

}  // namespace kernel
}  // namespace tarn
