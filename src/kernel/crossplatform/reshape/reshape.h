// TensorReshapeInfo: PyTorch `reshape` (ONNX Reshape without allowzero) of a
// dense tensor, as a view that shares the input's storage.
//
// "new_shape" i16[]: the output dims. -1 (at most one entry) takes the extent
// that keeps the element count; 0 copies the input dim at the same index
// (an input of lower rank than that index is refused); other negative values
// are refused. An empty "new_shape" gives [1] for a one-element input (the
// runtime has no rank-0 tensors). The element count must not change.
#pragma once

#include "kernel/crossplatform/shape_common/shape_common.h"

namespace tarn {
namespace kernel {

class TensorReshape_Fallback_M1 : public ShapeOpBase {
 public:
  ~TensorReshape_Fallback_M1() override;
  TRN_KERNEL_NAME(TensorReshape_Fallback_M1)

 protected:
  bool Accept(const runtime::LayerInfo& layer, std::string* why) const override;
  void Keep(const runtime::LayerInfo& layer) override;
  bool Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const override;

 private:
  std::vector<short> new_shape_;
};

}  // namespace kernel
}  // namespace tarn
