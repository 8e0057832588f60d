// The interface every kernel implements, and the registry that creates
// kernels by class name.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarn/runtime/class_registry.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/runtime/tensor.h"

namespace tarn {
namespace runtime {

// A kernel is configured once from a layer record and its inference
// parameters, then run any number of times. Forward is const: state a run may
// change (recurrent state) lives in mutable members.
class IKernel {
 public:
  virtual ~IKernel();
  // The registry name, equal to the class name.
  virtual std::string GetName() const = 0;
  // 0 when the record and parameters are ones this kernel computes, -1 when not.
  virtual std::int32_t IsValidParam(std::shared_ptr<LayerInfo> layer, std::shared_ptr<InferenceParam> param) const = 0;
  // Takes the attributes and weights and prepares what Forward needs (weights
  // are re-packed here, never in Forward); true on success.
  virtual bool Config(std::shared_ptr<LayerInfo> layer, std::shared_ptr<InferenceParam> param,
                      std::shared_ptr<Context> context) = 0;
  virtual bool IsConfiged() const = 0;
  virtual std::vector<TensorShape> GetOutputShapes(const std::vector<TensorShape>& inputs) const = 0;
  // Lets a kernel supply its outputs itself; false (the base) leaves them to Forward.
  virtual bool SetOutputs(const std::shared_ptr<Context>& context, const std::vector<std::shared_ptr<Tensor>>& inputs,
                          const bool& reuse, std::vector<std::shared_ptr<Tensor>>& outputs) const;
  // Clears recurrent state; -4 (the base) marks a kernel without any.
  virtual int ResetRNNState() const;
  // 0 when the inputs can be computed, a negative code otherwise (-2: not a
  // float tensor in main memory).
  virtual std::int32_t IsValidInput(const std::vector<std::shared_ptr<Tensor>>& inputs) const = 0;
  virtual bool Forward(const std::vector<std::shared_ptr<Tensor>>& inputs, std::vector<std::shared_ptr<Tensor>>& outputs,
                       std::shared_ptr<Context> context) const = 0;
  virtual std::int32_t IsValidOutput(const std::vector<std::shared_ptr<Tensor>>& outputs) const = 0;
};

// Channel-blocked tensors ([C/4, H, W, 4], [C/8, H, W, 8]) do not record how
// many lanes of their last block are real channels (the lanes beyond are
// zero). A kernel that needs those counts (a channel concatenation, a padding
// with a non-zero border value) also implements this interface: the net
// builder calls SetInputChannels once, after Config, with one entry per input
// in input order: the channel count that the records of the producing layers
// fix (see InferChannelCounts in tarn/runtime/net.h), or -1 where none does.
class BlockedChannelsReceiver {
 public:
  virtual ~BlockedChannelsReceiver();
  virtual void SetInputChannels(const std::vector<std::int64_t>& channels) = 0;
};

using IKernelPtr = std::shared_ptr<IKernel>;
using KernelRegistry = ClassRegistry<std::shared_ptr<IKernel>>;

}  // namespace runtime
}  // namespace tarn
