#include "tarn/utility/bmp.h"

#include <cstdio>
#include <cstring>

#include "tarn/utility/log.h"
#include "utility/file_bytes.h"

namespace tarn {
namespace utility {

namespace {

constexpr std::size_t kFileHeader = 14;

std::uint16_t U16(const std::uint8_t* p) { return static_cast<std::uint16_t>(p[0] | (p[1] << 8)); }
std::uint32_t U32(const std::uint8_t* p) {
  return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
         (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}
void Put16(std::uint8_t* p, std::uint32_t v) {
  p[0] = static_cast<std::uint8_t>(v);
  p[1] = static_cast<std::uint8_t>(v >> 8);
}
void Put32(std::uint8_t* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

}  // namespace

std::shared_ptr<runtime::TensorCPU> DecodeBMP(const void* data, std::size_t size,
                                              const std::shared_ptr<runtime::DeviceCPU>& device,
                                              BMPChannelOrder order, std::string* error) {
  const ReaderFailure fail{"BMP", error};
  const std::uint8_t* b = static_cast<const std::uint8_t*>(data);
  if (device == nullptr) {
    fail("no device to create the image with");
    return nullptr;
  }
  if (b == nullptr || size < kFileHeader + 4) {
    fail("truncated file: %zu bytes, the headers alone need more", b == nullptr ? 0 : size);
    return nullptr;
  }
  if (b[0] != 'B' || b[1] != 'M') {
    fail("not a BMP file (no \"BM\" signature)");
    return nullptr;
  }
  const std::uint32_t pixel_offset = U32(b + 10);
  const std::uint32_t header = U32(b + 14);
  const bool core = header == 12;
  if (!(core || header == 40 || header == 52 || header == 56 || header == 64 || header == 108 || header == 124)) {
    fail("unsupported header size %u", header);
    return nullptr;
  }
  if (kFileHeader + header > size) {
    fail("truncated file: the %u-byte header needs %zu bytes, the file has %zu", header, kFileHeader + header,
         size);
    return nullptr;
  }
  const std::uint8_t* h = b + kFileHeader;
  std::int64_t width, height;
  std::uint32_t bits, compression = 0, colours_used = 0;
  if (core) {
    width = U16(h + 4);
    height = U16(h + 6);
    bits = U16(h + 10);
  } else {
    width = static_cast<std::int32_t>(U32(h + 4));
    height = static_cast<std::int32_t>(U32(h + 8));
    bits = U16(h + 14);
    compression = U32(h + 16);
    colours_used = U32(h + 32);
  }
  if (bits != 8 && bits != 24 && bits != 32) {
    fail("unsupported bit depth %u (8, 24 and 32 are read)", bits);
    return nullptr;
  }
  std::size_t masks_end = kFileHeader + header;
  if (compression == 3 && bits == 32) {
    // Bit fields: after a 40-byte header, or inside the larger ones.
    if (header == 40) masks_end += 12;
    if (masks_end > size) {
      fail("truncated file: the bit-field masks are missing");
      return nullptr;
    }
    const std::uint8_t* m = header == 40 ? b + kFileHeader + 40 : h + 40;
    if (U32(m) != 0x00FF0000u || U32(m + 4) != 0x0000FF00u || U32(m + 8) != 0x000000FFu) {
      fail("unsupported bit-field masks %08x %08x %08x", U32(m), U32(m + 4), U32(m + 8));
      return nullptr;
    }
  } else if (compression != 0) {
    fail("compressed BMP (compression %u) is not supported", compression);
    return nullptr;
  }
  if (width <= 0) {
    fail("invalid width %lld", static_cast<long long>(width));
    return nullptr;
  }
  if (height == 0 || height == INT32_MIN) {
    fail("invalid height %lld", static_cast<long long>(height));
    return nullptr;
  }
  const bool top_down = height < 0;
  const std::uint64_t rows = static_cast<std::uint64_t>(top_down ? -height : height);
  const std::uint64_t cols = static_cast<std::uint64_t>(width);

  // Palette of 8-bit images, as grey levels.
  std::uint8_t grey[256];
  std::uint32_t palette_size = 0;
  if (bits == 8) {
    palette_size = colours_used == 0 ? 256 : colours_used;
    if (palette_size > 256) {
      fail("palette of %u entries (at most 256)", palette_size);
      return nullptr;
    }
    const std::size_t entry = core ? 3 : 4;
    const std::size_t start = masks_end;
    if (start + palette_size * entry > size) {
      fail("truncated file: the %u-entry palette is missing", palette_size);
      return nullptr;
    }
    for (std::uint32_t i = 0; i < palette_size; ++i) {
      const std::uint8_t* e = b + start + i * entry;  // B, G, R
      grey[i] = static_cast<std::uint8_t>((77 * e[2] + 150 * e[1] + 29 * e[0]) >> 8);
    }
  }

  const std::uint64_t stride = (cols * bits + 31) / 32 * 4;
  if (pixel_offset < masks_end) {
    fail("pixel data offset %u lies inside the headers", pixel_offset);
    return nullptr;
  }
  // Divided rather than multiplied: stride * rows may not fit in 64 bits.
  if (pixel_offset > size || stride > (size - pixel_offset) / rows) {
    fail("truncated file: %llu rows of %llu bytes from offset %u do not fit in its %zu bytes",
         static_cast<unsigned long long>(rows), static_cast<unsigned long long>(stride), pixel_offset, size);
    return nullptr;
  }

  const unsigned channels = bits == 8 ? 1 : bits / 8;
  std::shared_ptr<runtime::TensorCPU> image;
  try {
    image = device->CreateUInt8HWCTensor(static_cast<unsigned>(rows), static_cast<unsigned>(cols), channels);
  } catch (const std::exception& e) {
    fail("cannot allocate a %llux%llu image: %s", static_cast<unsigned long long>(cols),
         static_cast<unsigned long long>(rows), e.what());
    return nullptr;
  }
  std::uint8_t* out = image->DataAs<std::uint8_t>();
  const bool swap = order == BMPChannelOrder::RGB;
  for (std::uint64_t r = 0; r < rows; ++r) {
    const std::uint8_t* src = b + pixel_offset + r * stride;
    std::uint8_t* dst = out + (top_down ? r : rows - 1 - r) * cols * channels;
    if (bits == 8) {
      for (std::uint64_t x = 0; x < cols; ++x) {
        if (src[x] >= palette_size) {
          fail("pixel index %u outside the %u-entry palette", src[x], palette_size);
          return nullptr;
        }
        dst[x] = grey[src[x]];
      }
    } else if (!swap) {
      std::memcpy(dst, src, cols * channels);
    } else {
      for (std::uint64_t x = 0; x < cols; ++x, src += channels, dst += channels) {
        dst[0] = src[2];
        dst[1] = src[1];
        dst[2] = src[0];
        if (channels == 4) dst[3] = src[3];
      }
    }
  }
  return image;
}

std::shared_ptr<runtime::TensorCPU> ReadBMP(const std::string& path, const std::shared_ptr<runtime::DeviceCPU>& device,
                                            BMPChannelOrder order, std::string* error) {
  const ReaderFailure fail{"BMP", error};
  std::vector<std::uint8_t> bytes;
  if (!fail.Check(ReadFileBytes(path, kMaxFileBytes, &bytes), path)) return nullptr;
  std::string reason;
  auto image = DecodeBMP(bytes.data(), bytes.size(), device, order, &reason);
  if (image == nullptr && error != nullptr) *error = path + ": " + reason;
  return image;
}

bool EncodeBMP(const std::shared_ptr<runtime::Tensor>& image, std::vector<std::uint8_t>* out, BMPChannelOrder order,
               std::string* error) {
  const ReaderFailure fail{"BMP", error};
  if (image == nullptr || out == nullptr) {
    fail("no image or no output to encode");
    return false;
  }
  const runtime::TensorShape& s = image->shape;
  const bool planar = s.layout == runtime::TensorShape::CHW;
  if (s.data_type != runtime::TensorShape::UINT8 || s.dims.size() != 3 ||
      (!planar && s.layout != runtime::TensorShape::HWC)) {
    fail("only UINT8 images {h, w, c} (HWC) or {c, h, w} (CHW) can be written");
    return false;
  }
  const std::uint64_t c = planar ? s.dims[0] : s.dims[2];
  const std::uint64_t h = planar ? s.dims[1] : s.dims[0];
  const std::uint64_t w = planar ? s.dims[2] : s.dims[1];
  if (c != 1 && c != 3 && c != 4) {
    fail("images of %llu channels cannot be written (1, 3 or 4)", static_cast<unsigned long long>(c));
    return false;
  }
  if (w == 0 || h == 0) {
    fail("an empty image cannot be written");
    return false;
  }
  const std::uint32_t bits = static_cast<std::uint32_t>(c * 8);
  const std::uint64_t stride = (w * bits + 31) / 32 * 4;
  const std::uint64_t palette = c == 1 ? 256 * 4 : 0;
  const std::uint64_t offset = kFileHeader + 40 + palette;
  const std::uint64_t total = offset + stride * h;
  if (w > INT32_MAX || h > INT32_MAX || total > UINT32_MAX) {
    fail("a %llux%llu image is too large for a BMP file", static_cast<unsigned long long>(w),
         static_cast<unsigned long long>(h));
    return false;
  }
  const std::uint8_t* pixels = static_cast<const std::uint8_t*>(image->Data());
  if (pixels == nullptr) {
    fail("the image has no storage");
    return false;
  }
  out->assign(total, 0);
  std::uint8_t* f = out->data();
  f[0] = 'B';
  f[1] = 'M';
  Put32(f + 2, static_cast<std::uint32_t>(total));
  Put32(f + 10, static_cast<std::uint32_t>(offset));
  std::uint8_t* hd = f + kFileHeader;
  Put32(hd, 40);
  Put32(hd + 4, static_cast<std::uint32_t>(w));
  Put32(hd + 8, static_cast<std::uint32_t>(h));  // positive: bottom-up
  Put16(hd + 12, 1);
  Put16(hd + 14, bits);
  Put32(hd + 20, static_cast<std::uint32_t>(stride * h));
  Put32(hd + 24, 2835);  // 72 dpi
  Put32(hd + 28, 2835);
  if (c == 1) {
    Put32(hd + 32, 256);
    for (std::uint32_t i = 0; i < 256; ++i) {
      std::uint8_t* e = f + kFileHeader + 40 + i * 4;
      e[0] = e[1] = e[2] = static_cast<std::uint8_t>(i);
    }
  }
  // Channel k of pixel (y, x) in the tensor.
  const std::uint64_t plane = w * h;
  auto at = [&](std::uint64_t y, std::uint64_t x, std::uint64_t k) {
    return planar ? pixels[k * plane + y * w + x] : pixels[(y * w + x) * c + k];
  };
  const bool swap = order == BMPChannelOrder::RGB && c >= 3;
  for (std::uint64_t y = 0; y < h; ++y) {
    std::uint8_t* row = f + offset + (h - 1 - y) * stride;
    for (std::uint64_t x = 0; x < w; ++x) {
      for (std::uint64_t k = 0; k < c; ++k) {
        const std::uint64_t from = (swap && k < 3) ? 2 - k : k;
        row[x * c + k] = at(y, x, from);
      }
    }
  }
  return true;
}

bool WriteBMP(const std::string& path, const std::shared_ptr<runtime::Tensor>& image, BMPChannelOrder order,
              std::string* error) {
  const ReaderFailure fail{"BMP", error};
  std::vector<std::uint8_t> bytes;
  if (!EncodeBMP(image, &bytes, order, error)) return false;
  return fail.Check(WriteFileBytes(path, bytes), path);
}

}  // namespace utility
}  // namespace tarn
