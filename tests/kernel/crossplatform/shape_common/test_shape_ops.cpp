// The cross-platform shape kernels: every PyTorch fixture case bit for bit,
// views where the elements stay in place (sharing the input's storage), the
// gather engine over element sizes, and the records and inputs they refuse.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <set>

#include "kernel/cpu/shape_test_util.h"
#include "kernel/crossplatform/expand/expand.h"
#include "kernel/crossplatform/getitem/getitem.h"
#include "kernel/crossplatform/reshape/reshape.h"
#include "kernel/crossplatform/slice/slice.h"
#include "kernel/crossplatform/squeeze/squeeze.h"
#include "kernel/crossplatform/transpose/transpose.h"
#include "kernel/crossplatform/unsqueeze/unsqueeze.h"

namespace tarn {
namespace testing {
namespace {

using runtime::TensorShape;

// A configured kernel and its record for one fixture case.
struct Made {
  std::shared_ptr<runtime::IKernel> kernel;
  bool view;  // whether the case must come out as a view
};

Made MakeFor(const RefCase& c, const std::shared_ptr<runtime::Context>& ctx) {
  const auto p = ParseParams(c);
  std::shared_ptr<runtime::LayerInfo> rec;
  std::shared_ptr<runtime::IKernel> k;
  bool view = true;
  if (c.op == "reshape") {
    auto r = std::make_shared<runtime::TensorReshapeInfo>();
    r->new_shape = ShortList(p["new_shape"]);
    rec = r, k = std::make_shared<kernel::TensorReshape_Fallback_M1>();
  } else if (c.op == "squeeze") {
    auto r = std::make_shared<runtime::TensorSqueezeInfo>();
    r->dim = static_cast<std::int16_t>(p["dim"].GetInt());
    rec = r, k = std::make_shared<kernel::TensorSqueeze_Fallback_M1>();
  } else if (c.op == "unsqueeze") {
    auto r = std::make_shared<runtime::TensorUnSqueezeInfo>();
    r->dim = static_cast<std::int16_t>(p["dim"].GetInt());
    rec = r, k = std::make_shared<kernel::TensorUnSqueeze_Fallback_M1>();
  } else if (c.op == "transpose") {
    auto r = std::make_shared<runtime::TensorTransposeInfo>();
    for (const auto& a : p["axes"].GetArray()) r->axes.push_back(static_cast<unsigned short>(a.GetUint()));
    // Only dims of extent 1 move: the elements stay where they are.
    std::vector<unsigned> kept;
    for (unsigned short a : r->axes) {
      if (c.inputs[0].shape[a] != 1) kept.push_back(a);
    }
    view = std::is_sorted(kept.begin(), kept.end());
    rec = r, k = std::make_shared<kernel::TensorTranspose_Fallback_M1>();
  } else if (c.op == "expand") {
    auto r = std::make_shared<runtime::TensorExpandInfo>();
    r->new_shape = ShortList(p["new_shape"]);
    rec = r, k = std::make_shared<kernel::TensorExpand_Fallback_M1>(), view = false;
  } else if (c.op == "slice") {
    auto r = std::make_shared<runtime::TensorSliceInfo>();
    r->slice_dims = ShortList(p["slice_dims"]);
    rec = r, k = std::make_shared<kernel::TensorSlice_Fallback_M1>(), view = false;
  } else {
    auto r = std::make_shared<runtime::TensorGetItemInfo>();
    for (const auto& s : p["samplings"].GetArray()) {
      runtime::TensorDimemsionSamplingInfo info;
      info.sampling_type = static_cast<std::uint16_t>(s["type"].GetUint());
      info.data = ShortList(s["data"]);
      r->sampling_infos.push_back(info);
    }
    rec = r, k = std::make_shared<kernel::TensorGetItem_Fallback_M1>(), view = false;
  }
  EXPECT_EQ(k->IsValidParam(rec, nullptr), 0) << c.name;
  EXPECT_TRUE(k->Config(rec, nullptr, ctx)) << c.name;
  return {k, view};
}

class ShapeReference : public ::testing::TestWithParam<RefCase> {};

TEST_P(ShapeReference, MatchesPyTorch) {
  const RefCase& c = GetParam();
  auto ctx = ElementContext();
  const Made m = MakeFor(c, ctx);
  auto in = RefInput(ctx, c.inputs[0]);
  bool supplied = false;
  auto out = RunAsNet(m.kernel, {in}, ctx, &supplied);
  ASSERT_TRUE(SameTensor(out, c.outputs[0])) << c.name;
  EXPECT_EQ(m.kernel->GetOutputShapes({in->shape})[0], out->shape) << c.name;
  // A view shares (and keeps alive) the input's storage; a copy does not.
  EXPECT_EQ(supplied, m.view) << c.name;
  EXPECT_EQ(out->Data() == in->Data(), m.view) << c.name;
  // Called directly, Forward gives the same tensor.
  std::vector<std::shared_ptr<runtime::Tensor>> direct;
  ASSERT_TRUE(m.kernel->Forward({in}, direct, ctx));
  EXPECT_TRUE(SameTensor(direct[0], c.outputs[0])) << c.name;
}

std::vector<RefCase> AllShapeCases() {
  std::vector<RefCase> all;
  for (const char* file : {"views", "gathers"}) {
    auto cases = LoadReference(std::string("shape/") + file);
    all.insert(all.end(), cases.begin(), cases.end());
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(Fixtures, ShapeReference, ::testing::ValuesIn(AllShapeCases()),
                         [](const auto& info) { return info.param.name; });

TEST(ShapeReferenceData, EveryOperationHasCases) {
  std::set<std::string> ops;
  for (const auto& c : AllShapeCases()) ops.insert(c.op);
  EXPECT_EQ(ops, (std::set<std::string>{"reshape", "squeeze", "unsqueeze", "transpose", "expand", "slice", "getitem"}));
}

TEST(ShapeViews, OutliveTheirInputAndSeeItsStorage) {
  auto ctx = ElementContext();
  auto rec = std::make_shared<runtime::TensorReshapeInfo>();
  rec->new_shape = {-1};
  auto k = Configured<kernel::TensorReshape_Fallback_M1>(rec, ctx);
  auto in = MakeTensor(ctx, {2, 3}, {1, 2, 3, 4, 5, 6});
  auto out = RunAsNet(k, {in}, ctx);
  ASSERT_TRUE(out);
  in->DataAs<float>()[4] = 50.0f;  // the view sees writes to the storage it shares
  EXPECT_EQ(Values(out)[4], 50.0f);
  const float* storage = in->DataAs<float>();
  in.reset();  // the view keeps the storage alive
  EXPECT_EQ(static_cast<const float*>(out->Data()), storage);
  EXPECT_EQ(Values(out), (std::vector<float>{1, 2, 3, 4, 50, 6}));
}

// The gather engine moves elements of every size bit for bit: a transpose of
// 1-, 2-, 4- and 8-byte tensors against the index arithmetic.
class GatherElementSize : public ::testing::TestWithParam<TensorShape::DataType> {};

TEST_P(GatherElementSize, TransposesEveryByte) {
  auto ctx = ElementContext();
  auto rec = std::make_shared<runtime::TensorTransposeInfo>();
  rec->axes = {2, 0, 1};
  auto k = Configured<kernel::TensorTranspose_Fallback_M1>(rec, ctx);
  const unsigned a = 3, b = 4, c = 5;
  auto in = ctx->cpu->CreateTensor(runtime::MakeShape({a, b, c}, GetParam()));
  const size_t eb = in->shape.ElementSize();
  auto* bytes = static_cast<unsigned char*>(in->Data());
  for (size_t i = 0; i < a * b * c * eb; ++i) bytes[i] = static_cast<unsigned char>(i * 7 + 3);
  auto out = RunAsNet(k, {in}, ctx);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->shape.dims, (std::vector<unsigned>{c, a, b}));
  EXPECT_EQ(out->shape.data_type, GetParam());
  const auto* got = static_cast<const unsigned char*>(out->Data());
  for (unsigned z = 0; z < c; ++z)
    for (unsigned x = 0; x < a; ++x)
      for (unsigned y = 0; y < b; ++y)
        ASSERT_EQ(std::memcmp(got + ((z * a + x) * b + y) * eb, bytes + ((x * b + y) * c + z) * eb, eb), 0);
}

INSTANTIATE_TEST_SUITE_P(Types, GatherElementSize,
                         ::testing::Values(TensorShape::UINT8, TensorShape::INT16, TensorShape::FLOAT32,
                                           TensorShape::INT32),
                         TRN_INDEX_NAMES);

// Records refused whatever the input (IsValidParam and Config), and records
// that refuse particular inputs (IsValidInput, logged with the reason, and
// Forward), never a crash.
struct Refusal {
  std::string what;
  std::function<std::shared_ptr<runtime::IKernel>()> kernel;
  std::function<std::shared_ptr<runtime::LayerInfo>()> record;
  std::vector<unsigned> dims;  // empty: the record itself is refused
  std::string reason;          // part of the logged reason
};

template <typename K, typename R>
Refusal Refuse(std::string what, std::function<void(R&)> fill, std::vector<unsigned> dims, std::string reason) {
  return {what, [] { return std::make_shared<K>(); },
          [fill] {
            auto r = std::make_shared<R>();
            fill(*r);
            return r;
          },
          dims, reason};
}

std::vector<Refusal> Refusals() {
  using namespace kernel;
  using runtime::TensorDimemsionSamplingInfo;
  auto sampling = [](std::uint16_t type, std::vector<short> data) {
    TensorDimemsionSamplingInfo s;
    s.sampling_type = type;
    s.data = std::move(data);
    return s;
  };
  return {
      Refuse<TensorReshape_Fallback_M1, runtime::TensorReshapeInfo>(
          "two_inferred", [](auto& r) { r.new_shape = {-1, 2, -1}; }, {}, ""),
      Refuse<TensorReshape_Fallback_M1, runtime::TensorReshapeInfo>(
          "negative_extent", [](auto& r) { r.new_shape = {-2, 3}; }, {}, ""),
      Refuse<TensorReshape_Fallback_M1, runtime::TensorReshapeInfo>(
          "other_count", [](auto& r) { r.new_shape = {5, 5}; }, {2, 3, 4}, "does not hold the 24 elements"),
      Refuse<TensorReshape_Fallback_M1, runtime::TensorReshapeInfo>(
          "inferred_misfit", [](auto& r) { r.new_shape = {5, -1}; }, {2, 3, 4}, "cannot hold"),
      Refuse<TensorReshape_Fallback_M1, runtime::TensorReshapeInfo>(
          "copy_beyond_rank", [](auto& r) { r.new_shape = {0, 0, 0}; }, {6, 4}, "copies dim 2"),
      Refuse<TensorReshape_Fallback_M1, runtime::TensorReshapeInfo>(
          "overflowing_extents", [](auto& r) { r.new_shape = {32767, 32767, 32767, 32767}; }, {2, 3},
          "does not hold"),
      Refuse<TensorSqueeze_Fallback_M1, runtime::TensorSqueezeInfo>(
          "squeeze_out_of_range", [](auto& r) { r.dim = 3; }, {1, 2, 3}, "outside"),
      Refuse<TensorUnSqueeze_Fallback_M1, runtime::TensorUnSqueezeInfo>(
          "unsqueeze_out_of_range", [](auto& r) { r.dim = -5; }, {2, 3, 4}, "cannot be inserted"),
      Refuse<TensorTranspose_Fallback_M1, runtime::TensorTransposeInfo>(
          "repeated_axis", [](auto& r) { r.axes = {0, 0, 1}; }, {}, ""),
      Refuse<TensorTranspose_Fallback_M1, runtime::TensorTransposeInfo>(
          "axis_beyond", [](auto& r) { r.axes = {0, 3, 1}; }, {}, ""),
      Refuse<TensorTranspose_Fallback_M1, runtime::TensorTransposeInfo>(
          "wrong_rank", [](auto& r) { r.axes = {1, 0}; }, {2, 3, 4}, "2 axes"),
      Refuse<TensorExpand_Fallback_M1, runtime::TensorExpandInfo>(
          "not_broadcast", [](auto& r) { r.new_shape = {3, 4}; }, {2, 4}, "not a broadcast"),
      Refuse<TensorExpand_Fallback_M1, runtime::TensorExpandInfo>(
          "fewer_dims", [](auto& r) { r.new_shape = {4}; }, {1, 4}, "fewer dims"),
      Refuse<TensorExpand_Fallback_M1, runtime::TensorExpandInfo>(
          "inferred_new_dim", [](auto& r) { r.new_shape = {-1, 4}; }, {4}, "positive extent"),
      Refuse<TensorExpand_Fallback_M1, runtime::TensorExpandInfo>(
          "overflowing", [](auto& r) { r.new_shape = {32767, 32767, 32767, -1}; }, {1, 1, 1, 9}, "too many"),
      Refuse<TensorSlice_Fallback_M1, runtime::TensorSliceInfo>(
          "step_zero", [](auto& r) { r.slice_dims = {0, 0, 2, 0}; }, {}, ""),
      Refuse<TensorSlice_Fallback_M1, runtime::TensorSliceInfo>(
          "ragged_groups", [](auto& r) { r.slice_dims = {0, 0, 2}; }, {}, ""),
      Refuse<TensorSlice_Fallback_M1, runtime::TensorSliceInfo>(
          "past_the_end", [](auto& r) { r.slice_dims = {1, 7, 9, 1}; }, {2, 5}, "selects nothing"),
      Refuse<TensorSlice_Fallback_M1, runtime::TensorSliceInfo>(
          "dim_twice", [](auto& r) { r.slice_dims = {1, 0, 2, 1, -1, 0, 1, 1}; }, {2, 5}, "twice"),
      Refuse<TensorSlice_Fallback_M1, runtime::TensorSliceInfo>(
          "dim_outside", [](auto& r) { r.slice_dims = {2, 0, 1, 1}; }, {2, 5}, "outside"),
      Refuse<TensorGetItem_Fallback_M1, runtime::TensorGetItemInfo>(
          "unknown_type", [&](auto& r) { r.sampling_infos = {sampling(4, {0})}; }, {}, ""),
      Refuse<TensorGetItem_Fallback_M1, runtime::TensorGetItemInfo>(
          "index_without_data", [&](auto& r) { r.sampling_infos = {sampling(1, {})}; }, {}, ""),
      Refuse<TensorGetItem_Fallback_M1, runtime::TensorGetItemInfo>(
          "range_step_zero", [&](auto& r) { r.sampling_infos = {sampling(2, {0, 3, 0})}; }, {}, ""),
      Refuse<TensorGetItem_Fallback_M1, runtime::TensorGetItemInfo>(
          "index_outside", [&](auto& r) { r.sampling_infos = {sampling(1, {-4})}; }, {3, 2}, "index -4"),
      Refuse<TensorGetItem_Fallback_M1, runtime::TensorGetItemInfo>(
          "list_outside", [&](auto& r) { r.sampling_infos = {sampling(0, {}), sampling(3, {0, 2})}; }, {3, 2},
          "index 2"),
      Refuse<TensorGetItem_Fallback_M1, runtime::TensorGetItemInfo>(
          "too_many_infos", [&](auto& r) { r.sampling_infos = {sampling(0, {}), sampling(0, {})}; }, {3},
          "2 sampling infos"),
      Refuse<TensorGetItem_Fallback_M1, runtime::TensorGetItemInfo>(
          "empty_range", [&](auto& r) { r.sampling_infos = {sampling(2, {2, 1, 1})}; }, {3}, "selects nothing"),
  };
}

class ShapeRefusal : public ::testing::TestWithParam<Refusal> {};

TEST_P(ShapeRefusal, IsRefusedWithItsReason) {
  const Refusal& r = GetParam();
  auto ctx = ElementContext();
  auto k = r.kernel();
  auto rec = r.record();
  LogCapture log;
  if (r.dims.empty()) {
    EXPECT_EQ(k->IsValidParam(rec, nullptr), kernel::kInvalidParam);
    EXPECT_FALSE(k->Config(rec, nullptr, ctx));
    EXPECT_FALSE(k->IsConfiged());
    // An unconfigured kernel refuses every input.
    EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {2, 3}, {})}), kernel::kInvalidTensor);
    return;
  }
  ASSERT_TRUE(k->Config(rec, nullptr, ctx));
  auto in = MakeTensor(ctx, r.dims, {});
  EXPECT_EQ(k->IsValidInput({in}), kernel::kInvalidTensor);
  EXPECT_TRUE(log.Contains(r.reason)) << (log.lines.empty() ? "" : log.lines.back().second);
  EXPECT_TRUE(k->GetOutputShapes({in->shape}).empty());
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_FALSE(k->SetOutputs(ctx, {in}, false, outputs));
  EXPECT_FALSE(k->Forward({in}, outputs, ctx));
}

