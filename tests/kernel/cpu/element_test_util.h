// Shared helpers of the element-kernel tests: a context, tensors, records,
// bit comparisons, the processor checks that guard the vector tests, and the
// test bodies that each instruction-set family runs on its own functions and
// kernels. The TEST macros stay in the family's files, whose paths tell the
// suite's main which processors may run them.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "kernel/cpu/fallback/pooling/pooling.h"
#include "tarn/kernel/activation.h"
#include "tarn/kernel/elementwise.h"
#include "tarn/kernel/kernel_base.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/layer_info.h"
#include "test_util.h"

namespace tarn {
namespace testing {

inline std::shared_ptr<runtime::Context> ElementContext() {
  auto pool = std::make_shared<runtime::AlignUpPool>(64);
  auto cpu = runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), pool, nullptr, pool);
  return runtime::CreateContext(cpu, nullptr, nullptr, nullptr, nullptr, nullptr);
}

inline bool HaveSSE() { return runtime::DetectCPUDevice().CanRunSSEKernels(); }
inline bool HaveAVX() { return runtime::DetectCPUDevice().CanRunAVXKernels(); }

#define TRN_REQUIRE_SSE() \
  if (!::tarn::testing::HaveSSE()) GTEST_SKIP() << "no SSE4.1 + FMA on this processor"
#define TRN_REQUIRE_AVX() \
  if (!::tarn::testing::HaveAVX()) GTEST_SKIP() << "no AVX2 + FMA on this processor"

inline std::uint32_t Bits(float f) {
  std::uint32_t u;
  std::memcpy(&u, &f, 4);
  return u;
}
inline float FromBits(std::uint32_t u) {
  float f;
  std::memcpy(&f, &u, 4);
  return f;
}

// Same bits, or both NaN (vector and scalar paths may quiet NaNs differently).
inline bool SameValue(float a, float b) { return Bits(a) == Bits(b) || (std::isnan(a) && std::isnan(b)); }

inline ::testing::AssertionResult SameBits(const float* got, const float* want, size_t n, bool nan_any = false) {
  for (size_t i = 0; i < n; ++i) {
    const bool ok = nan_any ? SameValue(got[i], want[i]) : Bits(got[i]) == Bits(want[i]);
    if (!ok) {
      return ::testing::AssertionFailure()
             << "element " << i << " of " << n << ": got " << got[i] << " (0x" << std::hex << Bits(got[i]) << "), want "
             << std::dec << want[i] << " (0x" << std::hex << Bits(want[i]) << ")";
    }
  }
  return ::testing::AssertionSuccess();
}
inline ::testing::AssertionResult SameBits(const std::vector<float>& got, const std::vector<float>& want,
                                           bool nan_any = false) {
  if (got.size() != want.size()) return ::testing::AssertionFailure() << got.size() << " values, want " << want.size();
  return SameBits(got.data(), want.data(), got.size(), nan_any);
}

// Distance in units in the last place (for finite values of the same sign or near zero).
inline std::int64_t UlpDistance(float a, float b) {
  auto key = [](float f) {
    std::int64_t i = static_cast<std::int32_t>(Bits(f));
    return i < 0 ? std::int64_t(INT32_MIN) - i : i;
  };
  const std::int64_t d = key(a) - key(b);
  return d < 0 ? -d : d;
}

// A float tensor from the device with the given dims, layout and values.
inline std::shared_ptr<runtime::TensorCPU> MakeTensor(const std::shared_ptr<runtime::Context>& ctx,
                                                      std::vector<unsigned> dims, const std::vector<float>& values,
                                                      runtime::TensorShape::Layout layout = runtime::TensorShape::CHW) {
  auto t = ctx->cpu->CreateTensor(runtime::MakeShape(std::move(dims), runtime::TensorShape::FLOAT32, layout));
  const size_t n = t->shape.ElementCount();
  for (size_t i = 0; i < n; ++i) t->DataAs<float>()[i] = i < values.size() ? values[i] : 0.0f;
  return t;
}

inline std::vector<float> Values(const std::shared_ptr<runtime::Tensor>& t) {
  const float* p = static_cast<const float*>(t->Data());
  return std::vector<float>(p, p + t->shape.ElementCount());
}

