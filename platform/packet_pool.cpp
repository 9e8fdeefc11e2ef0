// packet_pool.cpp - the bounded pool behind packet.h.
// In:  requests for packets, frees. Out: descriptors from a lock-free stack of indexes; findings for bad
// frees. A descriptor and its buffer belong together for good; the last one freed is the next one given, so a
// single-threaded replay stays in a few cache lines. Free buffers are poisoned under the address sanitizer.
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "platform/findings.h"
#include "platform/packet.h"
#include "platform/packet_memory.h"

namespace vex::platform {
namespace {

// The part of a free descriptor that nobody may look at: what the module sees, and the attributes. The
// allocation site and the state behind it stay readable for the report of a double free.
void PoisonDescriptor(Packet& packet) {
  ASAN_POISON_MEMORY_REGION(&packet, static_cast<size_t>(reinterpret_cast<uint8_t*>(&packet.allocPath) -
                                                         reinterpret_cast<uint8_t*>(&packet)));
}
void UnpoisonDescriptor(Packet& packet) { ASAN_UNPOISON_MEMORY_REGION(&packet, sizeof(Packet)); }

std::string SiteText(const char* path, uint32_t line) {
  return std::string(path != nullptr ? path : "(no path)") + ":" + std::to_string(line);
}

uint16_t L3FromBuffer(const PacketAttributes& attr, size_t dataOff) {
  if (attr.l3Offset == PacketAttributes::kNoL3) return Packet::kNoL3Offset;
  const size_t fromData =
      attr.l3Offset == PacketAttributes::kL3BehindL2 ? attr.l2Length : static_cast<size_t>(attr.l3Offset);
  return static_cast<uint16_t>(dataOff + fromData);
}

}  // namespace

struct PacketPool::Impl {
  explicit Impl(const PoolConfig& poolConfig) { Build(poolConfig); }

  void Build(const PoolConfig& poolConfig) {
    config = poolConfig;
    bufLen = static_cast<uint16_t>(config.headroom + config.dataRoom);
    stride = (bufLen + kGuard + 63) / 64 * 64;
    memory = std::make_unique<BufferMemory>(config.count, stride);
    packets = std::make_unique<Packet[]>(config.count);
    stack = std::make_unique<IndexStack>(config.count);
    for (uint32_t i = 0; i < config.count; ++i) {
      Packet& packet = packets[i];
      packet.index = i;
      packet.state.store(PacketState::kFree, std::memory_order_relaxed);
      PoisonDescriptor(packet);
    }
  }

  uint8_t* BufferOf(const Packet& packet) const { return memory->Base() + packet.index * stride; }

  bool InPool(const Packet* packet) const {
    const auto address = reinterpret_cast<uintptr_t>(packet),
               first = reinterpret_cast<uintptr_t>(packets.get());
    return address >= first && address < first + config.count * sizeof(Packet) &&
           (address - first) % sizeof(Packet) == 0;
  }

  PacketPtr FromPool(size_t length, const PacketAttributes& attr, Site site);
  PacketPtr FromHeap(size_t headroom, size_t length, bool withBuffer, const PacketAttributes& attr,
                     Site site);
  void GiveBack(Packet& packet);

  // The packets in use, pool and heap, for statistics and leak reports.
  template <class F>
  void ForEachInUse(F&& visit) const {
    for (uint32_t i = 0; i < config.count; ++i) {
      if (packets[i].state.load(std::memory_order_acquire) != PacketState::kFree) visit(packets[i]);
    }
    const std::lock_guard lock(heapMutex);
    for (Packet* packet : heapPackets) visit(*packet);
  }

  PoolConfig config;
  uint16_t bufLen = 0;
  size_t stride = 0;
  std::unique_ptr<BufferMemory> memory;
  std::unique_ptr<Packet[]> packets;
  std::unique_ptr<IndexStack> stack;
  std::atomic<uint64_t> exhausted{0};
  std::atomic<uint64_t> badFrees{0};

