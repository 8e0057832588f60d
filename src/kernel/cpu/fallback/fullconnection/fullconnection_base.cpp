#include "kernel/cpu/fallback/fullconnection/fullconnection_base.h"

#include "kernel/cpu/fallback/fullconnection/fullconnection.h"
#include "kernel/cpu/sse/fullconnection/fullconnection.h"
#include "kernel/cpu/avx/fullconnection/fullconnection.h"
#include "kernel/cpu/sgemm/fullconnection/fullconnection.h"

#include <climits>

#include "tarn/kernel/conv_layout.h"
#include "tarn/kernel/packing.h"
#include "tarn/kernel/tensor_helpers.h"
#include "tarn/kernel/transform.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

bool FullConnectionKernelBase::PackWeights(const std::shared_ptr<runtime::DeviceCPU>& device) {
  const int in = static_cast<int>(in_features_), out = static_cast<int>(out_features_);
  switch (order_) {
    case WeightOrder::kRowMajor: return true;
    case WeightOrder::kTiles44:
    case WeightOrder::kTiles88: {
      // [O, I] -> [O/b, b o, I/b, b i] -> [O/b, I/b, b i, b o]: tile (ob, ib)
      // holds at k * b + j the weight from input b ib + k to output b ob + j.
      const int b = order_ == WeightOrder::kTiles44 ? 4 : 8;
      auto blocked = functional::Transform_MainMemory_Reshape_Fallback(weight_, {out / b, b, in / b, b}, device);
      if (!blocked) return false;
      weight_ = functional::Transform_MainMemory_Permute_Fallback(blocked, {0, 2, 3, 1}, device);
      return weight_ != nullptr;
    }
    case WeightOrder::kN8C88c8n:
      weight_ = Function_Tensor_NC_To_N8C88c8n_Fallback(weight_, device);
      return weight_ != nullptr;
    case WeightOrder::kGN8C8HW8c8n: {
      // The layer as a convolution whose kernel covers the whole input, seen
      // as one group of in_features 1x1 channels: row i of tile i / 8 is input
      // i of the CHW-flattened map, whatever its height and width.
      auto gnchw = functional::Transform_MainMemory_Reshape_Fallback(weight_, {1, out, in, 1, 1}, device);
      if (!gnchw) return false;
      gnchw->shape.layout = TensorShape::GNCHW;
      weight_ = Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback(gnchw, device);
      return weight_ != nullptr;
    }
  }
  return false;
}

std::int32_t FullConnectionKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                                    std::shared_ptr<runtime::InferenceParam>) const {
  auto info = std::dynamic_pointer_cast<runtime::FullConnectionInfo>(layer);
  if (!info || info->in_features == 0 || info->out_features == 0) return kInvalidParam;
  return info->in_features % multiple_ == 0 && info->out_features % multiple_ == 0 ? kValid : kInvalidParam;
}

bool FullConnectionKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                      std::shared_ptr<runtime::InferenceParam> param,
                                      std::shared_ptr<runtime::Context> context) {
  if (!StartConfig(layer, param, context, "fully connected layer")) return false;
  const auto& info = static_cast<const runtime::FullConnectionInfo&>(*layer);
  in_features_ = info.in_features;
  out_features_ = info.out_features;
  const auto& device = context->cpu;
  std::vector<float> weights;
  if (!DecodeBlobs(info.weight, std::uint64_t(in_features_) * out_features_, info.if_bias, info.bias, out_features_,
                   *device, &weights)) {
    return false;
  }
  weight_ = device->CreateTensor(runtime::MakeShape({out_features_, in_features_}), weights.data());
  if (!PackWeights(device) || !weight_) {
    utility::Log(utility::kLogError, "%s: the weight could not be packed.", GetName().c_str());
    return false;
  }
  configured_ = true;
  return true;
}

std::uint32_t FullConnectionKernelBase::MapChannels(const TensorShape& shape) const {
  const std::uint32_t lanes = form_ == InputForm::kC4HW4 ? 4 : 8;
  const auto want = form_ == InputForm::kC4HW4 ? TensorShape::C4HW4 : TensorShape::C8HW8;
  const auto& d = shape.dims;
  if (d.size() != 4 || shape.layout != want || d[3] != lanes) return 0;
  const std::uint64_t plane = std::uint64_t(d[1]) * d[2];
  if (plane == 0 || in_features_ % plane != 0) return 0;
  const std::uint64_t channels = in_features_ / plane;
  if (ChannelBlocks(static_cast<std::uint32_t>(channels), lanes) != d[0]) return 0;
  return static_cast<std::uint32_t>(channels);
}