// Deterministic values in [lo, hi) with NaN, infinities and signed zeros mixed
// in every `special_every` positions (0: none).
inline std::vector<float> TestValues(size_t n, float lo, float hi, unsigned seed, size_t special_every = 0) {
  std::vector<float> v(n);
  std::uint32_t s = seed * 2654435761u + 12345u;
  const float inf = std::numeric_limits<float>::infinity();
  const float specials[] = {
      std::numeric_limits<float>::quiet_NaN(), -0.0f, 0.0f, inf, -inf, FromBits(0x7fc12345u), FromBits(0xffa00001u)};
  for (size_t i = 0; i < n; ++i) {
    s = s * 1664525u + 1013904223u;
    v[i] = lo + (hi - lo) * static_cast<float>(s >> 8) / 16777216.0f;
    if (special_every && i % special_every == special_every - 1) v[i] = specials[(i / special_every) % 7];
  }
  return v;
}

// Configures a registered-style kernel object with a record; asserts success.
template <typename K>
std::shared_ptr<K> Configured(const std::shared_ptr<runtime::LayerInfo>& layer,
                              const std::shared_ptr<runtime::Context>& ctx) {
  auto k = std::make_shared<K>();
  EXPECT_TRUE(k->Config(layer, nullptr, ctx)) << k->GetName();
  return k;
}

// Runs one kernel on its inputs after the input check; returns its first output.
inline std::shared_ptr<runtime::Tensor> RunKernel(const std::shared_ptr<runtime::IKernel>& k,
                                                  const std::vector<std::shared_ptr<runtime::Tensor>>& inputs,
                                                  const std::shared_ptr<runtime::Context>& ctx) {
  EXPECT_EQ(k->IsValidInput(inputs), 0) << k->GetName();
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_TRUE(k->Forward(inputs, outputs, ctx)) << k->GetName();
  if (outputs.size() != 1) return nullptr;
  EXPECT_EQ(k->IsValidOutput(outputs), 0) << k->GetName();
  return outputs[0];
}

// CHW values [C, H, W] in a blocked order [ceil(C/lanes), H, W, lanes], the
// extra lanes zero; and back.
inline size_t BlockedIndex(unsigned ch, unsigned p, unsigned hw, unsigned lanes) {
  return (static_cast<size_t>(ch / lanes) * hw + p) * lanes + ch % lanes;
}
inline std::vector<float> ToBlocked(const std::vector<float>& chw, unsigned c, unsigned h, unsigned w, unsigned lanes) {
  std::vector<float> out(static_cast<size_t>((c + lanes - 1) / lanes) * h * w * lanes, 0.0f);
  for (unsigned i = 0; i < c * h * w; ++i) out[BlockedIndex(i / (h * w), i % (h * w), h * w, lanes)] = chw[i];
  return out;
}
inline std::vector<float> FromBlocked(const std::vector<float>& blocked, unsigned c, unsigned h, unsigned w,
                                      unsigned lanes) {
  std::vector<float> out(static_cast<size_t>(c) * h * w);
  for (unsigned i = 0; i < c * h * w; ++i) out[i] = blocked[BlockedIndex(i / (h * w), i % (h * w), h * w, lanes)];
  return out;
}

// ---------------------------------------------------------------------------
// Activations.

using ElementFn = void (*)(const float*, const std::uint32_t&, float*);
using LeakyFn = void (*)(const float*, const std::uint32_t&, const float&, float*);
using PReLUFn = void (*)(float*, const std::uint32_t&, const float&);

inline std::vector<float> Apply(ElementFn f, const std::vector<float>& x) {
  std::vector<float> y(x.size());
  f(x.data(), static_cast<std::uint32_t>(x.size()), y.data());
  return y;
}

