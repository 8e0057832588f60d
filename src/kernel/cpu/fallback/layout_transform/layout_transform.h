// Skeleton of the layout-transform kernels: shapes and checks of a move from
// one layout to another.
#pragma once

#include "tarn/kernel/kernel_base.h"
#include "tarn/kernel/layout_transform.h"

namespace tarn {
namespace kernel {

// A move from one layout to another by the transform function the kernel
// class hands over.
class LayoutTransformBase : public KernelBase {
 public:
  using TransformFn = void (*)(const functional::TensorCPUPtr&, const functional::TensorCPUPtr&);
  LayoutTransformBase(runtime::TensorShape::Layout from, runtime::TensorShape::Layout to, TransformFn fn)
      : from_(from), to_(to), fn_(fn) {}
  // Any record: a transform has no parameters.
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  // Same channels, height and width in the target layout; nothing for a shape
  // the transform cannot take.
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& inputs) const override;
  // One float main-memory tensor in the source layout: CHW of rank 3, blocked
  // of rank 4 with 4 (8) lanes; to C4HW4 C % 4 == 0, to C8HW8 from CHW
  // C % 8 == 0 and from C4HW4 an even block count.
  std::int32_t IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const override;
  // One float main-memory tensor in the target layout.
  std::int32_t IsValidOutput(const std::vector<std::shared_ptr<runtime::Tensor>>& outputs) const override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;

 private:
  runtime::TensorShape::Layout from_, to_;
  TransformFn fn_;
};

// Helpers of the SSE and AVX transforms, compiled for baseline x86-64.
//
// Blocks and pixels of a move between CHW [C, H, W] and a blocked layout
// [B, H, W, lanes], after asserting that both hold the same channels.
struct LayoutBlocks {
  std::uint32_t blocks, pixels;
};
LayoutBlocks CheckLayoutBlocks(const functional::TensorCPUPtr& chw, const functional::TensorCPUPtr& blocked,
                               unsigned lanes);
// The same for a move between C4HW4 and C8HW8: the C8HW8 blocks and the
// pixels, after asserting that c4 has twice as many blocks.
LayoutBlocks CheckC4C8Blocks(const functional::TensorCPUPtr& c4, const functional::TensorCPUPtr& c8);
// The `lanes` channel planes of block `block` of a CHW tensor.
void BlockPlanes(const functional::TensorCPUPtr& chw, std::uint32_t block, unsigned lanes, std::uint32_t pixels,
                 float** planes);
// Pixels [from, to) one float at a time: from the planes into the pixel
// vectors starting at `blocked` (pixel `from` first), and back.
void PlanesToBlocked(float* const* planes, unsigned lanes, std::uint32_t from, std::uint32_t to, float* blocked);
void BlockedToPlanes(const float* blocked, unsigned lanes, std::uint32_t from, std::uint32_t to, float* const* planes);

// The skeleton of a move between CHW and a blocked layout of `lanes` (4 or 8)
// lanes, block by block: steps(planes, pixel vectors, pixels) moves the
// pixels it can in vector steps and returns how many; the rest are copied one
// float at a time. Steps is a lambda of the family's file, so the
// instantiation stays there.
template <typename Steps>
void CHWToBlocked(const functional::TensorCPUPtr& chw, const functional::TensorCPUPtr& blocked, unsigned lanes,
                  Steps steps) {
  const LayoutBlocks g = CheckLayoutBlocks(chw, blocked, lanes);
  for (std::uint32_t b = 0; b < g.blocks; ++b) {
    float* planes[8];
    BlockPlanes(chw, b, lanes, g.pixels, planes);
    float* d = static_cast<float*>(blocked->Locate4D(b, 0, 0, 0));
    const std::uint32_t done = steps(planes, d, g.pixels);
    PlanesToBlocked(planes, lanes, done, g.pixels, d + static_cast<std::size_t>(done) * lanes);
  }
}
template <typename Steps>
void BlockedToCHW(const functional::TensorCPUPtr& blocked, const functional::TensorCPUPtr& chw, unsigned lanes,
                  Steps steps) {
  const LayoutBlocks g = CheckLayoutBlocks(chw, blocked, lanes);
  for (std::uint32_t b = 0; b < g.blocks; ++b) {
    float* planes[8];
    BlockPlanes(chw, b, lanes, g.pixels, planes);
    const float* s = static_cast<const float*>(blocked->Locate4D(b, 0, 0, 0));
    const std::uint32_t done = steps(planes, s, g.pixels);
    BlockedToPlanes(s + static_cast<std::size_t>(done) * lanes, lanes, done, g.pixels, planes);
  }
}

// The destructor is declared first and defined in baseline code, so the
// vtable, GetName, Forward and the destructor of every family's class are
// compiled without family instructions: any kernel can be created and named
// on any x86-64. Family code runs only inside the function handed to the base,
// the functional form of the class's own name.
#define TRN_LAYOUT_TRANSFORM_KERNEL(cls, from, to)                                                        \
  class cls : public LayoutTransformBase {                                                                \
   public:                                                                                                \
    ~cls() override;                                                                                      \
    TRN_KERNEL_NAME(cls)                                                                                  \
    cls() : LayoutTransformBase(runtime::TensorShape::from, runtime::TensorShape::to, functional::cls) {} \
  };

}  // namespace kernel
}  // namespace tarn
