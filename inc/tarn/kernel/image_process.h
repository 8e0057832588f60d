// Image pre-processing: colour conversion, YUV 4:2:0 decoding, crop, resize,
// rotation, flips, affine warps, HWC/CHW reordering and the 8-bit to float
// conversion that turn camera frames and pictures into network inputs.
//
// Images are main-memory tensors with three dims. An interleaved image is
// {height, width, channels} with layout HWC; a planar one is
// {channels, height, width} with layout CHW. 8-bit images are UINT8 tensors as
// made by the pixel-buffer factories of DeviceCPU.
//
// The caller allocates the destination with the shape the operation is to
// produce; every operation checks both shapes and throws std::runtime_error
// (through tarn::utility::Assert, the message logged at level 16) when they do
// not fit, when a tensor is null, or when source and destination overlap
// (only ConvertRGBtoBGR, ClockwiseRotate180, Flip_Horizintal and Flip_Vertical
// may be given the same tensor twice). The context may be null: the operations
// allocate their scratch memory themselves.
//
// Conventions of the operations:
//  - ConvertRGBAtoRGB, ConvertRGBAtoBGR: {h,w,4} -> {h,w,3}; the alpha channel
//    is dropped. ConvertRGBtoBGR: {h,w,3} -> {h,w,3}, swaps channels 0 and 2
//    (so it also turns BGR into RGB).
//  - ConvertRGB2Gray, ConvertBGR2Gray: {h,w,3} -> {h,w,1}; ConvertRGBA2Gray:
//    {h,w,4} -> {h,w,1}. gray = (77 R + 150 G + 29 B) >> 8.
//  - ConvertYUV2RGB_NV12/_NV21/_IYUV: the source is a whole 4:2:0 frame of at
//    least w*h*3/2 bytes (CreateYUV420Tensor); the destination is planar
//    {3, h, w} (CreateRGBUInt8CHWTensor) and gives the frame size. Planes are
//    written in the order R, G, B, each value the low 8 bits of the integer
//    formula (no clamping). Odd w or h: nothing is written.
//  - ClockwiseRotate90/180/270, Flip_Horizintal (mirror left-right),
//    Flip_Vertical (upside down): any element type; HWC images move whole
//    pixels, CHW images rotate every plane. Rotating by 90 or 270 degrees
//    swaps height and width of the destination.
//  - HWC2CHW: {h,w,c} -> {c,h,w}; CHW2HWC: {c,h,w} -> {h,w,c}; any element
//    type, the same in both tensors.
//  - Convert8U_To_32F: UINT8 source, FLOAT32 destination of the same element
//    count; values 0..255 without scaling.
//  - Crop_C1.._C4: HWC, same type, channels as named; the destination is
//    {height, width, C}. x, y, width, height are truncated towards zero.
//    Destination pixel (i, j) receives source pixel (y + i, x + j); parts of
//    the rectangle outside the source are skipped and keep their values.
//  - Crop_Resize_Nearest_C1.._C4: one implementation for any channel count;
//    the rectangle (truncated as for Crop) is resized to the destination with
//    source column clamp(floor((i + 0.5) * width / dst_width - 0.5) + x,
//    0, src_width - 1), rows likewise. Resize_Nearest_C1 is the same over the
//    whole source, for one channel.
//  - Resize_Bilinear_C1.._C4: UINT8 HWC; fixed-point bilinear with weights in
//    2048ths (see F_Resize_Bilinear_HWC_U8_C1_Fallback).
//
// Affine warps. A matrix is six floats m0..m5 mapping a point (x, y) to
// (m0 x + m1 y + m2, m3 x + m4 y + m5); pixel centres sit at integer
// coordinates. The INV forms take the destination-to-source matrix; the other
// forms (Affine_Float, Affine_Normalize) take the source-to-destination matrix
// and invert it (in double precision, InvertAffineMatrix) before sampling.
//  - Affine_INV_Float: nearest; sx = int(m0 x + m1 y + m2 + 0.5), likewise sy,
//    computed in float; the pixel is copied when 0 <= sx <= w-1 and
//    0 <= sy <= h-1, otherwise the destination pixel keeps its value. Any
//    element type; HWC or CHW; channel counts equal, sizes may differ.
//  - Affine_Float: Affine_INV_Float with the inverse of m, rounded to float. A
//    matrix that cannot be inverted fails the check.
//  - Affine_INV_BILINEAR_Float: bilinear, UINT8 or FLOAT32 (the same in both
//    tensors), HWC or CHW. The source point is taken in fixed point with 10
//    fraction bits (BuildAffineSampleMap), the four neighbours are weighted in
//    1024ths. A destination pixel is written only when its source point lies
//    within [0, w-1] x [0, h-1]; otherwise it keeps its value. UINT8 results
//    are rounded to nearest ((v + 2^19) >> 20).
//  - Affine_INV_BILINEAR_Float_Border: the same sampling, but every
//    destination pixel is written: neighbours outside the source take the
//    border value (rounded and saturated to 0..255 for UINT8 images). The
//    classes of this library leave this slot unimplemented ("Not
//    Implemented."); the functional F_Affine_INV_BILINEAR_Float_Border_Fallback
//    performs it.
//  - Affine_Normalize (ImageProcessSSE only): warps a UINT8 image (HWC or CHW,
//    1 to 4 channels) into a FLOAT32 CHW tensor {c, H, W} and normalises it:
//    out = (sample - mean[c]) * scale[c], where sample is the bilinear value of
//    Affine_INV_BILINEAR_Float_Border (in 2^-20 steps, as a float) with the
//    border value of the parameters. The matrix maps source to destination.
//    ConvertPixel code 55 uses mean 0, scale 1 and border 0; call
//    Affine_Normalize directly for other values. F_Affine_Normalize_Fallback
//    is the scalar form with identical results.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tarn/runtime/context.h"
#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/tensor.h"

