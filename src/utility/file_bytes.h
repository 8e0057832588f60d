// Whole small files into memory, for the image and array readers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarn {
namespace utility {

enum class FileBytesResult { kOk, kCannotOpen, kCannotRead, kTooLarge };

// Reads the file in chunks, so memory follows the bytes actually present and a
// file past `max_bytes` is refused without reading it all.
FileBytesResult ReadFileBytes(const std::string& path, std::uint64_t max_bytes, std::vector<std::uint8_t>* bytes);

// The failure report of the file readers: formats the reason, logs it at
// level 16 after the reader's prefix ("BMP: ..."), and stores it in `error`
// when that is given.
struct ReaderFailure {
  const char* prefix;
  std::string* error;
  void operator()(const char* format, ...) const __attribute__((format(printf, 2, 3)));
};

}  // namespace utility
}  // namespace tarn
