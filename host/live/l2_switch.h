// l2_switch.h - where a frame goes that the DHCP path does not keep: learned address, or flooding.
// In:  a received frame and its parse, the port it came in by. Out: the ports it leaves by, and how its outer
// tag changes on each. Every port carries every VLAN tagged, except one untagged (its `vlan`, 1 when not
// given). Management ports are no part of the switch: what comes in there ends there. Threads: any number;
// ports are fixed for the life of the switch.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "host/data_plane.h"
#include "host/live/mac_table.h"
#include "host/live/port_io.h"
#include "host/ports.h"

namespace vex::host::live {

inline constexpr uint16_t kDefaultVlan = 1;
inline constexpr size_t kMaxPorts = 256;

// The VLAN of an untagged frame.
constexpr uint16_t UntaggedVlan(const PortRecord& port) { return port.vlan == 0 ? kDefaultVlan : port.vlan; }
// The VLAN of a frame received on a port. Priority-tagged frames (VLAN id 0) are untagged ones.
uint16_t VlanOf(const ParsedFrame& parsed, const PortRecord& port);
// What a frame of that VLAN needs to leave by a port. `outer`: the tag control word it carries, if any.
TagEdit EditFor(uint16_t vlan, std::optional<uint16_t> outer, const PortRecord& port);

enum class SwitchFate : uint8_t { kSent, kFlooded, kSamePort, kNoPort, kReserved, kManagement, kCount };
constexpr std::string_view Name(SwitchFate fate) {
  constexpr std::string_view kNames[] = {"sent", "flooded", "same_port", "no_port", "reserved", "management"};
  return kNames[static_cast<size_t>(fate)];
}

class L2Switch {
 public:
  struct Limits {
    size_t stations = 16384;
    uint32_t age_seconds = 300;  // IEEE 802.1D's default
  };
  L2Switch(std::vector<PortRecord> ports, Limits limits, uint64_t seed);

  void Learn(const ParsedFrame& parsed, uint16_t port, uint32_t now);
  struct Route {
    SwitchFate fate = SwitchFate::kNoPort;
    std::vector<uint16_t> ports;  // positions in the port list
  };
  // Writes the result into `route`, whose memory is reused.
  void Find(const ParsedFrame& parsed, uint16_t port, uint32_t now, Route& route) const;

  const std::vector<PortRecord>& ports() const { return ports_; }
  const MacTable& stations() const { return stations_; }

 private:
  std::vector<PortRecord> ports_;
  MacTable stations_;
};

}  // namespace vex::host::live
