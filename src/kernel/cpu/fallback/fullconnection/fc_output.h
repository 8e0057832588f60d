// The first step of every fully connected routine, shared by the families'
// routine files (baseline code).
#pragma once

#include <cstddef>

namespace tarn {
namespace kernel {
namespace detail {

// output[0 .. count) = bias, or zero when bias is null.
void InitFcOutput(const float* bias, float* output, std::size_t count);

}  // namespace detail
}  // namespace kernel
}  // namespace tarn
