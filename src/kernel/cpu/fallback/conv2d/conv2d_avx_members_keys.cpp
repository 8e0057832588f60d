// Baseline code of the AVX specialised convolution members (and the SSE
// image stem that belongs with them): every member's destructor (its key
// function, so the vtable, GetName and everything Config runs land here), the
// weight orders their steps read, and the records they refuse beyond the
// base. Any of them can be created and configured on any x86-64; only
// Forward runs AVX (or SSE) code.
#include <cstring>

#include "kernel/cpu/avx/conv2d_image/conv2d_image.h"
#include "kernel/cpu/avx/conv2d_k1x1/conv2d_k1x1.h"
#include "kernel/cpu/avx/conv2d_k1x3/conv2d_k1x3.h"
#include "kernel/cpu/avx/conv2d_k3x3/conv2d_k3x3.h"
#include "kernel/cpu/avx/conv2d_k5x5/conv2d_k5x5.h"
#include "kernel/cpu/avx/im2col_sgemm/im2col_sgemm.h"
#include "kernel/cpu/avx/strassen/strassen.h"
#include "kernel/cpu/fallback/conv2d/conv2d_members.h"
#include "kernel/cpu/sse/conv2d_image/conv2d_image.h"
#include "tarn/kernel/native_gemm.h"
#include "tarn/runtime/layer_info.h"

