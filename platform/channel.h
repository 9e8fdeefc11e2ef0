// channel.h - named, bounded, first-in first-out channels of packets.
// In:  packets from the module (ORB_ChannelDcSend) and from the host; each send hands the packet over.
// Out: the same packets in order; a full channel refuses and leaves the packet to its sender.
// Threads: any number of senders and receivers. An empty channel answers without taking its lock.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/packet.h"
#include "platform/spin_mutex.h"

namespace vex::platform {

constexpr uint32_t kNoChannel = 0xFFFFFFFF;

struct ChannelStats {
  uint64_t sent = 0;
  uint64_t refused = 0;  // the channel was full
  uint64_t received = 0;
  uint32_t highWater = 0;  // most packets held at once
};

class Channel {
 public:
  Channel(std::string name, uint32_t id, uint32_t depth);
  // True: the channel owns the packet now. False: full, or the packet is not the sender's (a finding).
  bool Send(Packet* packet);
  bool Send(PacketPtr& packet);  // empties the pointer when the channel took it
  // Null when empty.
  PacketPtr Receive() { return Size() == 0 ? nullptr : Take(); }
  size_t Drain();  // frees what is queued, answers how many

  const std::string& Name() const { return name_; }
  uint32_t Id() const { return id_; }
  uint32_t Depth() const { return depth_; }
  size_t Size() const { return size_.load(std::memory_order_acquire); }
  ChannelStats Stats() const;

 private:
  PacketPtr Take();
  const std::string name_;
  const uint32_t id_;
  const uint32_t depth_;
  mutable SpinMutex lock_;  // guards the ring and the counters
  const std::unique_ptr<Packet*[]> ring_;
  uint32_t head_ = 0;
  std::atomic<uint32_t> size_{0};  // written under the lock; read without it to see an empty channel
  ChannelStats stats_;
};

// Packets that channels took from the calling thread so far: whoever runs the hook on this thread sees by it
// whether something was delivered.
uint64_t SendsOfThisThread();

class ChannelTable {
 public:
  // The channel of that name. An existing one is answered when its depth is the same; null for another depth,
  // a depth of 0, an empty name or a full table.
  Channel* Create(std::string_view name, uint32_t depth);
  Channel* Find(std::string_view name) const;
  Channel* ById(uint32_t id) const;    // null when unknown; no lock
  std::vector<Channel*> All() const;   // in the order of creation
  bool Remove(std::string_view name);  // frees its packets; for tests of channels that come later
  void Reset();                        // every channel gone, their packets freed; pointers become invalid

 private:
  Channel* FindLocked(std::string_view name) const;
  static constexpr size_t kMaxChannels = 256;
  mutable std::mutex mutex_;  // guards creation and removal
  std::array<std::atomic<Channel*>, kMaxChannels> byId_{};
  uint32_t next_ = 1;  // id 0 is never given, so an unset id is noticed
};
ChannelTable& Channels();

}  // namespace vex::platform
