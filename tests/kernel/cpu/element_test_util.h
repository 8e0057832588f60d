// Shared helpers of the element-kernel tests: a context, tensors, records,
// bit comparisons and the processor checks that guard the vector tests.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tarn/kernel/kernel_base.h"
#include "tarn/runtime/context.h"
#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/layer_info.h"

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
  const float specials[] = {std::numeric_limits<float>::quiet_NaN(),
                            -0.0f,
                            0.0f,
                            std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity(),
                            FromBits(0x7fc12345u),
                            FromBits(0xffa00001u)};
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
inline std::vector<float> ToBlocked(const std::vector<float>& chw, unsigned c, unsigned h, unsigned w, unsigned lanes) {
  const unsigned blocks = (c + lanes - 1) / lanes;
  std::vector<float> out(static_cast<size_t>(blocks) * h * w * lanes, 0.0f);
  for (unsigned ch = 0; ch < c; ++ch)
    for (unsigned p = 0; p < h * w; ++p)
      out[(static_cast<size_t>(ch / lanes) * h * w + p) * lanes + ch % lanes] =
          chw[static_cast<size_t>(ch) * h * w + p];
  return out;
}
inline std::vector<float> FromBlocked(const std::vector<float>& blocked, unsigned c, unsigned h, unsigned w,
                                      unsigned lanes) {
  std::vector<float> out(static_cast<size_t>(c) * h * w);
  for (unsigned ch = 0; ch < c; ++ch)
    for (unsigned p = 0; p < h * w; ++p)
      out[static_cast<size_t>(ch) * h * w + p] =
          blocked[(static_cast<size_t>(ch / lanes) * h * w + p) * lanes + ch % lanes];
  return out;
}

}  // namespace testing
}  // namespace tarn
