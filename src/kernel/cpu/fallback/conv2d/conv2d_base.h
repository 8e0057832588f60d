// What every 2-D convolution kernel shares: reading and checking the record,
// decoding and packing the weights once, the output-size rule, the input
// checks and the skeleton of a forward pass. It is compiled for baseline
// x86-64; a member adds Forward, which hands the skeleton the routines of its
// instruction set.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <vector>

#include "kernel/cpu/fallback/conv_core/layer_kernel_base.h"
#include "tarn/kernel/conv_layout.h"
#include "tarn/kernel/native_conv.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

// The record's geometry as Config stores it.
struct Conv2DParams {
  std::uint32_t kernel_x = 0, kernel_y = 0;
  std::uint32_t stride_x = 1, stride_y = 1;
  std::uint32_t dilation_x = 1, dilation_y = 1;
  std::uint32_t in_channels_per_group = 0, out_channels_per_group = 0;
  std::uint32_t groups = 1;
  std::uint32_t padding_l = 0, padding_t = 0, padding_r = 0, padding_b = 0;
  std::uint8_t if_bias = 0;
};

// Sizes of one forward pass over a given input.
struct Conv2DPlan {
  std::uint32_t channels = 0;  // real input channels
  std::uint32_t in_h = 0, in_w = 0;
  std::uint32_t padded_h = 0, padded_w = 0;
  std::uint32_t out_h = 0, out_w = 0;
};

// The geometry both two-dimensional convolution records hold (ConvGeometry),
// stored into `p` (Conv2DParams, or parameters of the same field names):
// false, `p` untouched, unless channels, kernel, stride, dilation and groups
// are non-zero and both channel counts divide into the groups. The paddings
// (of different types in the two records) are the caller's.
template <class Params>
bool ReadConvGeometry(const runtime::ConvGeometry& info, Params* p) {
  if (info.in_channels == 0 || info.out_channels == 0 || info.kernel_x == 0 || info.kernel_y == 0 ||
      info.stride_x == 0 || info.stride_y == 0 || info.dilation_x == 0 || info.dilation_y == 0 || info.groups == 0 ||
      info.in_channels % info.groups != 0 || info.out_channels % info.groups != 0) {
    return false;
  }
  p->kernel_x = info.kernel_x;
  p->kernel_y = info.kernel_y;
  p->stride_x = info.stride_x;
  p->stride_y = info.stride_y;
  p->dilation_x = info.dilation_x;
  p->dilation_y = info.dilation_y;
  p->groups = info.groups;
  p->in_channels_per_group = info.in_channels / info.groups;
  p->out_channels_per_group = info.out_channels / info.groups;
  p->if_bias = info.if_bias ? 1 : 0;
  return true;
}

// Whether the product of `factors` stays within INT_MAX (without overflowing
// on the way: shapes may claim any dims). The raw routines address buffers
// with int arguments.
bool FitsInt(std::initializer_list<std::uint64_t> factors);

// `output` holding the bias written by `fill`, or zero when there is no bias
// or no `fill` (16-bit outputs are zeroed as such).
void FillBiasOrZero(const std::shared_ptr<runtime::TensorCPU>& output, const std::shared_ptr<runtime::TensorCPU>& bias,
                    void (*fill)(const std::shared_ptr<runtime::TensorCPU>&, const std::shared_ptr<runtime::TensorCPU>&));

class Conv2DKernelBase : public LayerKernelBase {
 public:
  // The geometry a member's name promises; a zero field accepts any value.
  struct Geometry {
    std::uint32_t kernel_y = 0, kernel_x = 0;
    std::uint32_t stride_y = 0, stride_x = 0;
    std::uint32_t dilation = 0;  // the same on both axes
    // kDepthwise: as many groups as input and output channels.
    enum class Groups { kAny, kOne, kDepthwise } groups = Groups::kAny;
    // False for members that read their input as it is (no padding helper):
    // they refuse records with padding.
    bool takes_padding = true;

