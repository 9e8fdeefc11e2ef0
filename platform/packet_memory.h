// packet_memory.h - what the pool is made of: the stack of free descriptors and the mapping of the buffers.
// In:  indexes given back, a size. Out: indexes, memory. Both are the pool's own; nothing here knows packets.
// Free memory is poisoned, so that the address sanitizer stops whoever still looks at it.
#pragma once

#include <sys/mman.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define VEX_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VEX_ADDRESS_SANITIZER 1
#endif
#endif
#ifdef VEX_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#endif

namespace vex::platform {

inline constexpr uint32_t kNoIndex = UINT32_MAX;
// Bytes between two buffers, never handed out: an address there belongs to the buffer in front of it.
inline constexpr size_t kGuard = 64;

// The free descriptors as a linked stack of indexes. The upper half of the head counts changes, so a
// compare-exchange that slept through a pop and a push of the same index fails.
class IndexStack {
 public:
  explicit IndexStack(uint32_t count) : next_(new std::atomic<uint32_t>[count]) {
    for (uint32_t i = 0; i < count; ++i)
      next_[i].store(i + 1 < count ? i + 1 : kNoIndex, std::memory_order_relaxed);
    head_.store(count > 0 ? 0 : kNoIndex, std::memory_order_relaxed);
  }
  uint32_t Pop() {
    uint64_t head =
        head_.load(std::memory_order_acquire);  // pairs with Push(): the packet's fields are visible
    while (static_cast<uint32_t>(head) != kNoIndex) {
      const uint32_t index = static_cast<uint32_t>(head);
      const uint64_t rest = Successor(head, next_[index].load(std::memory_order_relaxed));
      if (head_.compare_exchange_weak(head, rest, std::memory_order_acquire, std::memory_order_acquire))
        return index;
    }
    return kNoIndex;
  }
  void Push(uint32_t index) {
    uint64_t head = head_.load(std::memory_order_relaxed);
    do {
      next_[index].store(static_cast<uint32_t>(head), std::memory_order_relaxed);
    } while (!head_.compare_exchange_weak(head, Successor(head, index), std::memory_order_release,
                                          std::memory_order_relaxed));
  }

 private:
  static uint64_t Successor(uint64_t head, uint32_t index) { return ((head >> 32) + 1) << 32 | index; }
  std::unique_ptr<std::atomic<uint32_t>[]> next_;
  std::atomic<uint64_t> head_{kNoIndex};
};

// One mapping for all buffers. Pages are backed on first touch.
class BufferMemory {
 public:
  BufferMemory(size_t count, size_t stride) : size_(count * stride) {
    void* const mem =
        mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mem == MAP_FAILED) throw std::bad_alloc();
    base_ = static_cast<uint8_t*>(mem);
    ASAN_POISON_MEMORY_REGION(base_, size_);
  }
  ~BufferMemory() {
    ASAN_UNPOISON_MEMORY_REGION(base_, size_);
    munmap(base_, size_);
  }
  BufferMemory(const BufferMemory&) = delete;
  BufferMemory& operator=(const BufferMemory&) = delete;
  uint8_t* Base() const { return base_; }
  bool Contains(const uint8_t* address) const { return address >= base_ && address < base_ + size_; }

 private:
  uint8_t* base_ = nullptr;
  size_t size_;
};

}  // namespace vex::platform