  mutable std::mutex heapMutex;   // guards the heap packets and the kept texts
  std::set<Packet*> heapPackets;  // in use
  std::atomic<size_t> heapCount{0};
  std::set<std::string> keptTexts;  // paths of libraries that were unloaded while a packet named them
};

PacketPool& Packets() {
  static PacketPool* const pool = new PacketPool;
  return *pool;
}

PacketPool::PacketPool() : impl_(*new Impl(PoolConfig{})) {}

const PoolConfig& PacketPool::Config() const { return impl_.config; }

bool PacketPool::Configure(const PoolConfig& config) {
  if (const uint32_t inUse = Stats().inUse; inUse > 0) {
    ReportFinding("packet pool: cannot be configured while " + std::to_string(inUse) + " packets are in use");
    return false;
  }
  if (config.headroom < 512 || config.headroom + config.dataRoom > UINT16_MAX) {
    ReportFinding("packet pool: headroom " + std::to_string(config.headroom) + " and data room " +
                  std::to_string(config.dataRoom) + " are out of range (headroom >= 512, sum <= 65535)");
    return false;
  }
  impl_.Build(config);
  return true;
}

bool PacketPool::Fits(size_t length) const { return length <= impl_.config.dataRoom; }

namespace {

void Initialise(Packet& packet, size_t dataOff, size_t length, const PacketAttributes& attr, Site site) {
  packet.dataOff = static_cast<uint16_t>(dataOff);
  packet.dataLen = static_cast<uint32_t>(length);
  packet.attr = attr;
  packet.allocPath = site.path;
  packet.allocLine = site.line;
  packet.l3FromBuffer = L3FromBuffer(attr, dataOff);
  packet.state.store(PacketState::kOwned, std::memory_order_relaxed);  // published by whatever hands it on
}

}  // namespace

PacketPtr PacketPool::Impl::FromPool(size_t length, const PacketAttributes& attr, Site site) {
  const uint32_t index = length <= config.dataRoom ? stack->Pop() : kNoIndex;
  if (index == kNoIndex) [[unlikely]] {
    exhausted.fetch_add(1, std::memory_order_relaxed);
    return nullptr;
  }
  Packet& packet = packets[index];
  UnpoisonDescriptor(packet);
  packet.bufAddr = BufferOf(packet);
  packet.bufLen = bufLen;
  ASAN_UNPOISON_MEMORY_REGION(packet.bufAddr, bufLen);
  Initialise(packet, config.headroom, length, attr, site);
  return PacketPtr(&packet);
}

PacketPtr PacketPool::Impl::FromHeap(size_t headroom, size_t length, bool withBuffer,
                                     const PacketAttributes& attr, Site site) {
  if (headroom + length > UINT16_MAX) return nullptr;
  auto packet = std::make_unique<Packet>();
  packet->index = Packet::kHeapPacket;
  packet->bufAddr = withBuffer ? new uint8_t[headroom + length] : nullptr;
  packet->bufLen = static_cast<uint16_t>(headroom + length);
  Initialise(*packet, headroom, length, attr, site);
  const std::lock_guard lock(heapMutex);
  heapPackets.insert(packet.get());
  heapCount.store(heapPackets.size(), std::memory_order_relaxed);
  return PacketPtr(packet.release());
}

void PacketPool::Impl::GiveBack(Packet& packet) {
  if (packet.index != Packet::kHeapPacket) {
    ASAN_POISON_MEMORY_REGION(BufferOf(packet), bufLen);
    PoisonDescriptor(packet);
    stack->Push(packet.index);
    return;
  }
  {
    const std::lock_guard lock(heapMutex);
    heapPackets.erase(&packet);
    heapCount.store(heapPackets.size(), std::memory_order_relaxed);
  }
  delete[] packet.bufAddr;
  delete &packet;
}

PacketPtr PacketPool::New(std::span<const uint8_t> bytes, const PacketAttributes& attr, Site site) {
  if (impl_.config.exactBlocks) return NewExact(bytes, attr, impl_.config.headroom, site);
  PacketPtr packet = impl_.FromPool(bytes.size(), attr, site);
  if (packet != nullptr && !bytes.empty()) std::memcpy(packet->Data(), bytes.data(), bytes.size());
  return packet;
}

PacketPtr PacketPool::NewExact(std::span<const uint8_t> bytes, const PacketAttributes& attr,
                               uint16_t headroom, Site site) {
  PacketPtr packet = impl_.FromHeap(headroom, bytes.size(), true, attr, site);
  if (packet != nullptr && !bytes.empty()) std::memcpy(packet->Data(), bytes.data(), bytes.size());
  return packet;
}

PacketPtr PacketPool::NewWithoutBuffer(const PacketAttributes& attr, Site site) {
  return impl_.FromHeap(0, 0, false, attr, site);
}

PacketPtr PacketPool::Copy(const Packet& packet, Site site) {
  PacketPtr copy = New(packet.Bytes(), packet.attr, site);
  if (copy == nullptr) return nullptr;
  if (packet.l3FromBuffer == Packet::kNoL3Offset) {
    copy->l3FromBuffer = Packet::kNoL3Offset;
  } else {  // the L3 header keeps its distance from the data; in front of the data it may have no place
    const int32_t offset = packet.l3FromBuffer - packet.dataOff + copy->dataOff;
    copy->l3FromBuffer = offset >= 0 ? static_cast<uint16_t>(offset) : Packet::kNoL3Offset;
  }
  return copy;
}

bool PacketPool::Free(OrbMbuf* mbuf, Site site) {
  auto* const packet = static_cast<Packet*>(mbuf);
  const auto refuse = [&](const std::string& what) {
    impl_.badFrees.fetch_add(1, std::memory_order_relaxed);
    ReportFinding(what + " at " + SiteText(site.path, site.line));
    return false;
  };
  if (packet == nullptr) return refuse("free of a null packet");
  if (!impl_.InPool(packet)) {
    const std::lock_guard lock(impl_.heapMutex);
    if (!impl_.heapPackets.contains(packet))
      return refuse("free of a packet that is not in use (or never was one)");
  }
  auto expected = PacketState::kOwned;
  if (!packet->state.compare_exchange_strong(expected, PacketState::kFree, std::memory_order_acq_rel)) {
    const std::string origin = ", allocated at " + SiteText(packet->allocPath, packet->allocLine) + ",";
    return refuse((expected == PacketState::kFree ? "double free of a packet"
                                                  : "free of a packet that a channel holds") +
                  origin);
  }
  impl_.GiveBack(*packet);
  return true;
}

size_t PacketPool::BytesBehind(const void* address) const {
  const auto* const byte = static_cast<const uint8_t*>(address);
  if (impl_.memory->Contains(byte)) {
    const size_t offset = static_cast<size_t>(byte - impl_.memory->Base()) % impl_.stride;
    return offset < impl_.bufLen ? impl_.bufLen - offset : 0;
  }
  if (impl_.heapCount.load(std::memory_order_relaxed) == 0) return SIZE_MAX;
  const std::lock_guard lock(impl_.heapMutex);
  for (const Packet* packet : impl_.heapPackets) {
    if (packet->bufAddr == nullptr || byte < packet->bufAddr || byte > packet->bufAddr + packet->bufLen)
      continue;
    return static_cast<size_t>(packet->bufAddr + packet->bufLen - byte);
  }
  return SIZE_MAX;
}

PoolStats PacketPool::Stats() const {
  PoolStats stats{.capacity = impl_.config.count,
                  .exhausted = impl_.exhausted.load(std::memory_order_relaxed),
                  .badFrees = impl_.badFrees.load(std::memory_order_relaxed)};
  impl_.ForEachInUse([&](const Packet& packet) {
    ++stats.inUse;
    if (packet.state.load(std::memory_order_relaxed) == PacketState::kInChannel) ++stats.inChannel;
  });
  return stats;
}

std::vector<std::string> PacketPool::Leaks() const {
  std::map<std::pair<std::string, bool>, size_t> sites;
  impl_.ForEachInUse([&](const Packet& packet) {
    const bool queued = packet.state.load(std::memory_order_relaxed) == PacketState::kInChannel;
    ++sites[{SiteText(packet.allocPath, packet.allocLine), queued}];
  });
  std::vector<std::string> lines;
  lines.reserve(sites.size());
  for (const auto& [site, count] : sites) {
    lines.push_back(std::to_string(count) + " packet(s) allocated at " + site.first +
                    (site.second ? " still wait in a channel" : " were never freed"));
  }
  return lines;
}

void PacketPool::Reset() {
  std::vector<Packet*> inUse;
  impl_.ForEachInUse([&](Packet& packet) { inUse.push_back(&packet); });
  for (Packet* packet : inUse) {
    packet->state.store(PacketState::kFree, std::memory_order_relaxed);
    impl_.GiveBack(*packet);
  }
  impl_.exhausted.store(0, std::memory_order_relaxed);
  impl_.badFrees.store(0, std::memory_order_relaxed);
  const PoolConfig initial;
  const bool same = impl_.config.count == initial.count && impl_.config.headroom == initial.headroom &&
                    impl_.config.dataRoom == initial.dataRoom &&
                    impl_.config.exactBlocks == initial.exactBlocks;
  if (!same) impl_.Build(initial);
}

void PacketPool::KeepSiteTexts(uintptr_t first, uintptr_t last) {
  impl_.ForEachInUse([&](Packet& packet) {
    const auto path = reinterpret_cast<uintptr_t>(packet.allocPath);
    if (path < first || path >= last) return;
    // ForEachInUse holds heapMutex for heap packets only; the loader calls this while nothing else runs.
    packet.allocPath = impl_.keptTexts.insert(packet.allocPath).first->c_str();
  });
}

bool AddHead(Packet& packet, uint32_t length) {
  if (packet.bufAddr == nullptr || length > packet.dataOff) return false;
  packet.dataOff = static_cast<uint16_t>(packet.dataOff - length);
  packet.dataLen += length;
  return true;
}

bool CutHead(Packet& packet, uint32_t length) {
  if (length > packet.Bytes().size()) return false;
  packet.dataOff = static_cast<uint16_t>(packet.dataOff + length);
  packet.dataLen -= length;
  return true;
}

}  // namespace vex::platform
