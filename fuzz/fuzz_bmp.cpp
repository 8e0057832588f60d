// Reads a BMP from hostile bytes. Any refusal is fine; a crash, a hang, a
// leak or an exception is not. An image that is read must survive writing
// and reading back unchanged.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "tarn/runtime/device_cpu.h"
#include "tarn/utility/bmp.h"
#include "tarn/utility/log.h"

namespace {

std::shared_ptr<tarn::runtime::DeviceCPU> Device() {
  static auto device = [] {
    auto pool = std::make_shared<tarn::runtime::AlignedPool>(64);
    return tarn::runtime::CreateDeviceCPU(tarn::runtime::DetectCPUDevice(), pool, nullptr, pool);
  }();
  return device;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  tarn::utility::SetLogLevel(1000);  // keep the fuzzer's output readable
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto order = (size > 0 && (data[size - 1] & 1)) ? tarn::utility::BMPChannelOrder::BGR
                                                        : tarn::utility::BMPChannelOrder::RGB;
  auto image = tarn::utility::DecodeBMP(data, size, Device(), order);
  if (image == nullptr) return 0;
  std::vector<std::uint8_t> file;
  if (!tarn::utility::EncodeBMP(image, &file, order)) std::abort();
  auto back = tarn::utility::DecodeBMP(file.data(), file.size(), Device(), order);
  if (back == nullptr || back->shape.dims != image->shape.dims ||
      std::memcmp(back->Data(), image->Data(), image->shape.Bytes()) != 0) {
    std::abort();
  }
  return 0;
}
