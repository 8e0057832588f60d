// TensorSqueezeInfo: PyTorch `squeeze(dim)` as a view that shares the
// input's storage.
//
// "dim" i16: removes that dim when its extent is 1 and leaves the tensor
// unchanged otherwise; negative values count from the end; a dim outside
// [-rank, rank) is refused. Squeezing the only dim of [1] keeps [1] (the
// runtime has no rank-0 tensors).
#pragma once

#include "kernel/crossplatform/shape_common/shape_common.h"

namespace tarn {
namespace kernel {

class TensorSqueeze_Fallback_M1 : public ShapeOpBase {
 public:
  ~TensorSqueeze_Fallback_M1() override;
  TRN_KERNEL_NAME(TensorSqueeze_Fallback_M1)

 protected:
  bool Accept(const runtime::LayerInfo& layer, std::string* why) const override;
  void Keep(const runtime::LayerInfo& layer) override;
  bool Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const override;

 private:
  std::int16_t dim_ = 0;
};

}  // namespace kernel
}  // namespace tarn
