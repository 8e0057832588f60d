// NPY files (NumPy's np.save format) of float32 arrays, for feeding nets and
// comparing their outputs with a framework's.
//
// Reading is strict and accepts exactly what np.save writes for a C-order
// float32 array on a little-endian machine: the magic "\x93NUMPY", format
// version 1.0 or 2.0, a header dictionary with the keys 'descr' ('<f4'),
// 'fortran_order' (False) and 'shape' (a tuple of 1 to 8 positive sizes, each
// below 2^32), and then exactly the array's bytes. Anything else (other
// element types, big-endian or Fortran-order data, version 3.0 headers, empty
// or zero-dimensional arrays, missing or trailing bytes, extra keys) is refused
// with the reason. Failures never throw: they give false, a log line at level
// 16 ("NPY: " and the reason) and, when `error` is given, the reason in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn {
namespace utility {

struct NpyArray {
  std::vector<unsigned> shape;
  std::vector<float> values;
};

bool DecodeNPY(const void* data, std::size_t size, NpyArray* out, std::string* error = nullptr);
// Files larger than 1 GiB are refused.
bool ReadNPY(const std::string& path, NpyArray* out, std::string* error = nullptr);

// Writes a version 1.0 file as np.save does (header padded to 64 bytes).
bool EncodeNPY(const float* values, const std::vector<unsigned>& shape, std::vector<std::uint8_t>* out,
               std::string* error = nullptr);
bool WriteNPY(const std::string& path, const float* values, const std::vector<unsigned>& shape,
              std::string* error = nullptr);

}  // namespace utility
}  // namespace tarn
