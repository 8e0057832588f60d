// The CPU device: processor description and the factories of every tensor
// the library allocates.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarn/runtime/memory_pool.h"
#include "tarn/runtime/tensor.h"

namespace tarn {
namespace runtime {

// What the processor offers and the operating system enables.
struct CPUDeviceInfo {
  std::string vendor;
  std::string brand;
  bool sse41 = false;
  bool fma = false;
  bool avx = false;
  bool avx2 = false;
  bool avx512f = false;
  // Whether the OS saves the AVX (YMM) and AVX-512 (ZMM, opmask) state.
  bool os_avx = false;
  bool os_avx512 = false;
  unsigned logical_cores = 1;

  // The SSE kernels need SSE4.1 and FMA; the AVX kernels AVX2 and FMA.
  bool CanRunSSEKernels() const { return sse41 && fma && os_avx; }
  bool CanRunAVXKernels() const { return avx2 && fma && os_avx; }
  std::string ToString() const;
};

// cpuid plus xgetbv.
CPUDeviceInfo DetectCPUDevice();

class Device : public std::enable_shared_from_this<Device> {
 public:
  virtual ~Device();
};

class ThreadPool;  // no thread pool exists in this library; the slot stays null

class DeviceCPU : public Device {
 public:
  // `pool` backs fixed-size tensors, `dynamic_pool` flexible ones (the same
  // pool serves both when `dynamic_pool` is null).
  DeviceCPU(const CPUDeviceInfo& info, std::shared_ptr<MemoryPool> pool, std::shared_ptr<ThreadPool> threads,
            std::shared_ptr<MemoryPool> dynamic_pool);

  const CPUDeviceInfo& info() const { return info_; }
  const std::shared_ptr<MemoryPool>& pool() const { return pool_; }
  const std::shared_ptr<MemoryPool>& dynamic_pool() const { return dynamic_pool_; }

  // A tensor of `shape` in main memory. With `data` the elements are copied
  // from it; without, the storage is left uninitialised.
  std::shared_ptr<TensorCPU> CreateTensor(const TensorShape& shape, const void* data = nullptr);
  // The same from the dynamic pool.
  std::shared_ptr<TensorCPU> CreateDynamicTensor(const TensorShape& shape, const void* data = nullptr);
  // A tensor over caller memory, which must outlive it; nothing is copied.
  std::shared_ptr<TensorCPU> CreateExternalTensor(const TensorShape& shape, void* data);

  // Float tensors. "C" is a vector {n}, "CHW" {c, h, w}, "Flexiable" any dims.
  std::shared_ptr<TensorCPU> CreateF32CMainMemory(unsigned n);
  std::shared_ptr<TensorCPU> CreateF32CHWMainMemory(unsigned c, unsigned h, unsigned w);
  std::shared_ptr<TensorCPU> CreateF32FlexiableMainMemory(const std::vector<unsigned>& dims);
  std::shared_ptr<TensorCPU> CreateZeroF32CMainMem(unsigned n);
  std::shared_ptr<TensorCPU> CreateZeroF32CHWMainMem(unsigned c, unsigned h, unsigned w);
  std::shared_ptr<TensorCPU> CreateZeroF32FlexiableMainMem(const std::vector<unsigned>& dims);
  std::shared_ptr<TensorCPU> CreateZeroF16CMainMem(unsigned n);
  std::shared_ptr<TensorCPU> CreateZeroF16CHWMainMem(unsigned c, unsigned h, unsigned w);
  std::shared_ptr<TensorCPU> CreateZeroF16FlexiableMainMem(const std::vector<unsigned>& dims);
  std::shared_ptr<TensorCPU> CreateF32CMainMemoryExternal(float* data, unsigned n);
  std::shared_ptr<TensorCPU> CreateF32CHWMainMemoryExternal(float* data, unsigned c, unsigned h, unsigned w);
  std::shared_ptr<TensorCPU> CreateF32FlexiableMainMemoryExternal(float* data, const std::vector<unsigned>& dims);
  std::shared_ptr<TensorCPU> CreateF16CHWMainMemoryExternal(half_float::half* data, unsigned c, unsigned h,
                                                            unsigned w);

  // 8-bit pixel buffers, dims {height, width, channels}, layout HWC. `data`
  // null allocates; otherwise the pixels are copied, or wrapped without a copy
  // when `external` is true.
  std::shared_ptr<TensorCPU> CreateRGB888Tensor(unsigned height, unsigned width, void* data = nullptr,
                                                bool external = false);
  std::shared_ptr<TensorCPU> CreateBGR888Tensor(unsigned height, unsigned width, void* data = nullptr,
                                                bool external = false);
  std::shared_ptr<TensorCPU> CreateRGBA8888Tensor(unsigned height, unsigned width, void* data = nullptr,
                                                  bool external = false);
  std::shared_ptr<TensorCPU> CreateBGRA8888Tensor(unsigned height, unsigned width, void* data = nullptr,
                                                  bool external = false);
  std::shared_ptr<TensorCPU> CreateGray8Tensor(unsigned height, unsigned width, void* data = nullptr,
                                               bool external = false);
  // A luma plane {height, width, 1} and an interleaved chroma plane
  // {height, width, 2} (pass the chroma plane's own, halved, size).
  std::shared_ptr<TensorCPU> CreateYPlane8BitTensor(unsigned height, unsigned width, void* data = nullptr,
                                                    bool external = false);
  std::shared_ptr<TensorCPU> CreateUVPlane8BitTensor(unsigned height, unsigned width, void* data = nullptr,
                                                     bool external = false);
  // A whole YUV 4:2:0 frame (NV12, NV21 or IYUV): {height * 3 / 2, width, 1}.
  std::shared_ptr<TensorCPU> CreateYUV420Tensor(unsigned height, unsigned width, void* data = nullptr,
                                                bool external = false);
  // Planar 8-bit images, dims {3, height, width}, layout CHW.
  std::shared_ptr<TensorCPU> CreateRGBUInt8CHWTensor(unsigned height, unsigned width, void* data = nullptr,
                                                     bool external = false);
  std::shared_ptr<TensorCPU> CreateBGRUInt8CHWTensor(unsigned height, unsigned width, void* data = nullptr,
                                                     bool external = false);
  // Any interleaved 8-bit image {height, width, channels}.
  std::shared_ptr<TensorCPU> CreateUInt8HWCTensor(unsigned height, unsigned width, unsigned channels,
                                                  void* data = nullptr, bool external = false);

 private:
  std::shared_ptr<TensorCPU> Allocate(const TensorShape& shape, const std::shared_ptr<MemoryPool>& pool,
                                      const void* data, bool zero);
  std::shared_ptr<TensorCPU> PixelTensor(const TensorShape& shape, void* data, bool external);

  CPUDeviceInfo info_;
  std::shared_ptr<MemoryPool> pool_;
  std::shared_ptr<ThreadPool> threads_;
  std::shared_ptr<MemoryPool> dynamic_pool_;
};

using DeviceCPUPtr = std::shared_ptr<DeviceCPU>;

std::shared_ptr<DeviceCPU> CreateDeviceCPU(const CPUDeviceInfo& info, std::shared_ptr<MemoryPool> pool,
                                           std::shared_ptr<ThreadPool> threads,
                                           std::shared_ptr<MemoryPool> dynamic_pool);

// Shape helpers used by the factories and the kernels.
TensorShape MakeShape(std::vector<unsigned int> dims, TensorShape::DataType type = TensorShape::FLOAT32,
                      TensorShape::Layout layout = TensorShape::CHW);

}  // namespace runtime
}  // namespace tarn
