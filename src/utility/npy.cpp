#include "tarn/utility/npy.h"

#include <cstdio>
#include <cstring>

#include "utility/file_bytes.h"

namespace tarn {
namespace utility {
namespace {

constexpr char kMagic[] = "\x93NUMPY";
constexpr std::size_t kMagicBytes = 6;
constexpr std::size_t kMaxRank = 8;

// The header dictionary, read as the Python literal np.save writes:
// {'descr': '<f4', 'fortran_order': False, 'shape': (3, 224, 224), }
class HeaderParser {
 public:
  HeaderParser(const char* text, std::size_t size) : p_(text), end_(text + size) {}

  // Fills descr, fortran_order and shape; false with `reason` otherwise.
  bool Parse(std::string* descr, bool* fortran_order, std::vector<std::uint64_t>* shape, std::string* reason) {
    bool seen_descr = false, seen_order = false, seen_shape = false;
    Space();
    if (!Take('{')) return Fail(reason, "the header is not a dictionary");
    for (;;) {
      Space();
      if (Take('}')) break;
      std::string key;
      if (!String(&key)) return Fail(reason, "a header key is not a quoted string");
      Space();
      if (!Take(':')) return Fail(reason, "no ':' after a header key");
      Space();
      if (key == "descr" && !seen_descr) {
        if (!String(descr)) return Fail(reason, "'descr' is not a string");
        seen_descr = true;
      } else if (key == "fortran_order" && !seen_order) {
        if (Word("True")) {
          *fortran_order = true;
        } else if (Word("False")) {
          *fortran_order = false;
        } else {
          return Fail(reason, "'fortran_order' is neither True nor False");
        }
        seen_order = true;
      } else if (key == "shape" && !seen_shape) {
        if (!Tuple(shape)) return Fail(reason, "'shape' is not a tuple of sizes");
        seen_shape = true;
      } else {
        return Fail(reason, "unexpected or repeated header key '" + key + "'");
      }
      Space();
      if (Take(',')) continue;
      Space();
      if (Take('}')) break;
      return Fail(reason, "no ',' or '}' after a header value");
    }
    if (!seen_descr || !seen_order || !seen_shape) {
      return Fail(reason, "the header lacks one of 'descr', 'fortran_order' and 'shape'");
    }
    // np.save pads with spaces and ends the header with a line feed.
    while (p_ < end_ && *p_ == ' ') ++p_;
    if (p_ + 1 != end_ || *p_ != '\n') return Fail(reason, "the header does not end in spaces and a line feed");
    return true;
  }

 private:
  static bool Fail(std::string* reason, const std::string& text) {
    *reason = text;
    return false;
  }
  void Space() {
    while (p_ < end_ && (*p_ == ' ' || *p_ == '\t')) ++p_;
  }
  bool Take(char c) {
    if (p_ < end_ && *p_ == c) {
      ++p_;
      return true;
    }
    return false;
  }
  bool Word(const char* word) {
    const std::size_t n = std::strlen(word);
    if (static_cast<std::size_t>(end_ - p_) < n || std::memcmp(p_, word, n) != 0) return false;
    p_ += n;
    return true;
  }
  // A Python string in single or double quotes, without escapes.
  bool String(std::string* out) {
    if (p_ >= end_ || (*p_ != '\'' && *p_ != '"')) return false;
    const char quote = *p_++;
    const char* start = p_;
    while (p_ < end_ && *p_ != quote) {
      if (*p_ == '\\' || *p_ == '\n') return false;
      ++p_;
    }
    if (p_ >= end_) return false;
    out->assign(start, p_);
    ++p_;
    return true;
  }
  // (), (n,) or (n, m, ...) with an optional trailing comma, as Python
  // spells tuples; sizes are decimal, at most 19 digits so they fit 64 bits.
  bool Tuple(std::vector<std::uint64_t>* shape) {
    shape->clear();
    if (!Take('(')) return false;
    Space();
    if (Take(')')) return true;
    for (;;) {
      const char* start = p_;
      std::uint64_t v = 0;
      while (p_ < end_ && *p_ >= '0' && *p_ <= '9' && p_ - start < 19) v = v * 10 + static_cast<unsigned>(*p_++ - '0');
      if (p_ == start || (p_ < end_ && *p_ >= '0' && *p_ <= '9')) return false;
      shape->push_back(v);
      Space();
      const bool comma = Take(',');
      Space();
      // (5) is a number, not a tuple: one element needs its comma.
      if (Take(')')) return comma || shape->size() > 1;
      if (!comma) return false;
    }
  }