// Each vector form equals its scalar form bit for bit, out of place and in
// place. Leaky: the fused min/max form equals 0 > x ? x * alpha : x for
// alpha > 0 (NaN payloads may come out quieted). PReLU changes negative
// elements only and leaves every other bit pattern.
inline void ExpectVectorFormsEqualScalarForms(const std::vector<float>& x,
                                              std::initializer_list<std::pair<ElementFn, ElementFn>> pairs,
                                              LeakyFn leaky, float alpha, PReLUFn prelu, float slope) {
  const std::uint32_t n = static_cast<std::uint32_t>(x.size());
  int which = 0;
  for (const auto& [vector, scalar] : pairs) {
    const std::vector<float> want = Apply(scalar, x);
    std::vector<float> inplace(x);
    vector(inplace.data(), n, inplace.data());
    EXPECT_TRUE(SameBits(Apply(vector, x), want)) << "function " << which;
    EXPECT_TRUE(SameBits(inplace, want)) << "in place, function " << which;
    ++which;
  }
  std::vector<float> got(n), want(n);
  leaky(x.data(), n, alpha, got.data());
  kernel::functional::leaky_f32(x.data(), n, alpha, want.data());
  EXPECT_TRUE(SameBits(got, want, true));
  std::vector<float> a(x), b(x);
  prelu(a.data(), n, slope);
  kernel::functional::prelu_f32(b.data(), n, slope);
  EXPECT_TRUE(SameBits(a, b));
}

// f equals `bulk` on the first n / step * step elements and `tail` on the rest
// (NaN for NaN).
inline void ExpectBulkAndTail(ElementFn f, float (*bulk)(float), float (*tail)(float), std::uint32_t step,
                              const std::vector<float>& x, int which) {
  const size_t full = x.size() / step * step;
  std::vector<float> want(x.size());
  for (size_t i = 0; i < x.size(); ++i) want[i] = i < full ? bulk(x[i]) : tail(x[i]);
  EXPECT_TRUE(SameBits(Apply(f, x), want, true)) << "function " << which;
}

// The largest |f(x) - ref(x)| over n evenly spaced x from lo to hi.
inline float MaxAbsError(ElementFn f, float (*ref)(float), float lo, float hi, std::uint32_t n) {
  std::vector<float> x(n);
  for (std::uint32_t i = 0; i < n; ++i) x[i] = lo + (hi - lo) * static_cast<float>(i) / (n - 1);
  const std::vector<float> y = Apply(f, x);
  float worst = 0;
  for (std::uint32_t i = 0; i < n; ++i) worst = std::max(worst, std::fabs(y[i] - ref(x[i])));
  return worst;
}

// Activation kernel K configured by `rec` on x as a tensor of `dims` gives
// `want` (NaN for NaN), in place over its input or into a fresh tensor.
template <typename K>
void ExpectActivation(const std::vector<float>& x, std::vector<unsigned> dims,
                      const std::shared_ptr<runtime::ActivationInfo>& rec, bool in_place,
                      const std::vector<float>& want) {
  auto ctx = ElementContext();
  auto k = Configured<K>(rec, ctx);
  auto in = MakeTensor(ctx, std::move(dims), x);
  std::vector<std::shared_ptr<runtime::Tensor>> outputs;
  EXPECT_EQ(k->IsValidInput({in}), 0);
  EXPECT_TRUE(k->Forward({in}, outputs, ctx));
  ASSERT_EQ(outputs.size(), 1u) << k->GetName();
  EXPECT_EQ(outputs[0].get() == in.get(), in_place) << k->GetName();
  EXPECT_TRUE(SameBits(Values(outputs[0]), want, true)) << k->GetName();
}

// ---------------------------------------------------------------------------
// Element-wise operations.

using BinaryFn = void (*)(const float*, const float*, const std::uint32_t&, float*);

inline std::shared_ptr<runtime::ElementWiseOperatorInfo> ElementwiseOp(std::uint16_t code) {
  auto r = std::make_shared<runtime::ElementWiseOperatorInfo>();
  r->op_type = code;
  return r;
}

inline std::shared_ptr<runtime::BroadcastOperatorInfo> BroadcastOp(std::uint16_t code) {
  auto r = std::make_shared<runtime::BroadcastOperatorInfo>();
  r->op_type = code;
  return r;
}

// A binary form with its scalar rule in the vector steps and in the tail.
struct BinaryForm {
  BinaryFn f;
  float (*bulk)(float, float);
  float (*tail)(float, float);
};
inline float Plus(float x, float y) { return x + y; }
inline float Minus(float x, float y) { return x - y; }
inline float Times(float x, float y) { return x * y; }
inline float Over(float x, float y) { return x / y; }