namespace tarn {
namespace kernel {

using runtime::TensorShape;

namespace {

// The dims of a one-group GNCHW weight, or false.
bool OneGroupDims(const TensorCPUPtr& t, std::uint32_t* n, std::uint32_t* c, std::uint32_t* kh, std::uint32_t* kw) {
  if (!t || !t->Data() || t->shape.data_type != TensorShape::FLOAT32 || t->shape.layout != TensorShape::GNCHW ||
      t->shape.dims.size() != 5 || t->shape.dims[0] != 1) {
    return false;
  }
  *n = t->shape.dims[1];
  *c = t->shape.dims[2];
  *kh = t->shape.dims[3];
  *kw = t->shape.dims[4];
  return true;
}

}  // namespace

TensorCPUPtr PackConvTiles(const TensorCPUPtr& gnchw, std::uint32_t n_lanes, std::uint32_t c_lanes,
                           const DeviceCPUPtr& device) {
  std::uint32_t n, c, kh, kw;
  if (!device || n_lanes == 0 || c_lanes == 0 || !OneGroupDims(gnchw, &n, &c, &kh, &kw)) return nullptr;
  const std::uint32_t nb = (n + n_lanes - 1) / n_lanes, cb = (c + c_lanes - 1) / c_lanes;
  auto out = device->CreateTensor(runtime::MakeShape({nb, cb, kh, kw, c_lanes, n_lanes}, TensorShape::FLOAT32,
                                                     TensorShape::FLEXIABLE));
  float* o = out->DataAs<float>();
  std::memset(o, 0, out->shape.Bytes());
  const float* w = gnchw->DataAs<float>();
  for (std::uint32_t i = 0; i < n; ++i)
    for (std::uint32_t j = 0; j < c; ++j)
      for (std::uint32_t y = 0; y < kh; ++y)
        for (std::uint32_t x = 0; x < kw; ++x) {
          const std::size_t tile = ((std::size_t(i / n_lanes) * cb + j / c_lanes) * kh + y) * kw + x;
          o[(tile * c_lanes + j % c_lanes) * n_lanes + i % n_lanes] = w[((std::size_t(i) * c + j) * kh + y) * kw + x];
        }
  return out;
}

TensorCPUPtr PackDotRows(const TensorCPUPtr& gnchw, std::uint32_t c_lanes, const DeviceCPUPtr& device) {
  std::uint32_t n, c, kh, kw;
  if (!device || (c_lanes != 4 && c_lanes != 8) || !OneGroupDims(gnchw, &n, &c, &kh, &kw)) return nullptr;
  const std::uint32_t cb = (c + c_lanes - 1) / c_lanes;
  auto out =
      device->CreateTensor(runtime::MakeShape({n, cb, kh, kw, 8}, TensorShape::FLOAT32, TensorShape::FLEXIABLE));
  float* o = out->DataAs<float>();
  std::memset(o, 0, out->shape.Bytes());
  const float* w = gnchw->DataAs<float>();
  for (std::uint32_t i = 0; i < n; ++i)
    for (std::uint32_t j = 0; j < c; ++j)
      for (std::uint32_t y = 0; y < kh; ++y)
        for (std::uint32_t x = 0; x < kw; ++x) {
          const std::size_t row = ((std::size_t(i) * cb + j / c_lanes) * kh + y) * kw + x;
          for (std::uint32_t r = j % c_lanes; r < 8; r += c_lanes) {
            o[row * 8 + r] = w[((std::size_t(i) * c + j) * kh + y) * kw + x];
          }
        }
  return out;
}

// ---------------------------------------------------------------- weight orders of the members

#define TRN_CONV2D_MEMBER_PACKS(cls, expr)                                                                 \
  Conv2DKernelBase::TensorCPUPtr cls::PackWeight(const TensorCPUPtr& gnchw,                                \
                                                 const std::shared_ptr<runtime::DeviceCPU>& device) const { \
    return expr;                                                                                           \
  }

TRN_CONV2D_MEMBER_PACKS(Conv2d_K1x1_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1, PackConvTiles(gnchw, 6, 1, device))
TRN_CONV2D_MEMBER_PACKS(Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_C4HW4_FLOAT_M1,
                        Function_Tensor_GNCHW_To_GN4C8HW8c4n_Fallback(gnchw, device))
TRN_CONV2D_MEMBER_PACKS(Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1, PackConvTiles(gnchw, 6, 1, device))
TRN_CONV2D_MEMBER_PACKS(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1, PackConvTiles(gnchw, 8, 4, device))
TRN_CONV2D_MEMBER_PACKS(Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1, PackConvTiles(gnchw, 8, 1, device))
TRN_CONV2D_MEMBER_PACKS(Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1, PackConvTiles(gnchw, 8, 1, device))
TRN_CONV2D_MEMBER_PACKS(Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1, PackConvTiles(gnchw, 4, 1, device))
TRN_CONV2D_MEMBER_PACKS(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1, PackDotRows(gnchw, 4, device))
TRN_CONV2D_MEMBER_PACKS(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1, PackDotRows(gnchw, 8, device))

namespace {

// The column-matrix members' weight through the transform: {ceil(N / 4),
// C * KY * KX, 4}.
TensorCPUPtr PackColumns(const TensorCPUPtr& gnchw, const DeviceCPUPtr& device) {
  std::uint32_t n, c, kh, kw;
  if (!device || !OneGroupDims(gnchw, &n, &c, &kh, &kw)) return nullptr;
  auto out = device->CreateTensor(
      runtime::MakeShape({(n + 3) / 4, c * kh * kw, 4}, TensorShape::FLOAT32, TensorShape::FLEXIABLE));
  native::conv_im2col_sgemm_transform_kernel_sse(gnchw->DataAs<float>(), out->DataAs<float>(), static_cast<int>(c),
                                                 static_cast<int>(n), static_cast<int>(kh * kw));
  return out;
}

}  // namespace

TRN_CONV2D_MEMBER_PACKS(Conv2d_K5x5_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1, PackColumns(gnchw, device))
TRN_CONV2D_MEMBER_PACKS(Conv2d_K7x7_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1, PackColumns(gnchw, device))

#undef TRN_CONV2D_MEMBER_PACKS

std::int32_t Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_C4HW4_FLOAT_M1::IsValidParam(
    std::shared_ptr<runtime::LayerInfo> layer, std::shared_ptr<runtime::InferenceParam> param) const {
  if (Conv2DKernelBase::IsValidParam(layer, param) != kValid) return kInvalidParam;
  // The core counts (C + 3) / 8 input blocks: equal to the stored count
  // ceil(C / 8) only for C = 0 or 5 .. 7 modulo 8.
  const auto& info = static_cast<const runtime::Conv2dInfo&>(*layer);
  return (info.in_channels + 3) / 8 == (info.in_channels + 7) / 8 ? kValid : kInvalidParam;
}

// ---------------------------------------------------------------- key functions

Conv2d_K1x1_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1::~Conv2d_K1x1_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1() = default;
Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1::~Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1() = default;
Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1::~Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1() = default;
Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2::~Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2() = default;
Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M3::~Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M3() = default;
Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_Strassen_M1::~Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_Strassen_M1() =
    default;
Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_CHW_FLOAT_M1::~Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_CHW_FLOAT_M1() = default;
Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_C4HW4_FLOAT_M1::~Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_TO_C4HW4_FLOAT_M1() =
    default;
Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_TO_C8HW8_FLOAT_M1::~Conv2d_K1x1_S1x1_D1x1_G1_AVX_C4HW4_TO_C8HW8_FLOAT_M1() =
    default;
Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1::~Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1() = default;
Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1::~Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1() = default;
Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1::~Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1() = default;
Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1::~Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1() = default;
Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1::~Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1() = default;
Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1::~Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1() = default;
Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1::~Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1() =
    default;
Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1::~Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1() =
    default;
Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1::~Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1() =
    default;
Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1::~Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1() =
    default;
Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1::~Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1() = default;
Conv2d_K5x5_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1::~Conv2d_K5x5_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1() = default;
Conv2d_K5x5_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1::~Conv2d_K5x5_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1() = default;
Conv2d_K7x7_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1::~Conv2d_K7x7_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1() = default;
Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1::~Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1() =
    default;

}  // namespace kernel
}  // namespace tarn
