// What every transposed 2-D convolution kernel shares: reading and checking
// the ConvTranspose2dInfo record, decoding and packing the weight once, the
// output-size rule, the input checks and the skeleton of a forward pass.
//
// Semantics (PyTorch ConvTranspose2d, batch 1). Every input pixel (iy, ix),
// times each kernel tap (ky, kx), is added into the output pixel
//   (iy * stride_y + ky * dilation_y - padding_t, ix * stride_x + kx * dilation_x - padding_l).
// Per axis the output size is
//   out = (in - 1) * stride - pad_begin - pad_end + dilation * (kernel - 1) + 1
// with pad_begin / pad_end the record's signed "padding_t" / "padding_b" (rows)
// and "padding_l" / "padding_r" (columns). PyTorch's output_padding is written
// into the record by lowering pad_end by that amount: a negative padding
// grows the output by that much, and the pixels no input reaches hold the
// bias only.
//
// Weight: as PyTorch stores it, [in_channels, out_channels / groups, kH, kW];
// group g maps input channels g * C/G .. (g + 1) * C/G - 1 onto output
// channels g * N/G .. (g + 1) * N/G - 1. The bias holds one value per output
// channel.
//
// Forward: the output of the full scatter, (in - 1) * stride +
// dilation * (kernel - 1) + 1 per axis, grown by the negative paddings, is
// filled with the bias (or zero); the member's step adds the scatter into it;
// the positive paddings are then cut off with the layout's cutting helper (no
// cut when there are none).
//
// Compiled for baseline x86-64 (the members' destructors live here); only the
// steps run family instructions.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kernel/cpu/fallback/conv2d/conv2d_base.h"
#include "tarn/kernel/tensor_helpers.h"

namespace tarn {
namespace kernel {

// The record's geometry as Config stores it.
struct ConvTranspose2DParams {
  std::uint32_t kernel_x = 0, kernel_y = 0;
  std::uint32_t stride_x = 1, stride_y = 1;
  std::uint32_t dilation_x = 1, dilation_y = 1;
  std::uint32_t in_channels_per_group = 0, out_channels_per_group = 0;
  std::uint32_t groups = 1;
  std::int32_t padding_l = 0, padding_t = 0, padding_r = 0, padding_b = 0;
  std::uint8_t if_bias = 0;
};

// Sizes of one forward pass over a given input.
struct ConvTranspose2DPlan {
  std::uint32_t in_h = 0, in_w = 0;
  std::uint32_t full_h = 0, full_w = 0;          // extent of the scatter
  std::uint32_t enlarged_h = 0, enlarged_w = 0;  // the scatter grown by the negative paddings
  std::uint32_t origin_y = 0, origin_x = 0;      // where the scatter starts in the enlarged output
  std::uint32_t cut_l = 0, cut_r = 0, cut_t = 0, cut_b = 0;  // the positive paddings
  std::uint32_t out_h = 0, out_w = 0;
};

// Where a specialised step writes: the scatter of the (padded) input lands at
// (origin_y, origin_x) of the enlarged output, with these strides.
struct ConvTranspose2DStepGeometry {
  std::uint32_t stride_y = 1, stride_x = 1;
  std::uint32_t origin_y = 0, origin_x = 0;
};

class ConvTranspose2DKernelBase : public LayerKernelBase {
 public:
  using Port = Conv2DKernelBase::Port;
  // Stored: the record's [C, N/G, KY, KX] as a five-dimensional
  // [G, C/G, N/G, KY, KX] tensor. The blocked orders first transpose it to
  // [G, N/G, C/G, KY, KX] (output channels outer), then tile it as the
  // blocked cores read it.
  enum class WeightOrder { kStored, kGN4C4HW4c4n, kGN8C8HW8c8n };

  // -1 unless the record is a ConvTranspose2dInfo with non-zero channels,
  // kernel, stride, dilation and groups, channels divisible by the groups,
  // and the geometry the member's name promises.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  // Decodes the weight and the bias once, refusing blobs whose float counts
  // differ from what the geometry needs, and packs the weight.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  // One output of N channels in the member's layout; empty for an input the
  // kernel would refuse.
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One main-memory tensor of the member's layout with the configured
  // channels whose output has at least one pixel per axis, every buffer of
  // the pass within 2^31 - 1 elements.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  std::int32_t IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const override;

  const ConvTranspose2DParams& params() const { return params_; }
  std::uint32_t InChannels() const { return params_.in_channels_per_group * params_.groups; }
  std::uint32_t OutChannels() const { return params_.out_channels_per_group * params_.groups; }

