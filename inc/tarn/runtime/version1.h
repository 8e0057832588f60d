// Recognising model files of the legacy version-1 format.
//
// That format is not documented anywhere this library could follow, so such
// files are not converted: they are recognised by their first bytes and
// refused with a message that names the detected version and asks for the
// model to be re-exported with trn_convert. A file is taken for version 1 when
//  - its first four bytes, a little-endian unsigned 32-bit number, are a file
//    version from 10000 to 10011, or
//  - its first two bytes, a little-endian unsigned 16-bit number, are one of
//    the message markers 0x5555 and 0xaaaa (the version is then the 32-bit
//    number after the marker when that is in the range, else unknown).
// No file of the current formats starts so: a binary file starts with its
// protocol version (at most 20015, and 20000 or more in practice) and a JSON
// file with text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tarn1 {

constexpr std::uint32_t kFirstVersion1File = 10000;
constexpr std::uint32_t kLastVersion1File = 10011;
constexpr std::uint16_t kVersion1MarkerA = 0x5555;
constexpr std::uint16_t kVersion1MarkerB = 0xaaaa;
// Bytes DetectVersion1 looks at.
constexpr std::size_t kVersion1HeadBytes = 6;

struct Version1Detection {
  bool detected = false;
  std::uint32_t file_version = 0;  // 0 when unknown
  std::uint16_t marker = 0;        // the marker found, or 0
};

// Looks at the first `size` bytes of a file (fewer than six are fine).
Version1Detection DetectVersion1(const void* head, std::size_t size);
// Reads the first bytes of the file; nothing is detected when it cannot be read.
Version1Detection DetectVersion1File(const char* path);

// "<what> is a version-1 model file (file version 10003); this library reads
// only the current formats: re-export the model with trn_convert."
std::string Version1Message(const std::string& what, const Version1Detection& detection);

}  // namespace tarn1