// Every form over n elements: `bulk` on the first n / width * width, `tail` on
// the rest; bit-exact except where the hardware picks one of two NaN operands.
inline void ExpectBinaryForms(std::initializer_list<BinaryForm> forms, const std::vector<float>& a,
                              const std::vector<float>& b, std::uint32_t n, std::uint32_t width) {
  int which = 0;
  for (const BinaryForm& c : forms) {
    std::vector<float> got(n), want(n);
    c.f(a.data(), b.data(), n, got.data());
    for (std::uint32_t i = 0; i < n; ++i) want[i] = i < n / width * width ? c.bulk(a[i], b[i]) : c.tail(a[i], b[i]);
    EXPECT_TRUE(SameBits(got, want, true)) << "operation " << which++;
  }
}

// The SSE and AVX element-wise families. F names the vector width kWidth, the
// six functions (kAdd ... kMin) and the six kernel classes (Add ... Min).
template <typename F>
void ExpectVectorElementwiseForms(std::uint32_t n) {
  // The packed max/min return b when either is NaN; the scalar tail keeps a.
  auto vector_max = [](float a, float b) { return a > b ? a : b; };
  auto vector_min = [](float a, float b) { return a < b ? a : b; };
  auto tail_max = [](float a, float b) { return b > a ? b : a; };
  auto tail_min = [](float a, float b) { return b < a ? b : a; };
  ExpectBinaryForms({{F::kAdd, Plus, Plus},
                     {F::kSub, Minus, Minus},
                     {F::kMul, Times, Times},
                     {F::kDiv, Over, Over},
                     {F::kMax, vector_max, tail_max},
                     {F::kMin, vector_min, tail_min}},
                    TestValues(n, -3.0f, 3.0f, 40 + n, 4), TestValues(n, -3.0f, 3.0f, 90 + n, 3), n, F::kWidth);
}

template <typename K>
void ExpectSelectedBy(std::uint16_t code, bool selected) {
  K k;
  EXPECT_EQ(k.IsValidParam(ElementwiseOp(code), nullptr), selected ? 0 : kernel::kInvalidParam) << k.GetName() << code;
}

// The Max/Min NaN rules side by side; each kernel answers only its own code
// and needs operands of identical shape.
template <typename F>
void ExpectVectorElementwiseRulesAndKernels() {
  // NaN against 1: the packed maximum (minimum) gives b, the tail keeps a.
  const std::uint32_t m = F::kWidth + 1;
  const std::vector<float> nan(m, NAN), one(m, 1.0f);
  for (BinaryFn f : {F::kMax, F::kMin}) {
    std::vector<float> got(m);
    f(nan.data(), one.data(), m, got.data());
    EXPECT_EQ(got[0], 1.0f);
    EXPECT_TRUE(std::isnan(got[m - 1]));
  }
  for (std::uint16_t code = 0; code < 4; ++code) {
    ExpectSelectedBy<typename F::Add>(code, code == 0);
    ExpectSelectedBy<typename F::Sub>(code, code == 1);
    ExpectSelectedBy<typename F::Mul>(code, code == 2);
    ExpectSelectedBy<typename F::Div>(code, code == 3);
    ExpectSelectedBy<typename F::Max>(code, false);
    ExpectSelectedBy<typename F::Min>(code, false);
  }
  // No code names Max: code 4 fails the assertion even for the Max kernel.
  auto ctx = ElementContext();
  typename F::Max max;
  EXPECT_EQ(ThrownMessage([&] { max.IsValidParam(ElementwiseOp(4), nullptr); }), "Invalid element wise type");
  EXPECT_EQ(ThrownMessage([&] { max.Config(ElementwiseOp(4), nullptr, ctx); }), "Invalid element wise type");
  typename F::Add add;
  EXPECT_EQ(add.IsValidParam(ElementwiseOp(0), std::make_shared<runtime::InferenceParam>()), kernel::kInvalidParam);
  EXPECT_EQ(add.IsValidParam(std::make_shared<runtime::ActivationInfo>(), nullptr), kernel::kInvalidParam);

  auto k = std::make_shared<typename F::Sub>();
  ASSERT_TRUE(k->Config(ElementwiseOp(1), nullptr, ctx));
  auto a = MakeTensor(ctx, {2, 5, 5, 4}, TestValues(200, -1, 1, 1), runtime::TensorShape::C4HW4);
  auto b = MakeTensor(ctx, {2, 5, 5, 4}, TestValues(200, -1, 1, 2), runtime::TensorShape::C4HW4);
  EXPECT_EQ(k->IsValidInput({a, MakeTensor(ctx, {2, 5, 5, 4}, {}, runtime::TensorShape::CHW)}), kernel::kInvalidTensor);
  EXPECT_EQ(k->IsValidInput({a, MakeTensor(ctx, {2, 5, 4, 5}, {}, runtime::TensorShape::C4HW4)}),
            kernel::kInvalidTensor);
  EXPECT_EQ(k->IsValidInput({a}), kernel::kInvalidTensor);
  auto out = RunKernel(k, {a, b}, ctx);
  ASSERT_TRUE(out);
  EXPECT_EQ(out->shape, a->shape);
  for (size_t i = 0; i < 200; ++i) EXPECT_EQ(Values(out)[i], Values(a)[i] - Values(b)[i]);
}

