// Pooling kernels: the general portable kernels and the skeleton of the
// fixed-size SSE and AVX kernels.
#pragma once

#include "tarn/kernel/kernel_base.h"
#include "tarn/kernel/pooling.h"

namespace tarn {
namespace kernel {

// The border and starting value of max pooling, the most negative finite
// float, so that a window of padding alone yields it rather than -inf.
constexpr float kMaxPoolingFill = -3.4028235e38f;

// Pooling with any window, stride and padding on CHW tensors [C, H, W]: every
// plane is padded with the kernel's fill value and its windows are folded by
// PoolPlane.
class WindowPooling2DBase : public KernelBase {
 public:
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One float main-memory CHW tensor [C, H, W] the window fits once padded.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

  std::uint16_t kernel_x = 1, kernel_y = 1;
  std::uint16_t padding_l = 0, padding_t = 0, padding_r = 0, padding_b = 0;
  std::uint16_t stride_x = 1, stride_y = 1;
  bool ceil_mode = false;

 protected:
  explicit WindowPooling2DBase(float fill) : fill_(fill) {}
  // The output extent along x (or y) for an input extent `in`; false when the window does not fit.
  virtual bool OutputExtent(bool x, std::uint32_t in, std::uint32_t* out) const = 0;
  // Folds the windows of one padded plane [hp, wp] into the plane out [oh, ow].
  virtual void PoolPlane(const float* plane, std::uint32_t hp, std::uint32_t wp, std::uint32_t oh, std::uint32_t ow,
                         float* out) const = 0;

 private:
  float fill_;
};

// Max pooling, with dilation. The border is -3.4028235e38; the windows that
// ceil_mode adds past the edge read the last row or column again.
class Pooling2D_Max_Fallback_Float_M1 : public WindowPooling2DBase {
 public:
  TRN_KERNEL_NAME(Pooling2D_Max_Fallback_Float_M1)
  Pooling2D_Max_Fallback_Float_M1();
  // A MaxPool2dInfo with non-zero kernel, stride and dilation and paddings >= 0.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;

  std::uint16_t dilation_x = 1, dilation_y = 1;

 protected:
  bool OutputExtent(bool x, std::uint32_t in, std::uint32_t* out) const override;
  void PoolPlane(const float* plane, std::uint32_t hp, std::uint32_t wp, std::uint32_t oh, std::uint32_t ow,
                 float* out) const override;
};

// Average pooling. The output size always rounds down: ceil_mode is ignored.
class Pooling2D_Avg_Fallback_Float_M1 : public WindowPooling2DBase {
 public:
  TRN_KERNEL_NAME(Pooling2D_Avg_Fallback_Float_M1)
  Pooling2D_Avg_Fallback_Float_M1() : WindowPooling2DBase(0.0f) {}
  // An AvgPool2dInfo with non-zero kernel and stride and paddings >= 0.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;

  bool count_include_pad = true;

 protected:
  bool OutputExtent(bool x, std::uint32_t in, std::uint32_t* out) const override;
  void PoolPlane(const float* plane, std::uint32_t hp, std::uint32_t wp, std::uint32_t oh, std::uint32_t ow,
                 float* out) const override;
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

// A fixed window and stride, no padding, on one layout, computed by the
// pooling function the kernel class hands over. Records are accepted by kernel
// size and stride alone; padding, dilation and flags are not read.
class FixedPooling2DBase : public KernelBase {
 public:
  using PoolFn = void (*)(const functional::TensorCPUPtr&, const functional::TensorCPUPtr&);
  FixedPooling2DBase(bool is_max, std::uint16_t kernel, std::uint16_t stride, runtime::TensorShape::Layout layout,
                     PoolFn fn)
      : is_max_(is_max), kernel_(kernel), stride_(stride), layout_(layout), fn_(fn) {}
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One float main-memory tensor of the kernel's layout at least one window large.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

 private:
  bool is_max_;
  std::uint16_t kernel_, stride_;
  runtime::TensorShape::Layout layout_;
  PoolFn fn_;
};

// The sizes a fixed-size pooling function works with, after asserting that
// input and output are [planes, H, W] (lanes 1) or [blocks, H, W, lanes] tensors
// of the same plane count and that the output holds (in - k) / s + 1 windows
// per axis.
struct FixedPoolingGeometry {
  std::uint32_t planes, in_plane, out_plane, w, oh, ow;
};
FixedPoolingGeometry CheckFixedPooling(const functional::TensorCPUPtr& input, const functional::TensorCPUPtr& output,
                                       unsigned lanes, unsigned k, unsigned s);

// The destructor is declared first and defined in baseline code, so the
// vtable, GetName, Forward and the destructor of every family's class are
// compiled without family instructions: any kernel can be created and named
// on any x86-64. Family code runs only inside the function handed to the base.
#define TRN_FIXED_POOLING_KERNEL(cls, is_max, k, s, layout, fn)                               \
  class cls : public FixedPooling2DBase {                                                     \
   public:                                                                                    \
    ~cls() override;                                                                          \
    TRN_KERNEL_NAME(cls)                                                                      \
    cls() : FixedPooling2DBase(is_max, k, s, runtime::TensorShape::layout, functional::fn) {} \
  };

}  // namespace kernel
}  // namespace tarn
