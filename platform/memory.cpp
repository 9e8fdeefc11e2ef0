// memory.cpp - see memory.h: the allocator's imports over the ledger.
// In:  requests with tag and line. Out: blocks filled with a pattern, so that a missing clear shows.
#include "platform/memory.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "dhcp_vex_platform.h"
#include "platform/faults.h"
#include "platform/findings.h"

namespace vex::platform {

MemoryLedger& Memory() {
  static MemoryLedger* const ledger = new MemoryLedger;
  return *ledger;
}

void* MemoryLedger::Alloc(uint32_t allocator, uint32_t size, const char* tag, uint32_t line) {
  constexpr int kPattern = 0xA5;
  const std::lock_guard lock(mutex_);
  if (size == 0 || size > limit_ || liveBytes_ > limit_ - size) return nullptr;
  void* const mem = std::malloc(size);
  if (mem == nullptr) return nullptr;
  std::memset(mem, kPattern, size);
  live_[mem] = {tag != nullptr ? tag : "(no tag)", line, size, allocator};
  liveBytes_ += size;
  return mem;
}

bool MemoryLedger::Free(void* mem) {
  if (mem == nullptr) return true;
  {
    const std::lock_guard lock(mutex_);
    const auto block = live_.find(mem);
    if (block != live_.end()) {
      liveBytes_ -= block->second.size;
      live_.erase(block);
      std::free(mem);
      return true;
    }
  }
  ReportFinding("free of a memory block that is not allocated (freed twice, or never allocated)");
  return false;
}

void MemoryLedger::SetLimit(size_t bytes) {
  const std::lock_guard lock(mutex_);
  limit_ = bytes;
}

size_t MemoryLedger::LiveBlocks() const {
  const std::lock_guard lock(mutex_);
  return live_.size();
}

size_t MemoryLedger::LiveBytes() const {
  const std::lock_guard lock(mutex_);
  return liveBytes_;
}

std::vector<BlockInfo> MemoryLedger::Live() const {
  const std::lock_guard lock(mutex_);
  std::vector<BlockInfo> blocks;
  blocks.reserve(live_.size());
  for (const auto& [mem, info] : live_) blocks.push_back(info);
  return blocks;
}

std::vector<std::string> MemoryLedger::Leaks() const {
  std::map<std::pair<std::string, uint32_t>, std::pair<size_t, size_t>> sites;  // blocks, bytes
  for (const BlockInfo& block : Live()) {
    auto& [blocks, bytes] = sites[{block.tag, block.line}];
    ++blocks;
    bytes += block.size;
  }
  std::vector<std::string> lines;
  lines.reserve(sites.size());
  for (const auto& [site, sum] : sites) {
    lines.push_back(std::to_string(sum.first) + " memory block(s), " + std::to_string(sum.second) +
                    " bytes, allocated by " + site.first + " (line " + std::to_string(site.second) +
                    ") were never freed");
  }
  return lines;
}

void MemoryLedger::Reset() {
  const std::lock_guard lock(mutex_);
  for (const auto& [mem, info] : live_) std::free(mem);
  live_.clear();
  liveBytes_ = 0;
  limit_ = SIZE_MAX;
}

}  // namespace vex::platform

using namespace vex::platform;  // NOLINT: what follows is nothing but the C surface over that namespace

extern "C" {

void* OrbMemAllocInner(uint32_t allocatorId, uint32_t zero1, uint32_t size, uint32_t zero2, const char* tag,
                       uint32_t line) {
  if (zero1 != 0 || zero2 != 0) {
    ReportFinding(std::string(tag != nullptr ? tag : "(no tag)") + " line " + std::to_string(line) +
                  ": OrbMemAllocInner takes 0 for its second and fourth argument");
  }
  if (Watch(Import::OrbMemAllocInner, allocatorId, size, tag, line)) return nullptr;
  return Memory().Alloc(allocatorId, size, tag, line);
}

void OrbMemFreeInner(void* mem) {
  Watch(Import::OrbMemFreeInner, mem);
  Memory().Free(mem);
}

}  // extern "C"