    static Geometry Any() { return {}; }
    static Geometry OneGroup() {
      Geometry g;
      g.groups = Groups::kOne;
      return g;
    }
    // Kernel and stride fixed, dilation 1, one group: the specialised members.
    static Geometry Fixed(std::uint32_t ky, std::uint32_t kx, std::uint32_t sy, std::uint32_t sx) {
      return {ky, kx, sy, sx, 1, Groups::kOne};
    }
    // The same with one group per channel.
    static Geometry Depthwise(std::uint32_t ky, std::uint32_t kx, std::uint32_t sy, std::uint32_t sx) {
      return {ky, kx, sy, sx, 1, Groups::kDepthwise};
    }
    // This geometry without padding.
    Geometry Unpadded() const {
      Geometry g = *this;
      g.takes_padding = false;
      return g;
    }
  };
  // The order Config packs the weight into (kCustom: the member's PackWeight).
  enum class WeightOrder { kGNCHW, kGN4C4HW4c4n, kGN8C8HW8c8n, kCustom };
  // One side of a member: the layout of the tensor it reads or writes, its
  // lanes (1 for CHW, 4 for C4HW4, 8 for C8HW8), its element type and, for
  // members that serve one channel count only (image stems reading 3
  // channels, heads writing 3 or 1), that count (0: any).
  struct Port {
    runtime::TensorShape::Layout layout = runtime::TensorShape::CHW;
    std::uint32_t lanes = 1;
    runtime::TensorShape::DataType type = runtime::TensorShape::FLOAT32;
    std::uint32_t channels = 0;

    static Port CHW(std::uint32_t channels = 0) {
      return {runtime::TensorShape::CHW, 1, runtime::TensorShape::FLOAT32, channels};
    }
    static Port C4HW4() { return {runtime::TensorShape::C4HW4, 4, runtime::TensorShape::FLOAT32, 0}; }
    static Port C8HW8() { return {runtime::TensorShape::C8HW8, 8, runtime::TensorShape::FLOAT32, 0}; }
    static Port Blocked(runtime::TensorShape::Layout layout, std::uint32_t lanes) {
      return {layout, lanes, runtime::TensorShape::FLOAT32, 0};
    }

    // Stored planes (CHW) or blocks for `count` real channels.
    std::uint32_t Stored(std::uint32_t count) const { return lanes == 1 ? count : ChannelBlocks(count, lanes); }
    // The shape of a tensor of this port holding `count` real channels of h x w.
    runtime::TensorShape Shape(std::uint32_t count, std::uint32_t h, std::uint32_t w) const;
    // Whether `shape` is a main-memory tensor of this port (a CHW port also
    // takes FLEXIABLE) holding `count` real channels.
    bool Holds(const runtime::TensorShape& shape, std::uint32_t count) const;
  };

  // -1 unless the record is a Conv2dInfo with non-zero channels, kernel,
  // stride, dilation and groups, channels divisible by the groups, and the
  // geometry the member's name promises.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  // Decodes the weight ([G, N/G, C/G, KY, KX]) and the bias once, refusing
  // blobs whose float counts differ from what the geometry needs, and packs
  // the weight into the member's order.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  // One output of N channels in the member's output layout; empty for an
  // input the kernel would refuse.
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One main-memory tensor of the member's input type and layout with the
  // configured channels, large enough for the kernel after padding, and small
  // enough that every buffer of the pass stays within 2^31 - 1 elements.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  std::int32_t IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const override;

  const Conv2DParams& params() const { return params_; }
  std::uint32_t InChannels() const { return params_.in_channels_per_group * params_.groups; }
  std::uint32_t OutChannels() const { return params_.out_channels_per_group * params_.groups; }

