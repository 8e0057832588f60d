#include "tarn/runtime/binary_stream.h"

#include <algorithm>
#include <cstring>
#include <typeinfo>

#include "runtime/base64.h"
#include "tarn/runtime/layer_info.h"
#include "tarn/runtime/version1.h"
#include "tarn/utility/log.h"

namespace tarn {
namespace runtime {
namespace {

constexpr const char* kWriteValueMessage = "failed to write a %s value, error code is %d.\n";
constexpr const char* kWriteCountMessage = "failed to write the %s value, error code is %d.\n";
constexpr const char* kReadValueMessage = "failed to read a %s value, error code is %d.\n";

int StreamError(FILE* stream) { return stream ? std::ferror(stream) : -1; }

// Elements read per step when the stream's size is unknown (pipes), so that a
// hostile count cannot make the reader allocate far beyond the data present.
constexpr size_t kUnknownSizeChunkBytes = size_t(1) << 20;

// The header as the first four bytes of a file: a version-1 file starts with
// its file version or a message marker instead.
tarn1::Version1Detection Version1Header(std::uint32_t header) {
  unsigned char bytes[4];
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<unsigned char>(header >> (8 * i));
  return tarn1::DetectVersion1(bytes, sizeof bytes);
}

// Every half's exact float, so widening a weight is one lookup (256 KB).
const float* HalfToFloat() {
  static const auto* table = [] {
    auto* t = new std::vector<float>(65536);
    for (unsigned h = 0; h < 65536; ++h) (*t)[h] = static_cast<float>(half_float::half::FromBits(static_cast<std::uint16_t>(h)));
    return t;
  }();
  return table->data();
}

}  // namespace

// ---------------------------------------------------------------- FILEWriter

FILEWriter::FILEWriter(const char* path) : stream_(std::fopen(path, "wb")), external_stream_(false) {
  protocol_version_ = kSerializationProtocolVersion;
  WriteScalar(&protocol_version_);
}

FILEWriter::FILEWriter(FILE* stream, bool write_header) : stream_(stream), external_stream_(true) {
  protocol_version_ = kSerializationProtocolVersion;
  if (write_header) WriteScalar(&protocol_version_);
}

FILEWriter::~FILEWriter() {
  if (!external_stream_ && stream_ != nullptr) std::fclose(stream_);
}

void FILEWriter::WriteBytes(const void* data, size_t size, size_t count, const char* type_name) {
  if (count == 0) return;
  const size_t written = stream_ ? std::fwrite(data, size, count, stream_) : 0;
  utility::Assert(written == count, kWriteValueMessage, type_name, StreamError(stream_));
}

void FILEWriter::WriteCount(std::uint64_t count, const char* type_name) {
  const size_t written = stream_ ? std::fwrite(&count, sizeof count, 1, stream_) : 0;
  utility::Assert(written == 1, kWriteCountMessage, type_name, StreamError(stream_));
}

template <typename T>
void FILEWriter::WriteScalar(const T* value) {
  WriteBytes(value, sizeof(T), 1, typeid(T).name());
}

template <typename T>
void FILEWriter::WriteArray(const std::vector<T>* value) {
  WriteCount(value->size(), typeid(std::vector<T>).name());
  WriteBytes(value->data(), sizeof(T), value->size(), typeid(std::vector<T>).name());
}

void FILEWriter::Visit(float* v, const char*) { WriteScalar(v); }
void FILEWriter::Visit(half_float::half* v, const char*) { WriteScalar(v); }
void FILEWriter::Visit(double* v, const char*) { WriteScalar(v); }
void FILEWriter::Visit(signed char* v, const char*) { WriteScalar(v); }
void FILEWriter::Visit(unsigned char* v, const char*) { WriteScalar(v); }
void FILEWriter::Visit(short* v, const char*) { WriteScalar(v); }
void FILEWriter::Visit(unsigned short* v, const char*) { WriteScalar(v); }
void FILEWriter::Visit(int* v, const char*) { WriteScalar(v); }
void FILEWriter::Visit(unsigned int* v, const char*) { WriteScalar(v); }
void FILEWriter::Visit(long* v, const char*) { WriteScalar(v); }
void FILEWriter::Visit(unsigned long* v, const char*) { WriteScalar(v); }
void FILEWriter::Visit(bool* v, const char*) {
  const unsigned char byte = *v ? 1 : 0;
  WriteBytes(&byte, 1, 1, typeid(bool).name());
}
void FILEWriter::Visit(char* v, const char*) { WriteScalar(v); }

void FILEWriter::Visit(std::string* v, const char*) {
  WriteCount(v->size(), typeid(std::string).name());
  WriteBytes(v->data(), 1, v->size(), typeid(std::string).name());
}

void FILEWriter::Visit(std::vector<float>* v, const char*) { WriteArray(v); }
void FILEWriter::Visit(std::vector<half_float::half>* v, const char*) { WriteArray(v); }
void FILEWriter::Visit(std::vector<unsigned short>* v, const char*) { WriteArray(v); }
void FILEWriter::Visit(std::vector<short>* v, const char*) { WriteArray(v); }

void FILEWriter::Visit(std::vector<std::string>* v, const char* key) {
  WriteCount(v->size(), typeid(std::vector<std::string>).name());
  for (std::string& s : *v) Visit(&s, key);
}

void FILEWriter::Visit(Serializable* v, const char*) {
  auto nested = std::make_shared<FILEWriter>(stream_, false);
  nested->protocol_version_ = protocol_version_;
  v->VisitAttr(nested);
}

void FILEWriter::Visit(std::vector<int>* v, const char*) { WriteArray(v); }
void FILEWriter::Visit(std::vector<long>* v, const char*) { WriteArray(v); }
void FILEWriter::Visit(std::vector<unsigned int>* v, const char*) { WriteArray(v); }
void FILEWriter::Visit(std::vector<unsigned long>* v, const char*) { WriteArray(v); }

void FILEWriter::Visit(std::vector<std::vector<unsigned short>>* v, const char*) {
  WriteCount(v->size(), typeid(std::vector<std::vector<unsigned short>>).name());
  for (auto& inner : *v) WriteArray(&inner);
}

// ---------------------------------------------------------------- FILEReader

FILEReader::FILEReader(const char* path) : stream_(std::fopen(path, "rb")), external_stream_(false) {
  DetectEnd();
  ReadScalar(&protocol_version_);
  const tarn1::Version1Detection legacy = Version1Header(protocol_version_);
  if (legacy.detected) {
    // The destructor does not run for a constructor that throws.
    std::fclose(stream_);
    stream_ = nullptr;
    utility::AssertFailedMessage(tarn1::Version1Message(path, legacy));
  }
}

FILEReader::FILEReader(FILE* stream, unsigned int version) : stream_(stream), external_stream_(true) {
  utility::Assert(stream != nullptr, "cant construct FILEReader object using a NULL ptr.");
  DetectEnd();
  if (version != 0) {
    protocol_version_ = version;
  } else {
    ReadHeader();
  }
}

FILEReader::FILEReader(FILE* stream, unsigned int version, long long end_offset)
    : stream_(stream), external_stream_(true), end_offset_(end_offset) {
  protocol_version_ = version;
}

FILEReader::~FILEReader() {
  if (!external_stream_ && stream_ != nullptr) std::fclose(stream_);
}

void FILEReader::DetectEnd() {
  end_offset_ = -1;
  if (stream_ == nullptr) return;
  const long here = std::ftell(stream_);
  if (here < 0 || std::fseek(stream_, 0, SEEK_END) != 0) {
    std::clearerr(stream_);
    return;
  }
  const long end = std::ftell(stream_);
  if (std::fseek(stream_, here, SEEK_SET) != 0) {
    std::clearerr(stream_);
    return;
  }
  if (end >= here) end_offset_ = end;
}

void FILEReader::ReadHeader() {
  ReadScalar(&protocol_version_);
  const tarn1::Version1Detection legacy = Version1Header(protocol_version_);
  if (legacy.detected) utility::AssertFailedMessage(tarn1::Version1Message("The stream", legacy));
  utility::Assert(protocol_version_ <= kSerializationProtocolVersion,
                  "_serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__.");
}

void FILEReader::ReadFailed(const char* type_name) {
  utility::AssertFailed(kReadValueMessage, type_name, StreamError(stream_));
}

void FILEReader::ReadBytes(void* data, size_t size, size_t count, const char* type_name) {
  if (count == 0) return;
  const size_t read = stream_ ? std::fread(data, size, count, stream_) : 0;
  if (read != count) ReadFailed(type_name);
}

template <typename T>
void FILEReader::ReadScalar(T* value) {
  T read;  // a short read must not leave a half-written value behind
  ReadBytes(&read, sizeof(T), 1, typeid(T).name());
  *value = read;
}

std::uint64_t FILEReader::ReadCount(size_t element_size, const char* type_name) {
  std::uint64_t count = 0;
  ReadBytes(&count, sizeof count, 1, type_name);
  if (count != 0 && end_offset_ >= 0) {
    const long here = std::ftell(stream_);
    const std::uint64_t remaining =
        (here >= 0 && here <= end_offset_) ? static_cast<std::uint64_t>(end_offset_ - here) : 0;
    // The payload needs at least count * element_size more bytes.
    if (count > remaining / std::max<size_t>(element_size, 1)) ReadFailed(type_name);
  }
  return count;
}

template <typename T>
void FILEReader::ReadElements(std::vector<T>* value, std::uint64_t count, const char* type_name) {
  if (end_offset_ >= 0 || count * sizeof(T) <= kUnknownSizeChunkBytes) {
    value->resize(count);
    ReadBytes(value->data(), sizeof(T), count, type_name);
    return;
  }
  // Unknown stream size: grow chunk by chunk so memory tracks the data read.
  value->clear();
  const size_t chunk = kUnknownSizeChunkBytes / sizeof(T);
  std::uint64_t done = 0;
  while (done < count) {
    const size_t n = static_cast<size_t>(std::min<std::uint64_t>(chunk, count - done));
    value->resize(done + n);
    ReadBytes(value->data() + done, sizeof(T), n, type_name);
    done += n;
  }
}

template <typename T>
void FILEReader::ReadArray(std::vector<T>* value) {
  const char* type_name = typeid(std::vector<T>).name();
  ReadElements(value, ReadCount(sizeof(T), type_name), type_name);
}

void FILEReader::ReadHalves(std::vector<half_float::half>* value, std::uint64_t count) {
  ReadElements(value, count, typeid(half_float::half).name());
}

void FILEReader::Visit(float* v, const char*) { ReadScalar(v); }
void FILEReader::Visit(half_float::half* v, const char*) { ReadScalar(v); }
void FILEReader::Visit(double* v, const char*) { ReadScalar(v); }
void FILEReader::Visit(signed char* v, const char*) { ReadScalar(v); }
void FILEReader::Visit(unsigned char* v, const char*) { ReadScalar(v); }
void FILEReader::Visit(short* v, const char*) { ReadScalar(v); }
void FILEReader::Visit(unsigned short* v, const char*) { ReadScalar(v); }
void FILEReader::Visit(int* v, const char*) { ReadScalar(v); }
void FILEReader::Visit(unsigned int* v, const char*) { ReadScalar(v); }
void FILEReader::Visit(long* v, const char*) { ReadScalar(v); }
void FILEReader::Visit(unsigned long* v, const char*) { ReadScalar(v); }
void FILEReader::Visit(bool* v, const char*) {
  unsigned char byte = 0;
  ReadBytes(&byte, 1, 1, typeid(bool).name());
  *v = byte != 0;
}
void FILEReader::Visit(char* v, const char*) { ReadScalar(v); }

void FILEReader::Visit(std::string* v, const char*) {
  const char* type_name = typeid(std::string).name();
  const std::uint64_t count = ReadCount(1, type_name);
  if (end_offset_ >= 0 || count <= kUnknownSizeChunkBytes) {
    v->resize(count);
    ReadBytes(&(*v)[0], 1, count, type_name);
    return;
  }
  v->clear();
  std::uint64_t done = 0;
  while (done < count) {
    const size_t n = static_cast<size_t>(std::min<std::uint64_t>(kUnknownSizeChunkBytes, count - done));
    v->resize(done + n);
    ReadBytes(&(*v)[done], 1, n, type_name);
    done += n;
  }
}

void FILEReader::Visit(std::vector<float>* v, const char*) { ReadArray(v); }
void FILEReader::Visit(std::vector<half_float::half>* v, const char*) { ReadArray(v); }
void FILEReader::Visit(std::vector<unsigned short>* v, const char*) { ReadArray(v); }
void FILEReader::Visit(std::vector<short>* v, const char*) { ReadArray(v); }

void FILEReader::Visit(std::vector<std::string>* v, const char* key) {
  // Every string needs at least its 8-byte length.
  const std::uint64_t count = ReadCount(sizeof(std::uint64_t), typeid(std::vector<std::string>).name());
  v->clear();
  if (end_offset_ >= 0) v->reserve(count);
  for (std::uint64_t i = 0; i < count; ++i) {
    v->emplace_back();
    Visit(&v->back(), key);
  }
}

void FILEReader::Visit(Serializable* v, const char*) {
  std::shared_ptr<FILEReader> nested(new FILEReader(stream_, protocol_version_, end_offset_));
  v->VisitAttr(nested);
}

void FILEReader::Visit(std::vector<int>* v, const char*) { ReadArray(v); }
void FILEReader::Visit(std::vector<long>* v, const char*) { ReadArray(v); }
void FILEReader::Visit(std::vector<unsigned int>* v, const char*) { ReadArray(v); }
void FILEReader::Visit(std::vector<unsigned long>* v, const char*) { ReadArray(v); }

void FILEReader::Visit(std::vector<std::vector<unsigned short>>* v, const char*) {
  // The outer vector is resized first and non-empty inner arrays are appended
  // after it, so N stored arrays read into an empty vector give N empty arrays
  // followed by the non-empty ones. Writers of such attributes account for it.
  const std::uint64_t count =
      ReadCount(sizeof(std::uint64_t), typeid(std::vector<std::vector<unsigned short>>).name());
  v->resize(count);
  for (std::uint64_t i = 0; i < count; ++i) {
    std::vector<unsigned short> inner;
    ReadArray(&inner);
    if (!inner.empty()) v->push_back(std::move(inner));
  }
}

// ---------------------------------------------------------------- weight blobs

void FileWriter_Visit_B64Encoded_F16_Data(const std::shared_ptr<FILEWriter>& writer, const std::string& b64) {
  const std::vector<float> floats = DecodeWeights(b64);  // trailing 1-3 bytes are dropped
  unsigned long count = floats.size();
  writer->Visit(&count, "");
  if (count == 0) return;
  std::vector<half_float::half> halves(count);
  for (unsigned long i = 0; i < count; ++i) halves[i] = half_float::half(floats[i]);
  FILE* stream = writer->stream();
  const size_t written = stream ? std::fwrite(halves.data(), sizeof(half_float::half), count, stream) : 0;
  utility::Assert(written == count, kWriteValueMessage, typeid(half_float::half).name(), StreamError(stream));
}

void FileReader_Visit_B64Encoded_F16_Data(const std::shared_ptr<FILEReader>& reader, std::string& b64) {
  const std::uint64_t count = reader->ReadCount(sizeof(half_float::half), typeid(unsigned long).name());
  // Read, widened and encoded a block at a time straight into the text: no
  // array of all the halves or floats in between (on a large model, every
  // fresh page costs a page fault). A block of 3072 floats is a whole number
  // of three-byte groups, so only the last block can end in padding.
  // ReadCount has checked the count against the bytes left in a file; a
  // stream of unknown size grows the text block by block instead, so that a
  // hostile count cannot allocate more than the data present.
  const bool checked = reader->SizeKnown();
  b64.assign(checked ? Base64EncodedSize(count * sizeof(float)) : 0, '\0');
  constexpr std::size_t kBlock = 3072;
  std::vector<half_float::half> halves;
  halves.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(kBlock, count)));
  float block[kBlock];
  const float* widen = HalfToFloat();
  for (std::uint64_t done = 0; done < count; done += kBlock) {
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(kBlock, count - done));
    reader->ReadHalves(&halves, n);
    if (!checked) b64.resize(Base64EncodedSize((done + n) * sizeof(float)));
    for (std::size_t i = 0; i < n; ++i) block[i] = widen[halves[i].bits()];
    Base64EncodeInto(reinterpret_cast<const unsigned char*>(block), n * sizeof(float),
                     &b64[static_cast<std::size_t>(done / 3 * 16)]);
  }
}

void FileWriter_Visit_Vec_B64Encoded_F16_Data(const std::shared_ptr<FILEWriter>& writer,
                                              const std::vector<std::string>& blobs) {
  unsigned long count = blobs.size();
  writer->Visit(&count, "");
  for (const std::string& blob : blobs) FileWriter_Visit_B64Encoded_F16_Data(writer, blob);
}

void FileReader_Visit_Vec_B64Encoded_F16_Data(const std::shared_ptr<FILEReader>& reader,
                                              std::vector<std::string>& blobs) {
  blobs.clear();
  const std::uint64_t count = reader->ReadCount(sizeof(std::uint64_t), typeid(unsigned long).name());
  for (std::uint64_t i = 0; i < count; ++i) {
    blobs.emplace_back();
    FileReader_Visit_B64Encoded_F16_Data(reader, blobs.back());
  }
}

}  // namespace runtime
}  // namespace tarn