namespace tarn {
namespace kernel {

// Operation codes of the ConvertPixel dispatchers; the numbers are an external
// interface and never change.
enum ImageProcessCode : int {
  IMG_RGBA2RGB = 1,
  IMG_RGBA2BGR = 3,
  IMG_RGB2BGR = 4,
  IMG_BGR2GRAY = 6,
  IMG_RGB2GRAY = 7,
  IMG_RGBA2GRAY = 11,
  IMG_YUV2RGB_NV12 = 22,
  IMG_YUV2RGB_NV21 = 24,
  IMG_YUV2RGB_IYUV = 32,
  IMG_ROTATE_90 = 50,
  IMG_ROTATE_180 = 51,
  IMG_ROTATE_270 = 52,
  IMG_FLIP_HORIZONTAL = 53,
  IMG_FLIP_VERTICAL = 54,
  IMG_AFFINE_NORMALIZE = 55,
  IMG_AFFINE_FLOAT = 56,
  IMG_AFFINE_INV_FLOAT = 57,
  IMG_AFFINE_INV_BILINEAR_FLOAT = 58,
  IMG_HWC2CHW = 60,
  IMG_CHW2HWC = 61,
  IMG_CONVERT_8U_TO_32F = 65,
  IMG_RESIZE_NEAREST_C1 = 77,
  IMG_RESIZE_BILINEAR_C1 = 81,
  IMG_RESIZE_BILINEAR_C2 = 82,
  IMG_RESIZE_BILINEAR_C3 = 83,
  IMG_RESIZE_BILINEAR_C4 = 84,
  IMG_CROP_RESIZE_NEAREST_C1 = 85,
  IMG_CROP_RESIZE_NEAREST_C2 = 86,
  IMG_CROP_RESIZE_NEAREST_C3 = 87,
  IMG_CROP_RESIZE_NEAREST_C4 = 88,
  IMG_CROP_C1 = 100,
  IMG_CROP_C2 = 101,
  IMG_CROP_C3 = 102,
  IMG_CROP_C4 = 103,
};

// Per-channel normalisation of Affine_Normalize: out = (v - mean) * scale.
// `border` is the source value of samples outside the image, before
// normalisation (rounded and saturated to 0..255).
struct AffineNormalizeParam {
  float mean[4] = {0.0f, 0.0f, 0.0f, 0.0f};
  float scale[4] = {1.0f, 1.0f, 1.0f, 1.0f};
  float border = 0.0f;
};

class ImageProcess {
 public:
  using TensorPtr = std::shared_ptr<runtime::Tensor>;
  using ContextPtr = std::shared_ptr<runtime::Context>;

