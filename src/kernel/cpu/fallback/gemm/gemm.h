// GemmInfo: ONNX Gemm (PyTorch `alpha * op(A) @ op(B) + beta * C`) on 2-D
// float tensors, inputs A, B and an optional C in the layer's input order.
//
// "trans_a", "trans_b" bool: op(A) = A^T when set (A stored K x M), op(B) =
// B^T (B stored N x K); "alpha", "beta" f32. op(A) is M x K and op(B) K x N;
// Y is M x N. C broadcasts to M x N from the right (shapes [1], [N], [1, N],
// [M, 1], [M, N], ...); without C, beta is not read. A constant B is mapped to
// a FullConnection layer by the converter instead.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kernel/crossplatform/shape_common/shape_common.h"
#include "tarn/kernel/shape.h"

namespace tarn {
namespace kernel {

class GemmKernelBase : public PlannedKernelBase {
 public:
  // Y = alpha * op(A) op(B) + beta * Y (beta 0: Y is only written).
  using GemmFn = void (*)(bool trans_a, bool trans_b, int M, int N, int K, float alpha, const float* A,
                          const float* B, float beta, float* Y);
  explicit GemmKernelBase(GemmFn fn) : fn_(fn) {}
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

 protected:
  // Two or three float matrices of matching shapes (C broadcastable).
  bool OutputShape(const std::vector<runtime::TensorShape>& inputs, runtime::TensorShape* output,
                   std::string* why) const override;

 private:
  struct Sizes {
    int m = 0, n = 0, k = 0;
  };
  bool Plan(const std::vector<runtime::TensorShape>& inputs, Sizes* sizes, std::string* why) const;
  GemmFn fn_;
  bool trans_a_ = false, trans_b_ = false;
  float alpha_ = 1.0f, beta_ = 1.0f;
};

#define TRN_GEMM_KERNEL(cls, fn)       \
  class cls : public GemmKernelBase {  \
   public:                             \
    ~cls() override;                   \
    TRN_KERNEL_NAME(cls)               \
    cls() : GemmKernelBase(fn) {}      \
  };

// The portable reference: products summed in K order in float.
TRN_GEMM_KERNEL(Gemm_Fallback_Float_M1, functional::gemm_f32)

}  // namespace kernel
}  // namespace tarn