 protected:
  using TensorCPUPtr = std::shared_ptr<runtime::TensorCPU>;
  using DevicePtr = std::shared_ptr<runtime::DeviceCPU>;
  using PadFn = TensorCPUPtr (*)(const TensorCPUPtr& input, std::uint32_t left, std::uint32_t right,
                                 std::uint32_t top, std::uint32_t bottom, float value, const DevicePtr& device);
  using CutFn = TensorCPUPtr (*)(const TensorCPUPtr& input, std::uint32_t left, std::uint32_t right,
                                 std::uint32_t top, std::uint32_t bottom, const DevicePtr& device);
  using FillFn = void (*)(const TensorCPUPtr& inout, const TensorCPUPtr& bias);
  // A specialised step: adds the scatter of the input, padded by
  // (kernel - 1) / stride zero pixels on every side, into the enlarged output.
  using StepFn = void (*)(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight,
                          const ConvTranspose2DStepGeometry& geometry);
  struct ScatterPass {
    PadFn pad;
    FillFn fill;
    StepFn step;
    CutFn cut;
  };

  // A member of `port` (input and output) taking kernels of kernel_y x
  // kernel_x (0: any), dilation `dilation` on both axes (0: any), one group
  // or any; strides are always free.
  ConvTranspose2DKernelBase(Port port, std::uint32_t kernel_y, std::uint32_t kernel_x, std::uint32_t dilation,
                            bool one_group, WeightOrder order);

  // The pass over `input`; false when the input does not fit this kernel.
  bool MakePlan(const runtime::TensorShape& input, ConvTranspose2DPlan* plan) const;
  // The checked input of Forward and its plan, or null (with the reason logged).
  TensorCPUPtr ForwardInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                            const std::shared_ptr<runtime::Context>& context, ConvTranspose2DPlan* plan) const;
  // The enlarged output of a pass holding the bias (written by `fill`) or zero.
  TensorCPUPtr EnlargedOutput(const ConvTranspose2DPlan& plan, runtime::DeviceCPU& device, FillFn fill) const;
  // The whole Forward of a specialised member: pad the input by
  // (kernel - 1) / stride per axis, fill, step, cut.
  bool ForwardScatter(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                      std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                      const std::shared_ptr<runtime::Context>& context, const ScatterPass& pass) const;

  const Port& port() const { return port_; }

  ConvTranspose2DParams params_;

 private:
  bool AcceptsGeometry(const ConvTranspose2DParams& p) const;

  Port port_;
  std::uint32_t kernel_y_, kernel_x_, dilation_;
  bool one_group_;
  WeightOrder order_;
};

// What a specialised step reads and writes, taken from its tensors.
struct ConvTranspose2DStepArgs {
  const float* input;  // padded by (border_y, border_x) zero pixels
  float* output;       // enlarged, holding the bias or zero
  const float* weight;
  int in_planes, out_planes;  // stored planes (CHW) or channel blocks
  int in_h, in_w;             // padded
  int out_h, out_w;           // enlarged
  int border_y, border_x;
  int full_h, full_w;  // extent of the scatter, starting at (origin_y, origin_x)
};

// The arguments of a specialised step of kernel x kernel taps, dilation 1,
// one group, on tensors of `lanes` floats per pixel (1: CHW), after checking
// them: float tensors of that layout, an input padded by (kernel - 1) /
// stride pixels per side, a scatter that fits the output from the origin, and
// a weight of kernel * kernel taps per (input, output) channel pair (blocked:
// lanes x lanes tiles per pair of blocks). A failed check throws, naming `what`.
ConvTranspose2DStepArgs CheckConvTranspose2DStep(const std::shared_ptr<runtime::TensorCPU>& input,
                                                 const std::shared_ptr<runtime::TensorCPU>& output,
                                                 const std::shared_ptr<runtime::TensorCPU>& weight,
                                                 const ConvTranspose2DStepGeometry& geometry, int kernel, int lanes,
                                                 const char* what);

// The zero border (rows, then columns) a specialised step needs around its
// input: the taps of one output phase reach (kernel - 1) / stride input
// pixels back.
inline std::uint32_t ScatterInputBorder(std::uint32_t kernel, std::uint32_t stride) { return (kernel - 1) / stride; }

}  // namespace kernel
}  // namespace tarn

// Declares a specialised transposed member: its name, port (a Port factory)
// and weight order.
#define TRN_CONV_TRANSPOSE_MEMBER(cls, port, order)                                 \
  class cls : public ConvTranspose2DKernelBase {                                    \
   public:                                                                          \
    ~cls() override;                                                                \
    TRN_KERNEL_NAME(cls)                                                            \
    cls() : ConvTranspose2DKernelBase(Port::port(), 3, 3, 1, true, WeightOrder::order) {} \
    TRN_LAYER_FORWARD                                                               \
  };

// Defines the Forward of specialised member `cls`: pad by `pad`, fill by
// `fill`, the step cls_Convolution, cut by `cut`.
#define TRN_CONV_TRANSPOSE_FORWARD(cls, pad, fill, cut)                         \
  bool cls::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, \
                    std::vector<std::shared_ptr<runtime::Tensor>>& outputs,      \
                    std::shared_ptr<runtime::Context> context) const {           \
    return ForwardScatter(inputs, outputs, context, {pad, fill, cls##_Convolution, cut}); \
  }
