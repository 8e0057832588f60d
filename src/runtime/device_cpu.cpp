#include "tarn/runtime/device_cpu.h"

#include <cpuid.h>

#include <cstring>
#include <sstream>
#include <thread>

#include "tarn/utility/log.h"

namespace tarn {
namespace runtime {
namespace {

std::uint64_t ReadXCR0() {
  std::uint32_t eax = 0, edx = 0;
  // xgetbv with ecx = 0; the instruction is emitted directly so the file needs no -mxsave.
  __asm__ volatile(".byte 0x0f, 0x01, 0xd0" : "=a"(eax), "=d"(edx) : "c"(0));
  return (std::uint64_t(edx) << 32) | eax;
}

TensorShape PixelShape(unsigned height, unsigned width, unsigned channels) {
  return TensorShape({height, width, channels}, TensorShape::UINT8, TensorShape::HWC, TensorShape::MainMemory);
}

TensorShape PlanarPixelShape(unsigned height, unsigned width) {
  return TensorShape({3, height, width}, TensorShape::UINT8, TensorShape::CHW, TensorShape::MainMemory);
}

}  // namespace

std::string CPUDeviceInfo::ToString() const {
  std::ostringstream os;
  os << (brand.empty() ? vendor : brand) << " [" << logical_cores << " logical cores;"
     << (sse41 ? " sse4.1" : "") << (fma ? " fma" : "") << (avx ? " avx" : "") << (avx2 ? " avx2" : "")
     << (avx512f ? " avx512f" : "") << (os_avx ? "; OS saves YMM" : "; OS does not save YMM")
     << (os_avx512 ? ", ZMM" : "") << "]";
  return os.str();
}

CPUDeviceInfo DetectCPUDevice() {
  CPUDeviceInfo info;
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (!__get_cpuid(0, &eax, &ebx, &ecx, &edx)) return info;
  const unsigned max_leaf = eax;
  char vendor[13] = {};
  std::memcpy(vendor, &ebx, 4);
  std::memcpy(vendor + 4, &edx, 4);
  std::memcpy(vendor + 8, &ecx, 4);
  info.vendor = vendor;

  __get_cpuid(1, &eax, &ebx, &ecx, &edx);
  info.sse41 = (ecx >> 19) & 1;
  info.fma = (ecx >> 12) & 1;
  info.avx = (ecx >> 28) & 1;
  const bool osxsave = (ecx >> 27) & 1;
  if (osxsave) {
    const std::uint64_t xcr0 = ReadXCR0();
    info.os_avx = (xcr0 & 0x6) == 0x6;            // XMM and YMM state
    info.os_avx512 = (xcr0 & 0xE6) == 0xE6;       // plus opmask and ZMM state
  }
  if (max_leaf >= 7) {
    __cpuid_count(7, 0, eax, ebx, ecx, edx);
    info.avx2 = (ebx >> 5) & 1;
    info.avx512f = (ebx >> 16) & 1;
  }
  // Features the OS does not enable are reported as absent.
  if (!info.os_avx) info.avx = info.avx2 = info.fma = false;
  if (!info.os_avx512) info.avx512f = false;

  unsigned max_ext = __get_cpuid_max(0x80000000, nullptr);
  if (max_ext >= 0x80000004) {
    char brand[49] = {};
    for (unsigned leaf = 0; leaf < 3; ++leaf) {
      __get_cpuid(0x80000002 + leaf, &eax, &ebx, &ecx, &edx);
      std::memcpy(brand + leaf * 16, &eax, 4);
      std::memcpy(brand + leaf * 16 + 4, &ebx, 4);
      std::memcpy(brand + leaf * 16 + 8, &ecx, 4);
      std::memcpy(brand + leaf * 16 + 12, &edx, 4);
    }
    std::string b(brand);
    const size_t first = b.find_first_not_of(' ');
    info.brand = first == std::string::npos ? std::string() : b.substr(first);
  }
  const unsigned cores = std::thread::hardware_concurrency();
  info.logical_cores = cores ? cores : 1;
  return info;
}

Device::~Device() = default;

DeviceCPU::DeviceCPU(const CPUDeviceInfo& info, std::shared_ptr<MemoryPool> pool, std::shared_ptr<ThreadPool> threads,
                     std::shared_ptr<MemoryPool> dynamic_pool)
    : info_(info), pool_(std::move(pool)), threads_(std::move(threads)), dynamic_pool_(std::move(dynamic_pool)) {
  if (!pool_) pool_ = std::make_shared<AlignUpPool>(64);
  if (!dynamic_pool_) dynamic_pool_ = pool_;
}

std::shared_ptr<DeviceCPU> CreateDeviceCPU(const CPUDeviceInfo& info, std::shared_ptr<MemoryPool> pool,
                                           std::shared_ptr<ThreadPool> threads,
                                           std::shared_ptr<MemoryPool> dynamic_pool) {
  return std::make_shared<DeviceCPU>(info, std::move(pool), std::move(threads), std::move(dynamic_pool));
}

TensorShape MakeShape(std::vector<unsigned int> dims, TensorShape::DataType type, TensorShape::Layout layout) {
  return TensorShape(std::move(dims), type, layout, TensorShape::MainMemory);
}

std::shared_ptr<TensorCPU> DeviceCPU::Allocate(const TensorShape& shape, const std::shared_ptr<MemoryPool>& pool,
                                               const void* data, bool zero) {
  const std::size_t bytes = shape.Bytes();
  void* block = pool->Malloc(bytes);
  std::shared_ptr<MemoryPool> owner = pool;
  std::shared_ptr<void> storage(block, [owner](void* p) { owner->Free(p); });
  if (data != nullptr) {
    std::memcpy(block, data, bytes);
  } else if (zero) {
    std::memset(block, 0, bytes);
  }
  return std::make_shared<TensorCPU>(shape, std::move(storage), shared_from_this());
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateTensor(const TensorShape& shape, const void* data) {
  return Allocate(shape, pool_, data, false);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateDynamicTensor(const TensorShape& shape, const void* data) {
  return Allocate(shape, dynamic_pool_, data, false);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateExternalTensor(const TensorShape& shape, void* data) {
  std::shared_ptr<void> storage(data, [](void*) {});
  return std::make_shared<TensorCPU>(shape, std::move(storage), shared_from_this());
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF32CMainMemory(unsigned n) { return CreateTensor(MakeShape({n})); }

std::shared_ptr<TensorCPU> DeviceCPU::CreateF32CHWMainMemory(unsigned c, unsigned h, unsigned w) {
  return CreateTensor(MakeShape({c, h, w}));
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF32FlexiableMainMemory(const std::vector<unsigned>& dims) {
  return Allocate(MakeShape(dims, TensorShape::FLOAT32, TensorShape::FLEXIABLE), dynamic_pool_, nullptr, false);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateZeroF32CMainMem(unsigned n) {
  return Allocate(MakeShape({n}), pool_, nullptr, true);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateZeroF32CHWMainMem(unsigned c, unsigned h, unsigned w) {
  return Allocate(MakeShape({c, h, w}), pool_, nullptr, true);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateZeroF32FlexiableMainMem(const std::vector<unsigned>& dims) {
  return Allocate(MakeShape(dims, TensorShape::FLOAT32, TensorShape::FLEXIABLE), dynamic_pool_, nullptr, true);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateZeroF16CMainMem(unsigned n) {
  return Allocate(MakeShape({n}, TensorShape::FLOAT16), pool_, nullptr, true);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateZeroF16CHWMainMem(unsigned c, unsigned h, unsigned w) {
  return Allocate(MakeShape({c, h, w}, TensorShape::FLOAT16), pool_, nullptr, true);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateZeroF16FlexiableMainMem(const std::vector<unsigned>& dims) {
  return Allocate(MakeShape(dims, TensorShape::FLOAT16, TensorShape::FLEXIABLE), dynamic_pool_, nullptr, true);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF32CMainMemoryExternal(float* data, unsigned n) {
  return CreateExternalTensor(MakeShape({n}), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF32CHWMainMemoryExternal(float* data, unsigned c, unsigned h, unsigned w) {
  return CreateExternalTensor(MakeShape({c, h, w}), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF32FlexiableMainMemoryExternal(float* data,
                                                                          const std::vector<unsigned>& dims) {
  return CreateExternalTensor(MakeShape(dims, TensorShape::FLOAT32, TensorShape::FLEXIABLE), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateF16CHWMainMemoryExternal(half_float::half* data, unsigned c, unsigned h,
                                                                    unsigned w) {
  return CreateExternalTensor(MakeShape({c, h, w}, TensorShape::FLOAT16), data);
}

std::shared_ptr<TensorCPU> DeviceCPU::PixelTensor(const TensorShape& shape, void* data, bool external) {
  if (data != nullptr && external) return CreateExternalTensor(shape, data);
  return CreateTensor(shape, data);
}

std::shared_ptr<TensorCPU> DeviceCPU::CreateRGB888Tensor(unsigned h, unsigned w, void* data, bool external) {
  return PixelTensor(PixelShape(h, w, 3), data, external);
}
std::shared_ptr<TensorCPU> DeviceCPU::CreateBGR888Tensor(unsigned h, unsigned w, void* data, bool external) {
  return PixelTensor(PixelShape(h, w, 3), data, external);
}
std::shared_ptr<TensorCPU> DeviceCPU::CreateRGBA8888Tensor(unsigned h, unsigned w, void* data, bool external) {
  return PixelTensor(PixelShape(h, w, 4), data, external);
}
std::shared_ptr<TensorCPU> DeviceCPU::CreateBGRA8888Tensor(unsigned h, unsigned w, void* data, bool external) {
  return PixelTensor(PixelShape(h, w, 4), data, external);
}
std::shared_ptr<TensorCPU> DeviceCPU::CreateGray8Tensor(unsigned h, unsigned w, void* data, bool external) {
  return PixelTensor(PixelShape(h, w, 1), data, external);
}
std::shared_ptr<TensorCPU> DeviceCPU::CreateYPlane8BitTensor(unsigned h, unsigned w, void* data, bool external) {
  return PixelTensor(PixelShape(h, w, 1), data, external);
}
std::shared_ptr<TensorCPU> DeviceCPU::CreateUVPlane8BitTensor(unsigned h, unsigned w, void* data, bool external) {
  return PixelTensor(PixelShape(h, w, 2), data, external);
}
std::shared_ptr<TensorCPU> DeviceCPU::CreateYUV420Tensor(unsigned h, unsigned w, void* data, bool external) {
  return PixelTensor(PixelShape(h + h / 2, w, 1), data, external);
}
std::shared_ptr<TensorCPU> DeviceCPU::CreateRGBUInt8CHWTensor(unsigned h, unsigned w, void* data, bool external) {
  return PixelTensor(PlanarPixelShape(h, w), data, external);
}
std::shared_ptr<TensorCPU> DeviceCPU::CreateBGRUInt8CHWTensor(unsigned h, unsigned w, void* data, bool external) {
  return PixelTensor(PlanarPixelShape(h, w), data, external);
}
std::shared_ptr<TensorCPU> DeviceCPU::CreateUInt8HWCTensor(unsigned h, unsigned w, unsigned c, void* data,
                                                          bool external) {
  return PixelTensor(PixelShape(h, w, c), data, external);
}

}  // namespace runtime
}  // namespace tarn
