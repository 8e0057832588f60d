// Pooling kernels: the three general portable kernels and the skeleton of the
// fixed-size SSE and AVX kernels.
#pragma once

#include "tarn/kernel/kernel_base.h"

namespace tarn {
namespace kernel {

// Max pooling with any window, stride, padding and dilation on CHW tensors.
// Windows run over the padded input (border -3.4028235e38); the ones that
// ceil_mode adds past the edge read the last row or column again.
class Pooling2D_Max_Fallback_Float_M1 : public KernelBase {
 public:
  TRN_KERNEL_NAME(Pooling2D_Max_Fallback_Float_M1)
  // A MaxPool2dInfo with non-zero kernel, stride and dilation and paddings >= 0.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One float main-memory CHW tensor [C, H, W] the window fits once padded.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

  std::uint16_t kernel_x = 1, kernel_y = 1;
  std::uint16_t padding_l = 0, padding_t = 0, padding_r = 0, padding_b = 0;
  std::uint16_t stride_x = 1, stride_y = 1;
  std::uint16_t dilation_x = 1, dilation_y = 1;
  bool ceil_mode = false;
};

// Average pooling with any window, stride and padding on CHW tensors. The
// output size always rounds down: ceil_mode is ignored.
class Pooling2D_Avg_Fallback_Float_M1 : public KernelBase {
 public:
  TRN_KERNEL_NAME(Pooling2D_Avg_Fallback_Float_M1)
  // An AvgPool2dInfo with non-zero kernel and stride and paddings >= 0.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

  std::uint16_t kernel_x = 1, kernel_y = 1;
  std::uint16_t padding_l = 0, padding_t = 0, padding_r = 0, padding_b = 0;
  std::uint16_t stride_x = 1, stride_y = 1;
  bool ceil_mode = false;
  bool count_include_pad = true;
};

class AdaptivePooling2D_Avg_Fallback_CHW_Float_M1 : public KernelBase {
 public:
  TRN_KERNEL_NAME(AdaptivePooling2D_Avg_Fallback_CHW_Float_M1)
  // An AdaptiveAvgPool2dInfo whose output_size is exactly two non-zero values.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

  std::uint16_t output_h = 1, output_w = 1;
};

// A fixed window and stride, no padding, on one layout. Records are accepted
// by kernel size and stride alone; padding, dilation and flags are not read.
class FixedPooling2DBase : public KernelBase {
 public:
  FixedPooling2DBase(bool is_max, std::uint16_t kernel, std::uint16_t stride, runtime::TensorShape::Layout layout)
      : is_max_(is_max), kernel_(kernel), stride_(stride), layout_(layout) {}
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One float main-memory tensor of the kernel's layout at least one window large.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;

 protected:
  using PoolFn = void (*)(const std::shared_ptr<runtime::TensorCPU>&, const std::shared_ptr<runtime::TensorCPU>&);
  bool ForwardPool(PoolFn fn, const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                   std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                   const std::shared_ptr<runtime::Context>& context) const;

 private:
  bool is_max_;
  std::uint16_t kernel_, stride_;
  runtime::TensorShape::Layout layout_;
};

// The destructor is declared first and defined in baseline code, so the
// vtable, GetName and the destructor of every family's class are compiled
// without family instructions: any kernel can be created and named on any
// x86-64. Only Forward runs family code.
#define TRN_FIXED_POOLING_KERNEL(cls, is_max, k, s, layout)                   \
  class cls : public FixedPooling2DBase {                                     \
   public:                                                                    \
    ~cls() override;                                                          \
    TRN_KERNEL_NAME(cls)                                                      \
    cls() : FixedPooling2DBase(is_max, k, s, runtime::TensorShape::layout) {} \
    bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, \
                 std::vector<std::shared_ptr<runtime::Tensor>>& outputs,      \
                 std::shared_ptr<runtime::Context> context) const override;   \
  };

}  // namespace kernel
}  // namespace tarn
