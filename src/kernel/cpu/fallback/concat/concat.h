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

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kernel/crossplatform/shape_common/shape_common.h"
#include "tarn/kernel/shape.h"

namespace tarn {
namespace kernel {

class ConcatKernelBase : public PlannedKernelBase, public runtime::BlockedChannelsReceiver {
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

 protected:
  // One or more float tensors that concatenate.
  bool OutputShape(const std::vector<runtime::TensorShape>& inputs, runtime::TensorShape* output,
                   std::string* why) const override;

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

// The block walk of a vector channel placement (functional::place_channels_*
// of a family): output block b of an input placed at `offset` is made of
// input blocks b - offset / kLanes - 1 (low lanes) and b - offset / kLanes
// (high lanes) by `block.Run<kKeep, kMask>(lo, hi, d, pixels)`, which keeps
// the lanes below offset % kLanes with kKeep (first block) and clears the
// lanes beyond the last channel with kMask (last block). A missing neighbour
// block only feeds lanes that those masks discard, so any readable block
// stands in for it. On a block boundary whole block planes are copied;
// otherwise pixels go in chunks of kChunk, so that the block read as the
// high half of one output block is still in the first-level cache as the low
// half of the next. Instantiated in the family's file with its functor.
template <std::uint32_t kLanes, std::size_t kChunk, typename Block>
void PlaceBlocks(const float* in, std::uint32_t channels, std::size_t pixels, std::uint32_t offset, float* out,
                 const Block& block) {
  if (channels == 0) return;
  const std::size_t plane = pixels * kLanes;
  const std::uint32_t first = offset / kLanes, last = (offset + channels - 1) / kLanes;
  const std::uint32_t in_blocks = (channels + kLanes - 1) / kLanes, end = (offset + channels) % kLanes;
  if (offset % kLanes == 0) {
    for (std::uint32_t b = first; b <= last; ++b) {
      const float* src = in + (b - first) * plane;
      if (b == last && end != 0) {
        block.template Run<false, true>(src, src, out + b * plane, pixels);
      } else {
        std::memcpy(out + b * plane, src, plane * sizeof(float));
      }
    }
    return;
  }
  for (std::size_t p0 = 0; p0 < pixels; p0 += kChunk) {
    const std::size_t n = std::min(kChunk, pixels - p0);
    for (std::uint32_t b = first; b <= last; ++b) {
      const std::uint32_t t = b - first;
      const float* hi = in + (t < in_blocks ? t : t - 1) * plane + p0 * kLanes;
      const float* lo = t >= 1 ? in + (t - 1) * plane + p0 * kLanes : hi;
      float* d = out + b * plane + p0 * kLanes;
      const bool masked = b == last && end != 0;
      if (b == first) {
        if (masked) {
          block.template Run<true, true>(lo, hi, d, n);
        } else {
          block.template Run<true, false>(lo, hi, d, n);
        }
      } else if (masked) {
        block.template Run<false, true>(lo, hi, d, n);
      } else {
        block.template Run<false, false>(lo, hi, d, n);
      }
    }
  }
}

}  // namespace kernel
}  // namespace tarn
