// SpaceToDepthInfo: ONNX `SpaceToDepth` of a CHW tensor: [C, H, W] becomes
// [C * b * b, H / b, W / b] with block-major output channels:
// out[(by * b + bx) * C + c][y][x] = in[c][y * b + by][x * b + bx]
// (PyTorch's pixel_unshuffle orders them c * b * b + by * b + bx instead; the
// converter maps that by a following channel permutation).
//
// "scale_factor" f32: b, a whole number >= 1; any other value is refused,
// and so is an input whose height or width b does not divide.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kernel/crossplatform/shape_common/shape_common.h"

namespace tarn {
namespace kernel {

class SpaceToDepth_Fallback_CHW_Float_M1 : public PlannedKernelBase {
 public:
  ~SpaceToDepth_Fallback_CHW_Float_M1() override;
  TRN_KERNEL_NAME(SpaceToDepth_Fallback_CHW_Float_M1)
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

 protected:
  // One float CHW tensor whose height and width b divides.
  bool OutputShape(const std::vector<runtime::TensorShape>& inputs, runtime::TensorShape* output,
                   std::string* why) const override;

 private:
  std::uint32_t b_ = 0;
};

}  // namespace kernel
}  // namespace tarn
