// ports.cpp - assignment of frames to ports: by capture interface, by station, or by outer tag.
#include "host/ports.h"

#include <fmt/format.h>

#include <utility>

namespace vex::host {
namespace {

constexpr size_t kRecentPorts = 4096;  // every VLAN id and any usual number of capture interfaces
constexpr uint32_t kUntagged = 1;      // the VLAN of untagged frames

uint64_t Key(const MacAddress& mac) {
  uint64_t key = 0;
  for (const uint8_t byte : mac) key = key << 8 | byte;
  return key;
}

}  // namespace

PortTable::PortTable(const std::vector<PortRecord>& configured, PortBy by) : by_(by), recent_(kRecentPorts) {
  for (const PortRecord& record : configured) {
    const auto [at, fresh] = ports_.try_emplace(record.index, record);
    if (!fresh) continue;  // the configuration refuses two ports of one index
    const PortRecord& port = at->second;
    if (port.capture_interface) by_interface_.try_emplace(*port.capture_interface, &port);
    for (const MacAddress& mac : port.macs) by_mac_.try_emplace(Key(mac), &port);
  }
}

const PortRecord& PortTable::Assign(const Frame& frame, const ParsedFrame& parsed) {
  if (by_ == PortBy::kMac) return ByMac(parsed.src_mac);
  const bool by_interface = by_ == PortBy::kInterface;
  const uint32_t key = by_interface ? frame.interface : parsed.tags == 0 ? kUntagged : parsed.vlan_id();
  if (key < kRecentPorts && recent_[key] != nullptr) return *recent_[key];
  const PortRecord& port = by_interface ? ByInterface(key) : ByIndex(key);
  if (key < kRecentPorts) recent_[key] = &port;
  return port;
}

const PortRecord& PortTable::ByInterface(uint32_t capture_interface) {
  const auto at = by_interface_.find(capture_interface);
  return at != by_interface_.end() ? *at->second : ByIndex(capture_interface + 1);
}

const PortRecord& PortTable::ByIndex(uint32_t index) {
  const auto [at, fresh] = ports_.try_emplace(index);
  if (fresh) {
    at->second.index = index;
    at->second.name = fmt::format("port {}", index);
  }
  return at->second;
}

const PortRecord& PortTable::ByMac(const MacAddress& mac) {
  const uint64_t key = Key(mac);
  const auto at = by_mac_.find(key);
  if (at != by_mac_.end()) return *at->second;
  if (learned_ == kMaxLearned) {
    ++macs_beyond_limit_;
    return *last_learned_;
  }
  while (ports_.contains(next_index_)) ++next_index_;
  const PortRecord& port = ByIndex(next_index_);
  by_mac_.emplace(key, &port);
  last_learned_ = &port;
  ++learned_;
  return port;
}

const PortRecord* PortTable::Find(uint32_t index) const {
  const auto at = ports_.find(index);
  return at == ports_.end() ? nullptr : &at->second;
}

}  // namespace vex::host
