#include "kernel/cpu/fallback/gemm/gemm.h"

#include <climits>
#include <cstring>

#include "kernel/cpu/sgemm/gemm/gemm.h"
#include "kernel/crossplatform/shape_common/shape_common.h"
#include "tarn/kernel/shape.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

namespace functional {

void gemm_f32(bool trans_a, bool trans_b, int M, int N, int K, float alpha, const float* A, const float* B, float beta,
              float* Y) {
  const std::size_t m_step_a = trans_a ? 1 : K, k_step_a = trans_a ? M : 1;
  const std::size_t k_step_b = trans_b ? 1 : N, n_step_b = trans_b ? K : 1;
  for (int m = 0; m < M; ++m) {
    for (int n = 0; n < N; ++n) {
      float sum = 0.0f;
      for (int k = 0; k < K; ++k) sum += A[m * m_step_a + k * k_step_a] * B[k * k_step_b + n * n_step_b];
      float& y = Y[std::size_t(m) * N + n];
      y = beta == 0.0f ? alpha * sum : alpha * sum + beta * y;
    }
  }
}

}  // namespace functional

std::int32_t GemmKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                          std::shared_ptr<runtime::InferenceParam>) const {
  return std::dynamic_pointer_cast<runtime::GemmInfo>(layer) ? kValid : kInvalidParam;
}

bool GemmKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
                            std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (IsValidParam(layer, param) != kValid) {
    utility::Log(utility::kLogError, "%s needs a GemmInfo record.", GetName().c_str());
    return false;
  }
  const auto& info = static_cast<const runtime::GemmInfo&>(*layer);
  trans_a_ = info.trans_a, trans_b_ = info.trans_b, alpha_ = info.alpha, beta_ = info.beta;
  configured_ = true;
  return true;
}

bool GemmKernelBase::Plan(const std::vector<TensorShape>& inputs, Sizes* sizes, std::string* why) const {
  if (!configured_) {
    *why = "the kernel is not configured";
    return false;
  }
  if (inputs.size() != 2 && inputs.size() != 3) {
    *why = "it takes A, B and an optional C, not " + std::to_string(inputs.size()) + " inputs";
    return false;
  }
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    const TensorShape& s = inputs[i];
    std::uint64_t count = 0;
    if (s.data_type != TensorShape::FLOAT32 || s.location != TensorShape::MainMemory || shape::IsBlocked(s.layout) ||
        s.dims.empty() || s.dims.size() > 2 || (i < 2 && s.dims.size() != 2) || !shape::CheckedCount(s.dims, &count) ||
        count == 0) {
      *why = "input " + std::to_string(i) + " " + shape::DimsText(s.dims) +
             " is not a non-empty dense float matrix in main memory";
      return false;
    }
  }
  const auto& a = inputs[0].dims;
  const auto& b = inputs[1].dims;
  const std::uint64_t m = trans_a_ ? a[1] : a[0], k = trans_a_ ? a[0] : a[1];
  const std::uint64_t kb = trans_b_ ? b[1] : b[0], n = trans_b_ ? b[0] : b[1];
  if (k != kb) {
    *why = "op(A) of " + shape::DimsText(a) + " and op(B) of " + shape::DimsText(b) + " do not share K";
    return false;
  }
  std::uint64_t count = 0;
  if (m > INT_MAX || n > INT_MAX || k > INT_MAX || !shape::CheckedCount(std::vector<std::uint64_t>{m, n}, &count)) {
    *why = "the product would be too large";
    return false;
  }
  if (inputs.size() == 3) {
    // C broadcasts from the right: [n], [m, n], and 1 anywhere.
    const auto& c = inputs[2].dims;
    const std::uint64_t cn = c.back(), cm = c.size() == 2 ? c[0] : 1;
    if ((cn != 1 && cn != n) || (cm != 1 && cm != m)) {
      *why = "C " + shape::DimsText(c) + " does not broadcast to [" + std::to_string(m) + ", " + std::to_string(n) + "]";
      return false;
    }
  }
  sizes->m = static_cast<int>(m), sizes->n = static_cast<int>(n), sizes->k = static_cast<int>(k);
  return true;
}

bool GemmKernelBase::OutputShape(const std::vector<TensorShape>& inputs, TensorShape* output, std::string* why) const {
  Sizes s;
  if (!Plan(inputs, &s, why)) return false;
  *output = inputs[0];
  output->dims = {static_cast<unsigned>(s.m), static_cast<unsigned>(s.n)};
  return true;
}

bool GemmKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                             std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                             std::shared_ptr<runtime::Context> context) const {
  auto out = Prepare(inputs, context);
  if (!out) return false;
  const std::vector<TensorShape> shapes = shape::ShapesOf(inputs);
  Sizes s;
  std::string why;
  Plan(shapes, &s, &why);
  float* y = out->DataAs<float>();
  float beta = 0.0f;
  if (inputs.size() == 3) {
    // Y starts as C broadcast to M x N; the product then scales it by beta.
    const auto& c = inputs[2]->shape.dims;
    const float* cv = static_cast<const float*>(inputs[2]->Data());
    const bool row_of_c = c.back() != 1, col_of_c = c.size() == 2 && c[0] != 1;
    for (int m = 0; m < s.m; ++m) {
      for (int n = 0; n < s.n; ++n) {
        y[std::size_t(m) * s.n + n] = cv[(col_of_c ? std::size_t(m) * (row_of_c ? s.n : 1) : 0) + (row_of_c ? n : 0)];
      }
    }
    beta = beta_;
  }
  fn_(trans_a_, trans_b_, s.m, s.n, s.k, alpha_, static_cast<const float*>(inputs[0]->Data()),
      static_cast<const float*>(inputs[1]->Data()), beta, y);
  outputs.assign(1, out);
  return true;
}

// Baseline-compiled destructors (and so vtables and names) of both Gemm kernels.
Gemm_Fallback_Float_M1::~Gemm_Fallback_Float_M1() = default;
Gemm_SGEMM_Float_M1::~Gemm_SGEMM_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
