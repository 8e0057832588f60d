// What the 1-D convolution kernels share: the record checks, the weights
// decoded once, and the CL input checks. Compiled for baseline x86-64.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "kernel/cpu/fallback/conv_core/layer_kernel_base.h"

namespace tarn {
namespace kernel {

struct Conv1DParams {
  std::uint32_t kernel = 0, stride = 1, dilation = 1;
  std::uint32_t in_channels_per_group = 0, out_channels_per_group = 0, groups = 1;
  std::uint32_t padding_f = 0, padding_b = 0;
  std::uint8_t if_bias = 0;
};

// CL tensors are [C, L]; the padding value is 0.0 like the 2-D kernels.
class Conv1DKernelBase : public LayerKernelBase {
 public:
  // -1 unless the record is a Conv1dInfo with non-zero channels, kernel,
  // stride, dilation and groups, channels divisible by the groups, and the
  // geometry the member's name promises.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  // Decodes the weight ([N, C/G, 1, K]) and bias, refusing wrong float counts.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  // [N, output length], with the input's layout.
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One two-dimensional float tensor [C, L] in main memory whose padded
  // length covers the kernel.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;

  const Conv1DParams& params() const { return params_; }

  explicit Conv1DKernelBase(bool three_taps_only = false) : three_taps_only_(three_taps_only) {}
  std::uint32_t InChannels() const { return params_.in_channels_per_group * params_.groups; }
  std::uint32_t OutChannels() const { return params_.out_channels_per_group * params_.groups; }

 protected:
  // Kernel 3, stride 1, dilation 1, one group when three_taps_only_; decided
  // in baseline code like everything but Forward.
  bool AcceptsGeometry(const Conv1DParams& p) const;
  // Output length for an input of `length`, 0 when the kernel does not fit.
  std::uint32_t OutputLength(std::uint32_t length) const;
  // Padded input (or the input itself) and an output filled with the bias or
  // zero; false (logged) for an input the kernel refuses.
  bool Prepare(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               const std::shared_ptr<runtime::Context>& context, std::shared_ptr<runtime::TensorCPU>* padded,
               std::shared_ptr<runtime::TensorCPU>* output) const;

  Conv1DParams params_;  // weight_ is [N, C/G, 1, K]

 private:
  bool three_taps_only_;
};

}  // namespace kernel
}  // namespace tarn
