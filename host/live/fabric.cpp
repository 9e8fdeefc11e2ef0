// fabric.cpp - the ports, and the way out for what the service sends.
#include "host/live/fabric.h"

#include <time.h>

#include <cstring>
#include <utility>

#include "platform/egress_record.h"

namespace vex::host::live {
namespace {

std::vector<PortRecord> RecordsOf(const std::vector<LivePort>& ports) {
  std::vector<PortRecord> records;
  for (const LivePort& port : ports) records.push_back(port.record);
  return records;
}

}  // namespace

uint32_t MonotonicSeconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return static_cast<uint32_t>(now.tv_sec);
}

std::optional<uint16_t> OuterTag(const ParsedFrame& parsed) {
  return parsed.tags == 0 ? std::nullopt : std::optional(parsed.vlan_tag);
}

Fabric::Fabric(std::vector<LivePort> ports, L2Switch::Limits limits, uint64_t seed)
    : ports_(std::move(ports)), l2_(RecordsOf(ports_), limits, seed) {
  uint16_t at = 0;
  for (const LivePort& port : ports_) by_index_.emplace(port.record.index, at++);
}

const LivePort* Fabric::Find(uint32_t index) const {
  const auto found = by_index_.find(index);
  return found == by_index_.end() ? nullptr : &ports_[found->second];
}

uint32_t Fabric::Publish(platform::PacketPtr packet, const HostEgressDesc& desc) {
  const platform::EgressRecord record = platform::LoadEgressRecord(desc);
  const LivePort* const port =
      Find(record.numbers[static_cast<size_t>(platform::EgressSetter::kSendIfIndex)]);
  if (port == nullptr) {
    Count(unknown_ports_);
    return 1;
  }
  uint16_t vlan = 0;  // host byte order, 0: untagged
  std::memcpy(&vlan, record.vlanBaseInfo, sizeof vlan);
  if (vlan == 0) vlan = kDefaultVlan;
  const ParsedFrame parsed = ParseFrame(packet->Bytes());
  const bool sent = port->socket->Send(packet->Bytes(), EditFor(vlan, OuterTag(parsed), port->record));
  Count(sent ? port->counters->published : port->counters->publish_failed);
  return sent ? 0 : 1;
}

uint32_t Fabric::Upload(platform::PacketPtr packet) {
  const auto found = by_index_.find(packet->attr.ifIndex);
  if (found == by_index_.end()) {
    Count(unknown_ports_);
    return 1;
  }
  const ParsedFrame parsed = ParseFrame(packet->Bytes());
  const uint16_t vlan = VlanOf(parsed, ports_[found->second].record);
  L2Switch::Route route;
  l2_.Find(parsed, found->second, MonotonicSeconds(), route);
  Count(ports_[found->second].counters->switched[static_cast<size_t>(route.fate)]);
  uint32_t failed = 0;
  for (const uint16_t at : route.ports) {
    const bool sent =
        ports_[at].socket->Send(packet->Bytes(), EditFor(vlan, OuterTag(parsed), ports_[at].record));
    failed |= sent ? 0 : 1;
  }
  return failed;
}

}  // namespace vex::host::live
