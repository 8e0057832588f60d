// Shared helpers of the shape-kernel tests: records from the PyTorch fixtures'
// params, running a kernel the way the net does (SetOutputs, then Forward),
// and the bodies that each instruction-set family runs against the portable
// routines over every tail. The TEST macros stay in the family's files, whose
// paths tell the suite's main which processors may run them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kernel/cpu/element_test_util.h"
#include "reference/reference_data.h"
#include "tarn/kernel/shape.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace testing {

// The fixture cases of tests/data/reference/shape/<file>.json with op `op`.
inline std::vector<RefCase> ShapeCases(const std::string& file, const std::string& op) {
  std::vector<RefCase> cases;
  for (auto& c : LoadReference("shape/" + file)) {
    if (c.op == op) cases.push_back(std::move(c));
  }
  return cases;
}

inline std::vector<short> ShortList(const runtime::JSONValue& v) {
  std::vector<short> out;
  for (const auto& x : v.GetArray()) out.push_back(static_cast<short>(x.GetInt()));
  return out;
}

inline std::shared_ptr<runtime::TensorCPU> RefInput(const std::shared_ptr<runtime::Context>& ctx, const RefTensor& t) {
  return MakeTensor(ctx, t.shape, t.data);
}

// Runs `k` as the net does: the input check, SetOutputs (a view, or a
// separate output with reuse false), then Forward. Null when any step fails.
inline std::shared_ptr<runtime::Tensor> RunAsNet(const std::shared_ptr<runtime::IKernel>& k,
                                                 const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                 const std::shared_ptr<runtime::Context>& ctx, bool* set = nullptr) {
  if (k->IsValidInput(inputs) != 0) return nullptr;
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  const bool supplied = k->SetOutputs(ctx, inputs, false, outputs);
  if (!supplied) outputs.clear();
  if (set) *set = supplied;
  if (!k->Forward(inputs, outputs, ctx) || outputs.size() != 1 || k->IsValidOutput(outputs) != 0) return nullptr;
  return outputs[0];
}

// Every float of `got` equals `want` bit for bit, and the dims agree.
inline ::testing::AssertionResult SameTensor(const std::shared_ptr<runtime::Tensor>& got, const RefTensor& want) {
  if (!got) return ::testing::AssertionFailure() << "no output";
  if (got->shape.dims != want.shape) {
    std::string text;
    for (unsigned d : got->shape.dims) text += std::to_string(d) + " ";
    return ::testing::AssertionFailure() << "dims " << text;
  }
  return SameBits(Values(got), want.data);
}

// A float buffer of n values with signalling and payload NaNs, -0 and
// denormals mixed in, so that any arithmetic on a moved value shows.
inline std::vector<float> MovePatterns(size_t n, unsigned seed) {
  std::vector<float> v = TestValues(n, -50.0f, 50.0f, seed, 0);
  const std::uint32_t odd[] = {0x7f800001u, 0xff812345u, 0x7fbfffffu, 0x80000000u, 0x00000001u, 0x807fffffu};
  for (size_t i = 3; i < n; i += 5) v[i] = FromBits(odd[(i / 5) % 6]);
  return v;
}

inline std::shared_ptr<runtime::ConcatenateInfo> Concat(std::uint16_t dim) {
  auto r = std::make_shared<runtime::ConcatenateInfo>();
  r->dim = dim;
  return r;
}

// A channel case of the concatenation fixtures (CHW maps) run by kernel K on
// the maps blocked by `lanes`, the real counts handed over as the net builder
// does: the output holds the reference's channels with zero tail lanes, bit
// for bit.
template <typename K>
void ExpectBlockedChannels(const RefCase& c, unsigned lanes) {
  auto ctx = ElementContext();
  auto k = Configured<K>(Concat(0), ctx);
  const auto layout = lanes == 4 ? runtime::TensorShape::C4HW4 : runtime::TensorShape::C8HW8;
  std::vector<std::shared_ptr<runtime::Tensor>> in;
  std::vector<std::int64_t> counts;
  const unsigned h = c.inputs[0].shape[1], w = c.inputs[0].shape[2];
  for (const auto& t : c.inputs) {
    const unsigned ch = t.shape[0];
    in.push_back(MakeTensor(ctx, {(ch + lanes - 1) / lanes, h, w, lanes}, ToBlocked(t.data, ch, h, w, lanes), layout));
    counts.push_back(ch);
  }
  k->SetInputChannels(counts);
  auto out = RunAsNet(k, in, ctx);
  ASSERT_TRUE(out) << c.name;
  const unsigned total = c.outputs[0].shape[0];
  EXPECT_EQ(out->shape.dims, (std::vector<unsigned>{(total + lanes - 1) / lanes, h, w, lanes}));
  EXPECT_EQ(out->shape.layout, layout);
  EXPECT_TRUE(SameBits(Values(out), ToBlocked(c.outputs[0].data, total, h, w, lanes))) << c.name;
}

