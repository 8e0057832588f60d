// What the fully connected kernels share: the record checks, the weight and
// bias decoded once, and the input checks of each input form. Compiled for
// baseline x86-64; the members add packing and Forward.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kernel/cpu/fallback/conv_core/layer_kernel_base.h"

namespace tarn {
namespace kernel {

class FullConnectionKernelBase : public LayerKernelBase {
 public:
  // How the input arrives.
  enum class InputForm {
    kVector,     // any float tensor of inFeatures elements; output {outFeatures}
    kBatchRows,  // [..., inFeatures], batch = elements / inFeatures; output [batch, outFeatures]
    kC4HW4,      // a C4HW4 map with C * H * W == inFeatures; output CHW {outFeatures, 1, 1}
    kC8HW8,      // a C8HW8 map with C * H * W == inFeatures; output C8HW8 {ceil(outFeatures / 8), 1, 1, 8}
  };

  // The order Config gives the weight ([out, in] as stored, or tiles).
  enum class WeightOrder {
    kRowMajor,
    kTiles44,      // reshape + permute into 4x4 tiles (N4C44c4n)
    kTiles88,      // reshape + permute into 8x8 tiles (N8C88c8n)
    kN8C88c8n,     // Function_Tensor_NC_To_N8C88c8n_Fallback: tiles rounded up
    kGN8C8HW8c8n,  // Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback of [1, out, in, 1, 1]
  };

  // -1 unless the record is a FullConnectionInfo with non-zero feature counts
  // that the member accepts.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  // Decodes the weight ([outFeatures, inFeatures]) and bias, refusing wrong
  // float counts, then lets the member pack the weight.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;

  std::uint32_t in_features() const { return in_features_; }
  std::uint32_t out_features() const { return out_features_; }

 protected:
  // Feature counts must be multiples of `multiple`. Everything but Forward is
  // decided here, in baseline code, so that asking a vector member about a
  // record never runs instructions of its family.
  explicit FullConnectionKernelBase(InputForm form, WeightOrder order = WeightOrder::kRowMajor,
                                    std::uint32_t multiple = 1)
      : form_(form), order_(order), multiple_(multiple) {}
  bool PackWeights(const std::shared_ptr<runtime::DeviceCPU>& device);
  // The real channels of a blocked input map (0 when it does not fit).
  std::uint32_t MapChannels(const runtime::TensorShape& shape) const;
  // The checked input and a fresh output; null (logged) for a refused input.
  std::shared_ptr<runtime::TensorCPU> Prepare(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                              const std::shared_ptr<runtime::Context>& context,
                                              std::shared_ptr<runtime::TensorCPU>* output) const;

  // Routines of one instruction set: a flat vector against the (packed)
  // weight, bias copied first (functional or native argument forms) ...
  using VectorRoutine = void (*)(const float* input, const std::uint32_t& inFeatures, const std::uint32_t& outFeatures,
                                 const float* weight, const float* bias, float* output);
  using NativeRoutine = void (*)(float* input, int inFeatures, int outFeatures, float* weight, float* bias,
                                 float* output);
  // ... or a blocked map accumulating onto an output that `fill` has given
  // the bias (zero without one).
  using MapRoutine = void (*)(const float* input, int channels, int height, int width, int outFeatures,
                              const float* weight, float* output);
  using FillFn = void (*)(const std::shared_ptr<runtime::TensorCPU>& inout,
                          const std::shared_ptr<runtime::TensorCPU>& bias);
  // The whole Forward of a member that runs one routine.
  bool ForwardWith(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                   std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                   const std::shared_ptr<runtime::Context>& context, VectorRoutine routine) const;
  bool ForwardWith(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                   std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                   const std::shared_ptr<runtime::Context>& context, NativeRoutine routine) const;
  bool ForwardMap(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                  std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                  const std::shared_ptr<runtime::Context>& context, FillFn fill, MapRoutine routine) const;

  std::uint32_t in_features_ = 0, out_features_ = 0;

 private:
  bool OutputShape(const runtime::TensorShape& input, runtime::TensorShape* output) const;
  InputForm form_;
  WeightOrder order_;
  std::uint32_t multiple_;
};

}  // namespace kernel
}  // namespace tarn
