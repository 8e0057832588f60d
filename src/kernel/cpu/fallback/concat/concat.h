// ConcatenateInfo: PyTorch `torch.cat(inputs, dim)`, the inputs in the
// layer's "input_ids" order.
//
// "dim" u16: the runtime dim (tensors carry no batch axis: 0 is the channels
// of a CHW tensor). As the field is unsigned, values from 32768 on are read
// as the signed 16-bit values they encode (65535 = -1, counted from the end).
//
// Dense layouts (CHW and the other unblocked ones, any rank): every input has
// the same rank and layout and equal dims except `dim`; each input's block
// of rows is copied in one run.
//
// Blocked layouts ([ceil(C/k), H, W, k], k = 4 or 8): `dim` indexes the
// layer's (C, H, W), so 0 is channels, 1 and 2 (or -2 and -1) height and
// width. A blocked tensor does not record its real channel count, so the
// kernel takes the counts from the net builder (BlockedChannelsReceiver):
// when a net is built, every layer's channel count is derived from the
// records of the layers before it (InferChannelCounts: convolutions and fully
// connected layers fix their output channels, normalisations their features,
// a concatenation the sum, pixel shuffle and space-to-depth scale them, and
// channel-preserving layers pass them on). Along channels, input i's channels
// land at the sum of the counts before it, shifting lanes across blocks where
// that sum is not a multiple of k; the output's lanes beyond the total are
// zero. An input whose count is unknown (-1) is accepted only when it is the
// last one and starts on a block boundary (its blocks are then copied as
// they are). Counts that disagree with an input's block count, or unknown
// counts elsewhere, refuse the input: a configuration must then keep the
// producers of such inputs in CHW and concatenate in CHW. Along height or
// width the inputs must hold the same blocks (and the same counts where
// known); rows are copied as they are.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarn/kernel/kernel_base.h"
#include "tarn/kernel/shape.h"

namespace tarn {
namespace kernel {

class ConcatKernelBase : public KernelBase, public runtime::BlockedChannelsReceiver {
 public:
  // Places the channels of one blocked input at a channel offset of the output
  // (functional::place_channels_*; the lanes are those of the layout).
  using PlaceFn = void (*)(const float* in, std::uint32_t channels, std::uint32_t pixels, std::uint32_t offset,
                           float* out);
  // `layout`: the one blocked layout a vector member takes, or CHW for the
  // portable member, which takes every dense layout and both blocked ones.
  ConcatKernelBase(runtime::TensorShape::Layout layout, PlaceFn place4, PlaceFn place8)
      : layout_(layout), place4_(place4), place8_(place8) {}
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One or more float main-memory tensors that concatenate; a refusal is
  // logged with its reason.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;
  void SetInputChannels(const std::vector<std::int64_t>& channels) override { channels_ = channels; }

  // What a concatenation of given input shapes does.
  struct Plan {
    runtime::TensorShape output;
    bool channels = false;  // blocked along channels (else rows are copied)
    std::size_t axis = 0;   // the storage axis rows are joined along
    std::vector<std::uint32_t> counts;  // blocked along channels: the real channels of each input
  };
  bool MakePlan(const std::vector<runtime::TensorShape>& inputs, Plan* plan, std::string* why) const;

 private:
  bool DensePlan(const std::vector<runtime::TensorShape>& inputs, std::size_t axis, Plan* plan,
                 std::string* why) const;
  bool ChannelPlan(const std::vector<runtime::TensorShape>& inputs, std::uint32_t lanes, Plan* plan,
                   std::string* why) const;

  runtime::TensorShape::Layout layout_;
  PlaceFn place4_, place8_;
  std::int16_t dim_ = 0;
  std::vector<std::int64_t> channels_;
};

class Concatenate_Fallback_Float_M1 : public ConcatKernelBase {
 public:
  ~Concatenate_Fallback_Float_M1() override;
  TRN_KERNEL_NAME(Concatenate_Fallback_Float_M1)
  Concatenate_Fallback_Float_M1();
};

// The vector members: blocked inputs of one layout only.
#define TRN_CONCAT_KERNEL(cls, layout, place4, place8)                                    \
  class cls : public ConcatKernelBase {                                                   \
   public:                                                                                \
    ~cls() override;                                                                      \
    TRN_KERNEL_NAME(cls)                                                                  \
    cls() : ConcatKernelBase(runtime::TensorShape::layout, place4, place8) {}             \
  };

}  // namespace kernel
}  // namespace tarn
