#include "kernel/cpu/fallback/depthwise_conv2d/depthwise_conv2d_base.h"

#include "kernel/cpu/avx/depthwise_conv2d/depthwise_conv2d.h"
#include "kernel/cpu/sse/depthwise_conv2d/depthwise_conv2d.h"

#include <cstring>

#include "tarn/kernel/packing.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

DepthwiseConv2DKernelBase::DepthwiseConv2DKernelBase(Port port, std::uint32_t kernel, std::uint32_t stride)
    : Conv2DKernelBase(port, port, false, Geometry::Depthwise(kernel, kernel, stride, stride),
                       port.lanes == 1 ? WeightOrder::kGNCHW : WeightOrder::kCustom) {}

Conv2DKernelBase::TensorCPUPtr DepthwiseConv2DKernelBase::PackWeight(
    const TensorCPUPtr& gnchw, const std::shared_ptr<runtime::DeviceCPU>& device) const {
  const std::uint32_t lanes = input_port().lanes;
  const auto& d = gnchw->shape.dims;  // [C, 1, 1, K, K]
  const std::uint32_t groups = d[0], padded = ChannelBlocks(groups, lanes) * lanes;
  auto whole = device->CreateTensor(
      runtime::MakeShape({padded, d[1], d[2], d[3], d[4]}, TensorShape::FLOAT32, TensorShape::GNCHW));
  const std::size_t per_group = std::size_t(d[1]) * d[2] * d[3] * d[4];
  std::memcpy(whole->Data(), gnchw->Data(), groups * per_group * sizeof(float));
  std::memset(whole->DataAs<float>() + groups * per_group, 0, (padded - groups) * per_group * sizeof(float));
  return lanes == 4 ? Function_Tensor_GNCHW_To_G4NCHW4_Fallback(whole, device)
                    : Function_Tensor_GNCHW_To_G8NCHW8_Fallback(whole, device);
}

DepthwiseStepArgs CheckDepthwiseStep(const TensorCPUPtr& input, const TensorCPUPtr& output, const TensorCPUPtr& weight,
                                     int kernel, int stride, int lanes, const char* what) {
  auto holds = [lanes](const TensorCPUPtr& t) {
    return t && t->shape.data_type == TensorShape::FLOAT32 && t->shape.location == TensorShape::MainMemory &&
           t->shape.dims.size() == (lanes == 1 ? 3u : 4u) && (lanes == 1 || int(t->shape.dims[3]) == lanes);
  };
  utility::Assert(holds(input) && holds(output), "%s: the input and output must be float tensors of %d-float pixels.",
                  what, lanes);
  const auto& i = input->shape.dims;
  const auto& o = output->shape.dims;
  utility::Assert(i[0] == o[0], "%s: the input and output hold different channel counts.", what);
  utility::Assert(ConvOutputSize(i[1], kernel, stride, 1) == o[1] && ConvOutputSize(i[2], kernel, stride, 1) == o[2],
                  "%s: the output size does not follow from the padded input.", what);
  utility::Assert(weight && weight->shape.data_type == TensorShape::FLOAT32 &&
                      weight->shape.ElementCount() == std::size_t(i[0]) * kernel * kernel * lanes,
                  "%s: the weight does not hold %d taps per channel.", what, kernel * kernel);
  utility::Assert(FitsInt({i[0], i[1], i[2], std::uint64_t(lanes)}) && FitsInt({o[0], o[1], o[2], std::uint64_t(lanes)}),
                  "%s: the tensors are too large.", what);
  return {input->DataAs<float>(), output->DataAs<float>(), weight->DataAs<float>(), int(i[0]), int(i[1]), int(i[2]),
          int(o[1]),
          int(o[2])};
}

// Key functions, in baseline code: any member can be created, named and
// configured on any x86-64; only Forward runs family code.
Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1::~Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1() = default;
Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1::~Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1() = default;
Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1::~Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1() = default;
Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1::~Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1() = default;
Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1::~Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1() = default;
Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1::~Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1() = default;
Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1::~Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1() = default;
Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1::~Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1() = default;
Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1::~Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1() = default;
Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1::~Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1() = default;

}  // namespace kernel
}  // namespace tarn
