// TensorUnSqueezeInfo: PyTorch `unsqueeze(dim)` as a view that shares the
// input's storage.
//
// "dim" i16: a dim of extent 1 is inserted before index dim; negative values
// count from the end as dim + rank + 1; a dim outside [-rank - 1, rank] is
// refused. The record carries the type code of TensorSqueezeInfo: its class,
// not its code, selects this kernel.
#pragma once

#include "kernel/crossplatform/shape_common/shape_common.h"

namespace tarn {
namespace kernel {

class TensorUnSqueeze_Fallback_M1 : public ShapeOpBase {
 public:
  ~TensorUnSqueeze_Fallback_M1() override;
  TRN_KERNEL_NAME(TensorUnSqueeze_Fallback_M1)

 protected:
  bool Accept(const runtime::LayerInfo& layer, std::string* why) const override;
  void Keep(const runtime::LayerInfo& layer) override;
  bool Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const override;

 private:
  std::int16_t dim_ = 0;
};

}  // namespace kernel
}  // namespace tarn
