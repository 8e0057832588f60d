// Pad1dInfo and Pad2dInfo: PyTorch `F.pad(x, pads, mode='constant', value)`.
//
// Pad1dInfo "padding_l", "padding_r" i16: columns added before and after the
// last dim of a dense tensor of any rank (a C x L signal, a vector, ...).
// Pad2dInfo "padding_l", "padding_r" (last dim, width) and "padding_t",
// "padding_b" (the dim before it, height) of a dense tensor of rank >= 2 or
// of a blocked [ceil(C/k), H, W, k] tensor. "padding_v" f32 is the value of
// the new elements. Negative amounts crop (F.pad's rule); padding that
// leaves an extent below 1 is refused. The records have no mode field, so
// reflect and replicate padding cannot be expressed (the converter refuses
// them).
//
// Blocked tensors: the new pixels hold `padding_v` in their real channels
// and zero in the lanes beyond (the layout keeps tail lanes zero). The real
// channel count comes from the net builder (BlockedChannelsReceiver); a
// non-zero value needs it, so a blocked input whose count is unknown is
// refused unless padding_v is +0.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kernel/crossplatform/shape_common/shape_common.h"
#include "tarn/kernel/shape.h"

namespace tarn {
namespace kernel {

// What both paddings share: the record's amounts and value, one float tensor
// in, one out, planes written by a routine of one instruction set.
class PadKernelBase : public PlannedKernelBase, public runtime::BlockedChannelsReceiver {
 public:
  using PadPlaneFn = void (*)(float* d, const float* s, const functional::PadPlane& g, const float* pattern,
                            std::uint32_t lanes);
  // `two_d`: Pad2dInfo (else Pad1dInfo). `layout`: the one layout a vector
  // member takes (CHW: dense tensors), or FLEXIABLE for the portable members,
  // which take dense tensors and (2-D only) both blocked layouts.
  PadKernelBase(bool two_d, runtime::TensorShape::Layout layout, PadPlaneFn plane)
      : two_d_(two_d), layout_(layout), plane_(plane) {}
  std::int32_t IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                            std::shared_ptr<runtime::InferenceParam> param) const override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param,
              std::shared_ptr<runtime::Context> context) override;
  bool Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
               std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
               std::shared_ptr<runtime::Context> context) const override;
  void SetInputChannels(const std::vector<std::int64_t>& channels) override { channels_ = channels; }

 protected:
  // One float tensor the amounts leave non-empty.
  bool OutputShape(const std::vector<runtime::TensorShape>& inputs, runtime::TensorShape* output,
                   std::string* why) const override;

 private:
  // Planes, the input's height and width, lanes, and the output shape.
  struct Plan {
    runtime::TensorShape output;
    std::size_t planes = 1, height = 1, width = 1;
    std::uint32_t lanes = 1;
    std::uint32_t tail_lanes = 0;  // blocked: real lanes of the last block (0: all)
  };
  bool MakePlan(const runtime::TensorShape& input, Plan* plan, std::string* why) const;

  bool two_d_;
  runtime::TensorShape::Layout layout_;
  PadPlaneFn plane_;
  std::int32_t left_ = 0, right_ = 0, top_ = 0, bottom_ = 0;
  float value_ = 0.0f;
  std::vector<std::int64_t> channels_;
};

class Pad1d_Fallback_Float_M1 : public PadKernelBase {
 public:
  ~Pad1d_Fallback_Float_M1() override;
  TRN_KERNEL_NAME(Pad1d_Fallback_Float_M1)
  Pad1d_Fallback_Float_M1() : PadKernelBase(false, runtime::TensorShape::FLEXIABLE, functional::pad_plane_f32) {}
};

class Pad2d_Fallback_Float_M1 : public PadKernelBase {
 public:
  ~Pad2d_Fallback_Float_M1() override;
  TRN_KERNEL_NAME(Pad2d_Fallback_Float_M1)
  Pad2d_Fallback_Float_M1() : PadKernelBase(true, runtime::TensorShape::FLEXIABLE, functional::pad_plane_f32) {}
};

