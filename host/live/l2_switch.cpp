// l2_switch.cpp - see l2_switch.h.
#include "host/live/l2_switch.h"

#include <utility>

namespace vex::host::live {
namespace {

constexpr uint16_t kVlanMask = 0x0FFF;
constexpr uint16_t kPriorityMask = 0xF000;

bool IsGroup(const MacAddress& mac) { return (mac[0] & 1) != 0; }

// 01-80-C2-00-00-00 to -0F: addresses of the link itself, which no bridge forwards (IEEE 802.1D 7.12.6).
bool IsReserved(const MacAddress& mac) {
  return mac[0] == 0x01 && mac[1] == 0x80 && mac[2] == 0xC2 && mac[3] == 0 && mac[4] == 0 && mac[5] < 0x10;
}

}  // namespace

uint16_t VlanOf(const ParsedFrame& parsed, const PortRecord& port) {
  return parsed.tags != 0 && parsed.vlan_id() != 0 ? parsed.vlan_id() : UntaggedVlan(port);
}

TagEdit EditFor(uint16_t vlan, std::optional<uint16_t> outer, const PortRecord& port) {
  if (vlan == UntaggedVlan(port)) {
    return {.kind = outer ? TagEdit::Kind::kRemove : TagEdit::Kind::kKeep, .tag = 0};
  }
  if (!outer) return {.kind = TagEdit::Kind::kInsert, .tag = vlan};
  if ((*outer & kVlanMask) == vlan) return {};
  return {.kind = TagEdit::Kind::kReplace, .tag = static_cast<uint16_t>((*outer & kPriorityMask) | vlan)};
}

L2Switch::L2Switch(std::vector<PortRecord> ports, Limits limits, uint64_t seed)
    : ports_(std::move(ports)), stations_(limits.stations, limits.age_seconds, seed) {}

void L2Switch::Learn(const ParsedFrame& parsed, uint16_t port, uint32_t now) {
  if (IsGroup(parsed.src_mac) || ports_[port].management) return;
  stations_.Learn(parsed.src_mac, VlanOf(parsed, ports_[port]), port, now);
}

void L2Switch::Find(const ParsedFrame& parsed, uint16_t port, uint32_t now, Route& route) const {
  route.ports.clear();
  route.fate = SwitchFate::kManagement;
  if (ports_[port].management) return;
  route.fate = SwitchFate::kReserved;
  if (IsReserved(parsed.dst_mac)) return;
  if (!IsGroup(parsed.dst_mac)) {
    if (const auto known = stations_.Find(parsed.dst_mac, VlanOf(parsed, ports_[port]), now)) {
      route.fate = *known == port ? SwitchFate::kSamePort : SwitchFate::kSent;
      if (*known != port) route.ports.push_back(*known);
      return;
    }
  }
  uint16_t other = 0;
  for (const PortRecord& record : ports_) {
    if (other != port && !record.management) route.ports.push_back(other);
    ++other;
  }
  route.fate = route.ports.empty() ? SwitchFate::kNoPort : SwitchFate::kFlooded;
}

}  // namespace vex::host::live
