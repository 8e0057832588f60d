// Whole small files into memory, for the image and array readers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarn {
namespace utility {

// The largest file the image and array readers take (1 GiB).
constexpr std::uint64_t kMaxFileBytes = std::uint64_t(1) << 30;

enum class FileBytesResult { kOk, kCannotOpen, kCannotRead, kCannotWrite, kTooLarge };

// Reads the file in chunks, so memory follows the bytes actually present and a
// file past `max_bytes` is refused without reading it all.
FileBytesResult ReadFileBytes(const std::string& path, std::uint64_t max_bytes, std::vector<std::uint8_t>* bytes);

// Writes the bytes to a new file (truncating an old one); kCannotOpen when the
// file cannot be created, kCannotWrite when a write or the close fails.
FileBytesResult WriteFileBytes(const std::string& path, const std::vector<std::uint8_t>& bytes);

// The failure report of the file readers: formats the reason, logs it at
// level 16 after the reader's prefix ("BMP: ..."), and stores it in `error`
// when that is given.
struct ReaderFailure {
  const char* prefix;
  std::string* error;
  void operator()(const char* format, ...) const __attribute__((format(printf, 2, 3)));
  // Reports a failed ReadFileBytes or WriteFileBytes of `path`; true for kOk.
  bool Check(FileBytesResult result, const std::string& path) const;
};

}  // namespace utility
}  // namespace tarn
