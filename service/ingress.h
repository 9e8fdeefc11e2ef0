// ingress.h - what arrives on the service's channels, checked.
// In:  a packet as the module sent it: behind the 24-byte ingress header, or an inner message.
// Out: the packet without that header and what its buffer's attributes say; or a report. Nothing is trusted
// that was not checked here.
#pragma once

#include <optional>

#include "dhcp_vex_rate_limit_notify.h"
#include "platform/packet.h"

namespace vex::service {

// A frame on its way through the service. Owns the packet.
struct Ingress {
  platform::PacketPtr packet;  // starts at the L2 header
  uint64_t sequence = 0;
  uint32_t port = 0;  // interface index
  uint16_t vlan = 0;  // 0: untagged
};

// Nothing, and the packet freed, when the header is not whole, its length is not 24 or a reserved word is not
// 0.
std::optional<Ingress> TakeIngress(platform::PacketPtr packet);

// The body of an inner message when it is a speed-info report; frees the packet in every case.
std::optional<DhcpSpeedInfoMsg> TakeSpeedInfo(platform::PacketPtr packet);

}  // namespace vex::service