  const char* p_;
  const char* end_;
};

std::uint32_t Le32(const std::uint8_t* p) {
  return std::uint32_t(p[0]) | (std::uint32_t(p[1]) << 8) | (std::uint32_t(p[2]) << 16) | (std::uint32_t(p[3]) << 24);
}

}  // namespace

bool DecodeNPY(const void* data, std::size_t size, NpyArray* out, std::string* error) {
  const ReaderFailure fail{"NPY", error};
  const auto* b = static_cast<const std::uint8_t*>(data);
  if (out == nullptr) {
    fail("no array to read into");
    return false;
  }
  if (b == nullptr || size < kMagicBytes + 4) {
    fail("truncated file: %zu bytes", b == nullptr ? std::size_t(0) : size);
    return false;
  }
  if (std::memcmp(b, kMagic, kMagicBytes) != 0) {
    fail("not an NPY file (no \"\\x93NUMPY\" magic)");
    return false;
  }
  const unsigned major = b[6], minor = b[7];
  if ((major != 1 && major != 2) || minor != 0) {
    fail("format version %u.%u is not read (only 1.0 and 2.0)", major, minor);
    return false;
  }
  const std::size_t prefix = major == 1 ? 10 : 12;
  if (size < prefix) {
    fail("truncated file: %zu bytes", size);
    return false;
  }
  const std::uint64_t header_len = major == 1 ? std::uint64_t(b[8] | (b[9] << 8)) : Le32(b + 8);
  if (header_len > size - prefix) {
    fail("the header says %llu bytes, the file holds %zu after the prefix",
         static_cast<unsigned long long>(header_len), size - prefix);
    return false;
  }
  std::string descr, reason;
  bool fortran_order = false;
  std::vector<std::uint64_t> shape;
  HeaderParser parser(reinterpret_cast<const char*>(b + prefix), static_cast<std::size_t>(header_len));
  if (!parser.Parse(&descr, &fortran_order, &shape, &reason)) {
    fail("malformed header: %s", reason.c_str());
    return false;
  }
  if (descr != "<f4") {
    fail("element type '%s' is not read: only little-endian float32 ('<f4')", descr.c_str());
    return false;
  }
  if (fortran_order) {
    fail("Fortran-order arrays are not read: save a C-order copy (np.ascontiguousarray)");
    return false;
  }
  if (shape.empty() || shape.size() > kMaxRank) {
    fail("%zu dimensions: only arrays of 1 to %zu dimensions are read", shape.size(), kMaxRank);
    return false;
  }
  const std::size_t payload = size - prefix - static_cast<std::size_t>(header_len);
  std::uint64_t count = 1;
  for (std::uint64_t d : shape) {
    if (d == 0 || d > 0xFFFFFFFFu) {
      fail("dimension of size %llu: sizes must be from 1 to 2^32 - 1", static_cast<unsigned long long>(d));
      return false;
    }
    // A product past the data present is refused before it can overflow.
    if (count > payload / 4 / d) {
      fail("the shape needs more data than the file holds (%zu bytes)", payload);
      return false;
    }
    count *= d;
  }
  if (count * 4 != payload) {
    fail("the shape needs %llu bytes of data, the file holds %zu", static_cast<unsigned long long>(count * 4), payload);
    return false;
  }
  out->shape.assign(shape.begin(), shape.end());
  out->values.resize(static_cast<std::size_t>(count));
  std::memcpy(out->values.data(), b + size - payload, payload);
  return true;
}

bool ReadNPY(const std::string& path, NpyArray* out, std::string* error) {
  const ReaderFailure fail{"NPY", error};
  std::vector<std::uint8_t> bytes;
  if (!fail.Check(ReadFileBytes(path, kMaxFileBytes, &bytes), path)) return false;
  std::string reason;
  if (DecodeNPY(bytes.data(), bytes.size(), out, &reason)) return true;
  if (error != nullptr) *error = path + ": " + reason;
  return false;
}

bool EncodeNPY(const float* values, const std::vector<unsigned>& shape, std::vector<std::uint8_t>* out,
               std::string* error) {
  const ReaderFailure fail{"NPY", error};
  if (out == nullptr || shape.empty() || shape.size() > kMaxRank) {
    fail("only arrays of 1 to %zu dimensions are written", kMaxRank);
    return false;
  }
  std::uint64_t count = 1;
  std::string dims;
  for (unsigned d : shape) {
    if (d != 0 && count > UINT64_MAX / 4 / d) {
      fail("the shape holds more values than memory can");
      return false;
    }
    count *= d;
    dims += std::to_string(d) + ", ";
  }
  dims.resize(dims.size() - (shape.size() > 1 ? 2 : 1));  // (3, 4) but (5,)
  if (count == 0 || values == nullptr) {
    fail("no values to write");
    return false;
  }
  std::string header = "{'descr': '<f4', 'fortran_order': False, 'shape': (" + dims + "), }";
  // Spaces and a line feed pad the prefix and header to a multiple of 64 bytes.
  const std::size_t unpadded = 10 + header.size() + 1;
  header.append((64 - unpadded % 64) % 64, ' ');
  header += '\n';
  const std::size_t data_bytes = static_cast<std::size_t>(count) * 4;
  out->assign(10 + header.size() + data_bytes, 0);
  std::uint8_t* o = out->data();
  std::memcpy(o, kMagic, kMagicBytes);
  o[6] = 1;  // format version 1.0
  o[7] = 0;
  o[8] = static_cast<std::uint8_t>(header.size() & 0xFF);
  o[9] = static_cast<std::uint8_t>(header.size() >> 8);
  std::memcpy(o + 10, header.data(), header.size());
  std::memcpy(o + 10 + header.size(), values, data_bytes);
  return true;
}

bool WriteNPY(const std::string& path, const float* values, const std::vector<unsigned>& shape, std::string* error) {
  const ReaderFailure fail{"NPY", error};
  std::vector<std::uint8_t> bytes;
  if (!EncodeNPY(values, shape, &bytes, error)) return false;
  return fail.Check(WriteFileBytes(path, bytes), path);
}

}  // namespace utility
}  // namespace tarn
