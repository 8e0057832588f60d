// TensorGetItemInfo: Python indexing x[i0, i1, ...] of the leading dims of a
// dense tensor, copied.
//
// One TensorDimemsionSamplingInfo per leading dim, in order; dims after the
// last info are taken whole. "sampling_type":
//   0  the whole dim ("data" is not read);
//   1  one index, data[0] (negative counts from the end): the dim is removed;
//   2  a range, data = (start, end, step) with Python's slice rules (32767 as
//      end means "to the end", step >= 1): the dim is kept;
//   3  an index list, data = (i0, i1, ...) (negative counts from the end):
//      the dim is kept and gathered in list order (repeats allowed).
// More infos than input dims, an unknown type, a data list of the wrong
// length, an index outside the dim and a range that selects nothing are
// refused. Removing every dim gives [1] (the runtime has no rank-0 tensors).
#pragma once

#include "kernel/crossplatform/shape_common/shape_common.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

class TensorGetItem_Fallback_M1 : public ShapeOpBase {
 public:
  ~TensorGetItem_Fallback_M1() override;
  TRN_KERNEL_NAME(TensorGetItem_Fallback_M1)

 protected:
  bool Accept(const runtime::LayerInfo& layer, std::string* why) const override;
  void Keep(const runtime::LayerInfo& layer) override;
  bool Plan(const runtime::TensorShape& input, ShapePlan* plan, std::string* why) const override;

 private:
  struct Sampling {
    std::uint16_t type;
    std::vector<short> data;
  };
  std::vector<Sampling> samplings_;
};

}  // namespace kernel
}  // namespace tarn
