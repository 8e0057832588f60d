#include "tarn/kernel/packing.h"

#include <cstring>
#include <limits>

namespace tarn {
namespace kernel {
namespace {

using runtime::TensorShape;

struct Dims5 {
  std::size_t g, n, c, h, w;
};

// Where source element (g, n, c, h, w) lands; a negative index drops it.
using IndexFn = std::ptrdiff_t (*)(const Dims5& d, std::size_t g, std::size_t n, std::size_t c, std::size_t h,
                                   std::size_t w);

std::size_t Up(std::size_t v, std::size_t b) { return (v + b - 1) / b; }

bool CountFits(const std::vector<unsigned>& dims) {
  std::size_t count = 1;
  for (unsigned d : dims) {
    if (d == 0) return false;
    if (count > std::numeric_limits<std::size_t>::max() / sizeof(float) / d) return false;
    count *= d;
  }
  return true;
}

// Zero-filled result, then every source element copied to its place.
template <typename T>
TensorCPUPtr Scatter(const T* src, const Dims5& d, const std::vector<unsigned>& out_dims, TensorShape::Layout layout,
                     IndexFn index, const DeviceCPUPtr& device) {
  if (src == nullptr || !device || !CountFits(out_dims)) return nullptr;
  TensorCPUPtr out = device->CreateTensor(runtime::MakeShape(out_dims, TensorShape::FLOAT32, layout));
  float* o = out->DataAs<float>();
  std::memset(o, 0, out->shape.Bytes());
  const T* s = src;
  for (std::size_t g = 0; g < d.g; ++g)
    for (std::size_t n = 0; n < d.n; ++n)
      for (std::size_t c = 0; c < d.c; ++c)
        for (std::size_t h = 0; h < d.h; ++h)
          for (std::size_t w = 0; w < d.w; ++w, ++s) {
            const std::ptrdiff_t i = index(d, g, n, c, h, w);
            if (i >= 0) o[i] = static_cast<float>(*s);
          }
  return out;
}

bool IsGNCHW(const TensorCPUPtr& t) {
  return t && t->Data() && t->shape.data_type == TensorShape::FLOAT32 && t->shape.location == TensorShape::MainMemory &&
         t->shape.layout == TensorShape::GNCHW && t->shape.dims.size() == 5;
}

Dims5 DimsOf(const TensorCPUPtr& t) {
  const auto& v = t->shape.dims;
  return {v[0], v[1], v[2], v[3], v[4]};
}

bool ArrayDimsFit(std::uint32_t G, std::uint32_t N, std::uint32_t C, std::uint32_t H, std::uint32_t W) {
  return CountFits({G, N, C, H, W});
}

unsigned U(std::size_t v) { return static_cast<unsigned>(v); }

// --- orders with one blocked dim (block count rounded down)

template <std::size_t B>
std::ptrdiff_t IdxGNbCHWb(const Dims5& d, std::size_t g, std::size_t n, std::size_t c, std::size_t h, std::size_t w) {
  const std::size_t nb = d.n / B;
  if (n / B >= nb) return -1;
  return static_cast<std::ptrdiff_t>(((((g * nb + n / B) * d.c + c) * d.h + h) * d.w + w) * B + n % B);
}

std::ptrdiff_t IdxGNC8HW8(const Dims5& d, std::size_t g, std::size_t n, std::size_t c, std::size_t h, std::size_t w) {
  const std::size_t cb = d.c / 8;
  if (c / 8 >= cb) return -1;
  return static_cast<std::ptrdiff_t>(((((g * d.n + n) * cb + c / 8) * d.h + h) * d.w + w) * 8 + c % 8);
}

template <std::size_t B>
std::ptrdiff_t IdxGbNCHWb(const Dims5& d, std::size_t g, std::size_t n, std::size_t c, std::size_t h, std::size_t w) {
  const std::size_t gb = d.g / B;
  if (g / B >= gb) return -1;
  return static_cast<std::ptrdiff_t>(((((g / B * d.n + n) * d.c + c) * d.h + h) * d.w + w) * B + g % B);
}

// --- orders with two blocked dims (rounded up, zero lanes)

// GN{NB}C{CB}HW with inner (c, n) when kCN, else (n, c).
template <std::size_t NB, std::size_t CB, bool kCN>
std::ptrdiff_t IdxTiled(const Dims5& d, std::size_t g, std::size_t n, std::size_t c, std::size_t h, std::size_t w) {
  const std::size_t outer = ((((g * Up(d.n, NB) + n / NB) * Up(d.c, CB) + c / CB) * d.h + h) * d.w + w);
  const std::size_t inner = kCN ? (c % CB) * NB + n % NB : (n % NB) * CB + c % CB;
  return static_cast<std::ptrdiff_t>(outer * NB * CB + inner);
}

std::ptrdiff_t IdxGHWN4C44c4n(const Dims5& d, std::size_t g, std::size_t n, std::size_t c, std::size_t h,
                              std::size_t w) {
  const std::size_t outer = (((g * d.h + h) * d.w + w) * Up(d.n, 4) + n / 4) * Up(d.c, 4) + c / 4;
  return static_cast<std::ptrdiff_t>(outer * 16 + (c % 4) * 4 + n % 4);
}

std::ptrdiff_t IdxGC4N4HW4c4n(const Dims5& d, std::size_t g, std::size_t n, std::size_t c, std::size_t h,
                              std::size_t w) {
  const std::size_t outer = (((g * Up(d.c, 4) + c / 4) * Up(d.n, 4) + n / 4) * d.h + h) * d.w + w;
  return static_cast<std::ptrdiff_t>(outer * 16 + (c % 4) * 4 + n % 4);
}

std::ptrdiff_t IdxGCNHW(const Dims5& d, std::size_t g, std::size_t n, std::size_t c, std::size_t h, std::size_t w) {
  return static_cast<std::ptrdiff_t>((((g * d.c + c) * d.n + n) * d.h + h) * d.w + w);
}

template <std::size_t NB, std::size_t CB, bool kCN>
TensorCPUPtr PackTiled(const TensorCPUPtr& weight, const DeviceCPUPtr& device, TensorShape::Layout layout) {
  if (!IsGNCHW(weight)) return nullptr;
  const Dims5 d = DimsOf(weight);
  const std::vector<unsigned> dims = {U(d.g), U(Up(d.n, NB)), U(Up(d.c, CB)), U(d.h), U(d.w),
                                      U(kCN ? CB : NB), U(kCN ? NB : CB)};
  return Scatter(weight->DataAs<float>(), d, dims, layout, &IdxTiled<NB, CB, kCN>, device);
}

template <typename T>
TensorCPUPtr PackGN4C4HW4c4n(const T* data, const Dims5& d, const DeviceCPUPtr& device) {
  return Scatter(data, d, {U(d.g), U(Up(d.n, 4)), U(Up(d.c, 4)), U(d.h), U(d.w), 4, 4}, TensorShape::FLEXIABLE,
                 &IdxTiled<4, 4, true>, device);
}

template <typename T>
TensorCPUPtr PackG4NCHW4(const T* data, const Dims5& d, const DeviceCPUPtr& device) {
  return Scatter(data, d, {U(d.g / 4), U(d.n), U(d.c), U(d.h), U(d.w), 4}, TensorShape::FLEXIABLE, &IdxGbNCHWb<4>,
                 device);
}

template <typename T>
TensorCPUPtr PackGC4N4HW4c4n(const T* data, const Dims5& d, const DeviceCPUPtr& device) {
  return Scatter(data, d, {U(d.g), U(Up(d.c, 4)), U(Up(d.n, 4)), U(d.h), U(d.w), 4, 4}, TensorShape::FLEXIABLE,
                 &IdxGC4N4HW4c4n, device);
}

template <typename T>
TensorCPUPtr PackGHWN4C44c4n(const T* data, const Dims5& d, const DeviceCPUPtr& device) {
  return Scatter(data, d, {U(d.g), U(d.h), U(d.w), U(Up(d.n, 4)), U(Up(d.c, 4)), 4, 4}, TensorShape::FLEXIABLE,
                 &IdxGHWN4C44c4n, device);
}

}  // namespace

TensorCPUPtr Function_Tensor_GNCHW_To_GN4CHW4_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  if (!IsGNCHW(weight)) return nullptr;
  const Dims5 d = DimsOf(weight);
  return Scatter(weight->DataAs<float>(), d, {U(d.g), U(d.n / 4), U(d.c), U(d.h), U(d.w), 4}, TensorShape::FLEXIABLE,
                 &IdxGNbCHWb<4>, device);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GN8CHW8_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  if (!IsGNCHW(weight)) return nullptr;
  const Dims5 d = DimsOf(weight);
  return Scatter(weight->DataAs<float>(), d, {U(d.g), U(d.n / 8), U(d.c), U(d.h), U(d.w), 8}, TensorShape::FLEXIABLE,
                 &IdxGNbCHWb<8>, device);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GNC8HW8_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  if (!IsGNCHW(weight)) return nullptr;
  const Dims5 d = DimsOf(weight);
  return Scatter(weight->DataAs<float>(), d, {U(d.g), U(d.n), U(d.c / 8), U(d.h), U(d.w), 8}, TensorShape::FLEXIABLE,
                 &IdxGNC8HW8, device);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GN4C4HW4c4n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  return PackTiled<4, 4, true>(weight, device, TensorShape::FLEXIABLE);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GN4C4HW4n4c_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  return PackTiled<4, 4, false>(weight, device, TensorShape::GN4C4HW4n4c);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GN4C8HW4n8c_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  return PackTiled<4, 8, false>(weight, device, TensorShape::FLEXIABLE);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GN8C4HW8n4c_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  return PackTiled<8, 4, false>(weight, device, TensorShape::FLEXIABLE);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GN4C8HW8c4n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  return PackTiled<4, 8, true>(weight, device, TensorShape::FLEXIABLE);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GN8C8HW8c8n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  return PackTiled<8, 8, true>(weight, device, TensorShape::FLEXIABLE);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GN8C8HW8n8c_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  return PackTiled<8, 8, false>(weight, device, TensorShape::GN8C8HW8n8c);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GN2C2HW2c2n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  return PackTiled<2, 2, true>(weight, device, TensorShape::FLEXIABLE);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GN16C16HW16c16n_Fallback(const TensorCPUPtr& weight,
                                                               const DeviceCPUPtr& device) {
  return PackTiled<16, 16, true>(weight, device, TensorShape::FLEXIABLE);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GHWN4C44c4n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  if (!IsGNCHW(weight)) return nullptr;
  return PackGHWN4C44c4n(weight->DataAs<float>(), DimsOf(weight), device);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GC4N4HW4c4n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  if (!IsGNCHW(weight)) return nullptr;
  return PackGC4N4HW4c4n(weight->DataAs<float>(), DimsOf(weight), device);
}

TensorCPUPtr Function_Tensor_GNCHW_To_GCNHW_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  if (!IsGNCHW(weight)) return nullptr;
  const Dims5 d = DimsOf(weight);
  return Scatter(weight->DataAs<float>(), d, {U(d.g), U(d.c), U(d.n), U(d.h), U(d.w)}, TensorShape::FLEXIABLE,
                 &IdxGCNHW, device);
}

TensorCPUPtr Function_Tensor_GNCHW_To_G4NCHW4_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  if (!IsGNCHW(weight)) return nullptr;
  return PackG4NCHW4(weight->DataAs<float>(), DimsOf(weight), device);
}

