// What the depthwise convolutions share: one group per channel (one input
// and one output channel each), a fixed square kernel and stride, dilation 1.
// Forward is the direct pass of the convolution skeleton: pad the input with
// zeros, fill the output with the bias, then the member's step.
//
// Weights: the CHW members read the stored [C, 1, 1, K, K] weight (K * K taps
// per channel). The blocked members read it with the channel innermost, one
// vector per tap holding that tap of 4 (C4HW4) or 8 (C8HW8) consecutive
// channels: G4NCHW4 / G8NCHW8. Those orders round the group count down, so
// the weight is first padded with zero channels to whole blocks; a 6-channel
// C4HW4 layer keeps channels 4 and 5 in its second block.
//
// Compiled for baseline x86-64 (the members' destructors live here); only the
// steps run family instructions.
#pragma once

#include <cstdint>
#include <memory>

#include "kernel/cpu/fallback/conv2d/conv2d_base.h"
#include "tarn/kernel/tensor_helpers.h"

namespace tarn {
namespace kernel {

class DepthwiseConv2DKernelBase : public Conv2DKernelBase {
 protected:
  // A member of `kernel` x `kernel` taps and stride `stride` on both axes,
  // reading and writing `port`.
  DepthwiseConv2DKernelBase(Port port, std::uint32_t kernel, std::uint32_t stride);

  // Blocked members: zero channels up to whole blocks, then G4NCHW4 / G8NCHW8.
  TensorCPUPtr PackWeight(const TensorCPUPtr& gnchw, const std::shared_ptr<runtime::DeviceCPU>& device) const override;
};

// What a depthwise step reads and writes, taken from its tensors.
struct DepthwiseStepArgs {
  const float* input;  // padded input
  float* output;       // holds the bias or zero
  const float* weight;
  int planes;  // stored planes (CHW) or channel blocks, the same on both sides
  int in_h, in_w, out_h, out_w;
};

// The arguments of a depthwise step of `kernel` x `kernel` taps and stride
// `stride` on tensors of `lanes` floats per pixel (1: CHW), after checking
// them: float tensors of that layout with the same stored planes on both
// sides, the output-size rule between the padded input and the output, and a
// weight of kernel * kernel taps of `lanes` floats per plane. A failed check
// throws, naming `what`.
DepthwiseStepArgs CheckDepthwiseStep(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight,
                                     int kernel, int stride, int lanes, const char* what);

}  // namespace kernel
}  // namespace tarn

// Declares a depthwise member: its name, port (a Port factory), kernel and stride.
#define TRN_DEPTHWISE_MEMBER(cls, port, kernel, stride)                         \
  class cls : public DepthwiseConv2DKernelBase {                                \
   public:                                                                      \
    ~cls() override;                                                            \
    TRN_KERNEL_NAME(cls)                                                        \
    cls() : DepthwiseConv2DKernelBase(Port::port(), kernel, stride) {}          \
    TRN_LAYER_FORWARD                                                           \
  };

// Defines the Forward of member `cls`: pad with zeros by `pad`, fill with the
// bias by `fill`, then the step cls_Convolution.
#define TRN_DEPTHWISE_FORWARD(cls, pad, fill)                                                                   \
  bool cls::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,                                \
                    std::vector<std::shared_ptr<runtime::Tensor>>& outputs,                                     \
                    std::shared_ptr<runtime::Context> context) const {                                          \
    return ForwardDirect(inputs, outputs, context, {pad, fill, cls##_Convolution});                             \
  }

