// What the specialised convolution members (fixed kernel, stride and
// dilation, one group) add to the base: the class pattern every member
// follows and the weight orders their own steps read, packed once in Config.
// Baseline code, like the base.
#pragma once

#include <cstdint>

#include "kernel/cpu/fallback/conv2d/conv2d_base.h"
#include "tarn/kernel/packing.h"

namespace tarn {
namespace kernel {

// A one-group GNCHW weight [1, N, C, KY, KX] as
// {ceil(N / n_lanes), ceil(C / c_lanes), KY, KX, c_lanes, n_lanes}: per block
// of n_lanes output channels, input block, kernel row, column and input lane,
// the n_lanes weights of that input channel. Lanes beyond N and C are zero.
// (8, 8) is GN8C8HW8c8n; (8, 1) and (4, 1) read a CHW input one channel at a
// time; (6, 1) is the order of the plane steps.
TensorCPUPtr PackConvTiles(const TensorCPUPtr& gnchw, std::uint32_t n_lanes, std::uint32_t c_lanes,
                           const DeviceCPUPtr& device);
// A one-group GNCHW weight as {N, ceil(C / c_lanes), KY, KX, 8}: per output
// channel, input block and tap, the c_lanes weights of the block's channels
// repeated 8 / c_lanes times (c_lanes 4 or 8), so one 8-float register meets
// 8 / c_lanes pixels of a blocked input at once. Lanes beyond C are zero.
TensorCPUPtr PackDotRows(const TensorCPUPtr& gnchw, std::uint32_t c_lanes, const DeviceCPUPtr& device);

}  // namespace kernel
}  // namespace tarn

// A specialised member `cls`: the base with its input and output ports, its
// geometry and weight order; the class declares Forward and whatever follows
// (a PackWeight or IsValidParam of its own). Its destructor, the key function,
// is defined in baseline code.
#define TRN_CONV2D_MEMBER(cls, input, output, geometry, order, ...)         \
  class cls : public Conv2DKernelBase {                                     \
   public:                                                                  \
    ~cls() override;                                                        \
    TRN_KERNEL_NAME(cls)                                                    \
    cls() : Conv2DKernelBase(input, output, false, geometry, order) {}      \
    TRN_LAYER_FORWARD                                                       \
    __VA_ARGS__                                                             \
  };

// The declaration of a member's own weight packing.
#define TRN_CONV2D_PACKS_WEIGHT                                                                         \
  TensorCPUPtr PackWeight(const TensorCPUPtr& gnchw, const std::shared_ptr<runtime::DeviceCPU>& device) \
      const override;

// The Forward of a member made of the base's direct pass (pad, fill, step)
// or writing pass (pad, a step that writes the output and adds the bias).
#define TRN_CONV2D_DIRECT_FORWARD(cls, pad, fill, step)                                                         \
  bool cls::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,                               \
                    std::vector<std::shared_ptr<runtime::Tensor>>& outputs,                                    \
                    std::shared_ptr<runtime::Context> context) const {                                         \
    return ForwardDirect(inputs, outputs, context, {pad, fill, step});                                          \
  }
#define TRN_CONV2D_WRITING_FORWARD(cls, pad, step)                                                              \
  bool cls::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,                               \
                    std::vector<std::shared_ptr<runtime::Tensor>>& outputs,                                    \
                    std::shared_ptr<runtime::Context> context) const {                                         \
    return ForwardWriting(inputs, outputs, context, {pad, step});                                               \
  }
