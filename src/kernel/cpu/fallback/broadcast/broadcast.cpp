#include "kernel/cpu/fallback/broadcast/broadcast.h"

#include <algorithm>

#include "kernel/cpu/avx/broadcast/broadcast.h"
#include "tarn/kernel/elementwise.h"

namespace tarn {
namespace kernel {

// Built during static initialisation of this baseline file; only read after.
std::map<std::uint16_t, BroadcastFunc> BroadcastOpType2Func = {
    {0, [](const float& a, const float& b) { return a + b; }},
    {1, [](const float& a, const float& b) { return a - b; }},
    {2, [](const float& a, const float& b) { return a * b; }},
    {3, [](const float& a, const float& b) { return a / b; }},
    // The scalar max/min instruction's rule: the second operand unless the
    // first compares greater (smaller), so a NaN anywhere yields b.
    {4, [](const float& a, const float& b) { return a > b ? a : b; }},
    {5, [](const float& a, const float& b) { return a < b ? a : b; }},
};

bool BroadcastDimsCompatible(const std::vector<unsigned>& a, const std::vector<unsigned>& b) {
  const size_t n = std::min(a.size(), b.size());
  for (size_t i = 1; i <= n; ++i) {
    const unsigned x = a[a.size() - i], y = b[b.size() - i];
    if (x == y) continue;
    if (x == 0 || y == 0) return false;
    if (x != 1 && y != 1) return false;
  }
  return true;
}

std::vector<unsigned> BroadcastOutputDims(const std::vector<unsigned>& a, const std::vector<unsigned>& b) {
  std::vector<unsigned> out = a.size() >= b.size() ? a : b;
  const size_t n = std::min(a.size(), b.size());
  for (size_t i = 1; i <= n; ++i) out[out.size() - i] = std::max(a[a.size() - i], b[b.size() - i]);
  return out;
}

namespace functional {

namespace {

// Element strides of an operand over the output's axes; 0 where it broadcasts
// or does not reach.
std::vector<size_t> AlignedStrides(const std::vector<unsigned>& dims, size_t out_rank) {
  std::vector<size_t> strides(out_rank, 0);
  size_t stride = 1;
  for (size_t i = 1; i <= dims.size(); ++i) {
    const unsigned d = dims[dims.size() - i];
    strides[out_rank - i] = d == 1 ? 0 : stride;
    stride *= d;
  }
  return strides;
}

}  // namespace

void BroadcastOperator_F32(const float* a, const std::vector<unsigned>& a_dims, const float* b,
                           const std::vector<unsigned>& b_dims, const BroadcastFunc& func, float* dst,
                           const std::vector<unsigned>& dst_dims) {
  const size_t rank = dst_dims.size();
  size_t total = 1;
  for (unsigned d : dst_dims) total *= d;
  if (total == 0) return;
  if (rank == 0) {
    dst[0] = func(a[0], b[0]);
    return;
  }
  const std::vector<size_t> sa = AlignedStrides(a_dims, rank), sb = AlignedStrides(b_dims, rank);
  // An odometer over all axes but the last; the last is the inner loop.
  std::vector<unsigned> coord(rank, 0);
  const unsigned inner = dst_dims[rank - 1];
  const size_t ia = sa[rank - 1], ib = sb[rank - 1];
  size_t oa = 0, ob = 0;
  for (size_t done = 0; done < total; done += inner) {
    const float* pa = a + oa;
    const float* pb = b + ob;
    for (unsigned x = 0; x < inner; ++x) dst[x] = func(pa[x * ia], pb[x * ib]);
    dst += inner;
    for (size_t axis = rank - 1; axis-- > 0;) {
      oa += sa[axis];
      ob += sb[axis];
      if (++coord[axis] < dst_dims[axis]) break;
      oa -= sa[axis] * coord[axis];
      ob -= sb[axis] * coord[axis];
      coord[axis] = 0;
    }
  }
}

}  // namespace functional

// ---------------------------------------------------------------------------

std::int32_t BroadcastKernelBase::IsValidParam(std::shared_ptr<runtime::LayerInfo> layer,
                                               std::shared_ptr<runtime::InferenceParam> param) const {
  if (param) return kInvalidParam;
  auto rec = std::dynamic_pointer_cast<runtime::BroadcastOperatorInfo>(layer);
  if (!rec) return kInvalidParam;
  return only_code_ < 0 || rec->op_type == only_code_ ? kValid : kInvalidParam;
}

bool BroadcastKernelBase::Config(std::shared_ptr<runtime::LayerInfo> layer,
                                 std::shared_ptr<runtime::InferenceParam> param, std::shared_ptr<runtime::Context>) {
  configured_ = false;
  if (IsValidParam(layer, param) != kValid) return false;
  info = std::static_pointer_cast<runtime::BroadcastOperatorInfo>(layer);
  configured_ = true;
  return true;
}

std::vector<runtime::TensorShape> BroadcastOperator_Fallback_Float_M1::GetOutputShapes(
    const std::vector<runtime::TensorShape>& inputs) const {
  if (inputs.size() < 2) return {};
  runtime::TensorShape out = inputs[0];
  out.dims = BroadcastOutputDims(inputs[0].dims, inputs[1].dims);
  return {out};
}

std::int32_t BroadcastOperator_Fallback_Float_M1::IsValidInput(
    const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (CheckFloatTensors(inputs, 2) != kValid) return kInvalidTensor;
  const auto& a = inputs[0]->shape;
  const auto& b = inputs[1]->shape;
  if (a.layout != b.layout || a.extra.step_size != b.extra.step_size) return kInvalidTensor;
  if (!BroadcastDimsCompatible(a.dims, b.dims)) return kInvalidTensor;
  runtime::TensorShape out = a;
  out.dims = BroadcastOutputDims(a.dims, b.dims);
  if (out.ElementCount() > UINT32_MAX) return kInvalidTensor;
  return kValid;
}

bool BroadcastOperator_Fallback_Float_M1::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                  std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                                  std::shared_ptr<runtime::Context> context) const {
  if (!info || inputs.size() < 2 || !context || !context->cpu) return false;
  // operator[] on purpose: an unknown code gets an empty entry and no operation.
  const BroadcastFunc func = BroadcastOpType2Func[info->op_type];
  if (!func) return false;
  const runtime::TensorShape shape = GetOutputShapes({inputs[0]->shape, inputs[1]->shape})[0];
  auto out = context->cpu->CreateTensor(shape, nullptr);
  functional::BroadcastOperator_F32(static_cast<const float*>(inputs[0]->Data()), inputs[0]->shape.dims,
                                    static_cast<const float*>(inputs[1]->Data()), inputs[1]->shape.dims, func,
                                    out->DataAs<float>(), shape.dims);
  outputs.assign(1, out);
  return true;
}

// ---------------------------------------------------------------------------

BroadcastChannelMulBase::BroadcastChannelMulBase(unsigned lanes, runtime::TensorShape::Layout layout, MulFn fn)
    : BroadcastKernelBase(runtime::ELEMENTWISE_MUL), lanes_(lanes), layout_(layout), fn_(fn) {}

size_t BroadcastChannelMulBase::ScaleIndex(const std::vector<runtime::TensorShape>& shapes) {
  const auto& d = shapes[0].dims;
  return d.size() == 4 && d[1] == 1 && d[2] == 1 ? 0 : 1;
}

std::vector<runtime::TensorShape> BroadcastChannelMulBase::GetOutputShapes(
    const std::vector<runtime::TensorShape>& inputs) const {
  if (inputs.size() < 2) return {};
  return {inputs[1 - ScaleIndex(inputs)]};
}

std::int32_t BroadcastChannelMulBase::IsValidInput(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs) const {
  if (CheckFloatTensors(inputs, 2) != kValid) return kInvalidTensor;
  for (const auto& t : inputs) {
    if (t->shape.layout != layout_ || t->shape.dims.size() != 4 || t->shape.dims[3] != lanes_) {
      return kInvalidTensor;
    }
  }
  const auto& a = inputs[0]->shape.dims;
  const auto& b = inputs[1]->shape.dims;
  if (a[0] != b[0]) return kInvalidTensor;
  // H and W of each pair: one side is 1 (the product equals the larger).
  for (int axis = 1; axis <= 2; ++axis) {
    if (static_cast<std::uint64_t>(a[axis]) * b[axis] != std::max(a[axis], b[axis])) return kInvalidTensor;
  }
  // The scale must be a single pixel vector per block.
  const size_t s = ScaleIndex({inputs[0]->shape, inputs[1]->shape});
  const auto& sd = inputs[s]->shape.dims;
  if (sd[1] != 1 || sd[2] != 1) return kInvalidTensor;
  if (inputs[1 - s]->shape.ElementCount() > UINT32_MAX) return kInvalidTensor;
  return kValid;
}

bool BroadcastChannelMulBase::Forward(const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                      std::vector<std::shared_ptr<runtime::Tensor>>& outputs,
                                      std::shared_ptr<runtime::Context> context) const {
  if (inputs.size() < 2 || !context || !context->cpu) return false;
  const size_t s = ScaleIndex({inputs[0]->shape, inputs[1]->shape});
  const auto& data = inputs[1 - s];
  auto out = context->cpu->CreateTensor(data->shape, nullptr);
  const auto& d = out->shape.dims;
  fn_(static_cast<const float*>(inputs[s]->Data()), static_cast<const float*>(data->Data()), d[0], d[1] * d[2],
      out->DataAs<float>());
  outputs.assign(1, out);
  return true;
}

// Baseline-compiled destructors (and so vtables and names) of every kernel
// of this operation, whatever its family.
BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1::~BroadcastOperator_C4114_Mul_C4HW4_AVX_Float_M1() = default;
BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1::~BroadcastOperator_C8118_Mul_C8HW8_AVX_Float_M1() = default;

}  // namespace kernel
}  // namespace tarn