// The vector members of the 2-D padding: one layout each.
#define TRN_PAD2D_KERNEL(cls, layout, plane)                                          \
  class cls : public PadKernelBase {                                                \
   public:                                                                          \
    ~cls() override;                                                                \
    TRN_KERNEL_NAME(cls)                                                            \
    cls() : PadKernelBase(true, runtime::TensorShape::layout, plane) {}             \
  };

// The rows of a padded plane, each written by `row(d, s, left, width,
// right, spill)`; instantiated in each family's own file with its row.
// `spill` says the row may write past its end: the next row of the plane,
// written after it, covers those floats again.
template <typename Row>
void PadPlaneWith(float* d, const float* s, const functional::PadPlane& g, Row row) {
  const std::size_t out_row = g.left + g.width + g.right;
  for (std::size_t y = 0; y < g.out_rows; ++y, d += out_row) {
    const std::int64_t sy = static_cast<std::int64_t>(y) - g.top;
    if (sy < 0 || sy >= static_cast<std::int64_t>(g.in_rows)) {
      row(d, s, out_row, 0, 0, false);
    } else {
      row(d, s + static_cast<std::size_t>(sy) * g.in_row, g.left, g.width, g.right, y + 1 < g.out_rows);
    }
  }
}

// The padded row of a vector family: V supplies the vector type T, its width
// kWidth and Set1, Load and Store. `lanes` is 1 or kWidth. Instantiated in
// the family's own file, so it runs only there.
template <typename V>
inline void PadRowVector(float* d, const float* s, std::size_t left, std::size_t width, std::size_t right,
                         const float* pattern, std::uint32_t lanes, bool spill) {
  constexpr std::size_t kW = V::kWidth;
  const typename V::T fill = lanes == 1 ? V::Set1(pattern[0]) : V::Load(pattern);
  if (lanes == 1 && spill && left <= kW && right <= kW && width >= kW) {
    // A narrow frame around a long row: whole vectors everywhere. The left
    // fill vector runs into the row (the copy overwrites it), the last copy
    // overlaps the one before, the right fill vector runs into the next row.
    V::Store(d, fill);
    float* c = d + left;
    std::size_t i = 0;
    for (; i + 4 * kW <= width; i += 4 * kW) {
      const typename V::T a = V::Load(s + i), b = V::Load(s + i + kW), e = V::Load(s + i + 2 * kW),
                          f = V::Load(s + i + 3 * kW);
      V::Store(c + i, a);
      V::Store(c + i + kW, b);
      V::Store(c + i + 2 * kW, e);
      V::Store(c + i + 3 * kW, f);
    }
    for (; i + kW <= width; i += kW) V::Store(c + i, V::Load(s + i));
    V::Store(c + width - kW, V::Load(s + width - kW));
    V::Store(c + width, fill);
    return;
  }
  auto fill_run = [&](float* p, std::size_t n) {
    std::size_t i = 0;
    for (; i + kW <= n; i += kW) V::Store(p + i, fill);
    for (; i < n; ++i) p[i] = pattern[0];  // only rows of single floats leave a rest
  };
  fill_run(d, left);
  d += left;
  std::size_t i = 0;
  for (; i + 4 * kW <= width; i += 4 * kW) {
    const typename V::T a = V::Load(s + i), b = V::Load(s + i + kW), c = V::Load(s + i + 2 * kW),
                        e = V::Load(s + i + 3 * kW);
    V::Store(d + i, a);
    V::Store(d + i + kW, b);
    V::Store(d + i + 2 * kW, c);
    V::Store(d + i + 3 * kW, e);
  }
  for (; i + kW <= width; i += kW) V::Store(d + i, V::Load(s + i));
  for (; i < width; ++i) d[i] = s[i];
  fill_run(d + width, right);
}

// A padded plane of a vector family (see PadRowVector).
template <typename V>
void PadPlaneVector(float* d, const float* s, const functional::PadPlane& g, const float* pattern,
                    std::uint32_t lanes) {
  PadPlaneWith(d, s, g, [pattern, lanes](float* dr, const float* sr, std::size_t l, std::size_t w, std::size_t r,
                                         bool spill) { PadRowVector<V>(dr, sr, l, w, r, pattern, lanes, spill); });
}

}  // namespace kernel
}  // namespace tarn
