// Sum and mean over listed axes. Reduced axes stay in the result as dims of 1.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tarn/runtime/tensor.h"

namespace tarn {
namespace kernel {

// The reduced dims of `dims` over `axes` (negative axes count from the end; an
// empty list reduces every axis, as PyTorch's sum and mean do). False when an
// axis lies outside [-rank, rank).
bool TensorArithmeticReducedDims(const std::vector<std::uint32_t>& dims, const std::vector<std::int16_t>& axes,
                                 std::vector<std::uint32_t>* reduced);

// dst (holding the reduced dims) = the sum of src over `axes`; `dims` are the
// source dims. Elements are added in source order in single precision.
void Function_TensorTensorArithmetic_Sum_Fallback_Float_M1(const std::shared_ptr<runtime::Tensor>& src,
                                                           const std::shared_ptr<runtime::Tensor>& dst,
                                                           const std::vector<std::uint32_t>& dims,
                                                           const std::vector<std::int16_t>& axes);
// The sum divided by the number of elements reduced (the product of the
// reduced dims; 0 / 0 when one of them is empty).
void Function_TensorTensorArithmetic_Mean_Fallback_Float_M1(const std::shared_ptr<runtime::Tensor>& src,
                                                            const std::shared_ptr<runtime::Tensor>& dst,
                                                            const std::vector<std::uint32_t>& dims,
                                                            const std::vector<std::int16_t>& axes);

}  // namespace kernel
}  // namespace tarn