// ---------------------------------------------------------------------------
// Pooling.

// Max and average pooling records with a square window and stride.
inline std::shared_ptr<runtime::MaxPool2dInfo> MaxPool(unsigned k, unsigned s) {
  auto r = std::make_shared<runtime::MaxPool2dInfo>();
  r->kernel_x = r->kernel_y = k, r->stride_x = r->stride_y = s;
  return r;
}
inline std::shared_ptr<runtime::AvgPool2dInfo> AvgPool(unsigned k, unsigned s) {
  auto r = std::make_shared<runtime::AvgPool2dInfo>();
  r->kernel_x = r->kernel_y = k, r->stride_x = r->stride_y = s;
  return r;
}

// Fixed-size kernel K equals, bit for bit, the general kernel of the same
// window and stride without padding on CHW (lanes 1) or blocked tensors, over
// sizes that exercise every vector step and tail.
template <typename K>
void ExpectEqualsGeneral(bool is_max, unsigned k, unsigned s, unsigned lanes) {
  auto ctx = ElementContext();
  auto avg = AvgPool(k, s);
  avg->padding_l = 3;  // not read by the fixed kernels
  auto kern = is_max ? Configured<K>(MaxPool(k, s), ctx) : Configured<K>(avg, ctx);
  std::shared_ptr<runtime::IKernel> general;
  if (is_max) {
    general = Configured<kernel::Pooling2D_Max_Fallback_Float_M1>(MaxPool(k, s), ctx);
  } else {
    general = Configured<kernel::Pooling2D_Avg_Fallback_Float_M1>(AvgPool(k, s), ctx);
  }
  const auto layout = lanes == 4 ? runtime::TensorShape::C4HW4 : runtime::TensorShape::C8HW8;
  const unsigned c = lanes == 1 ? 3 : 2 * lanes;
  for (unsigned h = k; h < k + 3; ++h) {
    for (unsigned w = k; w < k + 4 * s + 9; ++w) {
      const std::vector<float> x = TestValues(size_t(c) * h * w, -5.0f, 5.0f, h * 131 + w, 13);
      auto want = RunKernel(general, {MakeTensor(ctx, {c, h, w}, x)}, ctx);
      auto out =
          lanes == 1
              ? RunKernel(kern, {MakeTensor(ctx, {c, h, w}, x)}, ctx)
              : RunKernel(kern, {MakeTensor(ctx, {c / lanes, h, w, lanes}, ToBlocked(x, c, h, w, lanes), layout)}, ctx);
      ASSERT_TRUE(out && want);
      const unsigned oh = (h - k) / s + 1, ow = (w - k) / s + 1;
      ASSERT_EQ(out->shape.dims[1], oh);
      ASSERT_EQ(out->shape.dims[2], ow);
      const std::vector<float> got = lanes == 1 ? Values(out) : FromBlocked(Values(out), c, oh, ow, lanes);
      // A sum over several NaNs may carry either payload (the compiler may swap the
      // operands of an addition), so averages only need to agree on NaN-ness there.
      EXPECT_TRUE(SameBits(got, Values(want), !is_max)) << kern->GetName() << " " << h << "x" << w;
    }
  }
}

}  // namespace testing
}  // namespace tarn
