// TensorSliceInfo: Python slicing of some dims of a dense tensor, copied.
//
// "slice_dims" i16[]: groups of four (dim, start, end, step), one group per
// sliced dim. dim counts from the end when negative; start and end follow
// Python's rules (negative values count from the end, both are clamped to
// the extent, 32767 as end means "to the end"); step must be >= 1. A list
// whose length is not a positive multiple of four, a step below 1, a dim
// outside the input or named twice, and a range that selects nothing (a
// slice past the end) are refused.
#pragma once

#include "kernel/crossplatform/shape_common/shape_common.h"

namespace tarn {
namespace kernel {

class TensorSlice_Fallback_M1 : public ShapeOpBase {
 public:
  ~TensorSlice_Fallback_M1() override;
  TRN_KERNEL_NAME(TensorSlice_Fallback_M1)

 protected:
  bool Accept(const runtime::LayerInfo& layer, std::string* why) const override;
  void Keep(const runtime::LayerInfo& layer) override;
  bool Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const override;

 private:
  std::vector<short> slice_dims_;
};

}  // namespace kernel
}  // namespace tarn