bool FullConnectionKernelBase::OutputShape(const TensorShape& input, TensorShape* output) const {
  if (input.data_type != TensorShape::FLOAT32 || input.location != TensorShape::MainMemory) return false;
  const std::size_t count = input.ElementCount();
  if (input.dims.empty() || count > INT_MAX) return false;
  switch (form_) {
    case InputForm::kVector:
      if (count != in_features_) return false;
      *output = runtime::MakeShape({out_features_});
      return true;
    case InputForm::kBatchRows: {
      if (input.dims.back() != in_features_ || count % in_features_ != 0) return false;
      const std::size_t batch = count / in_features_;
      if (batch * out_features_ > INT_MAX) return false;
      *output = runtime::MakeShape({static_cast<unsigned>(batch), out_features_});
      return true;
    }
    case InputForm::kC4HW4:
      if (MapChannels(input) == 0) return false;
      *output = runtime::MakeShape({out_features_, 1, 1});
      return true;
    case InputForm::kC8HW8:
      if (MapChannels(input) == 0) return false;
      *output = runtime::MakeShape({ChannelBlocks(out_features_, 8), 1, 1, 8}, TensorShape::FLOAT32,
                                   TensorShape::C8HW8);
      return true;
  }
  return false;
}

std::vector<TensorShape> FullConnectionKernelBase::GetOutputShapes(const std::vector<TensorShape>& inputs) const {
  TensorShape out;
  if (!configured_ || inputs.size() != 1 || !OutputShape(inputs[0], &out)) return {};
  return {out};
}

std::int32_t FullConnectionKernelBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (!configured_ || CheckFloatTensors(inputs, 1) != kValid) return kInvalidTensor;
  if (!std::dynamic_pointer_cast<runtime::TensorCPU>(inputs[0])) return kInvalidTensor;
  TensorShape out;
  return OutputShape(inputs[0]->shape, &out) ? kValid : kInvalidTensor;
}

std::shared_ptr<runtime::TensorCPU> FullConnectionKernelBase::Prepare(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs, const std::shared_ptr<runtime::Context>& context,
    std::shared_ptr<runtime::TensorCPU>* output) const {
  auto input = CheckedInput(inputs, context);
  TensorShape shape;
  if (!input || !OutputShape(input->shape, &shape)) return nullptr;
  *output = context->cpu->CreateTensor(shape);
  return input;
}

bool FullConnectionKernelBase::ForwardWith(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                           std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                           const std::shared_ptr<runtime::Context>& context,
                                           VectorRoutine routine) const {
  std::shared_ptr<runtime::TensorCPU> output;
  auto input = Prepare(inputs, context, &output);
  if (!input) return false;
  routine(input->DataAs<float>(), in_features_, out_features_, weight_->DataAs<float>(), BiasData(),
          output->DataAs<float>());
  outputs.assign(1, output);
  return true;
}

bool FullConnectionKernelBase::ForwardWith(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                           std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                           const std::shared_ptr<runtime::Context>& context,
                                           NativeRoutine routine) const {
  std::shared_ptr<runtime::TensorCPU> output;
  auto input = Prepare(inputs, context, &output);
  if (!input) return false;
  routine(input->DataAs<float>(), static_cast<int>(in_features_), static_cast<int>(out_features_),
          weight_->DataAs<float>(), bias_ ? bias_->DataAs<float>() : nullptr, output->DataAs<float>());
  outputs.assign(1, output);
  return true;
}

bool FullConnectionKernelBase::ForwardMap(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                          std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                          const std::shared_ptr<runtime::Context>& context, FillFn fill,
                                          MapRoutine routine) const {
  std::shared_ptr<runtime::TensorCPU> output;
  auto input = Prepare(inputs, context, &output);
  if (!input) return false;
  if (bias_) {
    fill(output, bias_);
  } else {
    FillZero_MainMemory_Float_Fallback_M1(output);
  }
  const auto& d = input->shape.dims;
  routine(input->DataAs<float>(), static_cast<int>(MapChannels(input->shape)), static_cast<int>(d[1]),
          static_cast<int>(d[2]), static_cast<int>(out_features_), weight_->DataAs<float>(), output->DataAs<float>());
  outputs.assign(1, output);
  return true;
}

// Every member's destructor is its key function: defined here, in baseline
// code, it puts the vtable, GetName and the destructor of each family's class
// in this file, so any kernel can be created and named on any x86-64. Only
// Forward runs family code.
FullConnection_Fallback_C_Float_M1::~FullConnection_Fallback_C_Float_M1() = default;
FullConnection_SSE_C_Float_M1::~FullConnection_SSE_C_Float_M1() = default;
FullConnection_SSE_C44_Float_M1::~FullConnection_SSE_C44_Float_M1() = default;
FullConnection_SSE_BC_Float_M1::~FullConnection_SSE_BC_Float_M1() = default;
FullConnection_SSE_C4HW4_Float_M1::~FullConnection_SSE_C4HW4_Float_M1() = default;
FullConnection_AVX_C_Float_M1::~FullConnection_AVX_C_Float_M1() = default;
FullConnection_AVX_C_Float_M2::~FullConnection_AVX_C_Float_M2() = default;
FullConnection_AVX_C_Float_M3::~FullConnection_AVX_C_Float_M3() = default;
FullConnection_AVX_C88_Float_M1::~FullConnection_AVX_C88_Float_M1() = default;
FullConnection_AVX_C8HW8_Float_M1::~FullConnection_AVX_C8HW8_Float_M1() = default;
FullConnection_SGEMM_C_Float_M1::~FullConnection_SGEMM_C_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
