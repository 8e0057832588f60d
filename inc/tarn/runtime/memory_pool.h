// Memory pools behind every tensor the library allocates.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <unordered_map>

namespace tarn {
namespace runtime {

class MemoryPool {
 public:
  virtual ~MemoryPool();
  // Never returns null: an allocation failure throws std::bad_alloc.
  virtual void* Malloc(std::size_t size) = 0;
  virtual void Free(void* pointer) = 0;
  // Bytes of the blocks handed out and not yet freed.
  virtual std::size_t BytesInUse() const = 0;
  // Largest BytesInUse seen since construction or the last ResetPeak.
  virtual std::size_t PeakBytesInUse() const = 0;
  virtual void ResetPeak() = 0;
};

// Aligned allocations that are tracked: freeing a foreign pointer and
// destroying the pool with blocks still out are reported.
class AlignedPool : public MemoryPool {
 public:
  explicit AlignedPool(std::size_t alignment);
  ~AlignedPool() override;

  void* Malloc(std::size_t size) override;
  void Free(void* pointer) override;
  std::size_t BytesInUse() const override;
  std::size_t PeakBytesInUse() const override;
  void ResetPeak() override;
  std::size_t alignment() const { return alignment_; }

  // A ceiling on the bytes in use at once (unlimited by default). A request
  // that would pass it throws std::runtime_error instead of allocating, so a
  // hostile model that asks for gigabytes fails its forward pass cleanly.
  void SetByteLimit(std::size_t bytes);
  std::size_t byte_limit() const;

 protected:
  void* AllocateBlock(std::size_t size);
  // Called with mutex_ held; throws when `size` more bytes would pass the limit.
  void CheckLimit(std::size_t size) const;
  // Alignment actually used: a power of two, at least 16.
  static std::size_t NormaliseAlignment(std::size_t alignment);

  std::size_t alignment_;
  mutable std::mutex mutex_;
  std::unordered_map<void*, std::size_t> blocks_;
  std::size_t in_use_ = 0;
  std::size_t peak_ = 0;
  std::size_t byte_limit_ = SIZE_MAX;
};

// Rounds every request up to a multiple of the alignment and keeps freed
// blocks for reuse by later requests of the same rounded size, so repeated
// forward passes stop calling the system allocator after the first.
class AlignUpPool : public AlignedPool {
 public:
  explicit AlignUpPool(std::size_t alignment, std::size_t max_cached_bytes = std::size_t(256) << 20);
  ~AlignUpPool() override;

  void* Malloc(std::size_t size) override;
  void Free(void* pointer) override;
  // Returns every cached block to the system.
  void Trim();
  std::size_t CachedBytes() const;

 private:
  std::size_t max_cached_bytes_;
  std::size_t cached_bytes_ = 0;
  std::multimap<std::size_t, void*> cache_;
};

}  // namespace runtime
}  // namespace tarn