  virtual ~ImageProcess();

  // Every base version fails with "Not Implemented.".
  virtual void ConvertRGBAtoRGB(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void ConvertRGBtoBGR(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void ConvertRGBAtoBGR(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void ConvertYUV2RGB_NV21(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void ConvertYUV2RGB_NV12(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void ConvertYUV2RGB_IYUV(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void ConvertRGB2Gray(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void ConvertRGBA2Gray(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void ConvertBGR2Gray(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void ClockwiseRotate90(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void ClockwiseRotate180(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void ClockwiseRotate270(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void Flip_Horizintal(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void Flip_Vertical(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void Affine_Normalize(const TensorPtr& src, const TensorPtr& dst, const float* m,
                                const AffineNormalizeParam& param, const ContextPtr& context);
  virtual void Affine_Float(const TensorPtr& src, const TensorPtr& dst, const float* m, const ContextPtr& context);
  virtual void Affine_INV_Float(const TensorPtr& src, const TensorPtr& dst, const float* m,
                                const ContextPtr& context);
  virtual void Affine_INV_BILINEAR_Float(const TensorPtr& src, const TensorPtr& dst, const float* m,
                                         const ContextPtr& context);
  virtual void Affine_INV_BILINEAR_Float_Border(const TensorPtr& src, const TensorPtr& dst, const float* m,
                                                float border, const ContextPtr& context);
  virtual void HWC2CHW(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void CHW2HWC(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void Convert8U_To_32F(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void Crop_C1(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width, float height,
                       const ContextPtr& context);
  virtual void Crop_C2(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width, float height,
                       const ContextPtr& context);
  virtual void Crop_C3(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width, float height,
                       const ContextPtr& context);
  virtual void Crop_C4(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width, float height,
                       const ContextPtr& context);
  virtual void Resize_Nearest_C1(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void Resize_Bilinear_C1(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void Resize_Bilinear_C2(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void Resize_Bilinear_C3(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void Resize_Bilinear_C4(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context);
  virtual void Crop_Resize_Nearest_C1(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                                      float height, const ContextPtr& context);
  virtual void Crop_Resize_Nearest_C2(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                                      float height, const ContextPtr& context);
  virtual void Crop_Resize_Nearest_C3(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                                      float height, const ContextPtr& context);
  virtual void Crop_Resize_Nearest_C4(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                                      float height, const ContextPtr& context);

  // Dispatchers. Each returns true when `code` is in its table (the operation
  // then ran) and false, doing nothing, otherwise. The third acts only on
  // UINT8 sources and returns false for any other.
  bool ConvertPixel(const TensorPtr& src, const TensorPtr& dst, int code, const ContextPtr& context);
  bool ConvertPixel(const TensorPtr& src, const TensorPtr& dst, const float* m, int code,
                    const ContextPtr& context);
  bool ConvertPixel(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width, float height,
                    int code, const ContextPtr& context);
};

class ImageProcessFallback : public ImageProcess {
 public:
  ~ImageProcessFallback() override;

  void ConvertRGBAtoRGB(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void ConvertRGBtoBGR(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void ConvertRGBAtoBGR(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void ConvertYUV2RGB_NV21(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void ConvertYUV2RGB_NV12(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void ConvertYUV2RGB_IYUV(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void ConvertRGB2Gray(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void ConvertRGBA2Gray(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void ConvertBGR2Gray(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void ClockwiseRotate90(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void ClockwiseRotate180(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void ClockwiseRotate270(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void Flip_Horizintal(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void Flip_Vertical(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void Affine_Float(const TensorPtr& src, const TensorPtr& dst, const float* m, const ContextPtr& context) override;
  void Affine_INV_Float(const TensorPtr& src, const TensorPtr& dst, const float* m,
                        const ContextPtr& context) override;
  void Affine_INV_BILINEAR_Float(const TensorPtr& src, const TensorPtr& dst, const float* m,
                                 const ContextPtr& context) override;
  void HWC2CHW(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void CHW2HWC(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void Convert8U_To_32F(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void Crop_C1(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width, float height,
               const ContextPtr& context) override;
  void Crop_C2(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width, float height,
               const ContextPtr& context) override;
  void Crop_C3(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width, float height,
               const ContextPtr& context) override;
  void Crop_C4(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width, float height,
               const ContextPtr& context) override;
  void Resize_Nearest_C1(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void Resize_Bilinear_C1(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void Resize_Bilinear_C2(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void Resize_Bilinear_C3(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void Resize_Bilinear_C4(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void Crop_Resize_Nearest_C1(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                              float height, const ContextPtr& context) override;
  void Crop_Resize_Nearest_C2(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                              float height, const ContextPtr& context) override;
  void Crop_Resize_Nearest_C3(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                              float height, const ContextPtr& context) override;
  void Crop_Resize_Nearest_C4(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                              float height, const ContextPtr& context) override;

 protected:
  // The one crop-and-nearest-resize behind the four channel-count slots.
  void Crop_Resize_Nearest(const TensorPtr& src, const TensorPtr& dst, float x, float y, float width,
                           float height);
};

// Needs SSE4.1 and FMA with the AVX state enabled (CPUDeviceInfo::CanRunSSEKernels).
// Every operation it does not override is the fallback's, so results match
// the fallback's everywhere.
class ImageProcessSSE : public ImageProcessFallback {
 public:
  ~ImageProcessSSE() override;

  void ClockwiseRotate90(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void ClockwiseRotate270(const TensorPtr& src, const TensorPtr& dst, const ContextPtr& context) override;
  void Affine_Normalize(const TensorPtr& src, const TensorPtr& dst, const float* m, const AffineNormalizeParam& param,
                        const ContextPtr& context) override;
};

// ImageProcessSSE when the processor can run it, ImageProcessFallback otherwise.
std::shared_ptr<ImageProcess> CreateImageProcess(const runtime::CPUDeviceInfo& info);

// Inverse of an affine matrix, in double precision rounded to float; false
// when the matrix is singular or not finite.
bool InvertAffineMatrix(const float* m, float* inverse);

namespace functional {

// Where an image's pixels are: `planes` planes (CHW) of height x width pixels
// of `pixel_bytes` bytes each (HWC: one plane, pixels of channels x element size).
struct ImageGeometry {
  std::uint32_t planes = 0;
  std::uint32_t height = 0;
  std::uint32_t width = 0;
  std::uint32_t channels = 0;
  std::uint32_t element_bytes = 0;
  std::uint32_t pixel_bytes = 0;
  bool planar = false;
  std::size_t plane_bytes() const { return static_cast<std::size_t>(height) * width * pixel_bytes; }
  std::size_t row_bytes() const { return static_cast<std::size_t>(width) * pixel_bytes; }
};
// Checks that the tensor is an image (three dims, layout HWC or CHW, storage
// present) and describes it; `what` names it in the failure message.
ImageGeometry GetImageGeometry(const std::shared_ptr<runtime::Tensor>& image, const char* what);

// dst(i, j) = src(j, i) for i < cols, j < rows, pixels of `pixel_bytes`
// bytes; strides are in bytes and may be negative (a negative source stride
// reads the rows bottom-up). The rotations are transposes of this kind.
void TransposePixels(const std::uint8_t* src, std::ptrdiff_t src_stride, std::uint8_t* dst,
                     std::ptrdiff_t dst_stride, std::uint32_t rows, std::uint32_t cols, std::uint32_t pixel_bytes);
// Checks of ClockwiseRotate90/270: same kind of image, height and width
// swapped, no overlap. Returns the source geometry.
ImageGeometry CheckQuarterTurn(const std::shared_ptr<runtime::Tensor>& src,
                               const std::shared_ptr<runtime::Tensor>& dst, const char* op);

// Fails the check when the two tensors' storage overlaps (tensors of zero
// bytes never do).
void CheckNoOverlap(const std::shared_ptr<runtime::Tensor>& src, const std::shared_ptr<runtime::Tensor>& dst);

// Fixed-point source points of a destination-to-source matrix: the point of
// destination pixel (x, y) is (col_x[x] + row_x[y], col_y[x] + row_y[y]) in
// 1024ths of a pixel. Every term is rounded to nearest and saturated to
// +-2^29, so the sums never overflow; non-finite terms count as far outside.
struct AffineSampleMap {
  static constexpr int kBits = 10;
  static constexpr int kOne = 1 << kBits;
  std::vector<std::int32_t> col_x, col_y, row_x, row_y;
};
AffineSampleMap BuildAffineSampleMap(const double* inverse, std::uint32_t width, std::uint32_t height);
// The destination-to-source matrix of a source-to-destination one, in double;
// fails the check when it has no inverse.
void InvertAffineMatrixChecked(const float* m, double* inverse);

// Fixed-point bilinear resize of 8-bit HWC images (weights in 2048ths).
// Column dx samples fx = (dx + 0.5) * (src_w / dst_w) - 0.5 (one fused
// multiply-add in double); sx = floor(fx). sx < 0 takes column 0 with weights
// (2048, 0); sx >= src_w - 1 the last pair with the last column weighted 2048;
// otherwise w0 = round((1 - f) * 2048), w1 = round(f * 2048), f = fx - sx
// (half away from zero, saturated to int16). Rows likewise. Horizontal pass:
// h = (p[sx] w0 + p[sx+1] w1) >> 4; vertical pass:
// out = (((hA wy0) >> 16) + ((hB wy1) >> 16) + 2) >> 2.
void F_Resize_Bilinear_HWC_U8_C1_Fallback(const std::shared_ptr<runtime::Tensor>& src,
                                          const std::shared_ptr<runtime::Tensor>& dst);
void F_Resize_Bilinear_HWC_U8_C2_Fallback(const std::shared_ptr<runtime::Tensor>& src,
                                          const std::shared_ptr<runtime::Tensor>& dst);
void F_Resize_Bilinear_HWC_U8_C3_Fallback(const std::shared_ptr<runtime::Tensor>& src,
                                          const std::shared_ptr<runtime::Tensor>& dst);
void F_Resize_Bilinear_HWC_U8_C4_Fallback(const std::shared_ptr<runtime::Tensor>& src,
                                          const std::shared_ptr<runtime::Tensor>& dst);

// 8-bit to float, element by element.
void F_Convert8U_To_32F_Fallback(const std::shared_ptr<runtime::Tensor>& src,
                                 const std::shared_ptr<runtime::Tensor>& dst);

// Affine_INV_BILINEAR_Float (border = false) and
// Affine_INV_BILINEAR_Float_Border (border = true), as described above.
void F_Affine_INV_BILINEAR_Float_Fallback(const std::shared_ptr<runtime::Tensor>& src,
                                          const std::shared_ptr<runtime::Tensor>& dst, const float* m);
void F_Affine_INV_BILINEAR_Float_Border_Fallback(const std::shared_ptr<runtime::Tensor>& src,
                                                 const std::shared_ptr<runtime::Tensor>& dst, const float* m,
                                                 float border);

// Scalar Affine_Normalize; ImageProcessSSE::Affine_Normalize gives the same bits.
void F_Affine_Normalize_Fallback(const std::shared_ptr<runtime::Tensor>& src,
                                 const std::shared_ptr<runtime::Tensor>& dst, const float* m,
                                 const AffineNormalizeParam& param);

// Checks of Affine_Normalize shared by both forms; returns the source geometry.
ImageGeometry CheckAffineNormalize(const std::shared_ptr<runtime::Tensor>& src,
                                   const std::shared_ptr<runtime::Tensor>& dst);
// The border value as the 8-bit sample it stands for.
std::uint8_t BorderToU8(float border);

}  // namespace functional
}  // namespace kernel
}  // namespace tarn
