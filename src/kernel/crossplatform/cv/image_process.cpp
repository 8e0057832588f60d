// The ImageProcess base (unimplemented slots and the ConvertPixel
// dispatchers), image geometry checks and the processor-based factory.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "tarn/kernel/image_process.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace kernel {

namespace {

[[noreturn]] void NotImplemented() {
  utility::Assert(false, "Not Implemented.");
  __builtin_unreachable();
}

// Both the inverse and its float rounding must be finite.
bool InvertAffineDouble(const float* m, double* inv) {
  for (int i = 0; i < 6; ++i) {
    if (!std::isfinite(m[i])) return false;
  }
  const double a = m[0], b = m[1], c = m[2], d = m[3], e = m[4], f = m[5];
  const double det = a * e - b * d;
  if (det == 0.0 || !std::isfinite(1.0 / det)) return false;
  inv[0] = e / det;
  inv[1] = -b / det;
  inv[3] = -d / det;
  inv[4] = a / det;
  inv[2] = -(inv[0] * c + inv[1] * f);
  inv[5] = -(inv[3] * c + inv[4] * f);
  for (int i = 0; i < 6; ++i) {
    if (!std::isfinite(inv[i]) || !std::isfinite(static_cast<float>(inv[i]))) return false;
  }
  return true;
}

}  // namespace

ImageProcess::~ImageProcess() = default;

