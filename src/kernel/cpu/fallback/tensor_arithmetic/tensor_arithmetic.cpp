#include "kernel/cpu/fallback/tensor_arithmetic/tensor_arithmetic.h"

#include <algorithm>

#include "tarn/kernel/tensor_arithmetic.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

namespace {

// Which axes are reduced; false for an axis out of range.
bool ReducedMask(size_t rank, const std::vector<std::int16_t>& axes, std::vector<bool>* mask) {
  mask->assign(rank, axes.empty());
  for (std::int16_t a : axes) {
    const long axis = a < 0 ? static_cast<long>(rank) + a : a;
    if (axis < 0 || axis >= static_cast<long>(rank)) return false;
    (*mask)[axis] = true;
  }
  return true;
}

// Adds every source element into its reduced position of dst (zeroed first);
// returns the number of elements folded into each output.
size_t SumInto(const float* src, float* dst, const std::vector<std::uint32_t>& dims, const std::vector<bool>& mask) {
  const size_t rank = dims.size();
  size_t out_count = 1, folded = 1, total = 1;
  for (size_t i = 0; i < rank; ++i) {
    total *= dims[i];
    if (mask[i]) {
      folded *= dims[i];
    } else {
      out_count *= dims[i];
    }
  }
  std::fill(dst, dst + out_count, 0.0f);
  if (total == 0) return folded;
  if (rank == 0) {
    dst[0] += src[0];
    return folded;
  }
  // Output strides over the source axes, 0 on reduced ones.
  std::vector<size_t> so(rank, 0);
  size_t stride = 1;
  for (size_t i = rank; i-- > 0;) {
    if (!mask[i]) {
      so[i] = stride;
      stride *= dims[i];
    }
  }
  std::vector<std::uint32_t> coord(rank, 0);
  const std::uint32_t inner = dims[rank - 1];
  const size_t step = so[rank - 1];
  size_t o = 0;
  for (size_t done = 0; done < total; done += inner) {
    float* d = dst + o;
    for (std::uint32_t x = 0; x < inner; ++x) d[x * step] += src[x];
    src += inner;
    for (size_t axis = rank - 1; axis-- > 0;) {
      o += so[axis];
      if (++coord[axis] < dims[axis]) break;
      o -= so[axis] * coord[axis];
      coord[axis] = 0;
    }
  }
  return folded;
}

}  // namespace

bool TensorArithmeticReducedDims(const std::vector<std::uint32_t>& dims, const std::vector<std::int16_t>& axes,
                                 std::vector<std::uint32_t>* reduced) {
  std::vector<bool> mask;
  if (!ReducedMask(dims.size(), axes, &mask)) return false;
  *reduced = dims;
  for (size_t i = 0; i < dims.size(); ++i) {
    if (mask[i]) (*reduced)[i] = 1;
  }
  return true;
}

void Function_TensorTensorArithmetic_Sum_Fallback_Float_M1(const std::shared_ptr<runtime::Tensor>& src,
                                                           const std::shared_ptr<runtime::Tensor>& dst,
                                                           const std::vector<std::uint32_t>& dims,
                                                           const std::vector<std::int16_t>& axes) {
  std::vector<bool> mask;
  utility::Assert(src && dst && ReducedMask(dims.size(), axes, &mask), "Invalid axes of a tensor sum.");
  SumInto(static_cast<const float*>(src->Data()), static_cast<float*>(dst->Data()), dims, mask);
}

void Function_TensorTensorArithmetic_Mean_Fallback_Float_M1(const std::shared_ptr<runtime::Tensor>& src,
                                                            const std::shared_ptr<runtime::Tensor>& dst,
                                                            const std::vector<std::uint32_t>& dims,
                                                            const std::vector<std::int16_t>& axes) {
  std::vector<bool> mask;
  utility::Assert(src && dst && ReducedMask(dims.size(), axes, &mask), "Invalid axes of a tensor mean.");
  float* d = static_cast<float*>(dst->Data());
  const size_t folded = SumInto(static_cast<const float*>(src->Data()), d, dims, mask);
  size_t out_count = 1;
  for (size_t i = 0; i < dims.size(); ++i) {
    if (!mask[i]) out_count *= dims[i];
  }
  const float n = static_cast<float>(folded);
  for (size_t i = 0; i < out_count; ++i) d[i] = d[i] / n;
}

// ---------------------------------------------------------------------------

std::int32_t TensorArithmetic_Fallback_M1::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                        std::shared_ptr<runtime::InferenceParam>) const {
  return std::dynamic_pointer_cast<runtime::TensorArithmeticInfo>(layer) ? kValid : kInvalidParam;
}

bool TensorArithmetic_Fallback_M1::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                          std::shared_ptr<runtime::InferenceParam> param,
                                          std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (IsValidParam(layer, param) != kValid) return false;
  auto info = std::static_pointer_cast<runtime::TensorArithmeticInfo>(layer);
  if (info->arith_type == 0) {
    arith_name = "Sum";
  } else if (info->arith_type == 1) {
    arith_name = "Mean";
  } else {
    utility::Assert(false, "Invalid arithmetic type");
  }
  axes.assign(info->dim.begin(), info->dim.end());
  configured_ = true;
  return true;
}

std::vector<runtime::TensorShape> TensorArithmetic_Fallback_M1::GetOutputShapes(
    const std::vector<runtime::TensorShape>& inputs) const {
  if (inputs.empty()) return {};
  runtime::TensorShape out = inputs[0];
  if (!TensorArithmeticReducedDims(inputs[0].dims, axes, &out.dims)) return {};
  return {out};
}

std::int32_t TensorArithmetic_Fallback_M1::IsValidInput(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (CheckFloatTensors(inputs, 1) != kValid) return kInvalidTensor;
  std::vector<std::uint32_t> reduced;
  if (!TensorArithmeticReducedDims(inputs[0]->shape.dims, axes, &reduced)) return kInvalidTensor;
  if (inputs[0]->shape.ElementCount() > UINT32_MAX) return kInvalidTensor;
  return kValid;
}

bool TensorArithmetic_Fallback_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                           std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                           std::shared_ptr<runtime::Context> context) const {
  if (inputs.empty() || !context || !context->cpu || !configured_) return false;
  const auto shapes = GetOutputShapes({inputs[0]->shape});
  if (shapes.empty()) return false;
  auto out = context->cpu->CreateTensor(shapes[0], nullptr);
  const std::vector<std::uint32_t> dims(inputs[0]->shape.dims.begin(), inputs[0]->shape.dims.end());
  if (arith_name == "Sum") {
    Function_TensorTensorArithmetic_Sum_Fallback_Float_M1(inputs[0], out, dims, axes);
  } else {
    Function_TensorTensorArithmetic_Mean_Fallback_Float_M1(inputs[0], out, dims, axes);
  }
  outputs.assign(1, out);
  return true;
}

}  // namespace kernel
}  // namespace tarn
