// TensorTransposeInfo: PyTorch `permute(axes)` of a dense tensor.
//
// "axes" u16[]: a permutation of the input dims; output dim i is input dim
// axes[i]. A list that is not a permutation of 0 .. n-1, or whose length is
// not the input's rank, is refused. A permutation that only moves dims of
// extent 1 leaves the elements in place: the output is then a view sharing
// the input's storage; any other permutation copies.
#pragma once

#include "kernel/crossplatform/shape_common/shape_common.h"

namespace tarn {
namespace kernel {

class TensorTranspose_Fallback_M1 : public ShapeOpBase {
 public:
  ~TensorTranspose_Fallback_M1() override;
  TRN_KERNEL_NAME(TensorTranspose_Fallback_M1)

 protected:
  bool Accept(const runtime::LayerInfo& layer, std::string* why) const override;
  void Keep(const runtime::LayerInfo& layer) override;
  bool Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const override;

 private:
  std::vector<unsigned short> axes_;
};

}  // namespace kernel
}  // namespace tarn
