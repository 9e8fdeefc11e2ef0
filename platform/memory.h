// memory.h - the framework's allocator, as a ledger of live blocks.
// In:  OrbMemAllocInner, OrbMemFreeInner. Out: blocks of exactly the size asked for, so that the address
// sanitizer guards both ends; who allocated what is still live; a finding for a free of no live block.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace vex::platform {

struct BlockInfo {
  std::string tag;  // allocating function, as the module names it
  uint32_t line = 0;
  uint32_t size = 0;
  uint32_t allocator = 0;
};

class MemoryLedger {
 public:
  void* Alloc(uint32_t allocator, uint32_t size, const char* tag, uint32_t line);  // null: limit reached
  bool Free(void* mem);         // false, and a finding, when it is no live block; null is ignored
  void SetLimit(size_t bytes);  // live bytes at most; SIZE_MAX: no limit
  size_t LiveBlocks() const;
  size_t LiveBytes() const;
  std::vector<BlockInfo> Live() const;
  std::vector<std::string> Leaks() const;  // one line per tag and line
  void Reset();                            // frees what is live

 private:
  mutable std::mutex mutex_;
  std::unordered_map<void*, BlockInfo> live_;
  size_t liveBytes_ = 0;
  size_t limit_ = SIZE_MAX;
};
MemoryLedger& Memory();

// Failed OrbSpinlockTrylock calls since the start or the last reset, and waits of OrbSpinlockLock.
struct SpinlockStats {
  uint64_t busyTries = 0;
  uint64_t waits = 0;
};
SpinlockStats GetSpinlockStats();
void ResetSpinlockStats();

}  // namespace vex::platform