// The channel cases of the concatenation fixtures.
inline std::vector<RefCase> ChannelConcatCases() {
  std::vector<RefCase> out;
  for (auto& c : ShapeCases("concat", "concat")) {
    if (ParseParams(c)["dim"].GetUint() == 0 && c.inputs[0].shape.size() == 3) out.push_back(c);
  }
  return out;
}

inline std::shared_ptr<runtime::Pad2dInfo> Pad2dFromCase(const RefCase& c) {
  const auto p = ParseParams(c);
  auto r = std::make_shared<runtime::Pad2dInfo>();
  r->padding_l = static_cast<std::int16_t>(p["padding_l"].GetInt());
  r->padding_r = static_cast<std::int16_t>(p["padding_r"].GetInt());
  r->padding_t = static_cast<std::int16_t>(p["padding_t"].GetInt());
  r->padding_b = static_cast<std::int16_t>(p["padding_b"].GetInt());
  r->padding_v = static_cast<float>(p["padding_v"].GetDouble());
  return r;
}

// A 2-D padding case of the fixtures run by kernel K: on the dense input
// (lanes 1), or on a CHW input blocked by `lanes` with its channel count
// handed over (the new pixels' tail lanes must stay zero).
template <typename K>
void ExpectPad2dCase(const RefCase& c, unsigned lanes) {
  auto ctx = ElementContext();
  auto k = Configured<K>(Pad2dFromCase(c), ctx);
  if (lanes == 1) {
    EXPECT_TRUE(SameTensor(RunAsNet(k, {RefInput(ctx, c.inputs[0])}, ctx), c.outputs[0])) << c.name;
    return;
  }
  const auto& s = c.inputs[0].shape;
  ASSERT_EQ(s.size(), 3u);
  const auto layout = lanes == 4 ? runtime::TensorShape::C4HW4 : runtime::TensorShape::C8HW8;
  const unsigned blocks = (s[0] + lanes - 1) / lanes;
  k->SetInputChannels({s[0]});
  auto out = RunAsNet(k, {MakeTensor(ctx, {blocks, s[1], s[2], lanes}, ToBlocked(c.inputs[0].data, s[0], s[1], s[2], lanes),
                                     layout)},
                      ctx);
  ASSERT_TRUE(out) << c.name;
  const auto& o = c.outputs[0].shape;
  EXPECT_EQ(out->shape.dims, (std::vector<unsigned>{blocks, o[1], o[2], lanes})) << c.name;
  EXPECT_TRUE(SameBits(Values(out), ToBlocked(c.outputs[0].data, o[0], o[1], o[2], lanes))) << c.name;
}

// The 2-D padding cases of CHW maps.
inline std::vector<RefCase> Pad2dMapCases() {
  std::vector<RefCase> out;
  for (auto& c : ShapeCases("pad", "pad2d")) {
    if (c.inputs[0].shape.size() == 3) out.push_back(c);
  }
  return out;
}

// The CHW member of a vector family's 2-D padding takes dense tensors only,
// its blocked member blocked tensors of its lanes only.
template <typename Chw, typename Blocked>
void ExpectPadMembersTakeTheirLayouts(unsigned lanes) {
  auto ctx = ElementContext();
  auto rec = std::make_shared<runtime::Pad2dInfo>();
  rec->padding_l = 1;
  auto chw = Configured<Chw>(rec, ctx);
  auto blocked = Configured<Blocked>(rec, ctx);
  const auto layout = lanes == 4 ? runtime::TensorShape::C4HW4 : runtime::TensorShape::C8HW8;
  const auto other = lanes == 4 ? runtime::TensorShape::C8HW8 : runtime::TensorShape::C4HW4;
  auto a = MakeTensor(ctx, {2, 3, 3}, {});
  auto b = MakeTensor(ctx, {1, 3, 3, lanes}, {}, layout);
  auto c = MakeTensor(ctx, {1, 3, 3, 12 - lanes}, {}, other);
  EXPECT_EQ(chw->IsValidInput({a}), 0);
  EXPECT_EQ(chw->IsValidInput({b}), kernel::kInvalidTensor);
  EXPECT_EQ(blocked->IsValidInput({b}), 0);
  EXPECT_EQ(blocked->IsValidInput({a}), kernel::kInvalidTensor);
  EXPECT_EQ(blocked->IsValidInput({c}), kernel::kInvalidTensor);
}

inline std::shared_ptr<runtime::PixelShuffleInfo> Shuffle(float r) {
  auto rec = std::make_shared<runtime::PixelShuffleInfo>();
  rec->upscale_factor = r;
  return rec;
}

// ---------------------------------------------------------------------------
// Family bodies.

using PlaceFn = void (*)(const float*, std::uint32_t, std::uint32_t, std::uint32_t, float*);

