// Convolution steps over tensors built from the direct templates: they read
// the sizes off the (padded) input, the output and the packed weight and run
// one instantiation. Include only from translation units of the SSE family.
#pragma once

#include <memory>

#include "kernel/cpu/sse/conv_direct/conv_direct.h"
#include "tarn/runtime/tensor.h"

namespace tarn {
namespace kernel {
namespace sse_conv {

using TensorCPUPtr = std::shared_ptr<runtime::TensorCPU>;

// Blocked input [B, H, W, L] and output [B', OH, OW, L]. With `flat` (a 1x1
// stride-1 pass over an unpadded input) each plane is one long row, so the
// tiles never stop at a row end.
template <typename Conv, int OB, int PX, Order O>
void BlockedStep(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight, bool flat) {
  constexpr int L = Conv::V * 4;
  const auto& in = input->shape.dims;
  const auto& out = output->shape.dims;
  BlockedArgs a;
  a.src = input->DataAs<float>();
  a.srcBlocks = static_cast<int>(in[0]);
  a.srcRow = ptrdiff_t(in[2]) * L;
  a.srcPlane = a.srcRow * in[1];
  a.weight = weight->DataAs<float>();
  a.dst = output->DataAs<float>();
  a.dstBlocks = static_cast<int>(out[0]);
  a.dstH = static_cast<int>(out[1]);
  a.dstW = static_cast<int>(out[2]);
  a.dstRow = ptrdiff_t(out[2]) * L;
  a.dstPlane = a.dstRow * out[1];
  if (flat) {
    a.dstW *= a.dstH;
    a.dstH = 1;
    a.dstRow = a.dstPlane;
    a.srcRow = a.srcPlane;
  }
  Conv::template Run<OB, PX, O>(a);
}

// CHW input [C, H, W] and output [N, OH, OW]; `flat` as above.
template <typename Conv, int ROWS, int PV>
void ChwStep(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight, bool flat) {
  const auto& in = input->shape.dims;
  const auto& out = output->shape.dims;
  ChwArgs a;
  a.src = input->DataAs<float>();
  a.channels = static_cast<int>(in[0]);
  a.srcRow = in[2];
  a.srcPlane = ptrdiff_t(in[2]) * in[1];
  a.weight = weight->DataAs<float>();
  a.dst = output->DataAs<float>();
  a.outChannels = static_cast<int>(out[0]);
  a.dstH = static_cast<int>(out[1]);
  a.dstW = static_cast<int>(out[2]);
  a.dstRow = out[2];
  a.dstPlane = ptrdiff_t(out[2]) * out[1];
  if (flat) {
    a.dstW *= a.dstH;
    a.dstH = 1;
    a.dstRow = a.dstPlane;
    a.srcRow = a.srcPlane;
  }
  Conv::template Run<ROWS, PV>(a);
}

}  // namespace sse_conv
}  // namespace kernel
}  // namespace tarn
