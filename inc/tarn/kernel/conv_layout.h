// Activation layouts of the convolution-like kernels and the size arithmetic
// they all share.
//
//   CHW    element (c, y, x) at (c * H + y) * W + x
//   C4HW4  element (c, y, x) at (((c / 4) * H + y) * W + x) * 4 + c % 4
//   C8HW8  element (c, y, x) at (((c / 8) * H + y) * W + x) * 8 + c % 8
//   CL     element (c, l) at c * L + l
//
// Blocked tensors store ceil(C / lanes) blocks; the lanes of the last block
// beyond the last channel are zero, and every kernel keeps them zero.
#pragma once

#include <cstdint>

namespace tarn {
namespace kernel {

// Stored blocks for `channels` real channels.
constexpr std::uint32_t ChannelBlocks(std::uint32_t channels, std::uint32_t lanes) {
  return (channels + lanes - 1) / lanes;
}

// Output extent along one axis of a convolution over an already padded input:
// (padded - dilation * (kernel - 1) - 1) / stride + 1. Returns -1 when the
// kernel does not fit (or stride, kernel or dilation is zero).
constexpr std::int64_t ConvOutputSize(std::int64_t padded, std::int64_t kernel, std::int64_t stride,
                                      std::int64_t dilation) {
  return (kernel <= 0 || stride <= 0 || dilation <= 0 || padded < dilation * (kernel - 1) + 1)
             ? -1
             : (padded - dilation * (kernel - 1) - 1) / stride + 1;
}

}  // namespace kernel
}  // namespace tarn
