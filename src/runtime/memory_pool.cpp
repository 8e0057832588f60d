#include "tarn/runtime/memory_pool.h"

#include <cstdint>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>

#include "tarn/utility/log.h"

namespace tarn {
namespace runtime {

MemoryPool::~MemoryPool() = default;

std::size_t AlignedPool::NormaliseAlignment(std::size_t alignment) {
  std::size_t a = 16;
  while (a < alignment && a < (std::size_t(1) << 20)) a <<= 1;
  return a;
}

AlignedPool::AlignedPool(std::size_t alignment) : alignment_(NormaliseAlignment(alignment)) {}

AlignedPool::~AlignedPool() {
  if (!blocks_.empty()) {
    utility::Log(utility::kLogError, "Destory this pool too early!!");
    // The blocks are left alone: whoever still holds them may use them.
  }
}

void* AlignedPool::AllocateBlock(std::size_t size) {
  void* p = nullptr;
  // A zero-byte request still yields a distinct block.
  if (posix_memalign(&p, alignment_, size == 0 ? alignment_ : size) != 0 || p == nullptr) throw std::bad_alloc();
  return p;
}

void AlignedPool::SetByteLimit(std::size_t bytes) {
  std::lock_guard<std::mutex> lock(mutex_);
  byte_limit_ = bytes;
}

std::size_t AlignedPool::byte_limit() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return byte_limit_;
}

void AlignedPool::CheckLimit(std::size_t size) const {
  if (size <= byte_limit_ && in_use_ <= byte_limit_ - size) return;
  throw std::runtime_error("memory pool limit of " + std::to_string(byte_limit_) + " bytes reached: " +
                           std::to_string(in_use_) + " in use, " + std::to_string(size) + " requested");
}

void* AlignedPool::Malloc(std::size_t size) {
  {
    // The bytes are reserved before allocating so that concurrent requests
    // cannot pass the limit together.
    std::lock_guard<std::mutex> lock(mutex_);
    CheckLimit(size);
    in_use_ += size;
    if (in_use_ > peak_) peak_ = in_use_;
  }
  void* p = nullptr;
  try {
    p = AllocateBlock(size);
  } catch (...) {
    std::lock_guard<std::mutex> lock(mutex_);
    in_use_ -= size;
    throw;
  }
  std::lock_guard<std::mutex> lock(mutex_);
  blocks_.emplace(p, size);
  return p;
}

void AlignedPool::Free(void* pointer) {
  if (pointer == nullptr) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = blocks_.find(pointer);
    if (it == blocks_.end()) {
      utility::Log(utility::kLogError, "pointer(0x%ld) not in alignment memory pool !",
                   static_cast<long>(reinterpret_cast<std::uintptr_t>(pointer)));
      return;
    }
    in_use_ -= it->second;
    blocks_.erase(it);
  }
  std::free(pointer);
}

std::size_t AlignedPool::BytesInUse() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return in_use_;
}

std::size_t AlignedPool::PeakBytesInUse() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return peak_;
}

void AlignedPool::ResetPeak() {
  std::lock_guard<std::mutex> lock(mutex_);
  peak_ = in_use_;
}

AlignUpPool::AlignUpPool(std::size_t alignment, std::size_t max_cached_bytes)
    : AlignedPool(alignment), max_cached_bytes_(max_cached_bytes) {}

AlignUpPool::~AlignUpPool() { Trim(); }

void* AlignUpPool::Malloc(std::size_t size) {
  if (size > SIZE_MAX - alignment_) throw std::bad_alloc();
  const std::size_t rounded = ((size + alignment_ - 1) / alignment_) * alignment_;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    CheckLimit(rounded);
    auto it = cache_.find(rounded);
    if (it != cache_.end()) {
      void* p = it->second;
      cache_.erase(it);
      cached_bytes_ -= rounded;
      blocks_.emplace(p, rounded);
      in_use_ += rounded;
      if (in_use_ > peak_) peak_ = in_use_;
      return p;
    }
  }
  return AlignedPool::Malloc(rounded);
}

void AlignUpPool::Free(void* pointer) {
  if (pointer == nullptr) return;
  std::unique_lock<std::mutex> lock(mutex_);
  auto it = blocks_.find(pointer);
  if (it == blocks_.end()) {
    lock.unlock();
    utility::Log(utility::kLogError, "pointer(0x%ld) not in alignment memory pool !",
                 static_cast<long>(reinterpret_cast<std::uintptr_t>(pointer)));
    return;
  }
  const std::size_t size = it->second;
  blocks_.erase(it);
  in_use_ -= size;
  if (cached_bytes_ + size <= max_cached_bytes_) {
    cache_.emplace(size, pointer);
    cached_bytes_ += size;
    return;
  }
  lock.unlock();
  std::free(pointer);
}

void AlignUpPool::Trim() {
  std::multimap<std::size_t, void*> cache;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    cache.swap(cache_);
    cached_bytes_ = 0;
  }
  for (auto& entry : cache) std::free(entry.second);
}

std::size_t AlignUpPool::CachedBytes() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return cached_bytes_;
}

}  // namespace runtime
}  // namespace tarn
