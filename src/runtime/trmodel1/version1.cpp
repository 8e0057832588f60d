#include "tarn/runtime/version1.h"

#include <cstdio>
#include <cstring>

namespace tarn1 {
namespace {

std::uint32_t Le32(const unsigned char* p) {
  return std::uint32_t(p[0]) | (std::uint32_t(p[1]) << 8) | (std::uint32_t(p[2]) << 16) | (std::uint32_t(p[3]) << 24);
}

bool IsVersion(std::uint32_t v) { return v >= kFirstVersion1File && v <= kLastVersion1File; }

}  // namespace

Version1Detection DetectVersion1(const void* head, std::size_t size) {
  Version1Detection d;
  const auto* p = static_cast<const unsigned char*>(head);
  if (p == nullptr) return d;
  if (size >= 4 && IsVersion(Le32(p))) {
    d.detected = true;
    d.file_version = Le32(p);
    return d;
  }
  if (size >= 2) {
    const std::uint16_t marker = static_cast<std::uint16_t>(p[0] | (p[1] << 8));
    if (marker == kVersion1MarkerA || marker == kVersion1MarkerB) {
      d.detected = true;
      d.marker = marker;
      if (size >= 6 && IsVersion(Le32(p + 2))) d.file_version = Le32(p + 2);
    }
  }
  return d;
}

Version1Detection DetectVersion1File(const char* path) {
  unsigned char head[kVersion1HeadBytes] = {};
  std::size_t n = 0;
  if (FILE* f = path ? std::fopen(path, "rb") : nullptr) {
    n = std::fread(head, 1, sizeof head, f);
    std::fclose(f);
  }
  return DetectVersion1(head, n);
}

std::string Version1Message(const std::string& what, const Version1Detection& d) {
  char detail[96];
  if (d.file_version != 0 && d.marker != 0) {
    std::snprintf(detail, sizeof detail, "message marker 0x%04x, file version %u", d.marker, d.file_version);
  } else if (d.file_version != 0) {
    std::snprintf(detail, sizeof detail, "file version %u", d.file_version);
  } else {
    std::snprintf(detail, sizeof detail, "message marker 0x%04x, file version unknown", d.marker);
  }
  return what + " is a version-1 model file (" + detail +
         "); this library reads only the current formats: re-export the model with trn_convert.";
}

}  // namespace tarn1