TensorCPUPtr Function_Tensor_GNCHW_To_G8NCHW8_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  if (!IsGNCHW(weight)) return nullptr;
  const Dims5 d = DimsOf(weight);
  return Scatter(weight->DataAs<float>(), d, {U(d.g / 8), U(d.n), U(d.c), U(d.h), U(d.w), 8}, TensorShape::FLEXIABLE,
                 &IdxGbNCHWb<8>, device);
}

TensorCPUPtr Function_Tensor_NC_To_N8C88c8n_Fallback(const TensorCPUPtr& weight, const DeviceCPUPtr& device) {
  if (!weight || !weight->Data() || weight->shape.data_type != TensorShape::FLOAT32 ||
      weight->shape.location != TensorShape::MainMemory || weight->shape.dims.size() != 2) {
    return nullptr;
  }
  // A matrix is the GNCHW weight of a 1x1 convolution with one group.
  const Dims5 d{1, weight->shape.dims[0], weight->shape.dims[1], 1, 1};
  return Scatter(weight->DataAs<float>(), d, {U(Up(d.n, 8)), U(Up(d.c, 8)), 8, 8}, TensorShape::FLEXIABLE,
                 &IdxTiled<8, 8, true>, device);
}

TensorCPUPtr Function_Tensor_GNCHW_Concat_Value(const TensorCPUPtr& weight, std::uint32_t count, float value,
                                                const DeviceCPUPtr& device) {
  if (!IsGNCHW(weight) || !device) return nullptr;
  const Dims5 d = DimsOf(weight);
  if (d.n + count > std::numeric_limits<unsigned>::max()) return nullptr;
  const std::vector<unsigned> dims = {U(d.g), U(d.n + count), U(d.c), U(d.h), U(d.w)};
  if (!CountFits(dims)) return nullptr;
  TensorCPUPtr out = device->CreateTensor(runtime::MakeShape(dims, TensorShape::FLOAT32, TensorShape::GNCHW));
  const std::size_t per_n = d.c * d.h * d.w;
  const float* s = weight->DataAs<float>();
  float* o = out->DataAs<float>();
  for (std::size_t g = 0; g < d.g; ++g) {
    std::memcpy(o, s, d.n * per_n * sizeof(float));
    o += d.n * per_n;
    s += d.n * per_n;
    for (std::size_t i = 0; i < count * per_n; ++i) *o++ = value;
  }
  return out;
}