// The vector channel placement equals the portable one bit for bit for every
// offset within a block, channel counts up to three blocks and pixel counts
// that leave every tail of the four-pixel step, plus one that spans three
// 128-pixel (two 256-pixel) chunks with a rest: the output's earlier lanes
// are kept, lanes beyond the input's channels are cleared whatever the
// input's tail lanes hold.
inline void ExpectPlacementMatchesPortable(PlaceFn place, std::uint32_t lanes) {
  for (std::uint32_t offset = 0; offset < 2 * lanes + 1; ++offset) {
    for (std::uint32_t channels = 1; channels <= 3 * lanes + 1; ++channels) {
      for (std::uint32_t pixels : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 9u, 259u}) {
        const std::uint32_t in_blocks = (channels + lanes - 1) / lanes;
        const std::uint32_t out_blocks = (offset + channels + lanes - 1) / lanes;
        const size_t plane = size_t(pixels) * lanes;
        const std::vector<float> in = MovePatterns(in_blocks * plane, offset * 131 + channels * 7 + pixels);
        const std::vector<float> before = MovePatterns(out_blocks * plane, 999 + offset + channels);
        std::vector<float> got(before), want(before);
        place(in.data(), channels, pixels, offset, got.data());
        kernel::functional::place_channels_f32(in.data(), channels, pixels, offset, lanes, want.data());
        ASSERT_TRUE(SameBits(got, want)) << "offset " << offset << " channels " << channels << " pixels " << pixels;
        // The reference itself: output channel offset + c is input channel c.
        for (std::uint32_t c = 0; c < channels; ++c) {
          const std::uint32_t o = offset + c;
          for (std::uint32_t p = 0; p < pixels; ++p) {
            ASSERT_EQ(Bits(want[(o / lanes) * plane + p * lanes + o % lanes]),
                      Bits(in[(c / lanes) * plane + p * lanes + c % lanes]));
          }
        }
      }
    }
  }
}

using PadPlaneFn = void (*)(float*, const float*, const kernel::functional::PadPlane&, const float*, std::uint32_t);

// The vector padded plane equals the portable one for every left, width and
// right amount up to five vectors and a few more, in single floats and in
// pixel vectors of `lanes`, with rows added and cropped at the top and bottom.
inline void ExpectPadPlaneMatchesPortable(PadPlaneFn plane, std::uint32_t lanes) {
  const float pattern[8] = {1.5f, -0.0f, FromBits(0x7f800001u), 3.0f, 0.0f, -7.25f, 0.0f, 0.0f};
  for (std::uint32_t k : {1u, lanes}) {
    for (size_t left = 0; left <= 5 * lanes + 1; left += k) {
      for (size_t width = 0; width <= 5 * lanes + 3; width += k) {
        for (size_t right = 0; right <= 2 * lanes + 1; right += k) {
          kernel::functional::PadPlane g;
          g.in_rows = 3, g.out_rows = 2 + (left + right) % 4, g.top = static_cast<std::int64_t>(width % 3) - 1;
          g.in_row = width + k, g.left = left, g.width = width, g.right = right;
          const std::vector<float> s = MovePatterns(g.in_rows * g.in_row, unsigned(left * 41 + width * 3 + right));
          std::vector<float> got(g.out_rows * (left + width + right) + 1, 42.0f), want(got);
          plane(got.data(), s.data(), g, pattern, k);
          kernel::functional::pad_plane_f32(want.data(), s.data(), g, pattern, k);
          ASSERT_TRUE(SameBits(got, want)) << "lanes " << k << " left " << left << " width " << width << " right "
                                           << right << " top " << g.top;
        }
      }
    }
  }
}

using InterleaveFn = void (*)(const float* const*, std::uint32_t, std::uint32_t, float*);

// The vector interleave equals the portable one for factors 1 to 9 and every
// width up to four vector steps and a tail.
inline void ExpectInterleaveMatchesPortable(InterleaveFn fn, std::uint32_t width_step) {
  for (std::uint32_t r = 1; r <= 9; ++r) {
    for (std::uint32_t width = 0; width <= 4 * width_step + 3; ++width) {
      std::vector<std::vector<float>> rows;
      std::vector<const float*> ptrs;
      for (std::uint32_t j = 0; j < r; ++j) rows.push_back(MovePatterns(width + 1, r * 100 + j * 10 + width));
      for (const auto& v : rows) ptrs.push_back(v.data());
      std::vector<float> got(size_t(width) * r + 1, 9.0f), want(got);
      fn(ptrs.data(), r, width, got.data());
      kernel::functional::interleave_rows_f32(ptrs.data(), r, width, want.data());
      ASSERT_TRUE(SameBits(got, want)) << "r " << r << " width " << width;
    }
  }
}

}  // namespace testing
}  // namespace tarn
