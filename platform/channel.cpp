// channel.cpp - see channel.h; with the imports that create, find, fill and read channels.
// In:  packets. Out: the same packets; ChannelStats. The ring has exactly the depth that was asked for.
#include "platform/channel.h"

#include <algorithm>

#include "platform/faults.h"
#include "platform/findings.h"

namespace vex::platform {
namespace {

thread_local uint64_t t_sends = 0;

}  // namespace

uint64_t SendsOfThisThread() { return t_sends; }

Channel::Channel(std::string name, uint32_t id, uint32_t depth)
    : name_(std::move(name)), id_(id), depth_(depth), ring_(new Packet*[depth]) {}

bool Channel::Send(Packet* packet) {
  auto expected = PacketState::kOwned;
  if (!packet->state.compare_exchange_strong(expected, PacketState::kInChannel, std::memory_order_relaxed)) {
    ReportFinding("send of a packet that is free or already in a channel, on " + name_);
    return false;
  }
  {
    const std::lock_guard lock(lock_);
    const uint32_t size = size_.load(std::memory_order_relaxed);
    if (size < depth_) {
      uint32_t place = head_ + size;
      if (place >= depth_) place -= depth_;
      ring_[place] = packet;
      size_.store(size + 1, std::memory_order_release);
      ++stats_.sent;
      ++t_sends;
      stats_.highWater = std::max(stats_.highWater, size + 1);
      return true;
    }
    ++stats_.refused;
  }
  packet->state.store(PacketState::kOwned, std::memory_order_relaxed);
  return false;
}

bool Channel::Send(PacketPtr& packet) {
  if (packet == nullptr || !Send(packet.get())) return false;
  static_cast<void>(packet.release());
  return true;
}

PacketPtr Channel::Take() {
  Packet* packet = nullptr;
  {
    const std::lock_guard lock(lock_);
    const uint32_t size = size_.load(std::memory_order_relaxed);
    if (size == 0) return nullptr;
    packet = ring_[head_];
    head_ = head_ + 1 == depth_ ? 0 : head_ + 1;
    size_.store(size - 1, std::memory_order_release);
    ++stats_.received;
  }
  packet->state.store(PacketState::kOwned, std::memory_order_relaxed);
  return PacketPtr(packet);
}

size_t Channel::Drain() {
  size_t count = 0;
  while (Receive() != nullptr) ++count;
  return count;
}

ChannelStats Channel::Stats() const {
  const std::lock_guard lock(lock_);
  return stats_;
}

ChannelTable& Channels() {
  static ChannelTable* const table = new ChannelTable;
  return *table;
}

Channel* ChannelTable::Create(std::string_view name, uint32_t depth) {
  const std::lock_guard lock(mutex_);
  if (Channel* const existing = FindLocked(name)) return existing->Depth() == depth ? existing : nullptr;
  if (name.empty() || depth == 0 || next_ >= kMaxChannels) return nullptr;
  auto* const channel = new Channel(std::string(name), next_, depth);
  byId_[next_++].store(channel, std::memory_order_release);  // acquire in ById(): the channel is complete
  return channel;
}

Channel* ChannelTable::Find(std::string_view name) const {
  const std::lock_guard lock(mutex_);
  return FindLocked(name);
}

Channel* ChannelTable::FindLocked(std::string_view name) const {
  for (uint32_t id = 1; id < next_; ++id) {
    Channel* const channel = byId_[id].load(std::memory_order_relaxed);
    if (channel != nullptr && channel->Name() == name) return channel;
  }
  return nullptr;
}

Channel* ChannelTable::ById(uint32_t id) const {
  return id < kMaxChannels ? byId_[id].load(std::memory_order_acquire) : nullptr;
}

std::vector<Channel*> ChannelTable::All() const {
  const std::lock_guard lock(mutex_);
  std::vector<Channel*> channels;
  for (uint32_t id = 1; id < next_; ++id) {
    if (Channel* const channel = byId_[id].load(std::memory_order_relaxed)) channels.push_back(channel);
  }
  return channels;
}

bool ChannelTable::Remove(std::string_view name) {
  const std::lock_guard lock(mutex_);
  Channel* const channel = FindLocked(name);
  if (channel == nullptr) return false;
  byId_[channel->Id()].store(nullptr, std::memory_order_release);
  channel->Drain();
  delete channel;
  return true;
}

void ChannelTable::Reset() {
  for (const Channel* channel : All()) Remove(std::string(channel->Name()));
  const std::lock_guard lock(mutex_);
  next_ = 1;
}

}  // namespace vex::platform

using namespace vex::platform;  // NOLINT: what follows is nothing but the C surface over that namespace

extern "C" {

uint32_t ORB_ChannelCreate(const char* name, uint32_t depth) {
  if (const Outcome fault = Watch(Import::ORB_ChannelCreate, name, depth)) return fault.Code(kNoChannel);
  const Channel* const channel = name == nullptr ? nullptr : Channels().Create(name, depth);
  return channel == nullptr ? kNoChannel : channel->Id();
}

uint32_t ORB_ChannelGetIdByName(const char* name) {
  if (const Outcome fault = Watch(Import::ORB_ChannelGetIdByName, name)) return fault.Code(kNoChannel);
  const Channel* const channel = name == nullptr ? nullptr : Channels().Find(name);
  return channel == nullptr ? kNoChannel : channel->Id();
}

uint32_t ORB_ChannelDcSend(uint32_t channelId, OrbMbuf* pkt, uint32_t arg) {
  if (const Outcome fault = Watch(Import::ORB_ChannelDcSend, channelId, pkt, arg)) return fault.Code();
  Channel* const channel = Channels().ById(channelId);
  return channel != nullptr && pkt != nullptr && channel->Send(&PacketOf(pkt)) ? 0 : 1;
}

uint32_t ORB_ChannelDcRecv(uint32_t channelId, OrbMbuf** pkt) {
  if (const Outcome fault = Watch(Import::ORB_ChannelDcRecv, channelId, pkt)) {
    if (!fault.Hollow()) return fault.Code();
    *pkt = nullptr;
    return 0;
  }
  Channel* const channel = Channels().ById(channelId);
  if (channel == nullptr || pkt == nullptr) return 1;
  PacketPtr packet = channel->Receive();
  if (packet == nullptr) return 1;
  *pkt = packet.release();
  return 0;
}

}  // extern "C"
