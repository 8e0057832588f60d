// Binary stream format: a four-byte protocol version header, then the
// attributes in VisitAttr order, little-endian, no keys, no padding.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "tarn/runtime/serializable.h"

namespace tarn {
namespace runtime {

class FILEWriter : public Visitor {
 public:
  // Opens `path` with mode "wb" and writes the header; owns the stream.
  explicit FILEWriter(const char* path);
  // Uses `stream` without ever closing it; writes the header only if asked.
  FILEWriter(FILE* stream, bool write_header);
  ~FILEWriter() override;
  FILEWriter(const FILEWriter&) = delete;
  FILEWriter& operator=(const FILEWriter&) = delete;

  TRN_VISITOR_OVERRIDES

  FILE* stream() const { return stream_; }

 private:
  template <typename T>
  void WriteScalar(const T* value);
  template <typename T>
  void WriteArray(const std::vector<T>* value);
  void WriteCount(std::uint64_t count, const char* type_name);
  void WriteBytes(const void* data, size_t size, size_t count, const char* type_name);

  FILE* stream_ = nullptr;
  bool external_stream_ = false;
};

class FILEReader : public Visitor {
 public:
  // Opens `path` with mode "rb" and reads the header without a range check;
  // owns the stream.
  explicit FILEReader(const char* path);
  // Uses `stream` without closing it. A non-zero `version` is taken as the
  // protocol version and no header is read; zero reads and checks the header.
  FILEReader(FILE* stream, unsigned int version);
  ~FILEReader() override;
  FILEReader(const FILEReader&) = delete;
  FILEReader& operator=(const FILEReader&) = delete;

  TRN_VISITOR_OVERRIDES

  FILE* stream() const { return stream_; }

  // Reads a count of elements of `element_size` bytes each and refuses counts
  // whose payload the rest of the stream cannot hold.
  std::uint64_t ReadCount(size_t element_size, const char* type_name);
  // Reads `count` half floats that follow a count read with ReadCount.
  void ReadHalves(std::vector<half_float::half>* value, std::uint64_t count);
  // True for a seekable stream, whose counts ReadCount checks against the bytes left.
  bool SizeKnown() const { return end_offset_ >= 0; }

 private:
  FILEReader(FILE* stream, unsigned int version, long long end_offset);
  template <typename T>
  void ReadScalar(T* value);
  template <typename T>
  void ReadArray(std::vector<T>* value);
  template <typename T>
  void ReadElements(std::vector<T>* value, std::uint64_t count, const char* type_name);
  void ReadBytes(void* data, size_t size, size_t count, const char* type_name);
  void ReadHeader();
  void DetectEnd();
  [[noreturn]] void ReadFailed(const char* type_name);

  FILE* stream_ = nullptr;
  bool external_stream_ = false;
  // Byte offset of the end of a seekable stream, or -1 when unknown.
  long long end_offset_ = -1;
};

using FILEWriterPtr = std::shared_ptr<FILEWriter>;
using FILEReaderPtr = std::shared_ptr<FILEReader>;

// Weight blobs: base64 text of packed little-endian floats in memory, stored in
// the stream as an 8-byte count followed by truncated half floats.
void FileWriter_Visit_B64Encoded_F16_Data(const std::shared_ptr<FILEWriter>& writer, const std::string& b64);
void FileReader_Visit_B64Encoded_F16_Data(const std::shared_ptr<FILEReader>& reader, std::string& b64);
void FileWriter_Visit_Vec_B64Encoded_F16_Data(const std::shared_ptr<FILEWriter>& writer,
                                              const std::vector<std::string>& blobs);
void FileReader_Visit_Vec_B64Encoded_F16_Data(const std::shared_ptr<FILEReader>& reader,
                                              std::vector<std::string>& blobs);

// Standard base64 with "=" padding. Decoding stops at the first "=" and skips
// characters outside the alphabet (line breaks, spaces).
std::string Base64Encode(const unsigned char* data, unsigned long size);
std::string Base64Decode(const std::string& text);

}  // namespace runtime
}  // namespace tarn
