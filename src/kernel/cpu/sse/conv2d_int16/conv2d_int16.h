// The SSE 16-bit fixed-point 1x1 convolution on C8HW8 (stride 1, no padding):
// the step sizes, the rounding and the saturation are those of
// Int16Conv2DBase (conv2d_fixed_base.h).
#pragma once

#include "kernel/cpu/fallback/conv2d/conv2d_fixed_base.h"

namespace tarn {
namespace kernel {

// Accumulates bias + round(sum / 2^kShift), saturated, onto the output, where
// sum is the exact sum of the 16-bit input times the 16-bit weight over the
// input channels and kShift (8 to 12) the fraction bits it carries beyond the
// output's. One pixel of eight channels is one vector; per pair of input lanes
// one 16-bit multiply-add of pairs gives four outputs' int32 partial sums.
// Each partial sum is added to a wrapping int32 sum and, shifted right by 16,
// to a second one counting its upper half; the two give back the exact sum
// (up to 2^16 terms) and nothing wraps unnoticed. Register tile: one output
// block by two pixels, every input block, the plane swept as one row.
template <int kShift>
void Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1_Convolution(const TensorCPUPtr& input, const TensorCPUPtr& output,
                                                             const TensorCPUPtr& weight);

// Forward takes the shift from the input's step size and the layer's steps
// and runs that instantiation; the output carries the output step size.
class Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1 : public Int16Conv2DBase {
 public:
  ~Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1() override;
  TRN_KERNEL_NAME(Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1)
  TRN_LAYER_FORWARD
};

}  // namespace kernel
}  // namespace tarn
