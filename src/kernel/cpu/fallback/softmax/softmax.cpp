#include "kernel/cpu/fallback/softmax/softmax.h"

#include <cmath>
#include <cstdio>
#include <limits>

#include "kernel/cpu/avx/softmax/softmax.h"
#include "kernel/cpu/fallback/resampling_common/resampling_common.h"
#include "kernel/cpu/sse/softmax/softmax.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

namespace functional {

void softmax_f32(const float* src, std::size_t outer, std::size_t dim, std::size_t inner, float* dst) {
  const std::size_t block = dim * inner;
  for (std::size_t o = 0; o < outer; ++o, src += block, dst += block) {
    for (std::size_t i = 0; i < inner; ++i) {
      float m = -std::numeric_limits<float>::infinity();
      for (std::size_t d = 0; d < dim; ++d) m = src[d * inner + i] > m ? src[d * inner + i] : m;
      float sum = 0.0f;
      for (std::size_t d = 0; d < dim; ++d) {
        const float e = std::exp(src[d * inner + i] - m);
        dst[d * inner + i] = e;
        sum += e;
      }
      for (std::size_t d = 0; d < dim; ++d) dst[d * inner + i] = dst[d * inner + i] / sum;
    }
  }
}

}  // namespace functional

std::int32_t SoftmaxKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                             std::shared_ptr<runtime::InferenceParam>) const {
  return std::dynamic_pointer_cast<runtime::SoftmaxInfo>(layer) ? kValid : kInvalidParam;
}

bool SoftmaxKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam>,
                               std::shared_ptr<runtime::Context>) {
  configured_ = false;
  auto r = std::dynamic_pointer_cast<runtime::SoftmaxInfo>(layer);
  if (!r) return RefuseRecord(*this, "the record is not a SoftmaxInfo");
  dim_ = r->dim;
  configured_ = true;
  return true;
}

const char* SoftmaxKernelBase::Problem(const std::vector<runtime::TensorShape>& in, runtime::TensorShape* out) const {
  const runtime::TensorShape& s = in[0];
  *out = s;
  if (LayoutLanes(s.layout) > 1) return "the input is blocked; softmax reads plain tensors";
  if (dim_ >= s.dims.size()) {
    static thread_local char why[96];
    std::snprintf(why, sizeof(why), "\"dim\" is not below the input's rank (dim %u, rank %zu)", dim_, s.dims.size());
    return why;
  }
  return nullptr;
}

bool SoftmaxKernelBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                std::shared_ptr<runtime::Context> context) const {
  auto out = Prepare(inputs, context);
  if (!out) return false;
  const auto& d = inputs[0]->shape.dims;
  fn_(static_cast<const float*>(inputs[0]->Data()), DimsProduct(d, 0, dim_), d[dim_], DimsProduct(d, dim_ + 1, d.size()),
      out->DataAs<float>());
  outputs.assign(1, out);
  return true;
}

// Baseline-compiled destructors of every member, whatever its family.
Softmax_Fallback_Float_M1::~Softmax_Fallback_Float_M1() = default;
Softmax_SSE_Float_M1::~Softmax_SSE_Float_M1() = default;
Softmax_AVX_Float_M1::~Softmax_AVX_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
