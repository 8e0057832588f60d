// What the fixed-geometry convolution members add to the convolution
// skeleton: the refusal of padded records by members that read their input
// as it is, and the weight orders only they use (the CHW direct order, the
// Winograd filter transform, the 16-bit fixed-point weight and bias). All of
// it runs in Config or before Forward, so it is baseline code like the
// skeleton; a member's Forward hands ForwardDirect its family's routines.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kernel/cpu/fallback/conv2d/conv2d_base.h"
#include "tarn/kernel/tensor_helpers.h"

namespace tarn {
namespace kernel {

class FixedConv2DBase : public Conv2DKernelBase {
 public:
  // The skeleton's checks; a member that has no padding helper (pads =
  // false) also refuses a record with any padding: it reads its input as it
  // is, so a padded 1x1 layer belongs to the general member.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;

 protected:
  FixedConv2DBase(Port input, Port output, Geometry geometry, WeightOrder order, bool pads)
      : Conv2DKernelBase(input, output, false, geometry, order), pads_(pads) {}

 private:
  bool pads_;
};

// CHW members stepping directly over the padded planes, four output channels
// per register tile: the weight is packed GN4CHW4 ([ceil(N/4), C, KY, KX, 4],
// output channels innermost), N padded with zero channels to a whole block.
class DirectCHWConv2DBase : public FixedConv2DBase {
 protected:
  DirectCHWConv2DBase(Geometry geometry, bool pads)
      : FixedConv2DBase(Port::CHW(), Port::CHW(), geometry, WeightOrder::kCustom, pads) {}
  TensorCPUPtr PackWeight(const TensorCPUPtr& gnchw, const std::shared_ptr<runtime::DeviceCPU>& device) const override;
};

// Winograd F(2x2, 3x3) on CHW. The filter transform U = G g G^T with
//   G = [1 0 0; 1/2 1/2 1/2; 1/2 -1/2 1/2; 0 0 1]
// is done once here and stored as [16, ceil(N/4), C, 4]: for each of the 16
// transformed positions xi (row-major over the 4 x 4 tile), blocks of four
// output channels, input channel, the four outputs innermost (zero beyond N),
// the A operand of one matrix product per xi.
class WinogradConv2DBase : public FixedConv2DBase {
 protected:
  WinogradConv2DBase()
      : FixedConv2DBase(Port::CHW(), Port::CHW(), Geometry::Fixed(3, 3, 1, 1), WeightOrder::kCustom, true) {}
  TensorCPUPtr PackWeight(const TensorCPUPtr& gnchw, const std::shared_ptr<runtime::DeviceCPU>& device) const override;
};

// Fixed-point convolution on 16-bit C8HW8 tensors.
//
// A step size s (signed 16-bit, the "step_size" of a tensor's extra record and
// the step sizes of InferenceParamConv2DQuant) is the base-2 exponent of the
// quantisation step: a stored integer q stands for q * 2^s, so s = -10 means
// ten fraction bits. The layer's parameter record gives the weight's step
// ("weight_step_size") and the output's ("output_step_size"); the input
// carries its own in its shape's extra record.
//
// Config quantises the weight once to its step (round to nearest, ties to
// even, saturated to [-32767, 32767]: the symmetric range keeps every pair
// product sum of the 16-bit multiply-add below 2^31) and the bias to the
// output's step (saturated to [-32768, 32767]). Forward sums exact int32
// products of input and weight, whose fraction bits are those of the input
// plus those of the weight; the sum carries
//   shift = output_step - input_step - weight_step
// fraction bits more than the output, and the step is instantiated for this
// shift, which must be 8 to 12 (an input whose step gives another shift is
// refused). The result is bias + floor((sum + 2^(shift-1)) / 2^shift)
// (rounded to nearest, ties up), saturated to 16 bits: the sum is kept exact
// for any channel count the record can hold, nothing wraps.
class Int16Conv2DBase : public FixedConv2DBase {
 public:
  static constexpr int kMinShift = 8, kMaxShift = 12;

  // -1 also for a parameter record that is not an InferenceParamConv2DQuant.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  // Reads the step sizes, then packs the weight and quantises the bias.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  // The output carries the output step size in its extra record.
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // Also refuses an input whose step size gives a shift outside 8..12.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;

  std::int16_t weight_step() const { return weight_step_; }
  std::int16_t output_step() const { return output_step_; }
  // The shift of a pass over an input of step `input_step`.
  int ShiftFor(std::int16_t input_step) const { return int(output_step_) - int(input_step) - int(weight_step_); }

 protected:
  Int16Conv2DBase()
      : FixedConv2DBase({runtime::TensorShape::C8HW8, 8, runtime::TensorShape::INT16, 0},
                        {runtime::TensorShape::C8HW8, 8, runtime::TensorShape::INT16, 0}, Geometry::Fixed(1, 1, 1, 1),
                        WeightOrder::kCustom, false) {}
  // The weight as 16-bit tiles (output block, input block) of 64 values: for
  // each pair p of input lanes (2p, 2p + 1) and output lane o, the two weights
  // w[o][2p], w[o][2p + 1] side by side, so one 128-bit vector holds the pairs
  // of four outputs for one multiply-add of pairs.
  TensorCPUPtr PackWeight(const TensorCPUPtr& gnchw, const std::shared_ptr<runtime::DeviceCPU>& device) const override;

 private:
  std::int16_t weight_step_ = 0, output_step_ = 0;
};

// Fixed-point helpers shared by the 16-bit member and the quantisation
// converters (baseline code; the vector converters compute the same values).
// x * 2^-step rounded to nearest (ties to even) and saturated to [lo, hi]; a
// NaN becomes 0.
std::int16_t QuantizeToStep(float x, int step, int lo = -32768, int hi = 32767);
// The float 2^step (0 or infinity beyond the float range).
float StepScale(int step);

}  // namespace kernel
}  // namespace tarn

// A fixed-geometry member class: its key function (the destructor) is defined
// in baseline code beside the other members', its Forward in its family's.
#define TRN_FIXED_CONV_MEMBER(cls, base, ...) \
  class cls : public base {                   \
   public:                                    \
    ~cls() override;                          \
    TRN_KERNEL_NAME(cls)                      \
    cls() : base(__VA_ARGS__) {}              \
    TRN_LAYER_FORWARD                         \
  };

// The Forward of a member that pads with `pad` (null: none), fills the output
// with `fill` and runs `step`.
#define TRN_DIRECT_CONV_FORWARD(cls, pad, fill, step)                                                \
  bool cls::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,                   \
                    std::vector<std::shared_ptr<runtime::Tensor>>& outputs,                        \
                    std::shared_ptr<runtime::Context> context) const {                              \
    return ForwardDirect(inputs, outputs, context, {pad, fill, step});                             \
  }
