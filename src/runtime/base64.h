// Base64 into and out of caller buffers, for the weight blobs: large blobs are
// converted straight into their destination, without intermediate strings.
#pragma once

#include <cstddef>

namespace tarn {
namespace runtime {

// Bytes a decode of `size` characters may write at most.
constexpr std::size_t Base64DecodeCapacity(std::size_t size) { return size / 4 * 3 + 3; }
// Characters the encoding of `size` bytes takes, padding included.
constexpr std::size_t Base64EncodedSize(std::size_t size) { return (size + 2) / 3 * 4; }

// Decodes as Base64Decode does (stops at the first "=", skips characters
// outside the alphabet) into `out`, which holds Base64DecodeCapacity(size)
// bytes; returns the bytes decoded.
std::size_t Base64DecodeInto(const char* text, std::size_t size, unsigned char* out);
// Encodes `size` bytes into `out`, which holds Base64EncodedSize(size) characters.
void Base64EncodeInto(const unsigned char* data, std::size_t size, char* out);

}  // namespace runtime
}  // namespace tarn
