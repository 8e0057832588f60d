// BMP image files, for diagnostics and demos: uncompressed 8-, 24- and 32-bit
// images in and out of the 8-bit pixel-buffer tensors.
//
// Reading accepts the BITMAPCOREHEADER (12 bytes) and the BITMAPINFOHEADER
// family (40, 52, 56, 64, 108 and 124 bytes), rows bottom-up (positive
// height) or top-down (negative height), each padded to 4 bytes. Pixel data
// must be uncompressed (BI_RGB); 32-bit images may also use BI_BITFIELDS with
// the standard masks (red 0x00FF0000, green 0x0000FF00, blue 0x000000FF).
//  - 8-bit images are paletted: every pixel is looked up in the palette and
//    returned as grey, (77 R + 150 G + 29 B) >> 8 of its entry (a grey
//    palette gives back the indices). Result: {h, w, 1}.
//  - 24-bit images give {h, w, 3}; 32-bit images {h, w, 4}, the fourth byte
//    (alpha, or padding that writers often leave 0) returned as stored.
// The channel order of the tensor is chosen with BMPChannelOrder: RGB (the
// default, the order of the library's colour operations) or BGR (the order
// the file stores). Writing takes the same option for the tensor's order.
//
// Writing takes a UINT8 image, interleaved {h, w, c} (layout HWC) or planar
// {c, h, w} (layout CHW), with c = 1 (8-bit with a grey palette), 3 (24-bit)
// or 4 (32-bit BI_RGB, the fourth channel stored as alpha). Rows are written
// bottom-up with a 40-byte BITMAPINFOHEADER.
//
// Failures never throw: a malformed, truncated or unsupported file, or an
// image that cannot be written, gives a null tensor or false, a log line at
// level 16 ("BMP: " and the reason) and, when `error` is given, the reason in
// it. Nothing is allocated before the file is known to hold every pixel, so
// the tensor is never larger than the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarn/runtime/device_cpu.h"
#include "tarn/runtime/tensor.h"

namespace tarn {
namespace utility {

enum class BMPChannelOrder { RGB, BGR };

std::shared_ptr<runtime::TensorCPU> DecodeBMP(const void* data, std::size_t size,
                                              const std::shared_ptr<runtime::DeviceCPU>& device,
                                              BMPChannelOrder order = BMPChannelOrder::RGB,
                                              std::string* error = nullptr);
// Files larger than 1 GiB are refused.
std::shared_ptr<runtime::TensorCPU> ReadBMP(const std::string& path, const std::shared_ptr<runtime::DeviceCPU>& device,
                                            BMPChannelOrder order = BMPChannelOrder::RGB,
                                            std::string* error = nullptr);

bool EncodeBMP(const std::shared_ptr<runtime::Tensor>& image, std::vector<std::uint8_t>* out,
               BMPChannelOrder order = BMPChannelOrder::RGB, std::string* error = nullptr);
bool WriteBMP(const std::string& path, const std::shared_ptr<runtime::Tensor>& image,
              BMPChannelOrder order = BMPChannelOrder::RGB, std::string* error = nullptr);

}  // namespace utility
}  // namespace tarn