TensorCPUPtr Function_FloatArray_GNCHW_To_GN4C4HW4c4n_Fallback(const float* data, std::uint32_t G, std::uint32_t N,
                                                               std::uint32_t C, std::uint32_t H, std::uint32_t W,
                                                               const DeviceCPUPtr& device) {
  if (!ArrayDimsFit(G, N, C, H, W)) return nullptr;
  return PackGN4C4HW4c4n(data, Dims5{G, N, C, H, W}, device);
}

TensorCPUPtr Function_FloatArray_GNCHW_To_GC4N4HW4c4n_Fallback(const float* data, std::uint32_t G, std::uint32_t N,
                                                               std::uint32_t C, std::uint32_t H, std::uint32_t W,
                                                               const DeviceCPUPtr& device) {
  if (!ArrayDimsFit(G, N, C, H, W)) return nullptr;
  return PackGC4N4HW4c4n(data, Dims5{G, N, C, H, W}, device);
}

TensorCPUPtr Function_FloatArray_GNCHW_To_GHWN4C44c4n_Fallback(const float* data, std::uint32_t G, std::uint32_t N,
                                                               std::uint32_t C, std::uint32_t H, std::uint32_t W,
                                                               const DeviceCPUPtr& device) {
  if (!ArrayDimsFit(G, N, C, H, W)) return nullptr;
  return PackGHWN4C44c4n(data, Dims5{G, N, C, H, W}, device);
}

