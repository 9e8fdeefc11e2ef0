// fabric.h - the ports of the running switch: records, sockets, counters, and the switch over them.
// In:  port records and their open sockets. Out: what the receive threads and the egress share.
// Fixed while anything uses it; a change of ports makes a new one, which may keep sockets and counters.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include "host/live/counters.h"
#include "host/live/l2_switch.h"
#include "host/live/port_io.h"
#include "platform/egress.h"
#include "platform/packet.h"

namespace vex::host::live {

struct LivePort {
  PortRecord record;
  std::shared_ptr<PortSocket> socket;
  std::shared_ptr<PortCounters> counters;
};

class Fabric {
 public:
  Fabric(std::vector<LivePort> ports, L2Switch::Limits limits, uint64_t seed);

  const std::vector<LivePort>& ports() const { return ports_; }
  L2Switch& l2() { return l2_; }
  const L2Switch& l2() const { return l2_; }
  const LivePort* Find(uint32_t index) const;  // by interface index; null: no such port

  // A packet that the service published: out of the port that the descriptor names. 0: sent.
  uint32_t Publish(platform::PacketPtr packet, const HostEgressDesc& desc);
  // An ND message that passed the service: on as any other frame of its port. 0: sent or nowhere to go.
  uint32_t Upload(platform::PacketPtr packet);

  // Packets that named a port which does not exist.
  uint64_t unknown_ports() const { return ValueOf(unknown_ports_); }

 private:
  std::vector<LivePort> ports_;
  L2Switch l2_;
  std::unordered_map<uint32_t, uint16_t> by_index_;
  Counter unknown_ports_{0};
};

uint32_t MonotonicSeconds();
// The outer tag's control word, when the frame has one.
std::optional<uint16_t> OuterTag(const ParsedFrame& parsed);

}  // namespace vex::host::live