void ImageProcess::ConvertRGBAtoRGB(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::ConvertRGBtoBGR(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::ConvertRGBAtoBGR(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::ConvertYUV2RGB_NV21(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::ConvertYUV2RGB_NV12(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::ConvertYUV2RGB_IYUV(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::ConvertRGB2Gray(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::ConvertRGBA2Gray(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::ConvertBGR2Gray(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::ClockwiseRotate90(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::ClockwiseRotate180(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::ClockwiseRotate270(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::Flip_Horizintal(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::Flip_Vertical(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::Affine_Normalize(const TensorPtr&, const TensorPtr&, const float*, const AffineNormalizeParam&,
                                    const ContextPtr&) {
  NotImplemented();
}
void ImageProcess::Affine_Float(const TensorPtr&, const TensorPtr&, const float*, const ContextPtr&) {
  NotImplemented();
}
void ImageProcess::Affine_INV_Float(const TensorPtr&, const TensorPtr&, const float*, const ContextPtr&) {
  NotImplemented();
}
void ImageProcess::Affine_INV_BILINEAR_Float(const TensorPtr&, const TensorPtr&, const float*, const ContextPtr&) {
  NotImplemented();
}
void ImageProcess::Affine_INV_BILINEAR_Float_Border(const TensorPtr&, const TensorPtr&, const float*, float,
                                                    const ContextPtr&) {
  NotImplemented();
}
void ImageProcess::HWC2CHW(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::CHW2HWC(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::Convert8U_To_32F(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::Crop_C1(const TensorPtr&, const TensorPtr&, float, float, float, float, const ContextPtr&) {
  NotImplemented();
}
void ImageProcess::Crop_C2(const TensorPtr&, const TensorPtr&, float, float, float, float, const ContextPtr&) {
  NotImplemented();
}
void ImageProcess::Crop_C3(const TensorPtr&, const TensorPtr&, float, float, float, float, const ContextPtr&) {
  NotImplemented();
}
void ImageProcess::Crop_C4(const TensorPtr&, const TensorPtr&, float, float, float, float, const ContextPtr&) {
  NotImplemented();
}
void ImageProcess::Resize_Nearest_C1(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::Resize_Bilinear_C1(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::Resize_Bilinear_C2(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::Resize_Bilinear_C3(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::Resize_Bilinear_C4(const TensorPtr&, const TensorPtr&, const ContextPtr&) { NotImplemented(); }
void ImageProcess::Crop_Resize_Nearest_C1(const TensorPtr&, const TensorPtr&, float, float, float, float,
                                          const ContextPtr&) {
  NotImplemented();
}
void ImageProcess::Crop_Resize_Nearest_C2(const TensorPtr&, const TensorPtr&, float, float, float, float,
                                          const ContextPtr&) {
  NotImplemented();
}
void ImageProcess::Crop_Resize_Nearest_C3(const TensorPtr&, const TensorPtr&, float, float, float, float,
                                          const ContextPtr&) {
  NotImplemented();
}
void ImageProcess::Crop_Resize_Nearest_C4(const TensorPtr&, const TensorPtr&, float, float, float, float,
                                          const ContextPtr&) {
  NotImplemented();
}

bool ImageProcess::ConvertPixel(const TensorPtr& src, const TensorPtr& dst, int code, const ContextPtr& context) {
  switch (code) {
    case IMG_RGBA2RGB: ConvertRGBAtoRGB(src, dst, context); return true;
    case IMG_RGBA2BGR: ConvertRGBAtoBGR(src, dst, context); return true;
    case IMG_RGB2BGR: ConvertRGBtoBGR(src, dst, context); return true;
    case IMG_BGR2GRAY: ConvertBGR2Gray(src, dst, context); return true;
    case IMG_RGB2GRAY: ConvertRGB2Gray(src, dst, context); return true;
    case IMG_RGBA2GRAY: ConvertRGBA2Gray(src, dst, context); return true;
    case IMG_YUV2RGB_NV12: ConvertYUV2RGB_NV12(src, dst, context); return true;
    case IMG_YUV2RGB_NV21: ConvertYUV2RGB_NV21(src, dst, context); return true;
    case IMG_YUV2RGB_IYUV: ConvertYUV2RGB_IYUV(src, dst, context); return true;
    case IMG_ROTATE_90: ClockwiseRotate90(src, dst, context); return true;
    case IMG_ROTATE_180: ClockwiseRotate180(src, dst, context); return true;
    case IMG_ROTATE_270: ClockwiseRotate270(src, dst, context); return true;
    case IMG_FLIP_HORIZONTAL: Flip_Horizintal(src, dst, context); return true;
    case IMG_FLIP_VERTICAL: Flip_Vertical(src, dst, context); return true;
    case IMG_HWC2CHW: HWC2CHW(src, dst, context); return true;
    case IMG_CHW2HWC: CHW2HWC(src, dst, context); return true;
    case IMG_CONVERT_8U_TO_32F: Convert8U_To_32F(src, dst, context); return true;
    case IMG_RESIZE_NEAREST_C1: Resize_Nearest_C1(src, dst, context); return true;
    case IMG_RESIZE_BILINEAR_C1: Resize_Bilinear_C1(src, dst, context); return true;
    case IMG_RESIZE_BILINEAR_C2: Resize_Bilinear_C2(src, dst, context); return true;
    case IMG_RESIZE_BILINEAR_C3: Resize_Bilinear_C3(src, dst, context); return true;
    case IMG_RESIZE_BILINEAR_C4: Resize_Bilinear_C4(src, dst, context); return true;
    default: return false;
  }
}

bool ImageProcess::ConvertPixel(const TensorPtr& src, const TensorPtr& dst, const float* m, int code,
                                const ContextPtr& context) {
  switch (code) {
    case IMG_AFFINE_NORMALIZE: Affine_Normalize(src, dst, m, AffineNormalizeParam(), context); return true;
    case IMG_AFFINE_FLOAT: Affine_Float(src, dst, m, context); return true;
    case IMG_AFFINE_INV_FLOAT: Affine_INV_Float(src, dst, m, context); return true;
    case IMG_AFFINE_INV_BILINEAR_FLOAT: Affine_INV_BILINEAR_Float(src, dst, m, context); return true;
    default: return false;
  }
}

bool ImageProcess::ConvertPixel(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                                float height, int code, const ContextPtr& context) {
  if (src == nullptr || src->shape.data_type != runtime::TensorShape::UINT8) return false;
  switch (code) {
    case IMG_CROP_RESIZE_NEAREST_C1: Crop_Resize_Nearest_C1(src, dst, x, y, width, height, context); return true;
    case IMG_CROP_RESIZE_NEAREST_C2: Crop_Resize_Nearest_C2(src, dst, x, y, width, height, context); return true;
    case IMG_CROP_RESIZE_NEAREST_C3: Crop_Resize_Nearest_C3(src, dst, x, y, width, height, context); return true;
    case IMG_CROP_RESIZE_NEAREST_C4: Crop_Resize_Nearest_C4(src, dst, x, y, width, height, context); return true;
    case IMG_CROP_C1: Crop_C1(src, dst, x, y, width, height, context); return true;
    case IMG_CROP_C2: Crop_C2(src, dst, x, y, width, height, context); return true;
    case IMG_CROP_C3: Crop_C3(src, dst, x, y, width, height, context); return true;
    case IMG_CROP_C4: Crop_C4(src, dst, x, y, width, height, context); return true;
    default: return false;
  }
}

std::shared_ptr<ImageProcess> CreateImageProcess(const runtime::CPUDeviceInfo& info) {
  if (info.CanRunSSEKernels()) return std::make_shared<ImageProcessSSE>();
  return std::make_shared<ImageProcessFallback>();
}

namespace functional {

ImageGeometry GetImageGeometry(const std::shared_ptr<runtime::Tensor>& image, const char* what) {
  utility::Assert(image != nullptr, "ImageProcess: %s tensor is null.", what);
  const runtime::TensorShape& s = image->shape;
  utility::Assert(s.dims.size() == 3, "ImageProcess: %s image must have three dims, not %zu.", what,
                  s.dims.size());
  utility::Assert(s.layout == runtime::TensorShape::HWC || s.layout == runtime::TensorShape::CHW,
                  "ImageProcess: %s image must have layout HWC or CHW.", what);
  ImageGeometry g;
  g.element_bytes = s.ElementSize();
  g.planar = s.layout == runtime::TensorShape::CHW;
  if (g.planar) {
    g.channels = g.planes = s.dims[0];
    g.height = s.dims[1];
    g.width = s.dims[2];
    g.pixel_bytes = g.element_bytes;
  } else {
    g.planes = 1;
    g.height = s.dims[0];
    g.width = s.dims[1];
    g.channels = s.dims[2];
    utility::Assert(g.channels <= 4096, "ImageProcess: %s image has %u channels.", what, g.channels);
    g.pixel_bytes = g.channels * g.element_bytes;
  }
  utility::Assert(s.Bytes() != SIZE_MAX && s.Bytes() < (std::size_t(1) << 40),
                  "ImageProcess: %s image is too large.", what);
  utility::Assert(s.Bytes() == 0 || image->Data() != nullptr, "ImageProcess: %s image has no storage.", what);
  return g;
}

void InvertAffineMatrixChecked(const float* m, double* inverse) {
  utility::Assert(m != nullptr, "ImageProcess: affine matrix is null.");
  utility::Assert(InvertAffineDouble(m, inverse), "ImageProcess: affine matrix cannot be inverted.");
}

AffineSampleMap BuildAffineSampleMap(const double* inv, std::uint32_t width, std::uint32_t height) {
  constexpr double kLimit = double(1 << 29);
  // Far outside but still safe to add to another term.
  auto fixed = [&](double v) -> std::int32_t {
    v *= AffineSampleMap::kOne;
    if (!std::isfinite(v)) return -(1 << 29);
    if (v > kLimit) return 1 << 29;
    if (v < -kLimit) return -(1 << 29);
    return static_cast<std::int32_t>(std::lround(v));
  };
  AffineSampleMap map;
  map.col_x.resize(width);
  map.col_y.resize(width);
  map.row_x.resize(height);
  map.row_y.resize(height);
  for (std::uint32_t x = 0; x < width; ++x) {
    map.col_x[x] = fixed(inv[0] * x);
    map.col_y[x] = fixed(inv[3] * x);
  }
  for (std::uint32_t y = 0; y < height; ++y) {
    map.row_x[y] = fixed(inv[1] * y + inv[2]);
    map.row_y[y] = fixed(inv[4] * y + inv[5]);
  }
  return map;
}

void CheckNoOverlap(const std::shared_ptr<runtime::Tensor>& src, const std::shared_ptr<runtime::Tensor>& dst) {
  const std::size_t na = src->shape.Bytes(), nb = dst->shape.Bytes();
  if (na == 0 || nb == 0) return;
  const auto a = reinterpret_cast<std::uintptr_t>(src->Data());
  const auto b = reinterpret_cast<std::uintptr_t>(dst->Data());
  utility::Assert(a + na <= b || b + nb <= a, "ImageProcess: source and destination overlap.");
}

std::uint8_t BorderToU8(float border) {
  if (!(border > 0.0f)) return 0;  // NaN too
  if (border >= 255.0f) return 255;
  return static_cast<std::uint8_t>(border + 0.5f);
}

ImageGeometry CheckAffineNormalize(const std::shared_ptr<runtime::Tensor>& src,
                                   const std::shared_ptr<runtime::Tensor>& dst) {
  const ImageGeometry s = GetImageGeometry(src, "source");
  const ImageGeometry d = GetImageGeometry(dst, "destination");
  utility::Assert(src->shape.data_type == runtime::TensorShape::UINT8,
                  "Affine_Normalize: the source must be UINT8.");
  utility::Assert(dst->shape.data_type == runtime::TensorShape::FLOAT32 && d.planar,
                  "Affine_Normalize: the destination must be a FLOAT32 CHW tensor.");
  utility::Assert(s.channels >= 1 && s.channels <= 4, "Affine_Normalize: images of 1 to 4 channels only, not %u.",
                  s.channels);
  utility::Assert(d.channels == s.channels, "Affine_Normalize: %u source channels but %u destination planes.",
                  s.channels, d.channels);
  CheckNoOverlap(src, dst);
  return s;
}

}  // namespace functional

bool InvertAffineMatrix(const float* m, float* inverse) {
  double inv[6];
  if (m == nullptr || inverse == nullptr || !InvertAffineDouble(m, inv)) return false;
  for (int i = 0; i < 6; ++i) inverse[i] = static_cast<float>(inv[i]);
  return true;
}

}  // namespace kernel
}  // namespace tarn