TensorCPUPtr Function_FloatArray_GNCHW_To_G4NCHW4_Fallback(const float* data, std::uint32_t G, std::uint32_t N,
                                                           std::uint32_t C, std::uint32_t H, std::uint32_t W,
                                                           const DeviceCPUPtr& device) {
  if (!ArrayDimsFit(G, N, C, H, W)) return nullptr;
  return PackG4NCHW4(data, Dims5{G, N, C, H, W}, device);
}

TensorCPUPtr Function_HalfArray_GNCHW_To_GN4C4HW4c4n_Fallback(const half_float::half* data, std::uint32_t G,
                                                              std::uint32_t N, std::uint32_t C, std::uint32_t H,
                                                              std::uint32_t W, const DeviceCPUPtr& device) {
  if (!ArrayDimsFit(G, N, C, H, W)) return nullptr;
  return PackGN4C4HW4c4n(data, Dims5{G, N, C, H, W}, device);
}

TensorCPUPtr Function_HalfArray_GNCHW_To_G4NCHW4_Fallback(const half_float::half* data, std::uint32_t G,
                                                          std::uint32_t N, std::uint32_t C, std::uint32_t H,
                                                          std::uint32_t W, const DeviceCPUPtr& device) {
  if (!ArrayDimsFit(G, N, C, H, W)) return nullptr;
  return PackG4NCHW4(data, Dims5{G, N, C, H, W}, device);
}

bool ByteArray_To_FloatArray_Fallback(const std::string& bytes, std::vector<float>& floats) {
  floats.clear();
  if (bytes.size() % sizeof(float) != 0) return false;
  floats.resize(bytes.size() / sizeof(float));
  if (!floats.empty()) std::memcpy(floats.data(), bytes.data(), bytes.size());
  return true;
}

bool ByteArray_To_HalfArray_Fallback(const std::string& bytes, std::vector<half_float::half>& halves) {
  halves.clear();
  if (bytes.size() % 2 != 0) return false;
  halves.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    const std::uint16_t bits = static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[i]) |
                                                          (static_cast<unsigned char>(bytes[i + 1]) << 8));
    halves.push_back(half_float::half::FromBits(bits));
  }
  return true;
}

std::vector<float> HalfArray_To_FloatArray_Fallback(const half_float::half* halves, std::size_t count) {
  std::vector<float> out(count);
  for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<float>(halves[i]);
  return out;
}

std::vector<half_float::half> FloatArray_To_HalfArray_Fallback(const float* floats, std::size_t count) {
  std::vector<half_float::half> out;
  out.reserve(count);
  for (std::size_t i = 0; i < count; ++i) out.emplace_back(floats[i]);
  return out;
}

std::string FloatArrayToByteArrayFallback(const float* floats, std::size_t count) {
  std::string bytes(count * sizeof(float), '\0');
  if (count) std::memcpy(&bytes[0], floats, bytes.size());
  return bytes;
}

}  // namespace kernel
}  // namespace tarn
