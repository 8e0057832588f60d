// Executable networks: one Layer per model layer, each with its configured
// kernel and the converter kernels around it.
//
// Threads: a net runs on the thread that calls Forward, and one thread at a
// time may call Forward on a given net (its kernels keep state such as
// recurrent cells). Different nets, of one package or of several, may run on
// different threads at once, sharing one context: the memory pools and the
// log settings take a lock, nothing else is shared between nets.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "tarn/runtime/context.h"
#include "tarn/runtime/inference_config.h"
#include "tarn/runtime/kernel.h"
#include "tarn/runtime/model_info.h"

namespace tarn {
namespace runtime {

struct Layer {
  std::string id;
  std::shared_ptr<LayerInfo> layer_info;
  std::shared_ptr<IKernel> kernel;
  // Applied, in kernel-id order, to each input before the kernel and to each
  // output after it.
  std::map<std::uint32_t, std::shared_ptr<IKernel>> input_converters;
  std::map<std::uint32_t, std::shared_ptr<IKernel>> output_converters;
};

using LayerPtr = std::shared_ptr<Layer>;
using TensorMap = std::unordered_map<std::uint32_t, std::shared_ptr<Tensor>>;
using OutputMap = std::unordered_map<std::uint32_t, std::vector<std::shared_ptr<Tensor>>>;

class Net {
 public:
  // Runs every layer once in sequence order and returns the outputs of the
  // layers in `output_ids`, keyed by layer index. Input layers take their
  // tensor from `inputs`. An intermediate output is released after its last
  // reader, so the peak memory is that of the live tensors. When a timing
  // vector is given it receives one entry per layer (layer_times) or per layer
  // with converters (converter_times), in milliseconds. A failure (missing
  // input, invalid input, failing kernel) is logged and gives an empty result.
  OutputMap Forward(const TensorMap& inputs, const std::vector<std::uint32_t>& output_ids,
                    const std::shared_ptr<Context>& context, std::vector<float>* layer_times = nullptr,
                    std::vector<float>* converter_times = nullptr) const;

  const std::vector<LayerPtr>& layers() const { return layers_; }
  // Input layer ids and their indices.
  const std::map<std::string, std::uint32_t>& inputs() const { return inputs_; }
  const std::vector<std::string>& output_ids() const { return output_ids_; }
  const std::vector<std::string>& type_names() const { return type_names_; }
  // Index of a layer id, or -1.
  std::int64_t IndexOf(const std::string& id) const;

 private:
  friend class NetBuilder;
  // Whether the kernel of layer i may write over the storage of its inputs
  // `in`: false when a tensor that a later layer reads, that the caller gets
  // back, or that the caller gave (a view of any of them included) shares
  // it, or when the layer reads the same storage twice. In-place kernels hand
  // out a fresh output otherwise (IKernel::SetOutputs' reuse).
  bool MayOverwrite(std::uint32_t i, const std::vector<std::shared_ptr<Tensor>>& in,
                    const std::vector<std::vector<std::shared_ptr<Tensor>>>& outputs, const TensorMap& inputs,
                    const std::vector<std::uint32_t>& output_ids) const;
  std::vector<LayerPtr> layers_;
  std::map<std::string, std::uint32_t> inputs_;
  std::vector<std::string> output_ids_;
  std::vector<std::string> type_names_;
  // Per layer: the indices it reads, -1 for an id no earlier layer has.
  std::vector<std::vector<std::int64_t>> producers_;
  // Per layer: the last layer index that reads its outputs (-1: none).
  std::vector<std::int64_t> last_reader_;
  std::unordered_map<std::string, std::uint32_t> index_of_;
};

using NetPtr = std::shared_ptr<Net>;

// Creates and configures one kernel; logs "Create Kernel >> name >> ok|nullptr"
// at level 2 and "Config Kernel <name> failed." when Config refuses. A name
// the registry lacks is a programming error: it throws after the log line.
std::shared_ptr<IKernel> CreateKernel(const std::shared_ptr<KernelCfg>& cfg, const std::shared_ptr<LayerInfo>& layer,
                                      const KernelRegistry& registry, const std::shared_ptr<Context>& ctx);
// The same without the log lines; null on any failure.
std::shared_ptr<IKernel> ConfigKernel(std::shared_ptr<KernelInferenceConfig> cfg, std::shared_ptr<LayerInfo> layer,
                                      const KernelRegistry& registry, std::shared_ptr<Context> ctx);

// Builds a net in the model's sequence order. Every layer must end with a
// compute kernel: a layer without one fails an assertion (std::runtime_error).
std::shared_ptr<Net> CreateNet(const std::shared_ptr<TRModelInfo>& model, const std::shared_ptr<TRModelCfg>& cfg,
                               const KernelRegistry& registry, const std::shared_ptr<Context>& ctx);
std::shared_ptr<Net> CreateNet(const std::shared_ptr<TRModelInfo>& model, std::shared_ptr<InferenceConfig> cfg,
                               const KernelRegistry& registry, std::shared_ptr<Context> ctx);

// Converter slot of a kernel id: base-10, stopping at the first non-digit.
std::uint32_t ParseKernelId(const std::string& id);

// The channel count of every layer's output, in the model's sequence order,
// as the layer records fix it; -1 where they do not. Blocked tensors do not
// record their real channels, so this is what the net builder hands to the
// kernels that need them (BlockedChannelsReceiver, once per kernel after
// Config, one count per input id). The rules, by record:
//   - convolutions (Conv1d, Conv2d, ConvTranspose2d, SQFC): out_channels;
//     FullConnection: out_features; BatchNorm1d/2d, InstanceNorm2d:
//     num_features;
//   - Concatenate along dim 0: the sum of its inputs (-1 if one is unknown);
//     along another dim: its inputs' common count;
//   - PixelShuffle: input / r^2 (when r^2 divides it); SpaceToDepth:
//     input * b^2;
//   - layers that keep the channels (activations, pooling, adaptive
//     pooling, upsampling, 2-D padding, clip, softmax, grid sample,
//     element-wise operations): their first input's count (a broadcast: the
//     larger of its two inputs' counts);
//   - every other record (input layers, reshapes, slices, Gemm, recurrent
//     layers, ...): -1.
// A configuration that concatenates or pads blocked tensors relies on these
// counts; where one is -1 the kernel refuses the input and the layer must
// run in CHW.
std::vector<std::int64_t> InferChannelCounts(const TRModelInfo& model);

}  // namespace runtime
}  // namespace tarn