 protected:
  using TensorCPUPtr = std::shared_ptr<runtime::TensorCPU>;
  // Routines of one instruction set, in the forms the tensor helpers and the
  // native routines have.
  using PadFn = TensorCPUPtr (*)(const TensorCPUPtr& input, std::uint32_t left, std::uint32_t right,
                                 std::uint32_t top, std::uint32_t bottom, float value,
                                 const std::shared_ptr<runtime::DeviceCPU>& device);
  using FillFn = void (*)(const TensorCPUPtr& inout, const TensorCPUPtr& bias);
  using Im2colFn = void (*)(int imgC, int imgH, int imgW, int colC, int colH, int colW, int kernelY, int kernelX,
                            int strideY, int strideX, int dilateY, int dilateX, float* img, float* col);
  using CoreFn = void (*)(TARN_CONV_CORE_PARAMS);
  // A convolution step: accumulates the convolution of the (padded) input
  // with the packed weight onto the output, which holds the bias or zero.
  using StepFn = void (*)(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight);
  // A pass through a column matrix: pad, im2col, fill the output with the
  // bias, then the 1x1 core over the column matrix (once per group on CHW,
  // where the group's GNCHW weight is a plain matrix; blocked members have
  // one group and the weight tiled to match the column blocks).
  struct ColumnPass {
    PadFn pad;
    Im2colFn im2col;
    FillFn fill;
    CoreFn core;
  };
  // A pass without a column matrix: pad (null: the member reads the input
  // as it is), fill the output with the bias (null: the output starts as
  // zero whatever the bias; the step then applies it itself), then the step.
  struct DirectPass {
    PadFn pad;
    FillFn fill;
    StepFn step;
  };
  // A step that writes every output element itself, starting from the bias
  // (null: no bias) instead of a filled output; `context` supplies its
  // scratch tensors.
  using WritingStepFn = void (*)(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight,
                                 const TensorCPUPtr& bias, const std::shared_ptr<runtime::Context>& context);
  // A pass whose step owns the output: pad (null: the input as it is), then
  // the step on an uninitialised output. No fill pass touches the output.
  struct WritingPass {
    PadFn pad;
    WritingStepFn step;
  };

  // builds_column: whether Forward builds a column matrix (its size is
  // checked against the int range). Everything but Forward is decided here,
  // in baseline code, so that asking a vector member about a record never
  // runs instructions of its family.
  Conv2DKernelBase(Port input, Port output, bool builds_column, Geometry geometry, WeightOrder order);
  // A member reading and writing the same layout.
  Conv2DKernelBase(runtime::TensorShape::Layout layout, std::uint32_t lanes, bool builds_column, Geometry geometry,
                   WeightOrder order)
      : Conv2DKernelBase(Port::Blocked(layout, lanes), Port::Blocked(layout, lanes), builds_column, geometry,
                         order) {}

  // The weight of WeightOrder::kCustom members, packed once from GNCHW
  // ([G, N/G, C/G, KY, KX]); null (logged by Config) when it cannot be.
  virtual TensorCPUPtr PackWeight(const TensorCPUPtr& gnchw, const std::shared_ptr<runtime::DeviceCPU>& device) const;

  bool AcceptsGeometry(const Conv2DParams& p) const;

  // The pass over `input`; false when the input does not fit this kernel.
  bool MakePlan(const runtime::TensorShape& input, Conv2DPlan* plan) const;
  // The checked input of Forward and its plan, or null (with the reason logged).
  TensorCPUPtr ForwardInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                            const std::shared_ptr<runtime::Context>& context, Conv2DPlan* plan) const;
  // The input with the record's zero border added by `pad` (the input itself
  // without padding).
  TensorCPUPtr Padded(const TensorCPUPtr& input, PadFn pad, const std::shared_ptr<runtime::DeviceCPU>& device) const;
  // The output shape of a pass, and a tensor of it, uninitialised.
  runtime::TensorShape OutputShape(const Conv2DPlan& plan) const;
  // The output tensor of a pass in the output layout, uninitialised.
  TensorCPUPtr CreateOutput(const Conv2DPlan& plan, runtime::DeviceCPU& device) const;
  // The output of a pass holding the bias (written by `fill`) or zero (also
  // when `fill` is null).
  TensorCPUPtr BiasedOutput(const Conv2DPlan& plan, runtime::DeviceCPU& device, FillFn fill) const;
  // The whole Forward of a column member.
  bool ForwardByColumns(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                        std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                        const std::shared_ptr<runtime::Context>& context, const ColumnPass& pass) const;
  // The whole Forward of a direct member: pad, fill, step.
  bool ForwardDirect(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                     std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                     const std::shared_ptr<runtime::Context>& context, const DirectPass& pass) const;
  // The whole Forward of a member whose step writes the output: pad, step.
  bool ForwardWriting(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                      std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                      const std::shared_ptr<runtime::Context>& context, const WritingPass& pass) const;

  const Port& input_port() const { return in_; }
  const Port& output_port() const { return out_; }

  Conv2DParams params_;

 private:
  Port in_, out_;
  bool builds_column_;
  Geometry geometry_;
  WeightOrder order_;
};

}  // namespace kernel
}  // namespace tarn
