// TensorExpandInfo: PyTorch `expand(new_shape)`, materialised (the runtime
// has no stride-0 tensors, so the broadcast copies).
//
// "new_shape" i16[]: the output dims, aligned with the input's from the end.
// -1 keeps the input's extent; an input extent of 1 may grow to any extent;
// any other extent must stay as it is. Leading entries beyond the input's
// rank add new dims and must be positive. A new_shape shorter than the
// input's rank, or one that is not a broadcast of it, is refused.
#pragma once

#include "kernel/crossplatform/shape_common/shape_common.h"

namespace tarn {
namespace kernel {

class TensorExpand_Fallback_M1 : public ShapeOpBase {
 public:
  ~TensorExpand_Fallback_M1() override;
  TRN_KERNEL_NAME(TensorExpand_Fallback_M1)

 protected:
  bool Accept(const runtime::LayerInfo& layer, std::string* why) const override;
  void Keep(const runtime::LayerInfo& layer) override;
  bool Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const override;

 private:
  std::vector<short> new_shape_;
};

}  // namespace kernel
}  // namespace tarn
