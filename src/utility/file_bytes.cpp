#include "utility/file_bytes.h"

#include <cstdarg>
#include <cstdio>

#include "tarn/utility/log.h"

namespace tarn {
namespace utility {

FileBytesResult ReadFileBytes(const std::string& path, std::uint64_t max_bytes, std::vector<std::uint8_t>* bytes) {
  bytes->clear();
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return FileBytesResult::kCannotOpen;
  std::uint8_t chunk[65536];
  bool too_large = false;
  std::size_t n;
  while ((n = std::fread(chunk, 1, sizeof(chunk), f)) > 0) {
    if (bytes->size() + n > max_bytes) {
      too_large = true;
      break;
    }
    bytes->insert(bytes->end(), chunk, chunk + n);
  }
  const bool failed = std::ferror(f) != 0;
  std::fclose(f);
  if (failed) return FileBytesResult::kCannotRead;
  if (too_large) return FileBytesResult::kTooLarge;
  return FileBytesResult::kOk;
}

FileBytesResult WriteFileBytes(const std::string& path, const std::vector<std::uint8_t>& bytes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return FileBytesResult::kCannotOpen;
  const bool written = bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  const bool closed = std::fclose(f) == 0;
  return written && closed ? FileBytesResult::kOk : FileBytesResult::kCannotWrite;
}

void ReaderFailure::operator()(const char* format, ...) const {
  char buf[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buf, sizeof(buf), format, args);
  va_end(args);
  Log(kLogError, "%s: %s", prefix, buf);
  if (error != nullptr) *error = buf;
}

bool ReaderFailure::Check(FileBytesResult result, const std::string& path) const {
  switch (result) {
    case FileBytesResult::kOk: return true;
    case FileBytesResult::kCannotOpen: (*this)("cannot open %s", path.c_str()); return false;
    case FileBytesResult::kCannotRead: (*this)("cannot read %s", path.c_str()); return false;
    case FileBytesResult::kCannotWrite: (*this)("cannot write %s", path.c_str()); return false;
    case FileBytesResult::kTooLarge: (*this)("%s is larger than 1 GiB", path.c_str()); return false;
  }
  return false;
}

}  // namespace utility
}  // namespace tarn