INSTANTIATE_TEST_SUITE_P(Records, ShapeRefusal, ::testing::ValuesIn(Refusals()),
                         [](const auto& info) { return info.param.what; });

// Tensors no shape kernel takes: blocked layouts, none or several inputs,
// unknown element types, and the wrong record class.
TEST(ShapeRefusal, RefusesForeignTensorsAndRecords) {
  auto ctx = ElementContext();
  auto rec = std::make_shared<runtime::TensorReshapeInfo>();
  rec->new_shape = {-1};
  auto k = Configured<kernel::TensorReshape_Fallback_M1>(rec, ctx);
  LogCapture log;
  EXPECT_EQ(k->IsValidInput({MakeTensor(ctx, {2, 3, 3, 4}, {}, TensorShape::C4HW4)}), kernel::kInvalidTensor);
  EXPECT_TRUE(log.Contains("channel-blocked"));
  EXPECT_EQ(k->IsValidInput({}), kernel::kInvalidTensor);
  auto t = MakeTensor(ctx, {2, 3}, {});
  EXPECT_EQ(k->IsValidInput({t, t}), kernel::kInvalidTensor);
  auto odd = MakeTensor(ctx, {2, 3}, {});
  odd->shape.data_type = static_cast<TensorShape::DataType>(99);
  EXPECT_EQ(k->IsValidInput({odd}), kernel::kInvalidTensor);
  // Squeeze and unsqueeze records share a type code; each kernel takes its own class only.
  kernel::TensorSqueeze_Fallback_M1 squeeze;
  kernel::TensorUnSqueeze_Fallback_M1 unsqueeze;
  auto s = std::make_shared<runtime::TensorSqueezeInfo>();
  auto u = std::make_shared<runtime::TensorUnSqueezeInfo>();
  EXPECT_EQ(s->type, u->type);
  EXPECT_EQ(squeeze.IsValidParam(s, nullptr), 0);
  EXPECT_EQ(squeeze.IsValidParam(u, nullptr), kernel::kInvalidParam);
  EXPECT_EQ(unsqueeze.IsValidParam(u, nullptr), 0);
  EXPECT_EQ(unsqueeze.IsValidParam(s, nullptr), kernel::kInvalidParam);
  EXPECT_EQ(k->IsValidParam(std::make_shared<runtime::ConcatenateInfo>(), nullptr), kernel::kInvalidParam);
}

}  // namespace
}  // namespace testing
}  // namespace tarn
